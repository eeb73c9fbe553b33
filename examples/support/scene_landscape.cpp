// A river valley from the air: fields, a wood, a village with red roofs, a sports ground with artificial turf.
#include <numbers>

#include "scene.h"
#include "texture.h"

namespace host {
namespace {

auto box(double cx, double cy, double halfWidth, double halfHeight, double angle) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  return [=](double x, double y) {
    double const u = std::abs((x - cx) * c + (y - cy) * s) - halfWidth;
    double const v = std::abs(-(x - cx) * s + (y - cy) * c) - halfHeight;
    return std::hypot(std::max(u, 0.0), std::max(v, 0.0)) + std::min(std::max(u, v), 0.0);
  };
}

double riverMiddle(double x) { return 0.66 + 0.13 * std::sin(1.9 * x + 0.4) + 0.035 * std::sin(5.1 * x); }
double roadMiddle(double x) { return 0.34 + 0.05 * std::sin(1.3 * x - 1.5); }

// Fields are the cells of scattered seeds; each has its crop, its furrows and its own health.
void paintFields(Scene& scene) {
  struct Field {
    double x, y, angle, pitch, health;
    int crop;
  };
  std::vector<Field> fields;
  Random random(42);
  for (double y = -0.1; y < 1.2; y += 0.3) {
    for (double x = -0.1; x < scene.aspect() + 0.2; x += 0.36) {
      fields.push_back({x + random.between(-0.14, 0.14), y + random.between(-0.11, 0.11), random.between(-0.6, 0.9),
                        random.between(0.008, 0.016), random.between(0.75, 1.1), static_cast<int>(random.unit() * 5)});
    }
  }
  scene.paintAll([&](double x, double y, double) {
    double nearest = 1e9;
    double second = 1e9;
    Field const* field = nullptr;
    for (Field const& candidate : fields) {
      double const d = std::hypot((x - candidate.x) * 0.85, y - candidate.y);
      if (d < nearest) {
        second = nearest;
        nearest = d;
        field = &candidate;
      } else if (d < second) {
        second = d;
      }
    }
    double const grain = texture(x * 50, y * 50, 4, 4);
    if (second - nearest < 0.011) {
      return Surface{Material::leaf, Material::soil, static_cast<float>(0.7 + 0.3 * grain),
                     static_cast<float>(0.6 + 0.25 * grain)};
    }
    double const across = (x - field->x) * std::sin(field->angle) + (y - field->y) * std::cos(field->angle);
    double const furrow = 0.5 + 0.5 * std::sin(2 * std::numbers::pi * across / field->pitch);
    double const patchy = 0.5 + 0.5 * texture(x * 7, y * 7, 3, 8);
    double const shade = field->health * (0.84 + 0.14 * grain);
    auto const mixed = [&](Material crop, Material ground, double cover) {
      return Surface{crop, ground, static_cast<float>(std::clamp(cover, 0.0, 1.0)), static_cast<float>(shade)};
    };
    switch (field->crop) {
      case 0:
        return mixed(Material::youngLeaf, Material::soil, 0.55 + 0.35 * furrow + 0.3 * (patchy - 0.5));
      case 1:
        return mixed(Material::leaf, Material::soil, 0.25 + 0.7 * furrow);
      case 2:
        return mixed(Material::dryLeaf, Material::sand, 0.35 + 0.4 * furrow + 0.4 * (patchy - 0.5));
      case 3:
        return mixed(Material::soil, Material::bark, 0.35 + 0.5 * furrow);
      default:
        return mixed(Material::lemon, Material::youngLeaf, 0.3 + 0.35 * patchy + 0.15 * grain);
    }
  });
}

void paintRiver(Scene& scene) {
  auto const distance = [](double x, double y) {
    double const slope = (riverMiddle(x + 0.01) - riverMiddle(x - 0.01)) / 0.02;
    double const half = 0.05 + 0.012 * std::sin(3.7 * x) + 0.006 * texture(x * 14, y * 14, 3, 6);
    return std::abs(y - riverMiddle(x)) / std::sqrt(1 + slope * slope) - half;
  };
  auto const bank = [&](double x, double y) { return distance(x, y) - 0.014 - 0.008 * texture(x * 20, y * 20, 2, 5); };
  scene.paint(0, 0.3, scene.aspect(), 1, bank, [](double x, double y, double) {
    double const grain = texture(x * 90, y * 90, 3, 2);
    return Surface{Material::sand, Material::leaf, static_cast<float>(0.8 + 0.2 * grain),
                   static_cast<float>(0.9 + 0.15 * grain)};
  });
  scene.paint(0, 0.3, scene.aspect(), 1, distance, [](double x, double y, double d) {
    double const deep = std::clamp(-d / 0.03, 0.0, 1.0);
    double const wave = texture(x * 45, y * 110, 3, 15);
    return Surface{Material::water, Material::shallows, static_cast<float>(0.35 + 0.65 * deep),
                   static_cast<float>(0.95 + 0.18 * wave)};
  });
  scene.name("river", 2.7, riverMiddle(2.7));
}

void paintRoad(Scene& scene) {
  auto const middle = [](double x, double y) {
    double const slope = (roadMiddle(x + 0.01) - roadMiddle(x - 0.01)) / 0.02;
    return (y - roadMiddle(x)) / std::sqrt(1 + slope * slope);
  };
  scene.paint(
      0, 0, scene.aspect(), 0.6, [&](double x, double y) { return std::abs(middle(x, y)) - 0.017; },
      [&](double x, double y, double) {
        bool const dash = std::abs(middle(x, y)) < 0.0016 && std::fmod(x, 0.03) < 0.017;
        return dash ? plain(Material::white, 0.9) : plain(Material::asphalt, 1 + 0.15 * texture(x * 80, y * 80, 2, 1));
      });
  Random random(5);
  constexpr Material kPaints[] = {Material::red,   Material::white, Material::blue,
                                  Material::amber, Material::black, Material::lightGrey};
  for (double x = 0.1; x < scene.aspect(); x += random.between(0.07, 0.3)) {
    double const lane = random.unit() < 0.5 ? -0.008 : 0.008;
    double const angle = std::atan2(roadMiddle(x + 0.01) - roadMiddle(x - 0.01), 0.02);
    double const y = roadMiddle(x) + lane;
    Material const paint = kPaints[static_cast<int>(random.unit() * 6)];
    scene.paint(x - 0.02, y - 0.02, x + 0.02, y + 0.02, box(x, y, 0.009, 0.0046, angle),
                [=](double, double, double d) { return plain(d > -0.0022 ? paint : Material::solarCell, 1.0); });
  }
  // A bridge where a lane crosses the river.
  double const x = 1.86;
  double const y = riverMiddle(x);
  scene.paint(
      x - 0.03, roadMiddle(x), x + 0.03, 1, box(x, (roadMiddle(x) + 1.02) / 2, 0.012, (1.02 - roadMiddle(x)) / 2, 0),
      [=](double px, double py, double d) {
        bool const overWater = std::abs(py - y) < 0.085;
        if (overWater && d > -0.003) return plain(Material::white, 0.85);
        return plain(overWater ? Material::concrete : Material::sand, 0.95 + 0.1 * texture(px * 60, py * 60, 2, 9));
      });
}

// A crown is a dome with a sunlit and a shaded side, standing in its own shadow.
void paintTree(Scene& scene, double x, double y, double radius, Material foliage, double shade, std::uint64_t seed) {
  auto const round = [=](double cx, double cy, double size) {
    return [=](double px, double py) {
      double const angle = std::atan2(py - cy, px - cx);
      return std::hypot(px - cx, py - cy) - size * (1 + 0.16 * bumps(angle * 2.2 + 9, size * 90, seed));
    };
  };
  double const sx = x + 0.55 * radius;
  double const sy = y + 0.5 * radius;
  scene.paint(sx - 1.3 * radius, sy - 1.3 * radius, sx + 1.3 * radius, sy + 1.3 * radius, round(sx, sy, radius),
              [](double, double, double) {
                return Surface{Material::leaf, Material::soil, 0.5F, 0.3F};
              });
  scene.paint(x - 1.3 * radius, y - 1.3 * radius, x + 1.3 * radius, y + 1.3 * radius, round(x, y, radius),
              [=](double px, double py, double) {
                double const u = (px - x) / radius;
                double const v = (py - y) / radius;
                double const light = 0.8 - 0.28 * (u + v) - 0.12 * (u * u + v * v);
                double const clumps = texture(px * 150, py * 150, 2, seed);
                return plain(foliage, shade * light * (1 + 0.3 * clumps));
              });
}

void paintWood(Scene& scene, double cx, double cy, double rx, double ry, std::uint64_t seed) {
  Random random(seed);
  for (int k = 0; k < static_cast<int>(1700 * rx * ry * 8); ++k) {
    double const angle = random.between(0, 2 * std::numbers::pi);
    double const r = std::sqrt(random.unit()) * (1 + 0.15 * std::sin(3 * angle));
    bool const young = random.unit() < 0.28;
    bool const dry = random.unit() < 0.05;
    paintTree(scene, cx + rx * r * std::cos(angle), cy + ry * r * std::sin(angle), random.between(0.011, 0.022),
              dry ? Material::dryLeaf : (young ? Material::youngLeaf : Material::leaf), random.between(0.62, 0.95),
              static_cast<std::uint64_t>(k) + seed);
  }
}

void paintHouse(Scene& scene, double x, double y, double length, double width, double angle, Material roof,
                bool panels) {
  double const c = std::cos(angle);
  double const s = std::sin(angle);
  scene.shadeBy(x - 0.1, y - 0.1, x + 0.1, y + 0.1, [=](double px, double py) {
    return box(x + 0.014, y + 0.014, length, width, angle)(px, py) < 0 ? 0.38 : 1.0;
  });
  scene.paint(x - 0.1, y - 0.1, x + 0.1, y + 0.1, box(x, y, length, width, angle), [=](double px, double py, double) {
    double const along = (px - x) * c + (py - y) * s;
    double const across = -(px - x) * s + (py - y) * c;
    if (std::hypot(along - length * 0.6, across - width * 0.35) < 0.005) return plain(Material::concrete, 0.9);
    bool const sunny = across < 0;
    double const rows = 0.93 + 0.07 * std::sin(across * 1100);
    if (panels && sunny && std::abs(along) < length * 0.7 && across < -width * 0.2 && across > -width * 0.82) {
      bool const frame = std::abs(std::remainder(along, length * 0.35)) < 0.0012;
      return frame ? plain(Material::lightGrey, 0.8) : plain(Material::solarCell, 1.0);
    }
    if (std::abs(across) < 0.0016) return plain(roof, 1.2);
    return plain(roof, (sunny ? 1.05 : 0.66) * rows);
  });
}

void paintVillage(Scene& scene, double cx, double cy) {
  Random random(77);
  bool named = false;
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 6; ++column) {
      double const x = cx + (column - 2.5) * 0.165 + random.between(-0.01, 0.01);
      double const y = cy + (row - 0.5) * 0.155 + random.between(-0.01, 0.01);
      scene.paint(x - 0.09, y - 0.08, x + 0.09, y + 0.08, box(x, y, 0.073, 0.065, 0.04),
                  [](double px, double py, double) {
                    return Surface{Material::youngLeaf, Material::sand, 0.8F,
                                   static_cast<float>(0.75 + 0.15 * texture(px * 70, py * 70, 3, 21))};
                  });
      if (row == 1 && column == 3) {
        scene.paint(x - 0.06, y - 0.06, x + 0.06, y + 0.06, box(x, y, 0.042, 0.024, 0.3), [](double, double, double d) {
          return d > -0.004 ? plain(Material::white, 0.95) : plain(Material::cyan, 1.1);
        });
        scene.name("pool", x, y);
        continue;
      }
      double const kind = random.unit();
      Material const roof = kind < 0.62 ? Material::terracotta : (kind < 0.85 ? Material::slate : Material::lightGrey);
      paintHouse(scene, x - 0.01, y - 0.008, random.between(0.037, 0.05), random.between(0.024, 0.032),
                 random.between(-0.25, 0.35), roof, random.unit() < 0.4);
      paintTree(scene, x + 0.055, y + 0.045, 0.015, Material::leaf, 0.9, static_cast<std::uint64_t>(column + 7 * row));
      if (roof == Material::terracotta && !named) scene.name("tiled roof", x - 0.014, y - 0.02);
      named = named || roof == Material::terracotta;
    }
  }
}

void paintSportsGround(Scene& scene, double cx, double cy) {
  auto const oval = [=](double x, double y) {
    return std::hypot(std::max(std::abs(x - cx) - 0.105, 0.0), y - cy) - 0.1;
  };
  auto const around = [=](double x, double y) { return oval(x, y) - 0.02; };
  scene.paint(cx - 0.26, cy - 0.16, cx + 0.26, cy + 0.16, around, [](double x, double y, double) {
    return Surface{Material::youngLeaf, Material::soil, 0.85F,
                   static_cast<float>(0.85 + 0.1 * texture(x * 60, y * 60, 3, 61))};
  });
  scene.paint(cx - 0.26, cy - 0.16, cx + 0.26, cy + 0.16, oval, [=](double x, double y, double d) {
    double const lane = std::abs(std::remainder(d + 0.0045, 0.009));
    if (d > -0.037) return plain(lane < 0.0011 ? Material::white : Material::tomato, 0.95);
    double const u = std::abs(x - cx);
    double const v = std::abs(y - cy);
    bool const line = std::abs(std::hypot(x - cx, y - cy) - 0.022) < 0.0012 || u < 0.0012 ||
                      (std::abs(std::max(u - 0.098, (v - 0.054) * 1.0)) < 0.0012 && u < 0.0992 && v < 0.0552) ||
                      (std::abs(std::max(0.076 - u, v - 0.03)) < 0.0012 && u < 0.098 && v < 0.0312);
    if (line) return plain(Material::white, 0.95);
    bool const stripe = std::fmod(x - cx + 1, 0.028) < 0.014;
    return plain(Material::green, stripe ? 0.62 : 0.72);
  });
  scene.name("artificial turf", cx + 0.05, cy + 0.01);
}

}  // namespace

Scene landscape(unsigned long width, unsigned long height) {
  Scene scene(width, height);
  paintFields(scene);
  paintRiver(scene);
  paintRoad(scene);
  paintWood(scene, 3.5, 0.13, 0.4, 0.13, 1);
  paintWood(scene, 0.32, 0.1, 0.27, 0.12, 2);
  paintWood(scene, 1.2, 0.93, 0.3, 0.1, 3);
  Random random(3);
  for (double x = 0.05; x < scene.aspect(); x += random.between(0.04, 0.12)) {
    double const side = random.unit() < 0.5 ? -1.0 : 1.0;
    paintTree(scene, x, riverMiddle(x) + side * random.between(0.095, 0.12), random.between(0.011, 0.017),
              Material::leaf, 0.9, static_cast<std::uint64_t>(x * 100));
  }
  paintVillage(scene, 2.3, 0.165);
  paintSportsGround(scene, 1.3, 0.15);
  scene.name("wood", 3.45, 0.12);
  scene.name("ploughed field", 0.72, 0.5);
  return scene;
}

}  // namespace host
