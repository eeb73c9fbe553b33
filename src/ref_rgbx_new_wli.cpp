// RGBX: the new WLI, an RGB image whose fine luma detail mixes that of the RGB bands with that of the X band.
#include "korva_reference_api.h"

#include <algorithm>
#include <array>

#include "internal/strict_float.h"

namespace {

constexpr unsigned long kMargin = 3;

// The colour planes from a row on. Rows lie back to back, so a run of them is an image itself.
std::array<float**, 3> planesFrom(float*** image, unsigned long row) {
  return {image[0] + row, image[1] + row, image[2] + row};
}

}  // namespace

void KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(NewWLIBuffers* buffers, unsigned long width, unsigned long height) {
  KORVA_Ref_AllocateArray2D_float(&buffers->xResidual, width, height);
  KORVA_Ref_AllocateArray2D_float(&buffers->yFiltered, width, height);
  KORVA_Ref_AllocateArray2D_float(&buffers->yResidual, width, height);
  KORVA_Ref_AllocateArray3D_BSQ_float(&buffers->yccImage, width, height, 3);
}

void KORVA_Ref_RGBX_FreeNewWLIBuffers_float(NewWLIBuffers buffers) {
  KORVA_Ref_FreeArray2D_float(buffers.xResidual);
  KORVA_Ref_FreeArray2D_float(buffers.yFiltered);
  KORVA_Ref_FreeArray2D_float(buffers.yResidual);
  KORVA_Ref_FreeArray3D_BSQ_float(buffers.yccImage);
}

void KORVA_Ref_RGBX_ComputeNewWLI_float(float*** out, float*** in, unsigned long width, unsigned long height,
                                        double const* kernel, NewWLIBuffers buffers, double kb, double kr,
                                        double weight) {
  std::array<double, 49> weights;
  std::copy_n(kernel, weights.size(), weights.begin());
  float** const luma = buffers.yccImage[0];
  // All steps for a few rows before the next rows, so that the planes pass through the cache once: step by step, frames
  // of 2048 x 1088 take 1.15 of the time (Zen 5, AVX2), more where vectors are wider or caches smaller. A row of the
  // old luma is needed until the filter has passed the rows below it; so the conversion runs ahead of the filter by its
  // margin, and the last steps follow as far behind.
  constexpr unsigned long kRowsAtOnce = 32;  // 8 to 64 are equally fast
  for (unsigned long first = 0, last, converted = 0, finished = 0; first < height; first = last) {
    last = std::min(first + kRowsAtOnce, height);
    unsigned long const convertedTo = std::min(last + kMargin, height);
    KORVA_Ref_RGBToYCbCr_float(planesFrom(buffers.yccImage, converted).data(), planesFrom(in, converted).data(), width,
                               convertedTo - converted, kb, kr);
    converted = convertedTo;

    // The filter reads the rows within its margin too.
    unsigned long const top = std::max(first, kMargin) - kMargin, bottom = std::min(last + kMargin, height);
    if (top + 2 * kMargin < bottom) {
      KORVA_Ref_ApplyKernel7x7_float(buffers.xResidual + top, in[3] + top, width, bottom - top, weights.data());
      KORVA_Ref_ApplyKernel7x7_float(buffers.yFiltered + top, luma + top, width, bottom - top, weights.data());
    }
    KORVA_Ref_Subtract_float(buffers.xResidual + first, in[3] + first, buffers.xResidual + first, width, last - first);
    KORVA_Ref_Subtract_float(buffers.yResidual + first, luma + first, buffers.yFiltered + first, width, last - first);

    // The new luma takes the place of the old one: mixed detail on top of the filtered luma.
    unsigned long const start = finished, rows = (last == height ? height : last - kMargin) - start;
    finished = start + rows;
    float** const newLuma = luma + start;
    KORVA_Ref_Mix_float(newLuma, buffers.yResidual + start, buffers.xResidual + start, width, rows, weight);
    KORVA_Ref_Add_float(newLuma, newLuma, buffers.yFiltered + start, width, rows);
    auto planes = planesFrom(buffers.yccImage, start);
    KORVA_Ref_YCbCrToRGB_float(planes.data(), planes.data(), width, rows, kb, kr);

    // The filter leaves a margin unwritten, whose samples derive from what the buffers held before; it is cut away.
    unsigned long const cropped = std::max(start, kMargin), croppedTo = std::min(finished, height - kMargin);
    for (unsigned long plane = 0; plane < 3 && cropped < croppedTo; ++plane) {
      KORVA_Ref_Crop_float(out[plane] + (cropped - kMargin), buffers.yccImage[plane] + cropped, width,
                           croppedTo - cropped, kMargin, 0, width - 2 * kMargin, croppedTo - cropped);
    }
  }
}
