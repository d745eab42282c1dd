// The parent's side of a child process: following it until it ends, and reaping it. A child that
// has ended stays there, and its process id its own, until it is reaped; so whoever sends it
// signals can rule out that they reach another.
#pragma once

#include <sys/types.h>

namespace kestrel {

class ChildWatch {
 public:
  explicit ChildWatch(pid_t pid) : pid_(pid) {}

  // Waits for the outcome of the child's attempt to become a command, without reading the status
  // pipe, whose read end is `statusFd`: data means that it failed, a hang-up without data that the
  // command runs, or that the child has ended. False when it failed.
  bool awaitExecuted(int statusFd) const;
  // Reads what the child writes to a pipe, and drops it, until the child has closed the pipe or
  // ended. The descriptor must be non-blocking.
  void dropOutput(int fd) const;
  // Waits until the child has ended, without reaping it. 0, or the errno.
  int awaitEnd() const;
  // Reaps the child; waits for it when it has not ended. 0, or the errno; `waitStatus` is that of
  // waitpid(2).
  int reap(int& waitStatus) const;

  // Takes the errno out of a status pipe, which must be non-blocking. False when there is none.
  static bool readExecError(int statusFd, int& error);

 private:
  bool _hasEnded() const;

  const pid_t pid_;
};

}  // namespace kestrel
