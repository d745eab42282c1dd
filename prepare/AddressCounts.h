// How often each address was hit, to tell later how much of a recording has names: in bounded
// memory. When the table is full, addresses that are new are no longer counted; shares are of those
// that are. One thread.
//
// The table is larger than the processor's caches: what is added is fetched at once and counted a
// little later, when it has come.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace prepare {

class AddressCounts {
 public:
  AddressCounts() : entries_(CAPACITY) {}

  // `file`: any number below FILES; `address`: in the file.
  void add(std::uint32_t file, std::uint64_t address) {
    Waiting& place = waiting_[next_++ % WAITING];
    _count(place);
    place = {address, file, static_cast<std::uint32_t>(_slotOf(file, address)), 1};
    __builtin_prefetch(&entries_[place.slot], 1);
  }

  // Counts what waits. Nothing is to be added behind it.
  void finish() {
    for (std::size_t i = 0; i < WAITING; ++i) {
      Waiting& place = waiting_[next_++ % WAITING];
      _count(place);
      place = {};
    }
  }
  // visit(file, address, count), of what was finished.
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
  struct Waiting {
    std::uint64_t address = 0;
    std::uint32_t file = 0;
    std::uint32_t slot = 0;
    std::uint32_t count = 0;  // 0: nothing waits here
  };
  static constexpr std::size_t CAPACITY = 1u << 18;
  static constexpr unsigned MOST_TRIES = 16;
  static constexpr std::size_t WAITING = 8;

  void _count(const Waiting& waiting) {
    std::size_t slot = waiting.slot;
    for (unsigned tries = 0; tries < MOST_TRIES; ++tries) {
      Entry& entry = entries_[slot];
      if (entry.count == 0) {
        entry = {waiting.address, waiting.file, waiting.count};
        return;
      }
      if (entry.address == waiting.address && entry.file == waiting.file) {
        entry.count += waiting.count;
        return;
      }
      slot = (slot + 1) % CAPACITY;
    }
  }

  static std::size_t _slotOf(std::uint32_t file, std::uint64_t address) {
    const std::uint64_t mixed = (address + (std::uint64_t{file} << 40)) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(mixed >> 46) % CAPACITY;
  }

  std::vector<Entry> entries_;
  std::array<Waiting, WAITING> waiting_;  // a ring
  std::size_t next_ = 0;
};

}  // namespace prepare
