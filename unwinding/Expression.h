// Evaluates the DWARF expressions of call frame information (DWARF 5, sections 2.5 and 2.6). Those
// of PLT entries and of signal trampolines are the ones that occur.
#pragma once

#include <cstdint>
#include <optional>

#include "unwinding/ByteCursor.h"
#include "unwinding/Machine.h"
#include "unwinding/Memory.h"

namespace unwinding {

struct ExpressionInput {
  Machine machine;
  const Registers& registers;  // of the frame that the expression belongs to
  Memory& memory;
  std::uint64_t loadBias = 0;            // from ELF addresses to run-time ones
  std::optional<std::uint64_t> initial;  // the CFA, where it begins on the stack
};

// The number on top of the stack at the end. `section` holds the expression at `place`, its length
// (ULEB128) first. Nothing when it is broken, needs what is not known, or does not end
// within 250 steps; those in use take a dozen.
std::optional<std::uint64_t> evaluate(Bytes section, std::size_t place,
                                      const ExpressionInput& input);

}  // namespace unwinding
