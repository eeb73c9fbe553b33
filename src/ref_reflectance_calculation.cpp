// RC: bias correction, correction coefficients from a white reference, and reflectance.
#include "korva_reference_api.h"

#include <cfloat>
#include <cstddef>
#include <type_traits>

#include "internal/lanes.h"
#include "internal/multiversion.h"
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

// What turns a sample into reflectance, as double, in which samples, flags and limits compare as they do in their own
// type.
struct ReflectanceRules {
  double reciprocal;
  double flagValue;
  double limitValue;
  double fullScale;
};

// Works on single doubles and on vectors of them. Stored is the sample type of the result.

template <typename Stored, typename Doubles>
KORVA_INLINE Doubles scaledProduct(Doubles sample, Doubles coefficient, ReflectanceRules const& rules) {
  Doubles const product = (sample * coefficient) * rules.reciprocal;
  if constexpr (std::is_same_v<Stored, unsigned short>) {
    auto const one = korva::broadcast<Doubles>(1.0);
    return (product > one ? one : product) * rules.fullScale;
  } else {
    return product;
  }
}

// The definition, for one sample.
template <typename Sample>
KORVA_INLINE Sample reflectance(Sample sample, double coefficient, Sample flagValue, Sample limitValue,
                                ReflectanceRules const& rules) {
  if (coefficient == kInvalidCoefficient) return sample <= Sample{0} ? Sample{0} : flagValue;
  if (sample == flagValue) return flagValue;
  if (sample >= limitValue) return limitValue;
  return korva::toSample<Sample>(scaledProduct<Sample>(static_cast<double>(sample), coefficient, rules));
}

// The same for a vector of samples as doubles.
template <typename Stored, typename Doubles>
KORVA_INLINE Doubles reflectances(Doubles sample, Doubles coefficient, ReflectanceRules const& rules) {
  Doubles const zero = {};
  auto const unreferenced = coefficient == kInvalidCoefficient;
  auto const flagged = sample == rules.flagValue;
  auto const saturated = sample >= rules.limitValue;
  // A sample that a rule replaces enters the products as 0: the marker times a count would overflow.
  Doubles const measured = (unreferenced | flagged | saturated) ? zero : sample;
  Doubles result = scaledProduct<Stored>(measured, coefficient, rules);
  // From the last rule to the first, so that the first one that applies decides.
  auto const flag = korva::broadcast<Doubles>(rules.flagValue);
  result = saturated ? korva::broadcast<Doubles>(rules.limitValue) : result;
  result = flagged ? flag : result;
  return unreferenced ? (sample <= zero ? zero : flag) : result;
}

// Of most blocks no rule replaces a sample, which two or three comparisons per vector tell; these need the products
// only.
template <int vectorBytes>
struct ComputeReflectance {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kBlock = 16;
  using Doubles = korva::Vector<double, kLanes>;

  template <typename Sample>
  KORVA_INLINE static bool anyRuleApplies(Sample const* in, double const* coefficients, Sample flagValue,
                                          Sample limitValue) {
    constexpr std::size_t kSamples = vectorBytes / sizeof(Sample);
    using Samples = korva::Vector<Sample, kSamples>;
    using Mask = korva::Vector<long long, kLanes>;
    Mask applies = {};
    for (std::size_t i = 0; i < kBlock; i += kSamples) {
      auto const samples = korva::loadLanes<Samples>(in + i);
      applies |= reinterpret_cast<Mask>((samples == flagValue) | (samples >= limitValue));
    }
    for (std::size_t i = 0; i < kBlock; i += kLanes) {
      applies |= korva::loadLanes<Doubles>(coefficients + i) == kInvalidCoefficient;
    }
    return korva::anyLane(applies);
  }

  template <bool byRules, typename Sample>
  KORVA_INLINE static void computeLanes(Sample* out, Sample const* in, double const* coefficients,
                                        ReflectanceRules const& rules) {
    auto const sample = korva::loadWidened<Doubles>(in);
    auto const coefficient = korva::loadLanes<Doubles>(coefficients);
    if constexpr (byRules) {
      korva::storeConverted(out, reflectances<Sample>(sample, coefficient, rules));
    } else {
      korva::storeConverted(out, scaledProduct<Sample>(sample, coefficient, rules));
    }
  }

  template <typename Sample>
  KORVA_INLINE static void run(Sample* out, Sample const* in, double const* coefficients, std::size_t count,
                               Sample flagValue, Sample limitValue, ReflectanceRules rules) {
    // Only without a conversion does a NaN flag keep its bits.
    bool const isFlagConverted = flagValue == flagValue;
    std::size_t i = 0;
    for (; isFlagConverted && i + kBlock <= count; i += kBlock) {
      if (anyRuleApplies(in + i, coefficients + i, flagValue, limitValue)) {
        for (std::size_t k = i; k < i + kBlock; k += kLanes)
          computeLanes<true>(out + k, in + k, coefficients + k, rules);
      } else {
        for (std::size_t k = i; k < i + kBlock; k += kLanes)
          computeLanes<false>(out + k, in + k, coefficients + k, rules);
      }
    }
    for (; i < count; ++i) out[i] = reflectance(in[i], coefficients[i], flagValue, limitValue, rules);
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
  korva::dispatch<ComputeReflectance>(out, in, coefficients, count, flagValue, limitValue,
                                      ReflectanceRules{1.0 / divisor, flagValue, limitValue, 1.0});
}

void KORVA_Ref_RC_ComputeReflectance_uint16(unsigned short* out, unsigned short const* in, double const* coefficients,
                                            unsigned long count, double divisor, unsigned short fullScale,
                                            unsigned short flagValue, unsigned short limitValue) {
  korva::dispatch<ComputeReflectance>(
      out, in, coefficients, count, flagValue, limitValue,
      ReflectanceRules{1.0 / divisor, static_cast<double>(flagValue), static_cast<double>(limitValue),
                       static_cast<double>(fullScale)});
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
