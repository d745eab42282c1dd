#include "kestrel/exec/ChildLaunch.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "kestrel/exec/PipeSignal.h"

namespace kestrel {

namespace {

constexpr int FIRST_FREE = 3;  // the lowest descriptor that is not standard
constexpr long MOST_TRIED = 65536;

// Layout of an entry that the system call getdents64 gives (struct linux_dirent64 of the kernel):
// the length of the entry as 16 bits, and its name.
constexpr std::size_t ENTRY_LENGTH_OFFSET = 16;
constexpr std::size_t ENTRY_NAME_OFFSET = 19;

[[noreturn]] void _fail(int statusFd, int error) {
  const std::int32_t code = error;
  // Four bytes go into a pipe whole or not at all; nobody is left to tell when they do not.
  const ssize_t written = ::write(statusFd, &code, sizeof(code));
  static_cast<void>(written);
  ::_exit(1);
}

// The descriptor itself, or a duplicate when it is one of those that are about to be replaced. -1
// with errno set.
int _moveAway(int fd) { return fd >= FIRST_FREE ? fd : ::fcntl(fd, F_DUPFD_CLOEXEC, FIRST_FREE); }

bool _becomes(int fd, int target) {
  int result = -1;
  do {
    result = ::dup2(fd, target);
  } while (result == -1 && errno == EINTR);
  return result != -1;
}

// The number that a directory entry is named with, or -1.
int _numberOf(const char* name) {
  int number = 0;
  for (const char* c = name; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9' || number > INT_MAX / 10 - 1) {
      return -1;
    }
    number = number * 10 + (*c - '0');
  }
  return *name == '\0' ? -1 : number;
}

}  // namespace

void ChildLaunch::run() const {
  PipeSignal::restore();
  const int status = _moveAway(statusFd);
  if (status == -1) {
    _fail(statusFd, errno);
  }
  const int in = _moveAway(stdinFd);
  const int out = _moveAway(stdoutFd);
  const int err = _moveAway(stderrFd);
  if (in == -1 || out == -1 || err == -1) {
    _fail(status, errno);
  }
  if (!_becomes(in, STDIN_FILENO) || !_becomes(out, STDOUT_FILENO) ||
      !_becomes(err, STDERR_FILENO)) {
    _fail(status, errno);
  }
  if (status != FIRST_FREE && ::dup3(status, FIRST_FREE, O_CLOEXEC) == -1) {
    _fail(status, errno);
  }
  constexpr int FIRST_CLOSED = FIRST_FREE + 1;
  if (!closeRange(FIRST_CLOSED) && !closeListed(FIRST_CLOSED)) {
    closeUpTo(FIRST_CLOSED, descriptorBound);
  }
  if (workingDir != nullptr && ::chdir(workingDir) != 0) {
    _fail(FIRST_FREE, errno);
  }
  if (envp != nullptr) {
    ::execvpe(argv[0], argv, envp);
  } else {
    ::execvp(argv[0], argv);
  }
  _fail(FIRST_FREE, errno);
}

int ChildLaunch::findDescriptorBound() {
  const long limit = ::sysconf(_SC_OPEN_MAX);
  return static_cast<int>(limit < 0 ? MOST_TRIED : std::min(limit, MOST_TRIED));
}

bool ChildLaunch::closeRange(int first) {
#ifdef SYS_close_range
  return ::syscall(SYS_close_range, static_cast<unsigned>(first), UINT_MAX, 0U) == 0;
#else
  static_cast<void>(first);
  return false;
#endif
}

bool ChildLaunch::closeListed(int first) {
  const int directory = ::open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory == -1) {
    return false;
  }
  char entries[1024];
  long size = 0;
  while ((size = ::syscall(SYS_getdents64, directory, entries, sizeof(entries))) > 0) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
      const int fd = _numberOf(entries + at + ENTRY_NAME_OFFSET);
      if (fd >= first && fd != directory) {
        ::close(fd);
      }
      std::uint16_t length = 0;
      std::memcpy(&length, entries + at + ENTRY_LENGTH_OFFSET, sizeof(length));
      at += length;
    }
  }
  ::close(directory);
  return size == 0;
}

void ChildLaunch::closeUpTo(int first, int bound) {
  for (int fd = first; fd < bound; ++fd) {
    ::close(fd);
  }
}

}  // namespace kestrel
