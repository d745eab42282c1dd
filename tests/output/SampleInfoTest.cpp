#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "output/SampleInfo.h"
#include "perfevents/PerfEventDataSample.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t ALL_ONES = 0xFFFFFFFFFFFFFFFF;

// PERF_SAMPLE_*
constexpr uint64_t IP = 0x1;
constexpr uint64_t TID = 0x2;
constexpr uint64_t TIME = 0x4;
constexpr uint64_t CALLCHAIN = 0x20;
constexpr uint64_t CPU = 0x80;
constexpr uint64_t RAW = 0x400;
constexpr uint64_t WHOLE = IP | TID | TIME | CALLCHAIN | CPU | RAW;

// 1, 2, 3 and so on.
std::vector<uint64_t> chainOf(uint64_t entries) {
  std::vector<uint64_t> chain;
  for (uint64_t i = 1; i <= entries; ++i) {
    chain.push_back(i);
  }
  return chain;
}

class SampleInfoTest : public testing::Test {
 protected:
  SampleInfoTest() { makeModelAnew(); }

  void copy(SampleFields fields, uint64_t sampleType = WHOLE) {
    fields.raw = "12345678";  // a record with an empty call chain and little else is too short
    info.copy(sampleRecord(sampleType, fields));
  }
  std::vector<uint64_t> backtraceOf(uint64_t entries) {
    copy({.ip = 0x8010, .callchain = chainOf(entries)});
    return info.backtrace;
  }
  PerfSettings& settings() { return *kestrel::Singleton<PerfSettings>::Instance(); }

  SampleInfo info;
};

TEST_F(SampleInfoTest, FreshInfoIsZero) {
  EXPECT_EQ(info.time, 0.0);
  EXPECT_EQ(info.ip, 0u);
  EXPECT_EQ(info.pid, 0u);
  EXPECT_EQ(info.tid, 0u);
  EXPECT_EQ(info.cpu, 0u);
  EXPECT_THAT(info.backtrace, IsEmpty());
}

TEST_F(SampleInfoTest, CopyOfARecordTakesItsValues) {
  copy({.ip = 0x123456789ABCDEF0,
        .pid = 0xFFFFFFFE,
        .tid = 0xFFFFFFFD,
        .time = 2'500'000'000,
        .cpu = 3,
        .res = 9,
        .callchain = {0x10, 0x20, ALL_ONES, 0}});
  EXPECT_EQ(info.ip, 0x123456789ABCDEF0u);
  EXPECT_EQ(info.pid, 0xFFFFFFFEu);
  EXPECT_EQ(info.tid, 0xFFFFFFFDu);
  EXPECT_EQ(info.time, 2.5);
  EXPECT_EQ(info.cpu, 3u);
  EXPECT_THAT(info.backtrace, ElementsAre(0x20, ALL_ONES, 0));
}

TEST_F(SampleInfoTest, TimeIsNanosecondsOverABillionAsADouble) {
  copy({.ip = 1, .time = 1});
  EXPECT_EQ(info.time, 1e-9);
  copy({.ip = 1, .time = 1234567890123456789});
  EXPECT_EQ(info.time, 1234567890123456789.0 / 1e9);
  copy({.ip = 1, .time = ALL_ONES});
  EXPECT_EQ(info.time, 18446744073709551615.0 / 1e9);
}

TEST_F(SampleInfoTest, SampleWithAnIpOfAllOnesIsAllZero) {
  copy({.ip = 1, .pid = 2, .tid = 3, .time = 4, .cpu = 5, .callchain = chainOf(3)});
  copy({.ip = ALL_ONES, .pid = 2, .tid = 3, .time = 4, .cpu = 5, .callchain = chainOf(3)});
  EXPECT_EQ(info.ip, 0u);
  EXPECT_EQ(info.pid, 0u);
  EXPECT_EQ(info.tid, 0u);
  EXPECT_EQ(info.time, 0.0);
  EXPECT_EQ(info.cpu, 0u);
  EXPECT_THAT(info.backtrace, IsEmpty());
}

TEST_F(SampleInfoTest, SampleWhoseLayoutHasNoIpIsAllZero) {
  copy({.pid = 2, .tid = 3, .time = 4, .cpu = 5, .callchain = chainOf(3)}, WHOLE & ~IP);
  EXPECT_EQ(info.ip, 0u);
  EXPECT_EQ(info.pid, 0u);
  EXPECT_EQ(info.tid, 0u);
  EXPECT_EQ(info.time, 0.0);
  EXPECT_EQ(info.cpu, 0u);
  EXPECT_THAT(info.backtrace, IsEmpty());
}

TEST_F(SampleInfoTest, IpJustBelowAllOnesIsASample) {
  copy({.ip = ALL_ONES - 1, .pid = 2});
  EXPECT_EQ(info.ip, ALL_ONES - 1);
  EXPECT_EQ(info.pid, 2u);
}

TEST_F(SampleInfoTest, SampleWithIpZeroKeepsItsOtherValues) {
  copy({.ip = 0, .pid = 2, .tid = 3, .time = 1'000'000'000, .cpu = 5});
  EXPECT_EQ(info.ip, 0u);
  EXPECT_EQ(info.pid, 2u);
  EXPECT_EQ(info.tid, 3u);
  EXPECT_EQ(info.time, 1.0);
  EXPECT_EQ(info.cpu, 5u);
}

TEST_F(SampleInfoTest, PartsThatTheLayoutDoesNotHaveAreTheRecordsDefaults) {
  copy({.ip = 1}, IP);
  EXPECT_EQ(info.ip, 1u);
  EXPECT_EQ(info.pid, 0xFFFFFFFFu);
  EXPECT_EQ(info.tid, 0xFFFFFFFFu);
  EXPECT_EQ(info.cpu, 0xFFFFFFFFu);
  EXPECT_EQ(info.time, 0.0);
  EXPECT_THAT(info.backtrace, IsEmpty());
}

TEST_F(SampleInfoTest, CallChainOf40EntriesYields16WithoutTheFirst) {
  EXPECT_THAT(backtraceOf(40), ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17));
}

TEST_F(SampleInfoTest, CallChainsAroundTheLimit) {
  EXPECT_EQ(backtraceOf(16).size(), 15u);
  EXPECT_EQ(backtraceOf(17).size(), 16u);
  EXPECT_EQ(backtraceOf(18).size(), 16u);
}

TEST_F(SampleInfoTest, CallChainOfOneEntryYieldsAnEmptyBacktrace) {
  EXPECT_THAT(backtraceOf(1), IsEmpty());
}

TEST_F(SampleInfoTest, EmptyCallChainYieldsAnEmptyBacktrace) {
  EXPECT_THAT(backtraceOf(0), IsEmpty());
}

TEST_F(SampleInfoTest, CallChainOfTwoEntriesYieldsTheSecond) {
  EXPECT_THAT(backtraceOf(2), ElementsAre(2));
}

TEST_F(SampleInfoTest, LimitOfOneKeepsTheSecondEntryOnly) {
  settings().maxBackTrace = 1;
  EXPECT_THAT(backtraceOf(5), ElementsAre(2));
}

TEST_F(SampleInfoTest, LimitOfZeroKeepsNothing) {
  settings().maxBackTrace = 0;
  EXPECT_THAT(backtraceOf(5), IsEmpty());
}

TEST_F(SampleInfoTest, LimitOfZeroEmptiesAnEarlierBacktrace) {
  ASSERT_EQ(backtraceOf(5).size(), 4u);
  settings().maxBackTrace = 0;
  EXPECT_THAT(backtraceOf(5), IsEmpty());
}

TEST_F(SampleInfoTest, LargestLimitKeepsEverythingButTheFirst) {
  settings().maxBackTrace = 0xFFFFFFFF;
  EXPECT_EQ(backtraceOf(100).size(), 99u);
}

TEST_F(SampleInfoTest, BacktraceReplacesTheEarlierOne) {
  backtraceOf(10);
  copy({.ip = 1, .callchain = {7, 8}});
  EXPECT_THAT(info.backtrace, ElementsAre(8));
  copy({.ip = 1}, IP);
  EXPECT_THAT(info.backtrace, IsEmpty());
}

TEST_F(SampleInfoTest, CopyOfAnInfoTakesEveryMember) {
  copy({.ip = 1, .pid = 2, .tid = 3, .time = 4'000'000'000, .cpu = 5, .callchain = chainOf(3)});
  settings().maxBackTrace = 0;  // no matter to this copy
  SampleInfo other;
  other.copy(info);
  EXPECT_EQ(other.ip, 1u);
  EXPECT_EQ(other.pid, 2u);
  EXPECT_EQ(other.tid, 3u);
  EXPECT_EQ(other.time, 4.0);
  EXPECT_EQ(other.cpu, 5u);
  EXPECT_THAT(other.backtrace, ElementsAre(2, 3));
}

}  // namespace
