#include <cfloat>
#include <limits>

#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

constexpr double kFactor1 = 0.95, kFactor2 = 1.2, kDivisor = 1.1;
constexpr unsigned short kFullScale = 10000;

// Counts above this one are saturated; the highest count marks bad pixels. One sample in a hundred is either.
constexpr int kLimit = 4054, kFlag = 4095;

// Share of the samples that follow a rule of their own, for which the peers have none.
constexpr double kSpecialShare = 0.02;

template <class T>
void addBias(char const* routine, void (*plainForm)(T*, T const*, T const*, unsigned long)) {
  for (auto const& [slot, size] : frameAndSmallSizes()) {
    add(
        {routine, "", slot, size, {.bytes = 3 * sizeof(T)}}, plainForm,
        [size = size](auto* correct) {
          Planes<T> const out(size), in = noise<T>(size, 1, 1), bias = noise<T>(size, 1, 2);
          return Run{[=] { correct(out.data(), in.data(), bias.data(), size.samples()); }, out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::subtract", .prepare = [size = size] {
                  Planes<T> const out(size), in = noise<T>(size, 1, 1), bias = noise<T>(size, 1, 2);
                  return Run{[=] {
                               cv::Mat target = mat(out);
                               cv::subtract(mat(in), mat(bias), target);
                             },
                             out};
                }));
  }
}

template <class T>
void addCoefficients(char const* routine, void (*plainForm)(double*, T const*, unsigned long, double, double, T)) {
  for (auto const& [slot, size] : frameAndSmallSizes()) {
    add(
        {routine, "", slot, size, {.divisions = 1, .bytes = sizeof(T) + 8}}, plainForm,
        [size = size](auto* compute) {
          Planes<double> const out(size);
          Planes<T> const white = noise<T>(size);
          return Run{[=] { compute(out.data(), white.data(), size.samples(), kFactor1, kFactor2, T{kFlag}); }, out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::divide", .note = "to double, without flags", .tolerance = 1e-12, .outliers = kSpecialShare,
                .prepare = [size = size] {
                  Planes<double> const out(size);
                  Planes<T> const white = noise<T>(size);
                  return Run{[=] {
                               cv::Mat target = mat(out);
                               cv::divide(kFactor1 * kFactor2, mat(white), target, CV_64F);
                             },
                             out};
                }));
  }
}

Planes<double> coefficientsFor(Size size) {
  Planes<double> const coefficients(size), white = noise<double>(size, 1, 2);
  for (unsigned long k = 0; k < size.samples(); ++k)
    coefficients.data()[k] = white.data()[k] < 20 ? DBL_MAX : 1500 / (white.data()[k] + 4096);
  return coefficients;
}

template <class T, class Function, class... FullScale>
void addReflectance(char const* routine, Function* plainForm, double operations, double tolerance,
                    FullScale... fullScale) {
  for (auto const& [slot, size] : frameAndSmallSizes()) {
    Work const work{.doubleOperations = operations, .bytes = 2 * sizeof(T) + 8};
    add(
        {routine, "", slot, size, work}, plainForm,
        [=, size = size](auto* compute) {
          Planes<T> const out(size), in = noise<T>(size);
          Planes<double> const coefficients = coefficientsFor(size);
          return Run{[=] {
                       compute(out.data(), in.data(), coefficients.data(), size.samples(), kDivisor * 4096,
                               fullScale..., T{kFlag}, T{kLimit});
                     },
                     out};
        },
        KORVA_OPENCV_PEER(
                .name = "cv::multiply", .note = "in double, without flags and limits", .tolerance = tolerance,
                .outliers = kSpecialShare, .prepare = [=, size = size] {
                  Planes<T> const out(size), in = noise<T>(size);
                  Planes<double> const coefficients = coefficientsFor(size);
                  double const scale = (1.0 * ... * fullScale) / (kDivisor * 4096);
                  return Run{[=] {
                               cv::Mat target = mat(out);
                               cv::multiply(mat(in), mat(coefficients), target, scale, target.type());
                             },
                             out};
                }));
  }
}

}  // namespace

void registerReflectanceCalculation() {
  addBias("KORVA_Ref_RC_CorrectBias_float", plain::RC_CorrectBias_float);
  addBias("KORVA_Ref_RC_CorrectBias_uint16", plain::RC_CorrectBias_uint16);
  addCoefficients("KORVA_Ref_RC_ComputeCorrectionCoefficients_float", plain::RC_ComputeCorrectionCoefficients_float);
  addCoefficients("KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16", plain::RC_ComputeCorrectionCoefficients_uint16);
  addReflectance<float>("KORVA_Ref_RC_ComputeReflectance_float", plain::RC_ComputeReflectance_float, 2, 1e-6);
  addReflectance<unsigned short>("KORVA_Ref_RC_ComputeReflectance_uint16", plain::RC_ComputeReflectance_uint16, 4, 1,
                                 kFullScale);
}

}  // namespace korva::benchmarks
