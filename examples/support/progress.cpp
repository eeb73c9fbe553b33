#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "host_error.h"

namespace host {

Progress::Progress(std::string task, unsigned long steps)
    : task_(std::move(task)), steps_(steps), terminal_(isatty(STDOUT_FILENO) != 0) {}

Progress::~Progress() {
  if (terminal_ && shown_) std::printf("\r\033[K");
}

void Progress::advance() {
  stopIfInterrupted();
  ++done_;
  auto const pause = terminal_ && shown_ ? std::chrono::milliseconds(100) : std::chrono::milliseconds(1000);
  auto const now = Clock::now();
  if (now - lastShown_ < pause) return;
  lastShown_ = now;
  shown_ = true;
  int const percent = static_cast<int>(100 * done_ / steps_);
  std::printf(terminal_ ? "\r\033[K  %s %d %%" : "  %s %d %%\n", task_.c_str(), percent);
  std::fflush(stdout);
}

}  // namespace host
