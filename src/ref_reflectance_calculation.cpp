// RC: bias correction, correction coefficients from a white reference, and reflectance.
#include "korva_reference_api.h"

#include <cfloat>
#include <cstddef>

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

// What rule 4 stores, by sample type: float as it is, uint16 limited to 1.0 and scaled.
KORVA_INLINE float storedReflectance(double reflectance, float /*fullScale*/) {
  return static_cast<float>(reflectance);
}

KORVA_INLINE unsigned short storedReflectance(double reflectance, double fullScale) {
  double const limited = reflectance > 1.0 ? 1.0 : reflectance;
  return korva::toUint16(limited * fullScale);
}

struct ComputeReflectance {
  template <typename Sample, typename Scale>
  KORVA_INLINE static void run(Sample* out, Sample const* in, double const* coefficients, std::size_t count,
                               double divisor, Scale fullScale, Sample flagValue, Sample limitValue) {
    double const reciprocal = 1.0 / divisor;
    KORVA_INDEPENDENT
    for (std::size_t i = 0; i < count; ++i) {
      double const coefficient = coefficients[i];
      Sample const sample = in[i];
      bool const unreferenced = coefficient == kInvalidCoefficient;
      bool const flagged = sample == flagValue;
      bool const saturated = sample >= limitValue;
      // A sample that a rule below replaces enters the products as 0: the marker times a count would overflow.
      Sample const measured = (unreferenced | flagged | saturated) ? Sample{0} : sample;
      Sample const reflectance =
          storedReflectance((static_cast<double>(measured) * coefficient) * reciprocal, fullScale);
      // From the last rule to the first, so that the first one that applies decides.
      Sample result = saturated ? limitValue : reflectance;
      result = flagged ? flagValue : result;
      Sample const unreferencedResult = sample <= Sample{0} ? Sample{0} : flagValue;
      out[i] = unreferenced ? unreferencedResult : result;
    }
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
  korva::dispatch<ComputeReflectance>(out, in, coefficients, count, divisor, 1.0f, flagValue, limitValue);
}

void KORVA_Ref_RC_ComputeReflectance_uint16(unsigned short* out, unsigned short const* in, double const* coefficients,
                                            unsigned long count, double divisor, unsigned short fullScale,
                                            unsigned short flagValue, unsigned short limitValue) {
  korva::dispatch<ComputeReflectance>(out, in, coefficients, count, divisor, static_cast<double>(fullScale), flagValue,
                                      limitValue);
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
