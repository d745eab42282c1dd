#include "kestrel/exec/LinuxSimpleExec.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "kestrel/exec/ChildLaunch.h"
#include "kestrel/exec/ChildWatch.h"
#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/ProcessMetrics.h"
#include "kestrel/exec/ShellCommandLineParser.h"
#include "kestrel/log/Logger.h"
#include "kestrel/threads/Deadline.h"
#include "kestrel/threads/ThreadGroup.h"

namespace kestrel {

namespace {

std::atomic<unsigned> executionCount{0};
std::atomic<unsigned> instanceCount{0};
std::atomic<unsigned> errorCount{0};

Logger& _log() {
  static Logger* const logger = Logger::getLogger("LinuxSimpleExec");
  return *logger;
}

void _closeFd(int& fd) {
  if (fd != -1) {
    ::close(fd);
    fd = -1;
  }
}

void _setNonBlocking(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags != -1) {
    ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  }
}

// Null when there is no descriptor.
PortablePipe* _wrap(int fd) {
  if (fd == -1) {
    return nullptr;
  }
  auto* const pipe = new LinuxPipe();
  pipe->setFd(fd);
  return pipe;
}

std::string _lastComponentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Null-terminated pointers to the strings, which must outlive them unchanged.
std::vector<char*> _pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& string : strings) {
    pointers.push_back(string.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

SimpleExec* SimpleExecFactory::createInstance() { return new LinuxSimpleExec(); }

LinuxSimpleExec::LinuxSimpleExec() {
  registerProcessMetrics();
  ++instanceCount;
}

LinuxSimpleExec::~LinuxSimpleExec() {
  _closeEnds();
  _freeArgv();
  --instanceCount;
}

int LinuxSimpleExec::exec(int argc, const char* const* argv, const char* workingDir,
                          ExitListener* listener) {
  std::vector<std::string> args;
  for (int i = 0; argv != nullptr && i < argc && argv[i] != nullptr; ++i) {
    args.emplace_back(argv[i]);
  }
  return _exec(args, workingDir, listener);
}

int LinuxSimpleExec::exec(const std::vector<std::string>& args, ExitListener* listener) {
  return _exec(args, nullptr, listener);
}

int LinuxSimpleExec::exec(const std::vector<std::string>& args, const std::string& workingDir,
                          ExitListener* listener) {
  return _exec(args, workingDir.c_str(), listener);
}

int LinuxSimpleExec::exec(const char* commandLine, const char* workingDir, ExitListener* listener) {
  std::vector<std::string> args;
  if (commandLine != nullptr) {
    ShellCommandLineParser::parse(commandLine, args);
  }
  return _exec(args, workingDir, listener);
}

void LinuxSimpleExec::terminate(bool force) {
  _log().tracef("%p [%s] terminate(%d)", static_cast<void*>(this), name_.c_str(), force ? 1 : 0);
  const ScopedLock guard(lock_);
  if (exitStatus_ == RUNNING && !reaped_) {
    ::kill(pid_, force ? SIGKILL : SIGINT);
  }
}

int LinuxSimpleExec::waitTilDone(unsigned int milliseconds) {
  const void* const self = this;
  _log().tracef("%p [%s] waitTilDone(%d)", self, name_.c_str(), static_cast<int>(milliseconds));
  const ScopedLock guard(lock_);
  if (milliseconds == 0) {
    while (exitStatus_ == RUNNING) {
      _log().debugf("%p [%s] waitTilDone: waiting forever", self, name_.c_str());
      lock_.wait();
      _log().debugf("%p [%s] waitTilDone: i am awake", self, name_.c_str());
    }
  } else if (exitStatus_ == RUNNING) {
    _log().debugf("%p [%s] waitTilDone: waiting %u msecs", self, name_.c_str(), milliseconds);
    const Deadline deadline(milliseconds);
    while (exitStatus_ == RUNNING && !deadline.passed()) {
      lock_.wait(deadline.remaining());
    }
    _log().debugf("%p [%s] waitTilDone: i am awake", self, name_.c_str());
  }
  return exitStatus_ == RUNNING ? -1 : 0;
}

void LinuxSimpleExec::selfDestruct() {
  _log().tracef("%p [%s] selfDestruct()", static_cast<void*>(this), name_.c_str());
  lock_.lock();
  listener_ = nullptr;
  selfDestruct_ = true;
  if (listenerRuns_ && pthread_equal(listenerThread_, pthread_self()) == 0) {
    destroyerWaits_ = true;
    while (exitStatus_ == RUNNING) {
      lock_.wait();
    }
  }
  const bool runs = exitStatus_ == RUNNING;
  lock_.unlock();
  if (!runs) {
    delete this;
  }
}

void LinuxSimpleExec::setEnvironment(const char* const* envp) { environment_.copyEnv(envp); }

bool LinuxSimpleExec::isRunning() const { return getExitStatus() == RUNNING; }

int LinuxSimpleExec::getExitStatus() const {
  const ScopedLock guard(lock_);
  return exitStatus_;
}

int LinuxSimpleExec::getPid() const {
  const ScopedLock guard(lock_);
  return pid_;
}

int LinuxSimpleExec::getErrorNumber() const {
  const ScopedLock guard(lock_);
  return errorNumber_;
}

const char* const* LinuxSimpleExec::getArgv() const {
  return argv_.empty() ? nullptr : argv_.data();
}

PortablePipe* LinuxSimpleExec::claimWritePipe() {
  const ScopedLock guard(lock_);
  return _wrap(std::exchange(outFd_, -1));
}

PortablePipe* LinuxSimpleExec::claimReadPipe() {
  const ScopedLock guard(lock_);
  return _wrap(std::exchange(inFd_, -1));
}

PortablePipe* LinuxSimpleExec::claimErrorPipe() {
  const ScopedLock guard(lock_);
  return _wrap(std::exchange(errorFd_, -1));
}

void LinuxSimpleExec::discardErrorPipe() { discardErrors_ = true; }

bool LinuxSimpleExec::waitTilExecuted() {
  const ScopedLock guard(outcomeLock_);
  while (outcome_ == Outcome::UNKNOWN) {
    outcomeLock_.wait();
  }
  return outcome_ == Outcome::EXECUTED;
}

unsigned LinuxSimpleExec::getExecutionCount() { return executionCount; }

unsigned LinuxSimpleExec::getInstanceCount() { return instanceCount; }

unsigned LinuxSimpleExec::getErrorCount() { return errorCount; }

void LinuxSimpleExec::run() {
  const void* const self = this;
  _log().tracef("%p [%s] run()", self, name_.c_str());
  ++executionCount;
  const ChildWatch child(getPid());
  _setOutcome(child.awaitExecuted(statusFd_) ? Outcome::EXECUTED : Outcome::NOT_EXECUTED);
  if (droppedFd_ != -1) {
    child.dropOutput(droppedFd_);
    _closeFd(droppedFd_);
  }
  const int waitError = child.awaitEnd();

  lock_.lock();
  const int status = _checkExecuted(_reap(waitError));
  if (!selfDestruct_) {
    _log().debugf("%p [%s] notifying interested parties, control flow ends", self, name_.c_str());
    _tellListener(status);
  }
  ThreadGroup::returnWorkerEarly();
  // Looked at again: the listener, or another thread meanwhile, may have disposed of the object.
  if (selfDestruct_ && !destroyerWaits_) {
    _log().debugf("%p [%s] self destructing control flow", self, name_.c_str());
    lock_.unlock();
    delete this;
    return;
  }
  exitStatus_ = status;
  // Whoever waits may delete the object as soon as the lock is free: nothing may follow.
  lock_.notifyAll();
  lock_.unlock();
}

int LinuxSimpleExec::_exec(const std::vector<std::string>& args, const char* workingDir,
                           ExitListener* listener) {
  const void* const self = this;
  _log().tracef("%p exec", self);
  {
    const ScopedLock guard(lock_);
    if (exitStatus_ == RUNNING) {
      _log().warnf("%p [%s] child pid=%d is still running", self, name_.c_str(), pid_);
      return REFUSED;
    }
    listener_ = listener;
  }
  _setArgv(args);
  if (workingDir != nullptr) {
    workingDir_ = workingDir;
  }
  return _init();
}

// Starts the child. Once a watcher has it the object may be gone at any time, so the status is not
// read again.
int LinuxSimpleExec::_init() {
  const void* const self = this;
  _log().tracef("%p _init()", self);
  _reset();
  if (argv_.empty() || argv_.front() == nullptr) {
    _log().warnf("%p no command to run", self);
    return _fail(NO_COMMAND, EINVAL);
  }
  name_ = _lastComponentOf(argv_.front());
  _logCommand();
  Pipes pipes;
  if (!_createPipes(pipes)) {
    const int error = errno;
    _log().warnf("%p [%s] could not create pipe errno=%d", self, name_.c_str(), error);
    _closePipes(pipes);
    return _fail(PIPE_FAILED, error);
  }
  const pid_t pid = _fork(pipes);
  if (pid == -1) {
    const int error = errno;
    _log().warnf("%p [%s] could not fork errno=%d", self, name_.c_str(), error);
    _closePipes(pipes);
    return _fail(FORK_FAILED, error);
  }
  _adopt(pid, pipes);
  return DefaultThreadGroup::Instance()->spawn(this, false) ? RUNNING : _abandonChild();
}

void LinuxSimpleExec::_reset() {
  _setOutcome(Outcome::NOT_EXECUTED);
  const ScopedLock guard(lock_);
  _closeEnds();
  pid_ = -1;
  errorNumber_ = 0;
  selfDestruct_ = false;
  reaped_ = false;
}

int LinuxSimpleExec::_fail(int status, int error) {
  ++errorCount;
  const ScopedLock guard(lock_);
  exitStatus_ = status;
  errorNumber_ = error;
  lock_.notifyAll();
  return status;
}

void LinuxSimpleExec::_logCommand() const {
  if (!_log().isEnabled(*LogLevel::LVL_DEBUG)) {
    return;
  }
  std::string command;
  for (std::size_t i = 0; argv_[i] != nullptr; ++i) {
    command += i == 0 ? "" : ", ";
    command += argv_[i];
  }
  command += "]";
  _log().debugf("%p command is %s", static_cast<const void*>(this), command.c_str());
}

// False with errno set when one cannot be had; those before it are open. Close-on-exec from the
// start, so that no child which another thread starts meanwhile inherits an end.
bool LinuxSimpleExec::_createPipes(Pipes& pipes) const {
  for (int i = 0; i < PIPE_COUNT; ++i) {
    Pipe& pipe = pipes[static_cast<std::size_t>(i)];
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      return false;
    }
    pipe = {ends[0], ends[1]};
    _log().debugf("%p [%s] created pipe #%d [%d,%d]", static_cast<const void*>(this), name_.c_str(),
                  i, pipe.readEnd, pipe.writeEnd);
  }
  return true;
}

void LinuxSimpleExec::_closePipes(Pipes& pipes) {
  for (Pipe& pipe : pipes) {
    _closeFd(pipe.readEnd);
    _closeFd(pipe.writeEnd);
  }
}

// -1 with errno set; returns in the parent only.
pid_t LinuxSimpleExec::_fork(const Pipes& pipes) {
  std::vector<std::string> variables = environment_.toStrings();
  const std::vector<char*> envp = _pointersTo(variables);
  ChildLaunch launch;
  launch.argv = argv_.data();
  launch.envp = variables.empty() ? nullptr : envp.data();
  launch.workingDir = workingDir_.empty() || workingDir_ == "." ? nullptr : workingDir_.c_str();
  launch.stdinFd = pipes[IN].readEnd;
  launch.stdoutFd = pipes[OUT].writeEnd;
  launch.stderrFd = pipes[ERROR].writeEnd;
  launch.statusFd = pipes[STATUS].writeEnd;
  launch.descriptorBound = ChildLaunch::findDescriptorBound();
  const pid_t pid = ::fork();
  if (pid == 0) {
    launch.run();
  }
  return pid;
}

// Keeps the parent's ends of a child that runs, and closes the others.
void LinuxSimpleExec::_adopt(pid_t pid, Pipes& pipes) {
  _setOutcome(Outcome::UNKNOWN);
  lock_.lock();
  exitStatus_ = RUNNING;
  pid_ = pid;
  inFd_ = std::exchange(pipes[IN].writeEnd, -1);
  outFd_ = std::exchange(pipes[OUT].readEnd, -1);
  const int errorEnd = std::exchange(pipes[ERROR].readEnd, -1);
  errorFd_ = discardErrors_ ? -1 : errorEnd;
  droppedFd_ = discardErrors_ ? errorEnd : -1;
  lock_.unlock();
  _log().debugf("%p [%s] forked child pid=%d", static_cast<void*>(this), name_.c_str(), pid);
  statusFd_ = std::exchange(pipes[STATUS].readEnd, -1);
  _closePipes(pipes);
  _setNonBlocking(statusFd_);
  if (droppedFd_ != -1) {
    _setNonBlocking(droppedFd_);
  }
}

// A child that nobody would watch is ended again.
int LinuxSimpleExec::_abandonChild() {
  _log().warnf("%p [%s] could not fork errno=%d", static_cast<void*>(this), name_.c_str(), EAGAIN);
  _setOutcome(Outcome::NOT_EXECUTED);
  {
    const ScopedLock guard(lock_);
    ::kill(pid_, SIGKILL);
    int waitStatus = 0;
    ChildWatch(pid_).reap(waitStatus);
    reaped_ = true;
    _closeEnds();
    _closeFd(statusFd_);
    _closeFd(droppedFd_);
  }
  return _fail(FORK_FAILED, EAGAIN);
}

void LinuxSimpleExec::_setOutcome(Outcome outcome) {
  const ScopedLock guard(outcomeLock_);
  outcome_ = outcome;
  outcomeLock_.notifyAll();
}

void LinuxSimpleExec::_closeEnds() {
  _closeFd(inFd_);
  _closeFd(outFd_);
  _closeFd(errorFd_);
}

void LinuxSimpleExec::_setArgv(const std::vector<std::string>& args) {
  _freeArgv();
  argv_.reserve(args.size() + 1);
  for (const std::string& arg : args) {
    char* const copy = ::strdup(arg.c_str());
    if (copy == nullptr) {
      _freeArgv();
      throw std::bad_alloc();
    }
    argv_.push_back(copy);
  }
  argv_.push_back(nullptr);
}

void LinuxSimpleExec::_freeArgv() {
  for (char* const arg : argv_) {
    std::free(arg);
  }
  argv_.clear();
}

// Under the lock, so that terminate() finds either a child that is not reaped, ended or not, or no
// child.
int LinuxSimpleExec::_reap(int waitError) {
  const void* const self = this;
  int waitStatus = 0;
  const int error = waitError != 0 ? waitError : ChildWatch(pid_).reap(waitStatus);
  reaped_ = true;
  if (error != 0) {
    errorNumber_ = error;
    _log().warnf("%p [%s] waitpid(%d) failed errno=%d", self, name_.c_str(), pid_, error);
    return WAIT_FAILED;
  }
  if (WIFSIGNALED(waitStatus)) {
    _log().debugf("%p [%s] process %d was killed with signal %d", self, name_.c_str(), pid_,
                  WTERMSIG(waitStatus));
    return KILLED;
  }
  const int code = WEXITSTATUS(waitStatus);
  _log().debugf("%p [%s] process %d exited with %d", self, name_.c_str(), pid_, code);
  return code;
}

// The final status: an attempt to execute that failed wins over the exit code.
int LinuxSimpleExec::_checkExecuted(int status) {
  const void* const self = this;
  _log().debugf("%p [%s] checking status pipe for errors", self, name_.c_str());
  if (ChildWatch::readExecError(statusFd_, errorNumber_)) {
    status = EXEC_FAILED;
    _log().warnf("%p [%s] execute failed errno=%d", self, name_.c_str(), errorNumber_);
    ++errorCount;
  }
  _closeFd(statusFd_);
  return status;
}

// Gives the lock up for the call.
void LinuxSimpleExec::_tellListener(int status) {
  ExitListener* const listener = listener_;
  if (listener == nullptr) {
    return;
  }
  listenerRuns_ = true;
  listenerThread_ = pthread_self();
  lock_.unlock();
  listener->onExit(this, status);
  lock_.lock();
  listenerRuns_ = false;
}

}  // namespace kestrel
