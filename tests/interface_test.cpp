// The types of the interface, which do not compile when they are wrong, and what the library shows when it is loaded.
// The plain definitions state those of the processing routines.
#include <gtest/gtest.h>

#include <cfenv>
#include <cstddef>
#include <type_traits>

#include "korva_reference_api.h"
#include "support/call_conditions.h"

namespace korva::test {
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
static_assert(is<void(Short****, Size, Size, Size, Size, Size), KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16>);
static_assert(is<void(void*, char const*, char const*, Size, Size), KORVA_Ref_ReadRawDataFromDisk>);
static_assert(is<void(void const*, char const*, char const*, Size, Size), KORVA_Ref_WriteRawDataToDisk>);
static_assert(is<void(NewWLIBuffers*, Size, Size), KORVA_Ref_RGBX_AllocateNewWLIBuffers_float>);
static_assert(is<void(NewWLIBuffers), KORVA_Ref_RGBX_FreeNewWLIBuffers_float>);

// The record is passed by value: its four pointers, in this order, are part of the interface.
struct FourPointers {
  float **xResidual, **yFiltered, **yResidual, ***yccImage;
};
static_assert(std::is_trivial_v<NewWLIBuffers> && sizeof(NewWLIBuffers) == sizeof(FourPointers));
#define KORVA_SAME_FIELD(field)                                                                          \
  static_assert(std::is_same_v<decltype(NewWLIBuffers::field), decltype(FourPointers::field)> && \
                offsetof(NewWLIBuffers, field) == offsetof(FourPointers, field))
KORVA_SAME_FIELD(xResidual);
KORVA_SAME_FIELD(yFiltered);
KORVA_SAME_FIELD(yResidual);
KORVA_SAME_FIELD(yccImage);

// A library with fast-math at link time would change it on its way in.
TEST(Loading, LeavesTheFloatingPointModeAtItsDefault) {
  FloatingPointMode const found = floatingPointMode();
  std::fesetenv(FE_DFL_ENV);
  EXPECT_EQ(found, floatingPointMode());
}

TEST(Processor, HasTheInstructionsOfTheWidestCopy) {
#if defined(__x86_64__)
  if (!__builtin_cpu_supports("avx512vbmi2"))
    GTEST_SKIP() << "Without AVX-512 and VBMI2 the library runs its AVX2 copies: they are tested twice, the widest never.";
#endif
}

}  // namespace
}  // namespace korva::test
