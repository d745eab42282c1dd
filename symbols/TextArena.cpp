#include "symbols/TextArena.h"

#include <algorithm>

std::string_view TextArena::keep(std::string_view text) {
  char* const kept = memory_.take(text.size());
  std::copy(text.begin(), text.end(), kept);
  return {kept, text.size()};
}
