#include "listing/ListText.h"

#include <algorithm>

namespace listing {

namespace {

constexpr std::size_t SHORTEST_NAME = 3;
constexpr std::string_view WIDE_DOLLAR = "\xEF\xBC\x84";  // U+FF04

bool _isPlain(char c) { return c >= ' ' && c <= '~' && c != '$'; }

bool _isContinuation(std::string_view text, std::size_t at) {
  return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// Bytes of the UTF-8 character at `at`; 0 for what is none.
std::size_t _characterSize(std::string_view text, std::size_t at) {
  const auto first = static_cast<unsigned char>(text[at]);
  const std::size_t size = first < 0x80                    ? 1
                           : first >= 0xC2 && first < 0xE0 ? 2
                           : first >= 0xE0 && first < 0xF0 ? 3
                           : first >= 0xF0 && first < 0xF5 ? 4
                                                           : 0;
  for (std::size_t i = 1; i < size; ++i) {
    if (!_isContinuation(text, at + i)) {
      return 0;
    }
  }
  if (size > 2) {
    // Too long for what it says, a half of a surrogate pair, or beyond the last character.
    const auto second = static_cast<unsigned char>(text[at + 1]);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90)) {
      return 0;
    }
  }
  return size;
}

}  // namespace

void ListText::add(std::uint64_t address, std::string_view name, std::string_view sourceFile) {
  static constexpr char DIGITS[] = "0123456789abcdef";
  char head[19];
  for (std::size_t i = 0; i < 16; ++i) {
    head[i] = DIGITS[address >> (60 - 4 * i) & 15];
  }
  head[16] = ' ';
  head[17] = 't';
  head[18] = ' ';
  text_.append(head, sizeof(head));
  _addText(name);
  if (name.size() < SHORTEST_NAME) {
    text_.append(SHORTEST_NAME - name.size(), ' ');
  }
  if (!sourceFile.empty()) {
    text_ += '\t';
    _addText(sourceFile);
    text_ += ":0";
  }
  text_ += '\n';
}

void ListText::_addText(std::string_view text) {
  if (std::all_of(text.begin(), text.end(), _isPlain)) {
    text_ += text;
    return;
  }
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    const char following = at + 1 < text.size() ? text[at + 1] : '\0';
    const std::size_t size = _characterSize(text, at);
    if (c == '$' && (following == 'a' || following == 'd' || following == 't')) {
      text_ += WIDE_DOLLAR;
    } else if (size == 0 || (size == 1 && (c < ' ' || c == '\x7F'))) {
      text_ += '?';
    } else {
      text_ += text.substr(at, size);
    }
    at += std::max<std::size_t>(size, 1);
  }
}

}  // namespace listing
