// Compressed records of one data file: a single zstd stream that is flushed after every push and
// never ended, as `perf record -z` writes it.
#pragma once

#include <memory>
#include <string>

#include "tests/support/recordings/Encoding.h"

namespace made {

class CompressedStream {
 public:
  // The encoding says which of the two kinds of records, in which byte order. Throws
  // std::runtime_error where zstd fails.
  explicit CompressedStream(const Encoding& encoding);
  ~CompressedStream();

  // These bytes as records: several where the compressed bytes exceed one, which only the older
  // kind can have (std::length_error).
  std::string push(const std::string& bytes);

 private:
  struct Stream;
  std::string _record(const std::string& compressed) const;

  Compression kind_;
  ByteOrder order_;
  std::unique_ptr<Stream> stream_;
};

}  // namespace made
