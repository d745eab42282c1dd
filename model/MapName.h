// The name of a memory map. Maps that are made up for addresses of one process have names that
// begin with that of the process. A recording can hold one long name and an address every few
// bytes, so such names share their beginning; everything else is a plain text.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

class MapName {
 public:
  MapName() = default;
  MapName(std::shared_ptr<const std::string> shared, std::string rest)
      : shared_(std::move(shared)), rest_(std::move(rest)) {}
  MapName& operator=(std::string text) {
    shared_ = nullptr;
    rest_ = std::move(text);
    return *this;
  }

  std::string str() const { return shared_ == nullptr ? rest_ : *shared_ + rest_; }
  operator std::string() const { return str(); }
  std::size_t size() const { return (shared_ == nullptr ? 0 : shared_->size()) + rest_.size(); }
  // True for an empty name, too.
  bool isOfNoFile() const {
    const std::string& beginning = shared_ == nullptr ? rest_ : *shared_;
    return size() == 0 || (!beginning.empty() && beginning.front() == '{');
  }
  // The text that the name begins with and shares with others; null if it shares none.
  const std::string* shared() const { return shared_.get(); }

  bool operator==(std::string_view text) const { return str() == text; }

 private:
  std::shared_ptr<const std::string> shared_;  // null: none
  std::string rest_;
};
