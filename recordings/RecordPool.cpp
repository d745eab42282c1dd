#include "recordings/RecordPool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace recordings {

struct RecordPool::Block {
  std::size_t used;  // bytes, this header included
  std::size_t records;
};

RecordPool::~RecordPool() {
  for (Block* const block : all_) {
    std::free(block);
  }
}

// Blocks are aligned to their size.
RecordPool::Block* RecordPool::_blockOf(const unsigned char* bytes) {
  const auto address = reinterpret_cast<std::uintptr_t>(bytes);
  return reinterpret_cast<Block*>(address & ~(std::uintptr_t{BLOCK_SIZE} - 1));
}

void RecordPool::_beginBlock() {
  if (free_.empty()) {
    void* const memory = std::aligned_alloc(BLOCK_SIZE, BLOCK_SIZE);
    if (memory == nullptr) {
      throw std::bad_alloc();
    }
    current_ = static_cast<Block*>(memory);
    all_.push_back(current_);
    free_.reserve(all_.size());
  } else {
    current_ = free_.back();
    free_.pop_back();
  }
  *current_ = {sizeof(Block), 0};
  ++usedBlocks_;
}

const unsigned char* RecordPool::copy(Bytes record) {
  const std::size_t room = (record.size() + 7) & ~std::size_t{7};
  if (current_ == nullptr || current_->used + room > BLOCK_SIZE) {
    Block* const full = current_;
    _beginBlock();
    if (full != nullptr && full->records == 0) {
      free_.push_back(full);
      --usedBlocks_;
    }
  }
  unsigned char* const at = reinterpret_cast<unsigned char*>(current_) + current_->used;
  std::memcpy(at, record.data(), record.size());
  current_->used += room;
  ++current_->records;
  return at;
}

void RecordPool::free(const unsigned char* bytes) {
  Block* const block = _blockOf(bytes);
  if (--block->records > 0) {
    return;
  }
  if (block == current_) {
    block->used = sizeof(Block);
  } else {
    free_.push_back(block);
    --usedBlocks_;
  }
}

namespace {

bool isOlder(const TimedRecord& a, const TimedRecord& b) { return a.time < b.time; }

// Where the ascending stretches of the records end.
std::vector<std::size_t> findStretches(const std::vector<TimedRecord>& records) {
  std::vector<std::size_t> ends;
  for (std::size_t i = 1; i < records.size(); ++i) {
    if (isOlder(records[i], records[i - 1])) {
      ends.push_back(i);
    }
  }
  ends.push_back(records.size());
  return ends;
}

}  // namespace

void sortByTime(std::vector<TimedRecord>& records, std::vector<TimedRecord>& scratch) {
  std::vector<std::size_t> ends = findStretches(records);
  while (ends.size() > 1) {
    scratch.resize(records.size());
    std::vector<std::size_t> merged;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < ends.size(); i += 2) {
      const std::size_t middle = ends[i];
      const std::size_t end = i + 1 < ends.size() ? ends[i + 1] : middle;
      const auto at = [&records](std::size_t index) {
        return records.begin() + static_cast<std::ptrdiff_t>(index);
      };
      std::merge(at(begin), at(middle), at(middle), at(end),
                 scratch.begin() + static_cast<std::ptrdiff_t>(begin), isOlder);
      merged.push_back(end);
      begin = end;
    }
    records.swap(scratch);
    ends.swap(merged);
  }
}

}  // namespace recordings
