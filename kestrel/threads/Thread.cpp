#include "kestrel/threads/Thread.h"

#include <cstdio>
#include <limits>
#include <sched.h>
#include <sys/prctl.h>

#include "kestrel/log/Logger.h"

namespace kestrel {

namespace {

Logger& _log() {
  static Logger* const logger = Logger::getLogger("Thread");
  return *logger;
}

constexpr int REAL_TIME_BASE = 18;  // level 1 is the real-time priority 19

}  // namespace

Thread::Thread(const std::string& name) : Thread(name, nullptr) {}

Thread::Thread(const char* name) : Thread(name, nullptr) {}

Thread::Thread(const char* name, Runnable* runnable) : Thread(std::string(name), runnable) {}

Thread::Thread(const std::string& name, Runnable* runnable) : name_(name), runnable_(runnable) {
  _log();  // the logger exists before the first thread does
}

bool Thread::start() {
  reserve();  // our own: the new thread may end, and delete the object, before we return
  const bool running = _create();
  release();
  return running;
}

// True when the thread runs, or ran.
bool Thread::_create() {
  ScopedLock guard(handleLock_);
  if (started_) {
    return true;
  }
  _log().debugf("Creating Thread");
  reserve();  // the running thread's
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  started_ = pthread_create(&handle_, &attributes, bootstrap, this) == 0;
  const bool created = started_;
  if (!created) {
    fputs("Thread::start()  pthread_create failed\n", stderr);
  }
  _log().debugf("Thread Created successfully");  // kept: said after a failure too
  pthread_attr_destroy(&attributes);
  guard.unlock();
  if (!created) {
    release();
  }
  return created;
}

void Thread::run() {
  if (runnable_ != nullptr) {
    runnable_->run();
  }
}

void* Thread::bootstrap(void* thread) {
  Thread* const self = static_cast<Thread*>(thread);
  prctl(PR_SET_NAME, self->name_.c_str(), 0, 0, 0);
  self->run();
  self->_markEnded();
  self->release();
  return nullptr;
}

// From here on the handle names nothing: a detached thread's is gone with it.
void Thread::_markEnded() {
  const ScopedLock guard(handleLock_);
  ended_ = true;
}

void Thread::setPriority(const Priority& priority) {
  const ScopedLock guard(handleLock_);
  if (!started_ || ended_) {
    return;
  }
  _log().debugf("setPriority %d", priority.level);
  sched_param parameters{};
  if (priority.level == 0) {
    parameters.sched_priority = 1;  // kept, whatever the platform makes of it
    pthread_setschedparam(handle_, SCHED_IDLE, &parameters);
    return;
  }
  constexpr int MOST = std::numeric_limits<int>::max() - REAL_TIME_BASE;
  const int level = priority.level < MOST ? priority.level : MOST;
  parameters.sched_priority = level + REAL_TIME_BASE;
  pthread_setschedparam(handle_, SCHED_FIFO, &parameters);
}

}  // namespace kestrel
