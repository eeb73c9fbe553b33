// Progress of work that takes a while: in place on a terminal, otherwise a plain line now and then.
#ifndef KORVA_EXAMPLES_PROGRESS_H
#define KORVA_EXAMPLES_PROGRESS_H

#include <chrono>
#include <string>

namespace host {

class Progress {
 public:
  Progress(std::string task, unsigned long steps);
  ~Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  // One more step is done. Nothing is shown for work that ends within a second. Throws when the user asked to stop.
  void advance();

 private:
  using Clock = std::chrono::steady_clock;

  std::string task_;
  unsigned long steps_;
  unsigned long done_ = 0;
  bool terminal_;
  bool shown_ = false;
  Clock::time_point lastShown_ = Clock::now();
};

}  // namespace host

#endif
