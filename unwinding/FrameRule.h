// How to get from a frame to its caller: what the call frame information of a file, or the code at
// the program counter, says for one address. Small and plain, so that it can be kept for every
// address that occurs; it borrows from the tables of its file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "unwinding/Machine.h"

namespace unwinding {

class CallFrameTable;

// Where the caller's value of one register is. Registers without a rule keep their value; the
// caller's stack pointer is the CFA (canonical frame address) unless there is one for it.
struct RegisterRule {
  enum class Kind : std::uint8_t {
    Undefined,        // nowhere
    Offset,           // in memory at CFA + value
    ValueOffset,      // it is CFA + value
    Register,         // in register `value`
    Expression,       // in memory where the expression at `value` of the section says
    ValueExpression,  // it is what that expression says
  };
  std::uint8_t number = 0;
  Kind kind = Kind::Undefined;
  std::int32_t value = 0;
};

struct FrameRule {
  enum class Kind : std::uint8_t {
    None,            // nothing is known
    CallFrame,       // the CFA, and `registers` from it
    ExceptionIndex,  // Arm's exception tables: the instructions at `code`
    Outermost,       // the function has no caller
    SavedContext,    // a signal's trampoline: the kernel put all registers on the stack, from
                     // `cfaValue`
                     //   above the stack pointer on, or above what is stored there
  };

  Kind kind = Kind::None;
  bool signal = false;  // a signal's trampoline: the caller was interrupted, it called nothing
  bool signedReturn = false;  // the return address may carry an authentication code (Arm64)
  bool cfaIsExpression = false;
  std::uint8_t cfaRegister = 0;
  std::uint8_t returnRegister = 0;
  std::uint8_t count = 0;                 // of `registers`
  std::uint8_t codeSkip = 0;              // bytes before the first instruction
  std::uint16_t codeSize = 0;             // bytes, the skipped ones included
  std::int32_t cfaValue = 0;              // offset, or where the expression is in the section
  std::uint64_t toAddress = 0;            // from offsets in the file to ELF addresses, modulo 2^64
  const CallFrameTable* table = nullptr;  // whose section the expressions are in
  const unsigned char* code = nullptr;
  std::array<RegisterRule, Registers::MAXIMUM> registers{};
};

}  // namespace unwinding
