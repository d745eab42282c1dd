// Call frame information, instruction by instruction. Expected rules are those that DWARF 5,
// sections 6.4.1 and 6.4.2, gives the bytes; register numbers are those of x86-64.
#include <limits>

#include <gtest/gtest.h>

#include "tests/unwinding/FrameSection.h"
#include "unwinding/CallFrameTable.h"

using unwinding::CallFrameTable;
using unwinding::FrameRule;
using unwinding::Machine;
using unwinding::RegisterRule;
using Kind = RegisterRule::Kind;

namespace {

constexpr std::uint64_t START = 0x1000;
constexpr std::uint64_t SIZE = 0x100;

// As compilers begin: CFA = rsp + 8, return address at CFA - 8.
const std::vector<unsigned char> ENTRY = {0x0c, 7, 8, 0x90, 1};

bool anyCode(std::uint64_t) { return true; }

CallFrameTable tableOf(const FrameSection& section, Machine machine = Machine::X86_64,
                       bool ehFrame = false, std::uint64_t address = 0) {
  return CallFrameTable(machine,
                        ehFrame ? CallFrameTable::Form::EhFrame : CallFrameTable::Form::DebugFrame,
                        section.bytes(), address, anyCode);
}

// One function of these instructions, looked up at its last byte.
FrameRule ruleAt(const std::vector<unsigned char>& instructions,
                 std::uint64_t address = START + SIZE - 1,
                 const std::vector<unsigned char>& entry = ENTRY,
                 Machine machine = Machine::X86_64) {
  FrameSection section(false, machine == Machine::X86 || machine == Machine::Arm ? 4 : 8);
  FrameSection::Common common;
  common.instructions = entry;
  common.returnRegister = machine == Machine::Arm64 ? 30 : machine == Machine::X86 ? 8 : 16;
  section.function(section.common(common), START, SIZE, instructions);
  const CallFrameTable table = tableOf(section, machine);
  FrameRule rule;
  if (!table.find(address, rule)) {
    rule.kind = FrameRule::Kind::None;
  }
  return rule;
}

const RegisterRule* registerOf(const FrameRule& rule, unsigned number) {
  for (unsigned i = 0; i < rule.count; ++i) {
    if (rule.registers[i].number == number) {
      return &rule.registers[i];
    }
  }
  return nullptr;
}

void expectRegister(const FrameRule& rule, unsigned number, Kind kind, int value) {
  const RegisterRule* const found = registerOf(rule, number);
  ASSERT_NE(found, nullptr) << number;
  EXPECT_EQ(found->kind, kind) << number;
  EXPECT_EQ(found->value, value) << number;
}

}  // namespace

TEST(CallFrameTableTest, BeginsWithTheCommonInstructions) {
  const FrameRule rule = ruleAt({});
  EXPECT_EQ(rule.kind, FrameRule::Kind::CallFrame);
  EXPECT_FALSE(rule.cfaIsExpression);
  EXPECT_EQ(rule.cfaRegister, 7);
  EXPECT_EQ(rule.cfaValue, 8);
  EXPECT_EQ(rule.returnRegister, 16);
  EXPECT_FALSE(rule.signal);
  expectRegister(rule, 16, Kind::Offset, -8);
}

TEST(CallFrameTableTest, CoversAFunctionFromItsFirstToItsLastByte) {
  EXPECT_EQ(ruleAt({}, START - 1).kind, FrameRule::Kind::None);
  EXPECT_EQ(ruleAt({}, START).kind, FrameRule::Kind::CallFrame);
  EXPECT_EQ(ruleAt({}, START + SIZE - 1).kind, FrameRule::Kind::CallFrame);
  EXPECT_EQ(ruleAt({}, START + SIZE).kind, FrameRule::Kind::None);
}

TEST(CallFrameTableTest, StopsAtTheAddress) {
  // push %rbp; mov %rsp,%rbp; ...; leave
  const std::vector<unsigned char> code = {0x41, 0x0e, 16, 0x86, 2, 0x43, 0x0d,
                                           6,    0x02, 60, 0x0c, 7, 8};
  EXPECT_EQ(ruleAt(code, START).cfaValue, 8);
  EXPECT_EQ(registerOf(ruleAt(code, START), 6), nullptr);
  EXPECT_EQ(ruleAt(code, START + 1).cfaValue, 16);
  expectRegister(ruleAt(code, START + 1), 6, Kind::Offset, -16);
  EXPECT_EQ(ruleAt(code, START + 3).cfaRegister, 7);
  EXPECT_EQ(ruleAt(code, START + 4).cfaRegister, 6);
  EXPECT_EQ(ruleAt(code, START + 63).cfaRegister, 6);
  EXPECT_EQ(ruleAt(code, START + 64).cfaRegister, 7);
}

TEST(CallFrameTableTest, AdvancesInEachWidth) {
  for (const std::vector<unsigned char>& advance :
       {std::vector<unsigned char>{0x50},
        {0x02, 0x10},
        {0x03, 0x10, 0},
        {0x04, 0x10, 0, 0, 0},
        {0x01, 0x10, 0x10, 0, 0, 0, 0, 0, 0}}) {  // the last one names the address itself
    std::vector<unsigned char> code = advance;
    code.insert(code.end(), {0x0e, 32});
    EXPECT_EQ(ruleAt(code, START + 0x0f).cfaValue, 8) << int{advance[0]};
    EXPECT_EQ(ruleAt(code, START + 0x10).cfaValue, 32) << int{advance[0]};
  }
}

TEST(CallFrameTableTest, AdvancesByTheCodeAlignment) {
  FrameSection section(false, 8);
  FrameSection::Common common;
  common.codeAlignment = 4;
  common.instructions = ENTRY;
  section.function(section.common(common), START, SIZE, {0x42, 0x0e, 32});
  const CallFrameTable table = tableOf(section);
  FrameRule rule;
  ASSERT_TRUE(table.find(START + 7, rule));
  EXPECT_EQ(rule.cfaValue, 8);
  ASSERT_TRUE(table.find(START + 8, rule));
  EXPECT_EQ(rule.cfaValue, 32);
}

TEST(CallFrameTableTest, DefinesTheCfaInEachWay) {
  EXPECT_EQ(ruleAt({0x0c, 6, 24}).cfaRegister, 6);
  EXPECT_EQ(ruleAt({0x0c, 6, 24}).cfaValue, 24);
  EXPECT_EQ(ruleAt({0x0d, 10}).cfaRegister, 10);
  EXPECT_EQ(ruleAt({0x0d, 10}).cfaValue, 8);
  EXPECT_EQ(ruleAt({0x0e, 0x80, 1}).cfaValue, 128);
  EXPECT_EQ(ruleAt({0x12, 6, 0x7e}).cfaValue, 16);  // -2 times -8
  EXPECT_EQ(ruleAt({0x13, 0x7d}).cfaValue, 24);
  const FrameRule rule = ruleAt({0x0f, 2, 0x77, 0});
  EXPECT_TRUE(rule.cfaIsExpression);
  ASSERT_LT(static_cast<std::size_t>(rule.cfaValue) + 1, std::size_t{100});
}

TEST(CallFrameTableTest, AnExpressionIsFoundInTheSection) {
  FrameSection section(false, 8);
  FrameSection::Common common;
  common.instructions = ENTRY;
  section.function(section.common(common), START, SIZE, {0x0f, 2, 0x77, 9, 0x10, 3, 1, 0x33});
  const CallFrameTable table = tableOf(section);
  FrameRule rule;
  ASSERT_TRUE(table.find(START, rule));
  EXPECT_EQ(rule.table, &table);
  const auto at = static_cast<std::size_t>(rule.cfaValue);
  EXPECT_EQ(table.section()[at], 2);
  EXPECT_EQ(table.section()[at + 1], 0x77);
  const RegisterRule* const rbx = registerOf(rule, 3);
  ASSERT_NE(rbx, nullptr);
  EXPECT_EQ(rbx->kind, Kind::Expression);
  EXPECT_EQ(table.section()[static_cast<std::size_t>(rbx->value) + 1], 0x33);
}

TEST(CallFrameTableTest, RulesARegisterInEachWay) {
  expectRegister(ruleAt({0x83, 3}), 3, Kind::Offset, -24);
  expectRegister(ruleAt({0x05, 3, 3}), 3, Kind::Offset, -24);
  expectRegister(ruleAt({0x11, 3, 0x7f}), 3, Kind::Offset, 8);
  expectRegister(ruleAt({0x2f, 3, 2}), 3, Kind::Offset, 16);
  expectRegister(ruleAt({0x14, 3, 2}), 3, Kind::ValueOffset, -16);
  expectRegister(ruleAt({0x15, 3, 0x7e}), 3, Kind::ValueOffset, 16);
  expectRegister(ruleAt({0x09, 3, 12}), 3, Kind::Register, 12);
  expectRegister(ruleAt({0x07, 3}), 3, Kind::Undefined, 0);
  EXPECT_EQ(registerOf(ruleAt({0x83, 3, 0x08, 3}), 3), nullptr);
  EXPECT_EQ(registerOf(ruleAt({0x16, 3, 1, 0x30}), 3)->kind, Kind::ValueExpression);
}

TEST(CallFrameTableTest, RestoresWhatTheCommonPartSaid) {
  const std::vector<unsigned char> entry = {0x0c, 7, 8, 0x90, 1, 0x83, 2};
  expectRegister(ruleAt({0x83, 5, 0xc3}, START, entry), 3, Kind::Offset, -16);
  expectRegister(ruleAt({0x83, 5, 0x06, 3}, START, entry), 3, Kind::Offset, -16);
  EXPECT_EQ(registerOf(ruleAt({0x86, 5, 0xc6}, START, entry), 6), nullptr);
}

TEST(CallFrameTableTest, RemembersTheCfaAsWell) {
  const FrameRule rule = ruleAt({0x83, 3, 0x0e, 64, 0x0a, 0x0e, 8, 0xc3, 0x0b});
  EXPECT_EQ(rule.cfaValue, 64);
  expectRegister(rule, 3, Kind::Offset, -24);
}

TEST(CallFrameTableTest, AnUndefinedReturnAddressIsTheEnd) {
  EXPECT_EQ(ruleAt({0x07, 16}).kind, FrameRule::Kind::Outermost);
  EXPECT_EQ(ruleAt({0x07, 3}).kind, FrameRule::Kind::CallFrame);
}

TEST(CallFrameTableTest, ASignedReturnAddressIsTold) {
  const std::vector<unsigned char> entry = {0x0c, 31, 0};
  EXPECT_TRUE(ruleAt({0x2d}, START, entry, Machine::Arm64).signedReturn);
  EXPECT_FALSE(ruleAt({0x2d, 0x41, 0x2d}, START + 1, entry, Machine::Arm64).signedReturn);
  EXPECT_EQ(ruleAt({0x2d}).kind, FrameRule::Kind::None);  // elsewhere it is SPARC's
}

TEST(CallFrameTableTest, RegistersThatAreNotKeptDoNotHurt) {
  const FrameRule rule = ruleAt({0x05, 0x80, 2, 1, 0x91, 4, 0x07, 33, 0x0e, 48});
  EXPECT_EQ(rule.cfaValue, 48);
  EXPECT_EQ(rule.count, 1);
}

TEST(CallFrameTableTest, BrokenInstructionsGiveNoRule) {
  EXPECT_EQ(ruleAt({0x0e}).kind, FrameRule::Kind::None) << "cut off";
  EXPECT_EQ(ruleAt({0x3f}).kind, FrameRule::Kind::None) << "unknown";
  EXPECT_EQ(ruleAt({0x0b}).kind, FrameRule::Kind::None) << "nothing remembered";
  EXPECT_EQ(ruleAt({0x0f, 100, 0x30}).kind, FrameRule::Kind::None) << "longer than the section";
  EXPECT_EQ(ruleAt({}, START, {}).kind, FrameRule::Kind::None) << "no CFA";
  EXPECT_EQ(ruleAt({}, START, {0x0c, 7, 8, 0xc3}).kind, FrameRule::Kind::None)
      << "restores before anything is common";
  EXPECT_EQ(ruleAt({0x0e, 0xff, 0xff, 0xff, 0xff, 0x7f}).kind, FrameRule::Kind::None)
      << "an offset of 2^35";
}

TEST(CallFrameTableTest, MemoryOfRememberedStatesIsBounded) {
  EXPECT_EQ(ruleAt(std::vector<unsigned char>(64, 0x0a)).kind, FrameRule::Kind::CallFrame);
  EXPECT_EQ(ruleAt(std::vector<unsigned char>(65, 0x0a)).kind, FrameRule::Kind::None);
}

TEST(CallFrameTableTest, ReadsTheAugmentation) {
  FrameSection section(true, 8, 0x5000);
  FrameSection::Common common;
  common.augmentation = "zPLR";  // personality, language data, pointers relative in 32 bits
  common.augmentationData = {0x9b, 1, 2, 3, 4, 0x1b, 0x1b};
  common.instructions = ENTRY;
  section.function(section.common(common), START, SIZE, {0x0e, 32}, true, true);
  common.augmentation = "zRS";
  common.augmentationData = {0x1b};
  section.function(section.common(common), START + SIZE, SIZE, {}, true, true);
  const CallFrameTable table = tableOf(section, Machine::X86_64, true, 0x5000);
  ASSERT_EQ(table.starts(), (std::vector<std::uint64_t>{START, START + SIZE}));
  FrameRule rule;
  ASSERT_TRUE(table.find(START, rule));
  EXPECT_EQ(rule.cfaValue, 32);
  EXPECT_FALSE(rule.signal);
  ASSERT_TRUE(table.find(START + SIZE, rule));
  EXPECT_TRUE(rule.signal);
}

TEST(CallFrameTableTest, ReadsEachVersion) {
  for (const unsigned version : {1u, 3u, 4u}) {
    FrameSection section(false, 8);
    FrameSection::Common common;
    common.version = version;
    common.instructions = ENTRY;
    section.function(section.common(common), START, SIZE, {});
    EXPECT_EQ(tableOf(section).entries(), 1u) << version;
  }
  FrameSection section(false, 8);
  FrameSection::Common common;
  common.version = 2;
  common.instructions = ENTRY;
  section.function(section.common(common), START, SIZE, {});
  EXPECT_EQ(tableOf(section).entries(), 0u);
}

TEST(CallFrameTableTest, Addresses32BitsWide) {
  FrameSection section(true, 4, 0xfffff000);
  FrameSection::Common common;
  common.augmentation = "zR";
  common.augmentationData = {0x1b};
  common.returnRegister = 8;
  common.dataAlignment = 0x7c;
  common.instructions = {0x0c, 4, 4, 0x88, 1};
  section.function(section.common(common), START, SIZE, {}, true, true);  // wraps around
  const CallFrameTable table = tableOf(section, Machine::X86, true, 0xfffff000);
  FrameRule rule;
  ASSERT_TRUE(table.find(START, rule));
  expectRegister(rule, 8, Kind::Offset, -4);
}

TEST(CallFrameTableTest, SkipsZeroWordsAndWhatIsBroken) {
  FrameSection section(true, 8);
  FrameSection::Common common;
  common.instructions = ENTRY;
  const std::size_t first = section.common(common);
  section.raw(ByteText().u32(0)).function(first, START, SIZE, {});
  section.raw(ByteText().u32(4).u32(0x7777));  // refers to nothing
  section.raw(ByteText().u32(2).u16(0));       // too short
  section.function(first, START + SIZE, SIZE, {});
  section.raw(ByteText().u32(0xfffffff0).u32(0));  // longer than the section
  EXPECT_EQ(tableOf(section, Machine::X86_64, true).starts(),
            (std::vector<std::uint64_t>{START, START + SIZE}));
}

TEST(CallFrameTableTest, EntriesNeedNotBeInOrder) {
  FrameSection section(false, 8);
  FrameSection::Common common;
  common.instructions = ENTRY;
  const std::size_t first = section.common(common);
  section.function(first, START + SIZE, SIZE, {0x0e, 32}).function(first, START, SIZE, {0x0e, 16});
  FrameRule rule;
  ASSERT_TRUE(tableOf(section).find(START + 1, rule));
  EXPECT_EQ(rule.cfaValue, 16);
}

TEST(CallFrameTableTest, WhatALinkerDroppedIsLeftOut) {
  FrameSection section(false, 8);
  FrameSection::Common common;
  common.instructions = ENTRY;
  const std::size_t first = section.common(common);
  section.function(first, 0, 0x10000, {}).function(first, START, SIZE, {0x0e, 16});
  const CallFrameTable table(Machine::X86_64, CallFrameTable::Form::DebugFrame, section.bytes(), 0,
                             [](std::uint64_t address) { return address >= START; });
  EXPECT_EQ(table.starts(), std::vector<std::uint64_t>{START});
}

TEST(CallFrameTableTest, Sections64BitsWide) {
  FrameSection section(false, 8);
  ByteText common;
  common.u8(1).text("").u8(1).u8(0x78).u8(16).bytes(ENTRY);
  section.raw(ByteText().u32(0xffffffff).u64(8 + common.size()).u64(~0ull).bytes(common.all()));
  section.raw(ByteText().u32(0xffffffff).u64(24).u64(0).u64(START).u64(SIZE));
  FrameRule rule;
  EXPECT_TRUE(tableOf(section).find(START, rule));
}
