// Conversions between samples and the double in which sums are formed.
#pragma once

#include <cstdint>
#include <type_traits>

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

}  // namespace korva
