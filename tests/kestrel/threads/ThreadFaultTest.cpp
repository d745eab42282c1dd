// What happens when the system refuses: the program is linked so that calls of the pthread
// functions, and of the allocation that reports failure, come here first (see the CMakeLists.txt
// beside this file).
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <new>
#include <pthread.h>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/MetricRegistry.h"
#include "kestrel/threads/Lock.h"
#include "kestrel/threads/Runnable.h"
#include "kestrel/threads/Thread.h"
#include "kestrel/threads/ThreadGroup.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StreamCapture.h"

namespace {

// What the wrapped functions return instead of doing their work; 0 lets them work.
thread_local int mutexInitFault = 0;
thread_local int condInitFault = 0;
thread_local int lockFault = 0;
thread_local int unlockFault = 0;
thread_local int waitFault = 0;
thread_local int timedWaitFault = 0;
thread_local int signalFault = 0;
thread_local int broadcastFault = 0;
thread_local int createFault = 0;
thread_local bool allocationFault = false;
timespec lastDeadline{};

}  // namespace

extern "C" {

#define WRAPPED __attribute__((used))

// What the linker calls the function where a 64-bit time is not the system's first choice.
#ifdef __USE_TIME_BITS64
#define WRAPPED_TIMED_WAIT __wrap___pthread_cond_timedwait64
#define REAL_TIMED_WAIT __real___pthread_cond_timedwait64
#else
#define WRAPPED_TIMED_WAIT __wrap_pthread_cond_timedwait
#define REAL_TIMED_WAIT __real_pthread_cond_timedwait
#endif

int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __real_pthread_cond_init(pthread_cond_t*, const pthread_condattr_t*);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int REAL_TIMED_WAIT(pthread_cond_t*, pthread_mutex_t*, const timespec*);
int __real_pthread_cond_signal(pthread_cond_t*);
int __real_pthread_cond_broadcast(pthread_cond_t*);
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

WRAPPED int __wrap_pthread_mutex_init(pthread_mutex_t* mutex,
                                      const pthread_mutexattr_t* attributes) {
  return mutexInitFault != 0 ? mutexInitFault : __real_pthread_mutex_init(mutex, attributes);
}
WRAPPED int __wrap_pthread_cond_init(pthread_cond_t* condition,
                                     const pthread_condattr_t* attributes) {
  return condInitFault != 0 ? condInitFault : __real_pthread_cond_init(condition, attributes);
}
WRAPPED int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  return lockFault != 0 ? lockFault : __real_pthread_mutex_lock(mutex);
}
WRAPPED int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  return unlockFault != 0 ? unlockFault : __real_pthread_mutex_unlock(mutex);
}
WRAPPED int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return waitFault != 0 ? waitFault : __real_pthread_cond_wait(condition, mutex);
}
WRAPPED int WRAPPED_TIMED_WAIT(pthread_cond_t* condition, pthread_mutex_t* mutex,
                               const timespec* deadline) {
  lastDeadline = *deadline;
  return timedWaitFault != 0 ? timedWaitFault : REAL_TIMED_WAIT(condition, mutex, deadline);
}
WRAPPED int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  return signalFault != 0 ? signalFault : __real_pthread_cond_signal(condition);
}
WRAPPED int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  return broadcastFault != 0 ? broadcastFault : __real_pthread_cond_broadcast(condition);
}
WRAPPED int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                  void* (*entry)(void*), void* argument) {
  return createFault != 0 ? createFault
                          : __real_pthread_create(thread, attributes, entry, argument);
}

// operator new(std::size_t, const std::nothrow_t&), whose mangled name has size_t in it.
#if __SIZEOF_SIZE_T__ == 8
#define WRAPPED_NEW __wrap__ZnwmRKSt9nothrow_t
#define REAL_NEW __real__ZnwmRKSt9nothrow_t
#else
#define WRAPPED_NEW __wrap__ZnwjRKSt9nothrow_t
#define REAL_NEW __real__ZnwjRKSt9nothrow_t
#endif
void* REAL_NEW(std::size_t, const std::nothrow_t&);
WRAPPED void* WRAPPED_NEW(std::size_t size, const std::nothrow_t& tag) {
  return allocationFault ? nullptr : REAL_NEW(size, tag);
}

}  // extern "C"

namespace {

using kestrel::Lock;
using testing::ElementsAre;
using testing::IsEmpty;

// Sets a fault for a scope.
template <typename T>
class Fault {
 public:
  Fault(T& fault, T value) : fault_(fault) { fault_ = value; }
  ~Fault() { fault_ = T{}; }
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

 private:
  T& fault_;
};

// Runs one operation of a lock with a fault; what it printed. The lock is used without the analysis
// that wants every lock to be let go.
template <typename Operation>
std::string errorOf(int& fault, Operation operation) KESTREL_NO_THREAD_SAFETY_ANALYSIS {
  StderrCapture errors;
  {
    const Fault<int> active(fault, EINVAL);
    errno = 0;
    operation();
  }
  EXPECT_EQ(errno, EINVAL);
  return errors.stop();
}

TEST(LockFaultTest, EachFailureIsReportedAndExecutionGoesOn) {
  Lock lock;
  EXPECT_EQ(errorOf(mutexInitFault, [] { Lock failing; }),
            "pthread_mutex_init() error: Invalid argument\n");
  EXPECT_EQ(errorOf(condInitFault, [] { Lock failing; }),
            "pthread_cond_init() error: Invalid argument\n");
  EXPECT_EQ(errorOf(lockFault, [&]() KESTREL_NO_THREAD_SAFETY_ANALYSIS { lock.lock(); }),
            "pthread_mutex_lock() error: Invalid argument\n");
  EXPECT_EQ(errorOf(unlockFault, [&]() KESTREL_NO_THREAD_SAFETY_ANALYSIS { lock.unlock(); }),
            "pthread_mutex_unlock() error: Invalid argument\n");
  EXPECT_EQ(errorOf(waitFault, [&]() KESTREL_NO_THREAD_SAFETY_ANALYSIS { lock.wait(); }),
            "pthread_cond_wait() error: Invalid argument\n");
  EXPECT_EQ(errorOf(timedWaitFault, [&]() KESTREL_NO_THREAD_SAFETY_ANALYSIS { lock.wait(1); }),
            "pthread_cond_timedwait() error: Invalid argument\n");
  EXPECT_EQ(errorOf(signalFault, [&] { lock.notify(); }),
            "pthread_cond_signal() error: Invalid argument\n");
  EXPECT_EQ(errorOf(broadcastFault, [&] { lock.notifyAll(); }),
            "pthread_cond_broadcast() error: Invalid argument\n");
}

TEST(LockFaultTest, TimeOutIsNotReported) {
  Lock lock;
  StderrCapture errors;
  const Fault<int> active(timedWaitFault, ETIMEDOUT);
  const kestrel::ScopedLock guard(lock);
  lock.wait(1);
  EXPECT_EQ(errors.stop(), "");
}

TEST(LockFaultTest, DeadlineIsTheTimeOfDayPlusTheMilliseconds) {
  Lock lock;
  const Fault<int> active(timedWaitFault, ETIMEDOUT);
  const auto nanoseconds = [](const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000LL + time.tv_nsec;
  };
  for (const int milliseconds : {0, 1, 999, 1000, 1999, 86'400'000}) {
    for (int round = 0; round < 50; ++round) {
      timespec before{};
      timespec after{};
      clock_gettime(CLOCK_REALTIME, &before);
      {
        const kestrel::ScopedLock guard(lock);
        lock.wait(milliseconds);
      }
      clock_gettime(CLOCK_REALTIME, &after);
      EXPECT_LT(lastDeadline.tv_nsec, 1'000'000'000);
      EXPECT_GE(lastDeadline.tv_nsec, 0);
      // The time of day counts microseconds.
      EXPECT_GE(nanoseconds(lastDeadline), nanoseconds(before) + milliseconds * 1'000'000LL - 1000);
      EXPECT_LE(nanoseconds(lastDeadline), nanoseconds(after) + milliseconds * 1'000'000LL);
    }
  }
}

TEST(LockFaultTest, LockWithoutABlockDoesNothing) {
  StderrCapture errors;
  {
    allocationFault = true;
    Lock lock;
    allocationFault = false;
    const kestrel::ScopedLock guard(lock);
    lock.wait();
    lock.wait(1000);
    lock.notify();
    lock.notifyAll();
  }
  EXPECT_EQ(errors.stop(), "");
}

TEST(ThreadFaultTest, RequiredLockWithoutABlockIsNone) {
  allocationFault = true;
  EXPECT_THROW(kestrel::RequiredLock(), std::bad_alloc);
  allocationFault = false;
  EXPECT_NO_THROW(kestrel::RequiredLock());
}

TEST(ThreadFaultTest, WorkerWhoseLocksCannotBeHadIsNoWorker) {
  kestrel::ThreadGroup group("without locks");
  allocationFault = true;
  EXPECT_EQ(group.getWorker(), nullptr);
  allocationFault = false;
  kestrel::ThreadGroup::WorkerThread* const worker = group.getWorker();
  ASSERT_NE(worker, nullptr);
  worker->release();
}

class CountedThread : public kestrel::Thread {
 public:
  explicit CountedThread(std::atomic<int>& destroyed) : Thread("counted"), destroyed_(destroyed) {}
  ~CountedThread() override { ++destroyed_; }

 private:
  std::atomic<int>& destroyed_;
};

TEST(ThreadFaultTest, FailedCreationIsReportedAndTheObjectIsFreed) {
  const LogCapture log;
  std::atomic<int> destroyed{0};
  StderrCapture errors;
  const Fault<int> active(createFault, EAGAIN);
  EXPECT_FALSE((new CountedThread(destroyed))->start());
  EXPECT_EQ(errors.stop(), "Thread::start()  pthread_create failed\n");
  EXPECT_EQ(destroyed, 1);
  EXPECT_THAT(log.lines("Thread"),
              ElementsAre(LogLine{"DEBUG", "Thread", "Creating Thread"},
                          LogLine{"DEBUG", "Thread", "Thread Created successfully"}));
}

TEST(ThreadFaultTest, ThreadThatIsHeldCanBeStartedAgain) {
  std::atomic<int> destroyed{0};
  CountedThread* const thread = new CountedThread(destroyed);
  thread->reserve();
  {
    StderrCapture errors;
    const Fault<int> active(createFault, EAGAIN);
    EXPECT_FALSE(thread->start());
  }
  thread->setPriority({0});  // not started: nothing happens
  EXPECT_EQ(destroyed, 0);
  EXPECT_TRUE(thread->start());
  thread->release();
  while (destroyed == 0) {
  }
}

class CountedRunner : public kestrel::Runnable {
 public:
  explicit CountedRunner(std::atomic<int>& destroyed) : destroyed_(destroyed) {}
  ~CountedRunner() override { ++destroyed_; }
  void run() override { ++runs; }

  std::atomic<int> runs{0};

 private:
  std::atomic<int>& destroyed_;
};

double workerCount() {
  class Reader : public kestrel::MetricRegistry::Visitor {
   public:
    bool visit(kestrel::Metric* metric) override {
      if (metric->getName() != "Worker Count") {
        return false;
      }
      count = metric->collect();
      return true;
    }
    double count = -1.0;
  } reader;
  kestrel::MetricRegistry::Instance()->visit(reader);
  return reader.count;
}

TEST(ThreadFaultTest, WorkerWithoutAThreadIsDroppedAndSpawnReportsIt) {
  std::atomic<int> destroyed{0};
  CountedRunner runner(destroyed);
  kestrel::ThreadGroup group("Faulty");
  {
    const LogCapture log;
    StderrCapture errors;
    const Fault<int> active(createFault, EAGAIN);
    EXPECT_FALSE(group.spawn(&runner, false));
    EXPECT_FALSE(group.spawn(&runner, true));
    EXPECT_EQ(group.getWorker(), nullptr);
    EXPECT_THAT(log.lines("ThreadGroup"), IsEmpty());
  }
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(runner.runs, 0);
  EXPECT_EQ(workerCount(), 0.0);

  EXPECT_TRUE(group.spawn(&runner, false));  // threads can be had again
  EXPECT_EQ(workerCount(), 1.0);
  while (runner.runs == 0) {
  }
  group.close();
}

TEST(ThreadFaultTest, GroupWithoutAnyThreadCloses) {
  StderrCapture errors;
  const Fault<int> active(createFault, EAGAIN);
  kestrel::ThreadGroup group("Empty");
  EXPECT_EQ(group.getWorker(), nullptr);
  group.close();
}

}  // namespace
