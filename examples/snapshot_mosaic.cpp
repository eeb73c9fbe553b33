// The road of a snapshot frame: raw counts -> band images at one common point -> reflectance -> corrected spectra.
#include "host.h"

using namespace host;

namespace {

// Every band of a mosaic frame, resampled to the middle of the cell, so that all bands show the same points.
Counts cutMosaicBands(Counts const& frame, unsigned long cellWidth, unsigned long cellHeight) {
  Counts const bandImage(frame.width() / cellWidth, frame.height() / cellHeight);
  Counts cube(bandImage.width(), bandImage.height(), cellWidth * cellHeight);
  auto const mosaicWidth = static_cast<unsigned int>(cellWidth);
  auto const mosaicHeight = static_cast<unsigned int>(cellHeight);
  auto const width = static_cast<unsigned int>(bandImage.width());
  auto const height = static_cast<unsigned int>(bandImage.height());
  double const targetRow = (mosaicHeight - 1) / 2.0;
  double const targetColumn = (mosaicWidth - 1) / 2.0;

  for (unsigned int band = 0; band < cube.bands(); ++band) {
    KORVA_Ref_CG_SSM_GetBandImage_uint16(bandImage.rows(), frame.rows(), frame.width(), frame.height(), cellWidth,
                                         cellHeight, band);
    unsigned int filterRow = 0;
    unsigned int filterColumn = 0;
    KORVA_Ref_DM_ComputeFilterPosition(&filterRow, &filterColumn, mosaicWidth, band);
    double rowOffset = 0;
    double columnOffset = 0;
    KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition(&rowOffset, &columnOffset, filterRow, filterColumn,
                                                               targetRow, targetColumn);
    double weights[4];
    KORVA_Ref_DM_ComputeCoefficientsBilinear(weights, mosaicHeight, mosaicWidth, rowOffset, columnOffset);
    KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16(cube.samples(band), bandImage.samples(), height, width, weights,
                                                 rowOffset, columnOffset);
  }
  return cube;
}

// Every band of a tiled frame: its tile, cut out whole. All tiles show the same points already.
Counts cutTileBands(Counts const& frame, unsigned long tileWidth, unsigned long tileHeight) {
  Counts cube(tileWidth, tileHeight, (frame.width() / tileWidth) * (frame.height() / tileHeight));
  for (unsigned long band = 0; band < cube.bands(); ++band) {
    KORVA_Ref_CG_SST_GetBandImage_uint16(cube.rows(band), frame.rows(), frame.width(), frame.height(), tileWidth,
                                         tileHeight, band);
  }
  return cube;
}

struct Options {
  std::string frame;
  unsigned long width = 2048;
  unsigned long height = 1088;
  std::vector<unsigned long> mosaic{4, 4};
  std::vector<unsigned long> tile;
  std::vector<unsigned long> crop;
  Calibration calibration;
  std::string output = "results/snapshot_mosaic";
};

Counts cutBands(Counts const& frame, Options const& options) {
  auto const& crop = options.crop;
  Counts const part(crop[2], crop[3]);
  KORVA_Ref_CG_CropImage_uint16(part.rows(), frame.rows(), frame.width(), frame.height(), crop[0], crop[1], crop[2],
                                crop[3]);
  return options.tile.empty() ? cutMosaicBands(part, options.mosaic[0], options.mosaic[1])
                              : cutTileBands(part, options.tile[0], options.tile[1]);
}

void process(Options const& options) {
  Calibration const& calibration = options.calibration;
  Counts const frame = readFrame(options.frame, options.width, options.height);
  Counts const cube = cutBands(frame, options);
  // The references go through the same steps as the scene, so sample k of each cube is the same point of the same band.
  Counts const white = cutBands(readFrame(calibration.white, options.width, options.height), options);
  Correction const correction = calibration.readCorrection(cube.bands());
  if (!calibration.bias.empty()) {
    Counts const bias = cutBands(readFrame(calibration.bias, options.width, options.height), options);
    KORVA_Ref_RC_CorrectBias(cube.samples(), cube.samples(), bias.samples(), cube.count());
    KORVA_Ref_RC_CorrectBias(white.samples(), white.samples(), bias.samples(), white.count());
  }
  ResultFolder folder(options.output);

  // A surface of known reflectance gave the white counts at an exposure time of its own; the divisor brings in the
  // scene's. Counts become reflectance in place.
  std::vector<double> coefficients(white.count());
  KORVA_Ref_RC_ComputeCorrectionCoefficients(coefficients.data(), white.samples(), white.count(),
                                             calibration.whiteReflectance, calibration.whiteExposure, kFlagged);
  KORVA_Ref_RC_ComputeReflectance(cube.samples(), cube.samples(), coefficients.data(), cube.count(),
                                  calibration.exposure, calibration.fullScale, kFlagged, kFlagged);

  auto const inBands = static_cast<unsigned int>(cube.bands());
  auto const outBands = static_cast<unsigned int>(correction.matrix.size());
  Counts const corrected(cube.width(), cube.height(), outBands);
  std::vector<double> scratch(cube.planeCount());
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ(corrected.planes(), scratch.data(), cube.planes(), correction.rows().data(),
                                           outBands, inBands, static_cast<unsigned int>(cube.planeCount()));
  passFlags(corrected, cube);

  publishCorrected(folder, corrected, correction, calibration.fullScale);
}

// The rectangle to use lies inside the frame, starts on a whole cell or tile, and holds at least one.
void checkLayout(Options& options) {
  auto const& unit = options.tile.empty() ? options.mosaic : options.tile;
  auto& crop = options.crop;
  if (crop.empty()) crop = {0, 0, options.width, options.height};
  std::string const found = ", found " + sizeText(crop[2], crop[3]) + " from column " + std::to_string(crop[0]) +
                            ", row " + std::to_string(crop[1]);
  if (crop[0] + crop[2] > options.width || crop[1] + crop[3] > options.height) {
    throw Error("--crop: expected a part of the frame of " + sizeText(options.width, options.height) + found);
  }
  if (crop[0] % unit[0] != 0 || crop[1] % unit[1] != 0 || crop[2] < unit[0] || crop[3] < unit[1]) {
    throw Error("expected at least one whole cell or tile of " + sizeText(unit[0], unit[1]) + ", from its corner" +
                found);
  }
  if (!options.tile.empty() && (crop[2] / unit[0]) * (crop[3] / unit[1]) > 4096) {
    throw Error("--tile: expected at most 4096 tiles of " + sizeText(unit[0], unit[1]) + found);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Snapshot frames to corrected reflectance cubes.", "snapshot_mosaic");
  app.option_defaults()->always_capture_default();
  Options options;
  app.add_option("--frame", options.frame, "raw frame of 16-bit samples")->required();
  app.add_option("--width", options.width, "samples per row of the frame")->check(kSize);
  app.add_option("--height", options.height, "rows of the frame")->check(kSize);
  CLI::Option* const mosaic = app.add_option("--mosaic", options.mosaic, "width and height of the filter cell");
  mosaic->expected(2)->check(CLI::Range(1UL, 64UL));
  app.add_option("--tile", options.tile, "width and height of a tile; the frame is tiled then")
      ->expected(2)
      ->check(kSize)
      ->excludes(mosaic);
  app.add_option("--crop", options.crop, "left, top, width and height of the part to use")
      ->expected(4)
      ->check(CLI::Range(0UL, 65535UL));
  options.calibration.addOptions(app);
  app.add_option("--output", options.output, "folder for the results");
  return run(app, argc, argv, [&] {
    checkLayout(options);
    process(options);
  });
}
