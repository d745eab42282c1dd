// Items by start, those that share theirs in the order that insertions gave them: the container
// behind RangedItemStore. Finding a start, finding an index and inserting anywhere take logarithmic
// time, whatever the order in which items arrive: a recording may list a million maps at random.
// Beyond some millions the list of blocks counts, which a split moves. Borrows the items. One
// thread only.
//
// The items lie in blocks, which split when they are full. An entry holds its item's start, so that
// a search does not touch the items: they must not move afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "model/RangedItem.h"

class RangedItemSequence {
 public:
  using value_type = RangedItem*;
  // Any insertion makes it worthless.
  class const_iterator;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  RangedItem* operator[](std::size_t index) const;
  // As operator[]; throws std::out_of_range for an index past the end.
  RangedItem* at(std::size_t index) const;
  RangedItem* back() const { return blocks_.back().back().item; }
  uint64_t lastStart() const { return blocks_.back().back().start; }
  const_iterator begin() const;
  const_iterator end() const;
  const_iterator last() const;  // end() of an empty sequence
  const_iterator nth(std::size_t index) const;
  std::size_t indexOf(const const_iterator& item) const;

  // The last item whose start is not above `address`; end() if there is none.
  const_iterator floor(uint64_t address) const;

  // The start is the item's, or one that keeps the order.
  void insert(const const_iterator& before, uint64_t start, RangedItem* item);
  void append(uint64_t start, RangedItem* item);

 private:
  struct Entry {
    uint64_t start;
    RangedItem* item;
  };
  using Block = std::vector<Entry>;  // never empty, up to BLOCK_SIZE entries

  static constexpr std::size_t BLOCK_SIZE = 512;

  void _addBlock(std::size_t block);
  void _countAll();

  std::vector<Block> blocks_;
  std::vector<uint64_t> starts_;  // of the blocks' first items
  // The numbers of items in blocks as a Fenwick tree: the entry i - 1 is the sum of as many blocks
  // before block i as i has in its lowest set bit.
  std::vector<std::size_t> counts_;
  std::size_t size_ = 0;
};

class RangedItemSequence::const_iterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = RangedItem*;
  using difference_type = std::ptrdiff_t;
  using pointer = RangedItem* const*;
  using reference = RangedItem*;

  const_iterator() = default;

  RangedItem* operator*() const { return _entry().item; }
  uint64_t start() const { return _entry().start; }
  const_iterator& operator++() {
    if (++index_ == (*blocks_)[block_].size()) {
      ++block_;
      index_ = 0;
    }
    return *this;
  }
  const_iterator operator++(int) {
    const const_iterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const const_iterator& other) const {
    return block_ == other.block_ && index_ == other.index_;
  }
  bool operator!=(const const_iterator& other) const { return !(*this == other); }

 private:
  friend class RangedItemSequence;
  const_iterator(const std::vector<Block>* blocks, std::size_t block, std::size_t index)
      : blocks_(blocks), block_(block), index_(index) {}
  const Entry& _entry() const { return (*blocks_)[block_][index_]; }

  const std::vector<Block>* blocks_ = nullptr;
  std::size_t block_ = 0;
  std::size_t index_ = 0;  // inside the block
};

inline RangedItemSequence::const_iterator RangedItemSequence::begin() const {
  return {&blocks_, 0, 0};
}
inline RangedItemSequence::const_iterator RangedItemSequence::end() const {
  return {&blocks_, blocks_.size(), 0};
}
inline RangedItem* RangedItemSequence::operator[](std::size_t index) const { return *nth(index); }
