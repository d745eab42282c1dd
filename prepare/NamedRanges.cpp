#include "prepare/NamedRanges.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "listing/ListText.h"
#include "recordings/Input.h"
#include "recordings/RecordingError.h"

namespace prepare {

namespace {

// Address, blank, type, blank.
constexpr std::size_t NAME_OFFSET = 19;
constexpr std::size_t ADDRESS_DIGITS = 16;

}  // namespace

NamedRanges::NamedRanges(const std::string& listPath) {
  std::vector<unsigned char> text;
  try {
    const recordings::FileInput file(listPath);
    text = file.bytesAt(0, file.size());
  } catch (const recordings::RecordingError&) {
    return;
  }
  const char* at = reinterpret_cast<const char*>(text.data());
  const char* const end = at + text.size();
  while (at != end) {
    const void* const lineFeed = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
    const char* const lineEnd = lineFeed == nullptr ? end : static_cast<const char*>(lineFeed);
    const std::string_view line(at, static_cast<std::size_t>(lineEnd - at));
    at = lineFeed == nullptr ? end : lineEnd + 1;
    if (line.size() <= NAME_OFFSET) {
      continue;
    }
    const bool isNamed = line.substr(NAME_OFFSET) != listing::ListText::UNKNOWN_NAME;
    if (isNamed == (changes_.size() % 2 == 1)) {
      continue;
    }
    std::uint64_t address = 0;
    std::from_chars(line.data(), line.data() + ADDRESS_DIGITS, address, 16);
    changes_.push_back(address);
  }
}

bool NamedRanges::holds(std::uint64_t address) const {
  const auto above = std::upper_bound(changes_.begin(), changes_.end(), address);
  return (above - changes_.begin()) % 2 == 1;
}

}  // namespace prepare
