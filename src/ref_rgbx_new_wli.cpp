// RGBX: the new WLI, an RGB image whose fine luma detail mixes that of the RGB bands with that of the X band.
#include "korva_reference_api.h"

#include "internal/strict_float.h"

namespace {

constexpr unsigned long kMargin = 3;

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
  float** const xBand = in[3];
  float** const xResidual = buffers.xResidual;
  float** const yFiltered = buffers.yFiltered;
  float** const yResidual = buffers.yResidual;
  float*** const image = buffers.yccImage;

  KORVA_Ref_ApplyKernel7x7_float(xResidual, xBand, width, height, kernel);
  KORVA_Ref_Subtract_float(xResidual, xBand, xResidual, width, height);

  KORVA_Ref_RGBToYCbCr_float(image, in, width, height, kb, kr);
  float** const luma = image[0];
  KORVA_Ref_ApplyKernel7x7_float(yFiltered, luma, width, height, kernel);
  KORVA_Ref_Subtract_float(yResidual, luma, yFiltered, width, height);

  // The new luma takes the place of the old one: mixed detail on top of the filtered luma.
  KORVA_Ref_Mix_float(luma, yResidual, xResidual, width, height, weight);
  KORVA_Ref_Add_float(luma, luma, yFiltered, width, height);
  KORVA_Ref_YCbCrToRGB_float(image, image, width, height, kb, kr);

  // The filter leaves a margin unwritten, whose samples in image derive from what the buffers held before.
  for (unsigned long plane = 0; plane < 3; ++plane) {
    KORVA_Ref_Crop_float(out[plane], image[plane], width, height, kMargin, kMargin, width - 2 * kMargin,
                         height - 2 * kMargin);
  }
}
