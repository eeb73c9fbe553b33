// RGBX: the R, G, B and X bands of an RGBX frame at full resolution, and the call that makes all four.
#include "korva_reference_api.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/strict_float.h"

// Of the frame only samples of the band's own kind take part, and those are stored back unchanged. So all of it works
// in place, and a pixel may be computed twice: the last vector of a row ends where the row does.

namespace {

using Rows = float* const*;
using ConstRows = float const* const*;

// Rows `first` to `last` - 1 of a band; what the band does not write stays outside.
struct RowRange {
  std::size_t first;
  std::size_t last;
};

// Works on single samples and on vectors of them.
template <typename Floats>
KORVA_INLINE Floats mean(Floats a, Floats b) {
  return (a + b) * 0.5f;
}

template <typename Floats>
KORVA_INLINE Floats mean(Floats a, Floats b, Floats c, Floats d) {
  return (((a + b) + c) + d) * 0.25f;
}

// Vectors of whole groups of columns, in which the same kinds of pixel follow each other.
template <std::size_t count>
struct Groups {
  using Floats = korva::Vector<float, count>;

  // Gives every group of columns the samples that lie `at` columns after its first, one for each column: those of the
  // first half from one row, those of the second from another. No load goes beyond the last sample that is asked for.
  template <int... at>
  KORVA_INLINE static Floats pick(float const* row, float const* row2) {
    constexpr std::size_t kPeriod = sizeof...(at), kHalf = kPeriod / 2;
    constexpr int kAt[] = {at...};
    constexpr int kShift = std::max(0, kAt[kHalf - 1] - int{kPeriod - 1});
    constexpr int kShift2 = std::max(0, kAt[kPeriod - 1] - int{kPeriod - 1});
    auto const a = korva::loadLanes<Floats>(row + kShift), b = korva::loadLanes<Floats>(row2 + kShift2);
    auto const shuffle = [&]<std::size_t... lane>(std::index_sequence<lane...>) __attribute__((always_inline)) {
      return korva::shuffleLanes<(static_cast<int>(lane - lane % kPeriod) + kAt[lane % kPeriod] +
                                  (lane % kPeriod < kHalf ? -kShift : static_cast<int>(count) - kShift2))...>(a, b);
    };
    return shuffle(std::make_index_sequence<count>());
  }

  template <int... at>
  KORVA_INLINE static Floats pick(float const* row) {
    return pick<at...>(row, row);
  }

  // b in each group's columns that are 1, a in the others.
  template <int... isB>
  KORVA_INLINE static Floats blend(Floats a, Floats b) {
    constexpr int kIsB[] = {isB...};
    auto const shuffle = [&]<std::size_t... lane>(std::index_sequence<lane...>) __attribute__((always_inline)) {
      return korva::shuffleLanes<static_cast<int>(lane + kIsB[lane % sizeof...(isB)] * count)...>(a, b);
    };
    return shuffle(std::make_index_sequence<count>());
  }
};

// Stores the values of `columns` columns, group by group of `period` columns where a row has not even a vector of them.
template <int vectorBytes, std::size_t period, typename Values>
KORVA_INLINE void writeRow(float* out, std::size_t columns, Values values) {
  constexpr std::size_t kLanes = vectorBytes / sizeof(float);
  if (columns < kLanes) {
    for (std::size_t c = 0; c < columns; c += period) korva::storeLanes(out + c, values(Groups<period>(), c));
    return;
  }
  for (std::size_t c = 0; c + kLanes < columns; c += kLanes) korva::storeLanes(out + c, values(Groups<kLanes>(), c));
  korva::storeLanes(out + (columns - kLanes), values(Groups<kLanes>(), columns - kLanes));
}

// G: left, above, right, below ----------------------------------------------------------------------------------------

template <int vectorBytes>
struct ComputeG {
  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
    for (std::size_t r = std::max(range.first, std::size_t{1}); r + 1 < height && r < range.last; ++r) {
      // Pairs of a G pixel and its right neighbour.
      std::size_t const first = (r + 1) % 2;
      float const *const above = in[r - 1] + first, *const row = in[r] + first, *const below = in[r + 1] + first;
      writeRow<vectorBytes, 2>(
          out[r] + first, width - 2, [=](auto g, std::size_t c) __attribute__((always_inline)) {
            auto const green = g.template pick<0, 0>(row + c), right = g.template pick<2, 2>(row + c);
            auto const up = g.template pick<1, 1>(above + c), down = g.template pick<1, 1>(below + c);
            return g.template blend<0, 1>(green, mean(green, up, right, down));
          });
    }
  }
};

// X: two neighbours in the row or column, or four diagonal ones -------------------------------------------------------

template <int vectorBytes>
struct ComputeX {
  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
    if (width < 4 || height < 4) return;
    std::size_t const columns = width / 2 * 2 - 2, end = std::min(height / 2 * 2 - 2, range.last);
    for (std::size_t r = range.first; r < end; ++r) {
      float const *const top = in[r / 2 * 2], *const bottom = in[r / 2 * 2 + 2];
      if (r % 2 == 0) {
        writeRow<vectorBytes, 2>(
            out[r], columns, [=](auto g, std::size_t c) __attribute__((always_inline)) {
              auto const left = g.template pick<0, 0>(top + c);
              return g.template blend<0, 1>(left, mean(left, g.template pick<2, 2>(top + c)));
            });
      } else {
        writeRow<vectorBytes, 2>(
            out[r], columns, [=](auto g, std::size_t c) __attribute__((always_inline)) {
              auto const a = g.template pick<0, 0>(top + c), b = g.template pick<2, 2>(top + c);
              auto const d = g.template pick<0, 0>(bottom + c), e = g.template pick<2, 2>(bottom + c);
              return g.template blend<0, 1>(mean(a, d), mean(a, b, d, e));
            });
      }
    }
  }
};

// R and B: sparse samples in the odd rows -----------------------------------------------------------------------------

// The band's samples lie in every fourth column of the odd rows, from column 1 or 3 on in turn. Half way between two of
// them lies a pixel of the opposite kind, a centre, which gets the mean of the four samples around it. All other pixels
// get the mean of two samples, or of a sample and a centre: in the even rows those of the band's two rows beside.
template <int vectorBytes>
struct ComputeSparse {
  KORVA_INLINE static void writeOddRow(float* out, float const* above, float const* row, float const* below,
                                       std::size_t columns) {
    writeRow<vectorBytes, 4>(
        out, columns, [=](auto g, std::size_t c) __attribute__((always_inline)) {
          auto const left = g.template pick<0, 0, 0, 0>(row + c), right = g.template pick<4, 4, 4, 4>(row + c);
          auto const up = g.template pick<2, 2, 2, 2>(above + c), down = g.template pick<2, 2, 2, 2>(below + c);
          auto const centre = mean(left, up, right, down);
          auto const beside = mean(g.template blend<0, 0, 1, 1>(left, right), centre);
          return g.template blend<0, 0, 1, 0>(g.template blend<0, 1, 0, 1>(left, beside), centre);
        });
  }

  // Samples start in the first column of `near` and two columns later in `far`, both complete rows of the band; the
  // last sample of `near` is in the frame only, as `samples` has it.
  KORVA_INLINE static void writeEvenRow(float* out, float const* near, float const* far, float const* samples,
                                        std::size_t columns) {
    writeRow<vectorBytes, 4>(
        out, columns, [=](auto g, std::size_t c) __attribute__((always_inline)) {
          return mean(g.template pick<0, 2, 2, 4>(near + c, far + c),
                      g.template pick<2, 2, 4, 4>(far + c, samples + c));
        });
  }

  // Two pixels of four, where the band has a row on one side only; on the other side lie the samples `opposite`.
  KORVA_INLINE static void writeOuterRow(float* out, float const* row, float const* opposite, std::size_t columns) {
    for (std::size_t c = 0; c < columns; c += 4) {
      out[c + 1] = mean(row[c], opposite[c + 2]);
      out[c + 2] = mean(row[c + 2], opposite[c + 2]);
    }
  }

  // In row 3 the first sample lies in column 1 for R and 3 for B. An even row needs the odd ones beside it complete, so
  // a range ends with an odd row that the next one starts with, and computes again.
  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height, std::size_t firstOfRow3,
                               RowRange range) {
    if (height < 6) return;
    std::size_t const columns = width - 4, lastRow = height / 2 * 2 - 3;
    for (std::size_t y = std::max(range.first | 1, std::size_t{3}); y <= lastRow && y <= range.last; y += 2) {
      std::size_t const x = y % 4 == 3 ? firstOfRow3 : 4 - firstOfRow3;
      writeOddRow(out[y] + x, in[y - 2] + x, in[y] + x, in[y + 2] + x, columns);
      if (y == 3) {
        writeOuterRow(out[2] + x, out[3] + x, in[1] + x, columns);
      } else if (y > range.first) {
        std::size_t const near = x == 1 ? y : y - 2, far = x == 1 ? y - 2 : y;
        writeEvenRow(out[y - 1] + 2, out[near] + 1, out[far] + 1, in[near] + 1, columns);
      }
      if (y == lastRow && y < range.last) writeOuterRow(out[y + 1] + x, out[y] + x, in[y + 2] + x, columns);
    }
  }
};

enum Band { kR, kG, kB, kX };

void computeBand(Band band, Rows out, ConstRows in, std::size_t width, std::size_t height,
                 RowRange range = {0, ~std::size_t{0}}) {
  if (band == kG) return korva::dispatchUpTo32<ComputeG>(out, in, width, height, range);
  if (band == kX) return korva::dispatchUpTo32<ComputeX>(out, in, width, height, range);
  korva::dispatch<ComputeSparse>(out, in, width, height, std::size_t{band == kR ? 1u : 3u}, range);
}

constexpr std::size_t kMargin = 3;

}  // namespace

// Bands -------------------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBX_ComputeBand_R_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeBand(kR, out, in, width, height);
}

void KORVA_Ref_RGBX_ComputeBand_G_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeBand(kG, out, in, width, height);
}

void KORVA_Ref_RGBX_ComputeBand_B_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeBand(kB, out, in, width, height);
}

void KORVA_Ref_RGBX_ComputeBand_X_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeBand(kX, out, in, width, height);
}

// Frame -------------------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBX_DemosaicFrame_float(float*** out, float** scratch, float** frame, unsigned long width,
                                        unsigned long height) {
  // All four bands of a few rows before the next rows, so that these rows of scratch stay in the cache. Each row gets
  // its bands in the order R, G, B, X all the same, which is what remains in scratch. 8 to 32 rows are equally fast.
  constexpr std::size_t kRowsAtOnce = 16;
  for (std::size_t first = 0, last; first < height; first = last) {
    last = std::min(height, (first | 1) + kRowsAtOnce);
    std::size_t const firstCropped = std::max(first, kMargin), endCropped = std::min(last, height - kMargin);
    for (Band const band : {kR, kG, kB, kX}) {
      computeBand(band, scratch, frame, width, height, RowRange{first, last});
      for (std::size_t row = firstCropped; row < endCropped; ++row)
        std::memcpy(out[band][row - kMargin], scratch[row] + kMargin, (width - 2 * kMargin) * sizeof(float));
    }
  }
}
