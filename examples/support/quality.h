// How close a result comes to the truth, in figures that a person can judge.
#ifndef KORVA_EXAMPLES_QUALITY_H
#define KORVA_EXAMPLES_QUALITY_H

#include <functional>
#include <string>
#include <vector>

#include "arrays.h"

namespace host {

// Peak signal-to-noise ratio for a peak of 1, in dB.
double psnr(double meanSquaredError);

struct Quality {
  std::vector<double> psnrOfBand;
  double meanSpectralAngle = 0;  // degrees

  double lowest() const;
  double highest() const;
  double mean() const;
};

// Compares a cube of counts, fullScale standing for 1, with the truth. truthRow(row, values) fills one row of the
// truth, all samples of band 0 first. planes[k] is the cube's plane for band k of the truth.
Quality compareWithTruth(CountCube const& cube, std::vector<std::size_t> const& planes, double fullScale,
                         std::function<void(unsigned long row, float* values)> const& truthRow);

// "21.3 to 34.5 dB (mean 28.0), spectral angle 9.12 degrees"
std::string summary(Quality const& quality);

// Lines of "band,nm,before,after" and what one may read on a terminal of it: all bands, or about sixteen of them.
std::string qualityTable(std::vector<double> const& wavelengths, Quality const& before, Quality const& after);
void printQuality(std::vector<double> const& wavelengths, Quality const& before, Quality const& after);

}  // namespace host

#endif
