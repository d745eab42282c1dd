#include "tests/app/PlainStores.h"

#include <cinttypes>
#include <cstdio>

int plainFloor(const std::vector<uint64_t>& starts, uint64_t address) {
  if (starts.empty() || address < starts[0]) {
    return -1;
  }
  if (starts.size() == 1) {
    return 0;
  }
  const std::size_t last = starts.size() - 1;
  std::size_t low = 0;
  std::size_t high = last;
  std::size_t probe = high / 2;
  for (;;) {
    if (starts[probe] < address) {
      if (probe == last || starts[probe + 1] > address) {
        return static_cast<int>(probe);
      }
      if (starts[probe + 1] == address) {
        return static_cast<int>(probe + 1);
      }
      low = probe + 1;
    } else {
      if (starts[probe] == address) {
        return static_cast<int>(probe);
      }
      high = probe - 1;
    }
    if (low == high) {
      return static_cast<int>(low);
    }
    probe = (low + high) / 2;
  }
}

std::string listOf(const std::vector<PlainSymbol>& symbols) {
  std::string list;
  for (const PlainSymbol& symbol : symbols) {
    char address[32];
    std::snprintf(address, sizeof(address), "%016" PRIx64, symbol.address);
    list += std::string(address) + " T " + symbol.name;
    list += symbol.file.empty() ? "\n" : "\t" + symbol.file + ":12\n";
  }
  return list;
}
