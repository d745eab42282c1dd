// A detached thread that runs a Runnable, or an override of run(), and frees itself. The running
// thread holds one reference on its object; whoever wants to touch the object after start() holds
// another.
#pragma once

#include <pthread.h>
#include <string>

#include "kestrel/exec/SelfDestructingObject.h"
#include "kestrel/threads/Lock.h"
#include "kestrel/threads/Runnable.h"

namespace kestrel {

class Thread : public SelfDestructingObject {
 public:
  // 0: runs only when nothing else wants the processor. Any other level: a real-time (first in,
  // first out) thread of priority level + 18.
  struct Priority {
    int level = 0;
  };

  // The name is also the kernel's name of the thread, which keeps its first 15 bytes.
  explicit Thread(const std::string& name);
  explicit Thread(const char* name);
  // Borrows the runnable: it must live until its run() has returned.
  Thread(const std::string& name, Runnable* runnable);
  Thread(const char* name, Runnable* runnable);
  ~Thread() override = default;

  const std::string& getName() const { return name_; }

  // Starts the thread unless it was started before. False when the system gives no thread; then the
  // thread's own reference is released again, which deletes an object that nobody else holds.
  bool start();
  // What the thread does: runs the runnable, if one was given.
  virtual void run();
  // Only for a thread that has been started and has not ended; the system may refuse, silently.
  void setPriority(const Priority& priority);

  // The entry of every thread; `thread` is a Thread* and its reference passes to the callee.
  static void* bootstrap(void* thread);

 private:
  bool _create();
  void _markEnded();

  const std::string name_;
  Runnable* const runnable_;  // borrowed, may be null

  RequiredLock handleLock_;
  bool started_ KESTREL_GUARDED_BY(handleLock_) = false;
  bool ended_ KESTREL_GUARDED_BY(handleLock_) = false;
  pthread_t handle_ KESTREL_GUARDED_BY(handleLock_) = {};  // valid from started_ until ended_
};

}  // namespace kestrel
