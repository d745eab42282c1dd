// Turns the symbols of a file, which overlap, share addresses and lack sizes, into ranges that do
// not: one name for one address. The rules are perf's (tools/perf/util/symbol.c), so that the same
// address has the same name; where perf is ambiguous (ranges that overlap) the innermost symbol
// wins: that of the latest start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

#include "listing/Symbol.h"

namespace listing {

class Demangler;

// From `start` on, up to that of the next range, the name is that of a symbol; or none.
struct Range {
  static constexpr std::size_t NONE = std::numeric_limits<std::size_t>::max();
  std::uint64_t start = 0;
  std::size_t symbol = NONE;  // index
};

// Equal ones stay in the order given.
void sortByStart(std::vector<Symbol>& symbols);

// Sorts by start; then gives symbols without a size one, up to the
// next higher start; the last gets the rest of its page and one page more.
void completeSizes(std::vector<Symbol>& symbols);

// Of symbols with the same start, sorted and with sizes, leaves one: of some size, no label, not
// weak, global, with fewer underscores in front, of the longer name; the first one of those that
// are still equal. Names count as shown.
void chooseAliases(std::vector<Symbol>& symbols, Demangler& demangler);

// Hands out the ranges, ascending; the last one is without a name. Where several symbols hold an
// address, the one of the latest start has it; of those that start together, the last one. The
// symbols are sorted by start. n log n.
void forEachRange(const std::vector<Symbol>& symbols, const std::function<void(const Range&)>& use);

// The same, but the symbol that stands later in `symbols` has the address, whatever its start: it
// was used again.
void forEachRangeOfLater(const std::vector<Symbol>& symbols,
                         const std::function<void(const Range&)>& use);

}  // namespace listing
