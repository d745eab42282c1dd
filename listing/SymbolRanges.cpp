#include "listing/SymbolRanges.h"

#include <algorithm>
#include <numeric>
#include <queue>
#include <string_view>

#include "listing/Demangler.h"

namespace listing {

namespace {

constexpr std::uint64_t PAGE = 4096;

std::size_t _underscoresOf(std::string_view name) {
  return std::min(name.find_first_not_of('_'), name.size());
}

// Whether `a`, which stands before `b` and has the same start, is to be kept.
bool _isPreferred(const Symbol& a, const Symbol& b, Demangler& demangler) {
  const bool aHasSize = a.end > a.start;
  const bool bHasSize = b.end > b.start;
  if (aHasSize != bHasSize) {
    return aHasSize;
  }
  if (a.isLabel != b.isLabel) {
    return b.isLabel;
  }
  if (a.isWeak != b.isWeak) {
    return b.isWeak;
  }
  if (a.isGlobal != b.isGlobal) {
    return a.isGlobal;
  }
  if (a.name == b.name) {
    return true;
  }
  const std::string_view aName = demangler.demangle(a.name);
  const std::string_view bName = demangler.demangle(b.name);
  if (_underscoresOf(aName) != _underscoresOf(bName)) {
    return _underscoresOf(aName) < _underscoresOf(bName);
  }
  if (aName.size() != bName.size()) {
    return aName.size() > bName.size();
  }
  return !aName.starts_with("SyS") && !aName.starts_with("compat_SyS");
}

}  // namespace

void completeSizes(std::vector<Symbol>& symbols) {
  std::stable_sort(symbols.begin(), symbols.end(),
                   [](const Symbol& a, const Symbol& b) { return a.start < b.start; });
  for (std::size_t i = 0; i + 1 < symbols.size(); ++i) {
    if (symbols[i].end == symbols[i].start) {
      symbols[i].end = symbols[i + 1].start;  // still empty if that is an alias
    }
  }
  if (!symbols.empty() && symbols.back().end == symbols.back().start) {
    const std::uint64_t start = symbols.back().start;
    const std::uint64_t end = ((start + PAGE - 1) & ~(PAGE - 1)) + PAGE;
    symbols.back().end = std::max(start, end);
  }
}

void chooseAliases(std::vector<Symbol>& symbols, Demangler& demangler) {
  std::size_t kept = 0;
  for (std::size_t i = 1; i < symbols.size(); ++i) {
    if (symbols[i].start != symbols[kept].start) {
      symbols[++kept] = symbols[i];
    } else if (!_isPreferred(symbols[kept], symbols[i], demangler)) {
      symbols[kept] = symbols[i];
    }
  }
  if (!symbols.empty()) {
    symbols.resize(kept + 1);
  }
}

std::vector<Range> rangesOf(const std::vector<Symbol>& symbols, bool laterWins) {
  std::vector<std::size_t> order(
      symbols.size());  // by start; of what is in it, the greatest index wins
  std::iota(order.begin(), order.end(), std::size_t{0});
  if (laterWins) {
    std::stable_sort(order.begin(), order.end(), [&symbols](std::size_t a, std::size_t b) {
      return symbols[a].start < symbols[b].start;
    });
  }
  std::vector<Range> ranges;
  ranges.reserve(symbols.size() + symbols.size() / 2 + 1);
  std::priority_queue<std::size_t> open;
  std::size_t next = 0;
  while (next < order.size() || !open.empty()) {
    std::uint64_t at;
    if (open.empty()) {
      at = symbols[order[next]].start;
    } else {
      at = symbols[open.top()].end;
      if (next < order.size()) {
        at = std::min(at, symbols[order[next]].start);
      }
    }
    for (; next < order.size() && symbols[order[next]].start <= at; ++next) {
      open.push(order[next]);
    }
    while (!open.empty() && symbols[open.top()].end <= at) {
      open.pop();
    }
    const std::size_t symbol = open.empty() ? Range::NONE : open.top();
    if (ranges.empty() ? symbol != Range::NONE : ranges.back().symbol != symbol) {
      ranges.push_back({at, symbol});
    }
  }
  return ranges;
}

}  // namespace listing
