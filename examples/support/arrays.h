// Owners of the library's array layouts: made by its allocators, given back to its free functions.
//
// Both types are handed to the library through rows() and planes(). The library takes inputs and outputs through
// the same pointer types, so constness of an owner does not reach its samples.
#ifndef KORVA_EXAMPLES_ARRAYS_H
#define KORVA_EXAMPLES_ARRAYS_H

#include <algorithm>
#include <memory>
#include <string>
#include <type_traits>

#include "host_error.h"
#include "korva_reference_api.h"

namespace host {

// An image: rows()[row][column], and samples() as one run.
template <typename Sample>
class Image {
 public:
  Image(unsigned long width, unsigned long height) : width_(width), height_(height) {
    Sample** rows = nullptr;
    if constexpr (std::is_same_v<Sample, float>) {
      KORVA_Ref_AllocateArray2D_float(&rows, width, height);
    } else {
      KORVA_Ref_AllocateArray2D_uint16(&rows, width, height);
    }
    rows_.reset(rows);
    if (rows == nullptr) {
      throw HostError("not enough memory for an image of " + std::to_string(width) + " x " + std::to_string(height));
    }
  }

  unsigned long width() const { return width_; }
  unsigned long height() const { return height_; }
  unsigned long count() const { return width_ * height_; }
  Sample** rows() const { return rows_.get(); }
  Sample* samples() const { return rows_.get()[0]; }
  Sample* operator[](unsigned long row) const { return rows_.get()[row]; }

 private:
  struct Free {
    void operator()(Sample** rows) const {
      if constexpr (std::is_same_v<Sample, float>) {
        KORVA_Ref_FreeArray2D_float(rows);
      } else {
        KORVA_Ref_FreeArray2D_uint16(rows);
      }
    }
  };

  unsigned long width_;
  unsigned long height_;
  std::unique_ptr<Sample*, Free> rows_;
};

// A band-sequential cube: planes()[band][row][column]; plane(band) and samples() as runs.
template <typename Sample>
class Cube {
 public:
  Cube(unsigned long width, unsigned long height, unsigned long bands) : width_(width), height_(height), bands_(bands) {
    Sample*** planes = nullptr;
    if constexpr (std::is_same_v<Sample, float>) {
      KORVA_Ref_AllocateArray3D_BSQ_float(&planes, width, height, bands);
    } else {
      KORVA_Ref_AllocateArray3D_BSQ_uint16(&planes, width, height, bands);
    }
    planes_.reset(planes);
    if (planes == nullptr) {
      throw HostError("not enough memory for a cube of " + std::to_string(width) + " x " + std::to_string(height) +
                      " x " + std::to_string(bands));
    }
  }

  unsigned long width() const { return width_; }
  unsigned long height() const { return height_; }
  unsigned long bands() const { return bands_; }
  unsigned long planeCount() const { return width_ * height_; }
  unsigned long count() const { return planeCount() * bands_; }
  Sample*** planes() const { return planes_.get(); }
  Sample* plane(unsigned long band) const { return planes_.get()[band][0]; }
  Sample* samples() const { return plane(0); }
  Sample** operator[](unsigned long band) const { return planes_.get()[band]; }

 private:
  struct Free {
    void operator()(Sample*** planes) const {
      if constexpr (std::is_same_v<Sample, float>) {
        KORVA_Ref_FreeArray3D_BSQ_float(planes);
      } else {
        KORVA_Ref_FreeArray3D_BSQ_uint16(planes);
      }
    }
  };

  unsigned long width_;
  unsigned long height_;
  unsigned long bands_;
  std::unique_ptr<Sample**, Free> planes_;
};

using Frame = Image<unsigned short>;
using CountCube = Cube<unsigned short>;

}  // namespace host

#endif
