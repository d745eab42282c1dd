#include "listing/Kallsyms.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "listing/Demangler.h"
#include "listing/SymbolRanges.h"

namespace listing {

namespace {

constexpr std::uint64_t PAGE = 4096;

struct Line {
  std::uint64_t address = 0;
  char type = ' ';
  std::string_view name;
  std::string_view module;
};

// Takes the next line off `text`; nothing for one that is broken.
std::optional<Line> _takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view rest = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  Line line;
  const auto [behind, error] =
      std::from_chars(rest.data(), rest.data() + rest.size(), line.address, 16);
  rest.remove_prefix(static_cast<std::size_t>(behind - rest.data()));
  if (error != std::errc() || rest.size() < 4 || rest[0] != ' ' || rest[2] != ' ') {
    return std::nullopt;
  }
  line.type = rest[1];
  rest.remove_prefix(3);
  const std::size_t tab = std::min(rest.find('\t'), rest.size());
  line.name = rest.substr(0, tab);
  line.module = rest.substr(std::min(tab + 1, rest.size()));
  while (line.module.ends_with(' ') || line.module.ends_with('\r')) {
    line.module.remove_suffix(1);
  }
  return line;
}

bool _isWanted(const Line& line) {
  return std::string_view("TtWwDdBb").find(line.type) != std::string_view::npos &&
         !line.name.empty() && line.name.front() != '$';
}

// A list has no sizes: up to what follows; before another module and at the end, the rest of a page
// and one more.
void _completeSizes(std::vector<Kallsyms::Entry>& entries) {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    Symbol& symbol = entries[i].symbol;
    const bool isLast = i + 1 == entries.size();
    if (isLast || entries[i].module.empty() != entries[i + 1].module.empty()) {
      const std::uint64_t end = ((symbol.start + PAGE - 1) & ~(PAGE - 1)) + PAGE;
      symbol.end = std::max(symbol.start, end);
    } else {
      symbol.end = entries[i + 1].symbol.start;
    }
  }
}

void _chooseAliases(std::vector<Kallsyms::Entry>& entries) {
  Demangler plain(Demangler::Style::Off);
  std::size_t kept = 0;
  std::vector<Symbol> pair;
  for (std::size_t i = 1; i < entries.size(); ++i) {
    if (entries[i].symbol.start != entries[kept].symbol.start) {
      entries[++kept] = entries[i];
      continue;
    }
    pair = {entries[kept].symbol, entries[i].symbol};
    chooseAliases(pair, plain);
    if (pair.front().name.data() != entries[kept].symbol.name.data()) {
      entries[kept] = entries[i];
    }
  }
  entries.resize(std::min(entries.size(), kept + 1));
}

}  // namespace

Kallsyms Kallsyms::parse(std::string_view text) {
  Kallsyms list;
  bool hasAddress = false;
  while (!text.empty()) {
    const std::optional<Line> line = _takeLine(text);
    if (line && _isWanted(*line)) {
      hasAddress |= line->address != 0;
      const bool isUpper = line->type >= 'A' && line->type <= 'Z';
      list.entries.push_back({{line->address, line->address, line->name, line->type == 'W',
                               isUpper && line->type != 'W', false, false},
                              line->module});
    }
  }
  if (!hasAddress) {
    list.isRestricted = !list.entries.empty();
    list.entries.clear();
    return list;
  }
  std::stable_sort(list.entries.begin(), list.entries.end(),
                   [](const Entry& a, const Entry& b) { return a.symbol.start < b.symbol.start; });
  _completeSizes(list.entries);
  _chooseAliases(list.entries);
  return list;
}

std::optional<std::uint64_t> Kallsyms::addressOf(std::string_view text, std::string_view name) {
  const std::string wanted = ' ' + std::string(name);
  for (std::size_t at = text.find(wanted); at != std::string_view::npos;
       at = text.find(wanted, at + 1)) {
    const std::size_t before = text.rfind('\n', at);
    std::string_view rest = text.substr(before == std::string_view::npos ? 0 : before + 1);
    const std::optional<Line> line = _takeLine(rest);
    if (line && line->name == name && line->module.empty()) {
      return line->address;
    }
  }
  return std::nullopt;
}

}  // namespace listing
