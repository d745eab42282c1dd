// Address ranges in ascending order of their starts. An address is looked up at the last range that
// starts at or below it, its floor. Ranges may share their start and overlap; they are only ever
// added. Addresses and sizes are bytes. One thread only.
//
// Items wait until somebody looks: a recording's maps all arrive before the first address, and
// sorting a million of them once takes a third of the time of putting each in its place.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

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
  // returns it. The start must not change any more. Takes constant time when starts arrive in
  // ascending order. A null item goes behind all others and is never found.
  RangedItem* addRangedItem(RangedItem* item);
  // The item that contains `address`, or null. Only the floor is asked: an address past its end is
  // not found, even if an earlier, longer item holds it. Deliberately simple.
  RangedItem* findRangedItem(unsigned long long address) const;
  // The index of the floor of `address`, or -1. Of several items with that start it is the one that
  // a halving search over all items ends on: documents depend on it.
  int _findRangedItemIndex(unsigned long long address) const;

  const RangedItemSequence& items() const {
    _settle();
    return items_;
  }

  // For whoever keeps what findRangedItem() found. As long as this number stays, an item that was
  // found for an address is found for it again: it changes with every item that begins inside
  // another, or where another does. Items that share their start must not be kept at all: which of
  // them is found can change with any item that is added.
  uint32_t generation() const {
    _settle();
    return generation_;
  }
  bool isSharedStart(uint64_t start) const;

 private:
  using Waiting = std::pair<uint64_t, RangedItem*>;  // start and item

  // What every look does first.
  void _settle() const {
    if (!waiting_.empty()) {
      _placeWaiting();
    }
  }
  void _placeWaiting() const;
  bool _sortWith(const std::vector<Waiting>& waiting) const;
  void _insert(uint64_t start, RangedItem* item) const;

  mutable RangedItemSequence items_;
  mutable std::vector<Waiting> waiting_;  // in the order of their arrival
  mutable uint32_t generation_ = 0;
  mutable bool hasSharedStarts_ = false;
  bool ownsItems_;
};
