// A mutex with one condition variable. A failing POSIX call stores its result in errno and is
// reported on standard error; the caller goes on as if it had succeeded. Not recursive.
#pragma once

#include "kestrel/ThreadAnnotations.h"

namespace kestrel {

class CAPABILITY("mutex") Lock {
 public:
  Lock();
  virtual ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void lock() ACQUIRE();
  void unlock() RELEASE();

  // Releases the lock, sleeps until notified, takes the lock again. May wake without cause: re-test
  // the condition in a loop.
  void wait() REQUIRES(this);
  // As above, for at most `milliseconds` of wall-clock time (a negative number counts as 0); a
  // time-out is not told from a wake-up. See Deadline for waiting in a loop.
  void wait(int milliseconds) REQUIRES(this);

  // The lock need not be held.
  void notify();     // one waiter
  void notifyAll();  // every waiter

 private:
  struct Block;
  Block* block_;  // owned; null when it could not be allocated: then no operation does anything
};

// Holds a lock for a scope.
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lock& lock) ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~ScopedLock() RELEASE() {
    if (held_) {
      lock_.unlock();
    }
  }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

  // Gives the lock up before the scope ends, and takes it again: for a call that must run without
  // it.
  void unlock() RELEASE() {
    held_ = false;
    lock_.unlock();
  }
  void lock() ACQUIRE() {
    lock_.lock();
    held_ = true;
  }

 private:
  Lock& lock_;  // borrowed
  bool held_ = true;
};

}  // namespace kestrel
