// Walks that leave out samples: what they deliver, and that everything else is as without a filter.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataSample.h"
#include "tests/perfevents/PerfFileFixture.h"

namespace {

using perfevents::PerfEventData;
using perfevents::PerfEventDataComm;
using perfevents::PerfEventDataSample;
using perfevents::PerfRecordFileReader;
using perfevents::SampleFilter;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t TYPE_SAMPLE = 9;

class FilterListener : public perfevents::PerfEventDataListener {
 public:
  void onEventData(const PerfEventData& record) override {
    if (record.getType() == PerfEventData::Type::Sample) {
      addresses.push_back(static_cast<const PerfEventDataSample&>(record).ip());
    } else if (record.getType() == PerfEventData::Type::Comm) {
      names.push_back(static_cast<const PerfEventDataComm&>(record).comm());
    }
  }
  void onClose() override { ++closed; }

  std::vector<uint64_t> addresses;
  std::vector<std::string> names;
  int closed = 0;
};

class PerfRecordFileReaderFilterTest : public PerfFileFixture {
 protected:
  FilterListener walk(const PerfFileBuilder& builder, const SampleFilter& filter) {
    PerfRecordFileReader reader(open(builder), true);
    reader.filterSamples(filter);
    FilterListener listener;
    reader.parseEvents(listener);
    EXPECT_EQ(listener.closed, 1);
    return listener;
  }

  // Samples at 0x8000 plus each time.
  static PerfFileBuilder fileOf(const std::vector<uint64_t>& times) {
    PerfFileBuilder builder = file();
    for (const uint64_t time : times) {
      builder.sample({.ip = 0x8000 + time, .pid = 1, .tid = 1, .time = time});
      builder.comm(1, 2, "n" + std::to_string(time));
    }
    return builder;
  }

  static SampleFilter between(uint64_t from, uint64_t to) {
    return SampleFilter::byTime([=](uint64_t time) { return from <= time && time < to; });
  }
};

}  // namespace

TEST_F(PerfRecordFileReaderFilterTest, AllByDefault) {
  PerfRecordFileReader reader(open(fileOf({1, 2})), true);
  FilterListener listener;
  reader.parseEvents(listener);
  EXPECT_THAT(listener.addresses, ElementsAre(0x8001, 0x8002));
  EXPECT_THAT(walk(fileOf({1, 2}), SampleFilter::all()).addresses, ElementsAre(0x8001, 0x8002));
}

TEST_F(PerfRecordFileReaderFilterTest, NoneLeavesOutSamplesOnly) {
  const FilterListener seen = walk(fileOf({1, 2}), SampleFilter::none());
  EXPECT_THAT(seen.addresses, IsEmpty());
  EXPECT_THAT(seen.names, ElementsAre("n1", "n2"));
}

// Samples come by processor, each with its own sequence of times.
TEST_F(PerfRecordFileReaderFilterTest, ByTimeAlsoWhereTimesGoBack) {
  const FilterListener seen =
      walk(fileOf({5, 9, 4, 6, UINT64_MAX - 0x8000, 7, 8, 6}), between(5, 8));
  EXPECT_THAT(seen.addresses, ElementsAre(0x8005, 0x8006, 0x8007, 0x8006));
  EXPECT_THAT(seen.names.size(), 8U);
}

TEST_F(PerfRecordFileReaderFilterTest, TimeBehindIdentifierAddressAndThread) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().sampleType(0x10007));
  for (uint64_t time = 4; time < 7; ++time) {
    builder.record(TYPE_SAMPLE, Body().u64(5).u64(0x8000 + time).u64(5).u64(time));
  }
  EXPECT_THAT(walk(builder, between(5, 6)).addresses, ElementsAre(0x8005));
}

TEST_F(PerfRecordFileReaderFilterTest, LayoutsWithoutATimeAreDeliveredWhole) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().sampleType(0x3));
  builder.sample({.ip = 0x8000, .pid = 1, .tid = 1});
  EXPECT_THAT(walk(builder, between(5, 5)).addresses, ElementsAre(0x8000));
  EXPECT_THAT(walk(builder, SampleFilter::none()).addresses, IsEmpty());
}

// Their decoder refuses them.
TEST_F(PerfRecordFileReaderFilterTest, SamplesTooShortForATime) {
  PerfFileBuilder builder = fileOf({5});
  builder.record(TYPE_SAMPLE, Body().u64(0x8000).u64(1).u32(7).u16(0).u8(0));  // one byte missing
  builder.record(TYPE_SAMPLE, Body());
  EXPECT_THAT(walk(builder, between(0, 100)).addresses, ElementsAre(0x8005));
}

TEST_F(PerfRecordFileReaderFilterTest, EndsLikeAWholeWalk) {
  PerfFileBuilder builder = fileOf({1, 2, 3});
  builder.truncateBy(1);
  const LogCapture log;
  EXPECT_THAT(walk(builder, SampleFilter::none()).names, ElementsAre("n1", "n2"));
  EXPECT_THAT(log.messages(LOGGER, "ERROR"), ElementsAre(SHORT_READ));
}
