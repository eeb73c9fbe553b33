// RGBX: the R, G, B and X bands of an RGBX frame at full resolution, and the call that makes all four.
#include "korva_reference_api.h"

#include <cstddef>
#include <cstring>

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

// A site is a sample of the band at (y, x). It stands for the eight pixels (y, x) to (y, x + 3), (y - 1, x + 1),
// (y - 1, x + 2), (y + 1, x + 1) and (y + 1, x + 2); neighbouring sites fill the plane without gap or overlap. In the
// middle of the site is the pixel (y, x + 2) of the opposite kind, whose value, the mean of the four samples around it,
// serves the green pixels beside it.
struct Site {
  float left, above, right, below, centre;

  KORVA_INLINE Site(ConstRows in, std::size_t y, std::size_t x)
      : left(in[y][x]),
        above(in[y - 2][x + 2]),
        right(in[y][x + 4]),
        below(in[y + 2][x + 2]),
        centre(mean(left, above, right, below)) {}
};

// Sites lie in the rows y = 2 i + 1, i from 1 to height / 2 - 2, every fourth column from column 1 or 3 on in turn.
template <int vectorBytes>
struct ComputeSparse {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(float);
  static constexpr std::size_t kStrip = 256;
  // Sites at each end of a row that are computed one by one.
  static constexpr std::size_t kEdgeSites = 2;

  enum class Piece { upper, row, lower };

  template <Piece piece>
  KORVA_INLINE static void writePiece(Rows out, ConstRows in, std::size_t y, std::size_t x) {
    Site const site(in, y, x);
    if constexpr (piece == Piece::upper) {
      out[y - 1][x + 1] = mean(site.left, site.above);
      out[y - 1][x + 2] = mean(site.above, site.centre);
    } else if constexpr (piece == Piece::row) {
      out[y][x] = site.left;
      out[y][x + 1] = mean(site.left, site.centre);
      out[y][x + 2] = site.centre;
      out[y][x + 3] = mean(site.right, site.centre);
    } else {
      out[y + 1][x + 1] = mean(site.left, site.below);
      out[y + 1][x + 2] = mean(site.centre, site.below);
    }
  }

  // One piece of a row's sites: of all, or of those at the two ends.
  template <Piece piece>
  KORVA_INLINE static void writePieces(Rows out, ConstRows in, std::size_t y, std::size_t firstColumn,
                                       std::size_t sites, bool all) {
    for (std::size_t site = 0; site < sites; ++site) {
      if (!all && site == kEdgeSites) site = sites - kEdgeSites;
      writePiece<piece>(out, in, y, firstColumn + 4 * site);
    }
  }

  // Columns of an odd row from `column` on, where `column` is a site; count is a multiple of 4. A strip of the row
  // first gets its samples and centres, which are all that its odd columns hold; even columns are means of their
  // neighbours.
  KORVA_INLINE static void writeSiteRow(float* out, float const* above, float const* row, float const* below,
                                        std::size_t column, std::size_t count) {
    constexpr std::size_t kMargin = 4;
    float values[kStrip + 2 * kMargin];
    for (std::size_t left = column; left < column + count; left += kStrip) {
      std::size_t const strip = column + count - left < kStrip ? column + count - left : kStrip;
      std::size_t const first = left - kMargin;
      std::size_t k = 0;
      for (; k + kLanes <= strip + 2 * kMargin; k += kLanes) {
        writeCentres<kLanes>(values + k, above + first + k, row + first + k, below + first + k);
      }
      for (; k < strip + 2 * kMargin; k += 4) {
        writeCentres<4>(values + k, above + first + k, row + first + k, below + first + k);
      }
      k = 0;
      for (; k + kLanes <= strip; k += kLanes) writeBetween<kLanes>(out + left + k, values + kMargin + k);
      for (; k < strip; k += 4) writeBetween<4>(out + left + k, values + kMargin + k);
    }
  }

  template <std::size_t lanes>
  KORVA_INLINE static void writeCentres(float* values, float const* above, float const* row, float const* below) {
    using L = Lanes<lanes>;
    typename L::Mask const isSite = L::every(4, 0);
    auto const centre = mean(L::load(row - 2), L::load(above), L::load(row + 2), L::load(below));
    korva::storeLanes(values, isSite ? L::load(row) : centre);
  }

  template <std::size_t lanes>
  KORVA_INLINE static void writeBetween(float* out, float const* values) {
    using L = Lanes<lanes>;
    typename L::Mask const isSample = L::every(2, 0);
    korva::storeLanes(out, isSample ? L::load(values) : mean(L::load(values - 1), L::load(values + 1)));
  }

  // Columns of the even row between the site rows a and b, from a multiple of 4 on. aa and bb are the site rows above a
  // and below b; siteOfB, 1 or 3, is the column of b's sites in the tile.
  template <std::size_t lanes, std::size_t siteOfB>
  KORVA_INLINE static void writeBetweenSiteRows(float* out, float const* aa, float const* a, float const* b,
                                                float const* bb) {
    using L = Lanes<lanes>;
    typename L::Mask const isOdd = L::every(2, 1);
    typename L::Mask const isSiteOfB = L::every(4, siteOfB);
    typename L::Mask const isRightOfSiteOfB = L::every(4, siteOfB + 1);
    // Green pixels: a sample of one site row, and the centre that the other one has in this column.
    auto const sampleOfA = L::load(a), sampleOfB = L::load(b);
    auto const centre = mean(isSiteOfB ? L::load(a - 2) : L::load(b - 2), isSiteOfB ? L::load(aa) : sampleOfA,
                             isSiteOfB ? L::load(a + 2) : L::load(b + 2), isSiteOfB ? sampleOfB : L::load(bb));
    auto const green = mean(isSiteOfB ? sampleOfB : sampleOfA, centre);
    // X pixels: the two samples on a diagonal.
    auto const diagonal =
        mean(isRightOfSiteOfB ? L::load(b - 1) : L::load(a - 1), isRightOfSiteOfB ? L::load(a + 1) : L::load(b + 1));
    korva::storeLanes(out, isOdd ? green : diagonal);
  }

  template <std::size_t siteOfB>
  KORVA_INLINE static void writeEvenRow(float* out, ConstRows in, std::size_t y, std::size_t column,
                                        std::size_t count) {
    float const* const aa = in[y - 4] + column;
    float const* const a = in[y - 2] + column;
    float const* const b = in[y] + column;
    float const* const bb = in[y + 2] + column;
    std::size_t k = 0;
    for (; k + kLanes <= count; k += kLanes) {
      writeBetweenSiteRows<kLanes, siteOfB>(out + column + k, aa + k, a + k, b + k, bb + k);
    }
    for (; k < count; k += 4) writeBetweenSiteRows<4, siteOfB>(out + column + k, aa + k, a + k, b + k, bb + k);
  }

  // firstPhase 0 starts row 3 with a site in column 1, as R does; 1 in column 3, as B does.
  KORVA_INLINE static void run(Rows out, ConstRows in, std::size_t width, std::size_t height, std::size_t firstPhase,
                               RowRange range) {
    std::size_t const halfHeight = height / 2;
    if (halfHeight <= 2) return;
    std::size_t const sites = width / 4 - 1;
    bool const narrow = sites <= 2 * kEdgeSites;
    std::size_t const lastSiteRow = halfHeight - 2;
    for (std::size_t i = range.first / 2 < 1 ? 1 : range.first / 2; i <= lastSiteRow && 2 * i < range.last; ++i) {
      std::size_t const y = 2 * i + 1;
      std::size_t const siteColumn = (i - 1 + firstPhase) % 2 == 0 ? 1 : 3;
      std::size_t const siteColumnAbove = 4 - siteColumn;
      writePieces<Piece::upper>(out, in, y, siteColumn, sites, narrow || i == 1);
      writePieces<Piece::row>(out, in, y, siteColumn, sites, narrow);
      if (i > 1) writePieces<Piece::lower>(out, in, y - 2, siteColumnAbove, sites, narrow);
      if (i == lastSiteRow) writePieces<Piece::lower>(out, in, y, siteColumn, sites, true);
      if (narrow) continue;
      std::size_t const edge = 4 * kEdgeSites;
      writeSiteRow(out[y], in[y - 2], in[y], in[y + 2], siteColumn + edge, 4 * sites - 2 * edge);
      if (i == 1) continue;
      if (siteColumn == 1) {
        writeEvenRow<1>(out[y - 1], in, y, edge, width - 2 * edge);
      } else {
        writeEvenRow<3>(out[y - 1], in, y, edge, width - 2 * edge);
      }
    }
  }
};

void computeR(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeSparse>(out, in, width, height, std::size_t{0}, range);
}

void computeG(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeG>(out, in, width, height, range);
}

void computeB(Rows out, ConstRows in, std::size_t width, std::size_t height, RowRange range) {
  korva::dispatch<ComputeSparse>(out, in, width, height, std::size_t{1}, range);
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
