#include "model/MapName.h"

#include <charconv>
#include <iterator>

std::string MapName::str() const {
  const std::string text = text_ == nullptr ? std::string() : *text_;
  switch (kind_) {
    case Kind::INTERRUPTS:
      return text + "-interrupt}";
    case Kind::PAGE: {
      char rest[32] = "-";
      char* const end = std::to_chars(rest + 1, std::end(rest) - 1, start_, 16).ptr;
      *end = '}';
      return text + std::string(rest, end + 1);
    }
    default:
      return text;
  }
}
