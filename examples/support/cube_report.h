// Pictures of a cube before and after its spectral correction.
#ifndef KORVA_EXAMPLES_CUBE_REPORT_H
#define KORVA_EXAMPLES_CUBE_REPORT_H

#include <functional>
#include <string>
#include <vector>

#include "calibration.h"
#include "picture.h"
#include "scene.h"

namespace host {

// Fills one row of the scene's true reflectance, all samples of output band 0 first; empty for a user's frame.
using TruthRow = std::function<void(unsigned long row, float* values)>;

struct CubeReport {
  Picture before;  // three bands as red, green and blue
  Picture after;
  Picture marked;  // after, with numbered rings where the spectra come from
  Picture spectra;
};

// The output bands to show as red, green and blue: near 640, 550 and 465 nm, or spread over unknown bands.
std::vector<unsigned long> colourBands(SpectralCorrection const& correction);

// Six places spread over an image, for a frame whose contents nobody named.
std::vector<Landmark> spreadPoints(unsigned long width, unsigned long height);

CubeReport reportCube(CountCube const& reflectance, CountCube const& corrected, SpectralCorrection const& correction,
                      double fullScale, std::vector<Landmark> const& points, TruthRow const& truthRow,
                      std::string const& title);

}  // namespace host

#endif
