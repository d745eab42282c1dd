#include "listing/BuildId.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace listing {

namespace {

constexpr std::size_t PADDED_SIZE = 20;
constexpr std::uint32_t NT_GNU_BUILD_ID = 3;

// Ids as old recordings keep them: at least 20 bytes.
BuildId _padded(BuildId id) {
  id.resize(std::max(id.size(), PADDED_SIZE));
  return id;
}

std::uint32_t _word(std::string_view bytes, std::size_t at, bool isBigEndian) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t shift = 8 * (isBigEndian ? 3 - i : i);
    word |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i])) << shift;
  }
  return word;
}

std::size_t _aligned(std::uint32_t size) { return (std::size_t{size} + 3) & ~std::size_t{3}; }

}  // namespace

std::string hexText(const BuildId& id) {
  static constexpr char DIGITS[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * id.size());
  for (const unsigned char byte : id) {
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 15];
  }
  return text;
}

bool isSameBuildId(const BuildId& a, const BuildId& b) {
  return !a.empty() && !b.empty() && (a == b || _padded(a) == _padded(b));
}

std::optional<BuildId> findBuildId(std::string_view notes, bool isBigEndian) {
  constexpr std::size_t HEADER_SIZE = 12;  // sizes of name and content, type
  while (notes.size() >= HEADER_SIZE) {
    const std::uint32_t nameSize = _word(notes, 0, isBigEndian);
    const std::uint32_t size = _word(notes, 4, isBigEndian);
    const std::uint32_t type = _word(notes, 8, isBigEndian);
    notes.remove_prefix(HEADER_SIZE);
    if (_aligned(nameSize) > notes.size() || size > notes.size() - _aligned(nameSize)) {
      return std::nullopt;
    }
    const std::string_view name = notes.substr(0, nameSize);
    notes.remove_prefix(_aligned(nameSize));
    if (type == NT_GNU_BUILD_ID && name == std::string_view("GNU", 4) && size > 0) {
      return BuildId(notes.begin(), notes.begin() + size);
    }
    notes.remove_prefix(std::min(notes.size(), _aligned(size)));
  }
  return std::nullopt;
}

}  // namespace listing
