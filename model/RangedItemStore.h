// Address ranges in ascending order of their starts, with floor lookup. Equal starts and overlaps
// are allowed and kept; items are only ever added. Addresses and sizes are bytes. One thread only.
#pragma once

#include <cstdint>

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

  // Inserts `item` behind every smaller start and returns it. Its start stays as it is from now on.
  // In constant time when starts arrive in ascending order.
  RangedItem* addRangedItem(RangedItem* item);
  // The item that contains `address`, or null. Only the floor item is asked: where ranges overlap,
  // an address past the end of the floor item is not found, also when an earlier, longer item holds
  // it. Deliberately simple.
  RangedItem* findRangedItem(unsigned long long address) const;
  // As above. `isSole` tells whether findRangedItem() gives that item for every address from
  // `first` to `last`, among which `address` lies; false for an item that shares its start.
  RangedItem* findRangedItem(unsigned long long address, unsigned long long first,
                             unsigned long long last, bool& isSole) const;
  // The index of an item with the greatest start not above `address`, or -1. Among equal starts,
  // the one that the search's probes land on: documents depend on it.
  int _findRangedItemIndex(unsigned long long address) const;

  const RangedItemSequence& items() const { return items_; }

  // Changes when an item is added that may change the answer for an address that was found before:
  // one that begins inside another. As long as it stays, what findRangedItem() found may be kept,
  // unless the item shares its start; that nothing was found may not.
  uint32_t generation() const { return generation_; }

 private:
  int _probedIndex(unsigned long long address) const;

  RangedItemSequence items_;
  bool ownsItems_;
  uint32_t generation_ = 0;
};
