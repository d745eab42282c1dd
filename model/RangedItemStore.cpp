#include "model/RangedItemStore.h"

namespace {

bool _holds(const RangedItem* item, uint64_t address) {
  return item != nullptr && item->contains(address);
}

// The items from `first` to `last` share the greatest start not above an address; with `isExact`
// their start is the address. Returns the one of them that halving `size` items lands on.
std::size_t _probe(std::size_t size, std::size_t first, std::size_t last, bool isExact) {
  std::size_t low = 0;
  std::size_t high = size - 1;
  std::size_t probe = high / 2;
  while (low != high) {
    const bool isBelow = isExact ? probe < first : probe <= last;
    if (isBelow) {
      if (probe == last) {
        return probe;
      }
      if (isExact && probe + 1 == first) {
        return first;
      }
      low = probe + 1;
    } else {
      if (isExact && probe <= last) {
        return probe;
      }
      high = probe - 1;
    }
    probe = (low + high) / 2;
  }
  return low;
}

}  // namespace

RangedItemStore::~RangedItemStore() {
  if (ownsItems_) {
    for (const RangedItem* item : items_) {
      delete item;
    }
  }
}

RangedItem* RangedItemStore::addRangedItem(RangedItem* item) {
  const uint64_t lastStart = items_.empty() ? 0 : items_.lastStart();
  const uint64_t start = item == nullptr ? lastStart : item->start;
  const bool isLast = start >= lastStart;
  const Iterator floor = isLast ? items_.last() : items_.floor(start);
  const bool hasFloor = floor != items_.end();
  const bool isShared = hasFloor && floor.start() == start;
  if (isShared) {
    sharedStarts_.insert(start);
  }
  if (isShared || (hasFloor && _holds(*floor, start))) {
    ++generation_;
  }
  if (isLast) {
    items_.append(start, item);
  } else if (!hasFloor) {
    items_.insert(items_.begin(), start, item);
  } else {
    Iterator at = _probed(start, floor);
    items_.insert(++at, start, item);
  }
  return item;
}

RangedItem* RangedItemStore::findRangedItem(unsigned long long address) const {
  const Iterator floor = items_.floor(address);
  if (floor == items_.end()) {
    return nullptr;
  }
  RangedItem* const item = *_probed(address, floor);
  return _holds(item, address) ? item : nullptr;
}

int RangedItemStore::_findRangedItemIndex(unsigned long long address) const {
  const Iterator floor = items_.floor(address);
  return floor == items_.end() ? -1 : static_cast<int>(items_.indexOf(_probed(address, floor)));
}

// Only among equal starts does it matter how the floor is searched for.
RangedItemStore::Iterator RangedItemStore::_probed(unsigned long long address,
                                                   const Iterator& floor) const {
  const uint64_t start = floor.start();
  if (!isSharedStart(start)) {
    return floor;
  }
  const Iterator below = start == 0 ? items_.end() : items_.floor(start - 1);
  const std::size_t first = below == items_.end() ? 0 : items_.indexOf(below) + 1;
  const std::size_t last = items_.indexOf(floor);
  return items_.nth(_probe(items_.size(), first, last, start == address));
}
