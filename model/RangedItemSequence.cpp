#include "model/RangedItemSequence.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr std::size_t SMALLEST_RING = 4;

}  // namespace

void RangedItemSequence::Ring::_grow() {
  std::vector<Entry> larger(std::max(SMALLEST_RING, slots_.size() * 2));
  for (std::size_t i = 0; i < count_; ++i) {
    larger[i] = (*this)[i];
  }
  slots_ = std::move(larger);
  mask_ = slots_.size() - 1;
  first_ = 0;
}

void RangedItemSequence::Ring::insert(std::size_t index, const Entry& entry) {
  if (count_ == slots_.size()) {
    _grow();
  }
  const bool movesFront = index < count_ / 2;
  if (movesFront) {
    first_ = (first_ - 1) & mask_;
  }
  ++count_;
  if (first_ + count_ <= slots_.size()) {  // in one piece
    Entry* const begin = slots_.data() + first_;
    if (movesFront) {
      std::copy(begin + 1, begin + index + 1, begin);
    } else {
      std::copy_backward(begin + index, begin + count_ - 1, begin + count_);
    }
  } else if (movesFront) {
    for (std::size_t i = 0; i < index; ++i) {
      _at(i) = _at(i + 1);
    }
  } else {
    for (std::size_t i = count_ - 1; i > index; --i) {
      _at(i) = _at(i - 1);
    }
  }
  _at(index) = entry;
}

RangedItemSequence::Entry RangedItemSequence::Ring::takeFirst() {
  const Entry entry = (*this)[0];
  first_ = (first_ + 1) & mask_;
  --count_;
  return entry;
}

RangedItemSequence::Entry RangedItemSequence::Ring::takeLast() {
  --count_;
  return (*this)[count_];
}

RangedItem* RangedItemSequence::at(std::size_t index) const {
  if (index >= size_) {
    throw std::out_of_range("No item has this index");
  }
  return (*this)[index];
}

void RangedItemSequence::insert(std::size_t index, RangedItem* item) {
  if (rings_.empty()) {
    rings_.emplace_back();
  }
  Place place{rings_.size() - 1, rings_.back().count()};
  if (index < size_) {
    place = _placeOf(index);
  }
  if (rings_[place.ring].isFull()) {
    const bool isNearerToFront = place.ring < rings_.size() - 1 - place.ring;
    place = isNearerToFront ? _makeRoomBefore(place) : _makeRoomBehind(place);
  }
  rings_[place.ring].insert(place.index, {item->start, item});
  ++size_;
}

// Hands the last entry of each ring on to the next, from the end to the place's ring.
RangedItemSequence::Place RangedItemSequence::_makeRoomBehind(Place place) {
  if (rings_.back().isFull()) {
    rings_.emplace_back();
  }
  if (place.index == RING_SIZE) {  // behind everything
    return {place.ring + 1, 0};
  }
  for (std::size_t i = rings_.size() - 1; i > place.ring; --i) {
    rings_[i].insert(0, rings_[i - 1].takeLast());
  }
  return place;
}

// Hands the first entry of each ring on to the one before, from the front to the place's ring.
RangedItemSequence::Place RangedItemSequence::_makeRoomBefore(Place place) {
  if (rings_.front().isFull()) {
    rings_.emplace(rings_.begin());
    ++place.ring;
  }
  if (place.index == 0) {  // the end of the ring before is the same place
    --place.ring;
    place.index = rings_[place.ring].count();
  }
  if (!rings_[place.ring].isFull()) {
    return place;
  }
  for (std::size_t i = 0; i < place.ring; ++i) {
    rings_[i].insert(rings_[i].count(), rings_[i + 1].takeFirst());
  }
  return {place.ring, place.index - 1};
}

// The last ring whose first start is not above `address`.
std::size_t RangedItemSequence::_ringOf(uint64_t address) const {
  std::size_t first = 0;
  std::size_t count = rings_.size();
  while (count > 1) {
    const std::size_t half = count / 2;
    if (rings_[first + half][0].start <= address) {
      first += half;
    }
    count -= half;
  }
  return first;
}

// In each step three probes, none of which waits for another: sampled addresses are far apart, and
// each probe waits for the memory. Without a branch that depends on the starts, which a processor
// could not foretell.
std::size_t RangedItemSequence::floorIndex(uint64_t address) const {
  const std::size_t ringIndex = _ringOf(address);
  const Ring& ring = rings_[ringIndex];
  const auto isBelow = [&ring, address](std::size_t index) {
    return static_cast<std::size_t>(ring[index].start <= address);
  };
  std::size_t first = 0;
  std::size_t count = ring.count();
  while (count >= 4) {
    const std::size_t quarter = count / 4;
    first += quarter * (isBelow(first + quarter) + isBelow(first + 2 * quarter) +
                        isBelow(first + 3 * quarter));
    count -= 3 * quarter;
  }
  while (count > 1) {
    first += isBelow(first + 1);
    --count;
  }
  return ringIndex == 0 ? first : rings_.front().count() + (ringIndex - 1) * RING_SIZE + first;
}
