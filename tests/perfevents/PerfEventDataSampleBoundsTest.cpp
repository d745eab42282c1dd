// Samples that end too early, or whose counts point past their end.
#include <cstdint>
#include <linux/perf_event.h>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/perfevents/SampleSupport.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventDataSample;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// A sample is never cut where it ends exactly, and always one byte earlier.
void expectExactFit(uint64_t sampleType, const SampleFields& fields) {
  const std::string body = sampleBody(sampleType, fields);
  Sample sample(sampleType);
  EXPECT_FALSE(sample.parse(body.substr(0, body.size() - 1)));
  EXPECT_EQ(sample.record.ip(), ALL_ONES_64);
  EXPECT_TRUE(sample.parse(body));
  EXPECT_TRUE(sample.parse(body + "trailing"));
}

TEST(PerfEventDataSampleBoundsTest, LayoutsEndExactlyAtTheirLastByte) {
  expectExactFit(COMMON_WITH_ID, FIELDS);
  expectExactFit(COMMON_WITHOUT_ID, FIELDS);
  expectExactFit(COMMON_WITH_PERIOD, FIELDS);
  expectExactFit(0x7, FIELDS);
  expectExactFit(EVERYTHING, FIELDS);
  expectExactFit(EVERYTHING | 0x10000, FIELDS);
}

TEST(PerfEventDataSampleBoundsTest, GroupCountIsTheLowHalfOfItsWord) {
  Sample sample(Attr().sampleType(PERF_SAMPLE_READ).readFormat(0xC));
  EXPECT_TRUE(sample.parse(Body().u64(0x1'0000'0002).zeros(32).str()));
  EXPECT_EQ(sample.record.readData().size(), 40U);
  EXPECT_TRUE(sample.parse(Body().u64(0xFFFFFFFF'00000000).str()));
  EXPECT_EQ(sample.record.readData().size(), 8U);
}

TEST(PerfEventDataSampleBoundsTest, GroupCountBeyondTheEndIsRefused) {
  Sample sample(Attr().sampleType(PERF_SAMPLE_READ).readFormat(0xC));
  EXPECT_TRUE(sample.parse(Body().u64(2).zeros(32).str()));
  EXPECT_FALSE(sample.parse(Body().u64(2).zeros(31).str()));
  // Counts whose size in bytes is zero or small in 32 bits.
  for (const uint64_t count : {0x10000000U, 0x10000001U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(sample.parse(Body().u64(count).zeros(32).str())) << count;
  }
}

TEST(PerfEventDataSampleBoundsTest, CallchainNeedsRoomForOneAddressEvenWhenEmpty) {
  Sample sample(PERF_SAMPLE_CALLCHAIN);
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 16U);
  EXPECT_FALSE(sample.parse(callchainBody(0, {})));
  EXPECT_FALSE(sample.parse(callchainBody(0, {}) + std::string(7, 'x')));
  EXPECT_TRUE(sample.parse(callchainBody(0, {}) + std::string(8, 'x')));
}

TEST(PerfEventDataSampleBoundsTest, EmptyCallchainConsumesOnlyItsCount) {
  Sample sample(PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_RAW);
  EXPECT_TRUE(sample.parse(Body().u64(0).u32(8).bytes("8 bytes.").str()));
  EXPECT_EQ(bytesOf(sample.record.rawData()), "8 bytes.");
}

TEST(PerfEventDataSampleBoundsTest, CallchainCountIsTheLowHalfOfItsWord) {
  Sample sample(PERF_SAMPLE_CALLCHAIN);
  EXPECT_TRUE(sample.parse(callchainBody(0x1'0000'0002, {1, 2})));
  EXPECT_THAT(sample.record.callchain(), ElementsAre(1, 2));
}

TEST(PerfEventDataSampleBoundsTest, CallchainCountBeyondTheEndIsRefused) {
  Sample sample(PERF_SAMPLE_CALLCHAIN);
  EXPECT_TRUE(sample.parse(callchainBody(2, {1, 2})));
  EXPECT_FALSE(sample.parse(callchainBody(2, {1}) + std::string(7, 'x')));
  EXPECT_FALSE(sample.parse(callchainBody(3, {1, 2})));
  // Counts whose size in bytes is zero or small in 32 bits.
  for (const uint64_t count : {0x1FFFFFFFU, 0x20000000U, 0x20000001U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(sample.parse(callchainBody(count, {1, 2}))) << count;
  }
  EXPECT_THAT(sample.record.callchain(), ElementsAre(1, 2));
}

TEST(PerfEventDataSampleBoundsTest, CallchainThatLeavesNoRoomForTheRawSizeIsRefused) {
  Sample sample(PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_RAW);
  EXPECT_TRUE(sample.parse(callchainBody(2, {1, 2}) + Body().u32(0).str()));
  EXPECT_FALSE(sample.parse(callchainBody(2, {1, 2})));
  EXPECT_FALSE(sample.parse(callchainBody(2, {1, 2}) + std::string(3, '\0')));
}

TEST(PerfEventDataSampleBoundsTest, RawSizeBeyondTheEndIsRefused) {
  Sample sample(PERF_SAMPLE_RAW);
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 4U);
  EXPECT_TRUE(sample.parse(Body().u32(3).bytes("abc").str()));
  EXPECT_FALSE(sample.parse(Body().u32(4).bytes("abc").str()));
  for (const uint32_t size : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFCU, 0xFFFFFFFFU}) {
    EXPECT_FALSE(sample.parse(Body().u32(size).bytes("abc").str())) << size;
  }
  EXPECT_TRUE(sample.parse(Body().u32(0).str()));
  EXPECT_EQ(sample.record.rawData().size(), 0U);
}

TEST(PerfEventDataSampleBoundsTest, RawSizeOneBeyondTheEndIsRefusedInEveryCommonLayout) {
  for (const uint64_t layout : {COMMON_WITH_ID, COMMON_WITHOUT_ID, COMMON_WITH_PERIOD}) {
    SampleFields fields = FIELDS;
    fields.raw.clear();
    std::string body = sampleBody(layout, fields);
    body[body.size() - 4] = 1;  // the raw size
    Sample sample(layout);
    EXPECT_FALSE(sample.parse(body)) << layout;
    EXPECT_TRUE(sample.parse(body + "x")) << layout;
  }
}

TEST(PerfEventDataSampleBoundsTest, RefusedSampleLeavesEveryFieldAndTheMiscFlags) {
  Sample sample(EVERYTHING);
  const PerfEventDataSample& record = sample.record;
  const BodyView view(sampleBody(EVERYTHING, FIELDS));
  ASSERT_TRUE(sample.record.parse(view, 2));

  const SampleFields others = {.readBlock = std::string(8, 'y'), .callchain = {9}, .raw = "other"};
  std::string body = sampleBody(EVERYTHING, others);
  body.pop_back();
  EXPECT_FALSE(sample.parse(body, 1));
  EXPECT_EQ(record.misc(), 2U);
  expectFields(sample.record, EVERYTHING, FIELDS);
  EXPECT_EQ(record.readData().data(), view.data() + 64);
  EXPECT_EQ(record.readData().size(), 8U);
  EXPECT_THAT(record.callchain(), ElementsAreArray(FIELDS.callchain));
  EXPECT_EQ(bytesOf(record.rawData()), "raw!");
}

TEST(PerfEventDataSampleBoundsTest, RefusalsAreSilent) {
  Sample sample(COMMON_WITH_ID);
  const LogCapture log;
  EXPECT_FALSE(sample.parse(std::string(43, '\0')));
  EXPECT_FALSE(sample.parse(std::string(44, '\x01')));
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
