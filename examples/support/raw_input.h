// The user's files: raw frames of a known size, correction matrices and lists of numbers as text.
#ifndef KORVA_EXAMPLES_RAW_INPUT_H
#define KORVA_EXAMPLES_RAW_INPUT_H

#include <cstdint>
#include <string>
#include <vector>

#include "arrays.h"

namespace host {

// Reads one frame of width x height 16-bit samples; the file must hold exactly that.
Frame readFrame(std::string const& path, unsigned long width, unsigned long height);

// Raw files that hold one or more whole frames each, read one frame at a time.
class FrameSequence {
 public:
  FrameSequence(std::vector<std::string> const& paths, unsigned long width, unsigned long height);

  unsigned long size() const { return frames_.size(); }
  void read(Frame& frame, unsigned long index) const;

 private:
  struct Place {
    std::string path;
    std::uint64_t offset;
  };
  std::vector<Place> frames_;
};

// A correction matrix: one output band a line, one weight per input band, blanks or commas between; # starts a comment.
using Matrix = std::vector<std::vector<double>>;
Matrix readMatrix(std::string const& path, unsigned long inBands);

// Positive numbers, such as wavelengths in nanometres, separated like a matrix's weights.
std::vector<double> readWavelengths(std::string const& path, unsigned long expected);

}  // namespace host

#endif
