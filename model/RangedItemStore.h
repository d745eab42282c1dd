// Address ranges in ascending order of their starts, with floor look-up. Equal starts and overlaps
// are allowed and kept; items are only ever added. Addresses and sizes are bytes. One thread only.
#pragma once

#include <cstdint>
#include <set>

#include "model/RangedItem.h"
#include "model/RangedItemSequence.h"

class RangedItemStore {
 public:
  // An owning store deletes its items with itself; otherwise they belong to someone else and must
  // outlive it.
  explicit RangedItemStore(bool ownsItems) : ownsItems_(ownsItems) {}
  RangedItemStore(const RangedItemStore&) = delete;
  RangedItemStore& operator=(const RangedItemStore&) = delete;
  virtual ~RangedItemStore();

  // Inserts `item` directly behind the one that _findRangedItemIndex() gives for its start, and
  // returns it. Its start stays as it is from now on. In constant time when starts arrive in
  // ascending order. A null item takes the last place and is never found.
  RangedItem* addRangedItem(RangedItem* item);
  // The item that contains `address`, or null. Only the floor item is asked: where ranges overlap,
  // an address past the end of the floor item is not found, also when an earlier, longer item holds
  // it. Deliberately simple.
  RangedItem* findRangedItem(unsigned long long address) const;
  // The index of an item with the greatest start not above `address`, or -1. Among equal starts,
  // the one that the search's probes land on: documents depend on it.
  int _findRangedItemIndex(unsigned long long address) const;

  const RangedItemSequence& items() const { return items_; }

  // Changes with every item that begins where another does, or inside it. As long as it stays, an
  // item that findRangedItem() found is found again, unless it shares its start: which of several
  // is found changes with every item that is added.
  uint32_t generation() const { return generation_; }
  bool isSharedStart(uint64_t start) const { return sharedStarts_.count(start) != 0; }

 private:
  using Place = RangedItemSequence::const_iterator;

  Place _probed(unsigned long long address, const Place& floor) const;

  RangedItemSequence items_;
  bool ownsItems_;
  std::set<uint64_t> sharedStarts_;
  uint32_t generation_ = 0;
};
