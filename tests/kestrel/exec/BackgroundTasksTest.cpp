#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/BackgroundTasks.h"
#include "kestrel/Runnable.h"
#include "kestrel/ThreadGroup.h"
#include "tests/kestrel/exec/ExecSupport.h"

namespace {

using kestrel::BackgroundTasks;
using kestrel::DefaultThreadGroup;

class Task : public kestrel::Runnable {
 public:
  void run() override {
    BackgroundTasks::markEnding();
    ended = true;
  }
  std::atomic<bool> ended{false};
};

// Somebody else's runner, which keeps its worker.
class Occupant : public kestrel::Runnable {
 public:
  void run() override {
    entered = true;
    eventually([this] { return released.load(); });
    left = true;
  }
  std::atomic<bool> entered{false};
  std::atomic<bool> released{false};
  std::atomic<bool> left{false};
};

TEST(BackgroundTasksTest, TasksThatFollowOneAnotherShareOneWorker) {
  std::size_t withOneWorker = 0;
  for (int i = 0; i < 5000; ++i) {
    Task task;
    ASSERT_TRUE(BackgroundTasks::start(&task));
    while (!task.ended) {
      std::this_thread::yield();
    }
    withOneWorker = i == 0 ? countThreads() : withOneWorker;
  }
  EXPECT_EQ(countThreads(), withOneWorker);
}

TEST(BackgroundTasksTest, WorkersThatAreBusyForOthersAreWaitedForOnceAndBriefly) {
  Occupant occupant;
  ASSERT_TRUE(DefaultThreadGroup::Instance()->spawn(&occupant, false));
  ASSERT_TRUE(eventually([&] { return occupant.entered.load(); }));
  const Stopwatch watch;
  for (int i = 0; i < 20; ++i) {
    Task task;
    ASSERT_TRUE(BackgroundTasks::start(&task));
    ASSERT_TRUE(eventually([&] { return task.ended.load(); }));
  }
  EXPECT_LT(watch.seconds(), 2);
  occupant.released = true;
  EXPECT_TRUE(eventually([&] { return occupant.left.load(); }));
}

TEST(BackgroundTasksTest, SeveralThreadsMayStartTasks) {
  std::atomic<int> ended{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&ended] {
      for (int round = 0; round < 200; ++round) {
        Task task;
        if (BackgroundTasks::start(&task) && eventually([&] { return task.ended.load(); })) {
          ++ended;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(ended, 800);
}

std::string startWithoutWorkers() {
  DefaultThreadGroup::Instance()->close();
  Task task;
  return !BackgroundTasks::start(&task) && !task.ended ? "" : "a task was started";
}

TEST(BackgroundTasksTest, WithoutAWorkerNothingStarts) {
  EXPECT_WELL_IN_FRESH_PROCESS(startWithoutWorkers());
}

}  // namespace
