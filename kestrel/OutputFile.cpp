#include "kestrel/OutputFile.h"

#include <algorithm>

namespace kestrel {

OutputFile::OutputFile() : std::ostream(nullptr), storage_(BUFFER_SIZE) {
  buffer_.pubsetbuf(storage_.data(), static_cast<std::streamsize>(storage_.size()));
  rdbuf(&buffer_);
}

OutputFile::~OutputFile() = default;

void OutputFile::open(const std::string& path, bool append) {
  const std::ios_base::openmode mode = append ? std::ios_base::app : std::ios_base::trunc;
  if (buffer_.open(path, std::ios_base::out | mode) == nullptr) {
    setstate(std::ios_base::failbit);
  } else {
    clear();
  }
}

void OutputFile::close() {
  if (buffer_.close() == nullptr) {
    setstate(std::ios_base::failbit);
  }
}

std::streamsize OutputFile::Buffer::xsputn(const char* bytes, std::streamsize length) {
  std::streamsize left = length;
  while (left > epptr() - pptr()) {
    const std::streamsize room = epptr() - pptr();
    bytes = _fill(bytes, room);
    if (traits_type::eq_int_type(overflow(traits_type::to_int_type(*bytes)), traits_type::eof())) {
      return length - left + room;
    }
    ++bytes;
    left -= room + 1;
  }
  _fill(bytes, left);
  return length;
}

const char* OutputFile::Buffer::_fill(const char* bytes, std::streamsize length) {
  std::copy_n(bytes, length, pptr());
  pbump(static_cast<int>(length));
  return bytes + length;
}

}  // namespace kestrel
