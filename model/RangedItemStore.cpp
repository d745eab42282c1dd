#include "model/RangedItemStore.h"

RangedItemStore::~RangedItemStore() {
  if (ownsItems_) {
    for (const RangedItem* item : items_) {
      delete item;
    }
  }
}

RangedItem* RangedItemStore::addRangedItem(RangedItem* item) {
  if (items_.empty() || item->start >= items_.back()->start) {
    items_.push_back(item);
  } else {
    items_.insert(items_.begin() + (_findRangedItemIndex(item->start) + 1), item);
  }
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
  const auto startAt = [this](int index) { return items_[static_cast<std::size_t>(index)]->start; };
  if (items_.empty() || address < startAt(0)) {
    return -1;
  }
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
