#include "listing/SymbolRanges.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <queue>
#include <string_view>
#include <utility>

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

void sortByStart(std::vector<Symbol>& symbols) {
  const auto isBefore = [](const Symbol& a, const Symbol& b) { return a.start < b.start; };
  if (std::is_sorted(symbols.begin(), symbols.end(), isBefore)) {
    return;
  }
  // In place, since there may be millions.
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    symbols[i].order = static_cast<std::uint32_t>(i);
  }
  std::sort(symbols.begin(), symbols.end(), [](const Symbol& a, const Symbol& b) {
    return a.start != b.start ? a.start < b.start : a.order < b.order;
  });
}

void completeSizes(std::vector<Symbol>& symbols) {
  sortByStart(symbols);
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

namespace {

// `order` by start; empty: they are sorted.
void _forEachRange(const std::vector<Symbol>& symbols, const std::vector<std::size_t>& order,
                   const std::function<void(const Range&)>& use) {
  const auto count = order.empty() ? symbols.size() : order.size();
  const auto at = [&order](std::size_t i) { return order.empty() ? i : order[i]; };
  std::priority_queue<std::size_t> open;  // what may hold the address; the greatest index has it
  std::size_t next = 0;
  std::size_t last = Range::NONE;
  while (next < count || !open.empty()) {
    std::uint64_t address = open.empty() ? symbols[at(next)].start : symbols[open.top()].end;
    if (next < count) {
      address = std::min(address, symbols[at(next)].start);
    }
    for (; next < count && symbols[at(next)].start <= address; ++next) {
      open.push(at(next));
    }
    while (!open.empty() && symbols[open.top()].end <= address) {
      open.pop();
    }
    const std::size_t symbol = open.empty() ? Range::NONE : open.top();
    if (symbol != last) {
      use({address, symbol});
    }
    last = symbol;
  }
}

}  // namespace

void forEachRange(const std::vector<Symbol>& symbols,
                  const std::function<void(const Range&)>& use) {
  _forEachRange(symbols, {}, use);
}

void forEachRangeOfLater(const std::vector<Symbol>& symbols,
                         const std::function<void(const Range&)>& use) {
  std::vector<std::size_t> order(symbols.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&symbols](std::size_t a, std::size_t b) {
    return symbols[a].start < symbols[b].start;
  });
  _forEachRange(symbols, order, use);
}

}  // namespace listing
