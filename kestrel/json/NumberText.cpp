#include "kestrel/json/NumberText.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "kestrel/json/DecimalText.h"

namespace kestrel {

namespace {

constexpr int DEFAULT_PRECISION = 6;  // what printf makes of a negative one
// Up to here std::to_chars gives the bytes of printf for doubles several times faster.
constexpr int FAST_PRECISION = 32;
constexpr double FAST_LIMIT = 1e17;
constexpr long double EXPONENT_LIMIT = 1e16L;

// Where a fraction's digits come from integers, an order of magnitude faster than std::to_chars:
// nearly every time stamp. At most 18 digits and a sign stand around the point.
constexpr int INTEGER_PRECISION = 9;
constexpr int MANTISSA_BITS = 52;
constexpr int EXPONENT_BIAS = 1023;
constexpr int LARGEST_SHIFT = 60;  // a fraction of so many bits can be multiplied by ten
constexpr int INTEGER_TEXT_BYTES = 32;

int _writeZero(char* buffer) {
  std::strcpy(buffer, "0");
  return 1;
}

// Length kept of a text of `length` bytes, as snprintf reports it.
int _kept(int length, char* buffer, int capacity) {
  return length < 0 ? _writeZero(buffer) : std::min(length, capacity - 1);
}

// Fraction digits of the exact decimal value: one for each binary digit after the point. Rounding
// to this many digits or more changes nothing, all further digits are zeros.
int _exactFractionDigits(long double value) {
  int exponent = 0;
  std::frexp(value, &exponent);
  return std::max(0, LDBL_MANT_DIG - exponent);
}

// Adds one to the number in [begin, end), of which `point` is the point: from the last digit on, as
// far as it carries. False if it would take one more digit.
bool _roundUp(char* begin, const char* point, char* end) {
  for (char* digit = end - 1; digit >= begin; --digit) {
    if (digit == point) {
      continue;
    }
    if (*digit != '9') {
      ++*digit;
      return true;
    }
    *digit = '0';
  }
  return false;
}

// Exact: the fraction is an integer over a power of two, and multiplied by ten carries its next
// digit over the point. Rounds half to even, as printf does. 0 if the value or the precision is out
// of reach.
int _formatByIntegers(double value, int precision, char* buffer, int capacity) {
  const uint64_t bits = std::bit_cast<uint64_t>(value);
  const int exponent = static_cast<int>(bits >> MANTISSA_BITS & 0x7FF);
  const int shift = EXPONENT_BIAS + MANTISSA_BITS - exponent;
  if (precision < 1 || precision > INTEGER_PRECISION || shift < 1 || shift > LARGEST_SHIFT ||
      capacity < INTEGER_TEXT_BYTES) {
    return 0;
  }
  const uint64_t one = uint64_t{1} << shift;
  const uint64_t mantissa = (bits & ((uint64_t{1} << MANTISSA_BITS) - 1)) | uint64_t{1}
                                                                                << MANTISSA_BITS;
  uint64_t fraction = mantissa & (one - 1);
  char* end = buffer;
  if (value < 0) {
    *end++ = '-';
  }
  char* const begin = end;
  end = writeDecimal(mantissa >> shift, end);
  const char* const point = end;
  *end++ = '.';
  for (int i = 0; i < precision; ++i) {
    fraction *= 10;
    *end++ = static_cast<char>('0' + (fraction >> shift));
    fraction &= one - 1;
  }
  const bool isLastOdd = (end[-1] - '0') % 2 == 1;
  if (fraction > one / 2 || (fraction == one / 2 && isLastOdd)) {
    if (!_roundUp(begin, point, end)) {
      return 0;
    }
  }
  *end = 0;
  return static_cast<int>(end - buffer);
}

}  // namespace

int formatFixed(long double value, int precision, char* buffer, int capacity) {
  if (precision < 0) {
    precision = DEFAULT_PRECISION;
  }
  const double narrow = static_cast<double>(value);
  if (precision <= FAST_PRECISION && static_cast<long double>(narrow) == value &&
      std::fabs(narrow) < FAST_LIMIT) {
    if (const int length = _formatByIntegers(narrow, precision, buffer, capacity)) {
      return length;
    }
    const std::to_chars_result result =
        std::to_chars(buffer, buffer + capacity - 1, narrow, std::chars_format::fixed, precision);
    if (result.ec == std::errc()) {
      *result.ptr = 0;
      return static_cast<int>(result.ptr - buffer);
    }
  }
  if (!std::isfinite(value)) {
    return _kept(std::snprintf(buffer, static_cast<std::size_t>(capacity), "%Lf", value), buffer,
                 capacity);
  }
  // Digits that are zeros and past the buffer need not be made, only counted.
  const int made = std::min(precision, std::max(capacity, _exactFractionDigits(value)));
  const int length =
      std::snprintf(buffer, static_cast<std::size_t>(capacity), "%.*Lf", made, value);
  if (length < 0 || precision - made > INT_MAX - length) {
    return _writeZero(buffer);
  }
  return _kept(length, buffer, capacity);
}

int formatExponent(long double value, char* buffer, int capacity) {
  return _kept(std::snprintf(buffer, static_cast<std::size_t>(capacity), "%Le", value), buffer,
               capacity);
}

int formatTrimmed(long double value, int precision, char* buffer, int capacity) {
  if (value > EXPONENT_LIMIT || value < -EXPONENT_LIMIT) {
    return formatExponent(value, buffer, capacity);
  }
  if (precision == 0) {
    return formatFixed(value, -1, buffer, capacity);
  }
  return trimZeros(buffer, formatFixed(value, precision, buffer, capacity), precision);
}

int formatTrimmed(double value, int precision, char* buffer, int capacity) {
  const int length = _formatByIntegers(value, precision, buffer, capacity);
  return length > 0 ? trimZeros(buffer, length, precision)
                    : formatTrimmed(static_cast<long double>(value), precision, buffer, capacity);
}

int trimZeros(const char* text, int length, int precision) {
  if (length <= static_cast<long long>(precision) + 1) {
    return length;
  }
  while (length > 1 && text[length - 1] == '0') {
    --length;
  }
  if (length > 1 && text[length - 1] == '.') {
    --length;
  }
  return length;
}

}  // namespace kestrel
