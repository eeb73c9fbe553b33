#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "support/routines.h"

namespace korva::test {
namespace {

// Images as runs: every width at small heights, long runs, and sizes of 0, for which arrays of at least one sample
// stand in.
template <class Body>
void forRuns(Body&& body) {
  std::vector<ImageSize> sizes = {{512, 272}};
  for (std::size_t const width : everyWidth(0))
    for (std::size_t height = 0; height <= 4; ++height) sizes.push_back({width, height});
  for (std::size_t const width : everyRunLength())
    if (width > 70) sizes.push_back({width, 1 + width % 3});
  forEach(sizes, 1, [&](Case& c, ImageSize size) {
    c.isMoved = Case::nowhere;
    Shape const atLeastOne = {std::max<std::size_t>(size.width, 1), std::max<std::size_t>(size.height, 1)};
    body(c, atLeastOne, size.width, size.height);
  });
}

template <class... Weight>
void checkArithmetic(Routine<void(float**, float**, float**, unsigned long, unsigned long, Weight...)> routine) {
  forRuns([&](Case& c, Shape shape, std::size_t width, std::size_t height) {
    constexpr double kWeights[] = {0.0, 0.25, 1.0, 2.0, -1.0, 0.1, 1e300, std::numeric_limits<double>::infinity()};
    [[maybe_unused]] double const weight = c.random.oneIn(2) ? c.random.real(0.0, 1.0) : c.random.oneOf(kWeights);
    auto a = c.input<float, 2>(shape), b = c.input<float, 2>(shape);
    auto out = c.inOut<float, 2>(shape), overA = c.inOut<float, 2>(shape), overB = c.inOut<float, 2>(shape);
    for (auto* const image : {&a, &b, &out, &overA, &overB}) image->forgetLaterRows();
    c.compare(routine, out, a, b, width, height, static_cast<Weight>(weight)...);
    c.compare(routine, overA, overA, b, width, height, static_cast<Weight>(weight)...);
    c.compare(routine, overB, a, overB, width, height, static_cast<Weight>(weight)...);
    c.compare(routine, overA, overA, overA, width, height, static_cast<Weight>(weight)...);
  });
}

// Fills samples so that sample * factor nearly cancels what the function gives for its index: the rounding of each
// product and sum shows in the float that remains.
template <class Rest>
auto cancelling(double factor, Rest rest) {
  return [=](std::span<float> all, Random&) {
    for (std::size_t k = 0; k < all.size(); ++k) all[k] = static_cast<float>(-rest(k) / factor);
  };
}

TEST(ImageArithmetic, Difference) { checkArithmetic<>(routine::Subtract_float); }
TEST(ImageArithmetic, Sum) { checkArithmetic<>(routine::Add_float); }
TEST(ImageArithmetic, Mix) { checkArithmetic<double>(routine::Mix_float); }

// Smoothing kernels, kernels of one weight, kernels whose sums nearly cancel, and any weights.
void kernels(std::span<double> kernel, Random& random) {
  switch (random.below(5)) {
    case 0:
      return std::fill(kernel.begin(), kernel.end(), 1.0 / 49.0);
    case 1:
      std::fill(kernel.begin(), kernel.end(), 0.0);
      kernel[random.below(49)] = 1.0;
      return;
    case 2:
      for (double& weight : kernel) weight = (random.oneIn(2) ? 1.0 : -1.0) * random.real(1e6, 2e6);
      return;
    case 3:
      return anything(kernel, random);
    default:
      return ordinary(kernel, random);
  }
}

TEST(Kernel7x7, ImagesOfAllSizes) {
  forEach(imageSizes(1, 1), 1, [](Case& c, ImageSize size) {
    c.isMoved = Case::nowhere;
    auto const in = c.input<float, 2>({size.width, size.height}, kSeparateRows);
    auto const kernel = c.input<double, 1>({49}, kOneBlock, kernels);
    auto out = c.output<float, 2>({size.width, size.height}, kSeparateRows);
    c.compare(routine::ApplyKernel7x7_float, out, in, size.width, size.height, kernel);
  });
}

TEST(Kernel7x7, WeightsAreReadBeforeTheOutputThatTheyLieInIsWritten) {
  struct Weights {
    double const *inOutput, *apart;
    double const* actual() const { return inOutput; }
    double const* expected() const { return apart; }
  };
  forEach(Sizes{70, 700}, 1, [](Case& c, std::size_t width) {
    auto const in = c.input<float, 2>({width, 12}, kSeparateRows, ordinary<float>);
    auto const kernel = c.input<double, 1>({49}, kOneBlock, ordinary<double>);
    auto out = c.inOut<float, 2>({width, 12}, kOneBlock, ordinary<float>);
    // The first double of the first row that is written.
    std::size_t const start = 3 * width + reinterpret_cast<std::uintptr_t>(out.actual()[3]) % sizeof(double) / 4;
    for (float* const samples : {out.actual()[0], out.expected()[0]})
      std::memcpy(samples + start, kernel.actual(), 49 * sizeof(double));
    Weights const weights = {reinterpret_cast<double const*>(out.actual()[0] + start), kernel.actual()};
    c.compare(routine::ApplyKernel7x7_float, out, in, width, 12ul, weights);
  });
}

struct LumaWeights {
  double kb, kr;
};
LumaWeights someLumaWeights(Random& random) {
  constexpr LumaWeights kWeights[] = {{0.114, 0.299}, {0.0722, 0.2126}, {0.25, 0.25}, {1.0, 0.25},
                                      {0.25, 1.0},    {0.5, 0.5},       {0.0, 0.0},   {1.0, 1.0}};
  if (random.oneIn(2)) return random.oneOf(kWeights);
  return {random.real(0.0, 0.5), random.real(0.0, 0.5)};
}

TEST(ColourConversion, ThereAndBackInPlace) {
  forRuns([](Case& c, Shape shape, std::size_t width, std::size_t height) {
    auto const [kb, kr] = someLumaWeights(c.random);
    // More planes than are used, each in a place of its own.
    auto in = c.input<float, 3>({shape.width, shape.height, 4}, shape.height);
    auto out = c.output<float, 3>({shape.width, shape.height, 4}, shape.height);
    auto inPlace = c.inOut<float, 3>({shape.width, shape.height, 3}, shape.height);
    for (auto* const cube : {&in, &out, &inPlace}) cube->forgetLaterRows();
    c.compare(routine::RGBToYCbCr_float, out, in, width, height, kb, kr);
    c.compare(routine::YCbCrToRGB_float, out, in, width, height, kb, kr);
    c.compare(routine::YCbCrToRGB_float, inPlace, inPlace, width, height, kb, kr);
  });
}

TEST(ColourConversion, EveryRoundingShows) {
  forCases(40, [](Case& c) {
    double const kb = c.random.real(0.05, 0.4), kr = c.random.real(0.05, 0.4);
    auto const first = c.input<float, 1>({997}, kOneBlock, ordinary<float>);
    auto const second = c.input<float, 1>({997}, kOneBlock, ordinary<float>);
    float const* const u = first.actualRow(0);
    float const* const v = second.actualRow(0);
    // Green cancels the shares of red and blue in the luma, or the luma cancels one of the differences.
    auto const shares = [=](std::size_t k) { return u[k] * kr + v[k] * kb; };
    auto const difference = [=](std::size_t k) { return (k % 2 == 0 ? 2.0 - 2.0 * kr : 2.0 - 2.0 * kb) * u[k]; };
    auto const planes = [&](auto fill, int plane) {
      return [=](std::span<float> all, Random& random) {
        std::copy_n(u, 997, all.begin());
        std::copy_n(u, 997, all.begin() + 997);
        std::copy_n(plane == 1 ? v : u, 997, all.begin() + 2 * 997);
        fill(all.subspan(static_cast<std::size_t>(plane) * 997, 997), random);
      };
    };
    auto out = c.output<float, 3>({997, 1, 3});
    auto const rgb = c.input<float, 3>({997, 1, 3}, 1, planes(cancelling(1.0 - kb - kr, shares), 1));
    c.compare(routine::RGBToYCbCr_float, out, rgb, 997, 1, kb, kr);
    auto const ycc = c.input<float, 3>({997, 1, 3}, 1, planes(cancelling(1.0, difference), 0));
    c.compare(routine::YCbCrToRGB_float, out, ycc, 997, 1, kb, kr);
    // Small differences that put green next to the middle between two floats.
    auto const besideMiddle = c.input<float, 3>({997, 1, 3}, 1, [=](std::span<float> all, Random&) {
      std::fill(all.begin(), all.end(), 0.0f);
      for (std::size_t k = 0; k < 997; ++k) {
        all[k] = u[k];
        double const half = (std::nextafter(u[k], 1e9f) - static_cast<double>(u[k])) * 0.5;
        all[997 + k] = static_cast<float>(half * (1.0 - kr - kb) / (kb * (2.0 - 2.0 * kb)));
      }
    });
    c.compare(routine::YCbCrToRGB_float, out, besideMiddle, 997, 1, kb, kr);
  });
}

}  // namespace
}  // namespace korva::test
