// The format of a symbol list, as the converter's lister prints it, a line each:
//
//   address in 16 hexadecimal digits, blank, type letter, blank, name[, tab, source file, ":0"]
//
// Addresses ascend and are unique. A symbol reaches to the next line's address, so a line of the
// name UNKNOWN_NAME stands where nothing has begun: behind the last symbol, and in every gap. The
// converter drops lines that hold "$a",
// "$d" or "$t" and shows names of one or two characters as blank; so "$" is written as FULLWIDTH
// DOLLAR SIGN there, and short names have blanks behind them. Control characters and what is no
// UTF-8 are written as "?".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace listing {

class ListText {
 public:
  static constexpr std::string_view UNKNOWN_NAME = "[unknown]";

  // `sourceFile` empty: not known. Its text up to the first colon is what readers take.
  void add(std::uint64_t address, std::string_view name, std::string_view sourceFile = {});
  void addUnknown(std::uint64_t address) { add(address, UNKNOWN_NAME); }

  const std::string& text() const { return text_; }
  void clear() { text_.clear(); }
  bool isEmpty() const { return text_.empty(); }

 private:
  void _addText(std::string_view text);

  std::string text_;
};

}  // namespace listing
