// The road of a line scan: frames into the ring -> completed slices -> scene -> reflectance -> corrected spectra.
#include "host.h"

using namespace host;

namespace {

struct Options {
  std::vector<std::string> frames;
  unsigned long width = 2048;
  unsigned long height = 1088;
  unsigned long stripHeight = 8;
  unsigned long firstBand = 18;
  unsigned long lastBand = 117;
  Calibration calibration;
  std::string output = "results/line_scan";

  unsigned long bands() const { return lastBand - firstBand + 1; }
};

// Stitches all frames to a scene of counts. The slice cube holds a few slices only; each time it is full, its rows go
// to their place in the scene, which may be as long as memory allows.
Counts stitchScene(Frames const& frames, Options const& options) {
  constexpr unsigned long kSlots = 16;
  unsigned long const bands = options.bands();
  unsigned long const stripHeight = options.stripHeight;
  unsigned long const slices = frames.size() - bands + 1;
  Counts scene(options.width, slices * stripHeight, bands);
  Counts const sliceCube(options.width, kSlots * stripHeight, bands);
  unsigned short*** ring = nullptr;
  KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16(&ring, options.width, stripHeight, bands, options.firstBand,
                                                 options.lastBand);
  std::unique_ptr<unsigned short**, void (*)(unsigned short***)> const owner(
      ring, KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16);
  if (ring == nullptr) throw Error("not enough memory for the stitching buffer");
  Counts const frame(options.width, options.height);
  Progress progress("Stitching frames", frames.size());

  for (unsigned long t = 0; t < frames.size(); ++t) {
    frames.read(frame, t);
    KORVA_Ref_CG_LS_StitchBandImage_uint16(ring, frame.rows(), options.width, stripHeight, options.firstBand,
                                           options.lastBand, t);
    progress.advance();
    // The first slice is complete once the last band has seen what the first band saw in frame 0.
    if (t < bands - 1) continue;
    KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16(sliceCube.planes(), ring, options.width, stripHeight,
                                                sliceCube.height(), bands, options.firstBand, options.lastBand, t);
    unsigned long const done = t - (bands - 1) + 1;
    unsigned long const filled = (done - 1) % kSlots + 1;
    if (filled < kSlots && done < slices) continue;
    // Slices fill the slice cube from the bottom up, and so does the scene.
    unsigned long const sourceRow = (kSlots - filled) * stripHeight;
    unsigned long const targetRow = (slices - done) * stripHeight;
    for (unsigned long band = 0; band < bands; ++band) {
      std::copy_n(sliceCube.rows(band)[sourceRow], filled * stripHeight * options.width, scene.rows(band)[targetRow]);
    }
  }
  return scene;
}

// A reference frame as one slice: whatever the scene shows there, a slice's sample always comes from the same pixel.
Counts readSlice(std::string const& path, Options const& options) {
  Counts const frame = readFrame(path, options.width, options.height);
  Counts slice(options.width, options.stripHeight, options.bands());
  for (unsigned long band = 0; band < slice.bands(); ++band) {
    KORVA_Ref_CG_LS_GetBandImageStrip_uint16(slice.rows(band), frame.rows(), frame.width(), frame.height(),
                                             options.stripHeight, options.firstBand + band);
  }
  return slice;
}

// Counts become reflectance in place, slice by slice: one slice's coefficients serve them all.
void applyReflectance(Counts const& scene, Counts const& white, Counts const* bias, Options const& options) {
  Calibration const& calibration = options.calibration;
  if (bias != nullptr) KORVA_Ref_RC_CorrectBias(white.samples(), white.samples(), bias->samples(), white.count());
  std::vector<double> coefficients(white.count());
  KORVA_Ref_RC_ComputeCorrectionCoefficients(coefficients.data(), white.samples(), white.count(),
                                             calibration.whiteReflectance, calibration.whiteExposure, kFlagged);
  unsigned long const count = white.planeCount();
  for (unsigned long band = 0; band < scene.bands(); ++band) {
    for (unsigned long row = 0; row < scene.height(); row += options.stripHeight) {
      unsigned short* const samples = scene.rows(band)[row];
      if (bias != nullptr) KORVA_Ref_RC_CorrectBias(samples, samples, bias->samples(band), count);
      KORVA_Ref_RC_ComputeReflectance(samples, samples, coefficients.data() + band * count, count, calibration.exposure,
                                      calibration.fullScale, kFlagged, kFlagged);
    }
  }
}

// Corrects a slice at a time: the working row stays small, and progress can be shown.
Counts correctSpectra(Counts const& scene, Correction const& correction, unsigned long stripHeight) {
  auto const inBands = static_cast<unsigned int>(scene.bands());
  auto const outBands = static_cast<unsigned int>(correction.matrix.size());
  auto const samples = static_cast<unsigned int>(scene.width() * stripHeight);
  Counts corrected(scene.width(), scene.height(), outBands);
  std::vector<double> scratch(samples);
  std::vector<double const*> const matrix = correction.rows();
  std::vector<unsigned short const* const*> in(inBands);
  std::vector<unsigned short* const*> out(outBands);
  Progress progress("Correcting spectra", scene.height() / stripHeight);
  for (unsigned long row = 0; row < scene.height(); row += stripHeight) {
    // A band table that starts at this row makes a cube of the slice, without copying a sample.
    for (unsigned long band = 0; band < inBands; ++band) in[band] = scene.rows(band) + row;
    for (unsigned long band = 0; band < outBands; ++band) out[band] = corrected.rows(band) + row;
    KORVA_Ref_SC_ApplySpectralCorrection_BSQ(out.data(), scratch.data(), in.data(), matrix.data(), outBands, inBands,
                                             samples);
    progress.advance();
  }
  passFlags(corrected, scene);
  return corrected;
}

void process(Options const& options) {
  Calibration const& calibration = options.calibration;
  if (options.lastBand < options.firstBand || (options.lastBand + 1) * options.stripHeight > options.height) {
    throw Error("--last-band: expected a band from --first-band " + std::to_string(options.firstBand) +
                " on whose strip of " + std::to_string(options.stripHeight) + " rows lies inside the frame's " +
                std::to_string(options.height) + " rows, found band " + std::to_string(options.lastBand));
  }
  Frames const frames(options.frames, options.width, options.height);
  if (frames.size() < options.bands()) {
    throw Error("--frames: expected at least " + std::to_string(options.bands()) +
                " frames, one for each band, found " + std::to_string(frames.size()));
  }
  Counts const white = readSlice(calibration.white, options);
  std::unique_ptr<Counts> bias;
  if (!calibration.bias.empty()) bias = std::make_unique<Counts>(readSlice(calibration.bias, options));
  Correction const correction = calibration.readCorrection(options.bands());
  ResultFolder folder(options.output);

  Counts const scene = stitchScene(frames, options);
  applyReflectance(scene, white, bias.get(), options);
  Counts const corrected = correctSpectra(scene, correction, options.stripHeight);

  publishCorrected(folder, corrected, correction, calibration.fullScale);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Line-scan frames to corrected reflectance cubes.", "line_scan");
  app.option_defaults()->always_capture_default();
  Options options;
  app.add_option("--frames", options.frames, "raw frames of 16-bit samples in order, one or more a file")
      ->required()
      ->expected(1, 1000000);
  app.add_option("--width", options.width, "samples per row of a frame")->check(kSize);
  app.add_option("--height", options.height, "rows of a frame")->check(kSize);
  app.add_option("--strip-height", options.stripHeight, "rows of one band's strip")->check(kSize);
  app.add_option("--first-band", options.firstBand, "first strip to use, counted from 0 at the top")
      ->check(CLI::Range(0UL, 65535UL));
  app.add_option("--last-band", options.lastBand, "last strip to use")->check(CLI::Range(0UL, 65535UL));
  options.calibration.addOptions(app);
  app.add_option("--output", options.output, "folder for the results");
  return run(app, argc, argv, [&] { process(options); });
}
