#include "scene.h"

namespace host {
namespace {

Spectrum grey(double level) {
  return tabled([=](double nm) { return level * (1 + 0.04 * step(nm, 700, 120)); });
}

// A pigment: a floor, any number of humps and steps; most pigments turn pale in the near infrared.
struct Feature {
  double height;
  double place;
  double width;
};

Spectrum pigment(double floor, std::vector<Feature> const& humps, std::vector<Feature> const& steps) {
  return tabled([&](double nm) {
    double value = floor;
    for (Feature const& hump : humps) value += hump.height * bump(nm, hump.place, hump.width);
    for (Feature const& rise : steps) value += rise.height * step(nm, rise.place, rise.width);
    return std::clamp(value, 0.005, 0.97);
  });
}

// Chlorophyll's green hump, its dip near 675 nm and the red edge; dryness trades them for browns.
Spectrum foliage(double green, double edge, double plateau) {
  return tabled([=](double nm) {
    double const visible = 0.035 + green * bump(nm, 552, 32) + 0.35 * green * bump(nm, 620, 45);
    return visible - 0.012 * bump(nm, 676, 14) + plateau * step(nm, edge, 11) - 0.03 * bump(nm, 970, 25);
  });
}

}  // namespace

std::vector<Spectrum> materialSpectra() {
  std::vector<Spectrum> spectra(128, Spectrum{});
  auto const set = [&](Material material, Spectrum const& spectrum) {
    spectra[static_cast<std::size_t>(material)] = spectrum;
  };
  set(Material::black, grey(0.03));
  set(Material::darkGrey, grey(0.09));
  set(Material::midGrey, grey(0.2));
  set(Material::lightGrey, grey(0.37));
  set(Material::white, pigment(0.2, {}, {{0.7, 400, 12}}));
  set(Material::skin, pigment(0.14, {{-0.05, 545, 20}, {-0.04, 578, 10}}, {{0.16, 480, 40}, {0.36, 605, 22}}));
  set(Material::sky, pigment(0.12, {{0.22, 460, 55}}, {{0.25, 740, 40}}));
  set(Material::foliagePaint, pigment(0.05, {{0.13, 545, 38}}, {{0.12, 800, 40}}));
  set(Material::violet, pigment(0.14, {{0.3, 440, 50}}, {{0.32, 690, 30}}));
  set(Material::turquoise, pigment(0.1, {{0.5, 500, 50}}, {{0.15, 790, 35}}));
  set(Material::orange, pigment(0.045, {}, {{0.58, 588, 14}}));
  set(Material::indigo, pigment(0.07, {{0.32, 450, 38}}, {{0.35, 730, 28}}));
  set(Material::crimson, pigment(0.09, {{0.06, 440, 40}}, {{0.52, 608, 14}}));
  set(Material::purple, pigment(0.05, {{0.13, 430, 35}}, {{0.2, 660, 28}, {0.25, 760, 30}}));
  set(Material::lime, pigment(0.06, {{0.45, 545, 42}, {0.22, 620, 60}}, {{0.25, 730, 40}}));
  set(Material::amber, pigment(0.06, {}, {{0.62, 560, 17}}));
  set(Material::blue, pigment(0.04, {{0.32, 452, 30}}, {{0.3, 770, 25}}));
  set(Material::green, pigment(0.05, {{0.29, 532, 34}}, {{0.15, 790, 35}}));
  set(Material::red, pigment(0.04, {}, {{0.64, 612, 11}}));
  set(Material::yellow, pigment(0.06, {}, {{0.7, 518, 14}}));
  set(Material::magenta, pigment(0.12, {{0.26, 440, 50}}, {{0.62, 618, 14}}));
  set(Material::cyan, pigment(0.06, {{0.38, 472, 48}}, {{0.3, 820, 35}}));
  set(Material::leaf, foliage(0.085, 712, 0.46));
  set(Material::youngLeaf, foliage(0.19, 702, 0.56));
  set(Material::dryLeaf, pigment(0.06, {{-0.02, 672, 25}}, {{0.2, 570, 40}, {0.26, 720, 50}}));
  set(Material::soil, pigment(0.05, {}, {{0.12, 580, 60}, {0.2, 820, 110}}));
  set(Material::sand, pigment(0.16, {}, {{0.26, 530, 60}, {0.14, 760, 110}}));
  set(Material::wood, pigment(0.08, {}, {{0.25, 560, 45}, {0.3, 690, 60}}));
  set(Material::bark, pigment(0.05, {}, {{0.08, 580, 50}, {0.2, 740, 60}}));
  set(Material::terracotta, pigment(0.07, {{-0.05, 860, 70}}, {{0.3, 575, 22}, {0.16, 700, 45}}));
  set(Material::water, pigment(0.012, {{0.045, 480, 60}, {0.02, 560, 40}}, {}));
  set(Material::shallows, pigment(0.02, {{0.28, 480, 60}, {0.06, 570, 50}}, {}));
  set(Material::asphalt, pigment(0.06, {}, {{0.06, 620, 120}}));
  set(Material::concrete, pigment(0.22, {}, {{0.16, 560, 90}}));
  set(Material::plaster, pigment(0.36, {}, {{0.22, 500, 70}}));
  set(Material::slate, pigment(0.08, {{0.035, 470, 60}}, {{0.06, 800, 90}}));
  set(Material::solarCell, pigment(0.015, {{0.06, 450, 40}}, {{0.05, 930, 25}}));
  set(Material::tomato, pigment(0.03, {{-0.01, 550, 40}}, {{0.5, 598, 11}, {0.12, 730, 40}}));
  set(Material::lemon, pigment(0.05, {{-0.03, 675, 12}}, {{0.6, 516, 12}, {0.14, 720, 30}}));
  set(Material::plum, pigment(0.028, {{0.035, 430, 40}}, {{0.05, 640, 20}, {0.38, 735, 28}}));
  set(Material::canvas, pigment(0.3, {}, {{0.32, 520, 60}}));

  auto const charcoal = static_cast<std::size_t>(Material::overCharcoal);
  for (std::size_t k = 0; k < static_cast<std::size_t>(Material::count); ++k) {
    spectra[charcoal + k] = tabled([&](double nm) {
      auto const place = static_cast<std::size_t>((nm - 400) / 5 + 0.5);
      double const transparent = 0.85 * step(nm, 770, 14);
      return spectra[k][place] * (1 - transparent) + 0.04 * transparent;
    });
  }
  return spectra;
}

BandTable::BandTable(FilterBank const& bank) : bands_(bank.size()) {
  for (Spectrum const& spectrum : materialSpectra()) {
    for (Spectrum const& response : bank) {
      double sum = 0;
      for (std::size_t k = 0; k < kSpectrumSize; ++k) sum += response[k] * spectrum[k];
      values_.push_back(static_cast<float>(sum));
    }
  }
}

}  // namespace host
