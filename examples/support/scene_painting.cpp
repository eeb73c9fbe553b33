// A harbour painted on canvas. Beneath the paint lies a charcoal drawing: guide lines, hatching, an earlier ship and a
// line of writing, which only the near infrared sees.
#include <numbers>

#include "drawing.h"
#include "scene.h"
#include "texture.h"

namespace host {
namespace {

constexpr double kHorizon = 0.52;

Surface mixed(Material over, Material under, double share, double shade) {
  return {over, under, static_cast<float>(std::clamp(share, 0.0, 1.0)), static_cast<float>(shade)};
}

// Brush strokes follow a direction; bristles leave fine ridges along it.
double bristles(double x, double y, double angle, std::uint64_t seed) {
  double const along = x * std::cos(angle) + y * std::sin(angle);
  double const across = -x * std::sin(angle) + y * std::cos(angle);
  return 0.75 * bumps(along * 14, across * 190, seed) + 0.45 * texture(along * 9, across * 28, 2, seed + 3);
}

auto polygon(std::vector<Point> corners) {
  return [corners = std::move(corners)](double x, double y) {
    double nearest = 1e9;
    bool inside = false;
    for (std::size_t k = 0; k < corners.size(); ++k) {
      Point const a = corners[k];
      Point const b = corners[(k + 1) % corners.size()];
      double const dx = b.x - a.x;
      double const dy = b.y - a.y;
      double const t = std::clamp(((x - a.x) * dx + (y - a.y) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
      nearest = std::min(nearest, std::hypot(x - a.x - t * dx, y - a.y - t * dy));
      if ((a.y > y) != (b.y > y) && x < a.x + (y - a.y) * dx / dy) inside = !inside;
    }
    return inside ? -nearest : nearest;
  };
}

void paintSkyAndSea(Scene& scene) {
  double const sunX = 1.32;
  double const sunY = 0.3;
  scene.paintAll([=](double x, double y, double) {
    double const far = std::hypot(x - sunX, y - sunY);
    double const turn = 0.2 + 3.2 * std::exp(-far * 2.2);
    double const swirl = bristles(x - sunX, y - sunY, turn, 5);
    if (y < kHorizon) {
      double const glow = std::exp(-far * 3.2) + 0.12 * swirl;
      if (glow > 0.42) return mixed(Material::yellow, Material::amber, (glow - 0.42) * 3, 0.98 + 0.06 * swirl);
      if (glow > 0.2) return mixed(Material::amber, Material::violet, (glow - 0.2) * 4.5, 0.95 + 0.08 * swirl);
      return mixed(Material::violet, Material::blue, 0.15 + 3.4 * glow + 0.25 * swirl, 1.05 + 0.12 * swirl);
    }
    double const depth = (y - kHorizon) / (1 - kHorizon);
    double const wave = bumps(x * 9 / (0.12 + depth), std::log(0.05 + depth) * 26, 3) + 0.4 * bristles(x, y, 0, 8);
    double const path = std::exp(-std::pow((x - sunX) / (0.05 + 0.22 * depth), 2));
    if (path * (0.7 + 0.5 * wave) > 0.45) return mixed(Material::amber, Material::yellow, 0.5 + 0.4 * wave, 0.95);
    return mixed(wave > 0.25 ? Material::cyan : Material::indigo, Material::turquoise, 0.62 - 0.35 * depth + 0.2 * wave,
                 0.95 + 0.12 * wave);
  });
  auto const sun = [=](double x, double y) { return std::hypot(x - sunX, y - sunY) - 0.07; };
  scene.paint(sunX - 0.1, sunY - 0.1, sunX + 0.1, sunY + 0.1, sun, [=](double x, double y, double) {
    return mixed(Material::yellow, Material::white, 0.6 + 0.4 * bristles(x, y, std::atan2(y - sunY, x - sunX) + 1.6, 2),
                 1.0);
  });
}

void paintHills(Scene& scene) {
  auto const ridge = [](double x) {
    return kHorizon - 0.035 - 0.05 * bumps(x * 2.1 + 3, 0.5, 1) - 0.012 * bumps(x * 9, 1, 2);
  };
  scene.paint(
      0, 0.3, scene.aspect(), kHorizon, [=](double x, double y) { return std::max(ridge(x) - y, y - kHorizon); },
      [](double x, double y, double) {
        double const stroke = bristles(x, y, -0.5, 12);
        return mixed(Material::purple, Material::foliagePaint, 0.5 + 0.7 * stroke, 1.1 + 0.3 * stroke);
      });
}

void paintHouses(Scene& scene) {
  constexpr Material kWalls[] = {Material::crimson, Material::lemon, Material::turquoise, Material::orange,
                                 Material::plaster, Material::blue,  Material::magenta};
  double x = 0.02;
  Random random(9);
  for (Material const wall : kWalls) {
    double const width = random.between(0.075, 0.11);
    double const top = random.between(0.3, 0.38);
    double const foot = 0.6;
    double const right = x + width;
    scene.paint(x, top, right, foot, polygon({{x, top}, {right, top}, {right, foot}, {x, foot}}),
                [=](double px, double py, double) {
                  double const u = std::remainder((px - x) / width * 3 - 0.5, 1.0);
                  double const v = std::remainder((py - top) / 0.062 - 0.5, 1.0);
                  bool const window = std::abs(u) < 0.26 && std::abs(v) < 0.3;
                  bool const bar = std::abs(u) < 0.035 || std::abs(v) < 0.035;
                  double const stroke = bristles(px, py, 1.5, 21);
                  if (window) return bar ? plain(Material::white, 0.9) : plain(Material::indigo, 0.5);
                  return plain(wall, 0.9 + 0.1 * stroke);
                });
    scene.paint(x - 0.01, top - 0.08, right + 0.01, top + 0.01,
                polygon({{x - 0.008, top}, {x + width / 2, top - 0.06}, {right + 0.008, top}}),
                [=](double px, double py, double) {
                  double const tile = std::sin(py * 900) * 0.08 + std::sin(px * 700) * 0.05;
                  return plain(Material::terracotta, 0.85 + tile);
                });
    x = right + 0.004;
  }
  scene.paint(0, 0.595, x + 0.05, 0.65, polygon({{0, 0.598}, {x + 0.02, 0.598}, {x + 0.05, 0.648}, {0, 0.648}}),
              [](double px, double py, double) {
                bool const joint = std::abs(std::remainder(px + (py > 0.622 ? 0.03 : 0), 0.06)) < 0.0016 ||
                                   std::abs(py - 0.622) < 0.0014;
                return plain(Material::concrete, joint ? 0.5 : 0.85 + 0.12 * texture(px * 50, py * 50, 3, 4));
              });
}

void paintBoat(Scene& scene, double x, double y, double size, Material hull, Material sail) {
  scene.paint(x - size, y - size * 0.1, x + size, y + size * 0.3,
              polygon({{x - 0.62 * size, y},
                       {x + 0.7 * size, y - 0.05 * size},
                       {x + 0.48 * size, y + 0.2 * size},
                       {x - 0.46 * size, y + 0.2 * size}}),
              [=](double px, double py, double) {
                bool const trim = py < y + 0.045 * size;
                return plain(trim ? Material::white : hull, 0.85 + 0.1 * bristles(px, py, 0.05, 7));
              });
  scene.paint(
      x - size, y - 1.5 * size, x + size, y + 0.1 * size,
      polygon(
          {{x + 0.03 * size, y - 1.35 * size}, {x + 0.6 * size, y - 0.14 * size}, {x + 0.03 * size, y - 0.1 * size}}),
      [=](double px, double py, double) { return plain(sail, 0.92 + 0.12 * bristles(px, py, 1.2, 9)); });
  scene.paint(
      x - size, y - 1.5 * size, x + size, y + 0.1 * size,
      polygon(
          {{x - 0.05 * size, y - 1.2 * size}, {x - 0.05 * size, y - 0.1 * size}, {x - 0.5 * size, y - 0.16 * size}}),
      [=](double px, double py, double) {
        bool const stripe = std::fmod(py - y + 9 * size, 0.24 * size) < 0.12 * size;
        return plain(stripe ? hull : Material::white, 0.9 + 0.1 * bristles(px, py, 1.0, 10));
      });
  scene.paint(x - 0.1 * size, y - 1.5 * size, x + 0.1 * size, y,
              polygon({{x - 0.02 * size, y - 1.42 * size},
                       {x + 0.015 * size, y - 1.42 * size},
                       {x + 0.02 * size, y},
                       {x - 0.025 * size, y}}),
              [](double, double, double) { return plain(Material::bark, 0.9); });
}

// The drawing beneath as strokes in a picture: black is charcoal.
Picture charcoalDrawing(Scene const& scene) {
  Picture drawing(scene.width(), scene.height());
  double const size = static_cast<double>(scene.height());
  double const pen = std::max(1.2, size * 0.0026);
  Colour const black{0, 0, 0};
  auto const line = [&](double x0, double y0, double x1, double y1, double width) {
    drawLine(drawing, {x0 * size, y0 * size}, {x1 * size, y1 * size}, width, black);
  };
  // Guide lines of the composition, meeting at the vanishing point.
  for (int k = -7; k <= 7; ++k) line(1.32, kHorizon, 1.32 + k * 0.33, 1.0, pen * 0.7);
  for (double y : {0.25, kHorizon, 0.75}) line(0, y, scene.aspect(), y, pen * 0.7);
  // An earlier three-master, later painted over by sky and sea.
  double const x = 0.98;
  double const y = 0.66;
  std::vector<Point> hull;
  for (int k = 0; k <= 24; ++k) {
    double const t = k / 24.0;
    hull.push_back({(x - 0.26 + 0.54 * t) * size, (y + 0.07 * std::sin(std::numbers::pi * t) - 0.045 * t * t) * size});
  }
  drawPolyline(drawing, hull, pen * 1.3, black);
  line(x - 0.26, y, x + 0.28, y - 0.045, pen * 1.3);
  for (int mast = 0; mast < 3; ++mast) {
    double const mx = x - 0.15 + 0.15 * mast;
    double const top = y - 0.42 - 0.06 * (mast == 1);
    line(mx, y, mx, top, pen * 1.2);
    for (int yard = 0; yard < 3; ++yard) {
      double const yy = top + 0.05 + 0.11 * yard;
      double const half = 0.04 + 0.014 * yard;
      std::vector<Point> const sail{{(mx - half) * size, yy * size},
                                    {(mx + half) * size, yy * size},
                                    {(mx + half + 0.012) * size, (yy + 0.085) * size},
                                    {(mx - half - 0.012) * size, (yy + 0.085) * size},
                                    {(mx - half) * size, yy * size}};
      drawPolyline(drawing, sail, pen, black);
      for (int hatch = 0; hatch < 7; ++hatch) {
        double const h = mx - half + 2 * half * hatch / 7.0;
        line(h, yy + 0.08, h + half * 0.28, yy + 0.012, pen * 0.6);
      }
    }
    line(mx, top, x + 0.3, y - 0.05, pen * 0.5);
    line(mx, top, x - 0.27, y, pen * 0.5);
  }
  // Hatching for a sky that became a sunset.
  for (int k = 0; k < 60; ++k) line(1.5 + 0.006 * k, 0.05, 1.44 + 0.006 * k, 0.19, pen * 0.6);
  for (int k = 0; k < 60; ++k) line(0.1 + 0.0075 * k, 0.06, 0.16 + 0.0075 * k, 0.2, pen * 0.6);
  drawText(drawing, {0.62 * size, 0.155 * size}, 0.038 * size, "three masts, no sun - begin again", black, pen);
  drawText(drawing, {0.1 * size, 0.93 * size}, 0.034 * size, "for Ada, who asked what lies beneath", black, pen);
  return drawing;
}

// Turns paint into paint over charcoal where the drawing has strokes; the grain of the ground frays their edges.
void layOver(Scene& scene, Picture const& drawing) {
  double const size = static_cast<double>(scene.height());
  scene.paintAll([&](double x, double y, double) {
    auto const row = static_cast<unsigned long>(y * size);
    auto const column = static_cast<unsigned long>(x * size);
    Surface const& paint = scene.at(row, column);
    double const ink = (255 - drawing.at(column, row).red) / 255.0 + 0.3 * bumps(x * 300, y * 300, 4);
    return ink < 0.5 ? paint : Surface{overCharcoal(paint.over), overCharcoal(paint.under), paint.share, paint.shade};
  });
}

}  // namespace

Scene oldPainting(unsigned long width, unsigned long height) {
  Scene scene(width, height);
  paintSkyAndSea(scene);
  paintHills(scene);
  paintHouses(scene);
  paintBoat(scene, 1.62, 0.63, 0.12, Material::crimson, Material::lemon);
  paintBoat(scene, 1.08, 0.6, 0.075, Material::foliagePaint, Material::white);
  paintBoat(scene, 0.52, 0.83, 0.2, Material::blue, Material::orange);
  layOver(scene, charcoalDrawing(scene));
  // The weave of the canvas shows through as a fine grid of light and shade.
  scene.shadeBy(0, 0, scene.aspect(), 1, [](double x, double y) {
    return 1 + 0.035 * std::sin(x * 1150) * std::sin(y * 1150) + 0.02 * texture(x * 40, y * 40, 3, 6);
  });
  return scene;
}

}  // namespace host
