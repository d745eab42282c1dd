#include "model/RangedItemSequence.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace {

// The last of `count` entries that is not above, of which the first one never is. Without a branch
// that depends on the entries, which a processor could not foretell.
template <typename IsNotAbove>
std::size_t _floorAmong(std::size_t count, IsNotAbove isNotAbove) {
  std::size_t floor = 0;
  while (count > 1) {
    const std::size_t half = count / 2;
    floor += isNotAbove(floor + half) ? half : 0;
    count -= half;
  }
  return floor;
}

}  // namespace

RangedItemSequence::const_iterator RangedItemSequence::last() const {
  return empty() ? end() : const_iterator(&blocks_, blocks_.size() - 1, blocks_.back().size() - 1);
}

RangedItemSequence::const_iterator RangedItemSequence::nth(std::size_t index) const {
  std::size_t block = 0;
  for (std::size_t step = std::bit_floor(counts_.size()); step > 0; step /= 2) {
    if (block + step <= counts_.size() && counts_[block + step - 1] <= index) {
      block += step;
      index -= counts_[block - 1];
    }
  }
  return {&blocks_, block, index};
}

RangedItem* RangedItemSequence::at(std::size_t index) const {
  if (index >= size_) {
    throw std::out_of_range("No item has this index");
  }
  return (*this)[index];
}

std::size_t RangedItemSequence::indexOf(const const_iterator& item) const {
  std::size_t before = item.index_;
  for (std::size_t block = item.block_; block > 0; block &= block - 1) {
    before += counts_[block - 1];
  }
  return before;
}

RangedItemSequence::const_iterator RangedItemSequence::floor(uint64_t address) const {
  if (empty() || starts_.front() > address) {
    return end();
  }
  const std::size_t block =
      _floorAmong(starts_.size(), [&](std::size_t i) { return starts_[i] <= address; });
  const Block& entries = blocks_[block];
  return {&blocks_, block,
          _floorAmong(entries.size(), [&](std::size_t i) { return entries[i].start <= address; })};
}

void RangedItemSequence::append(uint64_t start, RangedItem* item) {
  if (blocks_.empty() || blocks_.back().size() == BLOCK_SIZE) {
    _addBlock(
        blocks_.size());  // not a split: items that arrive in ascending order fill their blocks
  }
  insert({&blocks_, blocks_.size() - 1, blocks_.back().size()}, start, item);
}

void RangedItemSequence::insert(const const_iterator& before, uint64_t start, RangedItem* item) {
  auto [block, index] = std::pair(before.block_, before.index_);
  if (block == blocks_.size()) {
    append(start, item);
    return;
  }
  if (blocks_[block].size() == BLOCK_SIZE) {
    _addBlock(block + 1);
    Block& full = blocks_[block];
    const auto middle = full.begin() + BLOCK_SIZE / 2;
    blocks_[block + 1].assign(middle, full.end());
    full.erase(middle, full.end());
    starts_[block + 1] = blocks_[block + 1].front().start;
    _countAll();
    if (index > full.size()) {
      index -= full.size();
      ++block;
    }
  }
  Block& target = blocks_[block];
  target.insert(target.begin() + static_cast<std::ptrdiff_t>(index), {start, item});
  starts_[block] = target.front().start;
  for (std::size_t i = block + 1; i <= counts_.size(); i += i & (~i + 1)) {
    ++counts_[i - 1];
  }
  ++size_;
}

void RangedItemSequence::_addBlock(std::size_t block) {
  const auto offset = static_cast<std::ptrdiff_t>(block);
  blocks_.emplace(blocks_.begin() + offset);
  starts_.insert(starts_.begin() + offset, 0);
  _countAll();
}

void RangedItemSequence::_countAll() {
  counts_.assign(blocks_.size(), 0);
  for (std::size_t i = 1; i <= blocks_.size(); ++i) {
    counts_[i - 1] += blocks_[i - 1].size();
    const std::size_t next = i + (i & (~i + 1));
    if (next <= blocks_.size()) {
      counts_[next - 1] += counts_[i - 1];
    }
  }
}
