// RC: bias correction, correction coefficients from a white reference, and reflectance.
#include "korva_reference_api.h"

#include <cfloat>
#include <cstddef>
#include <type_traits>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/prefetch.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

// Marks a pixel whose white reference gives no usable coefficient.
constexpr double kInvalidCoefficient = DBL_MAX;

struct CorrectBias {
  KORVA_INLINE static void run(float* out, float const* in, float const* bias, std::size_t count) {
    KORVA_INDEPENDENT
    for (std::size_t i = 0; i < count; ++i) out[i] = in[i] - bias[i];
  }

  KORVA_INLINE static void run(unsigned short* out, unsigned short const* in, unsigned short const* bias,
                               std::size_t count) {
    KORVA_INDEPENDENT
    for (std::size_t i = 0; i < count; ++i) {
      out[i] = static_cast<unsigned short>(in[i] < bias[i] ? 0 : in[i] - bias[i]);
    }
  }
};

struct ComputeCoefficients {
  template <typename Sample>
  KORVA_INLINE static void run(double* coefficients, Sample const* white, std::size_t count, double factor,
                               Sample flagValue) {
    KORVA_INDEPENDENT
    for (std::size_t i = 0; i < count; ++i) {
      Sample const sample = white[i];
      // Bitwise, not short-circuit, so that the loop has no branches. A NaN sample is neither and divides. An unusable
      // one divides by 1 instead, so that a host which traps on division by zero never sees one.
      bool const unusable = (sample <= Sample{0}) | (sample == flagValue);
      double const coefficient = factor / static_cast<double>(unusable ? Sample{1} : sample);
      coefficients[i] = unusable ? kInvalidCoefficient : coefficient;
    }
  }
};

// What turns a sample into reflectance.
template <typename Sample>
struct ReflectanceRules {
  double reciprocal;
  Sample flagValue;
  Sample limitValue;
  double fullScale;
};

// Works on single doubles and on vectors of them.
template <typename Sample, typename Doubles>
KORVA_INLINE Doubles scaledProduct(Doubles sample, Doubles coefficient, ReflectanceRules<Sample> const& rules) {
  Doubles const product = (sample * coefficient) * rules.reciprocal;
  if constexpr (std::is_same_v<Sample, unsigned short>) {
    // Not the other way round: a NaN stays.
    return korva::lesser(korva::broadcast<Doubles>(1.0), product) * rules.fullScale;
  } else {
    return product;
  }
}

// The definition, for one sample, without branches. What has no reference enters the products as 0: the marker times a
// count would overflow.
template <typename Sample>
KORVA_INLINE Sample reflectance(Sample sample, double coefficient, ReflectanceRules<Sample> const& rules) {
  bool const unreferenced = coefficient == kInvalidCoefficient;
  bool const flagged = sample == rules.flagValue;
  bool const saturated = sample >= rules.limitValue;
  double const measured = unreferenced ? 0.0 : static_cast<double>(sample);
  Sample result = korva::toSample<Sample>(scaledProduct(measured, coefficient, rules));
  // From the last rule to the first, so that the first one that applies decides.
  result = saturated ? rules.limitValue : result;
  result = flagged ? rules.flagValue : result;
  return unreferenced ? (sample <= Sample{0} ? Sample{0} : rules.flagValue) : result;
}

// The same for a vector of samples as doubles, in which samples, flags and limits compare as they do in their own type.
template <typename Sample, typename Doubles>
KORVA_INLINE Doubles reflectances(Doubles sample, Doubles coefficient, ReflectanceRules<Sample> const& rules) {
  Doubles const zero = {};
  auto const flag = korva::broadcast<Doubles>(static_cast<double>(rules.flagValue));
  auto const limit = korva::broadcast<Doubles>(static_cast<double>(rules.limitValue));
  auto const unreferenced = coefficient == kInvalidCoefficient;
  auto const flagged = sample == flag;
  auto const saturated = sample >= limit;
  Doubles const measured = unreferenced ? zero : sample;
  Doubles result = scaledProduct(measured, coefficient, rules);
  // From the last rule to the first, so that the first one that applies decides.
  result = saturated ? limit : result;
  result = flagged ? flag : result;
  return unreferenced ? (sample <= zero ? zero : flag) : result;
}

// Of most blocks no rule replaces a sample, which two or three comparisons per vector tell; these need the products
// only. AVX-512 has masks, with which both compilers make a loop over the definition that does without the question.
template <int vectorBytes>
struct ComputeReflectance {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr bool kIsPlain = vectorBytes == 64;
  static constexpr std::size_t kBlock = kIsPlain ? 64 : 16;
  // Samples that are fetched ahead, and from how many on: a frame of 2048 x 1088 takes 0.65 of the time (Zen 5,
  // AVX-512) or 0.9 (AVX2; Zen 3: 0.75); what fits the second cache would take 1.1.
  static constexpr std::size_t kAhead = 1024, kLarge = std::size_t{1} << 19;
  using Doubles = korva::Vector<double, kLanes>;

  template <typename Sample>
  KORVA_INLINE static bool anyRuleApplies(Sample const* in, double const* coefficients,
                                          ReflectanceRules<Sample> const& rules) {
    constexpr std::size_t kSamples = vectorBytes / sizeof(Sample);
    using Samples = korva::Vector<Sample, kSamples>;
    using Mask = korva::Vector<long long, kLanes>;
    Mask applies = {};
    for (std::size_t i = 0; i < kBlock; i += kSamples) {
      auto const samples = korva::loadLanes<Samples>(in + i);
      applies |= reinterpret_cast<Mask>((samples == rules.flagValue) | (samples >= rules.limitValue));
    }
    for (std::size_t i = 0; i < kBlock; i += kLanes) {
      applies |= korva::loadLanes<Doubles>(coefficients + i) == kInvalidCoefficient;
    }
    return korva::anyLane(applies);
  }

  template <bool byRules, typename Sample>
  KORVA_INLINE static void computeBlock(Sample* out, Sample const* in, double const* coefficients,
                                        ReflectanceRules<Sample> const& rules) {
    auto const compute = [&](std::size_t i) __attribute__((always_inline)) {
      auto const sample = korva::loadWidened<Doubles>(in + i);
      auto const coefficient = korva::loadLanes<Doubles>(coefficients + i);
      if constexpr (byRules) {
        return reflectances(sample, coefficient, rules);
      } else {
        return scaledProduct(sample, coefficient, rules);
      }
    };
    for (std::size_t i = 0; i < kBlock; i += 2 * kLanes)
      korva::storeConverted(out + i, compute(i), compute(i + kLanes));
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* in, double const* coefficients, std::size_t count,
                               ReflectanceRules<Sample> rules) {
    // Only without a conversion does a NaN flag keep its bits.
    bool const isFlagConverted = rules.flagValue == rules.flagValue;
    bool const isLarge = count >= kLarge;
    std::size_t i = 0;
    for (; (kIsPlain || isFlagConverted) && i + kBlock <= count; i += kBlock) {
      if (isLarge && i + kAhead + kBlock <= count) {
        korva::prefetchRow<false>(coefficients + i + kAhead, kBlock);
        korva::prefetchRow<false>(in + i + kAhead, kBlock);
        korva::prefetchRow<true>(out + i + kAhead, kBlock);
      }
      if constexpr (kIsPlain) {
        KORVA_INDEPENDENT
        for (std::size_t k = i; k < i + kBlock; ++k) out[k] = reflectance(in[k], coefficients[k], rules);
      } else if (anyRuleApplies(in + i, coefficients + i, rules)) {
        computeBlock<true>(out + i, in + i, coefficients + i, rules);
      } else {
        computeBlock<false>(out + i, in + i, coefficients + i, rules);
      }
    }
    for (; i < count; ++i) out[i] = reflectance(in[i], coefficients[i], rules);
  }
};

}  // namespace

// Bias correction ---------------------------------------------------------------------------------------------------

void KORVA_Ref_RC_CorrectBias_float(float* out, float const* in, float const* bias, unsigned long count) {
  korva::dispatch<CorrectBias>(out, in, bias, count);
}

void KORVA_Ref_RC_CorrectBias_uint16(unsigned short* out, unsigned short const* in, unsigned short const* bias,
                                     unsigned long count) {
  korva::dispatch<CorrectBias>(out, in, bias, count);
}

void KORVA_Ref_RC_CorrectBias(float* out, float const* in, float const* bias, unsigned long count) {
  KORVA_Ref_RC_CorrectBias_float(out, in, bias, count);
}

void KORVA_Ref_RC_CorrectBias(unsigned short* out, unsigned short const* in, unsigned short const* bias,
                              unsigned long count) {
  KORVA_Ref_RC_CorrectBias_uint16(out, in, bias, count);
}

// Correction coefficients -------------------------------------------------------------------------------------------

void KORVA_Ref_RC_ComputeCorrectionCoefficients_float(double* coefficients, float const* white, unsigned long count,
                                                      double factor1, double factor2, float flagValue) {
  korva::dispatch<ComputeCoefficients>(coefficients, white, count, factor1 * factor2, flagValue);
}

void KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16(double* coefficients, unsigned short const* white,
                                                       unsigned long count, double factor1, double factor2,
                                                       unsigned short flagValue) {
  korva::dispatch<ComputeCoefficients>(coefficients, white, count, factor1 * factor2, flagValue);
}

void KORVA_Ref_RC_ComputeCorrectionCoefficients(double* coefficients, float const* white, unsigned long count,
                                                double factor1, double factor2, float flagValue) {
  KORVA_Ref_RC_ComputeCorrectionCoefficients_float(coefficients, white, count, factor1, factor2, flagValue);
}

void KORVA_Ref_RC_ComputeCorrectionCoefficients(double* coefficients, unsigned short const* white, unsigned long count,
                                                double factor1, double factor2, unsigned short flagValue) {
  KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16(coefficients, white, count, factor1, factor2, flagValue);
}

// Reflectance -------------------------------------------------------------------------------------------------------

void KORVA_Ref_RC_ComputeReflectance_float(float* out, float const* in, double const* coefficients, unsigned long count,
                                           double divisor, float flagValue, float limitValue) {
  korva::dispatch<ComputeReflectance>(out, in, coefficients, count,
                                      ReflectanceRules<float>{1.0 / divisor, flagValue, limitValue, 1.0});
}

void KORVA_Ref_RC_ComputeReflectance_uint16(unsigned short* out, unsigned short const* in, double const* coefficients,
                                            unsigned long count, double divisor, unsigned short fullScale,
                                            unsigned short flagValue, unsigned short limitValue) {
  korva::dispatch<ComputeReflectance>(
      out, in, coefficients, count,
      ReflectanceRules<unsigned short>{1.0 / divisor, flagValue, limitValue, static_cast<double>(fullScale)});
}

void KORVA_Ref_RC_ComputeReflectance(float* out, float const* in, double const* coefficients, unsigned long count,
                                     double divisor, float flagValue, float limitValue) {
  KORVA_Ref_RC_ComputeReflectance_float(out, in, coefficients, count, divisor, flagValue, limitValue);
}

void KORVA_Ref_RC_ComputeReflectance(unsigned short* out, unsigned short const* in, double const* coefficients,
                                     unsigned long count, double divisor, unsigned short fullScale,
                                     unsigned short flagValue, unsigned short limitValue) {
  KORVA_Ref_RC_ComputeReflectance_uint16(out, in, coefficients, count, divisor, fullScale, flagValue, limitValue);
}
