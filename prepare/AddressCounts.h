// How often each address was hit, to tell later how much of a recording has names: in bounded
// memory. When the table is full, addresses that are new are no longer counted; shares are of those
// that are. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace prepare {

class AddressCounts {
 public:
  AddressCounts() : entries_(CAPACITY) {}

  // `file`: any number below FILES; `address`: in the file.
  void add(std::uint32_t file, std::uint64_t address) {
    std::size_t slot = _slotOf(file, address);
    for (unsigned tries = 0; tries < MOST_TRIES; ++tries) {
      Entry& entry = entries_[slot];
      if (entry.count == 0) {
        entry = {address, file, 1};
        return;
      }
      if (entry.address == address && entry.file == file) {
        ++entry.count;
        return;
      }
      slot = (slot + 1) % CAPACITY;
    }
  }

  // visit(file, address, count)
  template <typename Visit>
  void forEach(Visit visit) const {
    for (const Entry& entry : entries_) {
      if (entry.count > 0) {
        visit(entry.file, entry.address, entry.count);
      }
    }
  }

 private:
  struct Entry {
    std::uint64_t address = 0;
    std::uint32_t file = 0;
    std::uint32_t count = 0;
  };
  static constexpr std::size_t CAPACITY = 1u << 18;
  static constexpr unsigned MOST_TRIES = 16;

  static std::size_t _slotOf(std::uint32_t file, std::uint64_t address) {
    const std::uint64_t mixed = (address + (std::uint64_t{file} << 40)) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(mixed >> 46) % CAPACITY;
  }

  std::vector<Entry> entries_;
};

}  // namespace prepare
