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

template <class T>
void checkBias(Routine<void(T*, T const*, T const*, unsigned long)> routine) {
  Cases cases;
  for (std::size_t const count : everyRunLength()) {
    for (int repetition = 0; repetition < 3; ++repetition) {
      cases.run({{"count", count}}, [&](Case& c) {
        c.isMoved = Case::nowhere;
        auto const in = c.input<T, 1>({count}), bias = c.input<T, 1>({count});
        auto out = c.output<T, 1>({count}), overIn = c.inOut<T, 1>({count}), overBias = c.inOut<T, 1>({count});
        c.compare(routine, out, in, bias, count);
        c.compare(routine, overIn, overIn, bias, count);
        c.compare(routine, overBias, in, overBias, count);
        c.compare(routine, overIn, overIn, overIn, count);
      });
    }
  }
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
  Cases cases;
  for (std::size_t const count : everyRunLength()) {
    for (int repetition = 0; repetition < 3; ++repetition) {
      cases.run({{"count", count}}, [&](Case& c) {
        c.isMoved = Case::nowhere;
        auto const white = c.input<T, 1>({count});
        auto out = c.output<double, 1>({count});
        c.compare(routine, out, white, count, someFactor(c.random), someFactor(c.random), valueFrom(white, c.random));
      });
    }
  }
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
  Cases cases;
  for (std::size_t const count : everyRunLength()) {
    for (int repetition = 0; repetition < 6; ++repetition) {
      cases.run({{"count", count}}, [&](Case& c) {
        c.isMoved = Case::nowhere;
        auto const in = c.input<T, 1>({count});
        auto const coefficient = c.input<double, 1>({count}, kOneBlock, coefficients);
        auto out = c.output<T, 1>({count}), overIn = c.inOut<T, 1>({count});
        double const divisor = someDivisor(c.random);
        T const flag = valueFrom(in, c.random);
        T const limit = c.random.oneIn(2) ? static_cast<T>(65535) : valueFrom(in, c.random);
        constexpr Short kFullScales[] = {10000, 65535, 1, 10, 0, 4095};
        [[maybe_unused]] Short const fullScale = c.random.oneOf(kFullScales);
        c.compare(routine, out, in, coefficient, count, divisor, static_cast<FullScale>(fullScale)..., flag, limit);
        c.compare(routine, overIn, overIn, coefficient, count, divisor, static_cast<FullScale>(fullScale)..., flag,
                  limit);
      });
    }
  }
}

TEST(Reflectance, FloatFollowsTheRulesInOrder) { checkReflectance<float>(routine::RC_ComputeReflectance_float); }
TEST(Reflectance, CountsFollowTheRulesInOrder) {
  checkReflectance<Short, Short>(routine::RC_ComputeReflectance_uint16);
}

// Kernels may look for samples that a rule replaces many at a time. One alone, wherever it stands, must be found.
template <class T, class... FullScale, class Function>
void checkLoneSamples(Routine<Function> routine) {
  constexpr std::size_t kCount = 67;
  constexpr T kFlag{5000}, kLimit{6000};
  Cases cases;
  for (std::size_t position = 0; position < kCount; ++position) {
    for (T const special : {kFlag, kLimit, T{65000}, T{0}}) {
      cases.run({{"position", position}, {"special", static_cast<unsigned long>(special)}}, [&](Case& c) {
        auto const in = c.input<T, 1>({kCount}, kOneBlock, [&](std::span<T> all, Random& random) {
          for (T& sample : all) sample = static_cast<T>(random.between(1, 4000));
          if (special != T{0}) all[position] = special;
        });
        auto const coefficient = c.input<double, 1>({kCount}, kOneBlock, [&](std::span<double> all, Random& random) {
          for (double& value : all) value = random.real(0.0, 1.0) / 2048.0;
          if (special == T{0}) all[position] = DBL_MAX;
        });
        auto out = c.output<T, 1>({kCount});
        c.compare(routine, out, in, coefficient, kCount, 1.0, FullScale{10000}..., kFlag, kLimit);
      });
    }
  }
}

TEST(Reflectance, LoneFloatThatARuleReplacesIsFound) { checkLoneSamples<float>(routine::RC_ComputeReflectance_float); }
TEST(Reflectance, LoneCountThatARuleReplacesIsFound) {
  checkLoneSamples<Short, Short>(routine::RC_ComputeReflectance_uint16);
}

// r = 1 * coefficient * 1, so each coefficient is a reflectance at an edge of the conversion. Above 1 it is limited,
// below 0 it wraps as the conversion says.
TEST(Reflectance, CountsMeetTheEdgesOfTheConversion) {
  Cases cases;
  for (unsigned const fullScale : {1u, 2u, 5u, 10u, 10000u, 65535u}) {
    cases.run({{"fullScale", fullScale}}, [&](Case& c) {
      std::vector<double> edges;
      for (double const edge : conversionEdges()) edges.insert(edges.end(), {edge, edge / fullScale});
      auto const fill = [&](std::span<double> all, Random&) { std::copy(edges.begin(), edges.end(), all.begin()); };
      auto const ones = [](std::span<Short> all, Random&) { std::fill(all.begin(), all.end(), Short{1}); };
      auto const coefficient = c.input<double, 1>({edges.size()}, kOneBlock, fill);
      auto const in = c.input<Short, 1>({edges.size()}, kOneBlock, ones);
      auto out = c.output<Short, 1>({edges.size()});
      c.compare(routine::RC_ComputeReflectance_uint16, out, in, coefficient, edges.size(), 1.0,
                static_cast<Short>(fullScale), Short{65535}, Short{65535});
    });
  }
}

// Coefficients that put each result next to the middle between two stored values: any other order of the products, or
// a division by the divisor, falls to the other side.
TEST(Reflectance, EveryRoundingShows) {
  constexpr std::size_t kCount = 997;
  Cases cases;
  for (int repetition = 0; repetition < 40; ++repetition) {
    cases.run({}, [=](Case& c) {
      double const divisor = c.random.real(0.5, 5.0), scale = 10000.0;
      auto const in = c.input<Short, 1>({kCount}, kOneBlock, [](std::span<Short> all, Random& random) {
        for (Short& sample : all) sample = static_cast<Short>(random.between(1, 60000));
      });
      auto const floats = c.input<float, 1>({kCount}, kOneBlock, [&](std::span<float> all, Random&) {
        std::copy_n(in.actualRow(0), kCount, all.begin());
      });
      auto const towards = [&](auto middle) {
        return [=, &in](std::span<double> all, Random& random) {
          for (std::size_t k = 0; k < kCount; ++k) all[k] = middle(random) * divisor / in.actualRow(0)[k];
        };
      };
      auto const counts = c.input<double, 1>({kCount}, kOneBlock, towards([=](Random& random) {
                                               return (static_cast<double>(random.below(10000)) + 0.5) / scale;
                                             }));
      auto const reals =
          c.input<double, 1>({kCount}, kOneBlock, towards([](Random& random) {
                               return static_cast<double>(static_cast<float>(random.unit()) + 1.0f) + 0x1p-24;
                             }));
      auto out = c.output<Short, 1>({kCount});
      auto realOut = c.output<float, 1>({kCount});
      c.compare(routine::RC_ComputeReflectance_uint16, out, in, counts, kCount, divisor, 10000, 65535, 65535);
      c.compare(routine::RC_ComputeReflectance_float, realOut, floats, reals, kCount, divisor, 65535.0f, 65535.0f);
    });
  }
}

TEST(Reflectance, WorkedValues) {
  double coefficient[2];
  Short const white[2] = {4096, 0};
  KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16(coefficient, white, 2, 0.5, 2.0, 65535);
  EXPECT_EQ(coefficient[0], 0.000244140625);
  EXPECT_EQ(coefficient[1], DBL_MAX);

  Short const in[5] = {1024, 5000, 0, 65535, 7};
  double const same[5] = {coefficient[0], coefficient[0], coefficient[0], coefficient[0], DBL_MAX};
  Short out[5];
  KORVA_Ref_RC_ComputeReflectance_uint16(out, in, same, 5, 1.0, 10000, 65535, 65535);
  EXPECT_EQ((std::vector<Short>(out, out + 5)), (std::vector<Short>{2500, 10000, 0, 65535, 65535}));
  KORVA_Ref_RC_ComputeReflectance_uint16(out, in, same, 5, 2.0, 10000, 65534, 4000);
  EXPECT_EQ((std::vector<Short>(out, out + 5)), (std::vector<Short>{1250, 4000, 0, 4000, 65534}));

  float const values[3] = {1024.0f, 8192.0f, 70000.0f};
  float results[3];
  KORVA_Ref_RC_ComputeReflectance_float(results, values, same, 3, 1.0, 65535.0f, 65535.0f);
  EXPECT_EQ((std::vector<float>(results, results + 3)), (std::vector<float>{0.25f, 2.0f, 65535.0f}));
}

TEST(Reflectance, OverloadsForwardToTheirSampleType) {
  float floats[2] = {100.0f, 50.0f};
  float const floatBias[2] = {120.0f, 20.0f};
  KORVA_Ref_RC_CorrectBias(floats, floats, floatBias, 2);
  EXPECT_EQ(floats[0], -20.0f);
  Short shorts[2] = {100, 50};
  Short const shortBias[2] = {120, 20};
  KORVA_Ref_RC_CorrectBias(shorts, shorts, shortBias, 2);
  EXPECT_EQ(shorts[0], 0);
  EXPECT_EQ(shorts[1], 30);

  double coefficient[2];
  float const floatWhite[2] = {-3.0f, 8.0f};
  KORVA_Ref_RC_ComputeCorrectionCoefficients(coefficient, floatWhite, 2, 3.0, 2.0, 9.0f);
  EXPECT_EQ(coefficient[0], DBL_MAX);
  EXPECT_EQ(coefficient[1], 0.75);
  Short const shortWhite[2] = {9, 8};
  KORVA_Ref_RC_ComputeCorrectionCoefficients(coefficient, shortWhite, 2, 3.0, 2.0, Short{9});
  EXPECT_EQ(coefficient[0], DBL_MAX);
  EXPECT_EQ(coefficient[1], 0.75);

  float const samples[2] = {5.0f, 0.5f};
  KORVA_Ref_RC_ComputeReflectance(floats, samples, coefficient, 2, 0.5, 7.0f, 6.0f);
  EXPECT_EQ(floats[0], 7.0f);
  EXPECT_EQ(floats[1], 0.75f);
  Short const counts[2] = {5, 1};
  KORVA_Ref_RC_ComputeReflectance(shorts, counts, coefficient, 2, 3.0, Short{10}, Short{7}, Short{6});
  EXPECT_EQ(shorts[0], 7);
  EXPECT_EQ(shorts[1], 3);
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

TEST(Reflectance, WholeSensorFrame) {
  Cases cases;
  cases.run({}, [](Case& c) {
    constexpr unsigned long kCount = 2048ul * 1088ul;
    auto const in = c.input<Short, 1>({kCount});
    auto const coefficient = c.input<double, 1>({kCount}, kOneBlock, coefficients);
    auto out = c.output<Short, 1>({kCount});
    c.compare(routine::RC_ComputeReflectance_uint16, out, in, coefficient, kCount, 2.0, Short{10000}, Short{0},
              Short{65000});
  });
}

}  // namespace
}  // namespace korva::test
