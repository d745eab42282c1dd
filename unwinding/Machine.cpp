#include "unwinding/Machine.h"

#include <bit>

namespace unwinding {

namespace {

constexpr MachineTraits X86_64_TRAITS = {17, 8, 16, 7, 6, 17};
constexpr MachineTraits X86_TRAITS = {9, 4, 8, 4, 5, 9};
constexpr MachineTraits ARM_TRAITS = {16, 4, 15, 13, 11, 14};
constexpr MachineTraits ARM64_TRAITS = {33, 8, 32, 31, 29, 30};

constexpr std::uint64_t ABI_NONE = 0;
constexpr std::uint64_t ABI_32 = 1;

// perf's number of each DWARF register.
constexpr std::array<unsigned char, 17> X86_64_ORDER = {0,  3,  2,  1,  4,  5,  6,  7, 16,
                                                        17, 18, 19, 20, 21, 22, 23, 8};
constexpr std::array<unsigned char, 9> X86_ORDER = {0, 2, 3, 1, 7, 6, 4, 5, 8};

Machine machineOf(Machine recorded, std::uint64_t abi) {
  if (abi == ABI_32 && recorded == Machine::X86_64) {
    return Machine::X86;
  }
  if (abi == ABI_32 && recorded == Machine::Arm64) {
    return Machine::Arm;
  }
  return recorded;
}

unsigned perfNumberOf(Machine machine, unsigned dwarfNumber) {
  switch (machine) {
    case Machine::X86_64:
      return X86_64_ORDER[dwarfNumber];
    case Machine::X86:
      return X86_ORDER[dwarfNumber];
    case Machine::Arm:  // also in a 64-bit recording: the kernel answers 13 to 15 for such a task
    case Machine::Arm64:
      break;
  }
  return dwarfNumber;
}

}  // namespace

const MachineTraits& traitsOf(Machine machine) {
  switch (machine) {
    case Machine::X86_64:
      return X86_64_TRAITS;
    case Machine::X86:
      return X86_TRAITS;
    case Machine::Arm:
      return ARM_TRAITS;
    case Machine::Arm64:
      break;
  }
  return ARM64_TRAITS;
}

bool setRegisters(Machine recorded, std::uint64_t abi, std::uint64_t mask,
                  std::span<const std::uint64_t> values, UserState& state) {
  state.machine = machineOf(recorded, abi);
  state.registers = Registers();
  if (abi == ABI_NONE || values.size() < static_cast<std::size_t>(std::popcount(mask))) {
    return false;
  }
  const MachineTraits& traits = traitsOf(state.machine);
  for (unsigned number = 0; number < traits.registers; ++number) {
    const unsigned bit = perfNumberOf(state.machine, number);
    if ((mask >> bit & 1) == 0) {
      continue;
    }
    const std::uint64_t below = mask & ((std::uint64_t{1} << bit) - 1);
    const std::uint64_t value = values[static_cast<std::size_t>(std::popcount(below))];
    state.registers.set(number, traits.wordSize == 4 ? value & 0xffffffff : value);
  }
  return state.registers.known(traits.pc) && state.registers.known(traits.stackPointer);
}

}  // namespace unwinding
