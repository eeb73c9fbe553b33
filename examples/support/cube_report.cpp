#include "cube_report.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "quality.h"
#include "spectra_plot.h"

namespace host {
namespace {

// Wavelengths, or band numbers where they are unknown.
std::vector<double> axisOf(SpectralCorrection const& correction) {
  std::vector<double> axis = correction.wavelengths;
  if (axis.empty()) {
    axis.resize(correction.matrix.size());
    std::iota(axis.begin(), axis.end(), 0.0);
  }
  return axis;
}

// Spectra are means of 3 x 3 points, as one would measure a surface rather than a sample.
double meanAround(unsigned short* const* plane, Landmark const& point) {
  double sum = 0;
  for (unsigned long row = point.row - 1; row <= point.row + 1; ++row) {
    for (unsigned long column = point.column - 1; column <= point.column + 1; ++column) sum += plane[row][column];
  }
  return sum / 9;
}

std::vector<double> meanTruth(TruthRow const& truthRow, std::size_t bands, unsigned long width, Landmark const& point) {
  std::vector<double> mean(bands, 0.0);
  std::vector<float> values(bands * width);
  for (unsigned long row = point.row - 1; row <= point.row + 1; ++row) {
    truthRow(row, values.data());
    for (std::size_t band = 0; band < bands; ++band) {
      float const* const centre = values.data() + band * width + point.column;
      mean[band] += static_cast<double>(centre[-1] + centre[0] + centre[1]) / 9;
    }
  }
  return mean;
}

}  // namespace

std::vector<unsigned long> colourBands(SpectralCorrection const& correction) {
  std::vector<double> const axis = axisOf(correction);
  std::vector<double> wanted{640, 550, 465};
  if (correction.wavelengths.empty()) {
    for (double& place : wanted) place = axis.back() * (place - 400) / 300;
  }
  std::vector<unsigned long> bands;
  for (double const place : wanted) {
    auto const nearest = std::min_element(
        axis.begin(), axis.end(), [=](double a, double b) { return std::abs(a - place) < std::abs(b - place); });
    bands.push_back(static_cast<unsigned long>(nearest - axis.begin()));
  }
  return bands;
}

std::vector<Landmark> spreadPoints(unsigned long width, unsigned long height) {
  std::vector<Landmark> points;
  for (unsigned long k = 0; k < 6; ++k) {
    unsigned long const row = (2 * (k / 3) + 1) * height / 4;
    unsigned long const column = (2 * (k % 3) + 1) * width / 6;
    points.push_back({"row " + std::to_string(row) + ", column " + std::to_string(column), row, column});
  }
  return points;
}

CubeReport reportCube(CountCube const& reflectance, CountCube const& corrected, SpectralCorrection const& correction,
                      double fullScale, std::vector<Landmark> const& points, TruthRow const& truthRow,
                      std::string const& title) {
  std::vector<std::size_t> const counterparts = correction.counterparts();
  std::vector<unsigned long> const colours = colourBands(correction);
  unsigned long const width = corrected.width();
  unsigned long const height = corrected.height();

  double white = 1;
  for (unsigned long const band : colours) {
    white = std::max(white, percentile(std::span<unsigned short const>(corrected.plane(band), width * height), 0.985));
  }
  white = std::min(white, fullScale);  // flagged samples are no light
  Picture const after = colourPicture(corrected.plane(colours[0]), corrected.plane(colours[1]),
                                      corrected.plane(colours[2]), width, height, white);
  Picture const before =
      colourPicture(reflectance.plane(counterparts[colours[0]]), reflectance.plane(counterparts[colours[1]]),
                    reflectance.plane(counterparts[colours[2]]), width, height, white);
  Picture markedBefore = before;
  Picture markedAfter = after;

  std::vector<PointSpectra> spectra;
  for (Landmark const& point : points) {
    if (point.row < 1 || point.row >= height - 1 || point.column < 1 || point.column >= width - 1) continue;
    PointSpectra found{point.name, {}, {}, {}};
    if (truthRow) found.truth = meanTruth(truthRow, correction.matrix.size(), width, point);
    for (std::size_t band = 0; band < correction.matrix.size(); ++band) {
      found.before.push_back(meanAround(reflectance[counterparts[band]], point) / fullScale);
      found.after.push_back(meanAround(corrected[band], point) / fullScale);
    }
    spectra.push_back(std::move(found));
    for (Picture* const picture : {&markedBefore, &markedAfter}) {
      markPoint(*picture, (static_cast<double>(point.column) + 0.5) / static_cast<double>(width),
                (static_cast<double>(point.row) + 0.5) / static_cast<double>(height), spectra.size());
    }
  }
  if (spectra.empty()) return {before, after, before, after, Picture(1, 1)};  // an image too small for any point
  bool const known = !correction.wavelengths.empty();
  Picture const chart = plotSpectra(spectra, axisOf(correction), title,
                                    known ? "reflectance over wavelength (nm)" : "reflectance over band number");
  return {before, after, markedBefore, markedAfter, chart};
}

Picture showCounts(Frame const& frame) {
  return greyPicture(frame, 0, percentile(std::span<unsigned short const>(frame.samples(), frame.count()), 0.995));
}

std::string measureQuality(CountCube const& reflectance, CountCube const& corrected,
                           SpectralCorrection const& correction, double fullScale, TruthRow const& truthRow) {
  std::vector<std::size_t> sameOrder(corrected.bands());
  std::iota(sameOrder.begin(), sameOrder.end(), std::size_t{0});
  Quality const before = compareWithTruth(reflectance, correction.counterparts(), fullScale, truthRow);
  Quality const after = compareWithTruth(corrected, sameOrder, fullScale, truthRow);
  printQuality(correction.wavelengths, before, after);
  return qualityTable(correction.wavelengths, before, after);
}

void writeReport(ResultFolder& folder, std::string const& prefix, Frame const& raw, CountCube const& corrected,
                 SpectralCorrection const& correction, double fullScale, CubeReport const& report) {
  folder.writeCube(prefix + "corrected", corrected,
                   {"Corrected reflectance", correction.wavelengths, colourBands(correction), fullScale});
  folder.writePicture(prefix + "raw_frame.png", showCounts(raw));
  folder.writePicture(prefix + "colour_before.png", report.before);
  folder.writePicture(prefix + "colour_after.png", report.after);
  folder.writePicture(prefix + "spectra.png", report.spectra);
}

void writeCapture(ResultFolder& folder, std::string const& prefix, Frame const& scene, Frame const& white,
                  Frame const& bias, SpectralCorrection const& correction) {
  folder.writeImage(prefix + "frame", scene, {"Raw frame", {}, {}, 0});
  folder.writeImage(prefix + "white", white, {"White reference", {}, {}, 0});
  folder.writeImage(prefix + "bias", bias, {"Bias frame", {}, {}, 0});
  folder.writeText(prefix + "matrix.txt", matrixText(correction.matrix));
  folder.writeText(prefix + "wavelengths.txt", numbersText(correction.wavelengths));
}

}  // namespace host
