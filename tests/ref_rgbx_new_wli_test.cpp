#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/routines.h"

namespace korva::test {
namespace {

// Working buffers with any contents from before; after the call every sample is compared, margins included.
struct WorkingBuffers {
  WorkingBuffers(Case& c, Shape size)
      : images{c.inOut<float, 2>(size), c.inOut<float, 2>(size), c.inOut<float, 2>(size)},
        ycc(c.inOut<float, 3>({size.width, size.height, 3})) {}
  NewWLIBuffers actual() const { return {images[0].actual(), images[1].actual(), images[2].actual(), ycc.actual()}; }
  NewWLIBuffers expected() const {
    return {images[0].expected(), images[1].expected(), images[2].expected(), ycc.expected()};
  }
  void checkWith(Case& c, std::size_t position) {
    for (auto& image : images) c.check(position, image);
    c.check(position, ycc);
  }

  Samples<float, 2> images[3];
  Samples<float, 3> ycc;
};

void smoothing(std::span<double> kernel, Random& random) {
  for (double& weight : kernel) weight = random.real(0.0, 2.0 / 49.0);
}

TEST(NewWli, EqualsItsStepsForEverySize) {
  forEach(imageSizes(6, 6), 1, [](Case& c, ImageSize size) {
    std::size_t const width = size.width, height = size.height;
    c.isMoved = Case::nowhere;
    bool const plainValues = c.random.oneIn(2);
    auto const samples = plainValues ? ordinary<float> : anything<float>;
    auto const in = c.input<float, 3>({width, height, 4}, height, samples);
    auto const kernel = c.input<double, 1>({49}, kOneBlock, plainValues ? smoothing : anything<double>);
    WorkingBuffers buffers(c, {width, height});
    auto out = c.output<float, 3>({width - 6, height - 6, 3}, 1);
    constexpr double kWeights[] = {0.0, 0.5, 1.0, 2.0, -0.25};
    double const weight = c.random.oneIn(2) ? c.random.oneOf(kWeights) : c.random.unit();
    double const kb = c.random.oneIn(2) ? 0.114 : c.random.real(0.0, 0.5), kr = c.random.real(0.0, 0.5);
    c.compare(routine::RGBX_ComputeNewWLI_float, out, in, width, height, kernel, buffers, kb, kr, weight);
  });
}

TEST(NewWli, KernelMayLieWhereResultsGo) {
  forCases(1, [](Case& c) {
    auto const in = c.input<float, 3>({20, 80, 4}, kOneBlock, ordinary<float>);
    auto const kernel = c.input<double, 1>({49}, kOneBlock, smoothing);
    WorkingBuffers buffers(c, {20, 80});
    auto apart = c.output<float, 3>({14, 74, 3}), inside = c.output<float, 3>({14, 74, 3});
    KORVA_Ref_RGBX_ComputeNewWLI_float(apart.actual(), in.actual(), 20, 80, kernel.actual(), buffers.actual(), 0.1, 0.3,
                                       0.5);
    auto* const moved = reinterpret_cast<double*>(buffers.actual().xResidual[4]);
    std::memcpy(moved, kernel.actual(), 49 * sizeof(double));
    KORVA_Ref_RGBX_ComputeNewWLI_float(inside.actual(), in.actual(), 20, 80, moved, buffers.actual(), 0.1, 0.3, 0.5);
    for (std::size_t row = 0; row < inside.rows(); ++row)
      EXPECT_EQ(std::memcmp(apart.actualRow(row), inside.actualRow(row), 14 * sizeof(float)), 0) << row;
  });
}

TEST(NewWliBuffers, AreFourArraysOfTheImageSize) {
  long const live = liveAllocationCount();
  NewWLIBuffers buffers;
  KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&buffers, 9, 7);
  for (float** const image : {buffers.xResidual, buffers.yFiltered, buffers.yResidual}) {
    EXPECT_EQ(image[6], image[0] + 6 * 9);
    std::fill_n(image[0], 9 * 7, 1.0f);
  }
  EXPECT_EQ(buffers.yccImage[2][6], buffers.yccImage[0][0] + (2 * 7 + 6) * 9);
  std::fill_n(buffers.yccImage[0][0], 3 * 9 * 7, 1.0f);
  KORVA_Ref_RGBX_FreeNewWLIBuffers_float(buffers);
  EXPECT_EQ(liveAllocationCount(), live);
}

TEST(NewWliBuffers, CanBeFreedAfterAnyFailedAllocation) {
  long const live = liveAllocationCount();
  NewWLIBuffers buffers;
  for (long ordinal = 1; allocationsAreCounted() && ordinal <= 9; ++ordinal) {
    failAllocation(ordinal);
    KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&buffers, 9, 7);
    failNoAllocation();
    EXPECT_TRUE(!buffers.xResidual || !buffers.yFiltered || !buffers.yResidual || !buffers.yccImage) << ordinal;
    KORVA_Ref_RGBX_FreeNewWLIBuffers_float(buffers);
    EXPECT_EQ(liveAllocationCount(), live);
  }
  for (auto const& [width, height] : {std::pair{9ul, 0ul}, {1ul << 63, 2ul}, {~0ul, ~0ul}, {1ul << 61, 4ul}}) {
    KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(&buffers, width, height);
    EXPECT_EQ(buffers.yccImage, nullptr);
    KORVA_Ref_RGBX_FreeNewWLIBuffers_float(buffers);
    EXPECT_EQ(liveAllocationCount(), live);
  }
}

}  // namespace
}  // namespace korva::test
