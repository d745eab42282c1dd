#include "kestrel/OutputFile.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace kestrel {

namespace {

constexpr std::size_t BLOCK_SIZE = 256 * 1024;
constexpr mode_t PERMISSIONS = 0666;  // less the process's mask

}  // namespace

OutputFile::OutputFile() : std::ostream(nullptr) { rdbuf(&buffer_); }

OutputFile::~OutputFile() = default;

void OutputFile::open(const std::string& path, bool append) {
  if (buffer_.open(path, append)) {
    clear();
  } else {
    setstate(std::ios_base::failbit);
  }
}

void OutputFile::close() {
  if (!buffer_.close()) {
    setstate(std::ios_base::failbit);
  }
}

bool OutputFile::Buffer::open(const std::string& path, bool append) {
  if (isOpen()) {
    return false;
  }
  descriptor_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC),
                       PERMISSIONS);
  if (isOpen()) {
    block_.resize(BLOCK_SIZE);
    _startBlock();
  }
  return isOpen();
}

bool OutputFile::Buffer::close() {
  if (!isOpen()) {
    return false;
  }
  bool isWritten = sync() == 0;
  writer_.reset();
  isWritten = ::close(descriptor_) == 0 && isWritten;
  descriptor_ = -1;
  setp(nullptr, nullptr);
  return isWritten;
}

void OutputFile::Buffer::_startBlock() { setp(block_.data(), block_.data() + block_.size()); }

// The first full block starts the thread: most documents are smaller and do without.
bool OutputFile::Buffer::_handOver() {
  const auto size = static_cast<std::size_t>(pptr() - pbase());
  if (writer_ == nullptr) {
    writer_ = std::make_unique<BackgroundWriter>(descriptor_, block_.size());
  }
  const bool isTaken = writer_->write(block_, size);
  _startBlock();
  return isTaken;
}

std::streamsize OutputFile::Buffer::xsputn(const char* bytes, std::streamsize length) {
  std::streamsize done = 0;
  while (done < length) {
    if (pptr() == epptr() && (!isOpen() || !_handOver())) {
      break;
    }
    const std::streamsize piece = std::min<std::streamsize>(length - done, epptr() - pptr());
    std::copy_n(bytes + done, piece, pptr());
    pbump(static_cast<int>(piece));
    done += piece;
  }
  return done;
}

OutputFile::Buffer::int_type OutputFile::Buffer::overflow(int_type byte) {
  if (!isOpen() || !_handOver()) {
    return traits_type::eof();
  }
  if (!traits_type::eq_int_type(byte, traits_type::eof())) {
    *pptr() = traits_type::to_char_type(byte);
    pbump(1);
  }
  return traits_type::not_eof(byte);
}

int OutputFile::Buffer::sync() {
  if (!isOpen()) {
    return -1;
  }
  const auto size = static_cast<std::size_t>(pptr() - pbase());
  bool isWritten = true;
  if (writer_ != nullptr) {
    isWritten = (size == 0 || _handOver()) && writer_->finish();
  } else {
    isWritten = BackgroundWriter::writeWhole(descriptor_, pbase(), size);
    _startBlock();
  }
  return isWritten ? 0 : -1;
}

}  // namespace kestrel
