/*
 * The literal definition of every processing routine: one sample at a time, each operation in the stated order and
 * precision, nothing shared between samples. Tests compare every build of the library with it, bit for bit, and
 * benchmarks measure against it.
 *
 * A definition bears the exported name without its KORVA_Ref_ and has exactly the routine's type.
 */
#ifndef KORVA_TESTS_SUPPORT_PLAIN_DEFINITIONS_H
#define KORVA_TESTS_SUPPORT_PLAIN_DEFINITIONS_H

#include "korva_reference_api.h"

// All processing routines, by the part of their names behind KORVA_Ref_.
// clang-format off
#define KORVA_PROCESSING_ROUTINES(routine) \
  routine(CG_CropImage_uint16) routine(CG_SSM_GetBandImage_uint16) routine(CG_SST_GetBandImage_uint16) \
  routine(CG_LS_GetBandImageStrip_uint16) routine(CG_LS_StitchBandImageStrip_uint16) \
  routine(CG_LS_StitchBandImage_uint16) routine(CG_LS_GetStitchedSlice_BSQ_uint16) \
  routine(RC_CorrectBias_float) routine(RC_CorrectBias_uint16) routine(RC_ComputeCorrectionCoefficients_float) \
  routine(RC_ComputeCorrectionCoefficients_uint16) routine(RC_ComputeReflectance_float) \
  routine(RC_ComputeReflectance_uint16) \
  routine(SC_ApplySpectralCorrection_float) routine(SC_ApplySpectralCorrection_uint16) \
  routine(SC_ApplySpectralCorrection_BIP_float) routine(SC_ApplySpectralCorrection_BIP_uint16) \
  routine(SC_ApplySpectralCorrection_BSQ_float) routine(SC_ApplySpectralCorrection_BSQ_uint16) \
  routine(DM_ComputeFilterPosition) routine(DM_ComputeTargetPositionRelativeToFilterPosition) \
  routine(DM_ComputeCoefficientsBilinear) routine(DM_ApplyDemosaicingBilinear_dbl) \
  routine(DM_ApplyDemosaicingBilinear_uint16) \
  routine(MF_Median1D_9_uint16) routine(MF_Median1D_9_float) routine(MF_Median1D_25_uint16) \
  routine(MF_Median1D_25_float) routine(MF_Median1D_uint16) routine(MF_Median1D_float) \
  routine(MF_Median2D_3x3_uint16) routine(MF_Median2D_3x3_float) routine(MF_Median2D_5x5_uint16) \
  routine(MF_Median2D_5x5_float) \
  routine(Subtract_float) routine(Add_float) routine(Mix_float) routine(Crop_float) routine(ApplyKernel7x7_float) \
  routine(RGBToYCbCr_float) routine(YCbCrToRGB_float) \
  routine(RGBX_ComputeBand_R_float) routine(RGBX_ComputeBand_G_float) routine(RGBX_ComputeBand_B_float) \
  routine(RGBX_ComputeBand_X_float) routine(RGBX_DemosaicFrame_float) routine(RGBX_ComputeNewWLI_float)
// clang-format on

namespace korva::plain {

// Adds 0.5, truncates to a signed 32-bit integer and keeps its low 16 bits; 0 for NaN and outside that range.
unsigned short toUint16(double value);

#define KORVA_DEFINITION(name) decltype(KORVA_Ref_##name) name;
KORVA_PROCESSING_ROUTINES(KORVA_DEFINITION)
#undef KORVA_DEFINITION

}  // namespace korva::plain

#endif
