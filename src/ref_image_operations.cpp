// Image operations on float images: arithmetic, crop, 7 x 7 kernel filtering, conversion between RGB and YCbCr.
#include "korva_reference_api.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "internal/lanes.h"
#include "internal/multiversion.h"
#include "internal/prefetch.h"
#include "internal/sample_conversion.h"
#include "internal/strict_float.h"

namespace {

struct Subtract {
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count) {
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) out[k] = a[k] - b[k];
  }
};

struct Add {
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count) {
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) out[k] = a[k] + b[k];
  }
};

template <int vectorBytes>
struct Mix {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  using Doubles = korva::Vector<double, kLanes>;

  // In vectors whose loads convert: 1.25 times as fast in the cache as g++'s own, which split what they have loaded.
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count, double weight) {
    double const complement = 1.0 - weight;
    std::size_t k = 0;
    for (; k + kLanes <= count; k += kLanes) {
      korva::storeConverted(
          out + k, korva::loadWidened<Doubles>(a + k) * weight + korva::loadWidened<Doubles>(b + k) * complement);
    }
    for (; k < count; ++k) {
      out[k] = static_cast<float>(static_cast<double>(a[k]) * weight + static_cast<double>(b[k]) * complement);
    }
  }
};

// 7 x 7 kernel ------------------------------------------------------------------------------------------------------

constexpr std::size_t kKernelSize = 7;
constexpr std::size_t kKernelMargin = 3;

// Filters a whole image, its columns in strips. The samples of a strip are widened once into a ring of rows that stays
// in the first cache level, and the weights into vectors of equal lanes. From them, blocks of several output rows by
// up to six vectors are summed in registers: a vector of samples is loaded once for all rows, and each sum still meets
// its 49 products in storage order. Two rows leave four of 16 registers for what else a block needs; processors with 32
// take four.
template <int vectorBytes>
struct FilterImage7x7 {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kRows = KORVA_ARM_INTRINSICS || vectorBytes == 64 ? 4 : 2;
  static constexpr std::size_t kBlockVectors =
      KORVA_ARM_INTRINSICS ? 5 : 6;  // of six, g++ 12 keeps sums in memory on ARM
  static constexpr std::size_t kBlock = kBlockVectors * kLanes;
  // Wider strips of 64-byte vectors gain less than 1 %, and would take a call beyond 64 KiB of stack.
  static constexpr std::size_t kStrip = (vectorBytes == 64 ? 5 : 10) * kBlock;
  static constexpr std::size_t kRing = kRows + 2 * kKernelMargin;
  static constexpr std::size_t kAhead = 4;
  static constexpr std::size_t kRowStride = kStrip + 8;  // whole cache lines, and room for both margins
  using Doubles = korva::Vector<double, kLanes>;
  using Floats = korva::Vector<float, kLanes>;

  // What a sample of the filtered image is: 49 products added in storage order of the kernel. rows are the seven rows
  // of its window, which starts at column.
  KORVA_INLINE static float weightedSum(double const* const* rows, std::size_t column, Doubles const* kernel) {
    double sum = 0.0;
    for (std::size_t ky = 0; ky < kKernelSize; ++ky) {
      for (std::size_t kx = 0; kx < kKernelSize; ++kx) sum += rows[ky][column + kx] * kernel[ky * kKernelSize + kx][0];
    }
    return static_cast<float>(sum);
  }

  // Adds to the sums of the output rows `first` to `last` what input row y, counted from the window of output row 0,
  // contributes.
  template <std::size_t first, std::size_t last, std::size_t rows, std::size_t vectors>
  KORVA_INLINE static void addRow(Doubles (&sums)[rows][vectors], double const* const* inputs, std::size_t y,
                                  std::size_t column, Doubles const* kernel) {
    double const* row = inputs[y] + column;
    for (std::size_t kx = 0; kx < kKernelSize; ++kx) {
      if constexpr (KORVA_ARM_INTRINSICS)
        asm("" : "+r"(row));  // else g++ carries samples to the next column, through memory
      Doubles weights[rows];
#pragma GCC unroll 4
      for (std::size_t r = first; r <= last; ++r) {
        Doubles weight = kernel[(y - r) * kKernelSize + kx];
        korva::keepInRegister(weight);
        weights[r] = weight;
      }
#pragma GCC unroll 8
      for (std::size_t v = 0; v < vectors; ++v) {
        auto samples = korva::loadLanes<Doubles>(row + kx + v * kLanes);
        korva::keepInRegister(samples);
#pragma GCC unroll 4
        for (std::size_t r = first; r <= last; ++r) sums[r][v] += samples * weights[r];
      }
    }
  }

  // vectors * kLanes columns of several output rows; inputs[0] is the uppermost row of the first one's window.
  template <std::size_t rows, std::size_t vectors, std::size_t... r>
  KORVA_INLINE static void filterBlock(float* const* out, double const* const* inputs, std::size_t column,
                                       Doubles const* kernel, std::index_sequence<r...>) {
    Doubles sums[rows][vectors] = {};
    (addRow<0, r>(sums, inputs, r, column, kernel), ...);
    for (std::size_t y = rows - 1; y < kKernelSize; ++y) addRow<0, rows - 1>(sums, inputs, y, column, kernel);
    (addRow<r + 1, rows - 1>(sums, inputs, kKernelSize + r, column, kernel), ...);
#pragma GCC unroll 4
    for (std::size_t row = 0; row < rows; ++row) {
#pragma GCC unroll 8
      for (std::size_t v = 0; v < vectors; ++v) {
        korva::storeLanes(out[row] + column + v * kLanes, korva::narrowLanes<Floats>(sums[row][v]));
      }
    }
  }

  // count columns of several output rows. The last block may overlap its neighbour: it computes the same again.
  template <std::size_t rows>
  KORVA_INLINE static void filterRows(float* const* out, double const* const* inputs, std::size_t count,
                                      Doubles const* kernel) {
    constexpr std::make_index_sequence<rows - 1> others;
    if (count >= kBlock) {
      for (std::size_t column = 0; column < count; column += kBlock) {
        filterBlock<rows, kBlockVectors>(out, inputs, std::min(column, count - kBlock), kernel, others);
      }
    } else if (count >= kLanes) {
      for (std::size_t column = 0; column < count; column += kLanes) {
        filterBlock<rows, 1>(out, inputs, std::min(column, count - kLanes), kernel, others);
      }
    } else {
      for (std::size_t column = 0; column < count; ++column) {
        for (std::size_t r = 0; r < rows; ++r) out[r][column] = weightedSum(inputs + r, column, kernel);
      }
    }
  }

  // A strip of count columns, several output rows at a time. The last ones may be computed twice as well.
  template <std::size_t rows>
  KORVA_INLINE static void filterStrip(float* const* out, float const* const* in, std::size_t left, std::size_t count,
                                       std::size_t height, Doubles const* kernel) {
    alignas(64) double ring[kRing][kRowStride];
    std::size_t const outRows = height - 2 * kKernelMargin;
    std::size_t widened = 0;
    for (std::size_t row = 0; row < outRows; row += rows) {
      std::size_t const first = std::min(row, outRows - rows);
      for (; widened < first + rows + 2 * kKernelMargin; ++widened) {
        if (widened + kAhead < height) korva::prefetchRow<false>(in[widened + kAhead] + left, count);
        korva::widenRow<Doubles>(ring[widened % kRing], in[widened] + left, count + 2 * kKernelMargin);
      }
      double const* inputs[kRing];
      for (std::size_t k = 0; k < kRing; ++k) inputs[k] = ring[(first + k) % kRing];
      float* targets[rows];
      for (std::size_t r = 0; r < rows; ++r) {
        targets[r] = out[first + kKernelMargin + r] + kKernelMargin + left;
        korva::prefetchRow<true>(out[std::min(first + kKernelMargin + rows + r, height - 1)] + left, count);
      }
      filterRows<rows>(targets, inputs, count, kernel);
    }
  }

  KORVA_INLINE static void run(float* const* out, float const* const* in, std::size_t width, std::size_t height,
                               double const* kernel) {
    Doubles weights[kKernelSize * kKernelSize];
    for (std::size_t k = 0; k < kKernelSize * kKernelSize; ++k) weights[k] = korva::broadcast<Doubles>(kernel[k]);
    std::size_t const outColumns = width - 2 * kKernelMargin;
    // Strips of nearly equal width, in whole blocks.
    std::size_t const blocks = (outColumns + kBlock - 1) / kBlock;
    std::size_t const strips = (outColumns + kStrip - 1) / kStrip;
    std::size_t const strip = (blocks + strips - 1) / strips * kBlock;
    for (std::size_t left = 0; left < outColumns; left += strip) {
      std::size_t const count = std::min(outColumns - left, strip);
      if (height >= kRows + 2 * kKernelMargin) {
        filterStrip<kRows>(out, in, left, count, height, weights);
      } else {
        filterStrip<1>(out, in, left, count, height, weights);
      }
    }
  }
};

// Colour conversion -------------------------------------------------------------------------------------------------

// Each conversion is written once, for single samples and for blocks of vectors. All samples of a pixel are read before
// one is written: the planes may be the same.

struct RGBToYCbCr {
  double redWeight, greenWeight, blueWeight;
  double cbScale, crScale;

  RGBToYCbCr(double kb, double kr)
      : redWeight(kr),
        greenWeight((1.0 - kb) - kr),
        blueWeight(kb),
        cbScale(0.5 / (1.0 - kb)),
        crScale(0.5 / (1.0 - kr)) {}

  template <typename Floats, typename Doubles>
  KORVA_INLINE Floats luma(float const* const* in, std::size_t k) const {
    auto const red = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(in[0] + k));
    auto const green = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(in[1] + k));
    auto const blue = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(in[2] + k));
    return korva::narrowLanes<Floats>((red * redWeight + green * greenWeight) + blue * blueWeight);
  }

  // The way from samples to differences is long. A processor, which looks ahead over a few dozen operations, overlaps
  // more of two loops over half of it: 1.2 times as fast on Zen 5, from blocks of 32 vectors on.
  template <typename Floats, typename Doubles, std::size_t block>
  KORVA_INLINE void convert(float* const* out, float const* const* in, std::size_t first) const {
    constexpr std::size_t kLanes = sizeof(Floats) / sizeof(float);
    float lumas[block];
    for (std::size_t k = 0; k < block; k += kLanes) {
      korva::storeLanes(lumas + k, luma<Floats, Doubles>(in, first + k));
    }
    for (std::size_t k = 0; k < block; k += kLanes) {
      auto const red = korva::loadLanes<Floats>(in[0] + first + k);
      auto const blue = korva::loadLanes<Floats>(in[2] + first + k);
      auto const luma = korva::loadLanes<Floats>(lumas + k);
      korva::storeLanes(out[0] + first + k, luma);
      korva::storeLanes(out[1] + first + k,
                        korva::narrowLanes<Floats>(korva::widenLanes<Doubles>(blue - luma) * cbScale));
      korva::storeLanes(out[2] + first + k,
                        korva::narrowLanes<Floats>(korva::widenLanes<Doubles>(red - luma) * crScale));
    }
  }
};

struct YCbCrToRGB {
  double redWeight, blueWeight;
  double crFactor, cbFactor, greenInverse;

  // greenInverse is not the reciprocal of the other direction's green weight: the two may differ in the last bit.
  YCbCrToRGB(double kb, double kr)
      : redWeight(kr),
        blueWeight(kb),
        crFactor((1.0 - kr) + (1.0 - kr)),
        cbFactor((1.0 - kb) + (1.0 - kb)),
        greenInverse(1.0 / ((1.0 - kr) - kb)) {}

  template <typename Floats, typename Doubles, std::size_t block>
  KORVA_INLINE void convert(float* const* out, float const* const* in, std::size_t first) const {
    for (std::size_t k = first; k < first + block; k += sizeof(Floats) / sizeof(float)) {
      auto const luma = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(in[0] + k));
      auto const cb = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(in[1] + k));
      auto const cr = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(in[2] + k));
      auto const red = cr * crFactor + luma;
      auto const blue = cb * cbFactor + luma;
      auto const green = ((luma - red * redWeight) - blueWeight * blue) * greenInverse;
      korva::storeLanes(out[0] + k, korva::narrowLanes<Floats>(red));
      korva::storeLanes(out[1] + k, korva::narrowLanes<Floats>(green));
      korva::storeLanes(out[2] + k, korva::narrowLanes<Floats>(blue));
    }
  }
};

template <int vectorBytes>
struct ConvertPlanes {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kBlock = 32 * kLanes;
  using Floats = korva::Vector<float, kLanes>;
  using Doubles = korva::Vector<double, kLanes>;

  template <typename Conversion>
  KORVA_INLINE static void run(float*** out, float*** in, std::size_t count, Conversion conversion) {
    float* const target[] = {out[0][0], out[1][0], out[2][0]};
    float const* const source[] = {in[0][0], in[1][0], in[2][0]};
    std::size_t k = 0;
    for (; k + kBlock <= count; k += kBlock) conversion.template convert<Floats, Doubles, kBlock>(target, source, k);
    for (; k + kLanes <= count; k += kLanes) conversion.template convert<Floats, Doubles, kLanes>(target, source, k);
    for (; k < count; ++k) conversion.template convert<float, double, 1>(target, source, k);
  }
};

}  // namespace

// Pixel-wise arithmetic and crop ------------------------------------------------------------------------------------

void KORVA_Ref_Subtract_float(float** out, float** a, float** b, unsigned long width, unsigned long height) {
  if (width * height == 0) return;
  korva::dispatch<Subtract>(out[0], a[0], b[0], width * height);
}

void KORVA_Ref_Add_float(float** out, float** a, float** b, unsigned long width, unsigned long height) {
  if (width * height == 0) return;
  korva::dispatch<Add>(out[0], a[0], b[0], width * height);
}

void KORVA_Ref_Mix_float(float** out, float** a, float** b, unsigned long width, unsigned long height, double weight) {
  if (width * height == 0) return;
  korva::dispatch<Mix>(out[0], a[0], b[0], width * height, weight);
}

void KORVA_Ref_Crop_float(float** out, float** in, unsigned long /*width*/, unsigned long /*height*/,
                          unsigned long left, unsigned long top, unsigned long cropWidth, unsigned long cropHeight) {
  for (unsigned long row = 0; row < cropHeight; ++row) {
    std::memcpy(out[row], in[top + row] + left, cropWidth * sizeof(float));
  }
}

// 7 x 7 kernel ------------------------------------------------------------------------------------------------------

void KORVA_Ref_ApplyKernel7x7_float(float** out, float** in, unsigned long width, unsigned long height,
                                    double const* kernel) {
  if (width < kKernelSize || height < kKernelSize) return;
  korva::dispatch<FilterImage7x7>(out, in, width, height, kernel);
}

// Colour conversion -------------------------------------------------------------------------------------------------

void KORVA_Ref_RGBToYCbCr_float(float*** out, float*** in, unsigned long width, unsigned long height, double kb,
                                double kr) {
  if (width * height == 0) return;
  korva::dispatch<ConvertPlanes>(out, in, width * height, RGBToYCbCr(kb, kr));
}

void KORVA_Ref_YCbCrToRGB_float(float*** out, float*** in, unsigned long width, unsigned long height, double kb,
                                double kr) {
  if (width * height == 0) return;
  korva::dispatch<ConvertPlanes>(out, in, width * height, YCbCrToRGB(kb, kr));
}
