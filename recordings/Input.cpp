#include "recordings/Input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "recordings/RecordingError.h"

namespace recordings {

std::vector<unsigned char> Input::bytesAt(std::uint64_t offset, std::uint64_t count) const {
  const std::uint64_t there = offset < size() ? size() - offset : 0;
  std::vector<unsigned char> bytes(static_cast<std::size_t>(std::min(count, there)));
  bytes.resize(read(offset, bytes.data(), bytes.size()));
  return bytes;
}

FileInput::FileInput(const std::string& path)
    // Without O_NONBLOCK, a pipe of that name would block here until somebody writes to it.
    : Input(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (descriptor_ == -1) {
    throw RecordingError(path + ": cannot be opened: " + std::strerror(errno) + ".");
  }
  _measure();
}

FileInput::FileInput(int descriptor, std::string name)
    : Input(std::move(name)), descriptor_(descriptor) {
  _measure();
}

FileInput::~FileInput() { close(descriptor_); }

void FileInput::_measure() {
  struct stat status {};
  if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
    close(descriptor_);
    throw RecordingError(name() +
                         ": is no regular file. Give a recording, or - for standard input.");
  }
  size_ = static_cast<std::uint64_t>(status.st_size);
}

std::size_t FileInput::read(std::uint64_t offset, unsigned char* to, std::size_t count) const {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t got =
        pread(descriptor_, to + done, count - done, static_cast<off_t>(offset + done));
    if (got == 0) {
      break;
    }
    if (got > 0) {
      done += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      throw RecordingError(name() + ": cannot be read: " + std::strerror(errno) + ".");
    }
  }
  return done;
}

std::size_t MemoryInput::read(std::uint64_t offset, unsigned char* to, std::size_t count) const {
  if (offset >= bytes_.size()) {
    return 0;
  }
  const std::size_t there = bytes_.size() - static_cast<std::size_t>(offset);
  const std::size_t taken = std::min(count, there);
  if (taken > 0) {
    std::memcpy(to, bytes_.data() + offset, taken);
  }
  return taken;
}

}  // namespace recordings
