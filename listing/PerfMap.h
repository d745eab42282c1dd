// Names of code that a program made while it ran: /tmp/perf-PID.map, a line for each function of
// hexadecimal start, hexadecimal size and name (which may hold blanks), in any order. A later line
// has the addresses that it shares with an earlier one: they were used again. Source:
// tools/perf/Documentation/jit-interface.txt.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "listing/ListText.h"
#include "listing/Symbol.h"

namespace listing {

class Demangler;

// [start, end) of address ranges.
using AddressRanges = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

// The symbols of a map's lines, in their order; lines that are none are skipped. Names are views
// into the text.
std::vector<Symbol> parsePerfMap(std::string_view text);

// The list of what touches one of the ranges (all if there are none); later symbols win. Empty:
// there is nothing.
ListText listOfCode(std::vector<Symbol> symbols, AddressRanges ranges, Demangler& demangler);

}  // namespace listing
