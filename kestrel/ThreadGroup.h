// A pool of reusable worker threads: a worker that has finished its runner waits for the next one,
// and the worker that came back last is taken first. Any thread may spawn; a runner may spawn too,
// but does not close its own group: close() waits for running runners and would wait for itself.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/Lock.h"
#include "kestrel/Metric.h"
#include "kestrel/Runnable.h"
#include "kestrel/Thread.h"

namespace kestrel {

class ThreadGroup {
 public:
  class WorkerThread;
  class BusyMetric;
  class CountMetric;

  explicit ThreadGroup(const char* name);
  explicit ThreadGroup(const std::string& name);
  // Closes the group. Nobody may use the group any more, its workers excepted.
  virtual ~ThreadGroup();
  ThreadGroup(const ThreadGroup&) = delete;
  ThreadGroup& operator=(const ThreadGroup&) = delete;

  const std::string& getName() const { return name_; }

  // Hands the runner to an idle or a new worker. False when the group is closed, the runner is null
  // or no thread can be had: the runner will not run and is untouched. True when a worker took it;
  // a worker that is stopped before the runner has begun does not run it any more, and deletes it
  // if `deleteRunner` is set. A runner that has run is never deleted by the group.
  bool spawn(Runnable* runner, bool deleteRunner);

  // Takes a worker out of the group's idle ones, or creates one. Null when the group is closed or
  // no thread can be had. The caller gets a reference and releases it after assign().
  WorkerThread* getWorker();
  // Makes a worker available again; nothing happens when the group is closed.
  void putWorker(WorkerThread* worker);

  // Stops every worker: waits for the runners that run, drops those that have not begun. Later
  // calls do nothing.
  void close();

 private:
  WorkerThread* _createWorker() REQUIRES(lock_);

  const std::string name_;
  const std::string workerName_;
  Lock lock_;
  std::vector<WorkerThread*> workers_ GUARDED_BY(lock_);  // one reference on each
  std::vector<WorkerThread*> idle_ GUARDED_BY(lock_);     // a stack; no references of its own
  bool closed_ GUARDED_BY(lock_) = false;
  // The sizes of both vectors, for the metrics, which read without the lock.
  std::atomic<std::size_t> workerCount_{0};
  std::atomic<std::size_t> idleCount_{0};
  std::unique_ptr<Metric> busyMetric_;
  std::unique_ptr<Metric> countMetric_;
};

// One thread of a group. It is busy from the start of a runner until it has gone back to the group;
// assign() and stop() wait for the end of that. No lock is held while a runner runs.
class ThreadGroup::WorkerThread : public Thread {
 public:
  WorkerThread(const std::string& name, ThreadGroup& group);
  ~WorkerThread() override = default;

  // Gives the worker its next runner. False when the worker is stopping: then it deletes the runner
  // if `deleteRunner` is set, and leaves it alone otherwise. One call for each time the worker was
  // taken.
  bool assign(Runnable* runner, bool deleteRunner);
  // Tells the thread to end. Returns when no runner runs or is pending.
  void stop();
  void run() override;

 private:
  void _awaitEndOfRunner() REQUIRES(workLock_);
  void _dropPending() REQUIRES(workLock_);

  ThreadGroup& group_;  // not touched once stopping_ is set: it may be gone
  Lock workLock_;
  bool stopping_ GUARDED_BY(workLock_) = false;
  bool busy_ GUARDED_BY(workLock_) = false;
  bool deleteRunner_ GUARDED_BY(workLock_) = false;
  Runnable* runner_ GUARDED_BY(workLock_) = nullptr;  // null when idle
};

// "Busy Count": workers that are in use.
class ThreadGroup::BusyMetric : public Metric {
 public:
  explicit BusyMetric(const ThreadGroup& group);
  double collect() override;

 private:
  const ThreadGroup& group_;
};

// "Worker Count": workers that exist.
class ThreadGroup::CountMetric : public Metric {
 public:
  explicit CountMetric(const ThreadGroup& group);
  double collect() override;

 private:
  const ThreadGroup& group_;
};

// The process-wide group, for work that has no group of its own.
class DefaultThreadGroup : public ThreadGroup {
 public:
  // Never null, and never destroyed: its threads may still run when the process ends.
  static DefaultThreadGroup* Instance();

 private:
  DefaultThreadGroup();
};

}  // namespace kestrel
