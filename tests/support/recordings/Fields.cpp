#include "tests/support/recordings/Fields.h"

#include <algorithm>

namespace made {

namespace {

std::string numberBytes(uint64_t value, std::size_t width, ByteOrder order) {
  std::string bytes;
  for (std::size_t i = 0; i < width; ++i) {
    bytes += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
  }
  if (order == ByteOrder::BIG) {
    std::reverse(bytes.begin(), bytes.end());
  }
  return bytes;
}

std::string bitFlagsBytes(uint64_t word, ByteOrder order) {
  std::string bytes = numberBytes(word, 8, ByteOrder::LITTLE);
  if (order == ByteOrder::LITTLE) {
    return bytes;
  }
  for (char& byte : bytes) {
    unsigned reversed = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
      reversed |= (unsigned{static_cast<unsigned char>(byte)} >> bit & 1u) << (7 - bit);
    }
    byte = static_cast<char>(static_cast<unsigned char>(reversed));
  }
  return bytes;
}

uint64_t mirroredBranchFlags(uint64_t word) {
  // mispred, predicted, in_tx, abort, cycles, type, spec, new_type, priv, reserved
  constexpr unsigned WIDTHS[] = {1, 1, 1, 1, 16, 4, 2, 4, 3, 31};
  uint64_t mirrored = 0;
  unsigned place = 0;
  for (const unsigned width : WIDTHS) {
    const uint64_t value = (word >> place) & ((uint64_t{1} << width) - 1);
    mirrored |= value << (64 - place - width);
    place += width;
  }
  return mirrored;
}

}  // namespace

Fields& Fields::u64s(const std::vector<uint64_t>& values) {
  for (const uint64_t value : values) {
    u64(value);
  }
  return *this;
}

Fields& Fields::bytes(std::string_view bytes) {
  return _add({Kind::BYTES, bytes.size(), 0, std::string(bytes)});
}

Fields& Fields::text(std::string_view text, std::size_t unit) {
  return bytes(text).zeros(unit - text.size() % unit);
}

Fields& Fields::textOfSize(std::string_view text, std::size_t size) {
  const std::string_view kept = text.substr(0, size - 1);
  return bytes(kept).zeros(size - kept.size());
}

Fields& Fields::append(const Fields& other) {
  for (const Item& item : other.items_) {
    _add(item);
  }
  return *this;
}

Fields& Fields::bitFlags(uint64_t word) { return _add({Kind::BIT_FLAGS, 8, word, {}}); }

Fields& Fields::branchFlags(uint64_t word) { return _add({Kind::BRANCH_FLAGS, 8, word, {}}); }

std::string Fields::in(ByteOrder order) const {
  std::string bytes;
  bytes.reserve(size_);
  for (const Item& item : items_) {
    switch (item.kind) {
      case Kind::NUMBER:
        bytes += numberBytes(item.value, item.width, order);
        break;
      case Kind::BYTES:
        bytes += item.bytes;
        break;
      case Kind::BIT_FLAGS:
        bytes += bitFlagsBytes(item.value, order);
        break;
      case Kind::BRANCH_FLAGS:
        bytes += numberBytes(
            order == ByteOrder::LITTLE ? item.value : mirroredBranchFlags(item.value), 8, order);
        break;
    }
  }
  return bytes;
}

Fields& Fields::_add(Item item) {
  size_ += item.width;
  items_.push_back(std::move(item));
  return *this;
}

}  // namespace made
