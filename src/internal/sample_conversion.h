// Conversions between samples and the double in which sums are formed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "lanes.h"
#include "multiversion.h"

namespace korva {

// Adds 0.5, truncates toward zero to a signed 32-bit integer and keeps its low 16 bits. What lies outside the 32-bit
// range, NaN included, gives 0. A plain cast would leave those to the processor: x86 happens to give the wanted 0, ARM
// saturates. The comparison selects instead of branching, so that loops over it vectorise.
KORVA_INLINE unsigned short toUint16(double value) {
  double const shifted = value + 0.5;
  bool const representable = __builtin_fabs(shifted) < 2147483648.0;
  return static_cast<unsigned short>(static_cast<std::int32_t>(representable ? shifted : 0.0));
}

// Rounds a double result to the sample type that stores it.
template <typename Sample>
KORVA_INLINE Sample toSample(double value) {
  if constexpr (std::is_same_v<Sample, unsigned short>) {
    return toUint16(value);
  } else {
    return static_cast<Sample>(value);
  }
}

// The same conversions for vectors of double: exact widening of neighbouring samples, of one vector or of a whole row,
// and rounding to neighbouring ones.

template <typename Doubles, typename Sample>
KORVA_INLINE Doubles loadWidened(Sample const* source) {
  constexpr int lanes = sizeof(Doubles) / sizeof(double);
  if constexpr (std::is_same_v<Sample, double>) {
    return loadLanes<Doubles>(source);
  } else if constexpr (std::is_same_v<Sample, float>) {
    return widenLanes<Doubles>(loadLanes<Vector<float, lanes>>(source));
  } else {
#if KORVA_X86_BUILTINS
    if constexpr (lanes == 8) {
      auto const samples = __builtin_ia32_pmovzxwd256(loadLanes<Vector<short, 8>>(source));
      return __builtin_ia32_cvtdq2pd512_mask(samples, Doubles{}, -1);
    }
    if constexpr (lanes == 4) {
      // Through an integer: a vector of which half is copied would be assembled in memory.
      long long bits;
      __builtin_memcpy(&bits, source, sizeof bits);
      auto const samples = reinterpret_cast<Vector<short, 8>>(Vector<long long, 2>{bits, 0});
      return __builtin_ia32_cvtdq2pd256(__builtin_ia32_pmovzxwd128(samples));
    }
#endif
#if KORVA_ARM_INTRINSICS
    if constexpr (lanes == 2) {
      unsigned bits;
      __builtin_memcpy(&bits, source, sizeof bits);
      auto const samples = vmovl_u16(vreinterpret_u16_u32(vdup_n_u32(bits)));
      return vcvtq_f64_u64(vmovl_u32(vget_low_u32(samples)));
    }
#endif
    return __builtin_convertvector(
        __builtin_convertvector(loadLanes<Vector<unsigned short, lanes>>(source), Vector<int, lanes>), Doubles);
  }
}

template <typename Doubles, typename Sample>
KORVA_INLINE void widenRow(double* target, Sample const* source, std::size_t count) {
  constexpr std::size_t kLanes = sizeof(Doubles) / sizeof(double);
  std::size_t k = 0;
  // Two at a time, the compilers' own vectors are faster.
  for (; kLanes > 2 && k + kLanes <= count; k += kLanes) storeLanes(target + k, loadWidened<Doubles>(source + k));
  for (; k < count; ++k) target[k] = static_cast<double>(source[k]);
}

// Truncates toward zero. What lies outside the 32-bit range, NaN included, gives lanes whose low 16 bits are 0.
template <typename Doubles>
KORVA_INLINE auto truncateLanes(Doubles values) {
  constexpr int lanes = sizeof(Doubles) / sizeof(double);
#if KORVA_X86_BUILTINS
  // The instruction gives 0x80000000 there.
  if constexpr (lanes == 4) return Vector<int, 4>(__builtin_ia32_cvttpd2dq256(values));
  if constexpr (lanes == 8) {
    return Vector<int, 8>(__builtin_ia32_cvttpd2dq512_mask(values, Vector<int, 8>{}, -1, kThisRounding));
  }
#endif
#if defined(__clang__) && defined(__x86_64__)
  // clang knows neither builtins of AVX nor registers of 32 bytes in functions that are only inlined into such for AVX.
  // From memory the instruction still takes 0.9 of the time of a comparison before it.
  if constexpr (lanes == 4) {
    Vector<int, 4> truncated;
    asm("vcvttpd2dqy %1, %0" : "=x"(truncated) : "m"(values));
    return truncated;
  }
#endif
  // One comparison does, since the bits of -2147483648 are 0 too.
  using Bits = decltype(values < values);
  Bits const bits = reinterpret_cast<Bits>(values);
  auto const representable = reinterpret_cast<Doubles>(bits & 0x7fffffffffffffff) < 2147483648.0;
  auto const inRange = reinterpret_cast<Doubles>(bits & representable);
#if KORVA_ARM_INTRINSICS
  if constexpr (lanes == 2) return Vector<int, 2>(vmovn_s64(vcvtq_s64_f64(inRange)));
#endif
  return __builtin_convertvector(inRange, Vector<int, lanes>);
}

// The low 16 bits of two vectors.
KORVA_INLINE Vector<unsigned short, 8> packLanes(Vector<int, 4> first, Vector<int, 4> second) {
  using Halves = Vector<unsigned short, 8>;
  return shuffleLanes<0, 2, 4, 6, 8, 10, 12, 14>(reinterpret_cast<Halves>(first), reinterpret_cast<Halves>(second));
}

template <typename Doubles, typename Sample>
KORVA_INLINE void storeConverted(Sample* target, Doubles values) {
  constexpr int lanes = sizeof(Doubles) / sizeof(double);
  if constexpr (std::is_same_v<Sample, double>) {
    storeLanes(target, values);
  } else if constexpr (std::is_same_v<Sample, float>) {
    storeLanes(target, narrowLanes<Vector<float, lanes>>(values));
  } else {
    auto const truncated = truncateLanes(values + 0.5);
#if KORVA_X86_BUILTINS
    if constexpr (lanes == 8) {
      return storeLanes(target, __builtin_ia32_pmovdw256_mask(truncated, Vector<short, 8>{}, -1));
    }
    if constexpr (lanes == 4) {
      auto const packed = reinterpret_cast<Vector<long long, 2>>(packLanes(truncated, truncated));
      long long const bits = packed[0];
      __builtin_memcpy(target, &bits, sizeof bits);
      return;
    }
#endif
    storeLanes(target, __builtin_convertvector(truncated, Vector<unsigned short, lanes>));
  }
}

// Two vectors of neighbouring values at once: for 32-byte vectors, packing both takes as long as one.
template <typename Doubles, typename Sample>
KORVA_INLINE void storeConverted(Sample* target, Doubles first, Doubles second) {
  constexpr int lanes = sizeof(Doubles) / sizeof(double);
  if constexpr (std::is_same_v<Sample, unsigned short> && lanes == 4) {
    storeLanes(target, packLanes(truncateLanes(first + 0.5), truncateLanes(second + 0.5)));
  } else {
    storeConverted(target, first);
    storeConverted(target + lanes, second);
  }
}

}  // namespace korva
