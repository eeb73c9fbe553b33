// Fetching ahead, for kernels that read a piece of each row or plane in turn: each lies in another page, where the
// processor does not foresee by itself what comes next.
#pragma once

#include <cstddef>

#include "multiversion.h"

namespace korva {

// Fetches the cache lines of `count` samples into the first cache level.
template <bool forWriting, typename Sample>
KORVA_INLINE void prefetchRow(Sample const* row, std::size_t count) {
  constexpr std::size_t kLine = 64 / sizeof(Sample);
  for (std::size_t k = 0; k < count; k += kLine) __builtin_prefetch(row + k, forWriting ? 1 : 0);
}

}  // namespace korva
