#include "unwinding/Expression.h"

#include <array>

namespace unwinding {

namespace {

enum Operation : std::uint8_t {
  ADDR = 0x03,
  DEREF = 0x06,
  CONST1U = 0x08,
  CONST8S = 0x0f,
  CONSTU = 0x10,
  CONSTS = 0x11,
  DUP = 0x12,
  DROP = 0x13,
  OVER = 0x14,
  PICK = 0x15,
  SWAP = 0x16,
  ROT = 0x17,
  ABS = 0x19,
  AND = 0x1a,
  DIV = 0x1b,
  MINUS = 0x1c,
  MOD = 0x1d,
  MUL = 0x1e,
  NEG = 0x1f,
  NOT = 0x20,
  OR = 0x21,
  PLUS = 0x22,
  PLUS_UCONST = 0x23,
  SHL = 0x24,
  SHR = 0x25,
  SHRA = 0x26,
  XOR = 0x27,
  BRA = 0x28,
  EQ = 0x29,
  GE = 0x2a,
  GT = 0x2b,
  LE = 0x2c,
  LT = 0x2d,
  NE = 0x2e,
  SKIP = 0x2f,
  LIT0 = 0x30,
  LIT31 = 0x4f,
  BREG0 = 0x70,
  BREG31 = 0x8f,
  BREGX = 0x92,
  DEREF_SIZE = 0x94,
  DW_NOP = 0x96,
};

constexpr unsigned MOST_STEPS = 250;

class Evaluation {
 public:
  Evaluation(Bytes code, const ExpressionInput& input)
      : code_(code), in_(code), input_(input), wordSize_(traitsOf(input.machine).wordSize) {
    if (input.initial) {
      _push(*input.initial);
    }
  }

  std::optional<std::uint64_t> run() {
    for (unsigned step = 0; ok_ && in_.ok() && !in_.atEnd(); ++step) {
      if (step == MOST_STEPS) {
        return std::nullopt;
      }
      _execute(in_.takeByte());
    }
    if (!ok_ || !in_.ok() || depth_ == 0) {
      return std::nullopt;
    }
    return stack_[depth_ - 1];
  }

 private:
  void _execute(std::uint8_t operation) {
    if (operation >= LIT0 && operation <= LIT31) {
      _push(operation - LIT0);
    } else if (operation >= BREG0 && operation <= BREG31) {
      _pushRegister(operation - BREG0);
    } else if (operation >= CONST1U && operation <= CONST8S) {
      const unsigned size = 1u << ((operation - CONST1U) / 2);
      const bool isSigned = ((operation - CONST1U) & 1) != 0;
      _push(isSigned ? static_cast<std::uint64_t>(in_.takeSigned(size)) : in_.takeUnsigned(size));
    } else if ((operation >= AND && operation <= MUL && operation != ABS) ||
               (operation >= OR && operation <= PLUS) || (operation >= SHL && operation <= XOR) ||
               (operation >= EQ && operation <= NE)) {
      const std::uint64_t second = _pop();
      const std::uint64_t first = _pop();
      _push(_combined(operation, first, second));
    } else {
      _executeOther(operation);
    }
  }

  void _executeOther(std::uint8_t operation) {
    switch (operation) {
      case ADDR:
        _push(in_.takeUnsigned(wordSize_) + input_.loadBias);
        break;
      case CONSTU:
        _push(in_.takeUleb());
        break;
      case CONSTS:
        _push(static_cast<std::uint64_t>(in_.takeSleb()));
        break;
      case BREGX:
        _pushRegister(in_.takeUleb());
        break;
      case DEREF:
        _load(wordSize_);
        break;
      case DEREF_SIZE:
        _load(in_.takeByte());
        break;
      case PLUS_UCONST:
        _push(_pop() + in_.takeUleb());
        break;
      case ABS:
      case NEG:
      case NOT:
        _push(_changed(operation, _pop()));
        break;
      case SKIP:
      case BRA:
        _jump(operation);
        break;
      case DW_NOP:
        break;
      default:
        _executeOnStack(operation);
        break;
    }
  }

  void _executeOnStack(std::uint8_t operation) {
    switch (operation) {
      case DUP:
        _pick(0);
        break;
      case OVER:
        _pick(1);
        break;
      case PICK:
        _pick(in_.takeByte());
        break;
      case DROP:
        _pop();
        break;
      case SWAP: {
        const std::uint64_t top = _pop();
        const std::uint64_t next = _pop();
        _push(top);
        _push(next);
        break;
      }
      case ROT: {
        const std::uint64_t first = _pop();
        const std::uint64_t second = _pop();
        const std::uint64_t third = _pop();
        _push(first);
        _push(third);
        _push(second);
        break;
      }
      default:
        ok_ = false;
        break;
    }
  }

  std::uint64_t _changed(std::uint8_t operation, std::uint64_t value) const {
    if (operation == NOT) {
      return ~value;
    }
    return operation == NEG || _signed(value) < 0 ? std::uint64_t{0} - value : value;
  }

  std::uint64_t _combined(std::uint8_t operation, std::uint64_t a, std::uint64_t b) {
    switch (operation) {
      case AND:
        return a & b;
      case OR:
        return a | b;
      case XOR:
        return a ^ b;
      case PLUS:
        return a + b;
      case MINUS:
        return a - b;
      case MUL:
        return a * b;
      case DIV:
      case MOD:
        return _divided(operation, a, b);
      case SHL:
        return b < 64 ? a << b : 0;
      case SHR:
        return b < 64 ? a >> b : 0;
      case SHRA:
        return static_cast<std::uint64_t>(_signed(a) >> (b < 64 ? b : 63));
      case EQ:
        return a == b;
      case NE:
        return a != b;
      case GE:
        return _signed(a) >= _signed(b);
      case GT:
        return _signed(a) > _signed(b);
      case LE:
        return _signed(a) <= _signed(b);
      default:
        return _signed(a) < _signed(b);
    }
  }

  std::uint64_t _divided(std::uint8_t operation, std::uint64_t a, std::uint64_t b) {
    if (b == 0) {
      ok_ = false;
      return 0;
    }
    if (operation == MOD) {
      return a % b;
    }
    const std::int64_t divisor = _signed(b);
    return divisor == -1 ? std::uint64_t{0} - a : static_cast<std::uint64_t>(_signed(a) / divisor);
  }

  void _jump(std::uint8_t operation) {
    const std::int64_t distance = in_.takeSigned(2);
    if (operation == BRA && _pop() == 0) {
      return;
    }
    const std::int64_t target = static_cast<std::int64_t>(in_.offset()) + distance;
    if (target < 0 || target > static_cast<std::int64_t>(code_.size())) {
      ok_ = false;
      return;
    }
    in_ = ByteCursor(code_, static_cast<std::size_t>(target));
  }

  void _load(unsigned size) {
    const std::uint64_t address = _pop();
    if (!ok_ || size == 0 || size > 8) {
      ok_ = false;
      return;
    }
    const std::optional<std::uint64_t> value = input_.memory.read(address, size);
    ok_ = value.has_value();
    _push(value.value_or(0));
  }

  void _pushRegister(std::uint64_t number) {
    const auto offset = static_cast<std::uint64_t>(in_.takeSleb());
    if (number >= Registers::MAXIMUM || !input_.registers.known(number)) {
      ok_ = false;
      return;
    }
    _push(input_.registers.value(number) + offset);
  }

  void _pick(std::size_t depth) {
    if (depth >= depth_) {
      ok_ = false;
      return;
    }
    _push(stack_[depth_ - 1 - depth]);
  }

  // Numbers have the size of an address: above it there is nothing.
  void _push(std::uint64_t value) {
    if (depth_ == stack_.size()) {
      ok_ = false;
      return;
    }
    stack_[depth_++] = wordSize_ == 4 ? value & 0xffffffff : value;
  }
  std::uint64_t _pop() {
    if (depth_ == 0) {
      ok_ = false;
      return 0;
    }
    return stack_[--depth_];
  }
  std::int64_t _signed(std::uint64_t value) const {
    return wordSize_ == 4 ? static_cast<std::int32_t>(static_cast<std::uint32_t>(value))
                          : static_cast<std::int64_t>(value);
  }

  Bytes code_;
  ByteCursor in_;
  const ExpressionInput& input_;
  unsigned wordSize_;
  std::array<std::uint64_t, 64> stack_{};
  std::size_t depth_ = 0;
  bool ok_ = true;
};

}  // namespace

std::optional<std::uint64_t> evaluate(Bytes section, std::size_t place,
                                      const ExpressionInput& input) {
  ByteCursor in(section, place);
  const Bytes code = in.takeBytes(in.takeUleb());
  if (!in.ok()) {
    return std::nullopt;
  }
  return Evaluation(code, input).run();
}

}  // namespace unwinding
