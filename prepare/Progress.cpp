#include "prepare/Progress.h"

#include <cstdio>
#include <unistd.h>

namespace prepare {

namespace {

constexpr std::chrono::milliseconds PATIENCE{1000};
constexpr std::chrono::milliseconds EVERY{100};

}  // namespace

Progress::Progress(bool isQuiet) : isShown_(!isQuiet && isatty(STDERR_FILENO) == 1) {}

void Progress::start(std::string what) {
  finish();
  what_ = std::move(what);
}

void Progress::show(std::uint64_t done, std::uint64_t all) {
  if (!isShown_) {
    return;
  }
  const Clock::time_point now = Clock::now();
  if (now - begin_ < PATIENCE || now - last_ < EVERY) {
    return;
  }
  last_ = now;
  isOnScreen_ = true;
  const double share = all == 0 ? 1 : static_cast<double>(done) / static_cast<double>(all);
  std::fprintf(stderr, "\r\033[K%s: %3.0f %%", what_.c_str(), share * 100);
  std::fflush(stderr);
}

void Progress::finish() {
  if (isOnScreen_) {
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    isOnScreen_ = false;
  }
}

}  // namespace prepare
