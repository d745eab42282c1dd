// The process runner over fork() and exec. Each child is watched by a worker of the default thread
// group, which reaps it.
#pragma once

#include <array>
#include <pthread.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "kestrel/exec/EnvironmentBuilder.h"
#include "kestrel/exec/SimpleExec.h"
#include "kestrel/threads/Lock.h"
#include "kestrel/threads/Runnable.h"
#include "kestrel/threads/ThreadAnnotations.h"

namespace kestrel {

class LinuxSimpleExec final : public SimpleExec, public Runnable {
 public:
  LinuxSimpleExec();
  LinuxSimpleExec(const LinuxSimpleExec&) = delete;
  LinuxSimpleExec& operator=(const LinuxSimpleExec&) = delete;

  int exec(int argc, const char* const* argv, const char* workingDir,
           ExitListener* listener) override;
  int exec(const std::vector<std::string>& args, ExitListener* listener) override;
  int exec(const std::vector<std::string>& args, const std::string& workingDir,
           ExitListener* listener) override;
  int exec(const char* commandLine, const char* workingDir, ExitListener* listener) override;
  void terminate(bool force) override;
  int waitTilDone(unsigned int milliseconds) override;
  void selfDestruct() override;
  void setEnvironment(const char* const* envp) override;

  bool isRunning() const override;
  int getExitStatus() const override;
  int getPid() const override;
  const std::string& getName() const override { return name_; }
  const char* const* getArgv() const override;

  PortablePipe* claimWritePipe() override;
  PortablePipe* claimReadPipe() override;
  PortablePipe* claimErrorPipe() override;
  void discardErrorPipe() override;
  bool waitTilExecuted() override;

  // The errno of the last failure; 0 when the last command had none.
  int getErrorNumber() const;

  // The watcher; only the thread group calls it. May delete the object.
  void run() override;

  // Counters of the class. Any thread.
  static unsigned getExecutionCount();  // children that a watcher has waited for
  static unsigned getInstanceCount();   // objects that exist
  static unsigned getErrorCount();      // commands that could not be run

 private:
  enum class Outcome { UNKNOWN, EXECUTED, NOT_EXECUTED };  // of the child's attempt to execute
  // Standard input, output and error; the exec status.
  enum PipeIndex { IN, OUT, ERROR, STATUS, PIPE_COUNT };
  struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
  };
  using Pipes = std::array<Pipe, PIPE_COUNT>;

  ~LinuxSimpleExec() override;

  int _exec(const std::vector<std::string>& args, const char* workingDir, ExitListener* listener);
  int _init();
  void _reset();
  int _fail(int status, int error);
  void _logCommand() const;
  bool _createPipes(Pipes& pipes) const;
  static void _closePipes(Pipes& pipes);
  pid_t _fork(const Pipes& pipes);
  void _adopt(pid_t pid, Pipes& pipes);
  int _abandonChild();
  void _setOutcome(Outcome outcome);
  void _closeEnds() KESTREL_REQUIRES(lock_);
  void _setArgv(const std::vector<std::string>& args);
  void _freeArgv();

  int _reap(int waitError) KESTREL_REQUIRES(lock_);
  int _checkExecuted(int status) KESTREL_REQUIRES(lock_);
  void _tellListener(int status) KESTREL_REQUIRES(lock_);

  // Set by exec(), before the watcher exists and while none runs.
  std::string name_;
  std::string workingDir_;
  std::vector<char*> argv_;  // entries from strdup(), null-terminated; empty before any exec()
  EnvironmentBuilder environment_;
  bool discardErrors_ = false;
  int statusFd_ = -1;   // read end of the exec status pipe, non-blocking; the watcher's
  int droppedFd_ = -1;  // read end of a standard error that is dropped, non-blocking; the watcher's

  mutable RequiredLock lock_;  // its condition: the exit status has changed
  pid_t pid_ KESTREL_GUARDED_BY(lock_) = -1;
  int inFd_ KESTREL_GUARDED_BY(lock_) = -1;  // the parent's ends; -1 when absent or claimed
  int outFd_ KESTREL_GUARDED_BY(lock_) = -1;
  int errorFd_ KESTREL_GUARDED_BY(lock_) = -1;
  int exitStatus_ KESTREL_GUARDED_BY(lock_) = NO_COMMAND;
  int errorNumber_ KESTREL_GUARDED_BY(lock_) = 0;
  bool selfDestruct_ KESTREL_GUARDED_BY(lock_) = false;
  ExitListener* listener_ KESTREL_GUARDED_BY(lock_) = nullptr;  // borrowed
  bool reaped_ KESTREL_GUARDED_BY(lock_) = false;  // the pid may be another process's by now
  bool listenerRuns_ KESTREL_GUARDED_BY(lock_) = false;
  pthread_t listenerThread_ KESTREL_GUARDED_BY(lock_) = {};  // valid while listenerRuns_
  // selfDestruct() deletes the object, not the watcher.
  bool destroyerWaits_ KESTREL_GUARDED_BY(lock_) = false;

  RequiredLock outcomeLock_;  // its condition: the outcome is known
  Outcome outcome_ KESTREL_GUARDED_BY(outcomeLock_) = Outcome::NOT_EXECUTED;
};

}  // namespace kestrel
