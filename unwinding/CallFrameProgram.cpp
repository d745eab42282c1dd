#include "unwinding/CallFrameProgram.h"

#include <bit>
#include <limits>
#include <utility>

namespace unwinding {

namespace {

// DW_CFA_*: the two high bits, or the whole byte where they are zero.
constexpr std::uint8_t PRIMARY_MASK = 0xc0;
constexpr std::uint8_t ADVANCE_LOC = 0x40;
constexpr std::uint8_t OFFSET = 0x80;
constexpr std::uint8_t RESTORE = 0xc0;
enum Opcode : std::uint8_t {
  NOP = 0x00,
  SET_LOC = 0x01,
  ADVANCE_LOC1 = 0x02,
  ADVANCE_LOC2 = 0x03,
  ADVANCE_LOC4 = 0x04,
  OFFSET_EXTENDED = 0x05,
  RESTORE_EXTENDED = 0x06,
  UNDEFINED = 0x07,
  SAME_VALUE = 0x08,
  REGISTER = 0x09,
  REMEMBER_STATE = 0x0a,
  RESTORE_STATE = 0x0b,
  DEF_CFA = 0x0c,
  DEF_CFA_REGISTER = 0x0d,
  DEF_CFA_OFFSET = 0x0e,
  DEF_CFA_EXPRESSION = 0x0f,
  EXPRESSION = 0x10,
  OFFSET_EXTENDED_SF = 0x11,
  DEF_CFA_SF = 0x12,
  DEF_CFA_OFFSET_SF = 0x13,
  VAL_OFFSET = 0x14,
  VAL_OFFSET_SF = 0x15,
  VAL_EXPRESSION = 0x16,
  AARCH64_NEGATE_RA_STATE = 0x2d,
  GNU_ARGS_SIZE = 0x2e,
  GNU_NEGATIVE_OFFSET_EXTENDED = 0x2f,
};

// More than any compiler makes of one function, and done in a millisecond.
constexpr unsigned MOST_INSTRUCTIONS = 100'000;
constexpr std::size_t DEEPEST_MEMORY = 64;

bool fits(std::int64_t value) {
  return value >= std::numeric_limits<std::int32_t>::min() &&
         value <= std::numeric_limits<std::int32_t>::max();
}

}  // namespace

CallFrameProgram::CallFrameProgram(Machine machine, std::uint64_t codeAlignment,
                                   std::int64_t dataAlignment, TakePointer takePointer)
    : machine_(machine),
      codeAlignment_(codeAlignment),
      dataAlignment_(dataAlignment),
      takePointer_(std::move(takePointer)) {}

bool CallFrameProgram::runCommon(Bytes section, Bytes instructions) {
  inCommon_ = true;
  const bool ok = _run(section, instructions, 0, std::numeric_limits<std::uint64_t>::max());
  initial_ = state_;
  remembered_.clear();
  inCommon_ = false;
  return ok;
}

bool CallFrameProgram::run(Bytes section, Bytes instructions, std::uint64_t start,
                           std::uint64_t address) {
  return _run(section, instructions, start, address);
}

bool CallFrameProgram::_run(Bytes section, Bytes instructions, std::uint64_t start,
                            std::uint64_t address) {
  const std::size_t begin = static_cast<std::size_t>(instructions.data() - section.data());
  ByteCursor in(section.first(instructions.empty() ? 0 : begin + instructions.size()),
                instructions.empty() ? 0 : begin);
  std::uint64_t location = start;
  for (unsigned done = 0; in.ok() && !in.atEnd(); ++done) {
    if (done == MOST_INSTRUCTIONS) {
      return false;
    }
    const std::uint8_t opcode = in.takeByte();
    const std::uint64_t before = location;
    if ((opcode & PRIMARY_MASK) == ADVANCE_LOC) {
      location += (opcode ^ ADVANCE_LOC) * codeAlignment_;
    } else if (opcode == SET_LOC) {
      location = takePointer_(in);
    } else if (opcode >= ADVANCE_LOC1 && opcode <= ADVANCE_LOC4) {
      location += in.takeUnsigned(1u << (opcode - ADVANCE_LOC1)) * codeAlignment_;
    } else if (!_execute(opcode, in)) {
      return false;
    }
    if (location > address && location != before) {
      return in.ok();
    }
  }
  return in.ok();
}

bool CallFrameProgram::_execute(std::uint8_t opcode, ByteCursor& in) {
  switch (opcode) {
    case NOP:
      return true;
    case REMEMBER_STATE:
      if (remembered_.size() == DEEPEST_MEMORY) {
        return false;
      }
      remembered_.push_back(state_);
      return true;
    case RESTORE_STATE:
      if (remembered_.empty()) {
        return false;
      }
      state_ = remembered_.back();
      remembered_.pop_back();
      return true;
    case GNU_ARGS_SIZE:
      in.takeUleb();
      return true;
    case AARCH64_NEGATE_RA_STATE:
      state_.signedReturn = !state_.signedReturn;
      return machine_ == Machine::Arm64;
    case DEF_CFA:
    case DEF_CFA_REGISTER:
    case DEF_CFA_OFFSET:
    case DEF_CFA_EXPRESSION:
    case DEF_CFA_SF:
    case DEF_CFA_OFFSET_SF:
      return _executeForCfa(opcode, in);
    default:
      return _executeForRegister(opcode, in);
  }
}

bool CallFrameProgram::_executeForCfa(std::uint8_t opcode, ByteCursor& in) {
  if (opcode == DEF_CFA_EXPRESSION) {
    state_.cfaKnown = true;
    state_.cfaIsExpression = true;
    state_.cfaValue = static_cast<std::int64_t>(in.offset());  // its length comes first
    in.skip(in.takeUleb());
    return true;
  }
  if (opcode == DEF_CFA || opcode == DEF_CFA_SF) {
    state_.cfaKnown = true;
    state_.cfaIsExpression = false;
    state_.cfaRegister = in.takeUleb();
  } else if (!state_.cfaKnown || state_.cfaIsExpression) {
    return false;
  }
  switch (opcode) {
    case DEF_CFA_REGISTER:
      state_.cfaRegister = in.takeUleb();
      break;
    case DEF_CFA:
    case DEF_CFA_OFFSET:
      state_.cfaValue = static_cast<std::int64_t>(in.takeUleb());
      break;
    default:
      state_.cfaValue = _scaled(static_cast<std::uint64_t>(in.takeSleb()));
      break;
  }
  return true;
}

bool CallFrameProgram::_executeForRegister(std::uint8_t opcode, ByteCursor& in) {
  using Kind = RegisterRule::Kind;
  const std::uint8_t operand = opcode & static_cast<std::uint8_t>(~PRIMARY_MASK);
  if ((opcode & PRIMARY_MASK) == OFFSET) {
    return _set(operand, Kind::Offset, _scaled(in.takeUleb()));
  }
  if ((opcode & PRIMARY_MASK) == RESTORE) {
    _restore(operand);
    return !inCommon_;
  }
  const std::uint64_t number = in.takeUleb();
  switch (opcode) {
    case OFFSET_EXTENDED:
      return _set(number, Kind::Offset, _scaled(in.takeUleb()));
    case OFFSET_EXTENDED_SF:
      return _set(number, Kind::Offset, _scaled(static_cast<std::uint64_t>(in.takeSleb())));
    case GNU_NEGATIVE_OFFSET_EXTENDED:
      return _set(number, Kind::Offset, _scaled(std::uint64_t{0} - in.takeUleb()));
    case VAL_OFFSET:
      return _set(number, Kind::ValueOffset, _scaled(in.takeUleb()));
    case VAL_OFFSET_SF:
      return _set(number, Kind::ValueOffset, _scaled(static_cast<std::uint64_t>(in.takeSleb())));
    case RESTORE_EXTENDED:
      _restore(number);
      return !inCommon_;
    case UNDEFINED:
      return _set(number, Kind::Undefined, 0);
    case SAME_VALUE:
      _unset(number);
      return true;
    case REGISTER: {
      const std::uint64_t other = in.takeUleb();
      return other < Registers::MAXIMUM
                 ? _set(number, Kind::Register, static_cast<std::int64_t>(other))
                 : _set(number, Kind::Undefined, 0);
    }
    case EXPRESSION:
    case VAL_EXPRESSION: {
      const auto place = static_cast<std::int64_t>(in.offset());  // its length comes first
      in.skip(in.takeUleb());
      return _set(number, opcode == EXPRESSION ? Kind::Expression : Kind::ValueExpression, place);
    }
    default:
      return false;
  }
}

bool CallFrameProgram::_set(std::uint64_t number, RegisterRule::Kind kind, std::int64_t value) {
  if (number >= traitsOf(machine_).registers) {
    return true;  // not one of those that are kept
  }
  if (!fits(value)) {
    return false;
  }
  state_.ruled |= std::uint64_t{1} << number;
  state_.rules[number] = {static_cast<std::uint8_t>(number), kind,
                          static_cast<std::int32_t>(value)};
  return true;
}

void CallFrameProgram::_unset(std::uint64_t number) {
  if (number < Registers::MAXIMUM) {
    state_.ruled &= ~(std::uint64_t{1} << number);
  }
}

void CallFrameProgram::_restore(std::uint64_t number) {
  if (number >= Registers::MAXIMUM) {
    return;
  }
  _unset(number);
  state_.ruled |= initial_.ruled & (std::uint64_t{1} << number);
  state_.rules[number] = initial_.rules[number];
}

// Modulo 2^64: a product that overflows is nonsense, and must be harmless.
std::int64_t CallFrameProgram::_scaled(std::uint64_t value) const {
  return static_cast<std::int64_t>(value * static_cast<std::uint64_t>(dataAlignment_));
}

void CallFrameProgram::compile(std::uint8_t returnRegister, FrameRule& rule) const {
  rule = FrameRule();
  if (!state_.cfaKnown || !fits(state_.cfaValue) ||
      (!state_.cfaIsExpression && state_.cfaRegister >= Registers::MAXIMUM)) {
    return;
  }
  rule.kind = FrameRule::Kind::CallFrame;
  rule.cfaIsExpression = state_.cfaIsExpression;
  rule.cfaRegister = static_cast<std::uint8_t>(state_.cfaIsExpression ? 0 : state_.cfaRegister);
  rule.cfaValue = static_cast<std::int32_t>(state_.cfaValue);
  rule.returnRegister = returnRegister;
  rule.signedReturn = state_.signedReturn;
  for (std::uint64_t left = state_.ruled; left != 0; left &= left - 1) {
    const auto number = static_cast<std::size_t>(std::countr_zero(left));
    const RegisterRule& each = state_.rules[number];
    if (number == returnRegister && each.kind == RegisterRule::Kind::Undefined) {
      rule.kind = FrameRule::Kind::Outermost;
    }
    rule.registers[rule.count++] = each;
  }
}

}  // namespace unwinding
