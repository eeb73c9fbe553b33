#include "snapshot_demo.h"

#include <algorithm>

namespace host {
namespace {

// The scene as a grid of cells, each seen at its middle: between the pixels where the cell's size is even.
struct SceneCells {
  Scene const* scene;
  Box area;
  unsigned long cellWidth;
  unsigned long cellHeight;

  float seenAt(BandTable const& table, unsigned long row, unsigned long column, std::size_t band) const {
    float sum = 0;
    for (unsigned long corner = 0; corner < 4; ++corner) {
      unsigned long const y = row * cellHeight + (cellHeight - 1 + corner / 2) / 2;
      unsigned long const x = column * cellWidth + (cellWidth - 1 + corner % 2) / 2;
      sum += seen(scene->at(std::min(area.top + y, scene->height() - 1), std::min(area.left + x, scene->width() - 1)),
                  table, band);
    }
    return sum / 4;
  }
};

}  // namespace

SnapshotDemo takeSnapshot(Scene const& scene, Camera const& camera, SnapshotLayout const& layout,
                          CalibrationOptions const& options) {
  bool const mosaic = layout.kind == SnapshotLayout::Kind::mosaic;
  unsigned long const gridColumns = mosaic ? layout.unitWidth : layout.unitsAcross();
  unsigned long const gridRows = mosaic ? layout.unitHeight : layout.unitsDown();

  // Makers scatter the bands of a mosaic over its cell; tiles stand in order.
  std::vector<double> const wavelengths = spreadWavelengths(layout.bands(), 465, 865);
  std::vector<double> centres = wavelengths;
  if (mosaic) {
    std::sort(centres.begin(), centres.end(), [](double a, double b) {
      return hash(static_cast<std::uint64_t>(a)) < hash(static_cast<std::uint64_t>(b));
    });
  }
  double const fullWidth = std::max(18.0, 300.0 / static_cast<double>(layout.bands()));
  FilterBank const filters = cameraBands(centres, fullWidth, gridColumns);
  FilterBank const ideal = idealBands(wavelengths, fullWidth);
  BandTable const measured(filters);
  std::vector<float> const strengths = bandStrengths(centres);

  // Behind a mosaic each pixel sees its own point through its filter; each tile shows the whole scene once.
  SceneCells const cells{&scene, layout.crop, gridColumns, gridRows};
  auto const bandAt = [&](unsigned long row, unsigned long column) -> std::size_t {
    if (mosaic) return row % gridRows * gridColumns + column % gridColumns;
    return std::min(row / layout.unitHeight, gridRows - 1) * gridColumns +
           std::min(column / layout.unitWidth, gridColumns - 1);
  };
  auto const reflected = [&](unsigned long row, unsigned long column, std::size_t band) {
    if (mosaic) return seen(scene.at(row, column), measured, band);
    return cells.seenAt(measured, row % layout.unitHeight, column % layout.unitWidth, band);
  };

  SnapshotDemo demo{Frame(scene.width(), scene.height()),
                    Frame(scene.width(), scene.height()),
                    camera.biasFrame(),
                    {correctionMatrix(ideal, filters, 0.006), wavelengths},
                    {},
                    {}};
  camera.expose(demo.scene, options.exposure, 1, 1, [&](unsigned long row) {
    return [&, row](unsigned long column) {
      std::size_t const band = bandAt(row, column);
      return strengths[band] * reflected(row, column, band);
    };
  });
  auto const whiteTile = static_cast<float>(options.whiteReflectance);
  camera.expose(demo.white, options.whiteExposure, 2, 64, [&](unsigned long row) {
    return [&, row](unsigned long column) { return whiteTile * strengths[bandAt(row, column)]; };
  });
  demo.truthRow = [cells, width = layout.bandWidth(), table = BandTable(ideal)](unsigned long row, float* values) {
    for (std::size_t band = 0; band < table.bands(); ++band) {
      for (unsigned long column = 0; column < width; ++column) *values++ = cells.seenAt(table, row, column, band);
    }
  };
  for (Landmark const& place : scene.landmarks()) {
    // A place left of or above the crop wraps to a huge number, which the report leaves out.
    demo.points.push_back(
        {place.name, (place.row - layout.crop.top) / gridRows, (place.column - layout.crop.left) / gridColumns});
  }
  return demo;
}

}  // namespace host
