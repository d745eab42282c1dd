// Says on a terminal how far a step is, once it has taken longer than a second; nothing into a pipe
// or a file. The line is gone when the step ends. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace prepare {

class Progress {
 public:
  explicit Progress(bool isQuiet);
  ~Progress() { finish(); }

  // A step begins; `what` as in "reading perf.data".
  void start(std::string what);
  void show(std::uint64_t done, std::uint64_t all);
  // Takes the line away.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;

  bool isShown_;
  std::string what_;
  Clock::time_point begin_ = Clock::now();
  Clock::time_point last_;
  bool isOnScreen_ = false;
};

}  // namespace prepare
