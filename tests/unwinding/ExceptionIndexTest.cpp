// Arm's exception tables. Expected frames are what "Exception Handling ABI for the Arm
// Architecture", section 10.3, table 4, says of each instruction.
#include <map>

#include <gtest/gtest.h>

#include "tests/unwinding/ByteText.h"
#include "unwinding/ExceptionIndex.h"

using unwinding::ExceptionIndex;
using unwinding::FrameRule;
using unwinding::Registers;
using unwinding::runExceptionCode;

namespace {

constexpr std::uint32_t INDEX = 0x20000;  // address of the tables
constexpr std::uint32_t EXTRA = 0x10000;
constexpr std::uint32_t STACK = 0x7000;
constexpr std::uint32_t LINK = 0x4444;

// Word n of the stack is 0x100 + n.
class CountingMemory : public unwinding::Memory {
 public:
  std::optional<std::uint64_t> read(std::uint64_t address, unsigned) override {
    if (address < STACK || address >= STACK + 0x1000) {
      return std::nullopt;
    }
    return 0x100 + (address - STACK) / 4;
  }
};

std::uint32_t relative(std::uint32_t target, std::uint32_t place) {
  return (target - place) & 0x7fffffff;
}

ExceptionIndex::Table table(std::uint32_t address, const ByteText& bytes) {
  return {address, bytes.all()};
}

// The caller of a frame with these instructions, at most seven times four and two of them.
std::optional<unwinding::ExceptionStep> callerBy(std::vector<unsigned char> code) {
  while (code.size() % 4 != 2) {
    code.push_back(0xb0);
  }
  std::vector<unsigned char> bytes = {0x81, static_cast<unsigned char>((code.size() - 2) / 4)};
  bytes.insert(bytes.end(), code.begin(), code.end());
  ByteText extra;
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    extra.u8(bytes[i + 3]).u8(bytes[i + 2]).u8(bytes[i + 1]).u8(bytes[i]);
  }
  extra.u32(0);
  const ExceptionIndex index(
      table(INDEX, ByteText().u32(relative(0x1000, INDEX)).u32(relative(EXTRA, INDEX + 4))),
      table(EXTRA, extra));
  FrameRule rule;
  if (!index.find(0x1000, rule)) {
    return std::nullopt;
  }
  Registers frame;
  for (unsigned number = 0; number < 13; ++number) {
    frame.set(number, number);
  }
  frame.set(7, STACK + 0x40);
  frame.set(13, STACK);
  frame.set(14, LINK);
  frame.set(15, 0x1004);
  CountingMemory memory;
  return runExceptionCode(rule, frame, memory);
}

// Stack pointer of the caller, in bytes from the frame's; -1 for none.
std::int64_t stackBy(const std::vector<unsigned char>& code) {
  const auto step = callerBy(code);
  return step ? static_cast<std::int64_t>(step->caller.value(13)) - STACK : -1;
}

std::uint64_t registerBy(const std::vector<unsigned char>& code, unsigned number) {
  const auto step = callerBy(code);
  return step ? step->caller.value(number) : ~0ull;
}

}  // namespace

TEST(ExceptionIndexTest, FindsTheEntryBefore) {
  const ExceptionIndex index(table(INDEX, ByteText()
                                              .u32(relative(0x1000, INDEX))
                                              .u32(0x80b0b0b0)
                                              .u32(relative(0x1100, INDEX + 8))
                                              .u32(1)
                                              .u32(relative(0x1200, INDEX + 16))
                                              .u32(0x8002b0b0)),
                             {});
  FrameRule rule;
  EXPECT_FALSE(index.find(0xfff, rule));
  ASSERT_TRUE(index.find(0x1000, rule));
  EXPECT_EQ(rule.kind, FrameRule::Kind::ExceptionIndex);
  ASSERT_TRUE(index.find(0x10ff, rule));
  EXPECT_EQ(rule.kind, FrameRule::Kind::ExceptionIndex);
  ASSERT_TRUE(index.find(0x1100, rule));
  EXPECT_EQ(rule.kind, FrameRule::Kind::Outermost) << "it cannot be unwound";
  ASSERT_TRUE(index.find(0x5000, rule)) << "behind the last one";
}

TEST(ExceptionIndexTest, InstructionsInTheIndexItself) {
  const ExceptionIndex index(
      table(INDEX, ByteText().u32(relative(0x1000, INDEX)).u32(0x80028400 | 0x08)), {});
  FrameRule rule;
  ASSERT_TRUE(index.find(0x1000, rule));
  Registers frame;
  frame.set(13, STACK);
  CountingMemory memory;
  const auto step = runExceptionCode(rule, frame, memory);  // add 12; pop r7, r14
  ASSERT_TRUE(step);
  EXPECT_EQ(step->caller.value(7), 0x103u);
  EXPECT_EQ(step->caller.value(15), 0x104u);
}

TEST(ExceptionIndexTest, WithoutAReturnAddressThereIsNoCaller) {
  const ExceptionIndex index(table(INDEX, ByteText().u32(relative(0x1000, INDEX)).u32(0x80b0b0b0)),
                             {});
  FrameRule rule;
  ASSERT_TRUE(index.find(0x1000, rule));
  Registers frame;
  frame.set(13, STACK);
  CountingMemory memory;
  EXPECT_FALSE(runExceptionCode(rule, frame, memory));
  frame.set(14, LINK);
  EXPECT_TRUE(runExceptionCode(rule, frame, memory));
}

TEST(ExceptionIndexTest, APersonalityRoutineOfALanguage) {
  const ExceptionIndex index(
      table(INDEX, ByteText().u32(relative(0x1000, INDEX)).u32(relative(EXTRA, INDEX + 4))),
      table(EXTRA,
            ByteText().u32(relative(0x9000, EXTRA)).u32(0x01010203).u32(0x84000000 | 0xb0b0b0)));
  FrameRule rule;
  ASSERT_TRUE(index.find(0x1000, rule));
  Registers frame;
  frame.set(13, STACK);
  frame.set(14, LINK);
  CountingMemory memory;
  const auto step = runExceptionCode(rule, frame, memory);  // add 36; pop r8, r9, r11, r14
  ASSERT_TRUE(step);
  EXPECT_EQ(step->caller.value(8), 0x109u);
  EXPECT_EQ(step->caller.value(15), 0x10cu);
}

TEST(ExceptionIndexTest, MovesTheStackPointer) {
  EXPECT_EQ(stackBy({0x00}), 4);
  EXPECT_EQ(stackBy({0x3f}), 0x100);
  EXPECT_EQ(stackBy({0x3f, 0x41}), 0x100 - 8);
  EXPECT_EQ(stackBy({0x97}), 0x40) << "from r7";
  EXPECT_EQ(stackBy({0xb2, 0x00}), 0x204);
  EXPECT_EQ(stackBy({0xb2, 0x81, 0x01}), 0x204 + 129 * 4);
}

TEST(ExceptionIndexTest, PopsRegisters) {
  EXPECT_EQ(registerBy({0x80, 0x01}, 4), 0x100u);
  EXPECT_EQ(registerBy({0x84, 0x01}, 14), 0x101u) << "behind r4";
  EXPECT_EQ(registerBy({0x84, 0x01}, 15), 0x101u) << "returns to lr";
  EXPECT_EQ(registerBy({0x88, 0x01}, 15), 0x101u) << "pc itself";
  EXPECT_EQ(registerBy({0xa0}, 4), 0x100u);
  EXPECT_EQ(registerBy({0xa0}, 15), LINK);
  EXPECT_EQ(registerBy({0xa7}, 11), 0x107u);
  EXPECT_EQ(registerBy({0xab}, 14), 0x104u);
  EXPECT_EQ(registerBy({0xb1, 0x09}, 3), 0x101u) << "r0 and r3";
  EXPECT_EQ(stackBy({0xa7}), 32);
  EXPECT_EQ(stackBy({0x82, 0x01}), 0x101 - std::int64_t{STACK})
      << "r4, then the stack pointer itself";
}

TEST(ExceptionIndexTest, PopsFloatingPointRegisters) {
  EXPECT_EQ(stackBy({0xb3, 0x81}), 2 * 8 + 4);
  EXPECT_EQ(stackBy({0xb9}), 2 * 8 + 4);
  EXPECT_EQ(stackBy({0xc1}), 2 * 8);
  EXPECT_EQ(stackBy({0xc6, 0x22}), 3 * 8);
  EXPECT_EQ(stackBy({0xc7, 0x05}), 2 * 4);
  EXPECT_EQ(stackBy({0xc8, 0x03}), 4 * 8);
  EXPECT_EQ(stackBy({0xc9, 0x83}), 4 * 8);
  EXPECT_EQ(stackBy({0xd0}), 8);
  EXPECT_EQ(stackBy({0xd7}), 64);
  EXPECT_EQ(stackBy({0xb4}), 4) << "authentication code";
}

TEST(ExceptionIndexTest, FinishesBeforeTheEnd) { EXPECT_EQ(stackBy({0x00, 0xb0, 0x00}), 4); }

TEST(ExceptionIndexTest, RefusesToUnwind) {
  const auto step = callerBy({0x80, 0x00});
  ASSERT_TRUE(step);
  EXPECT_TRUE(step->outermost);
}

TEST(ExceptionIndexTest, BrokenInstructionsGiveNoFrame) {
  EXPECT_FALSE(callerBy({0x9d})) << "from the stack pointer";
  EXPECT_FALSE(callerBy({0x9f})) << "from the program counter";
  EXPECT_FALSE(callerBy({0xb1, 0x00})) << "spare";
  EXPECT_FALSE(callerBy({0xb1, 0x10})) << "spare";
  EXPECT_FALSE(callerBy({0xb5})) << "spare";
  EXPECT_FALSE(callerBy({0xca})) << "spare";
  EXPECT_FALSE(callerBy({0xd8})) << "spare";
  EXPECT_FALSE(callerBy({0xb0 - 1, 0xb2, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80}))
      << "the number does not end";
}

TEST(ExceptionIndexTest, BrokenTablesGiveNoRule) {
  FrameRule rule;
  EXPECT_FALSE(ExceptionIndex({}, {}).find(0x1000, rule));
  const ByteText entry = ByteText().u32(relative(0x1000, INDEX)).u32(relative(EXTRA, INDEX + 4));
  EXPECT_FALSE(ExceptionIndex(table(INDEX, entry), {}).find(0x1000, rule)) << "no extra table";
  EXPECT_FALSE(ExceptionIndex(table(INDEX, entry), table(EXTRA, ByteText().u32(0x80b0b0b0)))
                   .find(0x1000, rule))
      << "one word only";
  EXPECT_FALSE(ExceptionIndex(table(INDEX, entry), table(EXTRA, ByteText().u32(0x81020000).u32(0)))
                   .find(0x1000, rule))
      << "more words than there are";
  EXPECT_FALSE(ExceptionIndex(table(INDEX, entry), table(EXTRA, ByteText().u32(0x84000000).u32(0)))
                   .find(0x1000, rule))
      << "a compact form that there is not";
  EXPECT_FALSE(ExceptionIndex(table(INDEX, entry), table(EXTRA, ByteText().u32(0).u32(0x02000000)))
                   .find(0x1000, rule))
      << "more words than there are";
}
