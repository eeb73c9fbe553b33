// The road of a line scan: frames into the ring -> completed slices -> scene -> reflectance -> corrected spectra.
//
// Without options a synthetic camera flies over a landscape, and the result is measured against what the land truly
// reflects. With options the frames are your own; see --help.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>

#include "support/calibration.h"
#include "support/cube_report.h"
#include "support/drawing.h"
#include "support/host_run.h"
#include "support/line_scan_demo.h"
#include "support/progress.h"
#include "support/result_folder.h"

using namespace host;

namespace {

struct Options {
  std::vector<std::string> frames;
  unsigned long width = 2048;
  unsigned long height = 1088;
  unsigned long stripHeight = 8;
  unsigned long firstBand = 18;
  unsigned long lastBand = 117;
  unsigned long sceneRows = 512;  // of the synthetic landscape
  bool keepFrames = false;
  CalibrationOptions calibration;
  std::string output = "results/line_scan";
};

using FrameSource = std::function<void(Frame& frame, unsigned long index)>;

// ---- The road, step by step ----

// Owns the ring in which the strips of successive frames find together.
class StitchingBuffer {
 public:
  explicit StitchingBuffer(StripLayout const& layout) {
    unsigned short*** planes = nullptr;
    KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16(&planes, layout.width, layout.stripHeight, layout.bands(),
                                                   layout.firstBand, layout.lastBand);
    planes_.reset(planes);
    if (planes == nullptr) throw HostError("not enough memory for the stitching buffer");
  }
  unsigned short*** planes() const { return planes_.get(); }

 private:
  struct Free {
    void operator()(unsigned short*** planes) const { KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16(planes); }
  };
  std::unique_ptr<unsigned short**, Free> planes_;
};

// Stitches all frames to a scene of counts. The slice cube holds a few slices only; each time it is full, its rows go
// to their place in the scene, which may be as long as memory allows.
CountCube stitchScene(FrameSource const& readFrameAt, unsigned long frames, StripLayout const& layout) {
  constexpr unsigned long kSlots = 16;
  unsigned long const bands = layout.bands();
  unsigned long const stripHeight = layout.stripHeight;
  unsigned long const slices = frames - bands + 1;
  CountCube scene(layout.width, slices * stripHeight, bands);
  CountCube sliceCube(layout.width, kSlots * stripHeight, bands);
  StitchingBuffer const buffer(layout);
  Frame frame(layout.width, layout.height);
  Progress progress("Stitching frames", frames);

  for (unsigned long t = 0; t < frames; ++t) {
    readFrameAt(frame, t);
    KORVA_Ref_CG_LS_StitchBandImage_uint16(buffer.planes(), frame.rows(), layout.width, stripHeight, layout.firstBand,
                                           layout.lastBand, t);
    progress.advance();
    // The first slice is complete once the last band has seen what the first band saw in frame 0.
    if (t < bands - 1) continue;
    KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16(sliceCube.planes(), buffer.planes(), layout.width, stripHeight,
                                                sliceCube.height(), bands, layout.firstBand, layout.lastBand, t);
    unsigned long const done = t - (bands - 1) + 1;
    unsigned long const filled = (done - 1) % kSlots + 1;
    if (filled < kSlots && done < slices) continue;
    // Slices fill the slice cube from the bottom up, and so does the scene.
    unsigned short* const* const* const from = sliceCube.planes();
    unsigned long const sourceRow = (kSlots - filled) * stripHeight;
    unsigned long const targetRow = (slices - done) * stripHeight;
    for (unsigned long band = 0; band < bands; ++band) {
      std::copy_n(from[band][sourceRow], filled * stripHeight * layout.width, scene[band][targetRow]);
    }
  }
  return scene;
}

// A reference frame as one slice: whatever the scene shows there, a slice's sample always comes from the same pixel.
CountCube sliceOf(Frame const& frame, StripLayout const& layout) {
  CountCube slice(layout.width, layout.stripHeight, layout.bands());
  for (unsigned long band = 0; band < slice.bands(); ++band) {
    KORVA_Ref_CG_LS_GetBandImageStrip_uint16(slice[band], frame.rows(), frame.width(), frame.height(),
                                             layout.stripHeight, layout.firstBand + band);
  }
  return slice;
}

// Counts become reflectance in place, slice by slice: one slice's coefficients serve them all.
void applyReflectance(CountCube& scene, Frame const& whiteFrame, Frame const* biasFrame, StripLayout const& layout,
                      CalibrationOptions const& options) {
  CountCube const white = sliceOf(whiteFrame, layout);
  std::optional<CountCube> bias;
  if (biasFrame != nullptr) {
    bias = sliceOf(*biasFrame, layout);
    KORVA_Ref_RC_CorrectBias(white.samples(), white.samples(), bias->samples(), white.count());
  }
  std::vector<double> coefficients(white.count());
  KORVA_Ref_RC_ComputeCorrectionCoefficients(coefficients.data(), white.samples(), white.count(),
                                             options.whiteReflectance, options.whiteExposure, kFlagged);
  unsigned long const count = white.planeCount();
  for (unsigned long band = 0; band < scene.bands(); ++band) {
    for (unsigned long row = 0; row < scene.height(); row += layout.stripHeight) {
      unsigned short* const samples = scene[band][row];
      if (bias) KORVA_Ref_RC_CorrectBias(samples, samples, bias->plane(band), count);
      KORVA_Ref_RC_ComputeReflectance(samples, samples, coefficients.data() + band * count, count, options.exposure,
                                      options.fullScale, kFlagged, kFlagged);
    }
  }
}

// Corrects a slice at a time: the working row stays small, and progress can be shown.
CountCube correctSpectra(CountCube const& reflectance, SpectralCorrection const& correction,
                         StripLayout const& layout) {
  auto const inBands = static_cast<unsigned int>(reflectance.bands());
  auto const outBands = static_cast<unsigned int>(correction.matrix.size());
  auto const samples = static_cast<unsigned int>(layout.width * layout.stripHeight);
  CountCube corrected(reflectance.width(), reflectance.height(), outBands);
  std::vector<double> scratch(samples);
  std::vector<double const*> const matrix = correction.rows();
  std::vector<unsigned short const* const*> in(inBands);
  std::vector<unsigned short* const*> out(outBands);
  Progress progress("Correcting spectra", reflectance.height() / layout.stripHeight);
  for (unsigned long row = 0; row < reflectance.height(); row += layout.stripHeight) {
    // A band table that starts at this row makes a cube of the slice, without copying a sample.
    for (unsigned long band = 0; band < inBands; ++band) in[band] = reflectance[band] + row;
    for (unsigned long band = 0; band < outBands; ++band) out[band] = corrected[band] + row;
    KORVA_Ref_SC_ApplySpectralCorrection_BSQ(out.data(), scratch.data(), in.data(), matrix.data(), outBands, inBands,
                                             samples);
    progress.advance();
  }
  passFlags(corrected, reflectance);
  return corrected;
}

struct Cubes {
  CountCube reflectance;
  CountCube corrected;
};

Cubes process(FrameSource const& source, unsigned long frames, Frame const& white, Frame const* bias,
              StripLayout const& layout, SpectralCorrection const& correction, CalibrationOptions const& options) {
  CountCube scene = stitchScene(source, frames, layout);
  applyReflectance(scene, white, bias, layout, options);
  CountCube corrected = correctSpectra(scene, correction, layout);
  return {std::move(scene), std::move(corrected)};
}

// ---- Options ----

StripLayout layoutOf(Options const& options) {
  if (options.lastBand < options.firstBand) {
    throw HostError("--last-band: expected a band from --first-band " + std::to_string(options.firstBand) +
                    " on, found " + std::to_string(options.lastBand));
  }
  if ((options.lastBand + 1) * options.stripHeight > options.height) {
    throw HostError("--last-band: expected a strip of " + std::to_string(options.stripHeight) +
                    " rows inside the frame's " + std::to_string(options.height) + " rows, found band " +
                    std::to_string(options.lastBand) + " ending at row " +
                    std::to_string((options.lastBand + 1) * options.stripHeight));
  }
  return {options.width, options.height, options.stripHeight, options.firstBand, options.lastBand};
}

void addOptions(CommandLine& line, Options& options) {
  Whole const size{1, kLargestSize};
  Whole const band{0, kLargestSize};
  line.add("--frames", options.frames, "raw frames of 16-bit samples in order, one or more a file [a landscape]");
  line.add("--width", options.width, size, "samples per row of a frame [2048]");
  line.add("--height", options.height, size, "rows of a frame [1088]");
  line.add("--strip-height", options.stripHeight, size, "rows of one band's strip [8]");
  line.add("--first-band", options.firstBand, band, "first strip to use, counted from 0 at the top [18]");
  line.add("--last-band", options.lastBand, band, "last strip to use [117]");
  line.add("--scene-rows", options.sceneRows, size, "rows of the synthetic landscape [512]");
  line.add("--keep-frames", options.keepFrames, "write the synthetic frames too (730 MB at full size)");
  addCalibrationOptions(line, "--frames", options.calibration);
  line.add("--output", options.output, "folder for the results [" + options.output + "]");
}

// ---- Results ----

// What a README shows of the whole road: the scene's left half before the correction, its right half after.
Picture overview(CubeReport const& report) {
  Picture scene = shrunkTo(report.markedAfter, 1216);
  unsigned long const half = scene.width() / 2;
  paste(scene, cropped(shrunkTo(report.markedBefore, 1216), 0, 0, half, scene.height()), 0, 0);
  fillBox(scene, {double(half) - 1, 0}, {double(half) + 1, double(scene.height())}, {255, 255, 255});
  return fewerLevels(
      stacked({captioned(scene, "Left: before correction, right: after (640, 550, 465 nm)"), report.spectra}), 5);
}

void processUserFrames(Options const& options) {
  CalibrationOptions const& calibration = options.calibration;
  StripLayout const layout = layoutOf(options);
  if (calibration.white.empty()) throw HostError("--white: expected a white reference beside --frames, found none");
  FrameSequence const frames(options.frames, options.width, options.height);
  if (frames.size() < layout.bands()) {
    throw HostError("--frames: expected at least " + std::to_string(layout.bands()) +
                    " frames, one for each band, found " + std::to_string(frames.size()));
  }
  Frame const white = readFrame(calibration.white, options.width, options.height);
  std::optional<Frame> bias;
  if (!calibration.bias.empty()) bias = readFrame(calibration.bias, options.width, options.height);
  SpectralCorrection const correction = readCorrection(calibration, layout.bands());
  checkRange(correction, calibration);

  ResultFolder folder(options.output);
  auto const source = [&](Frame& frame, unsigned long index) { frames.read(frame, index); };
  Cubes const cubes = process(source, frames.size(), white, bias ? &*bias : nullptr, layout, correction, calibration);
  Frame middle(options.width, options.height);
  frames.read(middle, frames.size() / 2);
  CubeReport const report = reportCube(cubes.reflectance, cubes.corrected, correction, calibration.fullScale,
                                       spreadPoints(cubes.corrected.width(), cubes.corrected.height()), {}, "Spectra");
  writeReport(folder, "", middle, cubes.corrected, correction, calibration.fullScale, report);
  folder.publish();
  std::printf("%lu bands of %lu x %lu are in %s\n", cubes.corrected.bands(), cubes.corrected.width(),
              cubes.corrected.height(), folder.path().c_str());
}

void runDemo(Options options) {
  CalibrationOptions& calibration = options.calibration;
  useDemoExposures(calibration);
  StripLayout const layout = layoutOf(options);
  if (options.sceneRows % options.stripHeight != 0) {
    throw HostError("--scene-rows: expected whole strips of " + std::to_string(options.stripHeight) + " rows, found " +
                    std::to_string(options.sceneRows));
  }
  ResultFolder folder(options.output);
  Scene const scene = landscape(options.width, options.sceneRows);
  LineScanDemo const demo(scene, layout, calibration);
  Frame const white = demo.white();
  Frame const bias = demo.bias();
  std::printf("Line scan, %lu frames of %lu x %lu samples, %lu bands in strips of %lu rows\n", demo.frames(),
              layout.width, layout.height, layout.bands(), layout.stripHeight);

  Frame middle(layout.width, layout.height);
  auto const source = [&](Frame& frame, unsigned long index) {
    demo.take(frame, index);
    if (index == demo.frames() / 2) std::copy_n(frame.samples(), frame.count(), middle.samples());
    if (!options.keepFrames) return;
    char name[40];
    std::snprintf(name, sizeof name, "frame_%05lu", index);
    folder.writeImage(name, frame, {"Raw frame " + std::to_string(index), {}, {}, 0});
  };
  Cubes const cubes = process(source, demo.frames(), white, &bias, layout, demo.correction(), calibration);

  double const fullScale = calibration.fullScale;
  folder.writeText("quality.csv",
                   measureQuality(cubes.reflectance, cubes.corrected, demo.correction(), fullScale, demo.truthRow()));
  CubeReport const report = reportCube(cubes.reflectance, cubes.corrected, demo.correction(), fullScale,
                                       scene.landmarks(), demo.truthRow(), "Six points of the landscape");
  writeCapture(folder, "", middle, white, bias, demo.correction());
  writeReport(folder, "", middle, cubes.corrected, demo.correction(), fullScale, report);
  folder.writePicture("overview.png", overview(report));
  folder.publish();
  std::printf("Results are in %s\n", folder.path().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("line_scan", "Line-scan frames to corrected reflectance cubes.");
  Options options;
  addOptions(line, options);
  return line.run(argc, argv, [&] { options.frames.empty() ? runDemo(options) : processUserFrames(options); });
}
