// The memory of a thread as far as a sample tells: its piece of stack, and behind that what the
// mapped files hold.
#pragma once

#include <cstdint>
#include <optional>

namespace unwinding {

class Memory {
 public:
  virtual ~Memory() = default;
  // `size` bytes (1 to 8) at a run-time address as a little-endian number; nothing when they are
  // not all known.
  virtual std::optional<std::uint64_t> read(std::uint64_t address, unsigned size) = 0;
};

}  // namespace unwinding
