// Spectra, filter banks and the correction matrix between what a camera measures and what a scene reflects.
#ifndef KORVA_EXAMPLES_SPECTRA_H
#define KORVA_EXAMPLES_SPECTRA_H

#include <array>
#include <cstddef>
#include <vector>

#include "raw_input.h"

namespace host {

// Spectra are tabled every 5 nm from 400 to 1000 nm.
inline constexpr std::size_t kSpectrumSize = 121;
using Spectrum = std::array<double, kSpectrumSize>;

constexpr double wavelengthAt(std::size_t k) { return 400.0 + 5.0 * static_cast<double>(k); }

template <typename Function>
Spectrum tabled(Function const& function) {
  Spectrum spectrum;
  for (std::size_t k = 0; k < kSpectrumSize; ++k) spectrum[k] = function(wavelengthAt(k));
  return spectrum;
}

// Evenly spaced band centres, both ends included.
std::vector<double> spreadWavelengths(std::size_t bands, double first, double last);

double bump(double wavelength, double centre, double deviation);  // Gaussian of height 1
double step(double wavelength, double edge, double width);        // smooth rise from 0 to 1

// Light and sensor together: halogen rises towards the infrared, silicon falls there.
double signalStrength(double wavelength);

// Band responses to reflectance: each sums to 1, so a white surface gives 1 in every band.
using FilterBank = std::vector<Spectrum>;

// What ideal bands would see: clean Gaussians around their centres.
FilterBank idealBands(std::vector<double> const& centres, double fullWidth);

// What real filters see under halogen light: a peak with wide feet, for long wavelengths a second order near 0.6 of
// the centre, and light that strays in from the filters above, below and beside. The filters lie in a grid of the
// given number of columns that repeats over the sensor when it has several.
FilterBank cameraBands(std::vector<double> const& centres, double fullWidth, std::size_t gridColumns);

// The matrix that turns measured bands into ideal ones with the least expected error, given that neighbouring
// wavelengths of natural spectra are alike (correlation falls by 1/e in 60 nm) and that measurements carry noise of
// the given deviation: a regularised pseudo-inverse, W = T K A' (A K A' + noise^2 I)^-1, with rows scaled to sum 1 so
// that grey stays grey.
Matrix correctionMatrix(FilterBank const& ideal, FilterBank const& measured, double noise);

}  // namespace host

#endif
