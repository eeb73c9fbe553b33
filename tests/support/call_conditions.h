// What a call must leave alone besides memory: the heap and the processor's floating-point mode.
#ifndef KORVA_TESTS_SUPPORT_CALL_CONDITIONS_H
#define KORVA_TESTS_SUPPORT_CALL_CONDITIONS_H

#include <cstddef>

namespace korva::test {

// Rounding mode and, where the processor has such a word, denormal handling and exception masks. Sticky exception
// flags are results of arithmetic, not part of the mode.
struct FloatingPointMode {
  unsigned long control;
  int rounding;
  bool operator==(FloatingPointMode const&) const = default;
};
FloatingPointMode floatingPointMode();

// The test program replaces the C library's allocation functions, for the library too. Counts are those of the calling
// thread. Sanitizers bring an allocator of their own; then nothing is counted and allocations cannot be made to fail.
bool allocationsAreCounted();
long allocationCount();
long liveAllocationCount();

// Makes the allocation fail that is the ordinal-th from now on, counted from 1, and only that one.
void failAllocation(long ordinal);
void failNoAllocation();

// Paints the unused stack below the caller; later tells how many of its bytes calls have overwritten since.
void paintStack();
std::size_t overwrittenStack();

}  // namespace korva::test

#endif
