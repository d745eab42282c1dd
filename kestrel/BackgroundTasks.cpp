#include "kestrel/BackgroundTasks.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "kestrel/Deadline.h"
#include "kestrel/ThreadGroup.h"

namespace kestrel {

namespace {

constexpr unsigned PATIENCE_MS = 200;
constexpr std::chrono::microseconds PAUSE{50};

std::atomic<int> running{0};  // tasks that have not come to their end
std::atomic<int> foreign{0};  // workers that are busy with something else, as far as is known

// Workers that are busy without one of our tasks: about to come back, or at work for somebody else.
int _countOthers() {
  static ThreadGroup::BusyMetric busy(*DefaultThreadGroup::Instance());
  return std::max(0, static_cast<int>(busy.collect()) - running);
}

void _awaitWorkers() {
  const Deadline deadline(PATIENCE_MS);
  int others = _countOthers();
  while (others > foreign && !deadline.passed()) {
    std::this_thread::sleep_for(PAUSE);
    others = _countOthers();
  }
  // What is busy for longer is somebody else's, and not waited for again.
  foreign = others;
}

}  // namespace

bool BackgroundTasks::start(Runnable* task) {
  _awaitWorkers();
  ++running;
  const bool started = DefaultThreadGroup::Instance()->spawn(task, false);
  if (!started) {
    --running;
  }
  return started;
}

void BackgroundTasks::markEnding() { --running; }

}  // namespace kestrel
