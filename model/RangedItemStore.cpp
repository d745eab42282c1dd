#include "model/RangedItemStore.h"

#include <algorithm>

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
    for (const auto& [start, item] : waiting_) {
      delete item;
    }
  }
}

RangedItem* RangedItemStore::addRangedItem(RangedItem* item) {
  if (item == nullptr) {
    _settle();
  }
  const uint64_t lastStart = items_.empty() ? 0 : items_.lastStart();
  const uint64_t start = item == nullptr ? lastStart : item->start;
  if (waiting_.empty() && start >= lastStart) {
    _insert(start, item);
  } else {
    waiting_.emplace_back(start, item);
  }
  return item;
}

// Where starts are equal, the place of an item depends on what was there when it came: such items
// go to their places one after the other. So do a few, for which the others need not move.
void RangedItemStore::_placeWaiting() const {
  const std::vector<Waiting> waiting = std::exchange(waiting_, {});
  if (waiting.size() <= items_.size() || !_sortWith(waiting)) {
    for (const auto& [start, item] : waiting) {
      _insert(start, item);
    }
  }
}

// False, and nothing done, if starts are equal.
bool RangedItemStore::_sortWith(const std::vector<Waiting>& waiting) const {
  std::vector<Waiting> all = waiting;
  for (auto item = items_.begin(); item != items_.end(); ++item) {
    all.emplace_back(item.start(), *item);
  }
  std::sort(all.begin(), all.end());
  const auto isEqualStart = [](const Waiting& one, const Waiting& other) {
    return one.first == other.first;
  };
  if (std::adjacent_find(all.begin(), all.end(), isEqualStart) != all.end()) {
    return false;
  }
  items_ = {};
  for (const auto& [start, item] : all) {
    items_.insert(start, item);
  }
  ++generation_;
  return true;
}

void RangedItemStore::_insert(uint64_t start, RangedItem* item) const {
  const bool isLast = items_.empty() || start >= items_.lastStart();
  const auto floor = isLast ? items_.last() : items_.floor(start);
  const bool hasFloor = floor != items_.end();
  const bool isShared = hasFloor && floor.start() == start;
  hasSharedStarts_ = hasSharedStarts_ || isShared;
  if (isShared || (hasFloor && _holds(*floor, start))) {
    ++generation_;
  }
  if (isShared && !isLast) {
    items_.insert(start, item, static_cast<std::size_t>(_findRangedItemIndex(start)) + 1);
  } else {
    items_.insert(start, item);
  }
}

RangedItem* RangedItemStore::findRangedItem(unsigned long long address) const {
  _settle();
  const auto floor = items_.floor(address);
  if (floor == items_.end()) {
    return nullptr;
  }
  RangedItem* const item = floor.sharesStartBefore()
                               ? items_[static_cast<std::size_t>(_findRangedItemIndex(address))]
                               : *floor;
  return _holds(item, address) ? item : nullptr;
}

int RangedItemStore::_findRangedItemIndex(unsigned long long address) const {
  _settle();
  const auto floor = items_.floor(address);
  if (floor == items_.end()) {
    return -1;
  }
  const uint64_t start = floor.start();
  const std::size_t first = start == 0 ? 0 : items_.countUpTo(start - 1);
  const std::size_t last = items_.countUpTo(start) - 1;
  return static_cast<int>(_probe(items_.size(), first, last, start == address));
}

bool RangedItemStore::isSharedStart(uint64_t start) const {
  _settle();
  if (!hasSharedStarts_) {
    return false;
  }
  const auto floor = items_.floor(start);
  return floor != items_.end() && floor.start() == start && floor.sharesStartBefore();
}
