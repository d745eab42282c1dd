// Reads numbers and text from a run of bytes in order, in the byte order of the machine that
// recorded. Values are copied, never cast in place: a record need not be aligned. After the first
// read past the end ok() is false and every later read yields zero or nothing, so that a decoder
// checks once, at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>

namespace recordings {

using Bytes = std::span<const unsigned char>;

// Whether numbers must be turned round.
enum class ByteOrder : bool { NATIVE, FOREIGN };

template <typename T>
T swapped(T value) {
  static_assert(std::is_unsigned_v<T>);
  if constexpr (sizeof(T) == 1) {
    return value;
  } else if constexpr (sizeof(T) == 2) {
    return __builtin_bswap16(value);
  } else if constexpr (sizeof(T) == 4) {
    return __builtin_bswap32(value);
  } else {
    return __builtin_bswap64(value);
  }
}

// The number at `at`, which must hold it.
template <typename T>
T numberAt(const unsigned char* at, ByteOrder order) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return order == ByteOrder::FOREIGN ? swapped(value) : value;
}

class FieldReader {
 public:
  // Borrows the bytes.
  FieldReader(Bytes bytes, ByteOrder order) : left_(bytes), order_(order) {}

  bool ok() const { return ok_; }
  std::size_t left() const { return left_.size(); }
  Bytes rest() const { return left_; }

  template <typename T>
  T take() {
    const Bytes field = takeBytes(sizeof(T));
    return field.empty() ? T{0} : numberAt<T>(field.data(), order_);
  }

  // Empty if there are not that many.
  Bytes takeBytes(std::uint64_t count) {
    if (!ok_ || count > left_.size()) {
      ok_ = false;
      left_ = {};
      return {};
    }
    const Bytes field = left_.first(static_cast<std::size_t>(count));
    left_ = left_.subspan(field.size());
    return field;
  }
  void skip(std::uint64_t count) { takeBytes(count); }

  // A field of `count` bytes: the text before its first NUL.
  std::string takeText(std::uint64_t count) {
    const Bytes field = takeBytes(count);
    const char* const text = reinterpret_cast<const char*>(field.data());
    return field.empty() ? std::string() : std::string(text, strnlen(text, field.size()));
  }
  std::string takeRestAsText() { return takeText(left_.size()); }

 private:
  Bytes left_;
  ByteOrder order_;
  bool ok_ = true;
};

}  // namespace recordings
