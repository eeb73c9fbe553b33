// A synthetic line-scan camera that flies over a synthetic landscape.
#ifndef KORVA_EXAMPLES_LINE_SCAN_DEMO_H
#define KORVA_EXAMPLES_LINE_SCAN_DEMO_H

#include <vector>

#include "calibration.h"
#include "camera.h"
#include "cube_report.h"
#include "scene.h"

namespace host {

// Strips of the sensor: frame bands first to last of stripHeight rows each carry filters, the others are dark.
struct StripLayout {
  unsigned long width;
  unsigned long height;
  unsigned long stripHeight;
  unsigned long firstBand;
  unsigned long lastBand;

  unsigned long bands() const { return lastBand - firstBand + 1; }
};

class LineScanDemo {
 public:
  LineScanDemo(Scene const& scene, StripLayout const& layout, CalibrationOptions const& options);

  SpectralCorrection const& correction() const { return correction_; }
  Frame white() const;
  Frame bias() const { return camera_.biasFrame(); }
  // Frames of the whole flight: each strip of the scene passes every band.
  unsigned long frames() const;
  void take(Frame& frame, unsigned long index) const;
  TruthRow truthRow() const;

 private:
  Scene const& scene_;
  StripLayout layout_;
  CalibrationOptions options_;
  SpectralCorrection correction_;
  Camera camera_;
  std::vector<float> strengths_;
  BandTable measured_;
  BandTable ideal_;
};

}  // namespace host

#endif
