// Turns the symbols of a file, which overlap, share addresses and lack sizes, into ranges that do
// not: one name for one address. The rules are perf's (tools/perf/util/symbol.c), so that the same
// address has the same name; where perf is ambiguous (ranges that overlap) the innermost symbol
// wins: that of the latest start.
#pragma once

#include <cstddef>
#include <cstdint>
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

// Sorts by start, equal ones in the order given; then gives symbols without a size one, up to the
// next higher start; the last gets the rest of its page and one page more.
void completeSizes(std::vector<Symbol>& symbols);

// Of symbols with the same start, sorted and with sizes, leaves one: of some size, no label, not
// weak, global, with fewer underscores in front, of the longer name; the first one of those that
// are still equal. Names count as shown.
void chooseAliases(std::vector<Symbol>& symbols, Demangler& demangler);

// Ascending, the last one is without a name. Where several symbols hold an address, the one of the
// latest start has it, or with `laterWins` the one that stands later in `symbols`, whatever its
// start. The symbols are sorted by start unless `laterWins`. n log n.
std::vector<Range> rangesOf(const std::vector<Symbol>& symbols, bool laterWins = false);

}  // namespace listing
