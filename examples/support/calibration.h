// What turns counts into spectra: references, exposures, the correction matrix, and how a user names them.
#ifndef KORVA_EXAMPLES_CALIBRATION_H
#define KORVA_EXAMPLES_CALIBRATION_H

#include <string>
#include <vector>

#include "arrays.h"
#include "host_run.h"
#include "raw_input.h"

namespace host {

// A sample without a usable white reference; no reflectance comes near it.
inline constexpr unsigned short kFlagged = 65535;

struct CalibrationOptions {
  std::string white;
  std::string bias;
  std::string matrix;
  std::string wavelengths;
  double exposure = 1;
  double whiteExposure = 1;
  double whiteReflectance = 1;
  unsigned short fullScale = 10000;
};

// All but the full scale go with frames of the user's own, which the named option gives.
void addCalibrationOptions(CommandLine& line, std::string const& framesOption, CalibrationOptions& options);

// The synthetic cameras' own: the white tile reflects 95 % and got less light than the scene.
void useDemoExposures(CalibrationOptions& options);

// Correction matrix and wavelengths of its output bands. Without a matrix file every band stays as it is.
struct SpectralCorrection {
  Matrix matrix;
  std::vector<double> wavelengths;  // empty when unknown

  // The matrix as the library takes it.
  std::vector<double const*> rows() const;
  // For each output band the input band that weighs most in it: its uncorrected counterpart.
  std::vector<std::size_t> counterparts() const;
};

// Reads the user's files for a camera of the given number of bands.
SpectralCorrection readCorrection(CalibrationOptions const& options, unsigned long inBands);

// Sums that 16 bits cannot hold would come out as small numbers; such a matrix is refused beforehand.
void checkRange(SpectralCorrection const& correction, CalibrationOptions const& options);

// A pixel that is flagged in one band has no spectrum: flags it in all bands of the corrected cube.
void passFlags(CountCube& corrected, CountCube const& reflectance);

// A matrix as the text that readMatrix() reads, to the last bit; numbers likewise.
std::string matrixText(Matrix const& matrix);
std::string numbersText(std::vector<double> const& numbers);

}  // namespace host

#endif
