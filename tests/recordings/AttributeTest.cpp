#include <string>

#include <gtest/gtest.h>

#include "recordings/Attribute.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/Fields.h"

using recordings::Attribute;
using recordings::ByteOrder;

namespace {

// Every field of struct perf_event_attr with a value of its own, up to sample_regs_intr.
made::Fields attribute(uint32_t size) {
  made::Fields fields;
  fields.u32(1).u32(size).u64(0x11).u64(0x22).u64(0x33).u64(0x44);
  fields.bitFlags(uint64_t{1} << 10 | uint64_t{1} << 18 | uint64_t{1} << 25);
  fields.u32(0x55).u32(0x66).u64(0x77);             // wakeup, breakpoint: 64 bytes
  fields.u64(0x88).u64(0x99).u64(0xaa);             // bp_len, branch_sample_type, regs_user
  fields.u32(0xbb).u32(static_cast<uint32_t>(-2));  // stack_user, clockid: 96 bytes
  fields.u64(0xcc);                                 // regs_intr: 104 bytes
  return fields;
}

}  // namespace

TEST(AttributeTest, EveryFieldStandsAtItsOffset) {
  for (const auto& [order, made] : {std::pair(ByteOrder::NATIVE, made::ByteOrder::LITTLE),
                                    std::pair(ByteOrder::FOREIGN, made::ByteOrder::BIG)}) {
    const std::string bytes = attribute(104).in(made);
    ASSERT_EQ(bytes.size(), 104u);
    const Attribute read = Attribute::decode(asBytes(bytes), order);
    EXPECT_EQ(read.type, 1u);
    EXPECT_EQ(read.config, 0x11u);
    EXPECT_EQ(read.period, 0x22u);
    EXPECT_EQ(read.sampleType, 0x33u);
    EXPECT_EQ(read.readFormat, 0x44u);
    EXPECT_TRUE(read.has(recordings::abi::FLAG_FREQUENCY));
    EXPECT_TRUE(read.has(recordings::abi::FLAG_SAMPLE_ID_ALL));
    EXPECT_TRUE(read.has(recordings::abi::FLAG_USE_CLOCKID));
    EXPECT_FALSE(read.has(recordings::abi::FLAG_COMM_EXEC));
    EXPECT_EQ(read.branchSampleType, 0x99u);
    EXPECT_EQ(read.sampleRegsUser, 0xaau);
    EXPECT_EQ(read.sampleStackUser, 0xbbu);
    EXPECT_EQ(read.clockId, -2);
    EXPECT_EQ(read.sampleRegsIntr, 0xccu);
  }
}

TEST(AttributeTest, WhatTheKernelDidNotKnowIsZero) {
  const std::string bytes = attribute(104).in(made::ByteOrder::LITTLE);
  const auto cut = [&](std::size_t size) {
    return Attribute::decode(asBytes(bytes).first(size), ByteOrder::NATIVE);
  };
  EXPECT_EQ(cut(72).branchSampleType, 0u);
  EXPECT_EQ(cut(80).branchSampleType, 0x99u);
  EXPECT_EQ(cut(80).sampleRegsUser, 0u);
  EXPECT_EQ(cut(96).sampleRegsUser, 0xaau);
  EXPECT_EQ(cut(96).sampleRegsIntr, 0u);
}

// What stands behind the attribute's own size is not its own: ids, or padding.
TEST(AttributeTest, TheOwnSizeCountsWhereItIsSmaller) {
  for (const uint32_t size : {uint32_t{0}, uint32_t{64}}) {
    const std::string bytes = attribute(size).in(made::ByteOrder::LITTLE);
    const Attribute read = Attribute::decode(asBytes(bytes), ByteOrder::NATIVE);
    EXPECT_EQ(read.readFormat, 0x44u);
    EXPECT_EQ(read.branchSampleType, 0u);
    EXPECT_EQ(read.sampleRegsIntr, 0u);
  }
}

TEST(AttributeTest, ALargerOneThanAnyKernelsIsReadAsFarAsItIsKnown) {
  const std::string bytes = attribute(4096).zeros(4096 - 104).in(made::ByteOrder::LITTLE);
  EXPECT_EQ(Attribute::decode(asBytes(bytes), ByteOrder::NATIVE).sampleRegsIntr, 0xccu);
}

TEST(AttributeTest, ADummyCarriesSideRecordsOnly) {
  Attribute attribute;
  attribute.type = 1;
  attribute.config = 9;
  EXPECT_TRUE(attribute.isDummy());
  attribute.type = 0;
  EXPECT_FALSE(attribute.isDummy());
}
