// Fixed-width vectors for kernels whose plain loop does not reach the speed. They are for functions that are inlined
// into a kernel copy: 32 bytes wide in the AVX2 copy, 16 in the baseline. Each lane computes what the scalar expression
// does; where g++ needs an x86 builtin to find the one instruction, the plain expression stands beside it.
#pragma once

#include <cstddef>
#include <type_traits>

#include "multiversion.h"

#if defined(__x86_64__) && !defined(__clang__)
#define KORVA_X86_BUILTINS 1
#include <immintrin.h>  // declares the builtins of all instruction sets
#else
#define KORVA_X86_BUILTINS 0
#endif

// g++ 12 converts the lanes of vectors of two one by one on ARM, unless it is told the instruction.
#if defined(__aarch64__) && !defined(__clang__)
#define KORVA_ARM_INTRINSICS 1
#include <arm_neon.h>
#else
#define KORVA_ARM_INTRINSICS 0
#endif

namespace korva {

#if KORVA_X86_BUILTINS
constexpr int kThisRounding = 4;  // tells the builtins of AVX-512 to take the processor's own rounding
#endif

// A vector of `count` lanes: operators work lane by lane, and c ? a : b selects lane by lane.
template <typename Lane, int count>
using Vector [[gnu::vector_size(sizeof(Lane) * count)]] = Lane;

// Loads lanes from an address of any alignment.
template <typename V, typename Lane>
KORVA_INLINE V loadLanes(Lane const* source) {
  V lanes;
  __builtin_memcpy(&lanes, source, sizeof lanes);
  return lanes;
}

// Stores lanes to an address of any alignment.
template <typename V, typename Lane>
KORVA_INLINE void storeLanes(Lane* target, V lanes) {
  __builtin_memcpy(target, &lanes, sizeof lanes);
}

// A vector with one value in all lanes; of a scalar type, the value. Subtracting 0 keeps every bit, -0.0 included, and
// costs nothing.
template <typename V, typename Lane>
KORVA_INLINE V broadcast(Lane value) {
  return value - V{};
}

// a < b ? a : b, so b where the two compare equal or a NaN is among them. The x86 instruction is defined the same way.
template <typename V>
KORVA_INLINE V lesser(V a, V b) {
#if KORVA_X86_BUILTINS
  if constexpr (std::is_same_v<V, Vector<float, 8>>) return __builtin_ia32_minps256(a, b);
  if constexpr (std::is_same_v<V, Vector<float, 4>>) return __builtin_ia32_minps(a, b);
  if constexpr (std::is_same_v<V, Vector<double, 4>>) return __builtin_ia32_minpd256(a, b);
  if constexpr (std::is_same_v<V, Vector<double, 8>>) return __builtin_ia32_minpd512_mask(a, b, a, -1, kThisRounding);
  if constexpr (std::is_same_v<V, Vector<float, 16>>) return __builtin_ia32_minps512_mask(a, b, a, -1, kThisRounding);
#endif
  return a < b ? a : b;
}

// a > b ? a : b, so b where the two compare equal or a NaN is among them.
template <typename V>
KORVA_INLINE V greater(V a, V b) {
#if KORVA_X86_BUILTINS
  if constexpr (std::is_same_v<V, Vector<float, 8>>) return __builtin_ia32_maxps256(a, b);
  if constexpr (std::is_same_v<V, Vector<float, 4>>) return __builtin_ia32_maxps(a, b);
  if constexpr (std::is_same_v<V, Vector<double, 4>>) return __builtin_ia32_maxpd256(a, b);
  if constexpr (std::is_same_v<V, Vector<double, 8>>) return __builtin_ia32_maxpd512_mask(a, b, a, -1, kThisRounding);
  if constexpr (std::is_same_v<V, Vector<float, 16>>) return __builtin_ia32_maxps512_mask(a, b, a, -1, kThisRounding);
#endif
  return a > b ? a : b;
}

#if KORVA_X86_BUILTINS && !defined(__SSE4_1__)
// The baseline lacks the instruction, but has the difference that does not go below 0. greater() takes the same one.
KORVA_INLINE Vector<unsigned short, 8> lesser(Vector<unsigned short, 8> a, Vector<unsigned short, 8> b) {
  using Signed = Vector<short, 8>;
  auto const excess = __builtin_ia32_psubusw128(reinterpret_cast<Signed>(b), reinterpret_cast<Signed>(a));
  return b - reinterpret_cast<Vector<unsigned short, 8>>(excess);
}
#endif

// Whether any lane of an integer vector is set, as those of a comparison that holds: all its bits are.
template <typename V>
KORVA_INLINE bool anyLane(V lanes) {
#if KORVA_X86_BUILTINS
  if constexpr (sizeof(V) == 64) {
    auto const words = reinterpret_cast<Vector<int, 16>>(lanes);
    return __builtin_ia32_ptestmd512(words, words, -1) != 0;
  }
  if constexpr (sizeof(V) == 32) return __builtin_ia32_pmovmskb256(reinterpret_cast<Vector<char, 32>>(lanes)) != 0;
  if constexpr (sizeof(V) == 16) return __builtin_ia32_pmovmskb128(reinterpret_cast<Vector<char, 16>>(lanes)) != 0;
#endif
  auto const words = reinterpret_cast<Vector<long long, sizeof(V) / sizeof(long long)>>(lanes);
  long long any = 0;
  for (std::size_t i = 0; i < sizeof(V) / sizeof(long long); ++i) any |= words[i];
  return any != 0;
}

// Makes the compiler hold lanes that several instructions use in a register, where g++ would load them for each anew:
// kernels with many multiplications per sample have no load to spare.
template <typename V>
KORVA_INLINE void keepInRegister(V& lanes) {
#if KORVA_X86_BUILTINS
  asm("" : "+v"(lanes));
#else
  (void)lanes;
#endif
}

// Widens float lanes, or one float, to double, exactly.
template <typename Doubles, typename Floats>
KORVA_INLINE Doubles widenLanes(Floats lanes) {
  if constexpr (std::is_same_v<Doubles, double>) {
    return static_cast<double>(lanes);
  } else {
#if KORVA_X86_BUILTINS
    if constexpr (std::is_same_v<Doubles, Vector<double, 4>>) return __builtin_ia32_cvtps2pd256(lanes);
    if constexpr (std::is_same_v<Doubles, Vector<double, 8>>) {
      return __builtin_ia32_cvtps2pd512_mask(lanes, Doubles{}, -1, kThisRounding);
    }
#endif
#if KORVA_ARM_INTRINSICS
    if constexpr (std::is_same_v<Doubles, Vector<double, 2>>) return vcvt_f64_f32(lanes);
#endif
    return __builtin_convertvector(lanes, Doubles);
  }
}

// Rounds double lanes, or one double, to the nearest float.
template <typename Floats, typename Doubles>
KORVA_INLINE Floats narrowLanes(Doubles lanes) {
  if constexpr (std::is_same_v<Floats, float>) {
    return static_cast<float>(lanes);
  } else {
#if KORVA_X86_BUILTINS
    if constexpr (std::is_same_v<Doubles, Vector<double, 8>>) {
      return __builtin_ia32_cvtpd2ps512_mask(lanes, Floats{}, -1, kThisRounding);
    }
#endif
    return __builtin_convertvector(lanes, Floats);
  }
}

// Lanes of a and b by number, those of b after those of a.
template <int... lane, typename V>
KORVA_INLINE auto shuffleLanes(V a, V b) {
#if __has_builtin(__builtin_shufflevector)
  return __builtin_shufflevector(a, b, lane...);
#else
  // g++ 11 has no builtin for it, but makes the same instructions of most choices.
  using Lane = std::remove_cvref_t<decltype(a[0])>;
  constexpr int kLanes = sizeof(V) / sizeof(Lane);
  return Vector<Lane, sizeof...(lane)>{(lane < kLanes ? a[lane % kLanes] : b[lane % kLanes])...};
#endif
}

}  // namespace korva
