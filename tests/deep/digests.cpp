// Prints one digest of each processing routine's results over fixed cases. With --plain the results are those of the
// plain definitions, otherwise those of the library that the program finds at run time.
//
//   digests [--plain] [cases]
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "support/inputs.h"
#include "support/routines.h"

namespace korva::test {
namespace {

using Short = unsigned short;
using Count = unsigned int;

bool plainIsCalled = false;

// The sign and payload of a NaN that arithmetic makes belong to processor and compiler, so all of those count as one.
enum class Nans { KeepTheirBits, AreOne };

// 64-bit FNV-1a over the bytes of samples.
class Digest {
 public:
  template <class T>
  void add(T const& sample, Nans nans) {
    unsigned char bytes[sizeof sample];
    std::memcpy(bytes, &sample, sizeof sample);
    if constexpr (std::is_floating_point_v<T>)
      if (nans == Nans::AreOne && sample != sample) std::memset(bytes, 0xff, sizeof bytes);
    for (unsigned char const byte : bytes) value_ = (value_ ^ byte) * 0x100000001b3u;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325u;
};

struct RoutineDigest {
  std::string_view routine;
  Digest digest;
};
std::vector<RoutineDigest> digests;

Digest& digestOf(std::string_view routine) {
  for (RoutineDigest& known : digests)
    if (known.routine == routine) return known.digest;
  digests.push_back({routine, {}});
  return digests.back().digest;
}

template <class T>
constexpr int kPointerLevels = 0;
template <class T>
constexpr int kPointerLevels<T*> = 1 + kPointerLevels<std::remove_cv_t<T>>;

// Samples that become a run, an image or a cube, whichever a routine takes.
template <class T>
class Array {
 public:
  Array(Random& random, std::size_t width, std::size_t height = 1, std::size_t bands = 1,
        void (*fill)(std::span<T>, Random&) = anything<T>)
      : width_(width), samples_(width * height * bands), rows_(height * bands), bands_(bands) {
    fill(samples_, random);
    for (std::size_t row = 0; row < rows_.size(); ++row) rows_[row] = samples_.data() + row * width;
    for (std::size_t band = 0; band < bands; ++band) bands_[band] = rows_.data() + band * height;
  }
  Array(Array const&) = delete;

  template <class Pointer>
  operator Pointer() {
    if constexpr (kPointerLevels<Pointer> == 1) return samples_.data();
    if constexpr (kPointerLevels<Pointer> == 2) return rows_.data();
    if constexpr (kPointerLevels<Pointer> == 3) return bands_.data();
  }

  void addTo(Digest& digest, Nans nans, std::size_t margin) const {
    for (std::size_t row = margin; row + margin < rows_.size(); ++row)
      for (std::size_t column = margin; column + margin < width_; ++column) digest.add(rows_[row][column], nans);
  }

 private:
  std::size_t width_;
  std::vector<T> samples_;
  std::vector<T*> rows_;
  std::vector<T**> bands_;
};

struct Buffers {
  Array<float> xResidual, yFiltered, yResidual, yccImage;

  Buffers(Random& random, std::size_t width, std::size_t height)
      : xResidual(random, width, height),
        yFiltered(random, width, height),
        yResidual(random, width, height),
        yccImage(random, width, height, 3) {}
  operator NewWLIBuffers() { return {xResidual, yFiltered, yResidual, yccImage}; }
  void addTo(Digest& digest, Nans nans, std::size_t margin) const {
    for (auto const* const array : {&xResidual, &yFiltered, &yResidual, &yccImage}) array->addTo(digest, nans, margin);
  }
};

// Calls one of the two forms and adds what it returns and all its arrays, inputs among them, to the digest.
template <class Result, class... Parameters, class... Arguments>
void take(Routine<Result(Parameters...)> const& routine, Nans nans, std::size_t margin, Arguments&&... arguments) {
  auto* const function = plainIsCalled ? routine.plain : routine.library;
  Digest& digest = digestOf(routine.name);
  if constexpr (std::is_void_v<Result>)
    function(static_cast<Parameters>(arguments)...);
  else
    digest.add(function(static_cast<Parameters>(arguments)...), nans);
  auto const add = [&](auto const& argument) {
    if constexpr (requires { argument.addTo(digest, nans, margin); }) argument.addTo(digest, nans, margin);
  };
  (add(arguments), ...);
}

template <class Function, class... Arguments>
void moved(Routine<Function> const& routine, Arguments&&... arguments) {
  take(routine, Nans::KeepTheirBits, 0, arguments...);
}

template <class Function, class... Arguments>
void computed(Routine<Function> const& routine, Arguments&&... arguments) {
  take(routine, Nans::AreOne, 0, arguments...);
}

// Sizes are drawn one statement at a time, for the order of a call's arguments is the compiler's.
std::size_t someWidth(Random& random, std::size_t least) {
  return random.oneIn(8) ? random.between(71, 300) : random.between(least, 70);
}

void cubeGeneration(Random& random) {
  std::size_t const width = someWidth(random, 1), height = random.between(1, 20);
  Array<Short> frame(random, width, height), out(random, width, height);
  std::size_t const left = random.below(width), top = random.below(height);
  std::size_t const cropWidth = random.between(0, width - left), cropHeight = random.between(0, height - top);
  moved(routine::CG_CropImage_uint16, out, frame, width, height, left, top, cropWidth, cropHeight);

  std::size_t const mosaicWidth = random.between(1, 6), mosaicHeight = random.between(1, 6);
  std::size_t const mosaicBand = random.below(mosaicWidth * mosaicHeight);
  moved(routine::CG_SSM_GetBandImage_uint16, out, frame, width, height, mosaicWidth, mosaicHeight, mosaicBand);

  std::size_t const tileWidth = random.between(1, width), tileHeight = random.between(1, height);
  std::size_t const tile = random.below((width / tileWidth) * (height / tileHeight));
  moved(routine::CG_SST_GetBandImage_uint16, out, frame, width, height, tileWidth, tileHeight, tile);

  std::size_t const stripHeight = random.between(1, 3), bands = random.between(1, 5), firstBand = random.below(3);
  std::size_t const lastBand = firstBand + bands - 1, i = random.below(bands), sliceStrips = random.between(1, 4);
  std::uint64_t const frameIndex = random.oneIn(4) ? ~random.below(20) : random.below(100);
  Array<Short> strips(random, width, (lastBand + 1) * stripHeight), strip(random, width, stripHeight);
  Array<Short> ring(random, width, bands * stripHeight, bands), slice(random, width, sliceStrips * stripHeight, bands);
  moved(routine::CG_LS_GetBandImageStrip_uint16, strip, strips, width, (lastBand + 1) * stripHeight, stripHeight,
        firstBand + i);
  moved(routine::CG_LS_StitchBandImageStrip_uint16, ring, strip, width, stripHeight, firstBand, lastBand, firstBand + i,
        i, frameIndex);
  moved(routine::CG_LS_StitchBandImage_uint16, ring, strips, width, stripHeight, firstBand, lastBand, frameIndex);
  moved(routine::CG_LS_GetStitchedSlice_BSQ_uint16, slice, ring, width, stripHeight, sliceStrips * stripHeight, bands,
        firstBand, lastBand, frameIndex);
}

void reflectance(Random& random) {
  std::size_t const count = someWidth(random, 0);
  Array<float> floats(random, count), floatBias(random, count), floatOut(random, count);
  Array<Short> counts(random, count), bias(random, count), out(random, count);
  Array<double> coefficients(random, count);
  double const factor = random.real(0.0, 4.0), divisor = random.oneIn(8) ? 0.0 : random.real(0.1, 4.0);
  Short const flag = random.oneIn(2) ? 65535 : 2, limit = random.oneIn(2) ? 65535 : 4000;
  computed(routine::RC_CorrectBias_float, floatOut, floats, floatBias, count);
  computed(routine::RC_CorrectBias_uint16, out, counts, bias, count);
  computed(routine::RC_ComputeReflectance_float, floatOut, floats, coefficients, count, divisor, flag, limit);
  computed(routine::RC_ComputeReflectance_uint16, out, counts, coefficients, count, divisor, 10000, flag, limit);
  computed(routine::RC_ComputeCorrectionCoefficients_float, coefficients, floats, count, factor, 0.99, flag);
  computed(routine::RC_ComputeReflectance_float, floatOut, floats, coefficients, count, divisor, flag, limit);
  computed(routine::RC_ComputeCorrectionCoefficients_uint16, coefficients, counts, count, factor, 0.99, flag);
  computed(routine::RC_ComputeReflectance_uint16, out, counts, coefficients, count, divisor, 10000, flag, limit);
}

void spectralCorrection(Random& random) {
  std::size_t const inBands = random.between(0, 30), outBands = random.between(0, 20), pixels = someWidth(random, 0);
  Array<double> matrix(random, inBands, outBands), scratch(random, pixels);
  Array<float> floatSpectra(random, inBands * pixels + inBands), floatOut(random, outBands * pixels + outBands);
  Array<Short> spectra(random, inBands * pixels + inBands), out(random, outBands * pixels + outBands);
  computed(routine::SC_ApplySpectralCorrection_float, floatOut, floatSpectra, matrix, outBands, inBands);
  computed(routine::SC_ApplySpectralCorrection_uint16, out, spectra, matrix, outBands, inBands);
  computed(routine::SC_ApplySpectralCorrection_BIP_float, floatOut, floatSpectra, matrix, outBands, inBands, pixels);
  computed(routine::SC_ApplySpectralCorrection_BIP_uint16, out, spectra, matrix, outBands, inBands, pixels);

  Array<float> floatCube(random, pixels, 1, inBands), floatOutCube(random, pixels, 1, outBands);
  Array<Short> cube(random, pixels, 1, inBands), outCube(random, pixels, 1, outBands);
  computed(routine::SC_ApplySpectralCorrection_BSQ_float, floatOutCube, scratch, floatCube, matrix, outBands, inBands,
           pixels);
  computed(routine::SC_ApplySpectralCorrection_BSQ_uint16, outCube, scratch, cube, matrix, outBands, inBands, pixels);
}

void demosaicing(Random& random) {
  Count const mosaicHeight = static_cast<Count>(random.between(1, 6));
  Count const mosaicWidth = static_cast<Count>(random.between(1, 6));
  Count const band = static_cast<Count>(random.below(mosaicHeight * mosaicWidth));
  double const targetRow = random.real(0.0, mosaicHeight), targetColumn = random.real(0.0, mosaicWidth);
  Array<Count> position(random, 2, 1, 1, [](std::span<Count>, Random&) {});
  Array<double> offset(random, 2), weights(random, 4);
  computed(routine::DM_ComputeFilterPosition, position, static_cast<Count*>(position) + 1, mosaicWidth, band);
  Count const row = static_cast<Count*>(position)[0], column = static_cast<Count*>(position)[1];
  computed(routine::DM_ComputeTargetPositionRelativeToFilterPosition, offset, static_cast<double*>(offset) + 1, row,
           column, targetRow, targetColumn);
  double const rowOffset = static_cast<double*>(offset)[0], columnOffset = static_cast<double*>(offset)[1];
  computed(routine::DM_ComputeCoefficientsBilinear, weights, mosaicHeight, mosaicWidth, rowOffset, columnOffset);

  std::size_t const width = someWidth(random, 1), height = random.between(1, 12);
  Array<double> in(random, width, height), out(random, width, height);
  Array<Short> counts(random, width, height), outCounts(random, width, height);
  computed(routine::DM_ApplyDemosaicingBilinear_dbl, out, in, height, width, weights, rowOffset, columnOffset);
  computed(routine::DM_ApplyDemosaicingBilinear_uint16, outCounts, counts, height, width, weights, rowOffset,
           columnOffset);
}

void medians(Random& random) {
  Array<Short> nine(random, 9), twentyFive(random, 25);
  Array<float> nineFloats(random, 9), twentyFiveFloats(random, 25);
  moved(routine::MF_Median1D_9_uint16, nine);
  moved(routine::MF_Median1D_25_uint16, twentyFive);
  moved(routine::MF_Median1D_9_float, nineFloats);
  moved(routine::MF_Median1D_25_float, twentyFiveFloats);

  // The general median promises no order beside the middle, so the array stays out; nor one of zeros and NaNs.
  std::size_t const count = random.between(1, 90);
  Array<Short> counts(random, count);
  Array<float> floats(random, count, 1, 1, ordinary<float>);
  moved(routine::MF_Median1D_uint16, static_cast<Short*>(counts), count);
  moved(routine::MF_Median1D_float, static_cast<float*>(floats), count);

  std::size_t width = someWidth(random, 4), height = random.between(4, 20);
  Array<Short> image(random, width, height), outImage(random, width, height);
  Array<float> plainImage(random, width, height, 1, ordinary<float>), outFloats(random, width, height);
  Array<float> anyImage(random, width, height);
  moved(routine::MF_Median2D_3x3_uint16, outImage, image, &height, &width);
  moved(routine::MF_Median2D_5x5_uint16, outImage, image, &height, &width);
  moved(routine::MF_Median2D_3x3_float, outFloats, plainImage, &height, &width);
  moved(routine::MF_Median2D_5x5_float, outFloats, plainImage, &height, &width);
  take(routine::MF_Median2D_3x3_float, Nans::KeepTheirBits, 1, outFloats, anyImage, &height, &width);
  take(routine::MF_Median2D_5x5_float, Nans::KeepTheirBits, 2, outFloats, anyImage, &height, &width);
}

void imageOperations(Random& random) {
  std::size_t const width = someWidth(random, 1), height = random.between(1, 20);
  Array<float> a(random, width, height), b(random, width, height), out(random, width, height);
  Array<float> planes(random, width, height, 3), outPlanes(random, width, height, 3);
  Array<double> kernel(random, 49);
  double const weight = random.real(-0.5, 1.5), kb = random.real(0.0, 0.3), kr = random.real(0.0, 0.3);
  std::size_t const left = random.below(width), top = random.below(height);
  moved(routine::Crop_float, out, a, width, height, left, top, width - left, height - top);
  computed(routine::Subtract_float, out, a, b, width, height);
  computed(routine::Add_float, out, a, b, width, height);
  computed(routine::Mix_float, out, a, b, width, height, weight);
  computed(routine::ApplyKernel7x7_float, out, b, width, height, kernel);
  computed(routine::RGBToYCbCr_float, outPlanes, planes, width, height, kb, kr);
  computed(routine::YCbCrToRGB_float, outPlanes, outPlanes, width, height, kb, kr);
}

void rgbx(Random& random) {
  std::size_t const width = 4 * random.between(2, random.oneIn(8) ? 70 : 17), height = random.between(6, 22);
  Array<float> frame(random, width, height), out(random, width, height);
  Array<float> bands(random, width - 6, height - 6, 4);
  computed(routine::RGBX_ComputeBand_R_float, out, frame, width, height);
  computed(routine::RGBX_ComputeBand_G_float, out, frame, width, height);
  computed(routine::RGBX_ComputeBand_B_float, out, frame, width, height);
  computed(routine::RGBX_ComputeBand_X_float, out, frame, width, height);
  computed(routine::RGBX_DemosaicFrame_float, bands, out, frame, width, height);

  Array<float> in(random, width, height, 4), rgb(random, width - 6, height - 6, 3);
  Array<double> kernel(random, 49, 1, 1, ordinary<double>);
  Buffers buffers(random, width, height);
  double const weight = random.unit();
  computed(routine::RGBX_ComputeNewWLI_float, rgb, in, width, height, kernel, buffers, 0.114, 0.299, weight);
}

}  // namespace
}  // namespace korva::test

int main(int argumentCount, char** arguments) {
  using namespace korva::test;
  int next = 1;
  plainIsCalled = argumentCount > next && std::string_view(arguments[next]) == "--plain";
  if (plainIsCalled) ++next;
  std::uint64_t const cases = argumentCount > next ? std::strtoull(arguments[next], nullptr, 10) : 500;
  for (std::uint64_t number = 0; number < cases; ++number) {
    Random random(number);
    for (auto* const family :
         {cubeGeneration, reflectance, spectralCorrection, demosaicing, medians, imageOperations, rgbx})
      family(random);
  }
  for (RoutineDigest const& known : digests)
    std::printf("%016" PRIx64 "  %s\n", known.digest.value(), known.routine.data());
}
