// Reads numbers and texts of debug information in order, in the byte order of the file. After the
// first read past the end isOk() is false, and every later read yields zero or nothing: so a reader
// checks where it matters. Borrows the bytes. Sources of the forms: DWARF 5, chapter 7.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace listing {

class ByteCursor {
 public:
  ByteCursor(std::string_view bytes, bool isBigEndian) : bytes_(bytes), isBigEndian_(isBigEndian) {}

  bool isOk() const { return isOk_; }
  bool isAtEnd() const { return at_ >= bytes_.size(); }
  std::size_t position() const { return at_; }
  std::size_t left() const { return bytes_.size() - at_; }

  std::uint8_t u8() {
    if (at_ >= bytes_.size()) {
      isOk_ = false;
      return 0;
    }
    return static_cast<std::uint8_t>(bytes_[at_++]);
  }

  // A number of 1 to 8 bytes.
  std::uint64_t number(std::size_t size) {
    if (size > 8 || size > left()) {
      _fail();
      return 0;
    }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      const std::size_t byte = isBigEndian_ ? at_ + i : at_ + size - 1 - i;
      value = value << 8 | static_cast<std::uint8_t>(bytes_[byte]);
    }
    at_ += size;
    return value;
  }

  // LEB128; bits beyond 64 are lost.
  std::uint64_t unsignedNumber() {
    std::uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const std::uint8_t byte = u8();
      if (shift < 64) {
        value |= std::uint64_t{byte & 0x7FU} << shift;
      }
      if (byte < 0x80 || !isOk_) {
        return value;
      }
    }
  }
  void skipLeb() {
    while (u8() >= 0x80) {
    }
  }

  std::string_view text() {
    const std::size_t end = bytes_.find('\0', at_);
    if (end == std::string_view::npos) {
      _fail();
      return {};
    }
    const std::string_view found = bytes_.substr(at_, end - at_);
    at_ = end + 1;
    return found;
  }

  std::string_view take(std::uint64_t size) {
    if (size > left()) {
      _fail();
      return {};
    }
    const std::string_view found = bytes_.substr(at_, static_cast<std::size_t>(size));
    at_ += static_cast<std::size_t>(size);
    return found;
  }

 private:
  void _fail() {
    isOk_ = false;
    at_ = bytes_.size();
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  bool isBigEndian_;
  bool isOk_ = true;
};

}  // namespace listing
