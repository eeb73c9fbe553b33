/*
 * The literal definition of every processing routine: one sample at a time, each operation in the stated order and
 * precision, nothing shared between samples, no product fused with a sum. Tests compare every build of the library with
 * it, bit for bit, and benchmarks measure against it.
 *
 * A definition is called by the exported name without its KORVA_Ref_ and has exactly the routine's type.
 */
#ifndef KORVA_TESTS_SUPPORT_PLAIN_DEFINITIONS_H
#define KORVA_TESTS_SUPPORT_PLAIN_DEFINITIONS_H

#include "korva_reference_api.h"

// All processing routines, by the part of their names behind KORVA_Ref_, each with its plain definition.
// clang-format off
#define KORVA_PROCESSING_ROUTINES(routine) \
  routine(CG_CropImage_uint16, crop) routine(CG_SSM_GetBandImage_uint16, mosaicBandImage) \
  routine(CG_SST_GetBandImage_uint16, tileBandImage) routine(CG_LS_GetBandImageStrip_uint16, bandStrip) \
  routine(CG_LS_StitchBandImageStrip_uint16, stitchStrip) routine(CG_LS_StitchBandImage_uint16, stitchImage) \
  routine(CG_LS_GetStitchedSlice_BSQ_uint16, stitchedSlice) routine(RC_CorrectBias_float, correctBias) \
  routine(RC_CorrectBias_uint16, correctBias) routine(RC_ComputeCorrectionCoefficients_float, correctionCoefficients) \
  routine(RC_ComputeCorrectionCoefficients_uint16, correctionCoefficients) \
  routine(RC_ComputeReflectance_float, computeReflectance<float>) \
  routine(RC_ComputeReflectance_uint16, (computeReflectance<Short, Short>)) \
  routine(SC_ApplySpectralCorrection_float, correctSpectrum) \
  routine(SC_ApplySpectralCorrection_uint16, correctSpectrum) \
  routine(SC_ApplySpectralCorrection_BIP_float, correctRun) routine(SC_ApplySpectralCorrection_BIP_uint16, correctRun) \
  routine(SC_ApplySpectralCorrection_BSQ_float, correctCube) \
  routine(SC_ApplySpectralCorrection_BSQ_uint16, correctCube) routine(DM_ComputeFilterPosition, filterPosition) \
  routine(DM_ComputeTargetPositionRelativeToFilterPosition, offsetToTarget) \
  routine(DM_ComputeCoefficientsBilinear, bilinearWeights) routine(DM_ApplyDemosaicingBilinear_dbl, demosaic) \
  routine(DM_ApplyDemosaicingBilinear_uint16, demosaic) routine(MF_Median1D_9_uint16, median9) \
  routine(MF_Median1D_9_float, median9) routine(MF_Median1D_25_uint16, median25) \
  routine(MF_Median1D_25_float, median25) routine(MF_Median1D_uint16, median) routine(MF_Median1D_float, median) \
  routine(MF_Median2D_3x3_uint16, (median2D<Short, 1>)) routine(MF_Median2D_3x3_float, (median2D<float, 1>)) \
  routine(MF_Median2D_5x5_uint16, (median2D<Short, 2>)) routine(MF_Median2D_5x5_float, (median2D<float, 2>)) \
  routine(Subtract_float, subtract) routine(Add_float, add) routine(Mix_float, mix) routine(Crop_float, crop) \
  routine(ApplyKernel7x7_float, applyKernel) routine(RGBToYCbCr_float, rgbToYCbCr) \
  routine(YCbCrToRGB_float, ycbcrToRGB) routine(RGBX_ComputeBand_R_float, computeRedOrBlueBand<1>) \
  routine(RGBX_ComputeBand_G_float, computeGreenBand) routine(RGBX_ComputeBand_B_float, computeRedOrBlueBand<0>) \
  routine(RGBX_ComputeBand_X_float, computeFourthBand) routine(RGBX_DemosaicFrame_float, demosaicFrame) \
  routine(RGBX_ComputeNewWLI_float, computeNewWLI)
// clang-format on

namespace korva::plain {

#define KORVA_DEFINITION(name, definition) extern decltype(KORVA_Ref_##name)* const name;
KORVA_PROCESSING_ROUTINES(KORVA_DEFINITION)
#undef KORVA_DEFINITION

}  // namespace korva::plain

#endif
