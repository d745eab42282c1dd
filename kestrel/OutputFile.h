// An output file stream for documents of hundreds of megabytes: what is written is collected in
// large blocks, at little more than the cost of copying it, and reaches the file in the background.
// Errors set the stream's state, as those of std::ofstream do, though a block later; close() tells
// of all of them. One thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "kestrel/BackgroundWriter.h"

namespace kestrel {

class OutputFile : public std::ostream {
 public:
  OutputFile();
  ~OutputFile() override;

  // Opens for writing, behind what is there or instead of it. On failure is_open() stays false and
  // failbit is set.
  void open(const std::string& path, bool append);
  bool is_open() const { return buffer_.isOpen(); }
  // Writes what is left; failbit is set when anything could not be written.
  void close();

 private:
  class Buffer : public std::streambuf {
   public:
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() override { close(); }

    bool open(const std::string& path, bool append);
    bool isOpen() const { return descriptor_ >= 0; }
    bool close();

   protected:
    std::streamsize xsputn(const char* bytes, std::streamsize length) override;
    int_type overflow(int_type byte) override;
    int sync() override;

   private:
    bool _handOver();
    void _startBlock();

    int descriptor_ = -1;
    std::vector<char> block_;
    std::unique_ptr<BackgroundWriter> writer_;  // from the first full block on
  };

  Buffer buffer_;
};

}  // namespace kestrel
