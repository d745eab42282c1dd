#include "symbols/SymbolLine.h"

#include <algorithm>
#include <array>

namespace {

// White space of the C locale.
bool _isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The value of every byte as a hexadecimal digit, or -1.
constexpr auto DIGITS = [] {
  std::array<int8_t, 256> digits{};
  for (std::size_t i = 0; i < digits.size(); ++i) {
    const bool isNumeral = i >= '0' && i <= '9';
    const bool isUpper = i >= 'A' && i <= 'F';
    const bool isLower = i >= 'a' && i <= 'f';
    const std::size_t value = isNumeral ? i - '0' : isUpper ? i - 'A' + 10 : i - 'a' + 10;
    digits[i] = isNumeral || isUpper || isLower ? static_cast<int8_t>(value) : int8_t{-1};
  }
  return digits;
}();

int _digitOf(char c) { return DIGITS[static_cast<unsigned char>(c)]; }

// Marks of Arm code and data, not symbols. Coarse: a name that holds one of them is dropped too.
bool _holdsMappingSymbol(std::string_view line) {
  for (std::size_t at = line.find('$'); at != std::string_view::npos; at = line.find('$', at + 1)) {
    const char kind = at + 1 < line.size() ? line[at + 1] : '\0';
    if (kind == 'a' || kind == 'd' || kind == 't') {
      return true;
    }
  }
  return false;
}

void _skipSpace(std::string_view& text) {
  while (!text.empty() && _isSpace(text.front())) {
    text.remove_prefix(1);
  }
}

// Takes a hexadecimal number off the front of `text`, as a stream does: with a sign (a negative
// number wraps around) and "0x" allowed, behind which a digit must come.
bool _takeAddress(std::string_view& text, uint64_t& address) {
  _skipSpace(text);
  const bool isNegative = !text.empty() && text.front() == '-';
  if (isNegative || (!text.empty() && text.front() == '+')) {
    text.remove_prefix(1);
  }
  if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
  }
  uint64_t value = 0;
  std::size_t digits = 0;
  for (; digits < text.size(); ++digits) {
    const int digit = _digitOf(text[digits]);
    if (digit < 0) {
      break;
    }
    if (value >> 60 != 0) {
      return false;
    }
    value = value << 4 | static_cast<uint64_t>(digit);
  }
  text.remove_prefix(digits);
  address = isNegative ? uint64_t{0} - value : value;
  return digits > 0;
}

bool _isTextType(char type) { return type == 'T' || type == 't' || type == 'W' || type == 'w'; }

}  // namespace

std::optional<SymbolLine> SymbolLine::parse(std::string_view line) {
  SymbolLine symbol;
  std::string_view rest = line;
  if (!_takeAddress(rest, symbol.address)) {
    return std::nullopt;
  }
  _skipSpace(rest);
  if (rest.empty() || !_isTextType(rest.front()) || _holdsMappingSymbol(line)) {
    return std::nullopt;
  }
  rest.remove_prefix(std::min<std::size_t>(rest.size(), 2));  // the type and the blank behind it
  if (rest.empty()) {
    return std::nullopt;
  }
  const std::size_t tab = rest.find('\t');
  symbol.name = rest.substr(0, tab);
  if (tab != std::string_view::npos) {
    const std::string_view position = rest.substr(tab + 1);
    const std::size_t colon = position.find(':');
    if (colon != std::string_view::npos) {
      // The number behind the colon stays unread: kept so, documents carry line number 0.
      symbol.sourceFile = position.substr(0, colon);
    }
  }
  return symbol;
}
