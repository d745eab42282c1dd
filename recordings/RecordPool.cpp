#include "recordings/RecordPool.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace recordings {

// Begins with this, then records: in front of each the address of its block.
struct RecordPool::Block {
  std::size_t size;
  std::size_t used;  // bytes, this header included
  std::size_t records;
  Block* older;
  Block* younger;

  unsigned char* bytes() { return reinterpret_cast<unsigned char*>(this); }
};

RecordPool::~RecordPool() {
  while (youngest_ != nullptr) {
    ::operator delete(std::exchange(youngest_, youngest_->older));
  }
}

RecordPool::Block* RecordPool::_makeBlock(std::size_t room) {
  const std::size_t size = std::max(nextSize_, sizeof(Block) + room);
  nextSize_ = std::min(nextSize_ * 2, LAST_BLOCK_SIZE);
  Block* const block = new (::operator new(size)) Block{size, sizeof(Block), 0, youngest_, nullptr};
  if (youngest_ != nullptr) {
    youngest_->younger = block;
  }
  youngest_ = block;
  return block;
}

void RecordPool::_beginBlock(std::size_t room) {
  if (free_.empty()) {
    current_ = _makeBlock(room);
  } else {
    current_ = free_.back();
    free_.pop_back();
  }
  usedBytes_ += current_->size;
}

// No record is left in it.
void RecordPool::_endBlock(Block* block) {
  usedBytes_ -= block->size;
  if (block->size == LAST_BLOCK_SIZE) {
    block->used = sizeof(Block);
    free_.push_back(block);
    return;
  }
  (block == youngest_ ? youngest_ : block->younger->older) = block->older;
  if (block->older != nullptr) {
    block->older->younger = block->younger;
  }
  ::operator delete(block);
}

const unsigned char* RecordPool::copy(Bytes record) {
  const std::size_t room = sizeof(Block*) + ((record.size() + 7) & ~std::size_t{7});
  if (current_ == nullptr || current_->used + room > current_->size) {
    if (current_ != nullptr && current_->records == 0) {
      _endBlock(current_);
    }
    _beginBlock(room);
  }
  unsigned char* const at = current_->bytes() + current_->used;
  std::memcpy(at, &current_, sizeof(Block*));
  std::memcpy(at + sizeof(Block*), record.data(), record.size());
  current_->used += room;
  ++current_->records;
  return at + sizeof(Block*);
}

void RecordPool::free(const unsigned char* bytes) {
  Block* block = nullptr;
  std::memcpy(&block, bytes - sizeof(Block*), sizeof(Block*));
  if (--block->records > 0) {
    return;
  }
  if (block == current_) {
    block->used = sizeof(Block);
  } else {
    _endBlock(block);
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
