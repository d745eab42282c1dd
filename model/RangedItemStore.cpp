#include "model/RangedItemStore.h"

RangedItemStore::~RangedItemStore() {
  if (ownsItems_) {
    for (const RangedItem* item : items_) {
      delete item;
    }
  }
}

RangedItem* RangedItemStore::addRangedItem(RangedItem* item) {
  int floor = -1;
  if (!items_.empty()) {
    const std::size_t last = items_.size() - 1;
    floor = item->start >= items_.startAt(last) ? static_cast<int>(last)
                                                : _findRangedItemIndex(item->start);
  }
  const RangedItem* const before = floor < 0 ? nullptr : items_[static_cast<std::size_t>(floor)];
  hasEqualStarts_ = hasEqualStarts_ || (before != nullptr && before->start == item->start);
  if (hasEqualStarts_ || (before != nullptr && before->contains(item->start))) {
    ++generation_;
  }
  items_.insert(static_cast<std::size_t>(floor + 1), item);
  return item;
}

RangedItem* RangedItemStore::findRangedItem(unsigned long long address) const {
  const int index = _findRangedItemIndex(address);
  if (index < 0) {
    return nullptr;
  }
  RangedItem* const item = items_[static_cast<std::size_t>(index)];
  return item->contains(address) ? item : nullptr;
}

int RangedItemStore::_findRangedItemIndex(unsigned long long address) const {
  if (items_.empty() || address < items_.startAt(0)) {
    return -1;
  }
  // Only among equal starts does it matter how the floor is searched for.
  return hasEqualStarts_ ? _probedIndex(address) : static_cast<int>(items_.floorIndex(address));
}

int RangedItemStore::_probedIndex(unsigned long long address) const {
  const auto startAt = [this](int index) {
    return items_.startAt(static_cast<std::size_t>(index));
  };
  const int last = static_cast<int>(items_.size()) - 1;
  int low = 0;
  int high = last;
  int probe = high / 2;
  while (low != high) {
    if (startAt(probe) < address) {
      if (probe == last || startAt(probe + 1) > address) {
        return probe;
      }
      if (startAt(probe + 1) == address) {
        return probe + 1;
      }
      low = probe + 1;
    } else {
      if (startAt(probe) == address) {
        return probe;
      }
      high = probe - 1;
    }
    probe = (low + high) / 2;
  }
  return low;
}
