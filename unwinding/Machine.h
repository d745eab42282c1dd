// The processors whose stacks are unwound, their registers by DWARF number, and a sample's
// registers turned into them. Little-endian ones only.
//
// Sources: perf's numbers in the kernel's arch/*/include/uapi/asm/perf_regs.h; DWARF's in the
// processor supplements of the ELF ABIs (x86-64 figure 3.36, i386 table 2.14, "DWARF for the Arm
// Architecture", "DWARF for the Arm 64-bit Architecture").
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace unwinding {

enum class Machine : std::uint8_t { X86_64, X86, Arm, Arm64 };

// Registers and word of a machine; numbers are DWARF's.
struct MachineTraits {
  unsigned registers;  // numbers below this are kept, others (floating point) are not
  unsigned wordSize;   // bytes: 4 or 8
  unsigned pc;         // where the program counter is kept; what DW_OP_breg of it means
  unsigned stackPointer;
  unsigned framePointer;
  unsigned linkRegister;  // holds the return address on entry; `registers` where the stack does
};

const MachineTraits& traitsOf(Machine machine);

// Registers of one frame. Values are zero-extended.
class Registers {
 public:
  static constexpr std::size_t MAXIMUM = 33;

  bool known(std::size_t number) const { return number < MAXIMUM && (known_ >> number & 1) != 0; }
  // 0 for one that is not known.
  std::uint64_t value(std::size_t number) const { return known(number) ? values_[number] : 0; }
  void set(std::size_t number, std::uint64_t value) {
    if (number < MAXIMUM) {
      values_[number] = value;
      known_ |= std::uint64_t{1} << number;
    }
  }
  void forget(std::size_t number) {
    if (number < MAXIMUM) {
      known_ &= ~(std::uint64_t{1} << number);
    }
  }

 private:
  std::array<std::uint64_t, MAXIMUM> values_{};
  std::uint64_t known_ = 0;
};

// What a sample says about the user side of a thread.
struct UserState {
  Machine machine = Machine::X86_64;
  Registers registers;
  // The bytes from the stack pointer upward that are valid ("dyn_size" of them); borrowed.
  std::span<const unsigned char> stack;
};

// The values of PERF_SAMPLE_REGS_USER: one for each bit of `mask`, lowest first. `recorded` is the
// machine of the recording, `abi` the sample's PERF_SAMPLE_REGS_ABI_*: 32-bit programs on 64-bit
// kernels have 1. False when abi is 0 (a kernel thread), when there are fewer values than bits, or
// when stack pointer or program counter is not among them; `machine` and `registers` of `state` are
// set, `stack` is not touched.
bool setRegisters(Machine recorded, std::uint64_t abi, std::uint64_t mask,
                  std::span<const std::uint64_t> values, UserState& state);

}  // namespace unwinding
