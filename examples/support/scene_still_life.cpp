// A table by a wall: a colour chart, a plant in a pot, painted tiles, a bowl of water, fruit and its painted doubles.
#include <numbers>

#include "scene.h"
#include "texture.h"

namespace host {
namespace {

constexpr double kTableEdge = 0.66;

void paintRoom(Scene& scene) {
  scene.paintAll([](double x, double y, double) {
    double const light = 0.95 - 0.22 * std::hypot(x - 0.75, y - 0.2) + 0.05 * texture(x * 6, y * 6, 5, 1);
    return plain(Material::plaster, light);
  });
  auto const table = [](double, double y) { return kTableEdge - y; };
  scene.paint(0, kTableEdge, scene.aspect(), 1, table, [](double x, double y, double) {
    double const board = std::floor((y - kTableEdge) / 0.115);
    double const grain = texture(x * 3 + 17 * board, y * 90, 4, 5) + 0.5 * texture(x * 1.2, y * 14 + board, 3, 9);
    double const seam = std::abs(std::remainder(y - kTableEdge, 0.115)) < 0.0022 ? 0.45 : 1.0;
    return Surface{Material::wood, Material::bark, static_cast<float>(std::clamp(0.78 + 0.5 * grain, 0.0, 1.0)),
                   static_cast<float>(seam * (0.82 + 0.25 * (y - kTableEdge)))};
  });
}

// A soft dark ellipse where something stands on the table.
void paintShadow(Scene& scene, double x, double y, double width, double height) {
  scene.shadeBy(x - width * 1.6, y - height * 1.6, x + width * 1.6, y + height * 1.6, [=](double px, double py) {
    double const distance = std::hypot((px - x) / width, (py - y) / height);
    return 1 - 0.62 * std::exp(-1.8 * distance * distance * distance);
  });
}

void paintChart(Scene& scene, double left, double top, double patch) {
  constexpr Material kPatches[4][6] = {
      {Material::bark, Material::skin, Material::sky, Material::foliagePaint, Material::violet, Material::turquoise},
      {Material::orange, Material::indigo, Material::crimson, Material::purple, Material::lime, Material::amber},
      {Material::blue, Material::green, Material::red, Material::yellow, Material::magenta, Material::cyan},
      {Material::white, Material::plaster, Material::lightGrey, Material::midGrey, Material::darkGrey,
       Material::black}};
  double const gap = patch * 0.16;
  auto const box = [](double x0, double y0, double x1, double y1, double corner) {
    return [=](double x, double y) {
      double const dx = std::max(std::abs(x - (x0 + x1) / 2) - (x1 - x0) / 2 + corner, 0.0);
      double const dy = std::max(std::abs(y - (y0 + y1) / 2) - (y1 - y0) / 2 + corner, 0.0);
      return std::hypot(dx, dy) - corner;
    };
  };
  double const right = left + 6 * patch + 7 * gap;
  double const bottom = top + 4 * patch + 5 * gap;
  paintShadow(scene, (left + right) / 2 + 0.02, bottom, (right - left) * 0.55, 0.035);
  scene.paint(left, top, right, bottom, box(left, top, right, bottom, 0.012),
              [](double, double, double) { return plain(Material::black, 1.3); });
  for (int row = 0; row < 4; ++row) {
    for (int column = 0; column < 6; ++column) {
      double const x = left + gap + column * (patch + gap);
      double const y = top + gap + row * (patch + gap);
      scene.paint(x, y, x + patch, y + patch, box(x, y, x + patch, y + patch, 0.005),
                  [=](double, double, double) { return plain(kPatches[row][column], 0.98); });
    }
  }
  scene.name("red patch", left + gap + 2.5 * patch + 2 * gap, top + gap + 2.5 * patch + 2 * gap);
}

// A pointed leaf from its foot along a direction, with a midrib, side veins and a light and a dark half.
void paintLeaf(Scene& scene, double x, double y, double angle, double length, double width, Material material,
               double shade, double bend) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  auto const place = [=](double px, double py) {
    double const along = ((px - x) * c + (py - y) * s) / length;
    double const across = (-(px - x) * s + (py - y) * c) - bend * length * along * (1 - along) * 4;
    return std::pair(along, across);
  };
  auto const distance = [=](double px, double py) {
    auto const [along, across] = place(px, py);
    double const inside = std::clamp(along, 0.0, 1.0);
    double const half = width * std::pow(std::sin(std::numbers::pi * std::pow(inside, 0.8)), 0.85);
    double const end = std::max({-along, along - 1, 0.0}) * length;
    return std::hypot(std::max(std::abs(across) - half, 0.0), end) - (std::abs(across) < half ? 0.004 : 0) + 0.0005;
  };
  double const reach = length * (1.15 + std::abs(bend));
  scene.paint(x - reach, y - reach, x + reach, y + reach, distance, [=](double px, double py, double) {
    auto const [along, across] = place(px, py);
    double const veins = std::abs(std::remainder(along * 9 - std::abs(across) / width * 1.1, 1.0));
    double const rib = std::exp(-std::pow(across / (0.045 * width * (1.6 - along)), 2));
    double const side = 0.5 * std::exp(-std::pow(veins / 0.07, 2)) * (1 - along);
    double const half = across > 0 ? 0.86 : 1.06;
    double const blotch = 1 + 0.1 * texture(px * 60, py * 60, 3, 31);
    return Surface{Material::youngLeaf, material, static_cast<float>(std::min(1.0, 0.75 * rib + 0.5 * side)),
                   static_cast<float>(shade * half * blotch * (0.8 + 0.25 * along))};
  });
}

void paintPlant(Scene& scene, double x, double foot) {
  double const top = foot - 0.25;
  paintShadow(scene, x + 0.03, foot, 0.2, 0.045);
  auto const pot = [=](double px, double py) {
    double const half = 0.13 - 0.2 * (py - top) * 0.8;
    double const rim = std::max({std::abs(px - x) - 0.145, top - py, py - top - 0.045});
    return std::min(rim, std::max({std::abs(px - x) - half, top - py, py - foot}));
  };
  scene.paint(x - 0.2, top, x + 0.2, foot, pot, [=](double px, double py, double) {
    double const u = (px - x) / 0.15 + 0.35;
    double const rim = py - top < 0.045 ? 1.08 : 0.96 - 0.35 * std::exp(-std::pow((py - top - 0.045) / 0.02, 2));
    double const shade = rim * (1.12 - 0.55 * u * u) + 0.05 * texture(px * 40, py * 40, 4, 3);
    return plain(Material::terracotta, shade);
  });
  Random random(11);
  double const crown = top - 0.17;
  for (int k = 0; k < 46; ++k) {
    double const turn = k * 2.39996;
    double const spread = 0.19 * std::sqrt((45 - k) / 46.0);
    double const lx = x + spread * 1.25 * std::cos(turn);
    double const ly = crown + 0.05 + spread * 0.8 * std::sin(turn);
    double const angle = std::atan2(ly - crown - 0.03, lx - x) + random.between(-0.35, 0.35);
    bool const young = random.unit() < 0.3;
    paintLeaf(scene, lx - 0.05 * std::cos(angle), ly - 0.05 * std::sin(angle), angle, random.between(0.15, 0.21),
              random.between(0.032, 0.046), young ? Material::youngLeaf : Material::leaf,
              random.between(0.72, 1.0) * (0.72 + 0.006 * k), random.between(-0.1, 0.1));
  }
}

void paintBall(Scene& scene, double x, double y, double radius, double stretch, Material skin, std::uint64_t seed) {
  paintShadow(scene, x + 0.25 * radius, y + 0.86 * radius, radius * 1.25 * stretch, radius * 0.35);
  auto const distance = [=](double px, double py) {
    return std::hypot((px - x) / stretch, py - y) - radius * (1 + 0.012 * std::sin(5 * std::atan2(py - y, px - x)));
  };
  scene.paint(x - radius * stretch * 1.1, y - radius * 1.1, x + radius * stretch * 1.1, y + radius * 1.1, distance,
              [=](double px, double py, double) {
                double const u = (px - x) / stretch / radius;
                double const v = (py - y) / radius;
                double const depth = std::sqrt(std::max(0.0, 1 - u * u - v * v));
                double const light = std::max(0.0, -0.42 * u - 0.55 * v + 0.72 * depth);
                double const gloss = std::pow(std::max(0.0, -0.36 * u - 0.42 * v + 0.83 * depth), 60);
                double const pores = 0.03 * texture(px * 160, py * 160, 2, seed);
                return Surface{Material::white, skin, static_cast<float>(0.75 * gloss),
                               static_cast<float>(0.3 + 0.78 * light + pores)};
              });
}

void paintTiles(Scene& scene, double left, double top, double size) {
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      double const cx = left + (column + 0.5) * size;
      double const cy = top + (row + 0.5) * size;
      auto const square = [=](double x, double y) {
        return std::max(std::abs(x - cx), std::abs(y - cy)) - size * 0.485;
      };
      scene.paint(cx - size / 2, cy - size / 2, cx + size / 2, cy + size / 2, square, [=](double x, double y, double) {
        double const r = std::hypot(x - cx, y - cy) / size;
        double const angle = std::atan2(y - cy, x - cx);
        double const petals = r - 0.2 - 0.13 * std::abs(std::cos(4 * angle));
        double const corner = std::hypot(std::abs(x - cx) / size - 0.5, std::abs(y - cy) / size - 0.5);
        double const glaze = 0.92 + 0.1 * texture(x * 30, y * 30, 3, 77);
        if (r < 0.09) return plain(Material::amber, glaze);
        if (std::abs(petals) < 0.022 || std::abs(corner - 0.25) < 0.02) return plain(Material::blue, glaze);
        if (petals < 0 && r > 0.13) return plain(Material::cyan, glaze * 0.95);
        if (corner < 0.17) return plain(Material::indigo, glaze * 1.05);
        return plain(Material::white, glaze * 0.93);
      });
    }
  }
  scene.name("blue glaze", left + 0.075 * size, top + 0.075 * size);
}

void paintBowl(Scene& scene, double x, double y, double radius) {
  paintShadow(scene, x + 0.03, y + radius * 0.5, radius * 1.2, radius * 0.45);
  auto const body = [=](double px, double py) {
    double const u = (px - x) / radius;
    double const depth = 0.62 * std::sqrt(std::max(0.0, 1 - u * u * 0.98));
    return std::max(std::abs(px - x) - radius, std::max(y - py, py - y - radius * depth));
  };
  scene.paint(x - radius, y, x + radius, y + radius, body, [=](double px, double, double) {
    double const u = (px - x) / radius + 0.3;
    return plain(Material::white, 0.92 - 0.35 * u * u);
  });
  auto const ellipse = [=](double scale) {
    return [=](double px, double py) { return std::hypot(px - x, (py - y) * 2.6) - radius * scale; };
  };
  double const half = radius / 2.6;
  scene.paint(x - radius, y - half, x + radius, y + half, ellipse(1.0),
              [](double, double, double) { return plain(Material::white, 1.0); });
  scene.paint(x - radius, y - half, x + radius, y + half, ellipse(0.93), [=](double px, double py, double) {
    double const r = std::hypot(px - x - 0.02, (py - y) * 2.6 - 0.03) / radius;
    double const ripple = std::sin(60 * r) * std::exp(-2.2 * r);
    double const glint = std::pow(std::max(0.0, ripple), 3) * 0.4 * bumps(px * 8, py * 8, 3);
    return Surface{Material::white, r < 0.6 ? Material::water : Material::shallows,
                   static_cast<float>(std::clamp(glint, 0.0, 1.0)), static_cast<float>(0.9 + 0.3 * ripple)};
  });
  scene.name("water", x + 0.6 * radius, y + 0.12 * radius);
}

}  // namespace

Scene stillLife(unsigned long width, unsigned long height) {
  Scene scene(width, height);
  paintRoom(scene);
  paintTiles(scene, 1.34, 0.06, 0.15);
  paintChart(scene, 0.08, 0.14, 0.095);
  paintPlant(scene, 1.03, 0.8);
  paintBowl(scene, 1.6, 0.74, 0.2);
  paintBall(scene, 0.2, 0.79, 0.085, 1.0, Material::tomato, 1);
  paintBall(scene, 0.38, 0.83, 0.07, 1.3, Material::lemon, 2);
  paintBall(scene, 0.59, 0.78, 0.075, 1.0, Material::amber, 3);
  paintBall(scene, 0.73, 0.87, 0.06, 1.0, Material::plum, 4);
  paintBall(scene, 0.52, 0.91, 0.055, 1.0, Material::foliagePaint, 5);
  scene.name("plum", 0.715, 0.87);
  scene.name("green paint", 0.505, 0.905);
  paintLeaf(scene, 1.22, 0.93, -0.3, 0.2, 0.045, Material::leaf, 0.95, 0.12);
  scene.name("leaf", 1.31, 0.935);
  paintLeaf(scene, 1.0, 0.9, 0.15, 0.17, 0.04, Material::dryLeaf, 0.95, -0.1);
  paintLeaf(scene, 0.83, 0.955, -0.5, 0.12, 0.03, Material::dryLeaf, 0.85, 0.08);
  return scene;
}

}  // namespace host
