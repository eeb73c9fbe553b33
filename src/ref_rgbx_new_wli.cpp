// RGBX: the new WLI, an RGB image whose fine luma detail mixes that of the RGB bands with that of the X band.
#include "korva_reference_api.h"

#include <algorithm>

#include "internal/strict_float.h"

namespace {

constexpr unsigned long kMargin = 3;
constexpr unsigned long kRowsAtOnce = 32;

// The steps of the computation, each for the rows first to last - 1. Rows lie back to back, so those of a part of an
// image are an image themselves, from its first row pointer on.
struct RowsOf {
  float*** out;
  float*** in;
  unsigned long width;
  double const* kernel;
  NewWLIBuffers buffers;
  double kb;
  double kr;
  double weight;

  void convert(unsigned long first, unsigned long last) const {
    float** rgb[] = {in[0] + first, in[1] + first, in[2] + first};
    float** ycc[] = {buffers.yccImage[0] + first, buffers.yccImage[1] + first, buffers.yccImage[2] + first};
    KORVA_Ref_RGBToYCbCr_float(ycc, rgb, width, last - first, kb, kr);
  }

  // The filter reads the rows within its margin too.
  void filter(unsigned long first, unsigned long last) const {
    if (first >= last) return;
    unsigned long const top = first - kMargin;
    unsigned long const height = last - first + 2 * kMargin;
    KORVA_Ref_ApplyKernel7x7_float(buffers.xResidual + top, in[3] + top, width, height, kernel);
    KORVA_Ref_ApplyKernel7x7_float(buffers.yFiltered + top, buffers.yccImage[0] + top, width, height, kernel);
  }

  void subtract(unsigned long first, unsigned long last) const {
    float** const xResidual = buffers.xResidual + first;
    KORVA_Ref_Subtract_float(xResidual, in[3] + first, xResidual, width, last - first);
    KORVA_Ref_Subtract_float(buffers.yResidual + first, buffers.yccImage[0] + first, buffers.yFiltered + first, width,
                             last - first);
  }

  // The new luma takes the place of the old one, mixed detail on top of the filtered luma, and becomes RGB with the
  // colour differences.
  void finish(unsigned long first, unsigned long last) const {
    float** ycc[] = {buffers.yccImage[0] + first, buffers.yccImage[1] + first, buffers.yccImage[2] + first};
    float** const luma = ycc[0];
    KORVA_Ref_Mix_float(luma, buffers.yResidual + first, buffers.xResidual + first, width, last - first, weight);
    KORVA_Ref_Add_float(luma, luma, buffers.yFiltered + first, width, last - first);
    KORVA_Ref_YCbCrToRGB_float(ycc, ycc, width, last - first, kb, kr);
  }

  // The filter leaves a margin unwritten, whose samples derive from what the buffers held before; it is cut away.
  void crop(unsigned long first, unsigned long last) const {
    if (first >= last) return;
    for (unsigned long plane = 0; plane < 3; ++plane) {
      KORVA_Ref_Crop_float(out[plane] + (first - kMargin), buffers.yccImage[plane] + first, width, last - first,
                           kMargin, 0, width - 2 * kMargin, last - first);
    }
  }
};

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
  // All steps for a few rows before the next rows, so that the planes pass through the cache once and not once a step.
  // Each sample meets the same steps in the same order. A row of the old luma is needed until the filter has passed the
  // rows below it; so the conversion runs ahead of the filter by its margin, and the last steps follow as far behind.
  RowsOf const rows = {out, in, width, kernel, buffers, kb, kr, weight};
  unsigned long const lastFiltered = height < kMargin ? 0 : height - kMargin;
  for (unsigned long first = 0, converted = 0, finished = 0; first < height; first += kRowsAtOnce) {
    unsigned long const last = std::min(first + kRowsAtOnce, height);
    unsigned long const convertedTo = std::min(last + kMargin, height);
    unsigned long const finishedTo = last == height ? height : last - kMargin;
    rows.convert(converted, convertedTo);
    rows.filter(std::max(first, kMargin), std::min(last, lastFiltered));
    rows.subtract(first, last);
    rows.finish(finished, finishedTo);
    rows.crop(std::max(finished, kMargin), std::min(finishedTo, lastFiltered));
    converted = convertedTo;
    finished = finishedTo;
  }
}
