#include "unwinding/CodePatterns.h"

#include <algorithm>
#include <array>
#include <initializer_list>

namespace unwinding {

namespace {

constexpr int ANY = -1;

bool matches(Bytes code, std::size_t offset, std::initializer_list<int> pattern) {
  return offset <= code.size() && pattern.size() <= code.size() - offset &&
         std::equal(pattern.begin(), pattern.end(),
                    code.begin() + static_cast<std::ptrdiff_t>(offset),
                    [](int wanted, unsigned char byte) { return wanted == ANY || wanted == byte; });
}

bool atPc(Bytes code, std::initializer_list<int> pattern) {
  return matches(code, CODE_BEFORE, pattern);
}
bool before(Bytes code, std::initializer_list<int> pattern) {
  return matches(code, CODE_BEFORE - pattern.size(), pattern);
}

// Where the kernel stores the registers of DWARF numbers 0 and up, in words from the start of its
// structure (struct sigcontext of arch/*/include/uapi/asm/sigcontext.h).
constexpr std::array<std::uint8_t, 17> X86_64_CONTEXT = {13, 12, 14, 11, 9, 8, 10, 15, 0,
                                                         1,  2,  3,  4,  5, 6, 7,  16};
constexpr std::array<std::uint8_t, 9> X86_CONTEXT = {11, 10, 9, 8, 7, 6, 5, 4, 14};

template <typename Order>
void useContext(Machine machine, std::int32_t start, const Order& order, FrameRule& rule) {
  const MachineTraits& traits = traitsOf(machine);
  rule = FrameRule();
  rule.kind = FrameRule::Kind::SavedContext;
  rule.signal = true;
  rule.cfaRegister = static_cast<std::uint8_t>(traits.stackPointer);
  rule.cfaValue = start;
  rule.returnRegister = static_cast<std::uint8_t>(traits.pc);
  for (unsigned number = 0; number < traits.registers; ++number) {
    rule.registers[rule.count++] = {static_cast<std::uint8_t>(number), RegisterRule::Kind::Offset,
                                    static_cast<std::int32_t>(order(number) * traits.wordSize)};
  }
}

// All in order, program counter last.
constexpr auto IN_ORDER = [](unsigned number) { return number; };
constexpr auto IN_X86_64_ORDER = [](unsigned number) { return unsigned{X86_64_CONTEXT[number]}; };
constexpr auto IN_X86_ORDER = [](unsigned number) { return unsigned{X86_CONTEXT[number]}; };

bool recogniseX86Return(Bytes code, FrameRule& rule) {
  if (atPc(code, {0x58, 0xb8, 0x77, 0, 0, 0, 0xcd, 0x80})) {  // pop %eax; sigreturn
    useContext(Machine::X86, 4, IN_X86_ORDER, rule);
    return true;
  }
  if (atPc(code, {0xb8, 0xad, 0, 0, 0, 0xcd, 0x80})) {  // rt_sigreturn: number, siginfo, ucontext
    useContext(Machine::X86, 12 + 128 + 20, IN_X86_ORDER, rule);
    return true;
  }
  return false;
}

bool recogniseArmReturn(Bytes code, FrameRule& rule) {
  const bool plain = atPc(code, {0x77, 0x70, 0xa0, 0xe3, ANY, 0x00, ANY, 0xef}) ||
                     atPc(code, {0x77, 0x27, 0x00, 0xdf});
  const bool realtime = atPc(code, {0xad, 0x70, 0xa0, 0xe3, ANY, 0x00, ANY, 0xef}) ||
                        atPc(code, {0xad, 0x27, 0x00, 0xdf});
  if (plain || realtime) {  // siginfo; flags, link, stack; three words
    useContext(Machine::Arm, (realtime ? 128 : 0) + 20 + 12, IN_ORDER, rule);
  }
  return plain || realtime;
}

void useReturnAddressAbove(Machine machine, unsigned pushed, FrameRule& rule) {
  const MachineTraits& traits = traitsOf(machine);
  const auto word = static_cast<std::int32_t>(traits.wordSize);
  rule = FrameRule();
  rule.kind = FrameRule::Kind::CallFrame;
  rule.cfaRegister = static_cast<std::uint8_t>(traits.stackPointer);
  rule.cfaValue = static_cast<std::int32_t>(pushed + 1) * word;
  rule.returnRegister = static_cast<std::uint8_t>(traits.pc);
  rule.count = 1;
  rule.registers[0] = {rule.returnRegister, RegisterRule::Kind::Offset, -word};
}

}  // namespace

bool recogniseSignalReturn(Machine machine, Bytes code, FrameRule& rule) {
  switch (machine) {
    case Machine::X86_64:
      if (!atPc(code, {0x48, 0xc7, 0xc0, 0x0f, 0, 0, 0, 0x0f, 0x05}) &&
          !before(code, {0x48, 0xc7, 0xc0, 0x0f, 0, 0, 0, 0x0f, 0x05})) {  // in the system call
        return false;
      }
      useContext(machine, 40, IN_X86_64_ORDER, rule);  // flags, link, stack
      return true;
    case Machine::X86:
      return recogniseX86Return(code, rule);
    case Machine::Arm:
      return recogniseArmReturn(code, rule);
    case Machine::Arm64:
      break;
  }
  if (!atPc(code, {0x68, 0x11, 0x80, 0xd2, 0x01, 0x00, 0x00, 0xd4})) {
    return false;
  }
  useContext(machine, 128 + 176 + 8, IN_ORDER, rule);  // siginfo; up to uc_mcontext; fault address
  return true;
}

bool recogniseLinkageEntry(Machine machine, Bytes code, FrameRule& rule) {
  if (machine != Machine::X86_64 && machine != Machine::X86) {
    return false;
  }
  const bool afterGot = before(code, {0xff, 0x35, ANY, ANY, ANY, ANY});  // the table's first entry
  const bool jumpsByGot = atPc(code, {0xff, 0x25}) || atPc(code, {0xf2, 0xff, 0x25}) ||
                          atPc(code, {0xf3, 0x0f, 0x1e, 0xfa, 0xff, 0x25}) ||
                          atPc(code, {0xf3, 0x0f, 0x1e, 0xfa, 0xf2, 0xff, 0x25}) ||
                          atPc(code, {0xf3, 0x0f, 0x1e, 0xfa, 0x41, 0xbb}) ||  // mold's:
                          atPc(code, {0x41, 0xbb, ANY, ANY, ANY, ANY, 0xff, 0x25}) ||
                          (machine == Machine::X86 && atPc(code, {0xff, 0xa3}));
  const bool pushesNumber = atPc(code, {0x68, ANY, ANY, ANY, ANY, 0xe9}) ||
                            atPc(code, {0x68, ANY, ANY, ANY, ANY, 0xf2, 0xe9});
  const bool afterNumber =
      (atPc(code, {0xe9}) || atPc(code, {0xf2, 0xe9})) && before(code, {0x68, ANY, ANY, ANY, ANY});
  if (jumpsByGot && afterGot) {
    useReturnAddressAbove(machine, 2, rule);
  } else if (jumpsByGot || pushesNumber) {
    useReturnAddressAbove(machine, 0, rule);
  } else if (afterNumber || atPc(code, {0xff, 0x35, ANY, ANY, ANY, ANY, 0xff, 0x25})) {
    useReturnAddressAbove(machine, 1, rule);
  } else {
    return false;
  }
  return true;
}

}  // namespace unwinding
