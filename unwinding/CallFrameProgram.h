// Runs the instructions of call frame information (DWARF 5, section 6.4.2) up to one address.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "unwinding/ByteCursor.h"
#include "unwinding/FrameRule.h"

namespace unwinding {

class CallFrameProgram {
 public:
  using TakePointer = std::function<std::uint64_t(ByteCursor&)>;

  CallFrameProgram(Machine machine, std::uint64_t codeAlignment, std::int64_t dataAlignment,
                   TakePointer takePointer);

  // `instructions` are part of `section`; rules refer to expressions by their place in it. First
  // the common part, then a function's own. False when they are broken or too many.
  bool runCommon(Bytes section, Bytes instructions);
  bool run(Bytes section, Bytes instructions, std::uint64_t start, std::uint64_t address);

  // What they came to. `rule.kind` is None when they say nothing of the caller's frame.
  void compile(std::uint8_t returnRegister, FrameRule& rule) const;

 private:
  struct State {
    bool cfaKnown = false;
    bool cfaIsExpression = false;
    std::uint64_t cfaRegister = 0;
    std::int64_t cfaValue = 0;
    bool signedReturn = false;
    std::uint64_t ruled = 0;  // registers with a rule, a bit each
    std::array<RegisterRule, Registers::MAXIMUM> rules{};
  };

  bool _run(Bytes section, Bytes instructions, std::uint64_t start, std::uint64_t address);
  bool _execute(std::uint8_t opcode, ByteCursor& in);
  bool _executeForCfa(std::uint8_t opcode, ByteCursor& in);
  bool _executeForRegister(std::uint8_t opcode, ByteCursor& in);
  bool _set(std::uint64_t number, RegisterRule::Kind kind, std::int64_t value);
  void _unset(std::uint64_t number);
  void _restore(std::uint64_t number);
  std::int64_t _scaled(std::uint64_t value) const;

  Machine machine_;
  std::uint64_t codeAlignment_;
  std::int64_t dataAlignment_;
  TakePointer takePointer_;
  bool inCommon_ = true;
  State state_;
  State initial_;
  std::vector<State> remembered_;
};

}  // namespace unwinding
