// Refuses builds whose arithmetic would change result bits. Included by every source file; holds no code.
#pragma once

#include <cfloat>
#include <climits>
#include <limits>

#if defined(__FAST_MATH__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__)
#error "Every operation is rounded in the stated order: build without -ffast-math (CMake's target does)."
#endif

// clang can be told here. g++ cannot, and fuses by default where the processor can: its builds say on the command line
// that they do not, and that they know.
#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#elif !defined(KORVA_FP_CONTRACT_OFF)
#error "Build with -ffp-contract=off -DKORVA_FP_CONTRACT_OFF (CMake's target does)."
#endif

static_assert(FLT_EVAL_METHOD == 0, "float and double operations must round to their own type (no x87)");
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);
static_assert(sizeof(unsigned long) == 8, "sizes are unsigned 64-bit");
static_assert(sizeof(unsigned short) == 2 && sizeof(unsigned int) == 4);
