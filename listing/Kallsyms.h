// The kernel's list of its symbols, /proc/kallsyms or a copy: lines of hexadecimal address, blank,
// type letter, blank, name and, for a module's, a tab and the module's name in brackets.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "listing/Symbol.h"

namespace listing {

struct Kallsyms {
  struct Entry {
    Symbol symbol;            // the name is a view into the text
    std::string_view module;  // "[nf_tables]"; empty: the kernel itself
  };
  std::vector<Entry> entries;  // of text, data and bss, by address; one of each; with sizes, as
                               // perf completes them
  bool isRestricted = false;   // has symbols, and every address is 0: hidden from this user

  static Kallsyms parse(std::string_view text);
  // The first of that name; nothing if there is none. Names that were dropped as aliases are found,
  // too.
  static std::optional<std::uint64_t> addressOf(std::string_view text, std::string_view name);
};

}  // namespace listing
