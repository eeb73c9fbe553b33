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
  bool const representable = shifted > -2147483649.0 && shifted < 2147483648.0;
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
    if constexpr (lanes == 4) {
      // Through an integer: a vector of which half is copied would be assembled in memory.
      long long bits;
      __builtin_memcpy(&bits, source, sizeof bits);
      auto const samples = reinterpret_cast<Vector<short, 8>>(Vector<long long, 2>{bits, 0});
      return __builtin_ia32_cvtdq2pd256(__builtin_ia32_pmovzxwd128(samples));
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
  for (; k + kLanes <= count; k += kLanes) storeLanes(target + k, loadWidened<Doubles>(source + k));
  for (; k < count; ++k) target[k] = static_cast<double>(source[k]);
}

template <typename Doubles, typename Sample>
KORVA_INLINE void storeConverted(Sample* target, Doubles values) {
  constexpr int lanes = sizeof(Doubles) / sizeof(double);
  if constexpr (std::is_same_v<Sample, double>) {
    storeLanes(target, values);
  } else if constexpr (std::is_same_v<Sample, float>) {
    storeLanes(target, __builtin_convertvector(values, Vector<float, lanes>));
  } else {
    Doubles const shifted = values + 0.5;
#if KORVA_X86_BUILTINS
    if constexpr (lanes == 4) {
      // The instruction gives 0x80000000 out of range and for NaN, whose low 16 bits are the 0 that is wanted.
      Vector<int, 4> const low16 = __builtin_ia32_cvttpd2dq256(shifted) & 0xffff;
      auto const packed = reinterpret_cast<Vector<long long, 2>>(__builtin_ia32_packusdw128(low16, low16));
      long long const bits = packed[0];
      __builtin_memcpy(target, &bits, sizeof bits);
      return;
    }
#endif
    auto const representable = (shifted > -2147483649.0) & (shifted < 2147483648.0);
    auto const integers = __builtin_convertvector(representable ? shifted : Doubles{}, Vector<int, lanes>);
    storeLanes(target, __builtin_convertvector(integers, Vector<unsigned short, lanes>));
  }
}

}  // namespace korva
