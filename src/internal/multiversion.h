// One kernel body, compiled for the instruction sets that pay: the only place that knows processor features.
//
// A kernel is a struct with a static KORVA_INLINE function `run`. korva::dispatch calls a copy of it: the baseline one,
// or on x86-64 one compiled for AVX2 or AVX-512 where the processor has it. The AVX2 target leaves out FMA, so nothing
// can be fused in that copy whatever flags the build gets. AVX-512 cannot be had without: that copy relies on
// strict_float.h. There is no state: the checks read what the compiler's start-up code stored about the processor, a
// load and a test per call.
//
// A kernel that is a template over the bytes of a vector register gets those of its copy; one that is not leaves the
// width to the compiler.
#pragma once

#include <type_traits>

#define KORVA_INLINE [[gnu::always_inline]] inline

// Stands before a loop whose iterations touch only what no other iteration touches: outputs are the inputs' own arrays
// or disjoint from them. So no check for overlap is made at run time, and in-place calls are as fast as others.
#if defined(__clang__)
#define KORVA_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define KORVA_INDEPENDENT _Pragma("GCC ivdep")
#endif

// The copies beside the baseline: 0 none, 1 AVX2, 2 AVX2 and AVX-512.
#if !defined(__x86_64__)
#undef KORVA_SIMD_LEVEL
#define KORVA_SIMD_LEVEL 0
#elif !defined(KORVA_SIMD_LEVEL)
#define KORVA_SIMD_LEVEL 2
#endif

namespace korva {

// Not inlined where it is the only copy either: a caller of two kernels would hold the stack of both.
template <typename Kernel, typename... Arguments>
[[gnu::noinline]] void runForBaseline(Arguments... arguments) {
  Kernel::run(arguments...);
}

#if KORVA_SIMD_LEVEL > 0

// Processors of the first generation have no VBMI2: they slow down for wide vectors.
template <typename Kernel, typename... Arguments>
[[gnu::target("avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi2"), gnu::noinline]] void runForAvx512(
    Arguments... arguments) {
  Kernel::run(arguments...);
}

KORVA_INLINE bool processorHasAvx512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
         __builtin_cpu_supports("avx512vbmi2");
}

template <typename Kernel, typename... Arguments>
[[gnu::target("avx2"), gnu::noinline]] void runForAvx2(Arguments... arguments) {
  Kernel::run(arguments...);
}

// Without a kernel for AVX-512, processors that have it run the one for AVX2.
template <typename BaselineKernel, typename Avx2Kernel, typename Avx512Kernel, typename... Arguments>
KORVA_INLINE void choose(Arguments... arguments) {
  if constexpr (KORVA_SIMD_LEVEL > 1 && !std::is_void_v<Avx512Kernel>) {
    if (processorHasAvx512()) return runForAvx512<Avx512Kernel>(arguments...);
  }
  if (__builtin_cpu_supports("avx2")) return runForAvx2<Avx2Kernel>(arguments...);
  runForBaseline<BaselineKernel>(arguments...);
}

#else

template <typename BaselineKernel, typename Avx2Kernel, typename Avx512Kernel, typename... Arguments>
KORVA_INLINE void choose(Arguments... arguments) {
  runForBaseline<BaselineKernel>(arguments...);
}

#endif

template <typename Kernel, typename... Arguments>
KORVA_INLINE void dispatch(Arguments... arguments) {
  choose<Kernel, Kernel, Kernel>(arguments...);
}

template <template <int vectorBytes> typename Kernel, typename... Arguments>
KORVA_INLINE void dispatch(Arguments... arguments) {
  choose<Kernel<16>, Kernel<32>, Kernel<64>>(arguments...);
}

// For kernels that gain nothing from vectors of 64 bytes.
template <template <int vectorBytes> typename Kernel, typename... Arguments>
KORVA_INLINE void dispatchUpTo32(Arguments... arguments) {
  choose<Kernel<16>, Kernel<32>, void>(arguments...);
}

}  // namespace korva
