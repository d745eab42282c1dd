// Runs one external command as a child process whose standard input, output and error are pipes,
// watched by a background thread that reaps the child and reports how it ended. No shell is
// involved.
//
// An object is made by the factory, runs one command at a time, and is disposed of with
// selfDestruct(). Operations may be called from any thread unless they say otherwise, but none
// after selfDestruct().
//
// Exit status: RUNNING from the moment the child exists until its listener has been told of its
// end; then 0 to 255, the child's exit code, or one of the other negative values but REFUSED, which
// is no status.
#pragma once

#include <string>
#include <vector>

#include "kestrel/exec/PortableFile.h"

namespace kestrel {

class SimpleExec {
 public:
  static constexpr int RUNNING = -1;
  static constexpr int NO_COMMAND = -2;   // also before the first exec()
  static constexpr int PIPE_FAILED = -3;  // a pipe could not be created
  static constexpr int FORK_FAILED = -4;  // the child, or the thread to watch it, could not be had
  static constexpr int EXEC_FAILED = -5;  // the command could not be executed in the child
  static constexpr int WAIT_FAILED = -6;  // waiting for the child failed
  static constexpr int KILLED = -7;       // the child was killed by a signal
  static constexpr int REFUSED = -8;      // what exec() returns while a child runs

  class ExitListener {
   public:
    virtual ~ExitListener() = default;
    // The child has ended. Called once, on the watcher's thread, while isRunning() is still true;
    // it may call selfDestruct(), but must not wait for the child, nor for a thread that disposes
    // of the object.
    virtual void onExit(SimpleExec* exec, int exitStatus) = 0;
  };

 protected:
  virtual ~SimpleExec() = default;  // see selfDestruct()

 public:
  // Start a command; its first word is searched on PATH unless it holds a "/". RUNNING when the
  // child was started (it may have ended by the time of the return), else the negative status. The
  // working directory is the program's when it is empty, "." or never given. The listener is
  // borrowed until the child's end and may be null. One thread; not while a child runs: then the
  // result is REFUSED, nothing is started, and child, status and listener stay as they are.
  virtual int exec(int argc, const char* const* argv, const char* workingDir,
                   ExitListener* listener) = 0;
  virtual int exec(const std::vector<std::string>& args, ExitListener* listener) = 0;
  virtual int exec(const std::vector<std::string>& args, const std::string& workingDir,
                   ExitListener* listener) = 0;
  // Splits the line with ShellCommandLineParser.
  virtual int exec(const char* commandLine, const char* workingDir, ExitListener* listener) = 0;

  // Sends the child SIGKILL (`force`) or SIGINT, if it has not ended.
  virtual void terminate(bool force) = 0;
  // Waits for the child's end for at most `milliseconds`, or as long as it takes when that is 0. 0
  // when the child has ended or none was started, else -1.
  virtual int waitTilDone(unsigned int milliseconds) = 0;
  // Drops the listener and deletes the object: at once, or at the child's end when it still runs. A
  // listener call that runs on another thread has returned before this does. The object must not be
  // touched any more.
  virtual void selfDestruct() = 0;
  // The environment of the commands to come: exactly these "NAME=VALUE" entries, null-terminated.
  // With none, or null, they inherit the program's. One thread, not during exec().
  virtual void setEnvironment(const char* const* envp) = 0;

  virtual bool isRunning() const = 0;
  virtual int getExitStatus() const = 0;
  // Of the last child; -1 when there was none.
  virtual int getPid() const = 0;
  // The last command without its directory. This and getArgv() not during exec().
  virtual const std::string& getName() const = 0;
  // Null-terminated, owned by the object; null before the first exec().
  virtual const char* const* getArgv() const = 0;

  // Hand over the parent's end of one of the child's pipes; the caller owns it. Null when there is
  // none or it was claimed before. The names are the child's view: it writes the write pipe (its
  // standard output, for the caller to read) and reads the read pipe (its standard input, for the
  // caller to write). Ends that nobody claims stay open until the object is gone or starts another
  // command: a child that writes more into one than a pipe holds stops there.
  virtual PortablePipe* claimWritePipe() = 0;
  virtual PortablePipe* claimReadPipe() = 0;
  virtual PortablePipe* claimErrorPipe() = 0;  // standard error; null after discardErrorPipe()

  // Called before exec(): what the children to come write to standard error is read and dropped by
  // their watcher, so that it never stops them.
  virtual void discardErrorPipe() = 0;
  // Waits until it is known whether the child could execute the command. True: it could, and may
  // have ended by now; false: it could not, and waitTilDone() will soon give EXEC_FAILED; or no
  // child was started.
  virtual bool waitTilExecuted() = 0;
};

class SimpleExecFactory {
 public:
  // Never null; the caller disposes of it with selfDestruct().
  static SimpleExec* createInstance();
};

}  // namespace kestrel
