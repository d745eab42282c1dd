// How a sample is read in each layout.
#include <cstdint>
#include <linux/perf_event.h>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataSample.h"
#include "tests/perfevents/SampleSupport.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventData;
using perfevents::PerfEventDataSample;
using perfevents::PerfEventDataSampleAncillary;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const LogLine UNCOMMON = {"INFO", "PerfEventDataSample",
                          "PERF_RECORD_SAMPLE format is not a common format.  Will use dynamically "
                          "created parser."};

TEST(PerfEventDataSampleTest, DefaultsBeforeTheFirstSample) {
  const Sample sample(EVERYTHING | 0x10000);
  const PerfEventDataSample& record = sample.record;
  EXPECT_EQ(record.getType(), PerfEventData::Type::Sample);
  expectFields(record, 0, {});
  EXPECT_EQ(record.readData().data(), nullptr);
  EXPECT_EQ(record.rawData().data(), nullptr);
  EXPECT_EQ(record.misc(), 0U);
}

TEST(PerfEventDataSampleTest, CommonLayoutWithId) {
  const LogCapture log;
  Sample sample(COMMON_WITH_ID);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{"DEBUG", "PerfEventDataSample",
                                  "PERF_RECORD_SAMPLE format is common (to perf record) and "
                                  "includes the ID."}));
  const PerfEventDataSample& record = sample.record;
  EXPECT_EQ(record.getRequiredMinimumSize(), 44U);

  SampleFields fields = FIELDS;
  fields.raw.clear();
  const std::string body = sampleBody(COMMON_WITH_ID, fields);
  ASSERT_EQ(body.size(), 44U);
  EXPECT_FALSE(sample.parse(body.substr(0, 43), 2));
  EXPECT_EQ(record.misc(), 0U);
  EXPECT_TRUE(sample.parse(body, 2));
  EXPECT_EQ(record.misc(), 2U);
  expectFields(sample.record, COMMON_WITH_ID, fields);
  EXPECT_THAT(record.callchain(), IsEmpty());
  EXPECT_EQ(record.rawData().size(), 0U);
}

TEST(PerfEventDataSampleTest, CommonLayoutWithoutId) {
  const LogCapture log;
  Sample sample(COMMON_WITHOUT_ID);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{"DEBUG", "PerfEventDataSample",
                                  "PERF_RECORD_SAMPLE format is common (to perf record) and but "
                                  "excludes ID."}));
  const PerfEventDataSample& record = sample.record;
  EXPECT_EQ(record.getRequiredMinimumSize(), 36U);

  const std::string body = sampleBody(COMMON_WITHOUT_ID, FIELDS);
  ASSERT_EQ(body.size(), 40U);
  EXPECT_TRUE(sample.parse(body));
  expectFields(sample.record, COMMON_WITHOUT_ID, FIELDS);
  EXPECT_EQ(record.rawData().size(), 4U);
}

TEST(PerfEventDataSampleTest, CommonLayoutWithPeriodAndCallchain) {
  const LogCapture log;
  Sample sample(COMMON_WITH_PERIOD);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{"DEBUG", "PerfEventDataSample",
                                  "PERF_RECORD_SAMPLE format is common (to perf record) and "
                                  "includes ID and CALLCHAIN."}));
  const PerfEventDataSample& record = sample.record;
  EXPECT_EQ(record.getRequiredMinimumSize(), 60U);

  const std::string body = sampleBody(COMMON_WITH_PERIOD, FIELDS);
  ASSERT_EQ(body.size(), 40U + 32U + 8U);
  const BodyView view(body);
  EXPECT_TRUE(sample.record.parse(view, 0));
  expectFields(sample.record, COMMON_WITH_PERIOD, FIELDS);
  EXPECT_THAT(record.callchain(), ElementsAreArray(FIELDS.callchain)) << "markers included";
  EXPECT_EQ(record.rawData().data(), view.data() + 76);
  EXPECT_EQ(record.rawData().size(), 4U);
  EXPECT_EQ(record.rawData().capacity(), 4U);
}

TEST(PerfEventDataSampleTest, CommonLayoutIsRecognisedByAll64Bits) {
  const LogCapture log;
  const Sample sample(uint64_t{1} << 32 | COMMON_WITH_ID);
  EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
}

TEST(PerfEventDataSampleTest, IpTidTimeIsBuiltDynamically) {
  const LogCapture log;
  Sample sample(0x7);
  EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 24U);
  EXPECT_TRUE(sample.parse(sampleBody(0x7, FIELDS)));
  expectFields(sample.record, 0x7, FIELDS);
}

TEST(PerfEventDataSampleTest, EveryPartIsReadInTheKernelsOrder) {
  const LogCapture log;
  Sample sample(EVERYTHING);
  const PerfEventDataSample& record = sample.record;
  EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
  // ip, tid, time, addr, id, stream id, cpu, period, the bare read value, a chain of one, raw size
  EXPECT_EQ(record.getRequiredMinimumSize(), 8U * 8U + 8U + 16U + 4U);

  const BodyView view(sampleBody(EVERYTHING, FIELDS));
  EXPECT_TRUE(sample.record.parse(view, 0));
  expectFields(sample.record, EVERYTHING, FIELDS);
  EXPECT_EQ(record.readData().data(), view.data() + 64);
  EXPECT_EQ(bytesOf(record.readData()), FIELDS.readBlock);
  EXPECT_THAT(record.callchain(), ElementsAreArray(FIELDS.callchain));
  EXPECT_EQ(bytesOf(record.rawData()), "raw!");
}

TEST(PerfEventDataSampleTest, AncillaryAccessorsWidenCpuAndResource) {
  Sample sample(0x82);
  EXPECT_TRUE(sample.parse(sampleBody(0x82, FIELDS)));
  const PerfEventDataSampleAncillary& ancillary = sample.record;
  EXPECT_EQ(ancillary.getPid(), FIELDS.pid);
  EXPECT_EQ(ancillary.getTid(), FIELDS.tid);
  EXPECT_EQ(ancillary.getCpu(), uint64_t{0xA0B0C009});
  EXPECT_EQ(ancillary.getResource(), uint64_t{0xA0B0C00A});
}

TEST(PerfEventDataSampleTest, LayoutWithoutAnyPartTakesEveryBody) {
  const LogCapture log;
  Sample sample(uint64_t{0});
  EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 0U);
  EXPECT_TRUE(sample.parse("", 1));
  EXPECT_EQ(sample.record.misc(), 1U);
  EXPECT_EQ(sample.record.ip(), ALL_ONES_64);
}

TEST(PerfEventDataSampleTest, IdentifierComesFirstAndIsKeptAsId) {
  const LogCapture log;
  Sample sample(0x10000 | 0x3);
  EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 24U);
  const std::string body = sampleBody(0x10000 | 0x3, FIELDS);
  ASSERT_EQ(body.size(), 24U);
  EXPECT_FALSE(sample.parse(body.substr(0, 23)));
  EXPECT_TRUE(sample.parse(body));
  expectFields(sample.record, 0x10000 | 0x3, FIELDS);
}

TEST(PerfEventDataSampleTest, LayoutWithIdentifierIsNeverACommonOne) {
  for (const uint64_t common : {COMMON_WITH_ID, COMMON_WITHOUT_ID, COMMON_WITH_PERIOD}) {
    const LogCapture log;
    Sample sample(common | 0x10000);
    EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
    EXPECT_TRUE(sample.parse(sampleBody(common | 0x10000, FIELDS)));
    EXPECT_EQ(sample.record.ip(), FIELDS.ip);
    EXPECT_EQ(bytesOf(sample.record.rawData()), "raw!");
  }
}

TEST(PerfEventDataSampleTest, ReadBlockCoversWhatTheFormatAsksFor) {
  struct Format {
    uint64_t readFormat;
    unsigned int size;
  };
  const Format formats[] = {{0, 8},    {0x1, 16}, {0x2, 16}, {0x3, 24},
                            {0x4, 16}, {0x5, 24}, {0x6, 24}, {0x7, 32}};
  for (const Format& format : formats) {
    Sample sample(Attr().sampleType(PERF_SAMPLE_READ).readFormat(format.readFormat));
    EXPECT_EQ(sample.record.getRequiredMinimumSize(), format.size) << format.readFormat;
    EXPECT_FALSE(sample.parse(std::string(format.size - 1, 'x'))) << format.readFormat;
    const BodyView view(std::string(format.size + 8, 'x'));
    EXPECT_TRUE(sample.record.parse(view, 0)) << format.readFormat;
    EXPECT_EQ(sample.record.readData().data(), view.data()) << format.readFormat;
    EXPECT_EQ(sample.record.readData().size(), format.size) << format.readFormat;
    EXPECT_EQ(sample.record.readData().capacity(), format.size) << format.readFormat;
  }
}

TEST(PerfEventDataSampleTest, ReadBlockOfAGroupFollowsItsCount) {
  struct Format {
    uint64_t readFormat;
    unsigned int fixedSize;
    unsigned int entrySize;
  };
  const Format formats[] = {{0x8, 8, 8},  {0x9, 16, 8},  {0xA, 16, 8},  {0xB, 24, 8},
                            {0xC, 8, 16}, {0xD, 16, 16}, {0xE, 16, 16}, {0xF, 24, 16}};
  for (const Format& format : formats) {
    Sample sample(
        Attr().sampleType(PERF_SAMPLE_READ | PERF_SAMPLE_RAW).readFormat(format.readFormat));
    EXPECT_EQ(sample.record.getRequiredMinimumSize(), format.fixedSize + 4);
    for (const unsigned int count : {0U, 1U, 2U}) {
      const unsigned int size = format.fixedSize + count * format.entrySize;
      const BodyView view(Body().u64(count).zeros(size - 8).u32(3).bytes("raw"));
      EXPECT_TRUE(sample.record.parse(view, 0)) << format.readFormat << " " << count;
      EXPECT_EQ(sample.record.readData().data(), view.data());
      EXPECT_EQ(sample.record.readData().size(), size);
      EXPECT_EQ(sample.record.readData().capacity(), size);
      EXPECT_EQ(bytesOf(sample.record.rawData()), "raw");
    }
  }
}

TEST(PerfEventDataSampleTest, CallchainIsReplacedByTheNextOne) {
  Sample sample(PERF_SAMPLE_CALLCHAIN);
  EXPECT_TRUE(sample.parse(callchainBody(3, {1, 2, 3})));
  EXPECT_THAT(sample.record.callchain(), ElementsAre(1, 2, 3));
  EXPECT_TRUE(sample.parse(callchainBody(1, {4})));
  EXPECT_THAT(sample.record.callchain(), ElementsAre(4));
  EXPECT_TRUE(sample.parse(callchainBody(0, {5})));
  EXPECT_THAT(sample.record.callchain(), IsEmpty());
}

// Also when the part at fault comes after parts that are sound.
TEST(PerfEventDataSampleTest, UnreadPartsWarnWithTheConfigAndTheSampleStillParses) {
  const struct {
    uint64_t bit;
    const char* message;
  } parts[] = {
      {0x800, "Branch stack data specified for trace point 77. It will be ignored."},
      {0x1000, "User register data specified for trace point 77. It will be ignored."},
      {0x2000, "User stack data specified for trace point 77. It will be ignored."},
      {0x4000, "Weight data specified for trace point 77. It will be ignored."},
      {0x8000, "Data source information specified for trace point 77. It will be ignored."},
  };
  for (const auto& part : parts) {
    const LogCapture log;
    Sample sample(Attr().sampleType(part.bit | 0x407).config(77));
    EXPECT_THAT(log.lines(),
                ElementsAre(UNCOMMON, LogLine{"WARN", "PerfEventDataSample", part.message}));
    EXPECT_EQ(sample.record.getRequiredMinimumSize(), 28U);
    EXPECT_TRUE(sample.parse(sampleBody(0x407, FIELDS) + "left unread"));
    EXPECT_EQ(sample.record.time(), FIELDS.time);
    EXPECT_EQ(bytesOf(sample.record.rawData()), "raw!");
  }
}

TEST(PerfEventDataSampleTest, UnreadPartsWarnInTheirOrderOnceAParser) {
  const LogCapture log;
  const uint64_t allFive = 0xF800;
  Sample sample(Attr().sampleType(allFive).config(0xFFFFFFFF));
  EXPECT_TRUE(sample.parse("anything"));
  EXPECT_TRUE(sample.parse("anything"));
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          UNCOMMON,
          LogLine{"WARN", "PerfEventDataSample",
                  "Branch stack data specified for trace point 4294967295. It will be ignored."},
          LogLine{"WARN", "PerfEventDataSample",
                  "User register data specified for trace point 4294967295. It will be ignored."},
          LogLine{"WARN", "PerfEventDataSample",
                  "User stack data specified for trace point 4294967295. It will be ignored."},
          LogLine{"WARN", "PerfEventDataSample",
                  "Weight data specified for trace point 4294967295. It will be ignored."},
          LogLine{
              "WARN", "PerfEventDataSample",
              "Data source information specified for trace point 4294967295. It will be ignored."}));
}

TEST(PerfEventDataSampleTest, BitsBeyondTheIdentifierAreNotLookedAt) {
  const LogCapture log;
  Sample sample(~uint64_t{0x1FFFF} | 0x1);
  EXPECT_THAT(log.lines(), ElementsAre(UNCOMMON));
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 8U);
  EXPECT_TRUE(sample.parse(sampleBody(0x1, FIELDS)));
  EXPECT_EQ(sample.record.ip(), FIELDS.ip);
}

}  // namespace
