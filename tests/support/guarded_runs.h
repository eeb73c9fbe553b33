// Memory that notices every access outside the samples.
#ifndef KORVA_TESTS_SUPPORT_GUARDED_RUNS_H
#define KORVA_TESTS_SUPPORT_GUARDED_RUNS_H

#include <cstddef>
#include <memory>

namespace korva::test {

// Where a run of samples lies between the forbidden pages around it.
enum class Placement {
  EndsAtForbiddenPage,       // one byte read too far traps
  StartsAfterForbiddenPage,  // one byte read too early traps
  Inside                     // off any alignment but that of the sample; writes beside it are found in the slack
};

// The byte that fills everything a routine has no business writing: as uint16, float or double no special value.
constexpr unsigned char kSlackByte = 0xA5;

// Equally long runs of bytes, each on pages of its own between forbidden pages. Every run is mapped twice, so that a
// routine can be handed a read-only view of what the test has written. Mappings are kept for reuse, one pool a thread.
class GuardedRuns {
 public:
  GuardedRuns(std::size_t runs, std::size_t bytes, Placement placement, std::size_t insideOffset = 0);
  ~GuardedRuns();
  GuardedRuns(GuardedRuns&&) noexcept;

  void* writable(std::size_t run) const;
  void* readOnly(std::size_t run) const;
  bool slackIsIntact() const;

 private:
  struct Mapping;
  struct Pool;

  std::size_t runs_, bytes_, start_;
  std::unique_ptr<Mapping> mapping_;
};

}  // namespace korva::test

#endif
