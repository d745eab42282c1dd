#include "kestrel/threads/Lock.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <sys/time.h>

namespace kestrel {

namespace {

void _report(int result, const char* message) {
  if (result != 0) {
    errno = result;
    perror(message);
  }
}

constexpr long NANOSECONDS_PER_SECOND = 1000000000;

timespec _timeAfter(int milliseconds) {
  timeval now{};
  gettimeofday(&now, nullptr);
  timespec end{};
  end.tv_sec = now.tv_sec + milliseconds / 1000;
  end.tv_nsec = (milliseconds % 1000) * 1000000L + static_cast<long>(now.tv_usec) * 1000L;
  if (end.tv_nsec >= NANOSECONDS_PER_SECOND) {
    end.tv_sec += 1;
    end.tv_nsec -= NANOSECONDS_PER_SECOND;
  }
  return end;
}

}  // namespace

// Usable also when the calls that initialise it fail, since execution goes on.
struct Lock::Block {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
};

Lock::Lock() : block_(new (std::nothrow) Block) {
  if (block_ != nullptr) {
    _report(pthread_mutex_init(&block_->mutex, nullptr), "pthread_mutex_init() error");
    _report(pthread_cond_init(&block_->condition, nullptr), "pthread_cond_init() error");
  }
}

Lock::~Lock() {
  if (block_ != nullptr) {
    pthread_cond_destroy(&block_->condition);
    pthread_mutex_destroy(&block_->mutex);
    delete block_;
  }
}

RequiredLock::RequiredLock() {
  if (!_hasBlock()) {
    throw std::bad_alloc();
  }
}

void Lock::lock() KESTREL_NO_THREAD_SAFETY_ANALYSIS {
  if (block_ != nullptr) {
    _report(pthread_mutex_lock(&block_->mutex), "pthread_mutex_lock() error");
  }
}

void Lock::unlock() KESTREL_NO_THREAD_SAFETY_ANALYSIS {
  if (block_ != nullptr) {
    _report(pthread_mutex_unlock(&block_->mutex), "pthread_mutex_unlock() error");
  }
}

void Lock::wait() {
  if (block_ == nullptr) {
    sched_yield();
    return;
  }
  _report(pthread_cond_wait(&block_->condition, &block_->mutex), "pthread_cond_wait() error");
}

void Lock::wait(int milliseconds) {
  if (block_ == nullptr) {
    sched_yield();
    return;
  }
  const timespec end = _timeAfter(milliseconds < 0 ? 0 : milliseconds);
  const int result = pthread_cond_timedwait(&block_->condition, &block_->mutex, &end);
  if (result != ETIMEDOUT) {
    _report(result, "pthread_cond_timedwait() error");
  }
}

void Lock::notify() {
  if (block_ != nullptr) {
    _report(pthread_cond_signal(&block_->condition), "pthread_cond_signal() error");
  }
}

void Lock::notifyAll() {
  if (block_ != nullptr) {
    _report(pthread_cond_broadcast(&block_->condition), "pthread_cond_broadcast() error");
  }
}

}  // namespace kestrel
