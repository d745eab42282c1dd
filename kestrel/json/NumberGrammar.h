// How a number is written in a JSON text, for the parser and for strings that are read as numbers:
// an optional '-', digits, and optionally a '.' and more digits. There is no exponent and no '+'.
#pragma once

#include <cstdint>

namespace kestrel {

struct JsonNumber {
  long long asLong() const { return static_cast<long long>(negative ? 0 - whole : whole); }
  double asDouble() const { return negative ? -magnitude : magnitude; }

  bool negative = false;
  bool hasPoint = false;    // written with a '.', even if no digit follows it
  std::uint64_t whole = 0;  // the digits before the point; wraps silently beyond 64 bits
  double magnitude = 0;     // with the digits after the point
};

// Takes the longest number that the source goes on with. False if it does not start with one.
template <typename Source>
bool parseJsonNumber(Source& in, JsonNumber& number) {
  const auto atDigit = [&in] { return in.peek() >= '0' && in.peek() <= '9'; };
  const auto takeDigit = [&in] {
    const int digit = in.peek() - '0';
    in.next();
    return digit;
  };
  number = JsonNumber();
  if (in.peek() == '-') {
    number.negative = true;
    in.next();
  }
  if (!atDigit()) {
    return false;
  }
  while (atDigit()) {
    number.whole = number.whole * 10 + static_cast<std::uint64_t>(takeDigit());
  }
  number.magnitude = static_cast<double>(number.whole);
  if (in.peek() != '.') {
    return true;
  }
  number.hasPoint = true;
  in.next();
  // The power wraps: from the 64th place on it is 0, and a digit other than 0 makes the number
  // infinite.
  std::uint64_t power = 1;
  while (atDigit()) {
    power *= 10;
    const int digit = takeDigit();
    if (digit != 0) {
      number.magnitude += digit / static_cast<double>(power);
    }
  }
  return true;
}

}  // namespace kestrel
