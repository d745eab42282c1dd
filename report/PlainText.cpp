#include "report/PlainText.h"

#include <cstdint>

namespace report {

namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";

// The length of the UTF-8 sequence at `at`; 0 where there is none (table 3-7 of the Unicode
// standard: no surrogates, no overlong forms, nothing beyond U+10FFFF).
std::size_t sequenceLength(std::string_view text, std::size_t at) {
  const auto byte = [&text](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
  };
  const auto follows = [&byte](std::size_t i) { return (byte(i) & 0xC0) == 0x80; };
  const unsigned first = byte(at), second = byte(at + 1);
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xC2 && first <= 0xDF) {
    return follows(at + 1) ? 2 : 0;
  }
  if (first >= 0xE0 && first <= 0xEF) {
    const unsigned low = first == 0xE0 ? 0xA0 : 0x80, high = first == 0xED ? 0x9F : 0xBF;
    return second >= low && second <= high && follows(at + 2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const unsigned low = first == 0xF0 ? 0x90 : 0x80, high = first == 0xF4 ? 0x8F : 0xBF;
    return second >= low && second <= high && follows(at + 2) && follows(at + 3) ? 4 : 0;
  }
  return 0;
}

bool isControl(char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; }

}  // namespace

void appendPlainText(std::string& to, std::string_view json) {
  to.reserve(to.size() + json.size());
  bool inString = false;
  for (std::size_t at = 0; at < json.size();) {
    const char byte = json[at];
    const std::size_t length = sequenceLength(json, at);
    if (!inString) {
      inString = byte == '"';
      to += byte;
      ++at;
    } else if (length == 0 || isControl(byte)) {
      to += REPLACEMENT;
      ++at;
    } else if (byte == '\\' && at + 1 < json.size() && json[at + 1] > ' ' && json[at + 1] < 0x7F) {
      to.append(json, at, 2);
      at += 2;
    } else {
      inString = byte != '"';
      to.append(json, at, length);
      at += length;
    }
  }
}

void appendJsonString(std::string& to, std::string_view text) {
  to += '"';
  for (std::size_t at = 0; at < text.size();) {
    const char byte = text[at];
    const std::size_t length = sequenceLength(text, at);
    if (length == 0 || isControl(byte)) {
      to += REPLACEMENT;
      ++at;
      continue;
    }
    if (byte == '"' || byte == '\\') {
      to += '\\';
      to += byte;
    } else if (byte == '<') {
      to += "\\u003c";
    } else if (byte == '>') {
      to += "\\u003e";
    } else {
      to.append(text, at, length);
    }
    at += length;
  }
  to += '"';
}

std::string quotedJson(std::string_view text) {
  std::string quoted;
  appendJsonString(quoted, text);
  return quoted;
}

}  // namespace report
