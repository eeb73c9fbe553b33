// What this machine can do at most: the rates that the rows' limits are computed from.
#include <benchmark/benchmark.h>

#include <cstring>
#include <utility>

#include "harness.h"

#ifdef __AVX2__
#include <immintrin.h>
#endif

namespace korva::benchmarks {
namespace {

constexpr int kSteps = 1000;

struct alignas(64) Line {
  unsigned char bytes[64];
};

#ifdef __AVX2__

// The compiler has to keep the value in a register and may assume nothing about it.
template <class Vector>
void opaque(Vector& value) {
  asm volatile("" : "+x"(value));
}

// Independent chains, enough to hide the latency of every operation, all in registers.
template <class Vector, class Step, int... chain>
void runChains(benchmark::State& state, Vector operand, Step step, double lanes,
               std::integer_sequence<int, chain...> all) {
  Vector chains[] = {(static_cast<void>(chain), operand)...};
  opaque(operand);
  for (auto _ : state)
    for (int k = 0; k < kSteps; ++k)
      ((chains[chain] = step(chains[chain], operand, chain % 2 == 1), opaque(chains[chain])), ...);
  state.counters["operations"] = lanes * static_cast<double>(all.size()) * kSteps;
}

template <class Vector, class Step>
void runChains(benchmark::State& state, Vector operand, Step step, double lanes) {
  runChains(state, operand, step, lanes, std::make_integer_sequence<int, 14>());
}

void doubleOperations(benchmark::State& state) {
  // Half of the chains multiply, half add: the operations of a sum of products that are not fused.
  runChains(
      state, _mm256_set1_pd(1.0),
      [](__m256d a, __m256d b, bool odd) { return odd ? _mm256_mul_pd(a, b) : _mm256_add_pd(a, b); }, 4);
}
void divisions(benchmark::State& state) {
  runChains(
      state, _mm256_set1_pd(1.0), [](__m256d a, __m256d b, bool) { return _mm256_div_pd(a, b); }, 4);
}
void minMaxUint16(benchmark::State& state) {
  runChains(
      state, _mm256_set1_epi16(1),
      [](__m256i a, __m256i b, bool odd) { return odd ? _mm256_min_epu16(a, b) : _mm256_max_epu16(a, b); }, 16);
}
void minMaxFloat(benchmark::State& state) {
  runChains(
      state, _mm256_set1_ps(1.0f),
      [](__m256 a, __m256 b, bool odd) { return odd ? _mm256_min_ps(a, b) : _mm256_max_ps(a, b); }, 8);
}

// In the caches, the C library's copy is not always the fastest one.
void copyByVectors(Line* to, Line const* from, unsigned long lines) {
  for (unsigned long k = 0; k < lines; ++k) {
    __m256i low = _mm256_load_si256(reinterpret_cast<__m256i const*>(from + k));
    __m256i high = _mm256_load_si256(reinterpret_cast<__m256i const*>(from + k) + 1);
    opaque(low);
    opaque(high);
    _mm256_store_si256(reinterpret_cast<__m256i*>(to + k), low);
    _mm256_store_si256(reinterpret_cast<__m256i*>(to + k) + 1, high);
  }
}

#endif

void copyByLibrary(Line* to, Line const* from, unsigned long lines) { std::memcpy(to, from, lines * sizeof(Line)); }

// Both arrays together have the stated size, and every byte of them counts as moved.
void registerCopy(char const* name, void (*copy)(Line* to, Line const* from, unsigned long lines)) {
  benchmark::RegisterBenchmark(name,
                               [=](benchmark::State& state) {
                                 Size const lines{static_cast<unsigned long>(state.range(0)) / sizeof(Line) / 2, 1};
                                 Planes<Line> const from(lines), to(lines);
                                 for (auto _ : state) {
                                   copy(to.data(), from.data(), lines.width);
                                   benchmark::ClobberMemory();
                                 }
                                 state.counters["operations"] = static_cast<double>(state.range(0));
                               })
      ->RangeMultiplier(4)
      ->Range(16 << 10, 256 << 20);
}

}  // namespace

void registerMachineLimits() {
#ifdef __AVX2__
  benchmark::RegisterBenchmark("limit/doubleOperations", doubleOperations);
  benchmark::RegisterBenchmark("limit/divisions", divisions);
  benchmark::RegisterBenchmark("limit/minMaxUint16", minMaxUint16);
  benchmark::RegisterBenchmark("limit/minMaxFloat", minMaxFloat);
  registerCopy("limit/vector copy", copyByVectors);
#endif
  registerCopy("limit/memcpy", copyByLibrary);

  // The same call in all forms: its ratios tell how far the others are to be trusted.
  for (SlottedSize const& at : frameSizes()) {
    addRow({"memcpy", "float", at, {.bytes = 8}}, [size = at.size](Form) {
      return planesRun(Planes<float>(size), noise<float>(size), [](auto const& out, auto const& in) {
        std::memcpy(out.data(), in.data(), in.samples() * sizeof(float));
      });
    });
  }
}

}  // namespace korva::benchmarks
