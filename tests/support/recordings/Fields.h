// Bytes of a file before it is known in which byte order they are written. What depends on it is
// kept as a number with its width; text, build ids, dumps of memory are bytes in every order.
// Standard library only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace made {

enum class ByteOrder { LITTLE, BIG };

class Fields {
 public:
  Fields& u8(uint8_t value) { return _number(1, value); }
  Fields& u16(uint16_t value) { return _number(2, value); }
  Fields& u32(uint32_t value) { return _number(4, value); }
  Fields& u64(uint64_t value) { return _number(8, value); }
  // One number of 64 bits after the other.
  Fields& u64s(const std::vector<uint64_t>& values);
  Fields& bytes(std::string_view bytes);
  Fields& zeros(std::size_t count) { return bytes(std::string(count, '\0')); }
  // The text and at least one NUL, filled with NULs to a multiple of `unit` bytes.
  Fields& text(std::string_view text, std::size_t unit = 8);
  // At most `size` - 1 bytes of the text, filled with NULs to `size` bytes.
  Fields& textOfSize(std::string_view text, std::size_t size);
  Fields& append(const Fields& other);

  // A word that C declares as 64 bit-fields of one bit each; bit 0 is the first. Compilers for
  // big-endian processors begin at the high end of each byte.
  Fields& bitFlags(uint64_t word);
  // struct perf_branch_entry's third word, bits counted as on little-endian processors. Where
  // compilers begin at the high end, each of its bit-fields lies at the mirrored place.
  Fields& branchFlags(uint64_t word);

  std::size_t size() const { return size_; }
  std::string in(ByteOrder order) const;

 private:
  enum class Kind { NUMBER, BYTES, BIT_FLAGS, BRANCH_FLAGS };
  struct Item {
    Kind kind;
    std::size_t width;
    uint64_t value;
    std::string bytes;
  };

  Fields& _number(std::size_t width, uint64_t value) {
    return _add({Kind::NUMBER, width, value, {}});
  }
  Fields& _add(Item item);

  std::vector<Item> items_;
  std::size_t size_ = 0;
};

}  // namespace made
