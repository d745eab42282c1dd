#include <atomic>
#include <chrono>
#include <latch>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/SelfDestructingObject.h"
#include "kestrel/threads/Runnable.h"
#include "kestrel/threads/Thread.h"
#include "tests/support/LogCapture.h"

namespace {

using kestrel::Thread;
using testing::ElementsAre;
using testing::IsEmpty;

// Tells when it is destroyed.
class WatchedThread : public Thread {
 public:
  WatchedThread(const char* name, kestrel::Runnable* runnable, std::latch& destroyed)
      : Thread(name, runnable), destroyed_(destroyed) {}
  ~WatchedThread() override { destroyed_.count_down(); }

 private:
  std::latch& destroyed_;
};

class NameReader : public kestrel::Runnable {
 public:
  void run() override {
    char text[16] = "";
    prctl(PR_GET_NAME, text, 0, 0, 0);
    name = text;
  }
  std::string name;
};

std::string kernelNameOf(const char* name) {
  std::latch destroyed(1);
  NameReader reader;
  EXPECT_TRUE((new WatchedThread(name, &reader, destroyed))->start());
  destroyed.wait();
  return reader.name;
}

TEST(ThreadTest, RunsItsRunnableUnderItsNameAndFreesItself) {
  EXPECT_EQ(kernelNameOf("short name"), "short name");
}

TEST(ThreadTest, KernelKeepsTheFirstFifteenBytesOfTheName) {
  EXPECT_EQ(kernelNameOf("0123456789abcdef and more"), "0123456789abcde");
}

TEST(ThreadTest, WithoutRunnableItEndsAtOnce) {
  std::latch destroyed(1);
  EXPECT_TRUE((new WatchedThread("nothing to do", nullptr, destroyed))->start());
  destroyed.wait();
}

TEST(ThreadTest, OverrideOfRunIsWhatRuns) {
  class Own : public Thread {
   public:
    explicit Own(std::latch& ran) : Thread(std::string("own")), ran_(ran) {}
    void run() override { ran_.count_down(); }

   private:
    std::latch& ran_;
  };
  std::latch ran(1);
  EXPECT_TRUE((new Own(ran))->start());
  ran.wait();
}

TEST(ThreadTest, ReferenceKeepsTheObjectAfterTheThreadHasEnded) {
  class Flagged : public kestrel::Runnable {
   public:
    explicit Flagged(std::latch& ran) : ran_(ran) {}
    void run() override { ran_.count_down(); }

   private:
    std::latch& ran_;
  };
  std::latch ran(1);
  std::latch destroyed(1);
  Flagged runnable(ran);
  WatchedThread* const thread = new WatchedThread("held", &runnable, destroyed);
  thread->reserve();
  EXPECT_TRUE(thread->start());
  ran.wait();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(destroyed.try_wait());
  EXPECT_EQ(thread->getName(), "held");
  thread->release();
  destroyed.wait();
}

TEST(ThreadTest, StartingTwiceRunsOnce) {
  class Count : public kestrel::Runnable {
   public:
    void run() override { ++runs; }
    std::atomic<int> runs{0};
  } count;
  std::latch destroyed(1);
  WatchedThread* const thread = new WatchedThread("once", &count, destroyed);
  thread->reserve();
  EXPECT_TRUE(thread->start());
  EXPECT_TRUE(thread->start());
  thread->release();
  destroyed.wait();
  EXPECT_EQ(count.runs, 1);
}

TEST(ThreadTest, StartIsLogged) {
  const LogCapture log;
  std::latch destroyed(1);
  (new WatchedThread("logged", nullptr, destroyed))->start();
  destroyed.wait();
  EXPECT_THAT(log.lines("Thread"),
              ElementsAre(LogLine{"DEBUG", "Thread", "Creating Thread"},
                          LogLine{"DEBUG", "Thread", "Thread Created successfully"}));
}

// Runs between two latches.
class Held : public kestrel::Runnable {
 public:
  void run() override {
    begun.count_down();
    end.wait();
  }
  std::latch begun{1};
  std::latch end{1};
};

TEST(ThreadTest, PriorityIsOnlyForAThreadThatRuns) {
  const LogCapture log;
  Held runnable;
  std::latch destroyed(1);
  WatchedThread* const thread = new WatchedThread("priority", &runnable, destroyed);
  thread->reserve();
  thread->setPriority({5});
  EXPECT_THAT(log.messages("Thread", "DEBUG"), IsEmpty());

  thread->start();
  runnable.begun.wait();
  thread->setPriority({0});
  thread->setPriority({1});
  thread->setPriority({std::numeric_limits<int>::max()});
  thread->setPriority({std::numeric_limits<int>::min()});
  const std::vector<std::string> messages = log.messages("Thread", "DEBUG");
  EXPECT_THAT(messages,
              ElementsAre("Creating Thread", "Thread Created successfully", "setPriority 0",
                          "setPriority 1", "setPriority 2147483647", "setPriority -2147483648"));
  runnable.end.count_down();
  thread->release();
  destroyed.wait();
}

TEST(ThreadTest, PriorityOfAThreadThatHasEndedIsLeftAlone) {
  const LogCapture log;
  std::latch destroyed(1);
  WatchedThread* const thread = new WatchedThread("ended", nullptr, destroyed);
  thread->reserve();
  thread->start();
  for (int i = 0; i < 200; ++i) {  // before, while and after it ends
    thread->setPriority({0});
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const std::size_t before = log.lines("Thread").size();
  thread->setPriority({0});
  EXPECT_EQ(log.lines("Thread").size(), before);
  thread->release();
  destroyed.wait();
}

class Counted : public kestrel::SelfDestructingObject {
 public:
  explicit Counted(std::atomic<int>& destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++destroyed_; }

 private:
  std::atomic<int>& destroyed_;
};

TEST(SelfDestructingObjectTest, LastReleaseDeletesAndSaysSo) {
  std::atomic<int> destroyed{0};
  Counted* const object = new Counted(destroyed);
  object->reserve();
  object->reserve();
  EXPECT_FALSE(object->release());
  EXPECT_EQ(destroyed, 0);
  EXPECT_TRUE(object->release());
  EXPECT_EQ(destroyed, 1);
}

TEST(SelfDestructingObjectTest, ReleasesFromSeveralThreadsDeleteExactlyOnce) {
  for (int round = 0; round < 500; ++round) {
    std::atomic<int> destroyed{0};
    std::atomic<int> saidSo{0};
    Counted* const object = new Counted(destroyed);
    constexpr int THREADS = 3;
    for (int i = 0; i < THREADS; ++i) {
      object->reserve();
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
      threads.emplace_back([object, &saidSo] { saidSo += object->release() ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(saidSo, 1);
  }
}

TEST(ThreadTest, ManyThreadsStartAndFreeThemselves) {
  constexpr int THREADS = 300;
  std::latch destroyed(THREADS);
  for (int i = 0; i < THREADS; ++i) {
    EXPECT_TRUE((new WatchedThread("many", nullptr, destroyed))->start());
  }
  destroyed.wait();
}

}  // namespace
