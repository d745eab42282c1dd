// Where the code that samples fell into stands in the plain recording. The converter knows one map
// at an address of a process, whenever the sample was; a recording may hold several, one after the
// other. So of each process only what samples hit is placed, in pieces that do not overlap: at its
// true address where that is free, otherwise somewhere else, and then the samples of its pages go
// with it. Pieces shrink for each other where no sample tells them apart.
//
// Addresses are run-time addresses, ranges [low, high). One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "prepare/ShelfText.h"
#include "recordings/AddressSpace.h"
#include "recordings/MappedFiles.h"

namespace prepare {

// Addresses of the plain recording that maps must keep out of.
struct ReservedRange {
  std::uint64_t first;
  std::uint64_t last;  // inclusive
};

// A stretch of one file as it is mapped in one process.
struct Piece {
  const recordings::MappedFile* file = nullptr;
  std::uint64_t base = 0;  // address less offset in the file
  std::uint64_t low = 0;   // as recorded
  std::uint64_t high = 0;
  std::uint64_t shift = 0;  // what is added to an address of it; 0 unless it was moved
  std::uint64_t firstHit = 0;
  std::uint64_t lastHit = 0;
  std::uint64_t samples = 0;  // whose own address fell into it
  std::uint64_t callers = 0;  // addresses of call chains that did

  bool holds(std::uint64_t address) const { return address >= low && address < high; }
  void hit(std::uint64_t address) {
    firstHit = address < firstHit ? address : firstHit;
    lastHit = address > lastHit ? address : lastHit;
  }
};

// What holds for the whole recording.
struct PlacementRules {
  std::vector<ReservedRange> reserved;
  // Whether the converter would look up this map's addresses wrongly where it stands: it takes
  // those of maps that begin below HIGH_ADDRESS for addresses of the file.
  std::function<bool(const recordings::Mapping&)> mustBeHigh;

  static constexpr std::uint64_t HIGH_ADDRESS = 0x40000000;
};

// Of one process of the plain recording.
class Placement {
 public:
  Placement() = default;
  Placement(Placement&&) = default;  // pieces stay where they are
  Placement& operator=(Placement&&) = default;

  // The piece that holds the address of this map, placed now if none does. Stays where it is.
  Piece& place(const recordings::Mapping& mapping, std::uint64_t address,
               const PlacementRules& rules);

  template <typename Visit>
  void forEach(Visit visit) const {
    for (const auto& [written, piece] : placed_) {
      visit(written, piece);
    }
  }
  std::size_t size() const { return placed_.size(); }

  // Written down, and back from it; `files` are those that the pieces are of.
  void save(ShelfWriter& text) const;
  void restore(ShelfReader& fields, const recordings::MappedFiles& files);

  // What the pieces of addresses that no map holds refer to.
  static const recordings::MappedFile& unknownFile();

 private:
  using Pieces = std::map<std::uint64_t, Piece>;  // by where they begin in the plain recording
  struct Stretch {
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    void cut(std::uint64_t from, std::uint64_t to) {
      low = from > low ? from : low;
      high = to < high ? to : high;
    }
  };

  static Stretch _neighbourhood(const recordings::Mapping& mapping, std::uint64_t address);
  static bool _isSame(const Piece& piece, const recordings::Mapping& mapping);
  Piece* _findMoved(const recordings::Mapping& mapping, std::uint64_t address);
  bool _makeRoom(std::uint64_t address, const PlacementRules& rules, Stretch& stretch);
  Piece& _insert(const recordings::Mapping& mapping, std::uint64_t address, const Stretch& stretch,
                 std::uint64_t shift);
  std::uint64_t _findFree(std::uint64_t digits, std::uint64_t size, const PlacementRules& rules);
  Piece& _move(const recordings::Mapping& mapping, std::uint64_t address, Stretch stretch,
               const PlacementRules& rules);

  Pieces placed_;
  // Of the moved ones, which do not overlap: by file, base and recorded start.
  std::map<std::tuple<const recordings::MappedFile*, std::uint64_t, std::uint64_t>, Piece*> moved_;
  std::uint64_t nextFree_ = FREE_ADDRESSES;

  // Where moved maps go: far from where any architecture puts programs, libraries and stacks.
  static constexpr std::uint64_t FREE_ADDRESSES = 0x100000000000;
};

}  // namespace prepare
