#include "report/StackTree.h"

#include <limits>

#include "report/ReportError.h"

namespace report {

namespace {

constexpr std::size_t FIRST_SLOTS = 1024;

// Finalizer of MurmurHash3: every bit of the key reaches every bit of the slot.
uint64_t mix(uint64_t key) {
  key ^= key >> 33;
  key *= 0xff51afd7ed558ccdULL;
  key ^= key >> 33;
  key *= 0xc4ceb9fe1a85ec53ULL;
  return key ^ (key >> 33);
}

}  // namespace

StackTree::StackTree() : parents_{ROOT}, frames_{0}, lastChildren_(1), slots_(FIRST_SLOTS) {}

std::size_t StackTree::_slotOf(uint64_t key) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = mix(key) & mask;
  while (slots_[slot].node != 0 && slots_[slot].key != key) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

uint32_t StackTree::_lookUp(uint32_t parent, uint32_t frame) {
  const uint64_t key = uint64_t{parent} << 32 | frame;
  std::size_t slot = _slotOf(key);
  if (slots_[slot].node != 0) {
    return slots_[slot].node;
  }
  if (parents_.size() == std::numeric_limits<uint32_t>::max()) {
    throw ReportError(
        "There are more than 4294967294 different call chains; convert a part of the time with -s and -d.");
  }
  if (parents_.size() * 4 > slots_.size() * 3) {
    _grow();
    slot = _slotOf(key);
  }
  slots_[slot] = {key, static_cast<uint32_t>(parents_.size())};
  parents_.push_back(parent);
  frames_.push_back(frame);
  lastChildren_.emplace_back();
  return slots_[slot].node;
}

void StackTree::_grow() {
  slots_.assign(slots_.size() * 2, Slot{});
  for (uint32_t node = 1; node < parents_.size(); ++node) {
    const uint64_t key = uint64_t{parents_[node]} << 32 | frames_[node];
    slots_[_slotOf(key)] = {key, node};
  }
}

std::vector<uint32_t> StackTree::sortDepthFirst() {
  const std::size_t count = parents_.size();
  // The nodes of each subtree, with its root. Children have higher numbers than their parent.
  std::vector<uint32_t> sizes(count, 1);
  for (std::size_t node = count - 1; node > 0; --node) {
    sizes[parents_[node]] += sizes[node];
  }
  // Where the next child of a node goes; children keep their order.
  std::vector<uint32_t> numbers(count, 0), next(count, 1);
  for (std::size_t node = 1; node < count; ++node) {
    const uint32_t parent = parents_[node];
    numbers[node] = next[parent];
    next[parent] += sizes[node];
    next[node] = numbers[node] + 1;
  }
  _renumber(numbers);
  return numbers;
}

void StackTree::_renumber(const std::vector<uint32_t>& numbers) {
  std::vector<uint32_t> parents(parents_.size()), frames(parents_.size());
  for (std::size_t node = 0; node < parents_.size(); ++node) {
    parents[numbers[node]] = numbers[parents_[node]];
    frames[numbers[node]] = frames_[node];
  }
  parents_.swap(parents);
  frames_.swap(frames);
  lastChildren_.assign(parents_.size(), Child{});
  slots_.assign(slots_.size() / 2, Slot{});
  _grow();
}

std::vector<uint32_t> StackTree::depths() const {
  std::vector<uint32_t> depths(parents_.size(), 0);
  for (std::size_t node = 1; node < parents_.size(); ++node) {
    depths[node] = depths[parents_[node]] + 1;
  }
  return depths;
}

}  // namespace report
