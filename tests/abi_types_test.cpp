// The type of every exported function. A wrong one does not compile, so there is nothing to run.
#include <cstddef>
#include <type_traits>

#include "korva_reference_api.h"

namespace {

using Short = unsigned short;
using Size = unsigned long;
using Count = unsigned int;

// Whether all of the functions have the stated type.
template <class Stated, auto*... functions>
constexpr bool is = (std::is_same_v<Stated, std::remove_pointer_t<decltype(functions)>> && ...);

static_assert(is<void(float***, Size, Size), KORVA_Ref_AllocateArray2D_float>);
static_assert(is<void(Short***, Size, Size), KORVA_Ref_AllocateArray2D_uint16>);
static_assert(is<void(float**), KORVA_Ref_FreeArray2D_float>);
static_assert(is<void(Short**), KORVA_Ref_FreeArray2D_uint16>);
static_assert(is<void(float****, Size, Size, Size), KORVA_Ref_AllocateArray3D_BSQ_float>);
static_assert(is<void(Short****, Size, Size, Size), KORVA_Ref_AllocateArray3D_BSQ_uint16>);
static_assert(is<void(float***), KORVA_Ref_FreeArray3D_BSQ_float>);
static_assert(is<void(Short***), KORVA_Ref_FreeArray3D_BSQ_uint16, KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16>);
static_assert(is<void(void*, char const*, char const*, Size, Size), KORVA_Ref_ReadRawDataFromDisk>);
static_assert(is<void(void const*, char const*, char const*, Size, Size), KORVA_Ref_WriteRawDataToDisk>);
static_assert(is<void(Short**, Short**, Size, Size, Size, Size, Size, Size), KORVA_Ref_CG_CropImage_uint16>);
static_assert(is<void(Short**, Short**, Size, Size, Size, Size, Size), KORVA_Ref_CG_SSM_GetBandImage_uint16,
                 KORVA_Ref_CG_SST_GetBandImage_uint16>);
static_assert(is<void(Short****, Size, Size, Size, Size, Size), KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16>);
static_assert(is<void(Short**, Short**, Size, Size, Size, Size), KORVA_Ref_CG_LS_GetBandImageStrip_uint16>);
static_assert(
    is<void(Short***, Short**, Size, Size, Size, Size, Size, Size, Size), KORVA_Ref_CG_LS_StitchBandImageStrip_uint16>);
static_assert(is<void(Short***, Short**, Size, Size, Size, Size, Size), KORVA_Ref_CG_LS_StitchBandImage_uint16>);
static_assert(is<void(Short***, Short***, Size, Size, Size, Size, Size, Size, Size),
                 KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16>);
static_assert(is<void(float*, float const*, float const*, Size), KORVA_Ref_RC_CorrectBias_float>);
static_assert(is<void(Short*, Short const*, Short const*, Size), KORVA_Ref_RC_CorrectBias_uint16>);
static_assert(
    is<void(double*, float const*, Size, double, double, float), KORVA_Ref_RC_ComputeCorrectionCoefficients_float>);
static_assert(
    is<void(double*, Short const*, Size, double, double, Short), KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16>);
static_assert(
    is<void(float*, float const*, double const*, Size, double, float, float), KORVA_Ref_RC_ComputeReflectance_float>);
static_assert(is<void(Short*, Short const*, double const*, Size, double, Short, Short, Short),
                 KORVA_Ref_RC_ComputeReflectance_uint16>);
static_assert(
    is<void(float*, float const*, double const* const*, Count, Count), KORVA_Ref_SC_ApplySpectralCorrection_float>);
static_assert(
    is<void(Short*, Short const*, double const* const*, Count, Count), KORVA_Ref_SC_ApplySpectralCorrection_uint16>);
static_assert(is<void(float*, float const*, double const* const*, Count, Count, Count),
                 KORVA_Ref_SC_ApplySpectralCorrection_BIP_float>);
static_assert(is<void(Short*, Short const*, double const* const*, Count, Count, Count),
                 KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16>);
static_assert(
    is<void(float* const* const*, double*, float const* const* const*, double const* const*, Count, Count, Count),
       KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float>);
static_assert(
    is<void(Short* const* const*, double*, Short const* const* const*, double const* const*, Count, Count, Count),
       KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16>);
static_assert(is<void(Count*, Count*, Count, Count), KORVA_Ref_DM_ComputeFilterPosition>);
static_assert(is<void(double*, double*, Count, Count, double, double),
                 KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition>);
static_assert(is<void(double*, Count, Count, double, double), KORVA_Ref_DM_ComputeCoefficientsBilinear>);
static_assert(is<void(double*, double const*, Count, Count, double const*, double, double),
                 KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl>);
static_assert(is<void(Short*, Short const*, Count, Count, double const*, double, double),
                 KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16>);
static_assert(is<Short(Short*), KORVA_Ref_MF_Median1D_9_uint16, KORVA_Ref_MF_Median1D_25_uint16>);
static_assert(is<float(float*), KORVA_Ref_MF_Median1D_9_float, KORVA_Ref_MF_Median1D_25_float>);
static_assert(is<Short(Short*, Size), KORVA_Ref_MF_Median1D_uint16>);
static_assert(is<float(float*, Size), KORVA_Ref_MF_Median1D_float>);
static_assert(
    is<void(Short**, Short**, Size*, Size*), KORVA_Ref_MF_Median2D_3x3_uint16, KORVA_Ref_MF_Median2D_5x5_uint16>);
static_assert(
    is<void(float**, float**, Size*, Size*), KORVA_Ref_MF_Median2D_3x3_float, KORVA_Ref_MF_Median2D_5x5_float>);
static_assert(is<void(float**, float**, float**, Size, Size), KORVA_Ref_Subtract_float, KORVA_Ref_Add_float>);
static_assert(is<void(float**, float**, float**, Size, Size, double), KORVA_Ref_Mix_float>);
static_assert(is<void(float**, float**, Size, Size, Size, Size, Size, Size), KORVA_Ref_Crop_float>);
static_assert(is<void(float**, float**, Size, Size, double const*), KORVA_Ref_ApplyKernel7x7_float>);
static_assert(
    is<void(float***, float***, Size, Size, double, double), KORVA_Ref_RGBToYCbCr_float, KORVA_Ref_YCbCrToRGB_float>);
static_assert(
    is<void(float**, float**, Size, Size), KORVA_Ref_RGBX_ComputeBand_R_float, KORVA_Ref_RGBX_ComputeBand_G_float,
       KORVA_Ref_RGBX_ComputeBand_B_float, KORVA_Ref_RGBX_ComputeBand_X_float>);
static_assert(is<void(float***, float**, float**, Size, Size), KORVA_Ref_RGBX_DemosaicFrame_float>);
static_assert(is<void(NewWLIBuffers*, Size, Size), KORVA_Ref_RGBX_AllocateNewWLIBuffers_float>);
static_assert(is<void(NewWLIBuffers), KORVA_Ref_RGBX_FreeNewWLIBuffers_float>);
static_assert(is<void(float***, float***, Size, Size, double const*, NewWLIBuffers, double, double, double),
                 KORVA_Ref_RGBX_ComputeNewWLI_float>);

template <class... Arguments>
constexpr bool overloaded(void (*)(Arguments...)) {
  return true;
}

static_assert(overloaded<float*, float const*, float const*, Size>(KORVA_Ref_RC_CorrectBias));
static_assert(overloaded<Short*, Short const*, Short const*, Size>(KORVA_Ref_RC_CorrectBias));
static_assert(
    overloaded<double*, float const*, Size, double, double, float>(KORVA_Ref_RC_ComputeCorrectionCoefficients));
static_assert(
    overloaded<double*, Short const*, Size, double, double, Short>(KORVA_Ref_RC_ComputeCorrectionCoefficients));
static_assert(
    overloaded<float*, float const*, double const*, Size, double, float, float>(KORVA_Ref_RC_ComputeReflectance));
static_assert(overloaded<Short*, Short const*, double const*, Size, double, Short, Short, Short>(
    KORVA_Ref_RC_ComputeReflectance));
static_assert(overloaded<float* const* const*, double*, float const* const* const*, double const* const*, Count, Count,
                         Count>(KORVA_Ref_SC_ApplySpectralCorrection_BSQ));
static_assert(overloaded<Short* const* const*, double*, Short const* const* const*, double const* const*, Count, Count,
                         Count>(KORVA_Ref_SC_ApplySpectralCorrection_BSQ));

// The record is passed by value: its four pointers, in this order, are part of the interface.
static_assert(std::is_standard_layout_v<NewWLIBuffers> && std::is_trivial_v<NewWLIBuffers>);
static_assert(sizeof(NewWLIBuffers) == 4 * sizeof(void*));
static_assert(std::is_same_v<decltype(NewWLIBuffers::xResidual), float**> && offsetof(NewWLIBuffers, xResidual) == 0);
static_assert(std::is_same_v<decltype(NewWLIBuffers::yFiltered), float**> &&
              offsetof(NewWLIBuffers, yFiltered) == sizeof(void*));
static_assert(std::is_same_v<decltype(NewWLIBuffers::yResidual), float**> &&
              offsetof(NewWLIBuffers, yResidual) == 2 * sizeof(void*));
static_assert(std::is_same_v<decltype(NewWLIBuffers::yccImage), float***> &&
              offsetof(NewWLIBuffers, yccImage) == 3 * sizeof(void*));

}  // namespace
