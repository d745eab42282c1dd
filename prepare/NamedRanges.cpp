#include "prepare/NamedRanges.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>

#include "listing/ListText.h"
#include "recordings/Input.h"
#include "recordings/RecordingError.h"

namespace prepare {

namespace {

// Address, blank, type, blank.
constexpr std::size_t NAME_OFFSET = 19;
constexpr std::size_t ADDRESS_DIGITS = 16;
// Of a line that lies across two blocks: enough to tell UNKNOWN_NAME from what begins like it.
constexpr std::size_t KEPT_OF_LINE = NAME_OFFSET + listing::ListText::UNKNOWN_NAME.size() + 1;
constexpr std::size_t BLOCK = 64 * 1024;

}  // namespace

// In blocks: lists of browsers have tens of megabytes.
NamedRanges::NamedRanges(const std::string& listPath) {
  try {
    const recordings::FileInput file(listPath);
    const auto block = std::make_unique_for_overwrite<unsigned char[]>(BLOCK);
    std::string begun;  // of a line
    std::size_t got = 0;
    for (std::uint64_t at = 0; (got = file.read(at, block.get(), BLOCK)) > 0; at += got) {
      std::string_view left(reinterpret_cast<const char*>(block.get()), got);
      for (std::size_t end = 0; (end = left.find('\n')) != std::string_view::npos;
           left.remove_prefix(end + 1)) {
        if (begun.empty()) {
          _addLine(left.substr(0, end));
        } else {
          _addLine(begun.append(left.substr(0, std::min(end, KEPT_OF_LINE))));
          begun.clear();
        }
      }
      if (begun.size() < KEPT_OF_LINE) {
        begun.append(left.substr(0, KEPT_OF_LINE));
      }
    }
    _addLine(begun);
  } catch (const recordings::RecordingError&) {
    return;  // what was read of it holds
  }
}

void NamedRanges::_addLine(std::string_view line) {
  if (line.size() <= NAME_OFFSET) {
    return;
  }
  const bool isNamed = line.substr(NAME_OFFSET) != listing::ListText::UNKNOWN_NAME;
  if (isNamed == (changes_.size() % 2 == 1)) {
    return;
  }
  std::uint64_t address = 0;
  std::from_chars(line.data(), line.data() + ADDRESS_DIGITS, address, 16);
  changes_.push_back(address);
}

bool NamedRanges::holds(std::uint64_t address) const {
  const auto above = std::upper_bound(changes_.begin(), changes_.end(), address);
  return (above - changes_.begin()) % 2 == 1;
}

}  // namespace prepare
