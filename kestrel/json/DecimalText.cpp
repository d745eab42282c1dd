#include "kestrel/json/DecimalText.h"

#include <array>
#include <cstring>

namespace kestrel {

namespace {

constexpr uint32_t HALF = 100'000'000;  // eight digits are made at a time, without waiting
constexpr int HALF_DIGITS = 8;

// The two digits of every number below 100.
constexpr auto PAIRS = [] {
  std::array<char, 200> text{};
  for (std::size_t i = 0; i < 100; ++i) {
    text[2 * i] = static_cast<char>('0' + i / 10);
    text[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return text;
}();

void _writePair(uint32_t pair, char* text) { std::memcpy(text, &PAIRS[2 * pair], 2); }

// Eight digits, with zeros in front.
char* _writeHalf(uint32_t half, char* text) {
  const uint32_t high = half / 10000;
  const uint32_t low = half % 10000;
  _writePair(high / 100, text);
  _writePair(high % 100, text + 2);
  _writePair(low / 100, text + 4);
  _writePair(low % 100, text + 6);
  return text + HALF_DIGITS;
}

// At most four digits, without zeros in front.
char* _writeFirstQuarter(uint32_t quarter, char* text) {
  if (quarter >= 100) {
    const uint32_t high = quarter / 100;
    if (high >= 10) {
      _writePair(high, text);
      text += 2;
    } else {
      *text++ = static_cast<char>('0' + high);
    }
    _writePair(quarter % 100, text);
    return text + 2;
  }
  if (quarter >= 10) {
    _writePair(quarter, text);
    return text + 2;
  }
  *text++ = static_cast<char>('0' + quarter);
  return text;
}

// At most eight digits, without zeros in front.
char* _writeFirst(uint32_t half, char* text) {
  if (half < 10000) {
    return _writeFirstQuarter(half, text);
  }
  const uint32_t low = half % 10000;
  text = _writeFirstQuarter(half / 10000, text);
  _writePair(low / 100, text);
  _writePair(low % 100, text + 2);
  return text + 4;
}

}  // namespace

char* writeDecimal(uint64_t value, char* text) {
  if (value < HALF) {
    return _writeFirst(static_cast<uint32_t>(value), text);
  }
  const auto low = static_cast<uint32_t>(value % HALF);
  const uint64_t rest = value / HALF;
  if (rest < HALF) {
    return _writeHalf(low, _writeFirst(static_cast<uint32_t>(rest), text));
  }
  text = _writeFirst(static_cast<uint32_t>(rest / HALF), text);
  return _writeHalf(low, _writeHalf(static_cast<uint32_t>(rest % HALF), text));
}

}  // namespace kestrel
