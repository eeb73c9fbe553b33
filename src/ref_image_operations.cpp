// Image operations on float images: arithmetic, crop, 7 x 7 kernel filtering, conversion between RGB and YCbCr.
#include "korva_reference_api.h"

#include <cstddef>
#include <cstring>

#include "internal/lanes.h"
#include "internal/multiversion.h"
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

struct Mix {
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count, double weight) {
    double const complement = 1.0 - weight;
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) {
      out[k] = static_cast<float>(static_cast<double>(a[k]) * weight + static_cast<double>(b[k]) * complement);
    }
  }
};

// 7 x 7 kernel ------------------------------------------------------------------------------------------------------

constexpr std::size_t kKernelSize = 7;
constexpr std::size_t kKernelMargin = 3;

// What a sample of the filtered image is: 49 products added in storage order of the kernel.
// window holds seven rows, whose windows start at column.
template <typename Sample>
KORVA_INLINE float weightedSum(Sample const* const* window, std::size_t column, double const* kernel) {
  double sum = 0.0;
  for (std::size_t ky = 0; ky < kKernelSize; ++ky) {
    for (std::size_t kx = 0; kx < kKernelSize; ++kx) {
      sum += static_cast<double>(window[ky][column + kx]) * kernel[ky * kKernelSize + kx];
    }
  }
  return static_cast<float>(sum);
}

// Filters a whole image, its columns in strips. The samples of a strip are widened once into a ring of eight rows that
// stays in the first cache level. From it, blocks of two output rows by six vectors are summed in registers: a vector
// of samples is loaded once for both rows, and each sum still meets its 49 products in storage order.
template <int vectorBytes>
struct FilterImage7x7 {
  static constexpr std::size_t kLanes = vectorBytes / sizeof(double);
  static constexpr std::size_t kBlockVectors = 6;
  static constexpr std::size_t kBlock = kBlockVectors * kLanes;
  static constexpr std::size_t kStrip = 10 * kBlock;
  static constexpr std::size_t kRing = 8;
  using Doubles = korva::Vector<double, kLanes>;
  using Floats = korva::Vector<float, kLanes>;

  // Adds to the sums of one or two output rows what one input row contributes; weights0 or weights1 is null for the row
  // that does not see the input row.
  template <bool first, bool second, std::size_t vectors>
  KORVA_INLINE static void addRow(Doubles (&sums)[2][vectors], double const* row, double const* weights0,
                                  double const* weights1) {
    for (std::size_t kx = 0; kx < kKernelSize; ++kx) {
#pragma GCC unroll 8
      for (std::size_t v = 0; v < vectors; ++v) {
        auto const samples = korva::loadLanes<Doubles>(row + kx + v * kLanes);
        if constexpr (first) sums[0][v] += samples * weights0[kx];
        if constexpr (second) sums[1][v] += samples * weights1[kx];
      }
    }
  }

  // Two output rows, or one when pair is false, of vectors * kLanes columns; rows[0] is the uppermost row of the window.
  template <bool pair, std::size_t vectors>
  KORVA_INLINE static void filterBlock(float* out0, float* out1, double const* const* rows, std::size_t column,
                                       double const* kernel) {
    Doubles sums[2][vectors] = {};
    addRow<true, false>(sums, rows[0] + column, kernel, nullptr);
    for (std::size_t ky = 1; ky < kKernelSize; ++ky) {
      double const* const weights = kernel + ky * kKernelSize;
      addRow<true, pair>(sums, rows[ky] + column, weights, weights - kKernelSize);
    }
    if constexpr (pair) addRow<false, true>(sums, rows[7] + column, nullptr, kernel + 6 * kKernelSize);
    for (std::size_t v = 0; v < vectors; ++v) {
      korva::storeLanes(out0 + column + v * kLanes, __builtin_convertvector(sums[0][v], Floats));
      if constexpr (pair) {
        korva::storeLanes(out1 + column + v * kLanes, __builtin_convertvector(sums[1][v], Floats));
      }
    }
  }

  // One or two output rows of count columns. The last block may overlap its neighbour: it computes the same again.
  template <bool pair>
  KORVA_INLINE static void filterRows(float* out0, float* out1, double const* const* rows, std::size_t count,
                                      double const* kernel) {
    if (count >= kBlock) {
      for (std::size_t column = 0; column + kBlock <= count; column += kBlock) {
        filterBlock<pair, kBlockVectors>(out0, out1, rows, column, kernel);
      }
      if (count % kBlock != 0) filterBlock<pair, kBlockVectors>(out0, out1, rows, count - kBlock, kernel);
    } else if (count >= kLanes) {
      for (std::size_t column = 0; column + kLanes <= count; column += kLanes) {
        filterBlock<pair, 1>(out0, out1, rows, column, kernel);
      }
      if (count % kLanes != 0) filterBlock<pair, 1>(out0, out1, rows, count - kLanes, kernel);
    } else {
      for (std::size_t column = 0; column < count; ++column) {
        out0[column] = weightedSum(rows, column, kernel);
        if constexpr (pair) out1[column] = weightedSum(rows + 1, column, kernel);
      }
    }
  }

  KORVA_INLINE static void run(float* const* out, float const* const* in, std::size_t width, std::size_t height,
                               double const* kernel) {
    alignas(64) double ring[kRing][kStrip + 2 * kKernelMargin];
    double weights[kKernelSize * kKernelSize];
    for (std::size_t k = 0; k < kKernelSize * kKernelSize; ++k) weights[k] = kernel[k];

    std::size_t const outColumns = width - 2 * kKernelMargin;
    for (std::size_t left = 0; left < outColumns; left += kStrip) {
      std::size_t const count = outColumns - left < kStrip ? outColumns - left : kStrip;
      std::size_t widened = 0;
      for (std::size_t row = kKernelMargin; row < height - kKernelMargin; row += 2) {
        bool const pair = row + 1 < height - kKernelMargin;
        for (std::size_t const needed = row + kKernelMargin + (pair ? 2 : 1); widened < needed; ++widened) {
          float const* const source = in[widened] + left;
          double* const target = ring[widened % kRing];
          for (std::size_t c = 0; c < count + 2 * kKernelMargin; ++c) target[c] = static_cast<double>(source[c]);
        }
        double const* rows[kRing];
        for (std::size_t k = 0; k < kRing; ++k) rows[k] = ring[(row - kKernelMargin + k) % kRing];
        float* const out0 = out[row] + kKernelMargin + left;
        if (pair) {
          filterRows<true>(out0, out[row + 1] + kKernelMargin + left, rows, count, weights);
        } else {
          filterRows<false>(out0, nullptr, rows, count, weights);
        }
      }
    }
  }
};

// Colour conversion -------------------------------------------------------------------------------------------------

struct RGBToYCbCr {
  KORVA_INLINE static void run(float* y, float* cb, float* cr, float const* r, float const* g, float const* b,
                               std::size_t count, double kb, double kr) {
    double const gWeight = (1.0 - kb) - kr;
    double const cbScale = 0.5 / (1.0 - kb);
    double const crScale = 0.5 / (1.0 - kr);
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) {
      double const red = static_cast<double>(r[k]);
      double const green = static_cast<double>(g[k]);
      double const blue = static_cast<double>(b[k]);
      float const luma = static_cast<float>((red * kr + green * gWeight) + blue * kb);
      float const blueDifference = b[k] - luma;
      float const redDifference = r[k] - luma;
      y[k] = luma;
      cb[k] = static_cast<float>(static_cast<double>(blueDifference) * cbScale);
      cr[k] = static_cast<float>(static_cast<double>(redDifference) * crScale);
    }
  }
};

struct YCbCrToRGB {
  KORVA_INLINE static void run(float* r, float* g, float* b, float const* y, float const* cb, float const* cr,
                               std::size_t count, double kb, double kr) {
    double const crFactor = (1.0 - kr) + (1.0 - kr);
    double const cbFactor = (1.0 - kb) + (1.0 - kb);
    // Not 1 / gWeight of the other direction: the two may differ in the last bit.
    double const gInverse = 1.0 / ((1.0 - kr) - kb);
    KORVA_INDEPENDENT
    for (std::size_t k = 0; k < count; ++k) {
      double const luma = static_cast<double>(y[k]);
      double const blueDifference = static_cast<double>(cb[k]);
      double const redDifference = static_cast<double>(cr[k]);
      double const red = redDifference * crFactor + luma;
      double const blue = blueDifference * cbFactor + luma;
      double const green = ((luma - red * kr) - kb * blue) * gInverse;
      r[k] = static_cast<float>(red);
      g[k] = static_cast<float>(green);
      b[k] = static_cast<float>(blue);
    }
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
  korva::dispatch<RGBToYCbCr>(out[0][0], out[1][0], out[2][0], in[0][0], in[1][0], in[2][0], width * height, kb, kr);
}

void KORVA_Ref_YCbCrToRGB_float(float*** out, float*** in, unsigned long width, unsigned long height, double kb,
                                double kr) {
  if (width * height == 0) return;
  korva::dispatch<YCbCrToRGB>(out[0][0], out[1][0], out[2][0], in[0][0], in[1][0], in[2][0], width * height, kb, kr);
}
