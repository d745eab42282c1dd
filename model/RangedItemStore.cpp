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
  if (floor >= 0) {
    RangedItem* const before = items_[static_cast<std::size_t>(floor)];
    if (before->start == item->start) {
      before->sharesStart = true;
      item->sharesStart = true;
    }
    if (item->sharesStart || before->contains(item->start)) {
      ++generation_;
    }
  }
  items_.insert(static_cast<std::size_t>(floor + 1), item);
  return item;
}

RangedItem* RangedItemStore::findRangedItem(unsigned long long address) const {
  bool isSole = false;
  return findRangedItem(address, address, address, isSole);
}

RangedItem* RangedItemStore::findRangedItem(unsigned long long address, unsigned long long first,
                                            unsigned long long last, bool& isSole) const {
  isSole = false;
  const int index = _findRangedItemIndex(address);
  if (index < 0) {
    return nullptr;
  }
  const std::size_t next = static_cast<std::size_t>(index) + 1;
  RangedItem* const item = items_[next - 1];
  if (!item->contains(address)) {
    return nullptr;
  }
  isSole = !item->sharesStart && item->start <= first && item->contains(last) &&
           (next == items_.size() || items_.startAt(next) > last);
  return item;
}

int RangedItemStore::_findRangedItemIndex(unsigned long long address) const {
  if (items_.empty() || address < items_.startAt(0)) {
    return -1;
  }
  // Only among equal starts does it matter how the floor is searched for.
  const std::size_t index = items_.floorIndex(address);
  const bool isShared = index > 0 && items_.startAt(index - 1) == items_.startAt(index);
  return isShared ? _probedIndex(address) : static_cast<int>(index);
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
