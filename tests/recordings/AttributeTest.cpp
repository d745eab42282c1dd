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
    ASSERT_EQ(104u, bytes.size());
    const Attribute read = Attribute::decode(asBytes(bytes), order);
    EXPECT_EQ(1u, read.type);
    EXPECT_EQ(0x11u, read.config);
    EXPECT_EQ(0x22u, read.period);
    EXPECT_EQ(0x33u, read.sampleType);
    EXPECT_EQ(0x44u, read.readFormat);
    EXPECT_TRUE(read.has(recordings::abi::FLAG_FREQUENCY));
    EXPECT_TRUE(read.has(recordings::abi::FLAG_SAMPLE_ID_ALL));
    EXPECT_TRUE(read.has(recordings::abi::FLAG_USE_CLOCKID));
    EXPECT_FALSE(read.has(recordings::abi::FLAG_COMM_EXEC));
    EXPECT_EQ(0x99u, read.branchSampleType);
    EXPECT_EQ(0xaau, read.sampleRegsUser);
    EXPECT_EQ(0xbbu, read.sampleStackUser);
    EXPECT_EQ(-2, read.clockId);
    EXPECT_EQ(0xccu, read.sampleRegsIntr);
  }
}

TEST(AttributeTest, WhatTheKernelDidNotKnowIsZero) {
  const std::string bytes = attribute(104).in(made::ByteOrder::LITTLE);
  const auto cut = [&](std::size_t size) {
    return Attribute::decode(asBytes(bytes).first(size), ByteOrder::NATIVE);
  };
  EXPECT_EQ(0u, cut(72).branchSampleType);
  EXPECT_EQ(0x99u, cut(80).branchSampleType);
  EXPECT_EQ(0u, cut(80).sampleRegsUser);
  EXPECT_EQ(0xaau, cut(96).sampleRegsUser);
  EXPECT_EQ(0u, cut(96).sampleRegsIntr);
}

// What stands behind the attribute's own size is not its own: ids, or padding.
TEST(AttributeTest, TheOwnSizeCountsWhereItIsSmaller) {
  for (const uint32_t size : {uint32_t{0}, uint32_t{64}}) {
    const std::string bytes = attribute(size).in(made::ByteOrder::LITTLE);
    const Attribute read = Attribute::decode(asBytes(bytes), ByteOrder::NATIVE);
    EXPECT_EQ(0x44u, read.readFormat);
    EXPECT_EQ(0u, read.branchSampleType);
    EXPECT_EQ(0u, read.sampleRegsIntr);
  }
}

TEST(AttributeTest, ALargerOneThanAnyKernelsIsReadAsFarAsItIsKnown) {
  const std::string bytes = attribute(4096).zeros(4096 - 104).in(made::ByteOrder::LITTLE);
  EXPECT_EQ(0xccu, Attribute::decode(asBytes(bytes), ByteOrder::NATIVE).sampleRegsIntr);
}

TEST(AttributeTest, ADummyCarriesSideRecordsOnly) {
  Attribute attribute;
  attribute.type = 1;
  attribute.config = 9;
  EXPECT_TRUE(attribute.isDummy());
  attribute.type = 0;
  EXPECT_FALSE(attribute.isDummy());
}
