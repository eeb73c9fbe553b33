#include "calibration.h"

#include <algorithm>
#include <cstdio>

namespace host {

void addCalibrationOptions(CommandLine& line, std::string const& framesOption, CalibrationOptions& options) {
  line.add("--white", options.white, "raw frame of a white reference (needed with frames of your own)");
  line.add("--bias", options.bias, "raw frame taken in the dark [none is subtracted]");
  line.add("--matrix", options.matrix, "text file: one line per output band, one weight per camera band");
  line.add("--wavelengths", options.wavelengths, "text file: the output bands' wavelengths in nm");
  line.add("--exposure", options.exposure, Number::aboveZero, "exposure time of the scene [1]");
  line.add("--white-exposure", options.whiteExposure, Number::aboveZero, "exposure time of the white reference [1]");
  line.add("--white-reflectance", options.whiteReflectance, Number::aboveZero,
           "reflectance of the white reference [1]");
  for (char const* const option :
       {"--white", "--bias", "--matrix", "--wavelengths", "--exposure", "--white-exposure", "--white-reflectance"}) {
    line.needs(option, framesOption);
  }
  line.add("--full-scale", options.fullScale, {1, 65534}, "sample value that stands for reflectance 1 [10000]");
}

void useDemoExposures(CalibrationOptions& options) {
  options.exposure = 1.1;
  options.whiteExposure = 1;
  options.whiteReflectance = 0.95;
}

std::vector<double const*> SpectralCorrection::rows() const {
  std::vector<double const*> pointers;
  for (auto const& row : matrix) pointers.push_back(row.data());
  return pointers;
}

std::vector<std::size_t> SpectralCorrection::counterparts() const {
  std::vector<std::size_t> bands;
  for (auto const& row : matrix) {
    bands.push_back(static_cast<std::size_t>(std::max_element(row.begin(), row.end()) - row.begin()));
  }
  return bands;
}

SpectralCorrection readCorrection(CalibrationOptions const& options, unsigned long inBands) {
  SpectralCorrection correction;
  if (options.matrix.empty()) {
    for (unsigned long band = 0; band < inBands; ++band) {
      correction.matrix.emplace_back(inBands, 0.0);
      correction.matrix.back()[band] = 1;
    }
  } else {
    correction.matrix = readMatrix(options.matrix, inBands);
  }
  if (!options.wavelengths.empty()) {
    correction.wavelengths = readWavelengths(options.wavelengths, correction.matrix.size());
  }
  return correction;
}

void checkRange(SpectralCorrection const& correction, CalibrationOptions const& options) {
  for (std::size_t band = 0; band < correction.matrix.size(); ++band) {
    double most = 0;
    for (double const weight : correction.matrix[band]) most += std::max(weight, 0.0);
    if (most * options.fullScale >= kFlagged) {
      char largest[40];
      std::snprintf(largest, sizeof largest, "%.6g", most * options.fullScale);
      throw HostError(options.matrix + ": expected output bands below " + std::to_string(kFlagged) +
                      ", found weights that can bring band " + std::to_string(band) + " to " + largest +
                      " (a smaller --full-scale helps)");
    }
  }
}

void passFlags(CountCube& corrected, CountCube const& reflectance) {
  std::vector<char> flagged(reflectance.planeCount(), 0);
  for (unsigned long band = 0; band < reflectance.bands(); ++band) {
    unsigned short const* const samples = reflectance.plane(band);
    for (std::size_t k = 0; k < flagged.size(); ++k) flagged[k] |= samples[k] == kFlagged;
  }
  if (std::find(flagged.begin(), flagged.end(), 1) == flagged.end()) return;
  for (unsigned long band = 0; band < corrected.bands(); ++band) {
    unsigned short* const samples = corrected.plane(band);
    for (std::size_t k = 0; k < flagged.size(); ++k) {
      if (flagged[k] != 0) samples[k] = kFlagged;
    }
  }
}

std::string numbersText(std::vector<double> const& numbers) {
  std::string text;
  for (double const number : numbers) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%s%.17g", text.empty() ? "" : " ", number);
    text += digits;
  }
  return text + "\n";
}

std::string matrixText(Matrix const& matrix) {
  std::string text = "# one line per output band, one weight per camera band\n";
  for (auto const& row : matrix) text += numbersText(row);
  return text;
}

}  // namespace host
