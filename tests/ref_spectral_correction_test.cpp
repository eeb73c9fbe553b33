#include <gtest/gtest.h>

#include "support/routines.h"

namespace korva::test {
namespace {

using Short = unsigned short;

template <class T>
struct Routines;

template <>
struct Routines<float> {
  inline static auto const kSpectrum = routine::SC_ApplySpectralCorrection_float;
  inline static auto const kRun = routine::SC_ApplySpectralCorrection_BIP_float;
  inline static auto const kCube = routine::SC_ApplySpectralCorrection_BSQ_float;
};

template <>
struct Routines<Short> {
  inline static auto const kSpectrum = routine::SC_ApplySpectralCorrection_uint16;
  inline static auto const kRun = routine::SC_ApplySpectralCorrection_BIP_uint16;
  inline static auto const kCube = routine::SC_ApplySpectralCorrection_BSQ_uint16;
};

template <class T>
class SpectralCorrection : public testing::Test {};
using SampleTypes = testing::Types<float, Short>;
TYPED_TEST_SUITE(SpectralCorrection, SampleTypes);

// Weights of a correction matrix: ordinary ones, or any.
void weights(std::span<double> samples, Random& random) {
  if (random.oneIn(3)) return anything(samples, random);
  double const scale = random.oneIn(3) ? 400.0 : 1.0;
  for (double& sample : samples) sample = random.real(-0.5, 1.0) * scale;
}

template <class T>
void checkCube(Case& c, unsigned outBands, unsigned inBands, unsigned samples) {
  c.isMoved = Case::nowhere;
  // Now and then planes of several rows, of which the later row pointers are not there.
  std::size_t const height = samples % 2 == 0 && samples > 0 && c.random.oneIn(2) ? 2 : 1;
  std::size_t const width = samples / height;
  auto in = c.input<T, 3>({width, height, inBands}, height);
  auto const matrix = c.input<double, 2>({inBands, outBands}, kSeparateRows, weights);
  auto out = c.output<T, 3>({width, height, outBands + 1}, height);
  auto scratch = c.inOut<double, 1>({samples});
  in.forgetLaterRows();
  out.forgetLaterRows();
  // Now and then through the overload for C++.
  auto cube = Routines<T>::kCube;
  if (c.random.oneIn(4)) cube.library = &KORVA_Ref_SC_ApplySpectralCorrection_BSQ;
  c.compare(cube, out, scratch, in, matrix, outBands, inBands, samples);
}

template <class T>
void checkRun(Case& c, unsigned outBands, unsigned inBands, unsigned pixels) {
  c.isMoved = Case::nowhere;
  auto const in = c.input<T, 1>({std::size_t{pixels} * inBands});
  auto const matrix = c.input<double, 2>({inBands, outBands}, kSeparateRows, weights);
  auto out = c.output<T, 1>({std::size_t{pixels} * outBands});
  c.compare(Routines<T>::kRun, out, in, matrix, outBands, inBands, pixels);
  if (pixels == 0) return;
  auto const pixel = c.input<T, 1>({inBands});
  auto spectrum = c.output<T, 1>({outBands});
  c.compare(Routines<T>::kSpectrum, spectrum, pixel, matrix, outBands, inBands);
}

// Both layouts over counts of bands that meet the edges of register tiles, and runs of every length.
template <class Body>
void forBandsAndRuns(Body&& body) {
  Cases cases;
  auto const run = [&](std::size_t outBands, std::size_t inBands, std::size_t samples) {
    cases.run([&](Case& c) {
      body(c, static_cast<unsigned>(outBands), static_cast<unsigned>(inBands), static_cast<unsigned>(samples));
    });
  };
  for (std::size_t outBands = 0; outBands <= 9; ++outBands)
    for (std::size_t inBands = 0; inBands <= 9; ++inBands)
      for (std::size_t const samples : Sizes{0, 1, 2, 3, 7, 8, 9, 17, 40}) run(outBands, inBands, samples);
  for (std::size_t const samples : everyRunLength()) {
    for (auto const& [outBands, inBands] : {std::pair{1, 2}, {3, 16}, {5, 3}, {16, 16}})
      if (samples <= 600 || outBands <= 3)
        run(static_cast<std::size_t>(outBands), static_cast<std::size_t>(inBands), samples);
  }
  for (std::size_t const inBands :
       Sizes{15, 16, 17, 25, 31, 32, 33, 63, 64, 65, 100, 127, 128, 129, 150, 256, 257, 300})
    for (std::size_t const outBands : Sizes{1, 4, 6}) run(outBands, inBands, 61 + inBands % 7);
  // More bands than kernels that work on panels of them may hold.
  for (std::size_t const inBands : Sizes{511, 512, 513, 767, 768, 769, 1025, 2050}) run(9, inBands, 21);
  run(25, 25, 130);
  run(100, 150, 67);
  run(150, 150, 19);
}

TYPED_TEST(SpectralCorrection, CubesOfAllSizes) { forBandsAndRuns(checkCube<TypeParam>); }
TYPED_TEST(SpectralCorrection, PixelRunsOfAllSizes) { forBandsAndRuns(checkRun<TypeParam>); }

// All forms of the correction of equal samples by such weights.
template <class T, class Weights>
void checkForms(Case& c, unsigned outBands, unsigned inBands, unsigned samples, T value, Weights fillWeights) {
  c.isMoved = Case::nowhere;
  auto const equal = [=](std::span<T> all, Random&) { std::fill(all.begin(), all.end(), value); };
  auto const matrix = c.input<double, 2>({inBands, outBands}, kSeparateRows, fillWeights);
  auto const in = c.input<T, 3>({samples, 1, inBands}, 1, equal);
  auto out = c.output<T, 3>({samples, 1, outBands}, 1);
  auto scratch = c.output<double, 1>({samples});
  c.compare(Routines<T>::kCube, out, scratch, in, matrix, outBands, inBands, samples);
  auto const pixels = c.input<T, 1>({std::size_t{samples} * inBands}, kOneBlock, equal);
  auto spectra = c.output<T, 1>({std::size_t{samples} * outBands});
  c.compare(Routines<T>::kRun, spectra, pixels, matrix, outBands, inBands, samples);
  c.compare(Routines<T>::kSpectrum, spectra, pixels, matrix, outBands, inBands);
}

// One input band of ones: each weight is a sum, at every position of the vectors that convert it.
TYPED_TEST(SpectralCorrection, SumsAtTheEdgesOfTheConversion) {
  auto const edges = conversionEdges();
  auto const fill = [&](std::span<double> all, Random&) { std::copy(edges.begin(), edges.end(), all.begin()); };
  forEach(everyWidth(1), 1, [&](Case& c, std::size_t samples) {
    checkForms(c, static_cast<unsigned>(edges.size()), 1u, static_cast<unsigned>(samples), TypeParam{1}, fill);
  });
}

// Weights that cancel except for their rounding: any other order, or a fused product, gives other samples.
TYPED_TEST(SpectralCorrection, OrderAndRoundingOfTheSumShow) {
  Cases cases;
  auto const run = [&](unsigned outBands, unsigned inBands) {
    cases.run([&](Case& c) {
      checkForms(c, outBands, inBands, 37u, TypeParam{3}, [=](std::span<double> all, Random& random) {
        for (std::size_t row = 0; row < all.size(); row += inBands) fillCancelling(all.subspan(row, inBands), random);
      });
    });
  };
  // Fewer output bands than a vector has lanes, and more; input bands for panels, and too many for them.
  for (unsigned const outBands : {3u, 6u}) {
    for (unsigned inBands = 2; inBands <= 40; ++inBands) run(outBands, inBands);
    run(outBands, 800);
  }
}

}  // namespace
}  // namespace korva::test
