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
constexpr std::uint64_t PAGE = 1ull << 12;
constexpr std::uint32_t UNKNOWN_INDEX = 0x7ffffffe;

}  // namespace

bool Placement::_isSame(const Piece& piece, const recordings::Mapping& mapping) {
  return piece.file == mapping.file && piece.base == mapping.base();
}

Placement::Stretch Placement::_neighbourhood(const recordings::Mapping& mapping,
                                             std::uint64_t address) {
  Stretch stretch{mapping.start, mapping.end};
  stretch.cut(address - std::min(address, FARTHEST_NEIGHBOUR),
              address + std::min(FARTHEST_NEIGHBOUR, LAST_ADDRESS - address));
  return stretch;
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
  Stretch stretch = _neighbourhood(mapping, address);
  const bool isMisread =
      mapping.start < PlacementRules::HIGH_ADDRESS && rules.mustBeHigh && rules.mustBeHigh(mapping);
  if (isMisread || !_makeRoom(address, rules, stretch)) {
    return _move(mapping, address, stretch, rules);
  }
  return _insert(mapping, address, stretch, 0);
}

Piece* Placement::_findMoved(const recordings::Mapping& mapping, std::uint64_t address) {
  auto above = moved_.upper_bound({mapping.file, mapping.base(), address});
  if (above == moved_.begin()) {
    return nullptr;
  }
  Piece* const piece = std::prev(above)->second;
  return _isSame(*piece, mapping) && piece->holds(address) ? piece : nullptr;
}

// Cuts the stretch down to what nothing else stands in; false if something stands at the address
// itself, and then to the pages of that. A piece in the way gives way as far as no sample of it was
// seen.
bool Placement::_makeRoom(std::uint64_t address, const PlacementRules& rules, Stretch& stretch) {
  const auto isTaken = [&stretch](std::uint64_t first, std::uint64_t last) {
    stretch.cut(first & ~(PAGE - 1),
                (last | (PAGE - 1)) == LAST_ADDRESS ? LAST_ADDRESS : (last | (PAGE - 1)) + 1);
    return false;
  };
  if (address == 0) {
    return isTaken(0, 0);  // samples at address 0 are none to the converter
  }
  for (const ReservedRange& range : rules.reserved) {
    if (address >= range.first && address <= range.last) {
      return isTaken(range.first, range.last);
    }
  }
  for (const ReservedRange& range : rules.reserved) {
    if (range.last < address) {
      stretch.cut(range.last + 1, LAST_ADDRESS);
    } else {
      stretch.cut(0, range.first);
    }
  }
  const auto above = placed_.upper_bound(address);
  if (above != placed_.end()) {
    stretch.cut(0, above->first);
  }
  if (above == placed_.begin()) {
    return true;
  }
  const auto below = std::prev(above);
  Piece& piece = below->second;
  const std::uint64_t end = piece.high + piece.shift;
  if (end <= address) {
    stretch.cut(end, LAST_ADDRESS);
    return true;
  }
  if (piece.shift != 0) {
    return isTaken(below->first, end - 1);
  }
  if (piece.firstHit <= address && address <= piece.lastHit) {
    return isTaken(piece.firstHit, piece.lastHit);
  }
  if (address > piece.lastHit) {
    stretch.cut(piece.lastHit + 1, LAST_ADDRESS);
    piece.high = std::min(piece.high, stretch.low);
    return true;
  }
  // The piece keeps its upper part, from its first hit on.
  auto node = placed_.extract(below);
  stretch.cut(0, node.mapped().firstHit);
  node.mapped().low = std::max(node.mapped().low, stretch.high);
  node.key() = node.mapped().low;
  placed_.insert(std::move(node));
  const auto before = placed_.lower_bound(address);
  if (before != placed_.begin()) {
    const Piece& lower = std::prev(before)->second;
    stretch.cut(lower.high + lower.shift, LAST_ADDRESS);
  }
  return true;
}

Piece& Placement::_insert(const recordings::Mapping& mapping, std::uint64_t address,
                          const Stretch& stretch, std::uint64_t shift) {
  Piece piece;
  piece.file = mapping.file;
  piece.base = mapping.base();
  piece.low = stretch.low;
  piece.high = stretch.high;
  piece.shift = shift;
  piece.firstHit = piece.lastHit = address;
  return placed_.insert_or_assign(stretch.low + shift, piece).first->second;
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

Piece& Placement::_move(const recordings::Mapping& mapping, std::uint64_t address, Stretch stretch,
                        const PlacementRules& rules) {
  // Beside what has moved of it before.
  const auto above = moved_.upper_bound({mapping.file, mapping.base(), address});
  if (above != moved_.end() && _isSame(*above->second, mapping)) {
    stretch.cut(0, above->second->low);
  }
  if (above != moved_.begin() && _isSame(*std::prev(above)->second, mapping)) {
    stretch.cut(std::prev(above)->second->high, LAST_ADDRESS);
  }
  stretch.high = std::max(stretch.high, stretch.low + 1);
  const std::uint64_t start =
      _findFree(stretch.low % MOVED_ALIGNMENT, stretch.high - stretch.low, rules);
  Piece& piece = _insert(mapping, address, stretch, start - stretch.low);
  moved_[{piece.file, piece.base, piece.low}] = &piece;
  return piece;
}

const recordings::MappedFile& Placement::unknownFile() {
  static const recordings::MappedFile file{
      "[unknown]", recordings::MappedFile::Kind::FILE, {}, 0, {}, UNKNOWN_INDEX};
  return file;
}

void Placement::save(ShelfWriter& text) const {
  text.put(nextFree_);
  for (const auto& [written, piece] : placed_) {
    text.put(piece.file->index).put(piece.base).put(piece.low).put(piece.high).put(piece.shift);
    text.put(piece.firstHit).put(piece.lastHit).put(piece.samples).put(piece.callers);
  }
}

void Placement::restore(ShelfReader& fields, const recordings::MappedFiles& files) {
  nextFree_ = fields.number();
  while (!fields.isAtEnd()) {
    Piece piece;
    const auto index = static_cast<std::size_t>(fields.number());
    piece.file = index == UNKNOWN_INDEX ? &unknownFile() : &files.all()[index];
    piece.base = fields.number();
    piece.low = fields.number();
    piece.high = fields.number();
    piece.shift = fields.number();
    piece.firstHit = fields.number();
    piece.lastHit = fields.number();
    piece.samples = fields.number();
    piece.callers = fields.number();
    Piece& placed = placed_.emplace(piece.low + piece.shift, piece).first->second;
    if (piece.shift != 0) {
      moved_[{piece.file, piece.base, piece.low}] = &placed;
    }
  }
}

}  // namespace prepare
