// Tasks on workers of the default thread group that others wait for. A worker needs a moment to
// come back to the group after its task has been seen to end; whoever starts one task after another
// would find no idle worker now and then, and the group would grow by one each time. So a new task
// waits for that moment first.
#pragma once

namespace kestrel {

class Runnable;

class BackgroundTasks {
 public:
  // As ThreadGroup::spawn() of the default group, without deletion: false when no worker can be
  // had. Any thread.
  static bool start(Runnable* task);
  // The task calls this once, just before it lets others know that it has ended.
  static void markEnding();
};

}  // namespace kestrel
