// Bytes written one number after another, little-endian; for files and sections made up by tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

class ByteText {
 public:
  ByteText& number(std::uint64_t value, unsigned size) {
    for (unsigned i = 0; i < size; ++i) {
      bytes_.push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
    return *this;
  }
  ByteText& u8(std::uint64_t value) { return number(value, 1); }
  ByteText& u16(std::uint64_t value) { return number(value, 2); }
  ByteText& u32(std::uint64_t value) { return number(value, 4); }
  ByteText& u64(std::uint64_t value) { return number(value, 8); }
  ByteText& bytes(const std::vector<unsigned char>& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  ByteText& text(const std::string& more) {  // with its NUL
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return u8(0);
  }
  ByteText& padTo(std::size_t size) {
    bytes_.resize(size > bytes_.size() ? size : bytes_.size());
    return *this;
  }
  std::size_t size() const { return bytes_.size(); }
  const std::vector<unsigned char>& all() const { return bytes_; }
  std::string string() const { return {bytes_.begin(), bytes_.end()}; }

 private:
  std::vector<unsigned char> bytes_;
};
