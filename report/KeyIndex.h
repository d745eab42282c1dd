// Numbers for keys in the order of their first appearance: 0, 1, 2, ... Keys of a document are
// counted up from 0, so low ones are looked up in an array; others cost a hash look-up.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace report {

class KeyIndex {
 public:
  uint32_t indexOf(uint64_t key) {
    if (key >= ARRAY_LIMIT) {
      return _indexOfRareKey(key);
    }
    if (key >= indexOfLowKey_.size()) {
      indexOfLowKey_.resize(static_cast<std::size_t>(key) * 2 + 1024, 0);
    }
    uint32_t& index = indexOfLowKey_[static_cast<std::size_t>(key)];
    if (index == 0) {
      keys_.push_back(key);
      index = static_cast<uint32_t>(keys_.size());
    }
    return index - 1;
  }
  const std::vector<uint64_t>& keys() const { return keys_; }

 private:
  static constexpr uint64_t ARRAY_LIMIT = 1 << 22;

  uint32_t _indexOfRareKey(uint64_t key) {
    const auto [place, isNew] =
        indexOfRareKey_.try_emplace(key, static_cast<uint32_t>(keys_.size()));
    if (isNew) {
      keys_.push_back(key);
    }
    return place->second;
  }

  std::vector<uint64_t> keys_;
  std::vector<uint32_t> indexOfLowKey_;  // by key: the index + 1, 0 where there is none
  std::unordered_map<uint64_t, uint32_t> indexOfRareKey_;
};

}  // namespace report
