// Text of fractional numbers in buffers of fixed size, for the writer and for the values: what
// printf would give, cut to the buffer. Any precision is safe: the work does not grow with it.
#pragma once

namespace kestrel {

// Each writes at most `capacity` - 1 bytes and a zero byte, and returns the length kept.

// As "%.*Lf": a negative precision gives six digits. "0" if the whole text would be longer than an
// int can count.
int formatFixed(long double value, int precision, char* buffer, int capacity);
// As "%Le": exponent notation with six digits.
int formatExponent(long double value, char* buffer, int capacity);

// As the writer's fractional numbers: at most `precision` fraction digits, zeros at the end
// removed; a precision of 0 gives six digits, not trimmed. Beyond 1e16 as formatExponent().
int formatTrimmed(long double value, int precision, char* buffer, int capacity);
int formatTrimmed(double value, int precision, char* buffer, int capacity);

// The length without the zeros at the end of the text, and without the '.' before them, if the text
// is longer than `precision` + 1. The first byte always stays.
int trimZeros(const char* text, int length, int precision);

}  // namespace kestrel
