// Which pieces of files samples and callers fell into, to the byte count GRANULE, so that lists can
// be had of the functions there alone. In bounded memory: past it, everything counts as touched.
// One thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace prepare {

class TouchedCode {
 public:
  static constexpr std::uint64_t GRANULE = 64;            // bytes
  static constexpr std::uint64_t STRETCH = 64 * GRANULE;  // a bit a granule in one word

  // The bit of an address in the word of the stretch that begins at `begin`.
  static std::uint64_t bitOf(std::uint64_t address, std::uint64_t begin) {
    return std::uint64_t{1} << (address - begin) / GRANULE % 64;
  }
  // Those granules of the stretch; `file`: any number; `begin`: in the file, anywhere.
  void add(std::uint32_t file, std::uint64_t begin, std::uint64_t bits);

  // There was too much to remember it all.
  bool isEverything() const { return isEverything_; }
  // The granules' first addresses, ascending, of each file.
  std::unordered_map<std::uint32_t, std::vector<std::uint64_t>> granules() const;

 private:
  static constexpr std::uint64_t REGION = 64 * STRETCH;  // bytes
  static constexpr std::size_t MOST_REGIONS = 8192;      // of 512 bytes each
  using Key = std::pair<std::uint32_t, std::uint64_t>;   // file, number of the region
  using Words = std::array<std::uint64_t, 64>;
  struct Hash {
    std::size_t operator()(const Key& key) const {
      return static_cast<std::size_t>((key.second + (std::uint64_t{key.first} << 40)) *
                                      0x9E3779B97F4A7C15ull);
    }
  };

  void _addWord(std::uint32_t file, std::uint64_t begin, std::uint64_t bits);

  std::unordered_map<Key, Words, Hash> regions_;
  bool isEverything_ = false;
};

}  // namespace prepare
