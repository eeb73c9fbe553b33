#include "line_scan_demo.h"

namespace host {
namespace {

constexpr double kFullWidth = 14;

}  // namespace

LineScanDemo::LineScanDemo(Scene const& scene, StripLayout const& layout, CalibrationOptions const& options)
    : scene_(scene),
      layout_(layout),
      options_(options),
      correction_{{}, spreadWavelengths(layout.bands(), 465, 900)},
      camera_(layout.width, layout.height),
      strengths_(bandStrengths(correction_.wavelengths)),
      measured_(cameraBands(correction_.wavelengths, kFullWidth, 1)),
      ideal_(idealBands(correction_.wavelengths, kFullWidth)) {
  correction_.matrix = correctionMatrix(idealBands(correction_.wavelengths, kFullWidth),
                                        cameraBands(correction_.wavelengths, kFullWidth, 1), 0.01);
}

unsigned long LineScanDemo::frames() const { return scene_.height() / layout_.stripHeight + layout_.bands() - 1; }

Frame LineScanDemo::white() const {
  Frame frame(layout_.width, layout_.height);
  auto const tile = static_cast<float>(options_.whiteReflectance);
  camera_.expose(frame, options_.whiteExposure, ~0UL, 64, [&](unsigned long row) {
    unsigned long const place = row / layout_.stripHeight - layout_.firstBand;
    float const signal = place < layout_.bands() ? tile * strengths_[place] : 0.0F;
    return [signal](unsigned long) { return signal; };
  });
  return frame;
}

void LineScanDemo::take(Frame& frame, unsigned long index) const {
  // The scene moves down the sensor by one strip per frame, its lower end first: the band at place i sees in frame t
  // what the first band saw in frame t - i. Rows above the first band and strips beyond the scene wrap to huge
  // numbers and stay dark.
  unsigned long const strips = scene_.height() / layout_.stripHeight;
  camera_.expose(frame, options_.exposure, index, 1, [&](unsigned long row) {
    unsigned long const place = row / layout_.stripHeight - layout_.firstBand;
    unsigned long const slice = index - place;
    bool const dark = place >= layout_.bands() || slice >= strips;
    unsigned long const sceneRow = dark ? 0 : (strips - 1 - slice) * layout_.stripHeight + row % layout_.stripHeight;
    float const strength = dark ? 0.0F : strengths_[place];
    return [this, sceneRow, strength, band = dark ? 0 : place](unsigned long column) {
      return strength * seen(scene_.at(sceneRow, column), measured_, band);
    };
  });
}

TruthRow LineScanDemo::truthRow() const {
  return [this](unsigned long row, float* values) {
    for (std::size_t band = 0; band < ideal_.bands(); ++band) {
      for (unsigned long column = 0; column < scene_.width(); ++column) {
        *values++ = seen(scene_.at(row, column), ideal_, band);
      }
    }
  };
}

}  // namespace host
