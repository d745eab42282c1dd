#include "model/MapName.h"

#include <charconv>
#include <iterator>

std::string MapName::str() const {
  if (const auto* const text = std::get_if<std::string>(&value_)) {
    return *text;
  }
  const auto& madeUp = std::get<MadeUp>(value_);
  if (madeUp.isOfInterrupts) {
    return *madeUp.beginning + "-interrupt}";
  }
  char rest[32] = "-";
  char* const end = std::to_chars(rest + 1, std::end(rest) - 1, madeUp.start, 16).ptr;
  *end = '}';
  return std::string(*madeUp.beginning).append(rest, end + 1);
}
