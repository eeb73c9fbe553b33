// What this machine can do at most: the rates that the rows' limits are computed from.
#include <benchmark/benchmark.h>

#include <cstring>
#include <utility>

#include "harness.h"

#ifdef __AVX2__
#include "internal/lanes.h"
#endif

namespace korva::benchmarks {
namespace {

constexpr int kSteps = 1000;

struct alignas(64) Line {
  unsigned char bytes[64];
};

#ifdef __AVX2__

// The compiler has to keep the value in a register and may assume nothing about it.
template <class V>
void opaque(V& value) {
  asm volatile("" : "+x"(value));
}

// Independent chains, enough to hide the latency of every operation, all in registers.
template <class V, class Step, int... chain>
void runChains(benchmark::State& state, Step step, double lanes, std::integer_sequence<int, chain...> all) {
  V operand = V{} + 1;
  V chains[] = {(static_cast<void>(chain), operand)...};
  opaque(operand);
  for (auto _ : state)
    for (int k = 0; k < kSteps; ++k)
      ((chains[chain] = step(chains[chain], operand, chain % 2 == 1), opaque(chains[chain])), ...);
  state.counters["operations"] = lanes * static_cast<double>(all.size()) * kSteps;
}

template <class Lane, int bytes, class Step>
void registerRate(char const* resource, Step step) {
  constexpr int kLanes = bytes / sizeof(Lane);
  benchmark::RegisterBenchmark((std::string("limit/") + resource).c_str(), [=](benchmark::State& state) {
    runChains<korva::Vector<Lane, kLanes>>(state, step, kLanes, std::make_integer_sequence<int, 14>());
  });
}

// To double and back, from one array in the first cache to another.
template <int bytes>
void convert(benchmark::State& state) {
  constexpr int kLanes = bytes / sizeof(double);
  using Floats = korva::Vector<float, kLanes>;
  using Doubles = korva::Vector<double, kLanes>;
  alignas(64) float from[2048] = {}, to[2048];
  for (auto _ : state) {
    for (int k = 0; k < 2048; k += kLanes) {
      auto doubles = korva::widenLanes<Doubles>(korva::loadLanes<Floats>(from + k));
      opaque(doubles);
      korva::storeLanes(to + k, korva::narrowLanes<Floats>(doubles));
    }
    benchmark::ClobberMemory();
  }
  state.counters["operations"] = 2 * 2048;
}

template <int bytes>
void registerRates() {
  // Half of the chains multiply, half add: the operations of a sum of products that are not fused.
  registerRate<double, bytes>("doubleOperations", [](auto a, auto b, bool odd) { return odd ? a * b : a + b; });
  registerRate<double, bytes>("divisions", [](auto a, auto b, bool) { return a / b; });
  auto const exchange = [](auto a, auto b, bool odd) { return odd ? korva::lesser(a, b) : korva::greater(a, b); };
  registerRate<unsigned short, bytes>("minMaxUint16", exchange);
  registerRate<float, bytes>("minMaxFloat", exchange);
  benchmark::RegisterBenchmark("limit/conversions", convert<bytes>);
}

// In the caches, the C library's copy is not always the fastest one.
void copyByVectors(Line* to, Line const* from, unsigned long lines) {
  for (unsigned long k = 0; k < lines; ++k) {
    auto low = korva::loadLanes<korva::Vector<double, 4>>(from[k].bytes);
    auto high = korva::loadLanes<korva::Vector<double, 4>>(from[k].bytes + 32);
    opaque(low);
    opaque(high);
    korva::storeLanes(to[k].bytes, low);
    korva::storeLanes(to[k].bytes + 32, high);
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
#ifdef __AVX512BW__
  registerRates<64>();
#else
  registerRates<32>();
#endif
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
