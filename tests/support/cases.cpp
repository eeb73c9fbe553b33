#include "support/cases.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <barrier>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace korva::test {
namespace {

std::optional<unsigned long> numberFrom(char const* variable) {
  char const* const text = std::getenv(variable);
  return text ? std::optional(std::strtoul(text, nullptr, 0)) : std::nullopt;
}

unsigned long threadCount() {
  static unsigned long const count = numberFrom("KORVA_THREADS").value_or(1);
  return count;
}

std::string hex(void const* value, std::size_t bytes) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, value, bytes);
  char text[64];
  double number = static_cast<double>(bits);
  if (bytes == sizeof(float)) number = static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
  if (bytes == sizeof(double)) number = std::bit_cast<double>(bits);
  std::snprintf(text, sizeof text, "0x%0*llx (%.9g)", static_cast<int>(2 * bytes),
                static_cast<unsigned long long>(bits), number);
  return text;
}

// A trap inside a routine ends the program, so the message is kept ready for the signal handler.
thread_local char callInProgress[1024];

[[maybe_unused]] void reportTrap(int signal) {
  if (write(STDERR_FILENO, callInProgress, std::strlen(callInProgress)) < 0) std::_Exit(2);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

[[maybe_unused]] bool const kTrapsAreReported = [] {
  if (!allocationsAreCounted()) return false;  // sanitizers report traps themselves
  for (int const signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) std::signal(signal, reportTrap);
  return true;
}();

}  // namespace

Case::Case(unsigned long seed, bool watchesStack, std::string rerun)
    : random(seed), rerun_(std::move(rerun)), watchesStack_(watchesStack) {}

Layout Case::anyLayout(Shape const& shape, std::size_t rowsPerRun) {
  // Reading beyond the last sample is the likeliest fault, so half of all arrays end at a forbidden page.
  Placement const placement = random.oneIn(2)   ? Placement::EndsAtForbiddenPage
                              : random.oneIn(3) ? Placement::Inside
                                                : Placement::StartsAfterForbiddenPage;
  bool const inOneBlock = rowsPerRun >= shape.height * shape.bands || random.oneIn(3);
  return {inOneBlock ? kOneBlock : rowsPerRun, placement, random.oneIn(2), random.between(1, 15)};
}

void Case::beginCall(char const* routine) {
  routine_ = routine;
  std::snprintf(callInProgress, sizeof callInProgress, "\n%s trapped\n  rerun: %s\n", routine, rerun_.c_str());
  modeBefore_ = floatingPointMode();
  allocationsBefore_ = allocationCount();
  if (watchesStack_) paintStack();
}

void Case::endCall() {
  // Of a thread's stack, which may be small, a host must be able to spare this much.
  constexpr std::size_t kStackLimit = 64 * 1024;
  if (allocationCount() != allocationsBefore_) fail("the call allocates memory");
  if (watchesStack_ && overwrittenStack() > kStackLimit)
    fail("the call takes " + std::to_string(overwrittenStack()) + " bytes of stack");
  if (!(floatingPointMode() == modeBefore_)) fail("the call changes the floating-point mode");
  callInProgress[0] = '\0';
}

void Case::fail(std::string const& problem) const {
  ADD_FAILURE() << routine_ << ": " << problem << "\n  rerun: " << rerun_;
}

void Case::report(Mismatch const& m) const {
  std::string const place = m.argument == 0
                                ? "returned value"
                                : "argument " + std::to_string(m.argument) + ", band " + std::to_string(m.band) +
                                      ", row " + std::to_string(m.row) + ", column " + std::to_string(m.column);
  fail(place + ": got " + hex(m.got, m.sampleBytes) + ", expected " + hex(m.expected, m.sampleBytes) + "; " +
       std::to_string(m.mismatches) + " of " + std::to_string(m.shape.width) + " x " + std::to_string(m.shape.height) +
       " x " + std::to_string(m.shape.bands) + " samples differ");
}

bool Cases::next() {
  static std::optional<unsigned long> const only = numberFrom("KORVA_CASE");
  static unsigned long const every = numberFrom("KORVA_EVERY").value_or(1);
  unsigned long const number = numbered_++;
  if (!only && number % every != 0) return false;
  // One failing case explains itself; thousands of them hide it.
  if (only ? *only != number : testing::Test::HasFailure()) return false;
  ++ran_;
  return true;
}

void Cases::onThreads(std::function<void(unsigned long thread)> const& run) {
  std::barrier start(static_cast<std::ptrdiff_t>(threadCount()));
  std::vector<std::jthread> threads;
  for (unsigned long thread = 0; thread + 1 < threadCount(); ++thread) {
    threads.emplace_back([&, thread] {
      start.arrive_and_wait();
      run(thread + 1);
    });
  }
  start.arrive_and_wait();
  run(0);
}

Case Cases::start(unsigned long thread) const {
  static unsigned long const seed = numberFrom("KORVA_SEED").value_or(0);
  // Looking at the stack takes longer than most calls. Sanitizers enlarge every frame, and so do builds that are not
  // optimised, for which KORVA_ANY_STACK is set; valgrind knows nothing below the stack's end.
  static bool const stackIsKnown = allocationsAreCounted() && std::getenv("KORVA_ANY_STACK") == nullptr;
  unsigned long const number = numbered_ - 1;
  std::string const selection = "KORVA_SEED=" + std::to_string(seed) + " KORVA_THREADS=" +
                                std::to_string(threadCount()) + " KORVA_CASE=" + std::to_string(number);
  static std::string const program = std::filesystem::read_symlink("/proc/self/exe");
  testing::TestInfo const* const test = testing::UnitTest::GetInstance()->current_test_info();
  return Case(number + (thread << 24) + (seed << 32), stackIsKnown && number % 16 == 0,
              selection + " " + program + " --gtest_filter=" + test->test_suite_name() + "." + test->name());
}

Cases::~Cases() {
  testing::Test::RecordProperty("cases", std::to_string(ran_));
  if (numbered_ == 0) ADD_FAILURE() << "no case was run";
}

}  // namespace korva::test
