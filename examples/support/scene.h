// Synthetic scenes: pictures whose pixels are materials with reflectance spectra rather than colours.
#ifndef KORVA_EXAMPLES_SCENE_H
#define KORVA_EXAMPLES_SCENE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "spectra.h"

namespace host {

enum class Material : std::uint8_t {
  black,
  darkGrey,
  midGrey,
  lightGrey,
  white,
  skin,
  sky,
  foliagePaint,
  violet,
  turquoise,
  orange,
  indigo,
  crimson,
  purple,
  lime,
  amber,
  blue,
  green,
  red,
  yellow,
  magenta,
  cyan,
  leaf,
  youngLeaf,
  dryLeaf,
  soil,
  sand,
  wood,
  bark,
  terracotta,
  water,
  shallows,
  asphalt,
  concrete,
  plaster,
  slate,
  solarCell,
  tomato,
  lemon,
  plum,
  canvas,
  count,
  // From here on the same materials as thin paint over charcoal: no difference to the eye, dark to the infrared.
  overCharcoal = 64,
};

constexpr Material overCharcoal(Material material) {
  return static_cast<Material>(static_cast<std::uint8_t>(Material::overCharcoal) + static_cast<std::uint8_t>(material));
}

// Reflectance of every material; entries of no material are 0.
std::vector<Spectrum> materialSpectra();

// What one filter bank sees of each material, to be mixed by a pixel's shares.
class BandTable {
 public:
  explicit BandTable(FilterBank const& bank);

  std::size_t bands() const { return bands_; }
  float const* of(std::uint8_t material) const { return values_.data() + material * bands_; }

 private:
  std::size_t bands_;
  std::vector<float> values_;
};

// A pixel's appearance: a share of one material, the rest of another, both under the same shade.
struct Surface {
  Material over = Material::black;
  Material under = Material::black;
  float share = 1;
  float shade = 1;
};

inline Surface plain(Material material, double shade) { return {material, material, 1, static_cast<float>(shade)}; }

// What one band sees of a surface; values holds that band's view of each material.
inline float seen(Surface const& surface, BandTable const& table, std::size_t band) {
  float const over = table.of(static_cast<std::uint8_t>(surface.over))[band];
  float const under = table.of(static_cast<std::uint8_t>(surface.under))[band];
  return surface.shade * (under + surface.share * (over - under));
}

// A named place, for the spectra that a report shows.
struct Landmark {
  std::string name;
  unsigned long row;
  unsigned long column;
};

// Painted in units of its height: y from 0 to 1, x from 0 to aspect().
class Scene {
 public:
  Scene(unsigned long width, unsigned long height) : width_(width), height_(height), pixels_(width * height) {}

  unsigned long width() const { return width_; }
  unsigned long height() const { return height_; }
  double aspect() const { return static_cast<double>(width_) / static_cast<double>(height_); }
  Surface const& at(unsigned long row, unsigned long column) const { return pixels_[row * width_ + column]; }
  std::vector<Landmark> const& landmarks() const { return landmarks_; }

  void name(std::string const& what, double x, double y) {
    auto const size = static_cast<double>(height_);
    landmarks_.push_back({what, static_cast<unsigned long>(y * size), static_cast<unsigned long>(x * size)});
  }

  // Paints where distance(x, y), in units of the height, is negative; surface(x, y, distance) gives the look there.
  // The box bounds the pixels that are asked.
  template <typename Distance, typename Look>
  void paint(double left, double top, double right, double bottom, Distance const& distance, Look const& look) {
    double const pixel = 1.0 / static_cast<double>(height_);
    auto const bound = [&](double place, unsigned long size) {
      return static_cast<unsigned long>(std::clamp(place / pixel, 0.0, static_cast<double>(size)));
    };
    for (unsigned long row = bound(top, height_); row < bound(bottom + pixel, height_); ++row) {
      for (unsigned long column = bound(left, width_); column < bound(right + pixel, width_); ++column) {
        double const x = (static_cast<double>(column) + 0.5) * pixel;
        double const y = (static_cast<double>(row) + 0.5) * pixel;
        double const d = distance(x, y);
        if (d < pixel / 2) cover(pixels_[row * width_ + column], look(x, y, d), std::min(0.5 - d / pixel, 1.0));
      }
    }
  }

  // Paints everything.
  template <typename Look>
  void paintAll(Look const& look) {
    paint(
        0, 0, aspect(), 1, [](double, double) { return -1.0; }, look);
  }

  // Multiplies the shade by factor(x, y) within the box.
  template <typename Factor>
  void shadeBy(double left, double top, double right, double bottom, Factor const& factor) {
    auto const keep = [](double, double) { return -1.0; };
    double const size = static_cast<double>(height_);
    paint(left, top, right, bottom, keep, [&](double x, double y, double) {
      Surface surface = at(static_cast<unsigned long>(y * size), static_cast<unsigned long>(x * size));
      surface.shade *= static_cast<float>(factor(x, y));
      return surface;
    });
  }

 private:
  // An edge pixel keeps the stronger of the two materials that were there.
  static void cover(Surface& pixel, Surface const& look, double coverage) {
    if (coverage > 0.995) {
      pixel = look;
      return;
    }
    auto const strongest = [](Surface const& surface) { return surface.share >= 0.5F ? surface.over : surface.under; };
    float const share = static_cast<float>(coverage);
    pixel = {strongest(look), strongest(pixel), share, pixel.shade + share * (look.shade - pixel.shade)};
  }

  unsigned long width_;
  unsigned long height_;
  std::vector<Surface> pixels_;
  std::vector<Landmark> landmarks_;
};

// The three scenes of the demos.
Scene stillLife(unsigned long width, unsigned long height);    // a table with a colour chart, a plant and fruit
Scene landscape(unsigned long width, unsigned long height);    // fields, a river and a village from the air
Scene oldPainting(unsigned long width, unsigned long height);  // a painting with a charcoal drawing beneath

}  // namespace host

#endif
