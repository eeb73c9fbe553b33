#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <vector>

#include "support/routines.h"

namespace korva::test {
namespace {

using Short = unsigned short;

// Now and then the overload for C++ takes the function's place.
template <class Function>
Routine<Function> orOverload(Routine<Function> routine, Function* overload, Random& random) {
  if (random.oneIn(4)) routine.library = overload;
  return routine;
}

template <class T>
void checkBias(Routine<void(T*, T const*, T const*, unsigned long)> routine) {
  forEach(everyRunLength(), 3, [&](Case& c, std::size_t count) {
    c.isMoved = Case::nowhere;
    auto const any = orOverload(routine, KORVA_Ref_RC_CorrectBias, c.random);
    auto const in = c.input<T, 1>({count}), bias = c.input<T, 1>({count});
    auto out = c.output<T, 1>({count}), overIn = c.inOut<T, 1>({count}), overBias = c.inOut<T, 1>({count});
    c.compare(any, out, in, bias, count);
    c.compare(any, overIn, overIn, bias, count);
    c.compare(any, overBias, in, overBias, count);
    c.compare(any, overIn, overIn, overIn, count);
  });
}

TEST(Reflectance, BiasIsSubtractedInFloat) { checkBias(routine::RC_CorrectBias_float); }
TEST(Reflectance, BiasSubtractionOfCountsStopsAtZero) { checkBias(routine::RC_CorrectBias_uint16); }

double someFactor(Random& random) {
  constexpr double kFactors[] = {1.0, 0.5, 2.0, 0.1, 0.99, 1e-300, 1e300, -1.0, 0.0, DBL_MAX};
  return random.oneIn(2) ? random.oneOf(kFactors) : random.real(0.0, 4.0);
}

// A sample of the array, so that the marking rules apply to some pixels, or any other value.
template <class T>
T valueFrom(Samples<T, 1> const& samples, Random& random) {
  T value;
  anything(std::span<T>(&value, 1), random);
  std::size_t const count = samples.shape().width;
  return count == 0 || random.oneIn(3) ? value : samples.actualRow(0)[random.below(count)];
}

template <class T>
void checkCoefficients(Routine<void(double*, T const*, unsigned long, double, double, T)> routine) {
  forEach(everyRunLength(), 3, [&](Case& c, std::size_t count) {
    c.isMoved = Case::nowhere;
    auto const any = orOverload(routine, KORVA_Ref_RC_ComputeCorrectionCoefficients, c.random);
    auto const white = c.input<T, 1>({count});
    auto out = c.output<double, 1>({count});
    c.compare(any, out, white, count, someFactor(c.random), someFactor(c.random), valueFrom(white, c.random));
  });
}

TEST(Reflectance, CoefficientsFromFloatWhite) { checkCoefficients(routine::RC_ComputeCorrectionCoefficients_float); }
TEST(Reflectance, CoefficientsFromWhiteCounts) { checkCoefficients(routine::RC_ComputeCorrectionCoefficients_uint16); }

// Coefficients as a white reference gives them, marked ones among them, or any doubles.
void coefficients(std::span<double> samples, Random& random) {
  if (random.oneIn(3))
    anything(samples, random);
  else
    for (double& sample : samples) sample = random.real(0.0, 1.0) / 2048.0;
  for (double& sample : samples)
    if (random.oneIn(6)) sample = random.oneIn(4) ? std::nextafter(DBL_MAX, 0.0) : DBL_MAX;
}

double someDivisor(Random& random) {
  constexpr double kDivisors[] = {1.0, 2.0, 3.0, 0.1, 7.0, 1e-3, 0.0};
  return random.oneIn(2) ? random.oneOf(kDivisors) : random.real(0.1, 10.0);
}

// Only the form for counts takes the value that stands for reflectance 1.
template <class T, class... FullScale, class Function>
void checkReflectance(Routine<Function> routine) {
  forEach(everyRunLength(), 6, [&](Case& c, std::size_t count) {
    c.isMoved = Case::nowhere;
    auto const any = orOverload(routine, KORVA_Ref_RC_ComputeReflectance, c.random);
    auto const in = c.input<T, 1>({count});
    auto const coefficient = c.input<double, 1>({count}, kOneBlock, coefficients);
    auto out = c.output<T, 1>({count}), overIn = c.inOut<T, 1>({count});
    double const divisor = someDivisor(c.random);
    T const flag = valueFrom(in, c.random);
    T const limit = c.random.oneIn(2) ? static_cast<T>(65535) : valueFrom(in, c.random);
    constexpr Short kFullScales[] = {10000, 65535, 1, 10, 0, 4095};
    [[maybe_unused]] Short const fullScale = c.random.oneOf(kFullScales);
    c.compare(any, out, in, coefficient, count, divisor, static_cast<FullScale>(fullScale)..., flag, limit);
    c.compare(any, overIn, overIn, coefficient, count, divisor, static_cast<FullScale>(fullScale)..., flag, limit);
  });
}

TEST(Reflectance, FloatFollowsTheRulesInOrder) { checkReflectance<float>(routine::RC_ComputeReflectance_float); }
TEST(Reflectance, CountsFollowTheRulesInOrder) {
  checkReflectance<Short, Short>(routine::RC_ComputeReflectance_uint16);
}

// r = 1 * coefficient * 1, so each coefficient is a reflectance at an edge of the conversion. Above 1 it is limited,
// below 0 it wraps as the conversion says.
TEST(Reflectance, CountsMeetTheEdgesOfTheConversion) {
  forEach(Sizes{1, 2, 5, 10, 10000, 65535}, 1, [](Case& c, std::size_t fullScale) {
    std::vector<double> edges;
    for (double const edge : conversionEdges())
      edges.insert(edges.end(), {edge, edge / static_cast<double>(fullScale)});
    auto const fill = [&](std::span<double> all, Random&) { std::copy(edges.begin(), edges.end(), all.begin()); };
    auto const ones = [](std::span<Short> all, Random&) { std::fill(all.begin(), all.end(), Short{1}); };
    auto const coefficient = c.input<double, 1>({edges.size()}, kOneBlock, fill);
    auto const in = c.input<Short, 1>({edges.size()}, kOneBlock, ones);
    auto out = c.output<Short, 1>({edges.size()});
    c.compare(routine::RC_ComputeReflectance_uint16, out, in, coefficient, edges.size(), 1.0,
              static_cast<Short>(fullScale), Short{65535}, Short{65535});
  });
}

TEST(Reflectance, AFlagKeepsItsBits) {
  // A signalling NaN, which a conversion would make quiet.
  auto const flag = std::bit_cast<float>(0xff812345u);
  std::vector<float> const in(50, 2.0f);
  std::vector<double> const coefficient(50, DBL_MAX);
  std::vector<float> out(50);
  KORVA_Ref_RC_ComputeReflectance_float(out.data(), in.data(), coefficient.data(), 50, 1.0, flag, 9.0f);
  for (float const result : out) ASSERT_EQ(std::bit_cast<std::uint32_t>(result), 0xff812345u);
}

}  // namespace
}  // namespace korva::test
