// Arm's exception tables, .ARM.exidx and .ARM.extab: all that 32-bit Arm programs without debug
// information say about their frames.
//
// Source: "Exception Handling ABI for the Arm Architecture" (EHABI32), sections 6, 7 and 10.
//
// Not changed after construction: any number of threads may ask.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "unwinding/ByteCursor.h"
#include "unwinding/FrameRule.h"
#include "unwinding/Memory.h"

namespace unwinding {

class ExceptionIndex {
 public:
  struct Table {
    std::uint64_t address = 0;  // ELF address
    std::vector<unsigned char> bytes;
  };

  // `extra` is .ARM.extab; empty where every function fits into the index.
  ExceptionIndex(Table index, Table extra);
  ExceptionIndex(const ExceptionIndex&) = delete;
  ExceptionIndex& operator=(const ExceptionIndex&) = delete;

  // The rule at an ELF address, which borrows from the tables. False when none covers it. The index
  // knows no ends: an entry reaches to the next one.
  bool find(std::uint64_t address, FrameRule& rule) const;

  std::size_t size() const { return index_.bytes.size() + extra_.bytes.size(); }

 private:
  std::uint64_t _startOf(std::size_t entry) const;
  bool _compact(const Table& table, std::size_t offset, FrameRule& rule) const;
  bool _extra(std::uint64_t address, FrameRule& rule) const;

  Table index_;
  Table extra_;
};

// Carries out a rule of kind ExceptionIndex: the caller's registers, program counter included, from
// those of the frame. Nothing when the instructions are broken or memory is not known; `outermost`
// when they say that there is no caller.
struct ExceptionStep {
  Registers caller;
  bool outermost = false;
};
std::optional<ExceptionStep> runExceptionCode(const FrameRule& rule, const Registers& frame,
                                              Memory& memory);

}  // namespace unwinding
