// A mutex with one condition variable. A failing POSIX call stores its result in errno and is
// reported on standard error; the caller goes on as if it had succeeded. Not recursive.
#pragma once

#include "kestrel/threads/ThreadAnnotations.h"

namespace kestrel {

class KESTREL_CAPABILITY("mutex") Lock {
 public:
  Lock();
  virtual ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void lock() KESTREL_ACQUIRE();
  void unlock() KESTREL_RELEASE();

  // Releases the lock, sleeps until notified, takes the lock again. May wake without cause: re-test
  // the condition in a loop.
  void wait() KESTREL_REQUIRES(this);
  // As above, for at most `milliseconds` of wall-clock time (a negative number counts as 0); a
  // time-out is not told from a wake-up. See Deadline for waiting in a loop.
  void wait(int milliseconds) KESTREL_REQUIRES(this);

  // The lock need not be held.
  void notify();     // one waiter
  void notifyAll();  // every waiter

 protected:
  bool _hasBlock() const { return block_ != nullptr; }

 private:
  struct Block;
  // Owned; null when it could not be allocated: then no operation does anything, but that a wait
  // lets other threads run.
  Block* block_;
};

// A lock that there is: whose construction throws std::bad_alloc when its block cannot be
// allocated. For what would be torn, or wait for ever, without it.
class KESTREL_CAPABILITY("mutex") RequiredLock : public Lock {
 public:
  RequiredLock();
};

// Holds a lock for a scope.
class KESTREL_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lock& lock) KESTREL_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~ScopedLock() KESTREL_RELEASE() {
    if (held_) {
      lock_.unlock();
    }
  }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

  // Gives the lock up before the scope ends, and takes it again: for a call that must run without
  // it.
  void unlock() KESTREL_RELEASE() {
    held_ = false;
    lock_.unlock();
  }
  void lock() KESTREL_ACQUIRE() {
    lock_.lock();
    held_ = true;
  }

 private:
  Lock& lock_;  // borrowed
  bool held_ = true;
};

}  // namespace kestrel
