// Bytes in memory as the input file of a conversion, without a system call for each input.
#pragma once

#include <cstddef>
#include <fstream>
#include <streambuf>

class MemoryInput : private std::streambuf {
 public:
  MemoryInput();
  MemoryInput(const MemoryInput&) = delete;
  MemoryInput& operator=(const MemoryInput&) = delete;

  // The stream on these bytes, at their start. Borrows them until the next call.
  std::ifstream& open(const void* bytes, std::size_t size);
  // The same bytes again, from their start, whatever state the stream is in.
  std::ifstream& rewind();

 private:
  pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode) override;
  pos_type seekpos(pos_type position, std::ios::openmode which) override;

  std::ifstream stream_;
  off_type beyond_ = 0;  // how far behind the end the stream stands
};
