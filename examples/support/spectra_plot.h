// Spectra of a few points, one small chart each, measured against the truth.
#ifndef KORVA_EXAMPLES_SPECTRA_PLOT_H
#define KORVA_EXAMPLES_SPECTRA_PLOT_H

#include <string>
#include <vector>

#include "picture.h"

namespace host {

struct PointSpectra {
  std::string name;
  std::vector<double> truth;   // may be empty
  std::vector<double> before;  // in the order of the wavelengths
  std::vector<double> after;   // may be empty
};

// Reflectance over wavelength (or whatever axes says), three charts a row under one legend.
Picture plotSpectra(std::vector<PointSpectra> const& points, std::vector<double> const& wavelengths,
                    std::string const& title, std::string const& axes);

// Numbered rings on a picture, at places given as shares of its size.
void markPoint(Picture& picture, double x, double y, unsigned long number);

}  // namespace host

#endif
