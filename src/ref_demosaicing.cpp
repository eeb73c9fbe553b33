// DM: filter positions, bilinear weights, and the resampling of mosaic band images at a common point of the cell.
#include "korva_reference_api.h"

#include <cstddef>
#include <type_traits>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/prefetch.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

// The weights of an interpolation square.
struct Weights {
  double topLeft;
  double topRight;
  double bottomLeft;
  double bottomRight;
};

// Two weights that stand in for all four where half of the interpolation square lies outside the image.
struct EdgePair {
  double first;
  double second;
};

// Scales the two weights to a sum of 1. Weights that cancel exactly stay as they are; a NaN sum divides.
EdgePair edgePair(double first, double second) {
  double const sum = first + second;
  if (sum == 0.0) return {first, second};
  return {first / sum, second / sum};
}

// Resamples a whole band image. An output row takes its samples from a top and a bottom band row, both present but in
// one edge row; within it all columns have both neighbours but one at the edge. uint16 samples are widened once into a
// pair of row strips in the first cache level, where each serves the four squares that it is a corner of.
template <int vectorBytes>
struct DemosaicBilinear {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kStrip = 512;
  static constexpr std::size_t kAhead = 4;
  using Doubles = korva::Vector<double, kLanes>;

  // out[k] from the squares between two rows, the left column of the first square at index 0.
  template <typename Sample>
  KORVA_INLINE static void interpolateSquares(Sample* out, double const* top, double const* bottom, std::size_t count,
                                              Weights w) {
    auto const interpolate = [=](std::size_t k) __attribute__((always_inline)) {
      auto const s0 = korva::loadLanes<Doubles>(top + k), s1 = korva::loadLanes<Doubles>(top + k + 1);
      auto const s2 = korva::loadLanes<Doubles>(bottom + k), s3 = korva::loadLanes<Doubles>(bottom + k + 1);
      return ((w.topLeft * s0 + w.topRight * s1) + w.bottomLeft * s2) + w.bottomRight * s3;
    };
    auto const convert = [=](std::size_t k) __attribute__((always_inline)) {
      korva::storeConverted(out + k, interpolate(k), interpolate(k + kLanes));
    };
    // Vectors of two doubles are left to the compilers, whose loops convert several at once: 0.7 of the time for uint16
    // (x86-64 baseline), and on 64-bit ARM g++ 12 converts two of them one by one.
    if constexpr (kLanes > 2) {
      for (std::size_t k = 0; k + 2 * kLanes < count; k += 2 * kLanes) convert(k);
      if (count >= 2 * kLanes) return convert(count - 2 * kLanes);  // overlaps the one before
    }
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) {
      out[k] = korva::toSample<Sample>(((w.topLeft * top[k] + w.topRight * top[k + 1]) + w.bottomLeft * bottom[k]) +
                                       w.bottomRight * bottom[k + 1]);
    }
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* in, std::size_t height, std::size_t width, Weights w,
                               double rowOffset, double columnOffset) {
    // A square starts dr rows above and dc columns left of its output sample.
    std::size_t const dr = rowOffset < 0.0 ? 1 : 0;
    std::size_t const dc = columnOffset < 0.0 ? 1 : 0;
    std::size_t const edgeRow = dr == 0 ? height - 1 : 0;
    std::size_t const edgeColumn = dc == 0 ? width - 1 : 0;

    // Squares with all four samples: outputs start at (dr, dc), squares at (0, 0). Doubles need no widening.
    if constexpr (std::is_same_v<Sample, double>) {
      for (std::size_t y = 0; y + 1 < height; ++y) {
        Sample const* const top = in + y * width;
        interpolateSquares(out + (y + dr) * width + dc, top, top + width, width - 1, w);
      }
    } else {
      for (std::size_t left = 0; left < width - 1; left += kStrip) {
        std::size_t const count = width - 1 - left < kStrip ? width - 1 - left : kStrip;
        alignas(64) double strips[2][kStrip + 1];
        korva::widenRow<Doubles>(strips[0], in + left, count + 1);
        for (std::size_t y = 0; y + 1 < height; ++y) {
          if (y + kAhead < height) {
            std::size_t const next = (y + kAhead) * width + left;
            korva::prefetchRow<false>(in + next, count);
            korva::prefetchRow<true>(out + next - width, count);
          }
          double const* const top = strips[y % 2];
          double* const bottom = strips[(y + 1) % 2];
          korva::widenRow<Doubles>(bottom, in + (y + 1) * width + left, count + 1);
          interpolateSquares(out + (y + dr) * width + dc + left, top, bottom, count, w);
        }
      }
    }

    // The row and the column whose squares lie half outside the image, and the corner where they meet.
    EdgePair const rowPair = dr == 0 ? edgePair(w.topLeft, w.topRight) : edgePair(w.bottomLeft, w.bottomRight);
    Sample const* const row = in + edgeRow * width;
    KORVA_INDEPENDENT
    for (std::size_t x = 0; x < width - 1; ++x) {
      out[edgeRow * width + dc + x] = korva::toSample<Sample>(rowPair.first * static_cast<double>(row[x]) +
                                                              rowPair.second * static_cast<double>(row[x + 1]));
    }
    EdgePair const columnPair = dc == 0 ? edgePair(w.topLeft, w.bottomLeft) : edgePair(w.topRight, w.bottomRight);
    Sample const* const column = in + edgeColumn;
    for (std::size_t y = 0; y < height - 1; ++y) {
      out[(y + dr) * width + edgeColumn] =
          korva::toSample<Sample>(columnPair.first * static_cast<double>(column[y * width]) +
                                  columnPair.second * static_cast<double>(column[(y + 1) * width]));
    }
    out[edgeRow * width + edgeColumn] = row[edgeColumn];
  }
};

template <typename Sample>
void demosaicBilinear(Sample* out, Sample const* in, std::size_t height, std::size_t width, double const* weights,
                      double rowOffset, double columnOffset) {
  Weights const w = {weights[0], weights[1], weights[2], weights[3]};
  if constexpr (std::is_same_v<Sample, double>) {
    korva::dispatchUpTo32<DemosaicBilinear>(out, in, height, width, w, rowOffset, columnOffset);
  } else {
    korva::dispatch<DemosaicBilinear>(out, in, height, width, w, rowOffset, columnOffset);
  }
}

}  // namespace

// Mosaic geometry ---------------------------------------------------------------------------------------------------

void KORVA_Ref_DM_ComputeFilterPosition(unsigned int* row, unsigned int* column, unsigned int mosaicWidth,
                                        unsigned int band) {
  *row = band / mosaicWidth;
  *column = band % mosaicWidth;
}

void KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition(double* rowOffset, double* columnOffset,
                                                                unsigned int filterRow, unsigned int filterColumn,
                                                                double targetRow, double targetColumn) {
  *rowOffset = targetRow - filterRow;
  *columnOffset = targetColumn - filterColumn;
}

void KORVA_Ref_DM_ComputeCoefficientsBilinear(double* weights, unsigned int mosaicHeight, unsigned int mosaicWidth,
                                              double rowOffset, double columnOffset) {
  double const cellHeight = mosaicHeight;
  double const cellWidth = mosaicWidth;
  double const r = rowOffset < 0.0 ? rowOffset + cellHeight : rowOffset;
  double const c = columnOffset < 0.0 ? columnOffset + cellWidth : columnOffset;
  double const inverseArea = 1.0 / static_cast<double>(mosaicHeight * mosaicWidth);
  double const a = (cellWidth - c) * inverseArea;
  double const b = c * inverseArea;
  weights[0] = a * (cellHeight - r);
  weights[1] = b * (cellHeight - r);
  weights[2] = a * r;
  weights[3] = b * r;
}

// Bilinear resampling -----------------------------------------------------------------------------------------------

void KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl(double* out, double const* in, unsigned int height, unsigned int width,
                                               double const* weights, double rowOffset, double columnOffset) {
  demosaicBilinear(out, in, height, width, weights, rowOffset, columnOffset);
}

void KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16(unsigned short* out, unsigned short const* in, unsigned int height,
                                                  unsigned int width, double const* weights, double rowOffset,
                                                  double columnOffset) {
  demosaicBilinear(out, in, height, width, weights, rowOffset, columnOffset);
}
