#include "tests/fuzz/MemoryInput.h"

#include <ios>

// The reader asks whether the file is open, and reads from what the stream's base is given.
MemoryInput::MemoryInput() : stream_("/dev/null", std::ios::in | std::ios::binary) {
  static_cast<std::ios&>(stream_).rdbuf(this);
}

std::ifstream& MemoryInput::open(const void* bytes, std::size_t size) {
  char* const start = static_cast<char*>(const_cast<void*>(bytes));  // only read from
  setg(start, start, start + size);
  return rewind();
}

std::ifstream& MemoryInput::rewind() {
  stream_.clear();
  beyond_ = 0;
  setg(eback(), eback(), egptr());
  return stream_;
}

MemoryInput::pos_type MemoryInput::seekoff(off_type offset, std::ios::seekdir from,
                                           std::ios::openmode) {
  const off_type size = egptr() - eback();
  const off_type base =
      from == std::ios::beg ? 0 : (from == std::ios::end ? size : gptr() - eback() + beyond_);
  // As in a file, a place behind the end can be gone to: nothing is read there.
  off_type place = 0;
  if (__builtin_add_overflow(base, offset, &place) || place < 0) {
    return pos_type(off_type(-1));
  }
  beyond_ = place > size ? place - size : 0;
  setg(eback(), eback() + (place - beyond_), egptr());
  return pos_type(place);
}

MemoryInput::pos_type MemoryInput::seekpos(pos_type position, std::ios::openmode which) {
  return seekoff(off_type(position), std::ios::beg, which);
}
