// The source of the keys by which the document's tables refer to each other: one counter for maps
// and functions, so that one column can refer to either. One thread only.
#pragma once

#include <cstdint>

struct KeyGenerator {
  static uint64_t next() { return counter++; }
  // The next key to be given. Starts at 0.
  static uint64_t counter;
};
