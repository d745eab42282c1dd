// Registers of a sample. perf's numbers are those of the kernel's asm/perf_regs.h, DWARF's those of
// the ABI supplements.
#include <numeric>

#include <gtest/gtest.h>

#include "unwinding/Machine.h"

using unwinding::Machine;
using unwinding::UserState;

namespace {

constexpr std::uint64_t ABI_32 = 1;
constexpr std::uint64_t ABI_64 = 2;
constexpr std::uint64_t X86_64_MASK = 0xff0fff;

// 100, 101, ... by place in the sample.
std::vector<std::uint64_t> values(std::size_t count) {
  std::vector<std::uint64_t> all(count);
  std::iota(all.begin(), all.end(), 100);
  return all;
}

}  // namespace

TEST(MachineTest, RegistersOfX86_64) {
  UserState state;
  ASSERT_TRUE(setRegisters(Machine::X86_64, ABI_64, X86_64_MASK, values(20), state));
  EXPECT_EQ(state.machine, Machine::X86_64);
  // ax bx cx dx si di bp sp ip flags cs ss r8 ... r15, as the mask has neither ds to gs
  const unsigned rax = 100, rbx = 101, rcx = 102, rdx = 103, rsi = 104, rdi = 105, rbp = 106,
                 rsp = 107, rip = 108, r8 = 112, r15 = 119;
  EXPECT_EQ(state.registers.value(0), rax);
  EXPECT_EQ(state.registers.value(1), rdx);
  EXPECT_EQ(state.registers.value(2), rcx);
  EXPECT_EQ(state.registers.value(3), rbx);
  EXPECT_EQ(state.registers.value(4), rsi);
  EXPECT_EQ(state.registers.value(5), rdi);
  EXPECT_EQ(state.registers.value(6), rbp);
  EXPECT_EQ(state.registers.value(7), rsp);
  EXPECT_EQ(state.registers.value(8), r8);
  EXPECT_EQ(state.registers.value(15), r15);
  EXPECT_EQ(state.registers.value(16), rip);
  EXPECT_FALSE(state.registers.known(17));
}

TEST(MachineTest, RegistersOfA32BitProgramIn64BitRecording) {
  UserState state;
  std::vector<std::uint64_t> all = values(20);
  all[8] = 0xffffffff80001234;
  ASSERT_TRUE(setRegisters(Machine::X86_64, ABI_32, X86_64_MASK, all, state));
  EXPECT_EQ(state.machine, Machine::X86);
  const unsigned eax = 100, ebx = 101, ecx = 102, edx = 103, esi = 104, edi = 105, ebp = 106,
                 esp = 107;
  const std::vector<unsigned> dwarfOrder = {eax, ecx, edx, ebx, esp, ebp, esi, edi};
  for (std::size_t i = 0; i < dwarfOrder.size(); ++i) {
    EXPECT_EQ(state.registers.value(i), dwarfOrder[i]) << i;
  }
  EXPECT_EQ(state.registers.value(8), 0x80001234u);
}

TEST(MachineTest, RegistersOfArm) {
  UserState state;
  ASSERT_TRUE(setRegisters(Machine::Arm, ABI_32, 0xffff, values(16), state));
  EXPECT_EQ(state.registers.value(0), 100u);
  EXPECT_EQ(state.registers.value(13), 113u);
  EXPECT_EQ(state.registers.value(15), 115u);
  ASSERT_TRUE(setRegisters(Machine::Arm64, ABI_32, 0x1ffffffff, values(33), state));
  EXPECT_EQ(state.machine, Machine::Arm);
  EXPECT_EQ(state.registers.value(15), 115u);
}

TEST(MachineTest, RegistersOfArm64) {
  UserState state;
  ASSERT_TRUE(setRegisters(Machine::Arm64, ABI_64, 0x1ffffffff, values(33), state));
  EXPECT_EQ(state.machine, Machine::Arm64);
  EXPECT_EQ(state.registers.value(30), 130u);
  EXPECT_EQ(state.registers.value(31), 131u);
  EXPECT_EQ(state.registers.value(32), 132u);
}

TEST(MachineTest, RegistersThatWereNotRecordedAreNotKnown) {
  UserState state;
  constexpr std::uint64_t SP_AND_IP = 0x180;
  ASSERT_TRUE(setRegisters(Machine::X86_64, ABI_64, SP_AND_IP, values(2), state));
  EXPECT_EQ(state.registers.value(7), 100u);
  EXPECT_EQ(state.registers.value(16), 101u);
  EXPECT_FALSE(state.registers.known(6));
  EXPECT_EQ(state.registers.value(6), 0u);
}

TEST(MachineTest, NothingToUnwind) {
  UserState state;
  EXPECT_FALSE(setRegisters(Machine::X86_64, 0, X86_64_MASK, {}, state)) << "a kernel thread";
  EXPECT_FALSE(setRegisters(Machine::X86_64, ABI_64, X86_64_MASK, values(19), state)) << "cut off";
  EXPECT_FALSE(setRegisters(Machine::X86_64, ABI_64, 0x80, values(1), state)) << "no ip";
  EXPECT_FALSE(setRegisters(Machine::Arm64, ABI_64, std::uint64_t{1} << 30, values(1), state))
      << "the link register that arm64 adds to chains of frame pointers";
}
