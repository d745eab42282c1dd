// A pool of reusable worker threads: a worker that has finished its runner waits for the next one,
// and the worker that came back last is taken first. Any thread may spawn; a runner may spawn too,
// but does not close its own group: close() waits for running runners and would wait for itself.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/Metric.h"
#include "kestrel/threads/Lock.h"
#include "kestrel/threads/Runnable.h"
#include "kestrel/threads/Thread.h"

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

  // Called by a runner, on the thread that runs it, just before it lets others know that it has
  // ended, and after which it spawns nothing: its worker is among the idle ones from now on, so
  // that whoever starts one task after another needs one worker and not two. Whoever takes the
  // worker waits for the rest of the runner. Does nothing on other threads, and a second time.
  static void returnWorkerEarly();

  // Takes a worker out of the group's idle ones, or creates one. Null when the group is closed or
  // no thread can be had. The caller gets a reference and releases it after assign().
  WorkerThread* getWorker();
  // Makes a worker available again; nothing happens when the group is closed.
  void putWorker(WorkerThread* worker);

  // Stops every worker: waits for the runners that run, drops those that have not begun. Later
  // calls do nothing.
  void close();

 private:
  WorkerThread* _createWorker() KESTREL_REQUIRES(lock_);

  const std::string name_;
  const std::string workerName_;
  RequiredLock lock_;
  std::vector<WorkerThread*> workers_ KESTREL_GUARDED_BY(lock_);  // one reference on each
  std::vector<WorkerThread*> idle_ KESTREL_GUARDED_BY(lock_);  // a stack; no references of its own
  bool closed_ KESTREL_GUARDED_BY(lock_) = false;
  // The sizes of both vectors, for the metrics, which read without the lock.
  std::atomic<std::size_t> workerCount_{0};
  std::atomic<std::size_t> idleCount_{0};
  std::unique_ptr<Metric> busyMetric_;
  std::unique_ptr<Metric> countMetric_;
};

// One thread of a group. It is busy from the start of a runner until that has ended and the worker
// has gone back to the group; assign() and stop() wait for the end of that. No lock is held while a
// runner runs.
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
  friend class ThreadGroup;

  void _giveBack();
  void _awaitEndOfRunner() KESTREL_REQUIRES(workLock_);
  void _dropPending() KESTREL_REQUIRES(workLock_);

  static thread_local WorkerThread* current_;  // of the thread that runs a runner

  ThreadGroup& group_;     // not touched once stopping_ is set: it may be gone
  bool givenBack_ = true;  // since the last runner began; of the worker's own thread
  RequiredLock workLock_;
  bool stopping_ KESTREL_GUARDED_BY(workLock_) = false;
  bool busy_ KESTREL_GUARDED_BY(workLock_) = false;
  bool deleteRunner_ KESTREL_GUARDED_BY(workLock_) = false;
  Runnable* runner_ KESTREL_GUARDED_BY(workLock_) = nullptr;  // null when idle
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
