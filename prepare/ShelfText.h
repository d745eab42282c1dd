// Numbers and texts behind each other, as they are written down for a shelf.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace prepare {

class ShelfWriter {
 public:
  ShelfWriter& put(std::uint64_t number) {
    text_.append(reinterpret_cast<const char*>(&number), sizeof number);
    return *this;
  }
  ShelfWriter& put(const std::string& text) {
    put(std::uint64_t{text.size()});
    text_ += text;
    return *this;
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

// Of a text that a ShelfWriter has written.
class ShelfReader {
 public:
  // Borrowed.
  explicit ShelfReader(const std::string& text) : text_(text) {}

  bool isAtEnd() const { return at_ == text_.size(); }
  std::uint64_t number() {
    std::uint64_t number = 0;
    std::memcpy(&number, text_.data() + at_, sizeof number);
    at_ += sizeof number;
    return number;
  }
  std::string text() {
    const auto size = static_cast<std::size_t>(number());
    at_ += size;
    return text_.substr(at_ - size, size);
  }

 private:
  const std::string& text_;
  std::size_t at_ = 0;
};

}  // namespace prepare
