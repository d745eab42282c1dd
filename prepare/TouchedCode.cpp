#include "prepare/TouchedCode.h"

#include <algorithm>

namespace prepare {

// A stretch may begin inside a granule, and so each of its bits lie in two.
void TouchedCode::add(std::uint32_t file, std::uint64_t begin, std::uint64_t bits) {
  const std::uint64_t into = begin % STRETCH;
  const std::uint64_t first = begin - into;
  const auto addShifted = [&](std::uint64_t granules) {
    if (granules == 0) {
      _addWord(file, first, bits);
      return;
    }
    _addWord(file, first, granules == 64 ? 0 : bits << granules);
    _addWord(file, first + STRETCH, bits >> (64 - granules));
  };
  addShifted(into / GRANULE);
  if (into % GRANULE != 0) {
    addShifted(into / GRANULE + 1);
  }
}

void TouchedCode::_addWord(std::uint32_t file, std::uint64_t begin, std::uint64_t bits) {
  if (bits == 0) {
    return;
  }
  const Key key{file, begin / REGION};
  auto known = regions_.find(key);
  if (known == regions_.end()) {
    if (regions_.size() == MOST_REGIONS) {
      isEverything_ = true;
      return;
    }
    known = regions_.try_emplace(key, Words{}).first;
  }
  known->second[begin % REGION / STRETCH] |= bits;
}

std::unordered_map<std::uint32_t, std::vector<std::uint64_t>> TouchedCode::granules() const {
  std::unordered_map<std::uint32_t, std::vector<std::uint64_t>> files;
  for (const auto& [key, words] : regions_) {
    std::vector<std::uint64_t>& granules = files[key.first];
    for (std::size_t i = 0; i < REGION / GRANULE; ++i) {
      if ((words[i / 64] >> i % 64 & 1) != 0) {
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
