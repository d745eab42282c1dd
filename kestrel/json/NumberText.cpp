#include "kestrel/json/NumberText.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace kestrel {

namespace {

constexpr int DEFAULT_PRECISION = 6;  // what printf makes of a negative one
// Up to here std::to_chars gives the bytes of printf for doubles several times faster.
constexpr int FAST_PRECISION = 32;
constexpr double FAST_LIMIT = 1e17;

int writeZero(char* buffer) {
  std::strcpy(buffer, "0");
  return 1;
}

// Length kept of a text of `length` bytes, as snprintf reports it.
int kept(int length, char* buffer, int capacity) {
  return length < 0 ? writeZero(buffer) : std::min(length, capacity - 1);
}

// Fraction digits of the exact decimal value: one for each binary digit after the point. Rounding
// to this many digits or more changes nothing, all further digits are zeros.
int exactFractionDigits(long double value) {
  int exponent = 0;
  std::frexp(value, &exponent);
  return std::max(0, LDBL_MANT_DIG - exponent);
}

}  // namespace

int formatFixed(long double value, int precision, char* buffer, int capacity) {
  if (precision < 0) precision = DEFAULT_PRECISION;
  const double narrow = static_cast<double>(value);
  if (precision <= FAST_PRECISION && static_cast<long double>(narrow) == value &&
      std::fabs(narrow) < FAST_LIMIT) {
    const std::to_chars_result result =
        std::to_chars(buffer, buffer + capacity - 1, narrow, std::chars_format::fixed, precision);
    if (result.ec == std::errc()) {
      *result.ptr = 0;
      return static_cast<int>(result.ptr - buffer);
    }
  }
  if (!std::isfinite(value))
    return kept(std::snprintf(buffer, static_cast<std::size_t>(capacity), "%Lf", value), buffer,
                capacity);
  // Digits that are zeros and past the buffer need not be made, only counted.
  const int made = std::min(precision, std::max(capacity, exactFractionDigits(value)));
  const int length =
      std::snprintf(buffer, static_cast<std::size_t>(capacity), "%.*Lf", made, value);
  if (length < 0 || precision - made > INT_MAX - length) return writeZero(buffer);
  return kept(length, buffer, capacity);
}

int formatExponent(long double value, char* buffer, int capacity) {
  return kept(std::snprintf(buffer, static_cast<std::size_t>(capacity), "%Le", value), buffer,
              capacity);
}

int trimZeros(const char* text, int length, int precision) {
  if (length <= static_cast<long long>(precision) + 1) return length;
  while (length > 1 && text[length - 1] == '0') --length;
  if (length > 1 && text[length - 1] == '.') --length;
  return length;
}

}  // namespace kestrel
