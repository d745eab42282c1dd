#include "report/formats/StackCounts.h"

#include <algorithm>

namespace report {

std::vector<StackCount> countStacks(const Profile& profile,
                                    const std::vector<uint32_t>& groupOfThread) {
  std::vector<uint64_t> keys;
  keys.reserve(profile.samples.size());
  for (std::size_t i = 0; i < profile.samples.size(); ++i) {
    const uint64_t group = groupOfThread[profile.samples.threads[i]];
    keys.push_back(group << 32 | profile.samples.stacks[i]);
  }
  std::sort(keys.begin(), keys.end());
  std::vector<StackCount> counts;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (i == 0 || keys[i] != keys[i - 1]) {
      counts.push_back({static_cast<uint32_t>(keys[i] >> 32), static_cast<uint32_t>(keys[i]), 0});
    }
    ++counts.back().count;
  }
  return counts;
}

std::vector<uint32_t> framesOf(const Profile& profile, uint32_t stack) {
  std::vector<uint32_t> frames;
  for (uint32_t node = stack; node != StackTree::ROOT; node = profile.stacks.parent(node)) {
    frames.push_back(profile.stacks.frame(node));
  }
  return frames;
}

const std::string& titleOf(const std::string& name) {
  static const std::string NO_NAME = "(no name)";
  return name.empty() ? NO_NAME : name;
}

}  // namespace report
