#include "prepare/TouchedCode.h"

#include <algorithm>

namespace prepare {

TouchedCode::Bits* TouchedCode::_bitsOf(const Key& key) {
  const auto known = regions_.find(key);
  if (known != regions_.end()) {
    return &known->second;
  }
  if (regions_.size() == MOST_REGIONS) {
    isEverything_ = true;
    return nullptr;
  }
  return &regions_.try_emplace(key, Bits{}).first->second;
}

std::unordered_map<std::uint32_t, std::vector<std::uint64_t>> TouchedCode::granules() const {
  std::unordered_map<std::uint32_t, std::vector<std::uint64_t>> files;
  for (const auto& [key, bits] : regions_) {
    std::vector<std::uint64_t>& granules = files[key.first];
    for (std::size_t i = 0; i < REGION / GRANULE; ++i) {
      if ((bits[i / 64] >> i % 64 & 1) != 0) {
        granules.push_back(key.second * REGION + i * GRANULE);
      }
    }
  }
  for (auto& [file, granules] : files) {
    std::sort(granules.begin(), granules.end());
  }
  return files;
}

}  // namespace prepare
