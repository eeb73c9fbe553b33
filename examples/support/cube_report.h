// Pictures of a cube before and after its spectral correction.
#ifndef KORVA_EXAMPLES_CUBE_REPORT_H
#define KORVA_EXAMPLES_CUBE_REPORT_H

#include <functional>
#include <string>
#include <vector>

#include "calibration.h"
#include "picture.h"
#include "result_folder.h"
#include "scene.h"

namespace host {

// Fills one row of the scene's true reflectance, all samples of output band 0 first; empty for a user's frame.
using TruthRow = std::function<void(unsigned long row, float* values)>;

struct CubeReport {
  Picture before;  // three bands as red, green and blue
  Picture after;
  Picture markedBefore;  // with numbered rings where the spectra come from
  Picture markedAfter;
  Picture spectra;
};

// The output bands to show as red, green and blue: near 640, 550 and 465 nm, or spread over unknown bands.
std::vector<unsigned long> colourBands(SpectralCorrection const& correction);

// Six places spread over an image, for a frame whose contents nobody named.
std::vector<Landmark> spreadPoints(unsigned long width, unsigned long height);

CubeReport reportCube(CountCube const& reflectance, CountCube const& corrected, SpectralCorrection const& correction,
                      double fullScale, std::vector<Landmark> const& points, TruthRow const& truthRow,
                      std::string const& title);

// Raw counts, so that nearly all of them are below white.
Picture showCounts(Frame const& frame);

// Tells how close the reflectance comes to the truth before and after its correction; returns it as a table, too.
std::string measureQuality(CountCube const& reflectance, CountCube const& corrected,
                           SpectralCorrection const& correction, double fullScale, TruthRow const& truthRow);

// The corrected cube and the pictures, all names starting with the prefix.
void writeReport(ResultFolder& folder, std::string const& prefix, Frame const& raw, CountCube const& corrected,
                 SpectralCorrection const& correction, double fullScale, CubeReport const& report);

// What a synthetic camera delivers, in the form in which a user would give it.
void writeCapture(ResultFolder& folder, std::string const& prefix, Frame const& scene, Frame const& white,
                  Frame const& bias, SpectralCorrection const& correction);

}  // namespace host

#endif
