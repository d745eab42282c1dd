// A range of addresses with a key: the base of memory maps and functions. The range is [start,
// start + size - 1], in 64-bit arithmetic; size 0 holds nothing.
#pragma once

#include <cstdint>

#include "model/KeyGenerator.h"

class RangedItem {
 public:
  // Every construction draws a key, also that of a temporary: keys are unique over a run, but not
  // dense.
  RangedItem() : key(KeyGenerator::next()) {}
  // A copy would need a key of its own: the subclasses offer copy().
  RangedItem(const RangedItem&) = delete;
  RangedItem& operator=(const RangedItem&) = delete;
  virtual ~RangedItem() = default;

  bool contains(uint64_t address) const {
    return size != 0 && start <= address && address <= start + size - 1;
  }

  uint64_t start = 0;
  uint64_t size = 0;
  uint64_t key;
};
