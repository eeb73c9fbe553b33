#include "support/guarded_runs.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace korva::test {
namespace {

std::size_t pageSize() {
  static std::size_t const size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

}  // namespace

struct GuardedRuns::Mapping {
  Mapping(std::size_t runCount, std::size_t pages) : runs(runCount), runBytes(pages * pageSize()) {
    int const file = memfd_create("guarded runs", 0);
    if (file < 0 || ftruncate(file, static_cast<off_t>(totalBytes())) != 0) throw std::runtime_error("no memory file");
    writable = map(file, PROT_READ | PROT_WRITE);
    readOnly = map(file, PROT_READ);
    close(file);
  }
  ~Mapping() {
    munmap(writable, totalBytes());
    munmap(readOnly, totalBytes());
  }

  // Forbidden page, run, forbidden page, run, ..., forbidden page.
  std::size_t offsetOf(std::size_t run) const { return pageSize() + run * (runBytes + pageSize()); }
  std::size_t totalBytes() const { return offsetOf(runs); }

  unsigned char* map(int file, int protection) const {
    void* const base = mmap(nullptr, totalBytes(), protection, MAP_SHARED, file, 0);
    if (base == MAP_FAILED) throw std::runtime_error("cannot map guarded runs");
    auto* const bytes = static_cast<unsigned char*>(base);
    for (std::size_t run = 0; run <= runs; ++run)
      if (mprotect(bytes + offsetOf(run) - pageSize(), pageSize(), PROT_NONE) != 0)
        throw std::runtime_error("cannot forbid a page");
    return bytes;
  }

  std::size_t runs, runBytes;
  unsigned char* writable;
  unsigned char* readOnly;
};

struct GuardedRuns::Pool {
  // Sizes are rounded up so that few distinct mappings serve a sweep over all widths.
  static std::pair<std::size_t, std::size_t> keyFor(std::size_t runs, std::size_t bytes) {
    std::size_t const pages = std::max<std::size_t>(1, (bytes + pageSize() - 1) / pageSize());
    return {std::bit_ceil(runs), pages <= 4 ? pages : std::bit_ceil(pages)};
  }

  std::unique_ptr<Mapping> take(std::size_t runs, std::size_t bytes) {
    auto const key = keyFor(runs, bytes);
    auto& free = mappings[key];
    if (free.empty()) return std::make_unique<Mapping>(key.first, key.second);
    std::unique_ptr<Mapping> mapping = std::move(free.back());
    free.pop_back();
    return mapping;
  }

  void giveBack(std::unique_ptr<Mapping> mapping) {
    constexpr std::size_t kLargestKept = std::size_t{1} << 22;
    if (mapping->totalBytes() <= kLargestKept)
      mappings[{mapping->runs, mapping->runBytes / pageSize()}].push_back(std::move(mapping));
  }

  static Pool& ofThisThread() {
    thread_local Pool pool;
    return pool;
  }

  std::map<std::pair<std::size_t, std::size_t>, std::vector<std::unique_ptr<Mapping>>> mappings;
};

GuardedRuns::GuardedRuns(std::size_t runs, std::size_t bytes, Placement placement, std::size_t insideOffset)
    : runs_(std::max<std::size_t>(runs, 1)),
      bytes_(bytes),
      start_(placement == Placement::Inside ? insideOffset : 0),
      mapping_(Pool::ofThisThread().take(runs_, bytes + start_)) {
  if (placement == Placement::EndsAtForbiddenPage) start_ = mapping_->runBytes - bytes;
  for (std::size_t run = 0; run < runs_; ++run)
    std::memset(mapping_->writable + mapping_->offsetOf(run), kSlackByte, mapping_->runBytes);
}

GuardedRuns::GuardedRuns(GuardedRuns&&) noexcept = default;

GuardedRuns::~GuardedRuns() {
  if (mapping_) Pool::ofThisThread().giveBack(std::move(mapping_));
}

void* GuardedRuns::writable(std::size_t run) const { return mapping_->writable + mapping_->offsetOf(run) + start_; }

void* GuardedRuns::readOnly(std::size_t run) const { return mapping_->readOnly + mapping_->offsetOf(run) + start_; }

bool GuardedRuns::slackIsIntact() const {
  auto const isSlack = [](unsigned char byte) { return byte == kSlackByte; };
  for (std::size_t run = 0; run < runs_; ++run) {
    unsigned char const* const pages = mapping_->readOnly + mapping_->offsetOf(run);
    if (!std::all_of(pages, pages + start_, isSlack)) return false;
    if (!std::all_of(pages + start_ + bytes_, pages + mapping_->runBytes, isSlack)) return false;
  }
  return true;
}

}  // namespace korva::test
