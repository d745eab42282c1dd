#include "kestrel/BackgroundWriter.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace kestrel {

BackgroundWriter::BackgroundWriter(int descriptor, std::size_t blockSize)
    : descriptor_(descriptor), block_(blockSize) {
  try {
    thread_ = std::thread([this] { _run(); });
  } catch (const std::system_error&) {
    // Without a thread write() does the work.
  }
}

BackgroundWriter::~BackgroundWriter() {
  if (!thread_.joinable()) {
    return;
  }
  {
    const ScopedLock guard(lock_);
    isEnding_ = true;
  }
  lock_.notifyAll();
  thread_.join();
}

bool BackgroundWriter::write(std::vector<char>& block, std::size_t size) {
  ScopedLock guard(lock_);
  while (size_ > 0) {
    lock_.wait();
  }
  if (isFailed_) {
    return false;
  }
  block_.swap(block);
  size_ = size;
  if (!thread_.joinable()) {
    _writeBlocks();
    return !isFailed_;
  }
  lock_.notifyAll();
  return true;
}

bool BackgroundWriter::finish() {
  const ScopedLock guard(lock_);
  while (size_ > 0) {
    lock_.wait();
  }
  return !isFailed_;
}

void BackgroundWriter::_run() {
  const ScopedLock guard(lock_);
  while (size_ > 0 || !isEnding_) {
    if (size_ > 0) {
      _writeBlocks();
    } else {
      lock_.wait();
    }
  }
}

// Gives the lock up while it writes.
void BackgroundWriter::_writeBlocks() {
  const std::size_t size = size_;
  lock_.unlock();
  const bool isWritten = writeWhole(descriptor_, block_.data(), size);
  lock_.lock();
  isFailed_ = isFailed_ || !isWritten;
  size_ = 0;
  lock_.notifyAll();
}

bool BackgroundWriter::writeWhole(int descriptor, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace kestrel
