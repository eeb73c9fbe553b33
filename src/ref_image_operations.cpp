// Image operations on float images: arithmetic, crop, 7 x 7 kernel filtering, conversion between RGB and YCbCr.
#include "korva_reference_api.h"

#include <cstddef>
#include <cstring>

#include "internal/multiversion.h"
#include "internal/strict_float.h"

namespace {

struct Subtract {
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) out[k] = a[k] - b[k];
  }
};

struct Add {
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) out[k] = a[k] + b[k];
  }
};

struct Mix {
  KORVA_INLINE static void run(float* out, float const* a, float const* b, std::size_t count, double weight) {
    double const complement = 1.0 - weight;
    for (std::size_t k = 0; k < count; ++k) {
      out[k] = static_cast<float>(static_cast<double>(a[k]) * weight + static_cast<double>(b[k]) * complement);
    }
  }
};

constexpr std::size_t kKernelSize = 7;
constexpr std::size_t kKernelMargin = 3;

struct FilterRow7x7 {
  // out[c] for count columns, from seven rows whose windows start at index c.
  KORVA_INLINE static void run(float* out, float const* const* rows, std::size_t count, double const* kernel) {
    for (std::size_t c = 0; c < count; ++c) {
      double sum = 0.0;
      for (std::size_t ky = 0; ky < kKernelSize; ++ky) {
        for (std::size_t kx = 0; kx < kKernelSize; ++kx) {
          sum += static_cast<double>(rows[ky][c + kx]) * kernel[ky * kKernelSize + kx];
        }
      }
      out[c] = static_cast<float>(sum);
    }
  }
};

struct RGBToYCbCr {
  KORVA_INLINE static void run(float* y, float* cb, float* cr, float const* r, float const* g, float const* b,
                               std::size_t count, double kb, double kr) {
    double const gWeight = (1.0 - kb) - kr;
    double const cbScale = 0.5 / (1.0 - kb);
    double const crScale = 0.5 / (1.0 - kr);
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
  for (unsigned long row = kKernelMargin; row < height - kKernelMargin; ++row) {
    korva::dispatch<FilterRow7x7>(out[row] + kKernelMargin, in + row - kKernelMargin, width - 2 * kKernelMargin,
                                  kernel);
  }
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
