// The record that crosses the interface, and what the library shows when it is loaded. The types of the routines are
// those that the plain definitions and the other tests give and take.
#include <gtest/gtest.h>

#include <cfenv>
#include <cstddef>
#include <type_traits>

#include "korva_reference_api.h"
#include "support/call_conditions.h"

namespace korva::test {
namespace {

// The record is passed by value: its four pointers, in this order, are part of the interface.
static_assert(std::is_trivial_v<NewWLIBuffers> && sizeof(NewWLIBuffers) == 4 * sizeof(void*));
static_assert(offsetof(NewWLIBuffers, xResidual) == 0 && offsetof(NewWLIBuffers, yFiltered) == sizeof(void*) &&
              offsetof(NewWLIBuffers, yResidual) == 2 * sizeof(void*));
static_assert(std::is_same_v<decltype(NewWLIBuffers::yccImage), float***>);

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
