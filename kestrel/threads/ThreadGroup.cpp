#include "kestrel/threads/ThreadGroup.h"

#include <algorithm>
#include <new>
#include <utility>

#include "kestrel/MetricRegistry.h"
#include "kestrel/log/Logger.h"

namespace kestrel {

namespace {

Logger& _log() {
  static Logger* const logger = Logger::getLogger("ThreadGroup");
  return *logger;
}

const void* _address(const void* object) { return object; }  // for %p

}  // namespace

ThreadGroup::ThreadGroup(const char* name) : ThreadGroup(std::string(name)) {}

ThreadGroup::ThreadGroup(const std::string& name) : name_(name), workerName_(name + " Worker") {
  _log().debugf("constructor: this:%p name:%s", _address(this), name_.c_str());
  busyMetric_ = std::make_unique<BusyMetric>(*this);
  countMetric_ = std::make_unique<CountMetric>(*this);
  MetricRegistry::Instance()->addMetric(busyMetric_.get());
  MetricRegistry::Instance()->addMetric(countMetric_.get());
}

ThreadGroup::~ThreadGroup() {
  close();
  MetricRegistry::Instance()->removeMetric(countMetric_.get());
  MetricRegistry::Instance()->removeMetric(busyMetric_.get());
}

bool ThreadGroup::spawn(Runnable* runner, bool deleteRunner) {
  WorkerThread* const worker = runner == nullptr ? nullptr : getWorker();
  if (worker == nullptr) {
    return false;
  }
  _log().debugf("spawn: group:%s worker:%p runner:%p", name_.c_str(), _address(worker),
                _address(runner));
  const bool assigned = worker->assign(runner, deleteRunner);
  worker->release();
  return assigned || deleteRunner;
}

ThreadGroup::WorkerThread* ThreadGroup::getWorker() {
  const ScopedLock guard(lock_);
  if (closed_) {
    return nullptr;
  }
  if (idle_.empty()) {
    return _createWorker();
  }
  WorkerThread* const worker = idle_.back();
  idle_.pop_back();
  idleCount_.store(idle_.size());
  worker->reserve();  // the caller's: a close() may release ours at once
  return worker;
}

// Without memory there is no thread either.
ThreadGroup::WorkerThread* ThreadGroup::_createWorker() try {
  // First, and for the way back, too: a worker that returns must not run out of memory.
  if (idle_.capacity() == workers_.size() || workers_.capacity() == workers_.size()) {
    workers_.reserve(2 * workers_.size() + 1);
    idle_.reserve(workers_.capacity());
  }
  WorkerThread* const worker = new WorkerThread(workerName_, *this);
  worker->reserve();  // the group's
  worker->reserve();  // the caller's
  if (!worker->start()) {
    worker->release();
    worker->release();
    return nullptr;
  }
  workers_.push_back(worker);
  workerCount_.store(workers_.size());
  _log().debugf("getWorker: group:%s worker:%p new worker created.  There are %d workers.",
                name_.c_str(), _address(worker), static_cast<int>(workers_.size()));
  return worker;
} catch (const std::bad_alloc&) {
  return nullptr;
}

void ThreadGroup::putWorker(WorkerThread* worker) {
  const ScopedLock guard(lock_);
  if (closed_) {
    return;
  }
  _log().debugf("putWorker: group:%s worker:%p has returned", name_.c_str(), _address(worker));
  idle_.push_back(worker);
  idleCount_.store(idle_.size());
}

// The workers are stopped without the group's lock: one that runs a runner holds its own lock and
// may want the group's, in putWorker() or in a spawn() of the runner.
void ThreadGroup::close() {
  std::vector<WorkerThread*> workers;
  {
    const ScopedLock guard(lock_);
    closed_ = true;
    workers.swap(workers_);
    idle_.clear();
    idleCount_.store(0);
    workerCount_.store(0);
  }
  for (WorkerThread* worker : workers) {
    worker->stop();
    worker->release();
  }
}

void ThreadGroup::returnWorkerEarly() {
  if (WorkerThread* const worker = WorkerThread::current_) {
    worker->_giveBack();
  }
}

thread_local ThreadGroup::WorkerThread* ThreadGroup::WorkerThread::current_ = nullptr;

ThreadGroup::WorkerThread::WorkerThread(const std::string& name, ThreadGroup& group)
    : Thread(name), group_(group) {}

bool ThreadGroup::WorkerThread::assign(Runnable* runner, bool deleteRunner) {
  {
    const ScopedLock guard(workLock_);
    _awaitEndOfRunner();
    if (!stopping_) {
      runner_ = runner;
      deleteRunner_ = deleteRunner;
      workLock_.notifyAll();
      return true;
    }
  }
  if (deleteRunner) {
    delete runner;
  }
  return false;
}

void ThreadGroup::WorkerThread::run() {
  ScopedLock guard(workLock_);
  while (!stopping_) {
    if (runner_ == nullptr) {
      workLock_.wait();
      continue;
    }
    Runnable* const runner = runner_;
    busy_ = true;
    guard.unlock();
    givenBack_ = false;
    current_ = this;
    runner->run();  // may delete itself
    current_ = nullptr;
    _giveBack();
    guard.lock();
    runner_ = nullptr;
    busy_ = false;
    workLock_.notifyAll();
  }
  _dropPending();
  workLock_.notifyAll();
}

void ThreadGroup::WorkerThread::_giveBack() {
  if (!givenBack_) {
    givenBack_ = true;
    group_.putWorker(this);
  }
}

// Being busy stands for the worker lock, which nobody gets while a runner runs. Not the lock
// itself: a runner that spawns takes the lock of another worker, whose runner may spawn on this one
// later.
void ThreadGroup::WorkerThread::_awaitEndOfRunner() {
  while (busy_) {
    workLock_.wait();
  }
}

void ThreadGroup::WorkerThread::_dropPending() {
  if (deleteRunner_) {
    delete runner_;
  }
  runner_ = nullptr;
}

void ThreadGroup::WorkerThread::stop() {
  const ScopedLock guard(workLock_);
  _awaitEndOfRunner();
  if (stopping_) {
    return;
  }
  stopping_ = true;
  workLock_.notifyAll();
  while (runner_ != nullptr) {
    workLock_.wait();
  }
}

ThreadGroup::BusyMetric::BusyMetric(const ThreadGroup& group)
    : Metric("Thread Group", group.name_, "Busy Count",
             "the number of thread group worker threads that are in use."),
      group_(group) {}

double ThreadGroup::BusyMetric::collect() {
  // Idle first: the number of workers only grows meanwhile, or falls to zero with the group's end.
  const std::size_t idle = group_.idleCount_.load();
  const std::size_t workers = group_.workerCount_.load();
  return static_cast<double>(workers - std::min(idle, workers));
}

ThreadGroup::CountMetric::CountMetric(const ThreadGroup& group)
    : Metric("Thread Group", group.name_, "Worker Count",
             "the number of worker threads allocated for thread group"),
      group_(group) {}

double ThreadGroup::CountMetric::collect() {
  return static_cast<double>(group_.workerCount_.load());
}

DefaultThreadGroup::DefaultThreadGroup() : ThreadGroup("Default") {}

DefaultThreadGroup* DefaultThreadGroup::Instance() {
  static DefaultThreadGroup* const instance = new DefaultThreadGroup();
  return instance;
}

}  // namespace kestrel
