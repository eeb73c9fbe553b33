// RGBX: the R, G, B and X bands of an RGBX frame at full resolution, and the call that makes all four.
#include "korva_reference_api.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/strict_float.h"

// Rows are computed a vector at a time: each lane gets the values of all kinds of pixel that the row has, and a mask by
// column picks the one that holds there; lanes of another kind may carry anything. What is kept was read from samples
// of the band's own kind only, and those are stored back unchanged. So all of it works in place, and a pixel may be
// computed twice. The first and last columns of a row, where a vector would reach outside, are computed one by one.

namespace {

using Rows = float* const*;
using ConstRows = float const* const*;

// Rows `first` to `last` - 1 of a band; what the band does not write stays outside.
struct RowRange {
  std::size_t first;
  std::size_t last;
};

constexpr RowRange kAllRows = {0, ~std::size_t{0}};

// Works on single samples and on vectors of them.
template <typename Floats>
KORVA_INLINE Floats mean(Floats a, Floats b) {
  return (a + b) * 0.5f;
}

template <typename Floats>
KORVA_INLINE Floats mean(Floats a, Floats b, Floats c, Floats d) {
  return (((a + b) + c) + d) * 0.25f;
}

template <std::size_t count>
struct Lanes {
  using Floats = korva::Vector<float, count>;
  using Mask = korva::Vector<int, count>;

  KORVA_INLINE static Floats load(float const* source) { return korva::loadLanes<Floats>(source); }

  // Every period-th lane from the phase-th on.
  KORVA_INLINE static Mask every(std::size_t period, std::size_t phase) {
    Mask mask = {};
    for (std::size_t k = 0; k < count; ++k) mask[k] = k % period == phase % period ? -1 : 0;
    return mask;
  }
};

// In rows of G and X a vector's lanes take the values of both kinds of pixel that alternate there, and a mask picks.

// G: left, above, right, below ----------------------------------------------------------------------------------------

template <int vectorBytes>
struct ComputeG {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(float);
  using L = Lanes<kLanes>;

  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
    typename L::Mask const isGreen = L::every(2, 0);
    for (std::size_t r = range.first < 1 ? 1 : range.first; r + 1 < height && r < range.last; ++r) {
      float* const target = out[r];
      float const* const above = in[r - 1];
      float const* const row = in[r];
      float const* const below = in[r + 1];
      // Pairs of a G pixel and its right neighbour.
      std::size_t c = (r + 1) % 2;
      std::size_t const end = c + (width - 2);
      auto const pair = [&]() __attribute__((always_inline)) {
        float const green = row[c];
        target[c + 1] = mean(green, above[c + 1], row[c + 2], below[c + 1]);
        target[c] = green;
        c += 2;
      };
      if (c < end) pair();
      for (; c + kLanes <= end; c += kLanes) {
        auto const green = L::load(row + c);
        auto const other = mean(L::load(row + c - 1), L::load(above + c), L::load(row + c + 1), L::load(below + c));
        korva::storeLanes(target + c, isGreen ? green : other);
      }
      while (c < end) pair();
    }
  }
};

// X: two neighbours in the row or column, or four diagonal ones -------------------------------------------------------

template <int vectorBytes>
struct ComputeX {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(float);
  using L = Lanes<kLanes>;

  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
    if (width < 4 || height < 4) return;
    typename L::Mask const isEven = L::every(2, 0);
    std::size_t const rows = height / 2 * 2 - 2;
    std::size_t const end = width / 2 * 2 - 2;
    for (std::size_t r = range.first; r < rows && r < range.last; ++r) {
      float* const target = out[r];
      float const* const top = in[r / 2 * 2];
      float const* const bottom = in[r / 2 * 2 + 2];
      std::size_t c = 0;
      if (r % 2 == 0) {
        auto const pair = [&]() __attribute__((always_inline)) {
          float const left = top[c];
          target[c + 1] = mean(left, top[c + 2]);
          target[c] = left;
          c += 2;
        };
        pair();
        for (; c + kLanes <= end; c += kLanes) {
          korva::storeLanes(target + c, isEven ? L::load(top + c) : mean(L::load(top + c - 1), L::load(top + c + 1)));
        }
        while (c < end) pair();
      } else {
        auto const pair = [&]() __attribute__((always_inline)) {
          target[c] = mean(top[c], bottom[c]);
          target[c + 1] = mean(top[c], top[c + 2], bottom[c], bottom[c + 2]);
          c += 2;
        };
        pair();
        for (; c + kLanes <= end; c += kLanes) {
          auto const vertical = mean(L::load(top + c), L::load(bottom + c));
          auto const diagonal =
              mean(L::load(top + c - 1), L::load(top + c + 1), L::load(bottom + c - 1), L::load(bottom + c + 1));
          korva::storeLanes(target + c, isEven ? vertical : diagonal);
        }
        while (c < end) pair();
      }
    }
  }
};

// R and B: sparse samples in the odd rows -----------------------------------------------------------------------------

// Sites are the band's samples in the rows y = 2 i + 1, i from 1 to height / 2 - 2: every fourth column from column 1
// or 3 on, in turn from row to row. A site at (y, x) stands for the eight pixels (y, x) to (y, x + 3), (y - 1, x + 1),
// (y - 1, x + 2), (y + 1, x + 1) and (y + 1, x + 2); sites fill the plane without gap or overlap. In its middle is the
// pixel (y, x + 2) of the opposite kind, whose value, the mean of the four samples around it, serves the green pixels
// beside it.
//
// The samples of each row are packed, and so are the centres between them: sample m lies in column 4 m + 1 or 4 m + 3.
// All loops then run over neighbouring values, and whole rows come out by interleaving.
template <int vectorBytes>
struct ComputeSparse {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(float);
  static constexpr std::size_t kStrip = 512;
  using Floats = korva::Vector<float, kLanes>;

  // Every fourth float of 4 * kLanes - 3. Loads that start ever further left bring each of them to a lane of its own.
  KORVA_INLINE static Floats loadFourths(float const* row) {
    constexpr std::size_t kStep = kLanes - 1;
    auto const a = korva::loadLanes<Floats>(row), b = korva::loadLanes<Floats>(row + kStep);
    auto const c = korva::loadLanes<Floats>(row + 2 * kStep), d = korva::loadLanes<Floats>(row + 3 * kStep);
    if constexpr (kLanes == 8) {
      auto const ab = __builtin_shufflevector(a, b, 0, 9, 2, 3, 4, 13, 6, 7);
      auto const cd = __builtin_shufflevector(c, d, 0, 1, 2, 11, 4, 5, 6, 15);
      return __builtin_shufflevector(__builtin_shufflevector(ab, cd, 0, 1, 10, 11, 4, 5, 14, 15), ab, 0, 4, 1, 5, 2, 6,
                                     3, 7);
    } else {
      auto const ab = __builtin_shufflevector(a, b, 0, 5, 2, 3);
      return __builtin_shufflevector(ab, __builtin_shufflevector(c, d, 0, 1, 2, 7), 0, 1, 6, 7);
    }
  }

  // The samples of an odd row that are of the band's kind.
  KORVA_INLINE static void pack(float* samples, float const* row, std::size_t count) {
    std::size_t m = 0;
    for (; m + kLanes <= count; m += kLanes) korva::storeLanes(samples + m, loadFourths(row + 4 * m));
    for (; m < count; ++m) samples[m] = row[4 * m];
  }

  // centres[m] between samples[m] and samples[m + 1]; above and below hold what lies above and below centre m.
  KORVA_INLINE static void computeCentres(float* centres, float const* samples, float const* above, float const* below,
                                          std::size_t count) {
    for (std::size_t m = 0; m < count; ++m) centres[m] = mean(samples[m], above[m], samples[m + 1], below[m]);
  }

  // out gets a[0], b[0], c[0], d[0], a[1], b[1] and so on.
  template <typename T>
  KORVA_INLINE static void storeInterleaved(float* out, T a, T b, T c, T d) {
    if constexpr (std::is_same_v<T, float>) {
      out[0] = a;
      out[1] = b;
      out[2] = c;
      out[3] = d;
    } else if constexpr (kLanes == 8) {
      auto const abLow = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
      auto const abHigh = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
      auto const cdLow = __builtin_shufflevector(c, d, 0, 8, 1, 9, 4, 12, 5, 13);
      auto const cdHigh = __builtin_shufflevector(c, d, 2, 10, 3, 11, 6, 14, 7, 15);
      // Each with two sites in its halves, the second one four further on.
      auto const site0 = __builtin_shufflevector(abLow, cdLow, 0, 1, 8, 9, 4, 5, 12, 13);
      auto const site1 = __builtin_shufflevector(abLow, cdLow, 2, 3, 10, 11, 6, 7, 14, 15);
      auto const site2 = __builtin_shufflevector(abHigh, cdHigh, 0, 1, 8, 9, 4, 5, 12, 13);
      auto const site3 = __builtin_shufflevector(abHigh, cdHigh, 2, 3, 10, 11, 6, 7, 14, 15);
      korva::storeLanes(out, __builtin_shufflevector(site0, site1, 0, 1, 2, 3, 8, 9, 10, 11));
      korva::storeLanes(out + 8, __builtin_shufflevector(site2, site3, 0, 1, 2, 3, 8, 9, 10, 11));
      korva::storeLanes(out + 16, __builtin_shufflevector(site0, site1, 4, 5, 6, 7, 12, 13, 14, 15));
      korva::storeLanes(out + 24, __builtin_shufflevector(site2, site3, 4, 5, 6, 7, 12, 13, 14, 15));
    } else {
      auto const abLow = __builtin_shufflevector(a, b, 0, 4, 1, 5), abHigh = __builtin_shufflevector(a, b, 2, 6, 3, 7);
      auto const cdLow = __builtin_shufflevector(c, d, 0, 4, 1, 5), cdHigh = __builtin_shufflevector(c, d, 2, 6, 3, 7);
      korva::storeLanes(out, __builtin_shufflevector(abLow, cdLow, 0, 1, 4, 5));
      korva::storeLanes(out + 4, __builtin_shufflevector(abLow, cdLow, 2, 3, 6, 7));
      korva::storeLanes(out + 8, __builtin_shufflevector(abHigh, cdHigh, 0, 1, 4, 5));
      korva::storeLanes(out + 12, __builtin_shufflevector(abHigh, cdHigh, 2, 3, 6, 7));
    }
  }

  // A row of sites from its first sample on.
  template <typename T>
  KORVA_INLINE static void writeSites(float* out, float const* samples, float const* centres, std::size_t m) {
    auto const left = korva::loadLanes<T>(samples + m);
    auto const centre = korva::loadLanes<T>(centres + m);
    auto const right = korva::loadLanes<T>(samples + m + 1);
    storeInterleaved(out + 4 * m, left, mean(left, centre), centre, mean(right, centre));
  }

  KORVA_INLINE static void writeSiteRow(float* out, float const* samples, float const* centres, std::size_t count) {
    std::size_t m = 0;
    for (; m + kLanes <= count; m += kLanes) writeSites<Floats>(out, samples, centres, m);
    for (; m < count; ++m) writeSites<float>(out, samples, centres, m);
  }

  // Packed samples and centres of a row of sites.
  struct Packed {
    float const* samples;
    float const* centres;
  };

  // The even row between two rows of sites, from column 2 on. In one of them, `near`, sites start in column 1, in the
  // other, `far`, in column 3.
  template <typename T>
  KORVA_INLINE static void writeBetween(float* out, Packed near, Packed far, std::size_t m) {
    auto const nearLeft = korva::loadLanes<T>(near.samples + m);
    auto const nearRight = korva::loadLanes<T>(near.samples + m + 1);
    auto const farSample = korva::loadLanes<T>(far.samples + m);
    auto const nearCentre = korva::loadLanes<T>(near.centres + m);
    auto const farCentre = korva::loadLanes<T>(far.centres + m);
    storeInterleaved(out + 4 * m, mean(nearLeft, farSample), mean(nearCentre, farSample), mean(farSample, nearRight),
                     mean(farCentre, nearRight));
  }

  KORVA_INLINE static void writeRowBetween(float* out, Packed near, Packed far, std::size_t count) {
    std::size_t m = 0;
    for (; m + kLanes <= count; m += kLanes) writeBetween<Floats>(out, near, far, m);
    for (; m < count; ++m) writeBetween<float>(out, near, far, m);
  }

  // What the sites of one row give to the even row beside them, where there are no sites on its other side: two pixels
  // of four. opposite holds the samples beyond that even row, above or below the centres.
  KORVA_INLINE static void writeRowBeside(float* out, float const* samples, float const* centres, float const* opposite,
                                          std::size_t count) {
    for (std::size_t m = 0; m < count; ++m) {
      out[4 * m] = mean(samples[m], opposite[m]);
      out[4 * m + 1] = mean(centres[m], opposite[m]);
    }
  }

  // In row 3 the first site lies in column 1 for R and 3 for B.
  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height,
                               std::size_t firstSiteOfRow3, RowRange range) {
    if (height / 2 <= 2) return;
    std::size_t const lastSiteRow = height / 2 - 2;
    std::size_t const first = range.first / 2 < 1 ? 1 : range.first / 2;
    std::size_t const sites = width / 4 - 1;
    for (std::size_t left = 0; left < sites; left += kStrip) {
      std::size_t const count = sites - left < kStrip ? sites - left : kStrip;
      float samples[4][kStrip + 1];
      float centres[2][kStrip];

      auto const firstSite = [&](std::size_t i) { return i % 2 == 1 ? firstSiteOfRow3 : 4 - firstSiteOfRow3; };
      auto const packRow = [&](std::size_t i) __attribute__((always_inline)) {
        pack(samples[i % 4], in[2 * i + 1] + firstSite(i) + 4 * left, count + 1);
      };
      // The samples above or below the centres of row i lie in row `other`, one further on when row i starts later.
      auto const beside = [&](std::size_t i, std::size_t other) {
        return samples[other % 4] + (firstSite(i) == 1 ? 0 : 1);
      };
      auto const computeRow = [&](std::size_t i) __attribute__((always_inline)) {
        computeCentres(centres[i % 2], samples[i % 4], beside(i, i - 1), beside(i, i + 1), count);
      };

      if (first > lastSiteRow) return;
      if (first > 1) packRow(first - 2);
      packRow(first - 1);
      packRow(first);
      if (first > 1) computeRow(first - 1);
      for (std::size_t i = first; i <= lastSiteRow && 2 * i < range.last; ++i) {
        std::size_t const y = 2 * i + 1;
        std::size_t const column = firstSite(i) + 4 * left;
        packRow(i + 1);
        computeRow(i);
        if (i == 1) {
          writeRowBeside(out[y - 1] + column + 1, samples[i % 4], centres[i % 2], beside(i, i - 1), count);
        } else {
          Packed const here = {samples[i % 4], centres[i % 2]};
          Packed const above = {samples[(i - 1) % 4], centres[(i - 1) % 2]};
          bool const startsNear = firstSite(i) == 1;
          writeRowBetween(out[y - 1] + 2 + 4 * left, startsNear ? here : above, startsNear ? above : here, count);
        }
        writeSiteRow(out[y] + column, samples[i % 4], centres[i % 2], count);
        if (i == lastSiteRow) {
          writeRowBeside(out[y + 1] + column + 1, samples[i % 4], centres[i % 2], beside(i, i + 1), count);
        }
      }
    }
  }
};

void computeR(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeSparse>(out, in, width, height, std::size_t{1}, range);
}

void computeG(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeG>(out, in, width, height, range);
}

void computeB(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeSparse>(out, in, width, height, std::size_t{3}, range);
}

void computeX(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeX>(out, in, width, height, range);
}

constexpr std::size_t kMargin = 3;

}  // namespace

// Bands -------------------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBX_ComputeBand_R_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeR(out, in, width, height, kAllRows);
}

void KORVA_Ref_RGBX_ComputeBand_G_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeG(out, in, width, height, kAllRows);
}

void KORVA_Ref_RGBX_ComputeBand_B_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeB(out, in, width, height, kAllRows);
}

void KORVA_Ref_RGBX_ComputeBand_X_float(float** out, float** in, unsigned long width, unsigned long height) {
  computeX(out, in, width, height, kAllRows);
}

// Frame -------------------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBX_DemosaicFrame_float(float*** out, float** scratch, float** frame, unsigned long width,
                                        unsigned long height) {
  using ComputeBand = void (*)(Rows, ConstRows, std::size_t, std::size_t, RowRange);
  constexpr ComputeBand kBands[] = {computeR, computeG, computeB, computeX};
  // All four bands of a few rows before the next rows, so that these rows of scratch stay in the cache. Each row gets
  // its bands in the order R, G, B, X all the same, which is what remains in scratch.
  constexpr std::size_t kRowsAtOnce = 16;
  for (std::size_t first = 0; first < height;) {
    // A short remainder joins the last rows: R and B write the even row below their last row of samples with it.
    std::size_t const last = height - first < 2 * kRowsAtOnce ? height : first + kRowsAtOnce;
    std::size_t const firstCropped = first < kMargin ? kMargin : first;
    std::size_t const endCropped = last < height - kMargin ? last : height - kMargin;
    for (std::size_t band = 0; band < 4; ++band) {
      kBands[band](scratch, frame, width, height, RowRange{first, last});
      for (std::size_t row = firstCropped; row < endCropped; ++row) {
        std::memcpy(out[band][row - kMargin], scratch[row] + kMargin, (width - 2 * kMargin) * sizeof(float));
      }
    }
    first = last;
  }
}
