#include <gtest/gtest.h>

#include <array>

#include "support/routines.h"

namespace korva::test {
namespace {

TEST(MosaicGeometry, BandsAreNumberedRowByRow) {
  forEach(std::to_array({0u, 1u, 4u, 15u, 80u, 81u, 0xffffffffu}), 9, [](Case& c, unsigned band) {
    auto row = c.output<unsigned, 1>({1}), column = c.output<unsigned, 1>({1});
    auto const mosaicWidth = static_cast<unsigned>(c.random.between(1, 9));
    c.compare(routine::DM_ComputeFilterPosition, row, column, mosaicWidth, band);
    // The row is stored first, so one variable for both ends up with the column.
    c.compare(routine::DM_ComputeFilterPosition, row, row, mosaicWidth, band);
  });
}

TEST(MosaicGeometry, OffsetIsTheTargetMinusTheFilter) {
  forCases(200, [](Case& c) {
    auto rowOffset = c.output<double, 1>({1}), columnOffset = c.output<double, 1>({1});
    auto const target = c.input<double, 1>({2});
    auto const filterRow = static_cast<unsigned>(c.random.oneIn(5) ? c.random.bits() : c.random.below(6));
    auto const filterColumn = static_cast<unsigned>(c.random.below(6));
    c.isMoved = Case::nowhere;
    c.compare(routine::DM_ComputeTargetPositionRelativeToFilterPosition, rowOffset, columnOffset, filterRow,
              filterColumn, target.actualRow(0)[0], target.actualRow(0)[1]);
  });
}

TEST(MosaicGeometry, WeightsFollowTheStatedGrouping) {
  forCases(3000, [](Case& c) {
    auto const cellHeight = static_cast<unsigned>(c.random.between(1, 9));
    auto const cellWidth = static_cast<unsigned>(c.random.between(1, 9));
    auto weights = c.output<double, 1>({4});
    double const whole = static_cast<double>(c.random.below(37)) * 0.5 - 9.0;
    double const third = c.random.real(-1.0, 1.0) * cellWidth;
    c.isMoved = Case::nowhere;
    c.compare(routine::DM_ComputeCoefficientsBilinear, weights, cellHeight, cellWidth, whole, third);
    c.compare(routine::DM_ComputeCoefficientsBilinear, weights, cellHeight, cellWidth, third, whole);
    c.compare(routine::DM_ComputeCoefficientsBilinear, weights, cellHeight, cellWidth, -0.0, -1.0 * cellWidth);
    // The product of the sizes wraps in 32 bits.
    c.compare(routine::DM_ComputeCoefficientsBilinear, weights, 65537u, 65537u + cellWidth, whole, third);
  });
}

// Weights of a cell, pairs that sum to 0, or any doubles.
void bilinearWeights(std::span<double> samples, Random& random) {
  switch (random.below(5)) {
    case 0:
      return anything(samples, random);
    case 1: {
      double const w = random.oneIn(2) ? 0.0 : random.real(-1.0, 1.0);
      double const pattern[4] = {w, -w, random.oneIn(2) ? -w : 0.0, w};
      for (std::size_t k = 0; k < 4; ++k) samples[k] = pattern[k];
      return;
    }
    case 2:  // sums beyond the range of the conversion
      for (double& sample : samples) sample = random.real(-40000.0, 40000.0);
      return;
    default:
      return plain::DM_ComputeCoefficientsBilinear(samples.data(), 4, 5, random.real(-4.0, 4.0),
                                                   random.real(-5.0, 5.0));
  }
}

template <class T>
void checkAllSizes(Routine<void(T*, T const*, unsigned, unsigned, double const*, double, double)> routine) {
  forEach(imageSizes(1, 1), 6, [&](Case& c, ImageSize size) {
    auto const in = c.input<T, 1>({size.height * size.width});
    auto const weights = c.input<double, 1>({4}, kOneBlock, bilinearWeights);
    auto out = c.output<T, 1>({size.height * size.width});
    double const rowOffset = c.random.oneOf(std::to_array({-0.5, -0.5, -0.0, 0.5}));
    double const columnOffset = c.random.oneOf(std::to_array({-1e-300, -1e-300, -0.0, 3.0}));
    std::size_t const row = rowOffset < 0.0 ? 0 : size.height - 1, column = columnOffset < 0.0 ? 0 : size.width - 1;
    c.isMoved = [=](std::size_t, std::size_t, std::size_t sample) { return sample == row * size.width + column; };
    c.compare(routine, out, in, static_cast<unsigned>(size.height), static_cast<unsigned>(size.width), weights,
              rowOffset, columnOffset);
  });
}

TEST(BilinearDemosaicing, DoubleImagesOfAllSizes) { checkAllSizes(routine::DM_ApplyDemosaicingBilinear_dbl); }
TEST(BilinearDemosaicing, CountsOfAllSizes) { checkAllSizes(routine::DM_ApplyDemosaicingBilinear_uint16); }

}  // namespace
}  // namespace korva::test
