// The road of a snapshot frame: raw counts -> band images at one common point -> reflectance -> corrected spectra.
//
// Without options a synthetic camera takes a still life, once through a mosaic of filters and once through tiles, and
// the result is measured against what the scene truly reflects. With options the frame is your own; see --help.
#include <cstdio>
#include <optional>

#include "support/calibration.h"
#include "support/cube_report.h"
#include "support/drawing.h"
#include "support/host_run.h"
#include "support/result_folder.h"
#include "support/snapshot_demo.h"
#include "support/snapshot_layout.h"

using namespace host;

namespace {

struct Options {
  std::string frame;
  unsigned long width = 2048;
  unsigned long height = 1088;
  std::vector<unsigned long> mosaic{4, 4};  // cell width and height
  std::vector<unsigned long> tile;          // tile width and height; the frame is one of tiles when given
  std::vector<unsigned long> crop;          // left, top, width, height
  CalibrationOptions calibration;
  std::string output = "results/snapshot_mosaic";
};

// ---- The road, step by step ----

Frame cropFrame(Frame const& frame, Box const& box) {
  Frame part(box.width, box.height);
  KORVA_Ref_CG_CropImage_uint16(part.rows(), frame.rows(), frame.width(), frame.height(), box.left, box.top, box.width,
                                box.height);
  return part;
}

// Every band of a mosaic frame, resampled to the middle of the cell, so that all bands show the same points.
CountCube cutMosaicBands(Frame const& frame, unsigned long cellWidth, unsigned long cellHeight) {
  Frame bandImage(frame.width() / cellWidth, frame.height() / cellHeight);
  CountCube cube(bandImage.width(), bandImage.height(), cellWidth * cellHeight);
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
    KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16(cube.plane(band), bandImage.samples(), height, width, weights,
                                                 rowOffset, columnOffset);
  }
  return cube;
}

// Every band of a tiled frame: its tile, cut out whole. All tiles show the same points already.
CountCube cutTileBands(Frame const& frame, SnapshotLayout const& layout) {
  CountCube cube(layout.unitWidth, layout.unitHeight, layout.bands());
  for (unsigned long band = 0; band < cube.bands(); ++band) {
    KORVA_Ref_CG_SST_GetBandImage_uint16(cube[band], frame.rows(), frame.width(), frame.height(), layout.unitWidth,
                                         layout.unitHeight, band);
  }
  return cube;
}

CountCube cutBands(Frame const& raw, SnapshotLayout const& layout) {
  Frame const frame = cropFrame(raw, layout.crop);
  return layout.kind == SnapshotLayout::Kind::mosaic ? cutMosaicBands(frame, layout.unitWidth, layout.unitHeight)
                                                     : cutTileBands(frame, layout);
}

// Counts become reflectance in place. The references went through the same steps as the scene, so sample k of each
// cube is the same point of the same band.
void applyReflectance(CountCube& counts, CountCube& white, CalibrationOptions const& options) {
  std::vector<double> coefficients(white.count());
  // A surface of known reflectance gave the white counts at an exposure time of its own; the divisor brings in the
  // scene's.
  KORVA_Ref_RC_ComputeCorrectionCoefficients(coefficients.data(), white.samples(), white.count(),
                                             options.whiteReflectance, options.whiteExposure, kFlagged);
  KORVA_Ref_RC_ComputeReflectance(counts.samples(), counts.samples(), coefficients.data(), counts.count(),
                                  options.exposure, options.fullScale, kFlagged, kFlagged);
}

CountCube correctSpectra(CountCube const& reflectance, SpectralCorrection const& correction) {
  auto const samples = static_cast<unsigned int>(reflectance.planeCount());
  auto const inBands = static_cast<unsigned int>(reflectance.bands());
  auto const outBands = static_cast<unsigned int>(correction.matrix.size());
  CountCube corrected(reflectance.width(), reflectance.height(), outBands);
  std::vector<double> scratch(samples);
  KORVA_Ref_SC_ApplySpectralCorrection_BSQ(corrected.planes(), scratch.data(), reflectance.planes(),
                                           correction.rows().data(), outBands, inBands, samples);
  passFlags(corrected, reflectance);
  return corrected;
}

struct Cubes {
  CountCube reflectance;
  CountCube corrected;
};

Cubes process(Frame const& scene, Frame const& whiteFrame, Frame const* biasFrame, SnapshotLayout const& layout,
              SpectralCorrection const& correction, CalibrationOptions const& options) {
  CountCube cube = cutBands(scene, layout);
  CountCube white = cutBands(whiteFrame, layout);
  if (biasFrame != nullptr) {
    CountCube const bias = cutBands(*biasFrame, layout);
    KORVA_Ref_RC_CorrectBias(cube.samples(), cube.samples(), bias.samples(), cube.count());
    KORVA_Ref_RC_CorrectBias(white.samples(), white.samples(), bias.samples(), white.count());
  }
  applyReflectance(cube, white, options);
  CountCube corrected = correctSpectra(cube, correction);
  stopIfInterrupted();
  return {std::move(cube), std::move(corrected)};
}

// ---- Options ----

SnapshotLayout layoutOf(Options const& options) {
  auto const size = [](unsigned long a, unsigned long b) { return std::to_string(a) + " x " + std::to_string(b); };
  bool const tiled = !options.tile.empty();
  auto const& unit = tiled ? options.tile : options.mosaic;
  std::string const unitName = (tiled ? "tile of " : "mosaic cell of ") + size(unit[0], unit[1]);
  Box box{0, 0, options.width, options.height};
  if (!options.crop.empty()) {
    box = {options.crop[0], options.crop[1], options.crop[2], options.crop[3]};
    std::string const place = "column " + std::to_string(box.left) + ", row " + std::to_string(box.top);
    if (box.left + box.width > options.width || box.top + box.height > options.height) {
      throw HostError("--crop: expected a part of the frame of " + size(options.width, options.height) + ", found " +
                      size(box.width, box.height) + " from " + place);
    }
    if (box.left % unit[0] != 0 || box.top % unit[1] != 0) {
      throw HostError("--crop: expected a first corner on a whole " + unitName + ", found " + place);
    }
  }
  if (unit[0] > box.width || unit[1] > box.height) {
    throw HostError("expected a frame of at least one " + unitName + ", found " + size(box.width, box.height));
  }
  return {tiled ? SnapshotLayout::Kind::tiled : SnapshotLayout::Kind::mosaic, unit[0], unit[1], box};
}

void addOptions(CommandLine& line, Options& options) {
  Whole const size{1, kLargestSize};
  line.add("--frame", options.frame, "raw frame of 16-bit samples [a synthetic still life]");
  line.add("--width", options.width, size, "samples per row of the frame [2048]");
  line.add("--height", options.height, size, "rows of the frame [1088]");
  line.add("--mosaic", options.mosaic, 2, {1, 64}, "width and height of the filter cell [4 4]");
  line.add("--tile", options.tile, 2, size, "width and height of a tile; the frame is tiled then");
  line.excludes("--tile", "--mosaic");
  line.add("--crop", options.crop, 4, {0, kLargestSize}, "left, top, width and height of the part to use [all]");
  addCalibrationOptions(line, "--frame", options.calibration);
  line.add("--output", options.output, "folder for the results [" + options.output + "]");
}

// ---- Results ----

void processUserFrame(Options const& options) {
  CalibrationOptions const& calibration = options.calibration;
  SnapshotLayout const layout = layoutOf(options);
  if (calibration.white.empty()) throw HostError("--white: expected a white reference beside --frame, found none");
  Frame const frame = readFrame(options.frame, options.width, options.height);
  Frame const white = readFrame(calibration.white, options.width, options.height);
  std::optional<Frame> bias;
  if (!calibration.bias.empty()) bias = readFrame(calibration.bias, options.width, options.height);
  SpectralCorrection const correction = readCorrection(calibration, layout.bands());
  checkRange(correction, calibration);

  ResultFolder folder(options.output);
  Cubes const cubes = process(frame, white, bias ? &*bias : nullptr, layout, correction, calibration);
  CubeReport const report = reportCube(cubes.reflectance, cubes.corrected, correction, calibration.fullScale,
                                       spreadPoints(layout.bandWidth(), layout.bandHeight()), {}, "Spectra");
  writeReport(folder, "", frame, cubes.corrected, correction, calibration.fullScale, report);
  folder.publish();
  std::printf("%lu bands of %lu x %lu are in %s\n", cubes.corrected.bands(), cubes.corrected.width(),
              cubes.corrected.height(), folder.path().c_str());
}

// What a README shows of the whole road.
Picture overview(Frame const& raw, CubeReport const& report) {
  Picture const closeUp = cropped(showCounts(raw), raw.width() * 214 / 1000, raw.height() * 399 / 1000, 42, 68);
  auto const fitted = [](Picture const& picture) { return shrunkTo(picture, 512); };
  return fewerLevels(stacked({sideBySide({captioned(enlarged(closeUp, 4), "Raw mosaic"),
                                          captioned(fitted(report.before), "Before correction: 640, 550, 465 nm"),
                                          captioned(fitted(report.markedAfter), "After spectral correction")}),
                              report.spectra}),
                     5);
}

// One synthetic frame down the road; tells how close it comes.
void runDemo(ResultFolder& folder, std::string const& prefix, Scene const& scene, Camera const& camera,
             SnapshotLayout const& layout, CalibrationOptions const& options) {
  SnapshotDemo const demo = takeSnapshot(scene, camera, layout, options);
  Cubes const cubes = process(demo.scene, demo.white, &demo.bias, layout, demo.correction, options);

  double const fullScale = options.fullScale;
  folder.writeText(prefix + "quality.csv",
                   measureQuality(cubes.reflectance, cubes.corrected, demo.correction, fullScale, demo.truthRow));
  CubeReport const report = reportCube(cubes.reflectance, cubes.corrected, demo.correction, fullScale, demo.points,
                                       demo.truthRow, "Six points of the still life");
  writeCapture(folder, prefix, demo.scene, demo.white, demo.bias, demo.correction);
  folder.writeCube(prefix + "reflectance", cubes.reflectance,
                   {"Reflectance in the order of the filters", {}, {}, fullScale});
  writeReport(folder, prefix, demo.scene, cubes.corrected, demo.correction, fullScale, report);
  if (layout.kind == SnapshotLayout::Kind::mosaic) folder.writePicture("overview.png", overview(demo.scene, report));
}

void runDemos(Options options) {
  useDemoExposures(options.calibration);
  SnapshotLayout const layout = layoutOf(options);
  ResultFolder folder(options.output);
  Scene const scene = stillLife(options.width, options.height);
  Camera const camera(options.width, options.height);
  std::printf("Snapshot mosaic, %lu x %lu samples, %lu bands\n", options.width, options.height, layout.bands());
  runDemo(folder, "", scene, camera, layout, options.calibration);
  if (layout.kind == SnapshotLayout::Kind::mosaic && options.crop.empty()) {
    // The same bands as tiles, each of which shows the whole scene.
    SnapshotLayout const tiles{SnapshotLayout::Kind::tiled, layout.unitsAcross(), layout.unitsDown(), layout.crop};
    std::printf("Snapshot tiles, %lu bands of %lu x %lu\n", tiles.bands(), tiles.unitWidth, tiles.unitHeight);
    runDemo(folder, "tiled_", scene, camera, tiles, options.calibration);
  }
  folder.publish();
  std::printf("Results are in %s\n", folder.path().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("snapshot_mosaic", "Snapshot frames to corrected reflectance cubes.");
  Options options;
  addOptions(line, options);
  return line.run(argc, argv, [&] { options.frame.empty() ? runDemos(options) : processUserFrame(options); });
}
