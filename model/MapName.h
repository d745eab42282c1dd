// The name of a memory map. Maps that are made up for addresses of one process have names that
// begin with that of the process. A recording can hold one long name and an address every few
// bytes, so such names share their beginning and make the rest when it is asked for; everything
// else is a plain text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

class MapName {
 public:
  using SharedText = std::shared_ptr<const std::string>;

  MapName() = default;
  MapName& operator=(std::string text) {
    value_ = std::move(text);
    return *this;
  }
  // The name of a map that is made up from `start` on: `beginning`, the start in hexadecimal
  // digits, and the brace that the beginning opened.
  static MapName ofPage(SharedText beginning, uint64_t start) {
    return MapName(MadeUp{std::move(beginning), start, false});
  }
  // As above, for the processor's interrupt vectors.
  static MapName ofInterrupts(SharedText beginning) {
    return MapName(MadeUp{std::move(beginning), 0, true});
  }

  std::string str() const;
  operator std::string() const { return str(); }
  // True for an empty name, too.
  bool isOfNoFile() const {
    const auto* const text = std::get_if<std::string>(&value_);
    return text == nullptr || text->empty() || text->front() == '{';
  }
  // The text that the name begins with and shares with others; null if it shares none.
  const std::string* shared() const {
    const auto* const madeUp = std::get_if<MadeUp>(&value_);
    return madeUp == nullptr ? nullptr : madeUp->beginning.get();
  }

  bool operator==(std::string_view text) const { return str() == text; }

 private:
  struct MadeUp {
    SharedText beginning;
    uint64_t start;
    bool isOfInterrupts;
  };

  explicit MapName(MadeUp madeUp) : value_(std::move(madeUp)) {}

  std::variant<std::string, MadeUp> value_;
};
