#include "model/RangedItemSequence.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace {

// Counted rather than searched for: no look waits for the one before it, so that a node that is not
// in the processor's caches arrives as a whole.
template <typename Slots>
std::size_t _slotsUpTo(const Slots& starts, uint64_t address) {
  std::size_t slots = 0;
  for (const uint64_t start : starts) {
    slots += start <= address ? 1 : 0;
  }
  return slots;
}

// The last slot that is not above `address`, or else the first one.
template <typename Slots>
std::size_t _floorSlot(const Slots& starts, uint64_t address) {
  std::size_t floor = 0;
  std::size_t count = starts.size();
  while (count > 1) {
    const std::size_t half = count / 2;
    floor += starts[floor + half] <= address ? half : 0;
    count -= half;
  }
  return floor;
}

template <typename Slots>
std::size_t _sumBefore(const Slots& counts, std::size_t slot) {
  return std::accumulate(counts.begin(), counts.nth(slot), std::size_t{0});
}

// The slot that holds `index`, which becomes one among the slot's items. The last slot holds every
// index beyond the others.
template <typename Slots>
std::size_t _slotOfIndex(const Slots& counts, std::size_t& index) {
  std::size_t slot = 0;
  while (slot + 1 < counts.size() && index >= counts[slot]) {
    index -= counts[slot++];
  }
  return slot;
}

template <typename Slots>
void _moveFrom(std::size_t slot, Slots& from, Slots& to) {
  to.assign(std::make_move_iterator(from.nth(slot)), std::make_move_iterator(from.end()));
  from.resize(slot);
}

}  // namespace

bool RangedItemSequence::const_iterator::sharesStartBefore() const {
  if (slot_ > 0) {
    return leaf_->starts[slot_ - 1] == start();
  }
  return leaf_->previous != nullptr && leaf_->previous->starts.back() == start();
}

std::unique_ptr<RangedItemSequence::Node> RangedItemSequence::Leaf::split(std::size_t slot) {
  auto right = std::make_unique<Leaf>();
  _moveFrom(slot, starts, right->starts);
  _moveFrom(slot, items, right->items);
  right->previous = this;
  right->next = next;
  if (next != nullptr) {
    next->previous = right.get();
  }
  next = right.get();
  return right;
}

std::unique_ptr<RangedItemSequence::Node> RangedItemSequence::Branch::split(std::size_t slot) {
  auto right = std::make_unique<Branch>();
  _moveFrom(slot, starts, right->starts);
  _moveFrom(slot, counts, right->counts);
  _moveFrom(slot, children, right->children);
  return right;
}

std::size_t RangedItemSequence::Branch::count() const { return _sumBefore(counts, counts.size()); }

void RangedItemSequence::Branch::adopt(std::size_t slot, std::unique_ptr<Node> child) {
  starts.insert(starts.nth(slot), child->starts.front());
  counts.insert(counts.nth(slot), child->count());
  children.insert(children.nth(slot), std::move(child));
}

template <typename SlotIn>
const RangedItemSequence::Leaf& RangedItemSequence::_leaf(SlotIn slotIn) const {
  const Node* node = root_.get();
  for (std::size_t i = 0; i < branches_; ++i) {
    const auto& branch = static_cast<const Branch&>(*node);
    node = branch.children[slotIn(branch)].get();
  }
  return static_cast<const Leaf&>(*node);
}

RangedItemSequence::const_iterator RangedItemSequence::begin() const {
  return empty() ? end() : const_iterator(&_leaf([](const Branch&) { return std::size_t{0}; }), 0);
}

RangedItemSequence::const_iterator RangedItemSequence::last() const {
  return empty() ? end() : const_iterator(last_, last_->items.size() - 1);
}

RangedItem* RangedItemSequence::operator[](std::size_t index) const {
  const Leaf& leaf =
      _leaf([&index](const Branch& branch) { return _slotOfIndex(branch.counts, index); });
  return leaf.items[index];
}

RangedItemSequence::const_iterator RangedItemSequence::floor(uint64_t address) const {
  if (empty()) {
    return end();
  }
  const Leaf& leaf =
      _leaf([address](const Branch& branch) { return _floorSlot(branch.starts, address); });
  const std::size_t slots = _slotsUpTo(leaf.starts, address);
  return slots == 0 ? end() : const_iterator(&leaf, slots - 1);
}

std::size_t RangedItemSequence::countUpTo(uint64_t address) const {
  if (empty()) {
    return 0;
  }
  std::size_t before = 0;
  const Leaf& leaf = _leaf([address, &before](const Branch& branch) {
    const std::size_t slot = _floorSlot(branch.starts, address);
    before += _sumBefore(branch.counts, slot);
    return slot;
  });
  return before + _slotsUpTo(leaf.starts, address);
}

void RangedItemSequence::insert(uint64_t start, RangedItem* item,
                                std::optional<std::size_t> index) {
  // Nodes that are filled in ascending order stay full.
  const std::size_t middle = empty() || start >= lastStart() ? NODE_SIZE - 1 : NODE_SIZE / 2;
  _makeRoomInRoot();
  Node* node = root_.get();
  for (std::size_t i = 0; i < branches_; ++i) {
    auto& branch = static_cast<Branch&>(*node);
    std::optional<std::size_t> inside;
    const auto choose = [&] {
      inside = index;
      return index ? _slotOfIndex(branch.counts, *inside) : _floorSlot(branch.starts, start);
    };
    std::size_t slot = choose();
    if (branch.children[slot]->isFull()) {
      branch.adopt(slot + 1, branch.children[slot]->split(middle));
      branch.counts[slot] -= branch.counts[slot + 1];
      slot = choose();
    }
    index = inside;
    branch.starts[slot] = std::min(branch.starts[slot], start);
    ++branch.counts[slot];
    node = branch.children[slot].get();
  }
  auto& leaf = static_cast<Leaf&>(*node);
  const std::size_t slot = index ? *index : _slotsUpTo(leaf.starts, start);
  leaf.starts.insert(leaf.starts.nth(slot), start);
  leaf.items.insert(leaf.items.nth(slot), item);
  ++size_;
  last_ = last_->next == nullptr ? last_ : last_->next;
}

void RangedItemSequence::_makeRoomInRoot() {
  if (root_ == nullptr) {
    auto leaf = std::make_unique<Leaf>();
    last_ = leaf.get();
    root_ = std::move(leaf);
  } else if (root_->isFull()) {
    auto branch = std::make_unique<Branch>();
    branch->adopt(0, std::move(root_));
    root_ = std::move(branch);
    ++branches_;
  }
}
