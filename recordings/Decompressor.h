// Unpacks what `perf record -z` packed: one zstd stream over all compressed records of a data file,
// never closed, whose unpacked bytes are records again; one of them may begin in one compressed
// record and end in the next. Memory is bounded whatever the stream claims. One thread.
// Source: tools/perf/util/zstd.c.
#pragma once

#include <cstddef>
#include <memory>

#include "recordings/FieldReader.h"

namespace recordings {

class Decompressor {
 public:
  Decompressor();
  ~Decompressor();

  // What is to be unpacked next; borrowed until it is used up.
  void give(Bytes packed);
  // More unpacked bytes: called again until there is a whole record or isUsedUp(), they grow to
  // more than a record can have. Valid until the next call. False if the bytes given are no zstd
  // stream.
  bool unpack();
  Bytes unpacked() const { return Bytes(buffer_.get() + first_, last_ - first_); }
  // The first `bytes` of unpacked() have been read.
  void take(std::size_t bytes) { first_ += bytes; }
  // Whether unpack() has nothing more to give before the next give().
  bool isUsedUp() const { return isDrained_; }

 private:
  struct Stream;
  std::unique_ptr<Stream> stream_;
  std::unique_ptr<unsigned char[]> buffer_;
  std::size_t capacity_;
  std::size_t first_ = 0;
  std::size_t last_ = 0;
  bool isDrained_ = true;

  void _makeRoom();
};

}  // namespace recordings
