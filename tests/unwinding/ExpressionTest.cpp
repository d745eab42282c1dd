// DWARF expressions, operation by operation; expected values are DWARF 5's, section 2.5.
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "unwinding/Expression.h"

using unwinding::evaluate;
using unwinding::ExpressionInput;
using unwinding::Machine;
using unwinding::Registers;

namespace {

class WordMemory : public unwinding::Memory {
 public:
  std::optional<std::uint64_t> read(std::uint64_t address, unsigned size) override {
    lastSize = size;
    const auto found = words.find(address);
    return found == words.end() ? std::nullopt : std::optional<std::uint64_t>(found->second);
  }
  std::map<std::uint64_t, std::uint64_t> words;
  unsigned lastSize = 0;
};

std::optional<std::uint64_t> valueOf(std::vector<unsigned char> code,
                                     Machine machine = Machine::X86_64,
                                     std::optional<std::uint64_t> initial = std::nullopt) {
  Registers registers;
  registers.set(7, 0x1000);
  registers.set(16, 0x401006);
  WordMemory memory;
  memory.words = {{0x1008, 77}};
  code.insert(code.begin(), static_cast<unsigned char>(code.size()));
  return evaluate(code, 0, {machine, registers, memory, 0x700000, initial});
}

constexpr std::uint64_t minus(std::uint64_t value) { return 0 - value; }

}  // namespace

TEST(ExpressionTest, Constants) {
  EXPECT_EQ(valueOf({0x30}), 0u);
  EXPECT_EQ(valueOf({0x4f}), 31u);
  EXPECT_EQ(valueOf({0x08, 0xfe}), 0xfeu);
  EXPECT_EQ(valueOf({0x09, 0xfe}), minus(2));
  EXPECT_EQ(valueOf({0x0a, 0xfe, 0xff}), 0xfffeu);
  EXPECT_EQ(valueOf({0x0b, 0xfe, 0xff}), minus(2));
  EXPECT_EQ(valueOf({0x0c, 1, 2, 3, 4}), 0x04030201u);
  EXPECT_EQ(valueOf({0x0d, 0xff, 0xff, 0xff, 0xff}), minus(1));
  EXPECT_EQ(valueOf({0x0e, 1, 2, 3, 4, 5, 6, 7, 8}), 0x0807060504030201u);
  EXPECT_EQ(valueOf({0x0f, 1, 2, 3, 4, 5, 6, 7, 8}), 0x0807060504030201u);
  EXPECT_EQ(valueOf({0x10, 0x80, 1}), 128u);
  EXPECT_EQ(valueOf({0x11, 0x7e}), minus(2));
  EXPECT_EQ(valueOf({0x03, 1, 2, 0, 0, 0, 0, 0, 0}), 0x700201u) << "moved with its file";
}

TEST(ExpressionTest, Arithmetic) {
  EXPECT_EQ(valueOf({0x3c, 0x3a, 0x1a}), 8u) << "12 and 10";
  EXPECT_EQ(valueOf({0x3c, 0x3a, 0x21}), 14u);
  EXPECT_EQ(valueOf({0x3c, 0x3a, 0x27}), 6u);
  EXPECT_EQ(valueOf({0x3c, 0x35, 0x22}), 17u);
  EXPECT_EQ(valueOf({0x35, 0x3c, 0x1c}), minus(7));
  EXPECT_EQ(valueOf({0x3c, 0x35, 0x1e}), 60u);
  EXPECT_EQ(valueOf({0x09, 0xf4, 0x35, 0x1b}), minus(2)) << "-12 / 5";
  EXPECT_EQ(valueOf({0x3c, 0x35, 0x1d}), 2u);
  EXPECT_EQ(valueOf({0x31, 0x34, 0x24}), 16u);
  EXPECT_EQ(valueOf({0x09, 0xf0, 0x3c, 0x25}), minus(16) >> 12);
  EXPECT_EQ(valueOf({0x09, 0xf0, 0x32, 0x26}), minus(4));
  EXPECT_EQ(valueOf({0x09, 0xf0, 0x19}), 16u);
  EXPECT_EQ(valueOf({0x33, 0x1f}), minus(3));
  EXPECT_EQ(valueOf({0x33, 0x20}), ~3ull);
  EXPECT_EQ(valueOf({0x33, 0x23, 0x80, 1}), 131u);
}

TEST(ExpressionTest, Comparisons) {
  const std::vector<std::array<unsigned, 4>> cases = {
      // operation, then for -1 and 1, 1 and 1, 1 and -1
      {0x29, 0, 1, 0}, {0x2a, 0, 1, 1}, {0x2b, 0, 0, 1},
      {0x2c, 1, 1, 0}, {0x2d, 1, 0, 0}, {0x2e, 1, 0, 1}};
  for (const auto& each : cases) {
    const auto operation = static_cast<unsigned char>(each[0]);
    EXPECT_EQ(valueOf({0x09, 0xff, 0x31, operation}), each[1]) << each[0];
    EXPECT_EQ(valueOf({0x31, 0x31, operation}), each[2]) << each[0];
    EXPECT_EQ(valueOf({0x31, 0x09, 0xff, operation}), each[3]) << each[0];
  }
}

TEST(ExpressionTest, TheStack) {
  EXPECT_EQ(valueOf({0x31, 0x32, 0x12, 0x22}), 4u);
  EXPECT_EQ(valueOf({0x31, 0x32, 0x13}), 1u);
  EXPECT_EQ(valueOf({0x31, 0x32, 0x14}), 1u);
  EXPECT_EQ(valueOf({0x31, 0x32, 0x33, 0x15, 2}), 1u);
  EXPECT_EQ(valueOf({0x31, 0x32, 0x16}), 1u);
  // 1 2 3 becomes 3 1 2: 2 on top, then 1, then 3
  EXPECT_EQ(valueOf({0x31, 0x32, 0x33, 0x17}), 2u);
  EXPECT_EQ(valueOf({0x31, 0x32, 0x33, 0x17, 0x13}), 1u);
  EXPECT_EQ(valueOf({0x31, 0x32, 0x33, 0x17, 0x13, 0x13}), 3u);
  EXPECT_EQ(valueOf({0x31, 0x96}), 1u);
}

TEST(ExpressionTest, RegistersAndMemory) {
  EXPECT_EQ(valueOf({0x77, 8}), 0x1008u);
  EXPECT_EQ(valueOf({0x92, 7, 0x78}), 0xff8u);
  EXPECT_EQ(valueOf({0x77, 8, 0x06}), 77u);
  EXPECT_EQ(valueOf({0x77, 8, 0x94, 2}), 77u);
  EXPECT_EQ(valueOf({0x22}, Machine::X86_64, 5), std::nullopt);
  EXPECT_EQ(valueOf({0x23, 3}, Machine::X86_64, 5), 8u) << "begins with the CFA";
}

TEST(ExpressionTest, JumpsOnlyInside) {
  EXPECT_EQ(valueOf({0x31, 0x2f, 1, 0, 0x13, 0x32}), 2u);
  EXPECT_EQ(valueOf({0x35, 0x31, 0x28, 1, 0, 0x36}), 5u);
  EXPECT_EQ(valueOf({0x35, 0x30, 0x28, 1, 0, 0x36}), 6u);
  EXPECT_EQ(valueOf({0x31, 0x2f, 1, 0}), std::nullopt);
  EXPECT_EQ(valueOf({0x31, 0x2f, 0xf0, 0xff}), std::nullopt);
}

TEST(ExpressionTest, ALoopEnds) { EXPECT_EQ(valueOf({0x31, 0x2f, 0xfd, 0xff}), std::nullopt); }

// DW_OP_breg7 8; breg16 0; lit15; and; lit11; ge; lit3; shl; plus: the CFA of x86-64's linkage
// table, whose entries push a number with their second instruction, at offset 6.
TEST(ExpressionTest, ALinkageTablesEntry) {
  const std::vector<unsigned char> code = {0x77, 8,    0x80, 0,    0x3f, 0x1a,
                                           0x3b, 0x2a, 0x33, 0x24, 0x22};
  EXPECT_EQ(valueOf(code), 0x1008u);  // at ...06
  Registers registers;
  registers.set(7, 0x1000);
  registers.set(16, 0x40100b);
  WordMemory memory;
  std::vector<unsigned char> section = code;
  section.insert(section.begin(), static_cast<unsigned char>(code.size()));
  EXPECT_EQ(evaluate(section, 0, {Machine::X86_64, registers, memory, 0, std::nullopt}), 0x1010u);
}

TEST(ExpressionTest, Numbers32BitsWide) {
  EXPECT_EQ(valueOf({0x30, 0x31, 0x1c}, Machine::X86), 0xffffffffu);
  EXPECT_EQ(valueOf({0x30, 0x31, 0x1c, 0x30, 0x2d}, Machine::X86), 1u) << "-1 is less than 0";
  EXPECT_EQ(valueOf({0x03, 1, 2, 0, 0}, Machine::X86), 0x700201u);
}

TEST(ExpressionTest, WhatIsBrokenHasNoValue) {
  EXPECT_EQ(valueOf({}), std::nullopt) << "empty";
  EXPECT_EQ(valueOf({0x22}), std::nullopt) << "nothing on the stack";
  EXPECT_EQ(valueOf({0x0e, 1}), std::nullopt) << "cut off";
  EXPECT_EQ(valueOf({0xff}), std::nullopt) << "unknown";
  EXPECT_EQ(valueOf({0x76, 0}), std::nullopt) << "a register that is not known";
  EXPECT_EQ(valueOf({0x92, 0x80, 0x80, 1, 0}), std::nullopt) << "a register that there is not";
  EXPECT_EQ(valueOf({0x31, 0x06}), std::nullopt) << "memory that is not known";
  EXPECT_EQ(valueOf({0x77, 8, 0x94, 9}), std::nullopt) << "nine bytes";
  EXPECT_EQ(valueOf({0x31, 0x30, 0x1b}), std::nullopt) << "division by zero";
  EXPECT_EQ(valueOf({0x31, 0x30, 0x1d}), std::nullopt) << "division by zero";
  EXPECT_EQ(valueOf({0x31, 0x15, 1}), std::nullopt) << "picks below the stack";
  EXPECT_EQ(valueOf(std::vector<unsigned char>(65, 0x31)), std::nullopt) << "65 numbers";
  EXPECT_EQ(valueOf(std::vector<unsigned char>(64, 0x31)), 1u);
}

TEST(ExpressionTest, TheMostNegativeNumberDividedByMinusOne) {
  EXPECT_EQ(valueOf({0x0e, 0, 0, 0, 0, 0, 0, 0, 0x80, 0x09, 0xff, 0x1b}), std::uint64_t{1} << 63);
}
