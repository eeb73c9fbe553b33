// One kernel body, compiled for the instruction sets that pay: the only place that knows processor features.
//
// A kernel is a struct with a static KORVA_INLINE function `run`. korva::dispatch calls a copy of it: the baseline one,
// or on x86-64 one compiled for AVX2 where the processor has it. That target leaves out FMA, so nothing can be fused in
// the copy whatever flags the build gets. There is no state: the check reads what the compiler's start-up code stored
// about the processor, a load and a test per call.
//
// A kernel that is a template over the bytes of a vector register gets those of its copy; one that is not leaves the
// width to the compiler.
#pragma once

#define KORVA_INLINE [[gnu::always_inline]] inline

// Stands before a loop whose iterations touch only what no other iteration touches: outputs are the inputs' own arrays
// or disjoint from them. So no check for overlap is made at run time, and in-place calls are as fast as others.
#if defined(__clang__)
#define KORVA_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define KORVA_INDEPENDENT _Pragma("GCC ivdep")
#endif

namespace korva {

#if defined(__x86_64__) && !defined(KORVA_BASELINE_ONLY)

template <typename Kernel, typename... Arguments>
[[gnu::target("avx2"), gnu::noinline]] void runForAvx2(Arguments... arguments) {
  Kernel::run(arguments...);
}

template <typename Kernel, typename... Arguments>
[[gnu::noinline]] void runForBaseline(Arguments... arguments) {
  Kernel::run(arguments...);
}

template <typename BaselineKernel, typename Avx2Kernel, typename... Arguments>
KORVA_INLINE void choose(Arguments... arguments) {
  if (__builtin_cpu_supports("avx2")) {
    runForAvx2<Avx2Kernel>(arguments...);
  } else {
    runForBaseline<BaselineKernel>(arguments...);
  }
}

#else

template <typename BaselineKernel, typename Avx2Kernel, typename... Arguments>
KORVA_INLINE void choose(Arguments... arguments) {
  BaselineKernel::run(arguments...);
}

#endif

template <typename Kernel, typename... Arguments>
KORVA_INLINE void dispatch(Arguments... arguments) {
  choose<Kernel, Kernel>(arguments...);
}

template <template <int vectorBytes> typename Kernel, typename... Arguments>
KORVA_INLINE void dispatch(Arguments... arguments) {
  choose<Kernel<16>, Kernel<32>>(arguments...);
}

}  // namespace korva
