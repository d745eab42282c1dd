// Unsigned numbers as decimal text, for the writers of documents: what printf("%llu") gives,
// faster than std::to_chars for addresses, which have up to twenty digits.
#pragma once

#include <cstdint>

namespace kestrel {

constexpr int DECIMAL_BYTES = 20;  // the longest text

// Writes the digits, without a zero byte, and returns their end. There must be room for
// DECIMAL_BYTES.
char* writeDecimal(uint64_t value, char* text);

}  // namespace kestrel
