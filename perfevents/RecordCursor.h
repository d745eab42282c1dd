// Reads numbers and text from a run of bytes, in order and never past its end. The first read that
// does not fit makes ok() false; it and every later one yield zero or nothing, so that a decoder
// checks once, when it has read all. Values are copied in the machine's byte order (perf writes
// natively), never cast in place: they need not be aligned, and Arm may trap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "kestrel/ByteBufferViewport.h"

namespace perfevents {

class RecordCursor {
 public:
  // Borrows the view's used bytes.
  explicit RecordCursor(const kestrel::ByteBufferViewport& body)
      : next_(body.data()), left_(body.size()) {}
  RecordCursor(const unsigned char* bytes, std::size_t size) : next_(bytes), left_(size) {}

  bool ok() const { return ok_; }

  template <typename T>
  T take() {
    static_assert(std::is_unsigned_v<T>);
    T value = 0;
    if (const unsigned char* const at = _claim(sizeof(T))) {
      std::memcpy(&value, at, sizeof(T));
    }
    return value;
  }

  // The rest, up to its first NUL.
  std::string takeString() {
    const std::size_t length = left_;
    const unsigned char* const at = _claim(length);
    if (at == nullptr || length == 0) {
      return {};
    }
    const void* const nul = std::memchr(at, 0, length);
    const std::size_t kept =
        nul == nullptr ? length
                       : static_cast<std::size_t>(static_cast<const unsigned char*>(nul) - at);
    return std::string(reinterpret_cast<const char*>(at), kept);
  }

  void skip(std::size_t bytes) { _claim(bytes); }

  // One number at a known place of a buffer; zero when it does not lie inside.
  template <typename T>
  static T at(const kestrel::ByteBufferViewport& bytes, std::size_t offset) {
    RecordCursor cursor(bytes);
    cursor.skip(offset);
    return cursor.take<T>();
  }

 private:
  const unsigned char* _claim(std::size_t bytes) {
    if (!ok_ || bytes > left_) {
      ok_ = false;
      return nullptr;
    }
    const unsigned char* const at = next_;
    if (bytes > 0) {
      next_ += bytes;
      left_ -= bytes;
    }
    return at;
  }

  const unsigned char* next_;
  std::size_t left_;
  bool ok_ = true;
};

}  // namespace perfevents
