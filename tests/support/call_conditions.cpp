#include "support/call_conditions.h"

#include <cfenv>
#include <cstdint>
#include <cstdlib>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#if !defined(__has_feature)
#define __has_feature(feature) 0
#endif
#if !defined(__GLIBC__) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define KORVA_ALLOCATIONS_ARE_COUNTED 0
#else
#define KORVA_ALLOCATIONS_ARE_COUNTED 1
#endif

namespace korva::test {
namespace {

struct Allocations {
  long count, live, failingCount;
};
thread_local constinit Allocations allocations{};

[[maybe_unused]] bool isAllowed() { return ++allocations.count != allocations.failingCount; }

[[maybe_unused]] void* counted(void* block) {
  if (block != nullptr) ++allocations.live;
  return block;
}

}  // namespace

FloatingPointMode floatingPointMode() {
  FloatingPointMode mode{0, std::fegetround()};
#if defined(__x86_64__)
  constexpr unsigned kStickyFlags = 0x3f;
  mode.control = _mm_getcsr() & ~kStickyFlags;
#elif defined(__aarch64__)
  asm volatile("mrs %0, fpcr" : "=r"(mode.control));
#endif
  return mode;
}

bool allocationsAreCounted() { return KORVA_ALLOCATIONS_ARE_COUNTED; }
long allocationCount() { return allocations.count; }
long liveAllocationCount() { return allocations.live; }

void failAllocation(long ordinal) { allocations.failingCount = allocations.count + ordinal; }
void failNoAllocation() { allocations.failingCount = 0; }

namespace {

constexpr std::size_t kPaintedStack = std::size_t{1} << 19;
constexpr unsigned char kPaint = 0x5A;
thread_local std::uintptr_t paintedStack = 0;

}  // namespace

[[gnu::noinline]] void paintStack() {
  unsigned char volatile unused[kPaintedStack];
  for (unsigned char volatile& byte : unused) byte = kPaint;
  paintedStack = reinterpret_cast<std::uintptr_t>(unused);
}

// The stack grows downwards, so what is intact lies at the start.
std::size_t overwrittenStack() {
  auto const* const painted = reinterpret_cast<unsigned char const volatile*>(paintedStack);
  std::size_t intact = 0;
  while (intact < kPaintedStack && painted[intact] == kPaint) ++intact;
  return kPaintedStack - intact;
}

}  // namespace korva::test

#if KORVA_ALLOCATIONS_ARE_COUNTED
extern "C" {
void* __libc_malloc(std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) {
  return korva::test::isAllowed() ? korva::test::counted(__libc_malloc(size)) : nullptr;
}
void free(void* block) {
  if (block != nullptr) --korva::test::allocations.live;
  __libc_free(block);
}
}
#endif

#if !KORVA_ALLOCATIONS_ARE_COUNTED
// Sizes that cannot be had are among the tests, so the sanitizers' allocators answer with null as the C library does.
extern "C" {
char const* __asan_default_options() { return "allocator_may_return_null=1"; }
char const* __tsan_default_options() { return "allocator_may_return_null=1"; }
char const* __msan_default_options() { return "allocator_may_return_null=1"; }
}
#endif
