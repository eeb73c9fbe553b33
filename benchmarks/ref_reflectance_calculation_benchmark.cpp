#include <cfloat>

#include "opencv_peer.h"

namespace korva::benchmarks {
namespace {

constexpr double kFactor1 = 0.95, kFactor2 = 1.2, kDivisor = 4500;
constexpr unsigned short kFullScale = 10000;

// Counts above this one are saturated; the highest count marks bad pixels. One sample in a hundred is either.
constexpr int kLimit = 4054, kFlag = 4095;

// Share of the samples that follow a rule of their own, for which the peers have none.
constexpr double kSpecialShare = 0.02;

template <class T>
void addBias(char const* routine, void (*plainForm)(T*, T const*, T const*, unsigned long)) {
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size;
    add(
        {routine, "", at, {.bytes = 3 * sizeof(T)}}, plainForm,
        [=](auto* correct) {
          return planesRun(Planes<T>(size), noise<T>(size, 2), [=](auto const& out, auto const& in) {
            correct(out.data(), in.data(0), in.data(1), size.samples());
          });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::subtract", .prepare = [=] {
                  return planesRun(Planes<T>(size), noise<T>(size, 2), [](auto const& out, auto const& in) {
                    cv::subtract(mat(in, 0), mat(in, 1), mat(out));
                  });
                }));
  }
}

template <class T>
void addCoefficients(char const* routine, void (*plainForm)(double*, T const*, unsigned long, double, double, T)) {
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size;
    add(
        {routine, "", at, {.divisions = 1, .bytes = sizeof(T) + 8}}, plainForm,
        [=](auto* compute) {
          return planesRun(Planes<double>(size), noise<T>(size), [=](auto const& out, auto const& white) {
            compute(out.data(), white.data(), size.samples(), kFactor1, kFactor2, T{kFlag});
          });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::divide", .note = "to double, without flags", .tolerance = 1e-12, .outliers = kSpecialShare,
                .prepare = [=] {
                  return planesRun(Planes<double>(size), noise<T>(size), [](auto const& out, auto const& in) {
                    cv::divide(kFactor1 * kFactor2, mat(in), mat(out), CV_64F);
                  });
                }));
  }
}

Planes<double> coefficientsFor(Size size) {
  Planes<double> const coefficients = noise<double>(size, 1, 2);
  for (unsigned long k = 0; k < size.samples(); ++k) {
    double& sample = coefficients.data()[k];
    sample = sample < 20 ? DBL_MAX : 1500 / (sample + 4096);
  }
  return coefficients;
}

template <class T, class Function, class... FullScale>
void addReflectance(char const* routine, Function* plainForm, double operations, double tolerance,
                    FullScale... fullScale) {
  for (SlottedSize const& at : frameSizes()) {
    Size const size = at.size;
    Work const work{.doubleOperations = operations, .bytes = 2 * sizeof(T) + 8};
    add(
        {routine, "", at, work}, plainForm,
        [=](auto* compute) {
          return planesRun(Planes<T>(size), noise<T>(size),
                           [=, coefficients = coefficientsFor(size)](auto const& out, auto const& in) {
                             compute(out.data(), in.data(), coefficients.data(), size.samples(), kDivisor, fullScale...,
                                     T{kFlag}, T{kLimit});
                           });
        },
        KORVA_OPENCV_PEER(
                .name = "cv::multiply", .note = "in double, without flags and limits", .tolerance = tolerance,
                .outliers = kSpecialShare, .prepare = [=] {
                  double const scale = (1.0 * ... * fullScale) / kDivisor;
                  return planesRun(Planes<T>(size), noise<T>(size),
                                   [=, coefficients = coefficientsFor(size)](auto const& out, auto const& in) {
                                     cv::multiply(mat(in), mat(coefficients), mat(out), scale, mat(out).type());
                                   });
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
