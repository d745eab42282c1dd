// Where files are mapped in a process.
#pragma once

#include <cstdint>
#include <optional>

namespace unwinding {

// A mapped file, by a number of the caller's choice.
using FileId = std::uint32_t;
constexpr FileId NO_FILE = 0xffffffff;  // anonymous memory

struct Map {
  std::uint64_t start = 0;  // run-time addresses, [start, end)
  std::uint64_t end = 0;
  std::uint64_t fileOffset = 0;  // of `start`; 0 for the vdso, whatever a recording says
  FileId file = NO_FILE;

  bool holds(std::uint64_t address) const { return address >= start && address < end; }
};

// The maps of one process at one moment.
class MapLookup {
 public:
  virtual ~MapLookup() = default;
  // The map that holds the address, if there is one. Asked a few times for each frame.
  virtual std::optional<Map> find(std::uint64_t address) const = 0;
};

}  // namespace unwinding
