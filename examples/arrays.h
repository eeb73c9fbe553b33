// An owner of the library's arrays: made by its allocators, given back to its free functions.
#ifndef KORVA_EXAMPLES_ARRAYS_H
#define KORVA_EXAMPLES_ARRAYS_H

#include <memory>
#include <stdexcept>
#include <string>

#include "korva_reference_api.h"

namespace host {

// A fault that the user can mend; the message says what was expected and what was found.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline void allocate(float**** planes, unsigned long width, unsigned long height, unsigned long bands) {
  KORVA_Ref_AllocateArray3D_BSQ_float(planes, width, height, bands);
}
inline void allocate(unsigned short**** planes, unsigned long width, unsigned long height, unsigned long bands) {
  KORVA_Ref_AllocateArray3D_BSQ_uint16(planes, width, height, bands);
}

struct FreePlanes {
  void operator()(float*** planes) const { KORVA_Ref_FreeArray3D_BSQ_float(planes); }
  void operator()(unsigned short*** planes) const { KORVA_Ref_FreeArray3D_BSQ_uint16(planes); }
};

// A band-sequential cube; a frame is a cube of one band. The library takes it as planes()[band][row][column], one image
// of it as rows(band)[row][column], and its samples as one run. Inputs and outputs have the same types there, so
// constness of the owner does not reach the samples.
template <typename Sample>
class Cube {
 public:
  Cube(unsigned long width, unsigned long height, unsigned long bands = 1)
      : width_(width), height_(height), bands_(bands) {
    Sample*** planes = nullptr;
    allocate(&planes, width, height, bands);
    planes_.reset(planes);
    if (planes == nullptr) {
      throw Error("not enough memory for " + std::to_string(bands) + " bands of " + std::to_string(width) + " x " +
                  std::to_string(height));
    }
  }

  unsigned long width() const { return width_; }
  unsigned long height() const { return height_; }
  unsigned long bands() const { return bands_; }
  unsigned long planeCount() const { return width_ * height_; }
  unsigned long count() const { return planeCount() * bands_; }
  Sample*** planes() const { return planes_.get(); }
  Sample** rows(unsigned long band = 0) const { return planes_.get()[band]; }
  Sample* samples(unsigned long band = 0) const { return rows(band)[0]; }

 private:
  unsigned long width_;
  unsigned long height_;
  unsigned long bands_;
  std::unique_ptr<Sample**, FreePlanes> planes_;
};

using Counts = Cube<unsigned short>;

}  // namespace host

#endif
