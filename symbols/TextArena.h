// Keeps short texts, such as the names of a million functions, one behind the other: an allocation
// for each would take twice the memory and most of the time of reading a list. The texts live as
// long as the arena. One thread only.
#pragma once

#include <string_view>

#include "kestrel/MemoryPieces.h"

class TextArena {
 public:
  // A copy of the text.
  std::string_view keep(std::string_view text);

 private:
  kestrel::MemoryPieces memory_;
};
