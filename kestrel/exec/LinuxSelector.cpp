#include "kestrel/exec/LinuxSelector.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "kestrel/log/Logger.h"
#include "kestrel/threads/Deadline.h"
#include "kestrel/threads/ThreadGroup.h"

namespace kestrel {

namespace {

constexpr char STOP = 'S';
constexpr char UPDATE = 'U';
constexpr unsigned STOP_PATIENCE_MS = 100;

// Seconds. The shortest interval keeps the loop from spinning, the longest one fits every time_t.
constexpr double SHORTEST_INTERVAL = 0.001;
constexpr double LONGEST_INTERVAL = 3 * 365 * 86400.0;

Logger& _log() {
  static Logger* const logger = Logger::getLogger("LinuxSelector");
  return *logger;
}

// -1 for a file that is closed or has no descriptor.
int _fdOf(PortableFile& file) {
  const auto* const ext = dynamic_cast<LinuxFileExt*>(file.ext());
  return ext == nullptr ? -1 : ext->getFd();
}

bool _isWatchable(int fd) { return fd >= 0 && fd < FD_SETSIZE; }

timeval _toTimeOut(double interval) {
  timeval timeOut = {};
  timeOut.tv_sec = static_cast<time_t>(interval);
  const double fraction = interval - static_cast<double>(timeOut.tv_sec);
  timeOut.tv_usec = static_cast<suseconds_t>(fraction * 1e6);
  return timeOut;
}

}  // namespace

PortableSelector* PortableSelectorFactory::createSelector() {
  return new (std::nothrow) LinuxSelector();
}

LinuxSelector::LinuxSelector() {
  _log().tracef("%p Constructor", static_cast<void*>(this));
  {
    const ScopedLock guard(lock_);
    if (!_openControlPipe()) {
      error_ = errno;
      _log().errorf("%p Cannot create anonymous pipe! errno=%d", static_cast<void*>(this),
                    error_.load());
      closed_ = true;
      return;
    }
  }
  if (!DefaultThreadGroup::Instance()->spawn(this, false)) {
    const ScopedLock guard(lock_);
    error_ = EAGAIN;
    closed_ = true;
  }
}

LinuxSelector::~LinuxSelector() {
  _log().tracef("%p Destructor", static_cast<void*>(this));
  lock_.lock();
  const bool open = !closed_;
  lock_.unlock();
  if (open) {
    LinuxSelector::closeSelector();
  }
}

bool LinuxSelector::addFile(PortableFile* file, Listener* listener) {
  _log().tracef("%p addFile(%p, %p)", static_cast<void*>(this), static_cast<void*>(file),
                static_cast<void*>(listener));
  const ScopedLock guard(lock_);
  if (closed_) {
    return false;
  }
  if (file == nullptr || listener == nullptr) {
    _log().warnf("%p Null listener or file passed into addFile()", static_cast<void*>(this));
    return false;
  }
  if (!_isWatchable(_fdOf(*file))) {
    _log().warnf("%p Bad file descriptor passed into addFile()", static_cast<void*>(this));
    return false;
  }
  if (const Entry* const known = _find(file)) {
    return known->listener == listener;
  }
  // A listener that blocked would keep everybody from the lock.
  file->setNonBlocking(true);
  entries_.push_back({file, listener, true, -1});
  controlWriteEnd_->write(&UPDATE, 1);
  return true;
}

void LinuxSelector::closeFile(PortableFile* file) {
  _log().tracef("%p closeFile(%p)", static_cast<void*>(this), static_cast<void*>(file));
  const ScopedLock guard(lock_);
  Entry* const entry = closed_ ? nullptr : _find(file);
  if (entry != nullptr) {
    entry->active = false;
    controlWriteEnd_->write(&UPDATE, 1);
  }
}

void LinuxSelector::closeSelector() {
  _log().tracef("%p closeSelector()", static_cast<void*>(this));
  const ScopedLock guard(lock_);
  while (!closed_) {
    // Lost when the control pipe is full; so it is written again until it has been taken.
    controlWriteEnd_->write(&STOP, 1);
    const Deadline deadline(STOP_PATIENCE_MS);
    while (!closed_ && !deadline.passed()) {
      lock_.wait(deadline.remaining());
    }
  }
  controlReadEnd_.reset();
  controlWriteEnd_.reset();
}

void LinuxSelector::setWakeUpInterval(double seconds) {
  const ScopedLock guard(lock_);
  // Written so that what is no number is not above 0 either.
  wakeUpInterval_ = seconds > 0 ? std::clamp(seconds, SHORTEST_INTERVAL, LONGEST_INTERVAL) : 0;
}

void LinuxSelector::run() {
  _log().tracef("%p run()", static_cast<void*>(this));
  const ScopedLock guard(lock_);
  Loop loop;
  while (_iterate(loop)) {
  }
  for (const Entry& entry : entries_) {
    _close(entry);
  }
  entries_.clear();
  ThreadGroup::returnWorkerEarly();
  closed_ = true;
  // Whoever waits may delete the selector as soon as the lock is free: nothing may follow.
  lock_.notifyAll();
}

// False with errno set when there is no pipe or select() could not watch it.
bool LinuxSelector::_openControlPipe() {
  controlReadEnd_ = std::make_unique<LinuxPipe>();
  controlReadEnd_->setNonBlocking(true);
  controlWriteEnd_.reset(controlReadEnd_->openAnonymousPipe());
  if (controlWriteEnd_ == nullptr) {
    return false;
  }
  if (!_isWatchable(controlReadEnd_->getFd())) {
    errno = EMFILE;
    return false;
  }
  return true;
}

LinuxSelector::Entry* LinuxSelector::_find(const PortableFile* file) {
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [file](const Entry& candidate) {
    return candidate.file == file;
  });
  return entry == entries_.end() ? nullptr : &*entry;
}

// One turn of the loop; false when it has to end.
bool LinuxSelector::_iterate(Loop& loop) {
  if (wakeUpInterval_ != loop.usedInterval) {
    loop.usedInterval = wakeUpInterval_;
    loop.timeOut = _toTimeOut(loop.usedInterval);
  }
  _failUnwatchable(loop);
  if (loop.rebuild) {
    _removeClosed();
  }
  const int highest = _buildReadSet(loop.readSet);
  timeval timeOut = loop.timeOut;  // select() changes it
  timeval* const limit = loop.usedInterval != 0 ? &timeOut : nullptr;

  lock_.unlock();
  const int ready = ::select(highest + 1, &loop.readSet, nullptr, nullptr, limit);
  const int error = errno;
  lock_.lock();

  loop.rebuild = false;
  if (ready == 0) {
    return true;
  }
  if (ready < 0) {
    return _survivesError(error);
  }
  _notifyReadable(loop);
  return !FD_ISSET(controlReadEnd_->getFd(), &loop.readSet) || _obeyControl(loop);
}

// Finds the files that were closed, or opened again outside the select set, since the last turn.
void LinuxSelector::_failUnwatchable(Loop& loop) {
  for (Entry& entry : entries_) {
    const int fd = _fdOf(*entry.file);
    if (!entry.active || _isWatchable(fd)) {
      continue;
    }
    if (fd >= 0) {
      entry.listener->onError(this, entry.file, EMFILE);
    }
    entry.active = false;
    loop.rebuild = true;
  }
}

void LinuxSelector::_removeClosed() {
  for (std::size_t i = entries_.size(); i-- > 0;) {
    if (!entries_[i].active) {
      _close(entries_[i]);
      entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
}

// Gives the highest descriptor in the set.
int LinuxSelector::_buildReadSet(fd_set& readSet) {
  FD_ZERO(&readSet);
  int highest = controlReadEnd_->getFd();
  FD_SET(highest, &readSet);
  for (Entry& entry : entries_) {
    entry.watchedFd = entry.active ? _fdOf(*entry.file) : -1;
    if (_isWatchable(entry.watchedFd)) {
      FD_SET(entry.watchedFd, &readSet);
      highest = std::max(highest, entry.watchedFd);
    }
  }
  return highest;
}

bool LinuxSelector::_survivesError(int error) {
  const void* const self = this;
  error_ = error == EINTR ? 0 : error;
  switch (error) {
    case EINTR:
      return true;
    case EBADF:
      _log().warnf("%p Select error: invalid file descriptor was given.", self);
      return false;
    case ENOMEM:
      _log().warnf("%p Select error: out of memory.", self);
      return false;
    default:
      _log().warnf("%p Select error: errno: %d", self, error);
      return false;
  }
}

void LinuxSelector::_notifyReadable(Loop& loop) {
  for (Entry& entry : entries_) {
    // An entry added since the set was built has no descriptor in it, whatever its number.
    if (!entry.active || !_isWatchable(entry.watchedFd) ||
        !FD_ISSET(entry.watchedFd, &loop.readSet)) {
      continue;
    }
    if (!entry.listener->onCanRead(this, entry.file) || entry.file->isEOF()) {
      entry.active = false;
      loop.rebuild = true;
    } else if (_fdOf(*entry.file) != entry.watchedFd) {
      loop.rebuild = true;
    }
  }
}

// Takes one byte from the control pipe; false when the loop has to end.
bool LinuxSelector::_obeyControl(Loop& loop) {
  char command = 0;
  errno = 0;
  if (controlReadEnd_->read(&command, 1) != 1) {
    error_ = errno == 0 ? EPIPE : errno;
    _log().warnf("%p Control pipe is broken, closing...", static_cast<void*>(this));
    return false;
  }
  if (command == STOP) {
    _log().debugf("%p Closed by control flag", static_cast<void*>(this));
    return false;
  }
  if (command == UPDATE) {
    _log().debugf("%p Received update control flag", static_cast<void*>(this));
    loop.rebuild = true;
  }
  return true;
}

void LinuxSelector::_close(const Entry& entry) {
  entry.listener->onClose(this, entry.file);
  delete entry.file;
}

}  // namespace kestrel
