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
  static constexpr std::uint64_t GRANULE = 64;  // bytes

  // `file`: any number; `address`: in the file.
  void add(std::uint32_t file, std::uint64_t address) {
    const std::uint64_t region = address / REGION;
    Remembered& known = remembered_[(region + 7 * file) % remembered_.size()];
    if (known.bits == nullptr || known.key != Key{file, region}) {
      known = {{file, region}, _bitsOf({file, region})};
      if (known.bits == nullptr) {
        return;
      }
    }
    const std::uint64_t granule = address % REGION / GRANULE;
    (*known.bits)[granule / 64] |= std::uint64_t{1} << granule % 64;
  }

  // There was too much to remember it all.
  bool isEverything() const { return isEverything_; }
  // The granules' first addresses, ascending, of each file.
  std::unordered_map<std::uint32_t, std::vector<std::uint64_t>> granules() const;

 private:
  static constexpr std::uint64_t REGION = 64 * 64 * GRANULE;  // bytes
  static constexpr std::size_t MOST_REGIONS = 8192;           // of 512 bytes each
  using Key = std::pair<std::uint32_t, std::uint64_t>;        // file, number of the region
  using Bits = std::array<std::uint64_t, 64>;
  struct Hash {
    std::size_t operator()(const Key& key) const {
      return static_cast<std::size_t>((key.second + (std::uint64_t{key.first} << 40)) *
                                      0x9E3779B97F4A7C15ull);
    }
  };
  struct Remembered {
    Key key;
    Bits* bits = nullptr;
  };

  Bits* _bitsOf(const Key& key);

  std::unordered_map<Key, Bits, Hash> regions_;
  std::array<Remembered, 256> remembered_;
  bool isEverything_ = false;
};

}  // namespace prepare
