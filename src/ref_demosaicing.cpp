// DM: filter positions, bilinear weights, and the resampling of mosaic band images at a common point of the cell.
#include "korva_reference_api.h"

#include <cstddef>

#include "internal/multiversion.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

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

template <typename Sample>
KORVA_INLINE double product(double weight, Sample sample) {
  return weight * static_cast<double>(sample);
}

// out[k] from the squares between two neighbouring band rows, the left column of the first square at index 0.
struct InterpolateSquares {
  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* top, Sample const* bottom, std::size_t count,
                               double const* weights) {
    double const w0 = weights[0], w1 = weights[1], w2 = weights[2], w3 = weights[3];
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) {
      out[k] = korva::toSample<Sample>(((product(w0, top[k]) + product(w1, top[k + 1])) + product(w2, bottom[k])) +
                                       product(w3, bottom[k + 1]));
    }
  }
};

// out[k] from the pairs along one band row, for squares that lie half above or below the image.
struct InterpolatePairs {
  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* row, std::size_t count, EdgePair weights) {
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) {
      out[k] = korva::toSample<Sample>(product(weights.first, row[k]) + product(weights.second, row[k + 1]));
    }
  }
};

template <typename Sample>
void demosaicBilinear(Sample* out, Sample const* in, std::size_t height, std::size_t width, double const* weights,
                      double rowOffset, double columnOffset) {
  // A square starts dr rows above and dc columns left of its output sample.
  std::size_t const dr = rowOffset < 0.0 ? 1 : 0;
  std::size_t const dc = columnOffset < 0.0 ? 1 : 0;
  EdgePair const rowPair = dr == 0 ? edgePair(weights[0], weights[1]) : edgePair(weights[2], weights[3]);
  EdgePair const columnPair = dc == 0 ? edgePair(weights[0], weights[2]) : edgePair(weights[1], weights[3]);
  std::size_t const edgeRow = dr == 0 ? height - 1 : 0;
  std::size_t const edgeColumn = dc == 0 ? width - 1 : 0;

  for (std::size_t y = 0; y < height; ++y) {
    Sample* const target = out + y * width;
    Sample const* const source = in + y * width;
    if (y == edgeRow) {
      korva::dispatch<InterpolatePairs>(target + dc, source, width - 1, rowPair);
      target[edgeColumn] = source[edgeColumn];
      continue;
    }
    Sample const* const top = source - dr * width;
    Sample const* const bottom = top + width;
    korva::dispatch<InterpolateSquares>(target + dc, top, bottom, width - 1, weights);
    target[edgeColumn] = korva::toSample<Sample>(product(columnPair.first, top[edgeColumn]) +
                                                 product(columnPair.second, bottom[edgeColumn]));
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
