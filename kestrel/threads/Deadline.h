// A point in time some milliseconds away, for timed waits that test their condition again until it
// has passed:
//
//   Deadline deadline(milliseconds);
//   while (!done_ && !deadline.passed()) {
//     lock_.wait(deadline.remaining());
//   }
//
// Counts on the steady clock, so a step of the wall clock neither ends nor prolongs the loop.
#pragma once

#include <chrono>
#include <limits>

namespace kestrel {

class Deadline {
 public:
  explicit Deadline(unsigned int milliseconds)
      : end_(Clock::now() + std::chrono::milliseconds(milliseconds)) {}

  bool passed() const { return Clock::now() >= end_; }

  // Milliseconds left, rounded up; 0 once the deadline has passed.
  int remaining() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    if (left <= 0) {
      return 0;
    }
    constexpr int MOST = std::numeric_limits<int>::max();
    return left < MOST ? static_cast<int>(left) : MOST;
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point end_;
};

}  // namespace kestrel
