#include "listing/PerfMap.h"

#include <algorithm>
#include <charconv>

#include "listing/Demangler.h"
#include "listing/SymbolRanges.h"

namespace listing {

namespace {

// Takes a number and the blanks behind it.
bool _takeNumber(std::string_view& line, std::uint64_t& number) {
  if (line.starts_with("0x") || line.starts_with("0X")) {
    line.remove_prefix(2);
  }
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number, 16);
  if (error != std::errc()) {
    return false;
  }
  line.remove_prefix(static_cast<std::size_t>(end - line.data()));
  const std::size_t blanks = std::min(line.find_first_not_of(" \t"), line.size());
  line.remove_prefix(blanks);
  return blanks > 0;
}

// Sorted, without overlaps.
void _merge(AddressRanges& ranges) {
  std::sort(ranges.begin(), ranges.end());
  std::size_t kept = 0;
  for (std::size_t i = 1; i < ranges.size(); ++i) {
    if (ranges[i].first <= ranges[kept].second) {
      ranges[kept].second = std::max(ranges[kept].second, ranges[i].second);
    } else {
      ranges[++kept] = ranges[i];
    }
  }
  if (!ranges.empty()) {
    ranges.resize(kept + 1);
  }
}

bool _touches(const AddressRanges& ranges, const Symbol& symbol) {
  const auto behind =
      std::partition_point(ranges.begin(), ranges.end(),
                           [&symbol](const auto& range) { return range.second <= symbol.start; });
  return behind != ranges.end() && behind->first < symbol.end;
}

}  // namespace

std::vector<Symbol> parsePerfMap(std::string_view text) {
  std::vector<Symbol> symbols;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    Symbol symbol;
    std::uint64_t size = 0;
    if (!_takeNumber(line, symbol.start) || !_takeNumber(line, size) || line.empty()) {
      continue;
    }
    // A size of 0 still is where something begins.
    const std::uint64_t room = UINT64_MAX - symbol.start;
    symbol.end = symbol.start + std::min(std::max<std::uint64_t>(size, 1), room);
    symbol.name = line;
    symbol.isGlobal = true;
    symbols.push_back(symbol);
  }
  return symbols;
}

ListText listOfCode(std::vector<Symbol> symbols, AddressRanges ranges, Demangler& demangler) {
  if (!ranges.empty()) {
    _merge(ranges);
    std::erase_if(symbols, [&ranges](const Symbol& symbol) { return !_touches(ranges, symbol); });
  }
  ListText list;
  forEachRangeOfLater(symbols, [&](const Range& range) {
    if (range.symbol == Range::NONE) {
      list.addUnknown(range.start);
    } else {
      list.add(range.start, demangler.demangle(symbols[range.symbol].name));
    }
  });
  return list;
}

}  // namespace listing
