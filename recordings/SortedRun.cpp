#include "recordings/SortedRun.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "recordings/RecordingError.h"

namespace recordings {

namespace {

[[noreturn]] void fail(const std::string& directory, const char* what, int error) {
  throw RecordingError(directory + ": a temporary file cannot be " + what + ": " +
                       std::strerror(error) + ".");
}

int openNameless(const std::string& directory) {
  int descriptor = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor == -1) {  // not every file system knows files without a name
    std::string name = directory + "/.sorting-XXXXXX";
    descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor == -1) {
      fail(directory, "made", errno);
    }
    unlink(name.c_str());
  }
  return descriptor;
}

}  // namespace

ScratchFile::ScratchFile(const std::string& directory)
    : directory_(directory), descriptor_(openNameless(directory)) {}

ScratchFile::~ScratchFile() { close(descriptor_); }

void ScratchFile::append(const unsigned char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = pwrite(descriptor_, bytes, count, static_cast<off_t>(size_));
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      fail(directory_, "written", errno);
    }
    bytes += written;
    count -= static_cast<std::size_t>(written);
    size_ += static_cast<std::uint64_t>(written);
  }
}

void ScratchFile::read(std::uint64_t offset, unsigned char* to, std::size_t count) const {
  while (count > 0) {
    const ssize_t got = pread(descriptor_, to, count, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      fail(directory_, "read", got < 0 ? errno : EIO);
    }
    to += got;
    offset += static_cast<std::uint64_t>(got);
    count -= static_cast<std::size_t>(got);
  }
}

SortedRun::SortedRun(std::shared_ptr<ScratchFile> file, const std::vector<TimedRecord>& records)
    : file_(std::move(file)), next_(file_->size()) {
  constexpr std::size_t BLOCK = 1024 * 1024;
  std::vector<unsigned char> block;
  block.reserve(BLOCK + sizeof(Head) + RecordPool::LARGEST_RECORD);
  for (const TimedRecord& record : records) {
    const Head head{record.time, record.event, record.size};
    const auto* const headBytes = reinterpret_cast<const unsigned char*>(&head);
    block.insert(block.end(), headBytes, headBytes + sizeof(Head));
    block.insert(block.end(), record.bytes, record.bytes + record.size);
    if (block.size() >= BLOCK) {
      file_->append(block.data(), block.size());
      block.clear();
    }
  }
  file_->append(block.data(), block.size());
  end_ = file_->size();
}

// Makes `bytes` bytes contiguous in the buffer, from first_ on.
bool SortedRun::_require(std::size_t bytes) {
  if (buffer_.size() - first_ >= bytes) {
    return true;
  }
  if (next_ == end_) {
    return false;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(first_));
  first_ = 0;
  const std::size_t held = buffer_.size();
  const std::size_t wanted = std::max(bytes, readAhead_) - held;
  const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, end_ - next_));
  buffer_.resize(held + taken);
  file_->read(next_, buffer_.data() + held, taken);
  next_ += taken;
  return buffer_.size() >= bytes;
}

const TimedRecord* SortedRun::front() {
  if (!hasFront_) {
    if (!_require(sizeof(Head))) {
      return nullptr;
    }
    Head head;
    std::memcpy(&head, buffer_.data() + first_, sizeof(Head));
    _require(sizeof(Head) + head.size);
    front_ = {head.time, buffer_.data() + first_ + sizeof(Head), head.size, head.event};
    hasFront_ = true;
  }
  return &front_;
}

void SortedRun::pop() {
  first_ += sizeof(Head) + front_.size;
  hasFront_ = false;
}

}  // namespace recordings
