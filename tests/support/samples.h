// Arrays for a comparison: guarded memory for the library, a copy with the same contents for the plain definition.
#ifndef KORVA_TESTS_SUPPORT_SAMPLES_H
#define KORVA_TESTS_SUPPORT_SAMPLES_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <type_traits>

#include "support/guarded_runs.h"

namespace korva::test {

struct Shape {
  std::size_t width;
  std::size_t height = 1;
  std::size_t bands = 1;
};

// How the rows of an array lie: runs of rowsPerRun rows back to back, each run on pages of its own.
struct Layout {
  std::size_t rowsPerRun;
  Placement placement;
  bool reversed = false;         // later runs at lower addresses
  std::size_t insideOffset = 0;  // in samples
};
constexpr std::size_t kSeparateRows = 1;
constexpr std::size_t kOneBlock = std::numeric_limits<std::size_t>::max();

// A run of samples (kLevels 1), an image reached through row pointers (2) or a cube (3).
template <class T, int kLevels>
class Samples {
 public:
  using Pointer = std::conditional_t<kLevels == 1, T*, std::conditional_t<kLevels == 2, T**, T***>>;

  Samples(Shape shape, Layout layout, bool writable)
      : shape_(shape),
        layout_(layout),
        writable_(writable),
        rowsPerRun_(std::clamp<std::size_t>(layout.rowsPerRun, 1, std::max<std::size_t>(rows(), 1))),
        runs_((rows() + rowsPerRun_ - 1) / rowsPerRun_, rowsPerRun_ * shape.width * sizeof(T), layout.placement,
              layout.insideOffset * sizeof(T)),
        expected_(new T[samples()]),
        expectedRows_(new T*[rows()]),
        expectedBands_(new T**[shape.bands]),
        actualRows_(1, kLevels < 2 ? 0 : rows() * sizeof(T*), Placement::EndsAtForbiddenPage),
        actualBands_(1, kLevels < 3 ? 0 : shape.bands * sizeof(T**), Placement::EndsAtForbiddenPage) {
    std::memset(expected_.get(), kSlackByte, samples() * sizeof(T));
    for (std::size_t row = 0; row < rows(); ++row) {
      expectedRows_[row] = expected_.get() + row * shape.width;
      if (kLevels >= 2) rowTable()[row] = rowFor(row, !writable_);
    }
    for (std::size_t band = 0; band < shape.bands; ++band) {
      expectedBands_[band] = expectedRows_.get() + band * shape.height;
      if (kLevels == 3) bandTable()[band] = static_cast<T**>(actualRows_.readOnly(0)) + band * shape.height;
    }
  }

  // What the library is given, and what the plain definition is given.
  Pointer actual() const {
    if constexpr (kLevels == 1) return rowFor(0, !writable_);
    if constexpr (kLevels == 2) return static_cast<T**>(actualRows_.readOnly(0));
    if constexpr (kLevels == 3) return static_cast<T***>(actualBands_.readOnly(0));
  }
  Pointer expected() const {
    if constexpr (kLevels == 1) return expected_.get();
    if constexpr (kLevels == 2) return expectedRows_.get();
    if constexpr (kLevels == 3) return expectedBands_.get();
  }

  // Sets the samples of both, in the order of rows and bands.
  template <class Fill>
  void fill(Fill&& fill) {
    fill(std::span<T>(expected_.get(), samples()));
    for (std::size_t row = 0; row < rows(); ++row)
      std::copy_n(expected_.get() + row * shape_.width, shape_.width, rowFor(row, false));
  }

  // Keeps the first row pointer of each band only: for routines that walk a plane as one run.
  void forgetLaterRows() {
    for (std::size_t row = 0; row < rows(); ++row)
      if (row % shape_.height != 0) expectedRows_[row] = rowTable()[row] = nullptr;
  }

  Shape const& shape() const { return shape_; }
  std::size_t rows() const { return shape_.height * shape_.bands; }
  std::size_t samples() const { return rows() * shape_.width; }
  T const* actualRow(std::size_t row) const { return rowFor(row, true); }
  T const* expectedRow(std::size_t row) const { return expected_.get() + row * shape_.width; }
  bool slackIsIntact() const { return runs_.slackIsIntact(); }

 private:
  T* rowFor(std::size_t row, bool readOnly) const {
    std::size_t const lastRun = rows() == 0 ? 0 : (rows() - 1) / rowsPerRun_;
    std::size_t const run = layout_.reversed ? lastRun - row / rowsPerRun_ : row / rowsPerRun_;
    void* const start = readOnly ? runs_.readOnly(run) : runs_.writable(run);
    return static_cast<T*>(start) + row % rowsPerRun_ * shape_.width;
  }
  T** rowTable() { return static_cast<T**>(actualRows_.writable(0)); }
  T*** bandTable() { return static_cast<T***>(actualBands_.writable(0)); }

  Shape shape_;
  Layout layout_;
  bool writable_;
  std::size_t rowsPerRun_;
  GuardedRuns runs_;
  std::unique_ptr<T[]> expected_;
  std::unique_ptr<T*[]> expectedRows_;
  std::unique_ptr<T**[]> expectedBands_;
  GuardedRuns actualRows_, actualBands_;
};

}  // namespace korva::test

#endif
