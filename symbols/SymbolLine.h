// One line of a symbol list, as SymbolListProcessor.h describes it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

struct SymbolLine {
  // Nothing for a line that lists no text symbol. The texts are views into the line. Accepts what
  // the C locale's input streams accept: white space around the address, a sign, "0x"; an address
  // beyond 64 bits is none.
  static std::optional<SymbolLine> parse(std::string_view line);

  uint64_t address = 0;
  std::string_view name;
  std::string_view sourceFile;  // empty: unknown
};
