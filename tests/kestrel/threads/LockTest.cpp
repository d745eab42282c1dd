#include <atomic>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/threads/Deadline.h"
#include "kestrel/threads/Lock.h"
#include "tests/support/StreamCapture.h"

namespace {

using kestrel::Deadline;
using kestrel::Lock;
using kestrel::ScopedLock;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct Counter {
  Lock lock;
  int value KESTREL_GUARDED_BY(lock) = 0;
};

TEST(LockTest, OneThreadAtATime) {
  Counter counter;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&counter] {
      for (int k = 0; k < 2000; ++k) {
        const ScopedLock guard(counter.lock);
        ++counter.value;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const ScopedLock guard(counter.lock);
  EXPECT_EQ(counter.value, 8000);
}

// Threads that wait until `go`, and note that they were let through.
struct Gate {
  Lock lock;
  int go KESTREL_GUARDED_BY(lock) = 0;
  int waiting KESTREL_GUARDED_BY(lock) = 0;
  int passed KESTREL_GUARDED_BY(lock) = 0;

  void pass() {
    const ScopedLock guard(lock);
    ++waiting;
    while (go == 0) {
      lock.wait();
    }
    --go;
    ++passed;
  }
  void awaitWaiting(int count) {
    for (;;) {
      {
        const ScopedLock guard(lock);
        if (waiting == count) {
          return;
        }
      }
      std::this_thread::yield();
    }
  }
};

TEST(LockTest, NotifyWakesAWaiter) {
  Gate gate;
  std::thread waiter([&gate] { gate.pass(); });
  gate.awaitWaiting(1);
  {
    const ScopedLock guard(gate.lock);
    gate.go = 1;
    gate.lock.notify();
  }
  waiter.join();
  const ScopedLock guard(gate.lock);
  EXPECT_EQ(gate.passed, 1);
}

TEST(LockTest, NotifyAllWakesEveryWaiter) {
  Gate gate;
  std::vector<std::thread> waiters;
  for (int i = 0; i < 5; ++i) {
    waiters.emplace_back([&gate] { gate.pass(); });
  }
  gate.awaitWaiting(5);
  {
    const ScopedLock guard(gate.lock);
    gate.go = 5;
  }
  gate.lock.notifyAll();
  for (std::thread& waiter : waiters) {
    waiter.join();
  }
  const ScopedLock guard(gate.lock);
  EXPECT_EQ(gate.passed, 5);
}

TEST(LockTest, TimedWaitEndsAfterItsTimeWithoutAReport) {
  Lock lock;
  StderrCapture errors;
  for (const int time : {1, 20, 999, 1001}) {
    const Deadline deadline(static_cast<unsigned int>(time));
    const Clock::time_point start = Clock::now();
    {
      const ScopedLock guard(lock);
      while (!deadline.passed()) {
        lock.wait(deadline.remaining());
      }
    }
    EXPECT_GE(Clock::now() - start, milliseconds(time));
  }
  EXPECT_EQ(errors.stop(), "");
}

TEST(LockTest, TimedWaitOfNothingOrLessEndsAtOnceWithoutAReport) {
  Lock lock;
  StderrCapture errors;
  for (const int time : {0, -1, -1500, std::numeric_limits<int>::min()}) {
    const ScopedLock guard(lock);
    lock.wait(time);
  }
  EXPECT_EQ(errors.stop(), "");
}

TEST(LockTest, TimedWaitIsEndedByANotification) {
  Gate gate;
  std::thread waiter([&gate] {
    const ScopedLock guard(gate.lock);
    gate.waiting = 1;
    while (gate.go == 0) {
      gate.lock.wait(std::numeric_limits<int>::max());
    }
  });
  gate.awaitWaiting(1);
  {
    const ScopedLock guard(gate.lock);
    gate.go = 1;
  }
  gate.lock.notifyAll();
  waiter.join();
}

TEST(LockTest, GuardCanBeGivenUpAndTakenAgain) {
  Lock lock;
  std::atomic<bool> entered{false};
  ScopedLock guard(lock);
  std::thread other([&] {
    const ScopedLock inner(lock);
    entered = true;
  });
  guard.unlock();
  other.join();  // would hang if the lock were held
  guard.lock();
  EXPECT_TRUE(entered);
}

TEST(LockTest, GuardThatWasGivenUpDoesNotUnlockAgain) {
  Lock lock;
  {
    ScopedLock guard(lock);
    guard.unlock();
  }
  const ScopedLock guard(lock);
}

TEST(DeadlineTest, RemainingTimeIsRoundedUpAndEndsAtZero) {
  EXPECT_TRUE(Deadline(0).passed());
  EXPECT_EQ(Deadline(0).remaining(), 0);
  const Deadline soon(1);
  EXPECT_LE(soon.remaining(), 1);
  while (!soon.passed()) {
    EXPECT_GE(soon.remaining(), 0);
  }
  EXPECT_EQ(soon.remaining(), 0);
}

TEST(DeadlineTest, FarDeadlinesNeverPassTheRangeOfAWait) {
  const Deadline far(std::numeric_limits<unsigned int>::max());
  EXPECT_FALSE(far.passed());
  EXPECT_EQ(far.remaining(), std::numeric_limits<int>::max());
  const Deadline later(100'000);
  EXPECT_GT(later.remaining(), 90'000);
  EXPECT_LE(later.remaining(), 100'000);
}

}  // namespace
