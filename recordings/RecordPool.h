// Memory for copies of records that are all freed soon, in about the order in which they came:
// blocks that return to the pool when the last record in them is freed. The first ones are small,
// for recordings that are. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "recordings/FieldReader.h"

namespace recordings {

struct TimedRecord {
  std::uint64_t time = 0;  // nanoseconds on the recording's clock
  const unsigned char* bytes = nullptr;
  std::uint32_t size = 0;
  std::uint32_t event = 0;  // index of the event it belongs to

  Bytes span() const { return Bytes(bytes, size); }
};

class RecordPool {
 public:
  RecordPool() = default;
  ~RecordPool();
  RecordPool(const RecordPool&) = delete;
  RecordPool& operator=(const RecordPool&) = delete;

  // A copy, aligned to 8 bytes. At most LARGEST_RECORD bytes.
  const unsigned char* copy(Bytes record);
  void free(const unsigned char* bytes);
  // Bytes in blocks that hold a record.
  std::size_t usedBytes() const { return usedBytes_; }

  static constexpr std::size_t LARGEST_RECORD = 65535;

 private:
  static constexpr std::size_t FIRST_BLOCK_SIZE = 4 * 1024;
  static constexpr std::size_t LAST_BLOCK_SIZE = 256 * 1024;
  struct Block;

  void _beginBlock(std::size_t room);
  void _endBlock(Block* block);
  Block* _makeBlock(std::size_t room);

  Block* current_ = nullptr;
  std::vector<Block*> free_;   // of LAST_BLOCK_SIZE
  Block* youngest_ = nullptr;  // of all that there are, in a chain
  std::size_t nextSize_ = FIRST_BLOCK_SIZE;
  std::size_t usedBytes_ = 0;
};

// Sorts by time; equal times keep their order. Fast where ascending stretches follow each other, as
// the buffers of the CPUs do.
void sortByTime(std::vector<TimedRecord>& records, std::vector<TimedRecord>& scratch);

}  // namespace recordings
