#include "prepare/Placement.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace prepare {

namespace {

constexpr std::uint64_t LAST_ADDRESS = std::numeric_limits<std::uint64_t>::max();
// More of a map than this on either side of its first hit is not placed with it at once. No piece
// is larger than twice that, so that there is room for the others.
constexpr std::uint64_t FARTHEST_NEIGHBOUR = 1ull << 32;
constexpr std::uint64_t MOVED_ALIGNMENT = 1ull << 16;

std::uint64_t lowestPlaced(const recordings::Mapping& mapping, std::uint64_t address) {
  return std::max(mapping.start, address - std::min(address, FARTHEST_NEIGHBOUR));
}

std::uint64_t highestPlaced(const recordings::Mapping& mapping, std::uint64_t address) {
  const std::uint64_t farthest = address + std::min(FARTHEST_NEIGHBOUR, LAST_ADDRESS - address);
  return std::min(mapping.end, farthest);
}

}  // namespace

bool Placement::_isSame(const Piece& piece, const recordings::Mapping& mapping) {
  return piece.file == mapping.file && piece.base == mapping.base();
}

Piece& Placement::place(const recordings::Mapping& mapping, std::uint64_t address,
                        const PlacementRules& rules) {
  const auto above = placed_.upper_bound(address);
  if (above != placed_.begin()) {
    Piece& below = std::prev(above)->second;
    if (below.shift == 0 && below.holds(address) && _isSame(below, mapping)) {
      return below;
    }
  }
  if (Piece* const moved = _findMoved(mapping, address)) {
    return *moved;
  }
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  if ((mapping.start < PlacementRules::HIGH_ADDRESS && rules.mustBeHigh &&
       rules.mustBeHigh(mapping)) ||
      !_makeRoom(mapping, address, rules, low, high)) {
    return _move(mapping, address, rules);
  }
  return _insert(mapping, address, low, high, 0);
}

Piece* Placement::_findMoved(const recordings::Mapping& mapping, std::uint64_t address) {
  auto above = moved_.upper_bound({mapping.file, mapping.base(), address});
  if (above == moved_.begin()) {
    return nullptr;
  }
  Piece* const piece = std::prev(above)->second;
  return _isSame(*piece, mapping) && piece->holds(address) ? piece : nullptr;
}

// The part of the map around the address that nothing else stands in; false if something stands at
// the address itself. A piece in the way gives way as far as no sample of it was seen.
bool Placement::_makeRoom(const recordings::Mapping& mapping, std::uint64_t address,
                          const PlacementRules& rules, std::uint64_t& low, std::uint64_t& high) {
  low = lowestPlaced(mapping, address);
  high = highestPlaced(mapping, address);
  if (address == 0) {
    return false;  // samples at address 0 are none to the converter
  }
  for (const ReservedRange& range : rules.reserved) {
    if (address >= range.first && address <= range.last) {
      return false;
    }
    if (range.last < address) {
      low = std::max(low, range.last + 1);
    } else {
      high = std::min(high, range.first);
    }
  }
  const auto above = placed_.upper_bound(address);
  if (above != placed_.end()) {
    high = std::min(high, above->first);
  }
  if (above == placed_.begin()) {
    return true;
  }
  const auto below = std::prev(above);
  Piece& piece = below->second;
  const std::uint64_t end = piece.high + piece.shift;
  if (end <= address) {
    low = std::max(low, end);
    return true;
  }
  if (piece.shift != 0 || (piece.firstHit <= address && address <= piece.lastHit)) {
    return false;
  }
  if (address > piece.lastHit) {
    low = std::max(low, piece.lastHit + 1);
    piece.high = std::min(piece.high, low);
    return true;
  }
  // The piece keeps its upper part, from its first hit on.
  auto node = placed_.extract(below);
  high = std::min(high, node.mapped().firstHit);
  node.mapped().low = std::max(node.mapped().low, high);
  node.key() = node.mapped().low;
  placed_.insert(std::move(node));
  const auto before = placed_.lower_bound(address);
  if (before != placed_.begin()) {
    const Piece& lower = std::prev(before)->second;
    low = std::max(low, lower.high + lower.shift);
  }
  return true;
}

Piece& Placement::_insert(const recordings::Mapping& mapping, std::uint64_t address,
                          std::uint64_t low, std::uint64_t high, std::uint64_t shift) {
  Piece piece;
  piece.file = mapping.file;
  piece.base = mapping.base();
  piece.low = low;
  piece.high = high;
  piece.shift = shift;
  piece.firstHit = piece.lastHit = address;
  return placed_.insert_or_assign(low + shift, piece).first->second;
}

// A stretch of that size, at an address with these last digits, which people compare. Each thing in
// the way is passed at once, and no stretch is looked at twice.
std::uint64_t Placement::_findFree(std::uint64_t digits, std::uint64_t size,
                                   const PlacementRules& rules) {
  bool areReservedKept = true;
  for (;;) {
    const std::uint64_t start = nextFree_ + digits;
    std::uint64_t next = start + size;
    bool isFree = true;
    if (const auto above = placed_.lower_bound(next); above != placed_.begin()) {
      const Piece& below = std::prev(above)->second;
      isFree = below.high + below.shift <= start;
      next = std::max(next, below.high + below.shift);
    }
    for (const ReservedRange& range : rules.reserved) {
      if (areReservedKept && start <= range.last && start + size > range.first) {
        isFree = false;
        next = std::max(next, range.last);
      }
    }
    if (next > LAST_ADDRESS - FARTHEST_NEIGHBOUR * 4) {
      // A recording that claims everything for its kernel: then the kernel has to share.
      areReservedKept = false;
      nextFree_ = FREE_ADDRESSES;
      continue;
    }
    nextFree_ = (next + 2 * MOVED_ALIGNMENT) & ~(MOVED_ALIGNMENT - 1);
    if (isFree) {
      return start;
    }
  }
}

Piece& Placement::_move(const recordings::Mapping& mapping, std::uint64_t address,
                        const PlacementRules& rules) {
  const std::uint64_t low = lowestPlaced(mapping, address);
  const std::uint64_t high = highestPlaced(mapping, address);
  const std::uint64_t size = std::max<std::uint64_t>(high - low, 1);
  const std::uint64_t start = _findFree(low % MOVED_ALIGNMENT, size, rules);
  Piece& piece = _insert(mapping, address, low, low + size, start - low);
  moved_[{piece.file, piece.base, piece.low}] = &piece;
  return piece;
}

}  // namespace prepare
