// A sequence of range items by index, made for items that arrive in any order: the container behind
// RangedItemStore. Reading an index takes constant time, inserting at an index the time of moving
// about the square root of the size: a recording may list a hundred thousand maps from high to low
// addresses, or at random, and a plain array would move them all for each one. Ascending arrival
// only appends. Borrows the items. One thread only.
//
// The items lie in rings of RING_SIZE entries, every ring but the first and the last full. An
// insertion into a full ring hands one entry from ring to ring towards the nearer end. An entry
// holds its item's start, so that a search does not touch the items: they must not move afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "model/RangedItem.h"

class RangedItemSequence {
 public:
  using value_type = RangedItem*;
  class const_iterator;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  RangedItem* operator[](std::size_t index) const { return _entryAt(index).item; }
  // As operator[]; throws std::out_of_range for an index past the end.
  RangedItem* at(std::size_t index) const;
  RangedItem* back() const { return (*this)[size_ - 1]; }
  uint64_t startAt(std::size_t index) const { return _entryAt(index).start; }
  const_iterator begin() const;
  const_iterator end() const;

  // Places `item` before the one that has the index now; an index equal to the size appends.
  void insert(std::size_t index, RangedItem* item);

  // For a sequence in ascending order of starts, the first not above `address`: the highest index
  // of a start not above `address`.
  std::size_t floorIndex(uint64_t address) const;

 private:
  struct Entry {
    uint64_t start = 0;
    RangedItem* item = nullptr;
  };

  // Up to RING_SIZE entries with room for more at both ends.
  class Ring {
   public:
    std::size_t count() const { return count_; }
    bool isFull() const { return count_ == RING_SIZE; }
    const Entry& operator[](std::size_t index) const { return slots_[(first_ + index) & mask_]; }
    void insert(std::size_t index, const Entry& entry);
    Entry takeFirst();
    Entry takeLast();

   private:
    Entry& _at(std::size_t index) { return slots_[(first_ + index) & mask_]; }
    void _grow();

    std::vector<Entry> slots_;  // a power of two, so that small sequences stay small
    std::size_t mask_ = 0;      // number of slots minus one
    std::size_t first_ = 0;
    std::size_t count_ = 0;
  };

  struct Place {
    std::size_t ring;
    std::size_t index;  // inside the ring
  };

  static constexpr std::size_t RING_SIZE = 256;

  Place _placeOf(std::size_t index) const {
    const std::size_t inFirst = rings_.front().count();
    if (index < inFirst) {
      return {0, index};
    }
    return {1 + (index - inFirst) / RING_SIZE, (index - inFirst) % RING_SIZE};
  }
  const Entry& _entryAt(std::size_t index) const {
    const Place place = _placeOf(index);
    return rings_[place.ring][place.index];
  }
  std::size_t _ringOf(uint64_t address) const;
  Place _makeRoomBehind(Place place);
  Place _makeRoomBefore(Place place);

  std::vector<Ring> rings_;
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
  const_iterator(const RangedItemSequence* sequence, std::size_t index)
      : sequence_(sequence), index_(index) {}

  RangedItem* operator*() const { return (*sequence_)[index_]; }
  const_iterator& operator++() {
    ++index_;
    if (index_ + AHEAD < sequence_->size()) {
      __builtin_prefetch((*sequence_)[index_ + AHEAD]);
    }
    return *this;
  }
  const_iterator operator++(int) {
    const const_iterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const const_iterator& other) const { return index_ == other.index_; }
  bool operator!=(const const_iterator& other) const { return index_ != other.index_; }

 private:
  // The items lie all over the memory: without this, a walk would wait for each.
  static constexpr std::size_t AHEAD = 8;

  const RangedItemSequence* sequence_ = nullptr;
  std::size_t index_ = 0;
};

inline RangedItemSequence::const_iterator RangedItemSequence::begin() const { return {this, 0}; }
inline RangedItemSequence::const_iterator RangedItemSequence::end() const { return {this, size_}; }
