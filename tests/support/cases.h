// Numbered cases: one call of a routine and of its plain definition each, compared bit for bit.
#ifndef KORVA_TESTS_SUPPORT_CASES_H
#define KORVA_TESTS_SUPPORT_CASES_H

#include <cstring>
#include <functional>
#include <string>
#include <type_traits>

#include "support/call_conditions.h"
#include "support/inputs.h"
#include "support/samples.h"

namespace korva::test {

// An exported function and the plain definition that has its type.
template <class Function>
struct Routine {
  char const* name;
  Function* library;
  Function* plain;
};

struct Mismatch {
  std::size_t argument, band, row, column;
  void const* got;
  void const* expected;
  std::size_t sampleBytes, mismatches;
  Shape shape;
};

// One case. Its arrays, layouts and samples all derive from its number, which seeds random.
class Case {
 public:
  Case(unsigned long seed, bool watchesStack, std::string rerun);

  Random random;

  // Decides where a sample is moved by the routine and keeps its bits. Elsewhere it is a result of arithmetic, whose
  // sign and payload belong to processor and compiler when it is a NaN.
  std::function<bool(std::size_t band, std::size_t row, std::size_t column)> isMoved = everywhere;
  static bool everywhere(std::size_t, std::size_t, std::size_t) { return true; }
  static bool nowhere(std::size_t, std::size_t, std::size_t) { return false; }

  // An array that the routine only reads, filled; rowsPerRun is the least run of rows that the routine relies on.
  template <class T, int kLevels, class Fill = void (*)(std::span<T>, Random&)>
  Samples<T, kLevels> input(Shape shape, std::size_t rowsPerRun = kOneBlock, Fill fill = anything<T>) {
    return make<T, kLevels>(shape, rowsPerRun, false, fill);
  }
  // An array that the routine writes, with contents from before the call.
  template <class T, int kLevels, class Fill = void (*)(std::span<T>, Random&)>
  Samples<T, kLevels> inOut(Shape shape, std::size_t rowsPerRun = kOneBlock, Fill fill = anything<T>) {
    return make<T, kLevels>(shape, rowsPerRun, true, fill);
  }
  // An array that the routine writes, poisoned with the slack byte.
  template <class T, int kLevels>
  Samples<T, kLevels> output(Shape shape, std::size_t rowsPerRun = kOneBlock) {
    return Samples<T, kLevels>(shape, anyLayout(shape, rowsPerRun), true);
  }

  // Calls both with the same arguments, each with its own copy of the arrays, and compares all arrays, the inputs
  // among them, and the returned value. The library's call must not allocate or change the floating-point mode.
  template <class Result, class... Parameters, class... Arguments>
  void compare(Routine<Result(Parameters...)> routine, Arguments&&... arguments) {
    beginCall(routine.name);
    if constexpr (std::is_void_v<Result>) {
      routine.library(static_cast<Parameters>(forLibrary(arguments))...);
      endCall();
      routine.plain(static_cast<Parameters>(forPlain(arguments))...);
    } else {
      Result const got = routine.library(static_cast<Parameters>(forLibrary(arguments))...);
      endCall();
      Result const expected = routine.plain(static_cast<Parameters>(forPlain(arguments))...);
      if (!same(got, expected, 0, 0, 0)) report({0, 0, 0, 0, &got, &expected, sizeof got, 1, {1}});
    }
    std::size_t position = 0;
    (check(++position, arguments), ...);
  }

  // Compares one array with what the plain definition left in its copy; position is that of the argument, from 1.
  template <class Argument>
  void check(std::size_t position, Argument& argument) {
    if constexpr (requires { argument.checkWith(*this, position); }) argument.checkWith(*this, position);
    if constexpr (requires { argument.actualRow(0); }) checkSamples(position, argument);
  }

  void fail(std::string const& problem) const;

 private:
  template <class T, int kLevels, class Fill>
  Samples<T, kLevels> make(Shape shape, std::size_t rowsPerRun, bool writable, Fill fill) {
    Samples<T, kLevels> samples(shape, anyLayout(shape, rowsPerRun), writable);
    samples.fill([&](std::span<T> all) { fill(all, random); });
    return samples;
  }
  Layout anyLayout(Shape const& shape, std::size_t rowsPerRun);

  template <class Argument>
  static auto forLibrary(Argument& argument) {
    if constexpr (requires { argument.actual(); })
      return argument.actual();
    else
      return argument;
  }
  template <class Argument>
  static auto forPlain(Argument& argument) {
    if constexpr (requires { argument.expected(); })
      return argument.expected();
    else
      return argument;
  }

  template <class T>
  bool same(T const& got, T const& expected, std::size_t band, std::size_t row, std::size_t column) const {
    if (std::memcmp(&got, &expected, sizeof got) == 0) return true;
    if constexpr (std::is_floating_point_v<T>)
      return got != got && expected != expected && !isMoved(band, row, column);
    else
      return false;
  }

  template <class T, int kLevels>
  void checkSamples(std::size_t position, Samples<T, kLevels> const& samples) {
    std::size_t const width = samples.shape().width, height = samples.shape().height;
    Mismatch first{};
    for (std::size_t row = 0; row < samples.rows(); ++row) {
      T const* const got = samples.actualRow(row);
      T const* const expected = samples.expectedRow(row);
      if (width == 0 || std::memcmp(got, expected, width * sizeof(T)) == 0) continue;
      for (std::size_t column = 0; column < width; ++column) {
        if (same(got[column], expected[column], row / height, row % height, column)) continue;
        if (first.mismatches++ == 0)
          first = {position,          row / height, row % height, column, got + column,
                   expected + column, sizeof(T),    1,            samples.shape()};
      }
    }
    if (first.mismatches > 0) report(first);
    if (!samples.slackIsIntact()) fail("argument " + std::to_string(position) + ": memory beside the rows is written");
  }

  void beginCall(char const* routine);
  void endCall();
  void report(Mismatch const& mismatch) const;

  char const* routine_ = "";
  std::string rerun_;
  bool watchesStack_;
  FloatingPointMode modeBefore_{};
  long allocationsBefore_ = 0;
};

// The cases of one test, numbered from 0. KORVA_CASE=n runs case n alone, KORVA_EVERY=n every nth, where time is short;
// KORVA_SEED=s draws other contents. KORVA_THREADS=n runs each case on n threads at a time, each with its own contents.
class Cases {
 public:
  ~Cases();

  template <class Body>
  void run(Body&& body) {
    if (!next()) return;
    onThreads([&](unsigned long thread) {
      Case current = start(thread);
      body(current);
    });
  }

 private:
  bool next();
  Case start(unsigned long thread) const;
  static void onThreads(std::function<void(unsigned long thread)> const& run);

  unsigned long numbered_ = 0, ran_ = 0;
};

// Tests of one case, of a number of them, and of some for each value.
template <class Body>
void forCases(int number, Body&& body) {
  Cases cases;
  for (int k = 0; k < number; ++k) cases.run(body);
}

template <class Values, class Body>
void forEach(Values const& values, int times, Body&& body) {
  Cases cases;
  for (auto const& value : values)
    for (int k = 0; k < times; ++k) cases.run([&](Case& c) { body(c, value); });
}

}  // namespace korva::test

#endif
