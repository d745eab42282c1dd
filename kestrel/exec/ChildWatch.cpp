#include "kestrel/exec/ChildWatch.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kestrel {

namespace {

// How long to sleep on a pipe before asking whether the child has ended: somebody else may hold the
// other end as well.
constexpr int PIPE_PATIENCE_MS = 100;

ssize_t _read(int fd, void* buffer, std::size_t size) {
  ssize_t count = -1;
  do {
    count = ::read(fd, buffer, size);
  } while (count == -1 && errno == EINTR);
  return count;
}

// Sleeps until the pipe has data or no writer, for at most `milliseconds`. The events that poll(2)
// gives.
short _poll(int fd, int milliseconds) {
  pollfd pipe = {fd, POLLIN, 0};
  return ::poll(&pipe, 1, milliseconds) > 0 ? pipe.revents : short{0};
}

}  // namespace

bool ChildWatch::awaitExecuted(int statusFd) const {
  short events = _poll(statusFd, PIPE_PATIENCE_MS);
  while (events == 0 && !_hasEnded()) {
    events = _poll(statusFd, PIPE_PATIENCE_MS);
  }
  if (events == 0) {
    events = _poll(statusFd, 0);  // what it wrote before it ended
  }
  return (events & POLLIN) == 0;
}

void ChildWatch::dropOutput(int fd) const {
  char dropped[4096];
  do {
    if (_poll(fd, PIPE_PATIENCE_MS) == 0) {
      continue;
    }
    const ssize_t count = _read(fd, dropped, sizeof(dropped));
    if (count == 0 || (count == -1 && errno != EAGAIN)) {
      return;
    }
  } while (!_hasEnded());
}

int ChildWatch::awaitEnd() const {
  siginfo_t info = {};
  int result = -1;
  do {
    result = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
  } while (result == -1 && errno == EINTR);
  return result == 0 ? 0 : errno;
}

int ChildWatch::reap(int& waitStatus) const {
  pid_t result = -1;
  do {
    result = ::waitpid(pid_, &waitStatus, 0);
  } while (result == -1 && errno == EINTR);
  return result == pid_ ? 0 : errno;
}

bool ChildWatch::readExecError(int statusFd, int& error) {
  std::int32_t code = 0;
  if (_read(statusFd, &code, sizeof(code)) != static_cast<ssize_t>(sizeof(code))) {
    return false;
  }
  error = code;
  return true;
}

// Also true when there is no such child.
bool ChildWatch::_hasEnded() const {
  siginfo_t info = {};
  return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid != 0;
}

}  // namespace kestrel
