// Samples of a profile added up by thread or process and by stack.
#pragma once

#include <cstdint>
#include <vector>

#include "report/Profile.h"

namespace report {

struct StackCount {
  uint32_t group;  // as `groupOfThread` says
  uint32_t stack;
  uint64_t count;
};

// By group, then stack. `groupOfThread` has an entry for each thread.
std::vector<StackCount> countStacks(const Profile& profile,
                                    const std::vector<uint32_t>& groupOfThread);

// The frames of a stack, the innermost first.
std::vector<uint32_t> framesOf(const Profile& profile, uint32_t stack);

// A process's name, or its thread's, or a word for none.
const std::string& titleOf(const std::string& name);

}  // namespace report
