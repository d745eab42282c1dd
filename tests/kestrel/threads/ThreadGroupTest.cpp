#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <memory>
#include <semaphore>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/MetricRegistry.h"
#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/Logger.h"
#include "kestrel/threads/ThreadGroup.h"
#include "tests/kestrel/threads/GroupSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestAccess.h"

namespace {

using kestrel::ThreadGroup;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

void spawnAndWait(ThreadGroup& group, const std::function<void()>& work) {
  std::latch done(1);
  Task task([&] {
    work();
    done.count_down();
  });
  ASSERT_TRUE(group.spawn(&task, false));
  done.wait();
  group.close();  // the task is on this stack: its worker must be through with it
}

TEST(ThreadGroupTest, RunsARunnerOnAWorkerNamedAfterTheGroup) {
  ThreadGroup group("Pool");
  std::string name;
  spawnAndWait(group, [&name] {
    char text[16] = "";
    prctl(PR_GET_NAME, text, 0, 0, 0);
    name = text;
  });
  EXPECT_EQ(name, "Pool Worker");
  EXPECT_EQ(group.getName(), "Pool");
}

TEST(ThreadGroupTest, EveryStepIsLogged) {
  const LogCapture log;
  {
    ThreadGroup group(std::string("Logged"));
    std::latch done(1);
    Task task([&done] { done.count_down(); });
    group.spawn(&task, false);
    done.wait();
    awaitMetric("Logged", "Busy Count", 0.0);
  }
  const std::string pointer = "0x[0-9a-f]+";
  std::vector<std::string> messages = log.messages("ThreadGroup", "DEBUG");
  ASSERT_THAT(messages, SizeIs(4));
  EXPECT_THAT(messages[0], MatchesRegex("constructor: this:" + pointer + " name:Logged"));
  EXPECT_THAT(messages[1], MatchesRegex("getWorker: group:Logged worker:" + pointer +
                                        " new worker created\\.  There are 1 workers\\."));
  EXPECT_THAT(messages[2],
              MatchesRegex("spawn: group:Logged worker:" + pointer + " runner:" + pointer));
  EXPECT_THAT(messages[3],
              MatchesRegex("putWorker: group:Logged worker:" + pointer + " has returned"));
}

TEST(ThreadGroupTest, WorkersThatReturnedLastAreUsedFirst) {
  ThreadGroup group("Stack");
  ThreadGroup::WorkerThread* const first = group.getWorker();
  ThreadGroup::WorkerThread* const second = group.getWorker();
  EXPECT_NE(first, second);
  group.putWorker(first);
  group.putWorker(second);
  EXPECT_EQ(group.getWorker(), second);
  EXPECT_EQ(group.getWorker(), first);
  for (ThreadGroup::WorkerThread* worker : {first, second}) {
    worker->release();
    worker->release();
  }
}

TEST(ThreadGroupTest, IdleWorkerIsUsedAgain) {
  ThreadGroup group("Reuse");
  for (int i = 0; i < 50; ++i) {
    std::latch done(1);
    Task task([&done] { done.count_down(); });
    ASSERT_TRUE(group.spawn(&task, false));
    done.wait();
    awaitMetric("Reuse", "Busy Count", 0.0);
  }
  EXPECT_EQ(metricOf("Reuse", "Worker Count"), 1.0);
}

TEST(ThreadGroupTest, WorkerThatIsReturnedEarlyIsTakenAgainOnceItsRunnerHasEnded) {
  ThreadGroup group("Early");
  std::atomic<int> ended{0};
  for (int i = 1; i <= 5000; ++i) {
    Task task([&ended] {
      ThreadGroup::returnWorkerEarly();
      ThreadGroup::returnWorkerEarly();  // does nothing
      ++ended;
    });
    ASSERT_TRUE(group.spawn(&task, false));
    while (ended != i) {
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(metricOf("Early", "Worker Count"), 1.0);
  awaitMetric("Early", "Busy Count", 0.0);
}

TEST(ThreadGroupTest, RunnerOfAWorkerThatIsReturnedEarlyRunsAloneOnIt) {
  ThreadGroup group("Alone");
  std::latch returned(1);
  std::latch end(1);
  std::atomic<bool> firstRuns{true};
  std::atomic<bool> overlapped{false};
  Task first([&] {
    ThreadGroup::returnWorkerEarly();
    returned.count_down();
    end.wait();
    firstRuns = false;
  });
  std::latch done(1);
  Task second([&] {
    overlapped = firstRuns.load();
    done.count_down();
  });
  group.spawn(&first, false);
  returned.wait();
  std::thread spawner([&] { group.spawn(&second, false); });
  end.count_down();
  done.wait();
  spawner.join();
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(metricOf("Alone", "Worker Count"), 1.0);
}

TEST(ThreadGroupTest, ReturningEarlyMeansNothingOutsideARunner) {
  ThreadGroup::returnWorkerEarly();
}

TEST(ThreadGroupTest, MetricsCountWorkersAndBusyOnes) {
  ThreadGroup group("Counted");
  EXPECT_EQ(metricOf("Counted", "Worker Count"), 0.0);
  EXPECT_EQ(metricOf("Counted", "Busy Count"), 0.0);
  Held one;
  Held two;
  group.spawn(&one.task, false);
  group.spawn(&two.task, false);
  EXPECT_EQ(metricOf("Counted", "Worker Count"), 2.0);
  EXPECT_EQ(metricOf("Counted", "Busy Count"), 2.0);
  one.end.count_down();
  awaitMetric("Counted", "Busy Count", 1.0);
  EXPECT_EQ(metricOf("Counted", "Worker Count"), 2.0);
  two.end.count_down();
  awaitMetric("Counted", "Busy Count", 0.0);
  group.close();
  EXPECT_EQ(metricOf("Counted", "Worker Count"), 0.0);
}

TEST(ThreadGroupTest, MetricsHaveTheirTextsAndLeaveTheRegistryWithTheGroup) {
  class Texts : public kestrel::MetricRegistry::Visitor {
   public:
    bool visit(kestrel::Metric* metric) override {
      if (metric->getInstance() == "Texts") {
        texts.push_back(metric->getGroup() + "|" + metric->getName() + "|" +
                        metric->getDescription());
      }
      return false;
    }
    std::vector<std::string> texts;
  } during;
  Texts after;
  {
    ThreadGroup group("Texts");
    kestrel::MetricRegistry::Instance()->visit(during);
  }
  kestrel::MetricRegistry::Instance()->visit(after);
  EXPECT_THAT(
      during.texts,
      testing::UnorderedElementsAre(
          "Thread Group|Busy Count|the number of thread group worker threads that are in use.",
          "Thread Group|Worker Count|the number of worker threads allocated for thread group"));
  EXPECT_THAT(after.texts, IsEmpty());
}

TEST(ThreadGroupTest, RunnerThatHasRunIsNotDeletedByTheGroup) {
  std::atomic<int> runs{0};
  std::atomic<int> destroyed{0};
  {
    auto task = std::make_unique<WatchedTask>(runs, destroyed);
    ThreadGroup group("Keeps");
    EXPECT_TRUE(group.spawn(task.get(), true));
    awaitMetric("Keeps", "Busy Count", 0.0);
    group.close();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(ThreadGroupTest, RunnerMayDeleteItself) {
  class Suicidal : public kestrel::Runnable {
   public:
    explicit Suicidal(std::latch& gone) : gone_(gone) {}
    ~Suicidal() override { gone_.count_down(); }
    void run() override { delete this; }

   private:
    std::latch& gone_;
  };
  std::latch gone(1);
  ThreadGroup group("Suicidal");
  EXPECT_TRUE(group.spawn(new Suicidal(gone), true));
  gone.wait();
}

TEST(ThreadGroupTest, ClosedGroupTakesNothingAndLeavesTheRunnerAlone) {
  std::atomic<int> runs{0};
  std::atomic<int> destroyed{0};
  ThreadGroup group("Closed");
  group.close();
  WatchedTask task(runs, destroyed);
  EXPECT_FALSE(group.spawn(&task, true));
  EXPECT_FALSE(group.spawn(&task, false));
  EXPECT_EQ(group.getWorker(), nullptr);
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(destroyed, 0);
}

TEST(ThreadGroupTest, NullRunnerIsRefused) {
  ThreadGroup group("Null");
  EXPECT_FALSE(group.spawn(nullptr, true));
  EXPECT_EQ(metricOf("Null", "Worker Count"), 0.0);
}

TEST(ThreadGroupTest, GroupClosedTwiceAndByTwoThreads) {
  ThreadGroup group("Twice");
  std::latch done(1);
  Task task([&done] { done.count_down(); });
  group.spawn(&task, false);
  done.wait();
  std::thread other([&group] { group.close(); });
  group.close();
  other.join();
  group.close();
  EXPECT_EQ(group.getWorker(), nullptr);
}

TEST(ThreadGroupTest, CloseWaitsForARunnerThatRuns) {
  std::atomic<bool> ended{false};
  std::latch begun(1);
  Task task([&] {
    begun.count_down();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ended = true;
  });
  ThreadGroup group("Waits");
  group.spawn(&task, false);
  begun.wait();
  group.close();
  EXPECT_TRUE(ended);
}

// Close holds no lock that the runner's spawn or the worker's return wants.
TEST(ThreadGroupTest, RunnerThatSpawnsWhileItsGroupIsClosedDoesNotDeadlock) {
  for (int round = 0; round < 100; ++round) {
    std::atomic<int> runs{0};
    std::latch begun(1);
    Task inner([&runs] { ++runs; });
    ThreadGroup group("Spawner");
    Task outer([&] {
      begun.count_down();
      for (int i = 0; i < 20; ++i) {
        if (!group.spawn(&inner, false)) {
          break;
        }
      }
    });
    group.spawn(&outer, false);
    begun.wait();
    group.close();
  }
}

TEST(ThreadGroupTest, RunnerThatSpawns) {
  ThreadGroup group("Chain");
  std::atomic<int> depth{0};
  std::latch done(1);
  std::vector<std::unique_ptr<Task>> tasks;
  for (int i = 0; i < 200; ++i) {
    tasks.push_back(std::make_unique<Task>([&, i] {
      ++depth;
      if (i == 0) {
        done.count_down();
      } else {
        EXPECT_TRUE(group.spawn(tasks[static_cast<std::size_t>(i) - 1].get(), false));
      }
    }));
  }
  EXPECT_TRUE(group.spawn(tasks.back().get(), false));
  done.wait();
  EXPECT_EQ(depth, 200);
  group.close();
}

TEST(ThreadGroupTest, ThousandsOfSpawnsFromSeveralThreadsAllRun) {
  constexpr int THREADS = 4;
  constexpr int EACH = 1500;
  std::atomic<int> runs{0};
  std::counting_semaphore<> slots(32);  // so many runners at most are under way
  Task task([&] {
    ++runs;
    slots.release();
  });
  ThreadGroup group("Thousands");
  std::vector<std::thread> threads;
  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < EACH; ++k) {
        slots.acquire();
        EXPECT_TRUE(group.spawn(&task, false));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  awaitMetric("Thousands", "Busy Count", 0.0);
  EXPECT_EQ(runs, THREADS * EACH);
}

// Whatever spawn() answers is true: what was handed over has run or was deleted, the rest is
// untouched.
TEST(ThreadGroupTest, CloseWhileRunnersArePendingAndOthersSpawn) {
  for (int round = 0; round < 40; ++round) {
    constexpr int THREADS = 3;
    std::atomic<int> runs{0};
    std::atomic<int> destroyed{0};
    std::atomic<int> refused{0};
    std::atomic<int> made{0};
    class SelfDeleting : public kestrel::Runnable {
     public:
      SelfDeleting(std::atomic<int>& ran, std::atomic<int>& gone) : ran_(ran), gone_(gone) {}
      ~SelfDeleting() override { ++gone_; }
      void run() override {
        ++ran_;
        delete this;
      }

     private:
      std::atomic<int>& ran_;
      std::atomic<int>& gone_;
    };
    {
      ThreadGroup group("Closing");
      std::vector<std::thread> threads;
      std::latch warm(THREADS);
      for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
          for (int k = 0; k < 40; ++k) {
            ++made;
            kestrel::Runnable* const runner = new SelfDeleting(runs, destroyed);
            if (!group.spawn(runner, true)) {
              ++refused;
              delete runner;
            }
            if (k == 4) {
              warm.count_down();
            }
          }
        });
      }
      warm.wait();
      group.close();
      for (std::thread& thread : threads) {
        thread.join();
      }
    }
    EXPECT_EQ(destroyed, made);
    EXPECT_LE(runs + refused, made);
  }
}

// Closes the group between the moment at which spawn() has its worker, which it logs, and the
// assignment.
class ClosingAdapter : public kestrel::LogAdapter {
 public:
  explicit ClosingAdapter(ThreadGroup& group) : group_(group) {}
  void log(const kestrel::LogLevel&, std::string&, const char* message, bool) override {
    if (std::string(message).rfind("spawn: ", 0) == 0) {
      group_.close();
    }
  }
  void log(const kestrel::LogLevel&, std::string&, const std::string&, bool) override {}
  void flush() override {}

 private:
  ThreadGroup& group_;
};

TEST(ThreadGroupTest, SpawnWhoseWorkerIsStoppedBeforeTheAssignmentSaysWhoOwnsTheRunner) {
  for (const bool deleteRunner : {false, true}) {
    std::atomic<int> runs{0};
    std::atomic<int> destroyed{0};
    ThreadGroup group("Stopped");
    kestrel::Logger::getLogger("ThreadGroup")->setLevel(*kestrel::LogLevel::LVL_DEBUG);
    kestrel::Logger::setLogAdapter(new ClosingAdapter(group));
    kestrel::Runnable* const runner = new WatchedTask(runs, destroyed);
    EXPECT_EQ(group.spawn(runner, deleteRunner), deleteRunner);
    kestrel::TestAccess::resetLogging();
    EXPECT_EQ(destroyed, deleteRunner ? 1 : 0);
    EXPECT_EQ(runs, 0);
    if (!deleteRunner) {
      delete runner;  // untouched, and still ours
    }
  }
}

TEST(ThreadGroupTest, GroupMayDieWhileItsWorkersReturn) {
  for (int round = 0; round < 200; ++round) {
    Task task([] {});
    auto group = std::make_unique<ThreadGroup>("Dying");
    group->spawn(&task, false);
    group->spawn(&task, false);
    group.reset();
  }
}

TEST(ThreadGroupTest, MetricsCanBeReadWhileGroupsComeAndGo) {
  std::atomic<bool> stop{false};
  std::thread reader([&stop] {
    while (!stop) {
      EXPECT_GE(metricOf("Fleeting", "Busy Count"), -1.0);
      EXPECT_GE(metricOf("Fleeting", "Worker Count"), -1.0);
    }
  });
  for (int round = 0; round < 100; ++round) {
    Task task([] {});
    ThreadGroup group("Fleeting");
    group.spawn(&task, false);
    group.spawn(&task, false);
  }
  stop = true;
  reader.join();
}

}  // namespace
