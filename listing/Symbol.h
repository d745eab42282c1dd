// What an address range is called, as a file says it.
#pragma once

#include <cstdint>
#include <string_view>

namespace listing {

// [start, end), in the addresses of the list it will stand in. `end` equal to `start`: the file
// gives no size.
struct Symbol {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::string_view name;  // as the file has it, mangled; whoever read the file owns the text
  bool isWeak = false;
  bool isGlobal = false;
  bool isLabel = false;     // STT_NOTYPE: hand-written code may have them inside of functions
  bool isPltEntry = false;  // shown as `NAME@plt`
  std::uint32_t order = 0;  // among symbols of the same start, for sorting
};

}  // namespace listing
