#include "kestrel/exec/LinuxPipe.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel {

namespace {

// A count must fit the result.
unsigned _clampSize(unsigned size) { return std::min(size, static_cast<unsigned>(INT_MAX)); }

int _resultOf(int error) {
  switch (error) {
    case ENOENT:
      return PortablePipe::NOT_FOUND;
    case EACCES:
      return PortablePipe::NO_PERMISSION;
    default:
      return PortableFile::FAILED;
  }
}

// Of the caller's flags those that a named pipe is opened with.
int _keptFlags(unsigned flags, bool nonBlocking) {
  const int wanted = static_cast<int>(flags);
  const int access = wanted & O_ACCMODE;
  int kept = access == O_WRONLY || access == O_RDWR ? access : O_RDONLY;
  kept |= wanted & O_APPEND;
  return nonBlocking ? kept | O_NONBLOCK : kept;
}

int _open(const std::string& name, int flags) {
  int fd = -1;
  do {
    fd = ::open(name.c_str(), flags | O_CLOEXEC);
  } while (fd == -1 && errno == EINTR);
  return fd;
}

}  // namespace

LinuxPipe::~LinuxPipe() { LinuxPipe::close(); }

int LinuxPipe::read(void* buffer, unsigned size) {
  while (fd_ != -1) {
    const ssize_t count = ::read(fd_, buffer, _clampSize(size));
    if (count > 0) {
      return static_cast<int>(count);
    }
    if (count == 0) {
      if (name_.empty() || size == 0 || !_reopen()) {
        eof_ = size != 0;
        return 0;
      }
      if (nonBlocking_) {
        return WOULD_BLOCK;
      }
    } else if (errno == EINTR) {
      errno = 0;
    } else {
      return errno == EAGAIN ? WOULD_BLOCK : FAILED;
    }
  }
  return FAILED;
}

int LinuxPipe::write(const void* data, unsigned size) {
  while (fd_ != -1) {
    const ssize_t count = ::write(fd_, data, _clampSize(size));
    if (count >= 0) {
      return static_cast<int>(count);
    }
    if (errno != EINTR) {
      return errno == EAGAIN ? WOULD_BLOCK : FAILED;
    }
  }
  return FAILED;
}

void LinuxPipe::close() {
  if (fd_ != -1) {
    ::close(fd_);
    fd_ = -1;
  }
}

void LinuxPipe::setNonBlocking(bool nonBlocking) {
  if (nonBlocking == nonBlocking_) {
    return;
  }
  nonBlocking_ = nonBlocking;
  // A named pipe must not block when it is opened again either.
  openFlags_ = nonBlocking ? openFlags_ | O_NONBLOCK : openFlags_ & ~O_NONBLOCK;
  _applyBlocking();
}

void LinuxPipe::_applyBlocking() {
  const int flags = fd_ == -1 ? -1 : ::fcntl(fd_, F_GETFL);
  const int wanted = nonBlocking_ ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
  if (flags != -1 && flags != wanted) {
    ::fcntl(fd_, F_SETFL, wanted);
  }
}

int LinuxPipe::openNamedPipe(const char* name, unsigned flags) {
  close();
  eof_ = false;
  name_ = name == nullptr ? "" : name;
  openFlags_ = _keptFlags(flags, nonBlocking_);
  if ((flags & O_CREAT) != 0 && ::mkfifo(name_.c_str(), static_cast<mode_t>(defaultMode_)) != 0 &&
      errno != EEXIST) {
    return errno == EACCES ? NO_PERMISSION : FAILED;
  }
  struct stat status;
  if (::stat(name_.c_str(), &status) != 0) {
    return _resultOf(errno);
  }
  if (!S_ISFIFO(status.st_mode)) {
    return NOT_A_PIPE;
  }
  fd_ = _open(name_, openFlags_);
  return fd_ != -1 ? OPENED : _resultOf(errno);
}

LinuxPipe* LinuxPipe::openAnonymousPipe() {
  close();
  eof_ = false;
  name_.clear();
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC | (nonBlocking_ ? O_NONBLOCK : 0)) != 0) {
    return nullptr;
  }
  fd_ = ends[0];
  auto writeEnd = std::make_unique<LinuxPipe>();
  writeEnd->nonBlocking_ = nonBlocking_;
  writeEnd->setFd(ends[1]);
  return writeEnd.release();
}

void LinuxPipe::setFd(int fd) {
  if (fd != fd_) {
    close();
  }
  name_.clear();
  fd_ = fd;
  eof_ = false;
  if (nonBlocking_) {
    _applyBlocking();
  }
}

// Opens the name again after the last writer has left. The new descriptor takes the place of the
// old one in one step, so that a writer who comes meanwhile always finds a reader. False when it
// cannot be opened: then the pipe is closed.
bool LinuxPipe::_reopen() {
  int fresh = _open(name_, openFlags_);
  if (fresh == -1 && (errno == EMFILE || errno == ENFILE)) {
    close();
    fresh = _open(name_, openFlags_);
  }
  if (fresh != -1 && fd_ != -1) {
    const bool replaced = ::dup3(fresh, fd_, O_CLOEXEC) != -1;
    ::close(fresh);
    if (!replaced) {
      close();
    }
    return replaced;
  }
  if (fresh == -1) {
    close();
  }
  fd_ = fresh;
  return fd_ != -1;
}

}  // namespace kestrel
