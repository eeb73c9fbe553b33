#include "quality.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <numeric>

#include "progress.h"

namespace host {

double psnr(double meanSquaredError) { return -10 * std::log10(std::max(meanSquaredError, 1e-12)); }

double Quality::lowest() const { return *std::min_element(psnrOfBand.begin(), psnrOfBand.end()); }
double Quality::highest() const { return *std::max_element(psnrOfBand.begin(), psnrOfBand.end()); }
double Quality::mean() const {
  return std::accumulate(psnrOfBand.begin(), psnrOfBand.end(), 0.0) / static_cast<double>(psnrOfBand.size());
}

Quality compareWithTruth(CountCube const& cube, std::vector<std::size_t> const& planes, double fullScale,
                         std::function<void(unsigned long, float*)> const& truthRow) {
  unsigned long const width = cube.width();
  std::size_t const bands = planes.size();
  auto const scale = static_cast<float>(1 / fullScale);
  std::vector<float> truth(bands * width);
  std::vector<double> squaredErrors(bands, 0.0);
  std::vector<float> products(width), truthNorms(width), foundNorms(width);
  double angles = 0;
  Progress progress("Comparing with the truth", cube.height());
  for (unsigned long row = 0; row < cube.height(); ++row) {
    truthRow(row, truth.data());
    for (auto* sums : {&products, &truthNorms, &foundNorms}) std::fill(sums->begin(), sums->end(), 0.0F);
    for (std::size_t band = 0; band < bands; ++band) {
      float const* const expected = truth.data() + band * width;
      unsigned short const* const samples = cube[planes[band]][row];
      float squared = 0;
      for (unsigned long column = 0; column < width; ++column) {
        float const found = scale * static_cast<float>(samples[column]);
        float const error = found - expected[column];
        squared += error * error;
        products[column] += found * expected[column];
        truthNorms[column] += expected[column] * expected[column];
        foundNorms[column] += found * found;
      }
      squaredErrors[band] += static_cast<double>(squared);
    }
    for (unsigned long column = 0; column < width; ++column) {
      double const norms = static_cast<double>(truthNorms[column]) * static_cast<double>(foundNorms[column]);
      double const cosine = static_cast<double>(products[column]) / std::sqrt(std::max(norms, 1e-12));
      angles += std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::numbers::pi;
    }
    progress.advance();
  }
  Quality quality;
  auto const count = static_cast<double>(cube.planeCount());
  for (double const squared : squaredErrors) quality.psnrOfBand.push_back(psnr(squared / count));
  quality.meanSpectralAngle = angles / count;
  return quality;
}

std::string summary(Quality const& quality) {
  char text[120];
  std::snprintf(text, sizeof text, "%.1f to %.1f dB (mean %.1f), mean spectral angle %.2f degrees", quality.lowest(),
                quality.highest(), quality.mean(), quality.meanSpectralAngle);
  return text;
}

std::string qualityTable(std::vector<double> const& wavelengths, Quality const& before, Quality const& after) {
  std::string table = "band,nanometres,psnr_before_dB,psnr_after_dB\n";
  for (std::size_t band = 0; band < wavelengths.size(); ++band) {
    char line[80];
    std::snprintf(line, sizeof line, "%zu,%.1f,%.2f,%.2f\n", band, wavelengths[band], before.psnrOfBand[band],
                  after.psnrOfBand[band]);
    table += line;
  }
  return table;
}

void printQuality(std::vector<double> const& wavelengths, Quality const& before, Quality const& after) {
  std::printf("  PSNR in dB    nm  before  after\n");
  std::size_t const step = (wavelengths.size() + 15) / 16;
  for (std::size_t band = 0; band < wavelengths.size(); band += step) {
    std::printf("           %7.0f  %6.1f %6.1f\n", wavelengths[band], before.psnrOfBand[band], after.psnrOfBand[band]);
  }
  std::printf("  before correction: %s\n  after correction:  %s\n", summary(before).c_str(), summary(after).c_str());
}

}  // namespace host
