// The name of a memory map. A recording can hold names of 64 KiB each, and one long name with an
// address every few bytes, so every text is kept once: copies of a name and whoever looks for the
// map's file share it, and maps that are made up for addresses of one process share the beginning
// of theirs and make the rest when it is asked for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

class MapName {
 public:
  using SharedText = std::shared_ptr<const std::string>;
  // Orders texts, and finds them by plain ones, too.
  struct ByText {
    using is_transparent = void;
    bool operator()(const SharedText& one, const SharedText& other) const { return *one < *other; }
    bool operator()(const SharedText& one, const std::string& other) const { return *one < other; }
    bool operator()(const std::string& one, const SharedText& other) const { return one < *other; }
  };

  MapName() = default;  // an empty one
  MapName& operator=(std::string text) {
    return *this = MapName(Kind::WHOLE, std::make_shared<const std::string>(std::move(text)), 0);
  }
  // The name of a map that is made up from `start` on: `beginning`, the start in hexadecimal
  // digits, and the brace that the beginning opened.
  static MapName ofPage(SharedText beginning, uint64_t start) {
    return MapName(Kind::PAGE, std::move(beginning), start);
  }
  // As above, for the processor's interrupt vectors.
  static MapName ofInterrupts(SharedText beginning) {
    return MapName(Kind::INTERRUPTS, std::move(beginning), 0);
  }

  std::string str() const;
  operator std::string() const { return str(); }
  // True for an empty name, too.
  bool isOfNoFile() const {
    return kind_ != Kind::WHOLE || text_ == nullptr || text_->empty() || text_->front() == '{';
  }
  // What the name shares with others: all of it, or the beginning of a made-up map's. Null for an
  // empty name.
  const SharedText& shared() const { return text_; }

  bool operator==(std::string_view text) const { return str() == text; }

 private:
  enum class Kind : unsigned char { WHOLE, PAGE, INTERRUPTS };

  MapName(Kind kind, SharedText text, uint64_t start)
      : text_(std::move(text)), start_(start), kind_(kind) {}

  SharedText text_;
  uint64_t start_ = 0;
  Kind kind_ = Kind::WHOLE;
};
