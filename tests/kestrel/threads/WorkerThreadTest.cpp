// The workers of a thread group one by one, and the default group.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <latch>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/log/Logger.h"
#include "kestrel/threads/ThreadGroup.h"
#include "tests/kestrel/threads/GroupSupport.h"

namespace {

using kestrel::ThreadGroup;

class WorkerThreadTest : public testing::Test {
 protected:
  WorkerThreadTest() { worker_->reserve(); }
  ~WorkerThreadTest() override { worker_->release(); }

  ThreadGroup group_{"Owner"};
  ThreadGroup::WorkerThread* const worker_ = new ThreadGroup::WorkerThread("by hand", group_);
  std::atomic<int> runs_{0};
  std::atomic<int> destroyed_{0};
};

// The worker is started only after the runner was assigned and the stop has come.
TEST_F(WorkerThreadTest, RunnerAssignedButNotBegunIsDeletedByAStopAndNotRun) {
  EXPECT_TRUE(worker_->assign(new WatchedTask(runs_, destroyed_), true));
  std::thread stopper([this] { worker_->stop(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  worker_->start();
  stopper.join();
  EXPECT_EQ(runs_, 0);
  EXPECT_EQ(destroyed_, 1);
}

TEST_F(WorkerThreadTest, RunnerAssignedButNotBegunIsLeftAloneByAStopWithoutDeleteRunner) {
  WatchedTask task(runs_, destroyed_);
  EXPECT_TRUE(worker_->assign(&task, false));
  std::thread stopper([this] { worker_->stop(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  worker_->start();
  stopper.join();
  EXPECT_EQ(runs_, 0);
  EXPECT_EQ(destroyed_, 0);
}

TEST_F(WorkerThreadTest, StoppingWorkerDeletesWhatItIsAssignedOnlyWithDeleteRunner) {
  worker_->stop();
  WatchedTask kept(runs_, destroyed_);
  EXPECT_FALSE(worker_->assign(&kept, false));
  EXPECT_EQ(destroyed_, 0);
  EXPECT_FALSE(worker_->assign(new WatchedTask(runs_, destroyed_), true));
  EXPECT_EQ(destroyed_, 1);
  EXPECT_FALSE(worker_->assign(nullptr, true));
  EXPECT_EQ(runs_, 0);
}

TEST_F(WorkerThreadTest, SecondStopReturnsAtOnce) {
  worker_->stop();
  worker_->stop();
}

TEST_F(WorkerThreadTest, EveryStopWaitsForTheRunnerThatRuns) {
  Held held;
  worker_->start();
  worker_->assign(&held.task, false);
  held.begun.wait();
  std::atomic<int> stopped{0};
  std::vector<std::thread> stoppers;
  for (int i = 0; i < 2; ++i) {
    stoppers.emplace_back([&] {
      worker_->stop();
      ++stopped;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(stopped, 0);
  held.end.count_down();
  for (std::thread& stopper : stoppers) {
    stopper.join();
  }
}

TEST_F(WorkerThreadTest, AssignToABusyWorkerWaitsForItsRunner) {
  Held first;
  worker_->start();
  worker_->assign(&first.task, false);
  first.begun.wait();
  std::atomic<bool> assigned{false};
  WatchedTask second(runs_, destroyed_);
  std::thread assigner([&] {
    worker_->assign(&second, false);
    assigned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(assigned);
  first.end.count_down();
  assigner.join();
  while (runs_ == 0) {
    std::this_thread::yield();
  }
  worker_->stop();
}

TEST(DefaultThreadGroupTest, IsOneGroupNamedDefault) {
  kestrel::DefaultThreadGroup* const group = kestrel::DefaultThreadGroup::Instance();
  EXPECT_EQ(kestrel::DefaultThreadGroup::Instance(), group);
  EXPECT_EQ(group->getName(), "Default");
  std::latch done(1);
  Task task([&done] { done.count_down(); });
  EXPECT_TRUE(group->spawn(&task, false));
  done.wait();
  awaitMetric("Default", "Busy Count", 0.0);
}

TEST(DefaultThreadGroupTest, IsMadeOnceByThreadsThatAskAtOnce) {
  std::vector<std::thread> threads;
  std::vector<kestrel::DefaultThreadGroup*> groups(4);
  for (std::size_t i = 0; i < groups.size(); ++i) {
    threads.emplace_back([&groups, i] { groups[i] = kestrel::DefaultThreadGroup::Instance(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(groups, testing::Each(kestrel::DefaultThreadGroup::Instance()));
}

// The process ends while a worker of the default group still runs its runner.
TEST(DefaultThreadGroupTest, MayStillRunWhenTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        static std::latch begun(1);
        static Task task([] {
          begun.count_down();
          for (;;) {
            kestrel::Logger::getLogger("late")->debugf("still here");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
          }
        });
        kestrel::DefaultThreadGroup::Instance()->spawn(&task, false);
        begun.wait();
        exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
