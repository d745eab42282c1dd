// Reads little-endian numbers from a run of bytes in order: the one place of their bounds check.
// After the first read past the end ok() is false and every later read yields zero, so that a
// decoder checks once, at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace unwinding {

using Bytes = std::span<const unsigned char>;

class ByteCursor {
 public:
  // Borrows the bytes; begins at `offset`.
  explicit ByteCursor(Bytes bytes, std::size_t offset = 0)
      : bytes_(bytes), next_(offset), ok_(offset <= bytes.size()) {}

  bool ok() const { return ok_; }
  bool atEnd() const { return !ok_ || next_ == bytes_.size(); }
  std::size_t offset() const { return next_; }
  std::size_t left() const { return ok_ ? bytes_.size() - next_ : 0; }

  void skip(std::uint64_t count) { _claim(count); }

  // `size` bytes, 1 to 8, as an unsigned number.
  std::uint64_t takeUnsigned(unsigned size) {
    std::uint64_t value = 0;
    if (_claim(size)) {
      for (unsigned i = 0; i < size; ++i) {
        value |= std::uint64_t{bytes_[next_ - size + i]} << (8 * i);
      }
    }
    return value;
  }
  std::int64_t takeSigned(unsigned size) {
    const unsigned unused = 64 - 8 * size;
    return static_cast<std::int64_t>(takeUnsigned(size) << unused) >> unused;
  }
  std::uint8_t takeByte() { return static_cast<std::uint8_t>(takeUnsigned(1)); }

  // LEB128; bits above the 64th are dropped.
  std::uint64_t takeUleb() {
    unsigned shift = 0;
    return _takeLeb(shift);
  }
  std::int64_t takeSleb() {
    unsigned shift = 0;
    std::uint64_t value = _takeLeb(shift);
    if (ok_ && shift < 64 && (bytes_[next_ - 1] & 0x40) != 0) {
      value |= ~std::uint64_t{0} << shift;
    }
    return static_cast<std::int64_t>(value);
  }

  // Up to its NUL, which is skipped; not ok when there is none within `longest` bytes.
  std::string_view takeString(std::size_t longest) {
    const std::size_t start = next_;
    for (std::size_t length = 0; length <= longest && _claim(1); ++length) {
      if (bytes_[next_ - 1] == 0) {
        return {reinterpret_cast<const char*>(bytes_.data()) + start, length};
      }
    }
    ok_ = false;
    return {};
  }

  Bytes takeBytes(std::uint64_t count) {
    return _claim(count) ? bytes_.subspan(next_ - count, count) : Bytes();
  }

 private:
  bool _claim(std::uint64_t count) {
    if (!ok_ || count > bytes_.size() - next_) {
      ok_ = false;
      return false;
    }
    next_ += static_cast<std::size_t>(count);
    return true;
  }
  std::uint64_t _takeLeb(unsigned& shift) {
    std::uint64_t value = 0;
    unsigned char byte = 0x80;
    while ((byte & 0x80) != 0 && _claim(1)) {
      byte = bytes_[next_ - 1];
      if (shift < 64) {
        value |= std::uint64_t{byte & 0x7fu} << shift;
        shift += 7;
      }
    }
    return value;
  }

  Bytes bytes_;
  std::size_t next_;
  bool ok_;
};

}  // namespace unwinding
