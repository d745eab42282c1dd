#include <cstdint>
#include <linux/perf_event.h>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataSample.h"
#include "tests/perfevents/Decoded.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventAttribute;
using perfevents::PerfEventData;
using perfevents::PerfEventDataSample;
using perfevents::PerfEventDataSampleAncillary;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr uint32_t ALL_ONES_32 = 0xFFFFFFFF;
constexpr uint64_t ALL_ONES_64 = 0xFFFFFFFFFFFFFFFF;

// The layouts that perf record produces by default.
constexpr uint64_t COMMON_WITH_ID = 0x4C7;
constexpr uint64_t COMMON_WITHOUT_ID = 0x487;
constexpr uint64_t COMMON_WITH_PERIOD = 0x5A7;
// Every part of a sample that is decoded, less the identifier.
constexpr uint64_t EVERYTHING = 0x7FF;

const LogLine UNCOMMON = {"INFO", "PerfEventDataSample",
                          "PERF_RECORD_SAMPLE format is not a common format.  Will use dynamically "
                          "created parser."};

const SampleFields FIELDS = {.identifier = 0x1122334455667701,
                             .ip = 0x1122334455667702,
                             .pid = 0xA0B0C003,
                             .tid = 0xA0B0C004,
                             .time = 0x1122334455667705,
                             .addr = 0x1122334455667706,
                             .id = 0x1122334455667707,
                             .streamId = 0x1122334455667708,
                             .cpu = 0xA0B0C009,
                             .res = 0xA0B0C00A,
                             .period = 0x112233445566770B,
                             .readBlock = Body().u64(0x112233445566770C).str(),
                             .callchain = {PERF_CONTEXT_USER, 0x112233445566770D, 14},
                             .raw = "raw!"};

// A sample record object with the attribute that it borrows.
struct Sample {
  explicit Sample(Attr stored) : attribute(decoded(stored)), record(attribute) {}
  explicit Sample(uint64_t sampleType) : Sample(Attr().sampleType(sampleType)) {}

  // Keeps the bytes, since the record's views point into them.
  bool parse(const std::string& body, uint16_t misc = 0) {
    return record.parse(bodies.emplace_back(body), misc);
  }

  const PerfEventAttribute attribute;
  PerfEventDataSample record;
  std::vector<BodyView> bodies;
};

// A sample is never cut where it ends exactly, and always one byte earlier.
void expectExactFit(uint64_t sampleType, const SampleFields& fields) {
  const std::string body = sampleBody(sampleType, fields);
  Sample sample(sampleType);
  EXPECT_FALSE(sample.parse(body.substr(0, body.size() - 1)));
  EXPECT_EQ(sample.record.ip(), ALL_ONES_64);
  EXPECT_TRUE(sample.parse(body));
  EXPECT_TRUE(sample.parse(body + "trailing"));
}

std::string callchainBody(uint64_t count, const std::vector<uint64_t>& addresses) {
  Body body;
  body.u64(count);
  for (const uint64_t address : addresses) {
    body.u64(address);
  }
  return body.str();
}

TEST(PerfEventDataSampleTest, DefaultsBeforeTheFirstSample) {
  const Sample sample(EVERYTHING | 0x10000);
  const PerfEventDataSample& record = sample.record;
  EXPECT_EQ(record.getType(), PerfEventData::Type::Sample);
  EXPECT_EQ(record.ip(), ALL_ONES_64);
  EXPECT_EQ(record.getPid(), ALL_ONES_32);
  EXPECT_EQ(record.getTid(), ALL_ONES_32);
  EXPECT_EQ(record.time(), 0U);
  EXPECT_EQ(record.addr(), ALL_ONES_64);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_EQ(record.streamId(), ALL_ONES_64);
  EXPECT_EQ(record.getCpu(), uint64_t{ALL_ONES_32});
  EXPECT_EQ(record.getResource(), uint64_t{ALL_ONES_32});
  EXPECT_EQ(record.period(), ALL_ONES_64);
  EXPECT_EQ(record.readData().size(), 0U);
  EXPECT_EQ(record.readData().data(), nullptr);
  EXPECT_THAT(record.callchain(), IsEmpty());
  EXPECT_EQ(record.rawData().size(), 0U);
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
  EXPECT_EQ(record.ip(), FIELDS.ip);
  EXPECT_EQ(record.getPid(), FIELDS.pid);
  EXPECT_EQ(record.getTid(), FIELDS.tid);
  EXPECT_EQ(record.time(), FIELDS.time);
  EXPECT_EQ(record.id(), FIELDS.id);
  EXPECT_EQ(record.getCpu(), FIELDS.cpu);
  EXPECT_EQ(record.getResource(), FIELDS.res);
  EXPECT_EQ(record.period(), ALL_ONES_64);
  EXPECT_EQ(record.addr(), ALL_ONES_64);
  EXPECT_EQ(record.streamId(), ALL_ONES_64);
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
  EXPECT_EQ(record.ip(), FIELDS.ip);
  EXPECT_EQ(record.getPid(), FIELDS.pid);
  EXPECT_EQ(record.getTid(), FIELDS.tid);
  EXPECT_EQ(record.time(), FIELDS.time);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_EQ(record.getCpu(), FIELDS.cpu);
  EXPECT_EQ(record.getResource(), FIELDS.res);
  EXPECT_EQ(record.period(), ALL_ONES_64);
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
  EXPECT_EQ(record.ip(), FIELDS.ip);
  EXPECT_EQ(record.getPid(), FIELDS.pid);
  EXPECT_EQ(record.getTid(), FIELDS.tid);
  EXPECT_EQ(record.time(), FIELDS.time);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_EQ(record.getCpu(), FIELDS.cpu);
  EXPECT_EQ(record.getResource(), FIELDS.res);
  EXPECT_EQ(record.period(), FIELDS.period);
  EXPECT_THAT(record.callchain(), ElementsAreArray(FIELDS.callchain)) << "markers included";
  EXPECT_EQ(record.rawData().data(), view.data() + 76);
  EXPECT_EQ(record.rawData().size(), 4U);
  EXPECT_EQ(record.rawData().capacity(), 4U);
}

TEST(PerfEventDataSampleTest, CommonLayoutsEndExactlyAtTheirLastByte) {
  expectExactFit(COMMON_WITH_ID, FIELDS);
  expectExactFit(COMMON_WITHOUT_ID, FIELDS);
  expectExactFit(COMMON_WITH_PERIOD, FIELDS);
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
  expectExactFit(0x7, FIELDS);
  EXPECT_TRUE(sample.parse(sampleBody(0x7, FIELDS)));
  EXPECT_EQ(sample.record.ip(), FIELDS.ip);
  EXPECT_EQ(sample.record.getPid(), FIELDS.pid);
  EXPECT_EQ(sample.record.getTid(), FIELDS.tid);
  EXPECT_EQ(sample.record.time(), FIELDS.time);
  EXPECT_EQ(sample.record.getCpu(), uint64_t{ALL_ONES_32});
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
  EXPECT_EQ(record.ip(), FIELDS.ip);
  EXPECT_EQ(record.getPid(), FIELDS.pid);
  EXPECT_EQ(record.getTid(), FIELDS.tid);
  EXPECT_EQ(record.time(), FIELDS.time);
  EXPECT_EQ(record.addr(), FIELDS.addr);
  EXPECT_EQ(record.id(), FIELDS.id);
  EXPECT_EQ(record.streamId(), FIELDS.streamId);
  EXPECT_EQ(record.getCpu(), FIELDS.cpu);
  EXPECT_EQ(record.getResource(), FIELDS.res);
  EXPECT_EQ(record.period(), FIELDS.period);
  EXPECT_EQ(record.readData().data(), view.data() + 64);
  EXPECT_EQ(bytesOf(record.readData()), FIELDS.readBlock);
  EXPECT_THAT(record.callchain(), ElementsAreArray(FIELDS.callchain));
  EXPECT_EQ(bytesOf(record.rawData()), "raw!");
  expectExactFit(EVERYTHING, FIELDS);
}

TEST(PerfEventDataSampleTest, EachFixedPartAloneGoesToItsOwnField) {
  struct Part {
    uint64_t bit;
    uint64_t (PerfEventDataSample::*value)() const;
    uint64_t expected;
  };
  const Part parts[] = {
      {PERF_SAMPLE_IP, &PerfEventDataSample::ip, FIELDS.ip},
      {PERF_SAMPLE_TIME, &PerfEventDataSample::time, FIELDS.time},
      {PERF_SAMPLE_ADDR, &PerfEventDataSample::addr, FIELDS.addr},
      {PERF_SAMPLE_ID, &PerfEventDataSample::id, FIELDS.id},
      {PERF_SAMPLE_STREAM_ID, &PerfEventDataSample::streamId, FIELDS.streamId},
      {PERF_SAMPLE_CPU, &PerfEventDataSample::getCpu, FIELDS.cpu},
      {PERF_SAMPLE_CPU, &PerfEventDataSample::getResource, FIELDS.res},
      {PERF_SAMPLE_PERIOD, &PerfEventDataSample::period, FIELDS.period},
      {PERF_SAMPLE_IDENTIFIER, &PerfEventDataSample::id, FIELDS.identifier},
  };
  for (const Part& part : parts) {
    Sample sample(part.bit);
    EXPECT_EQ(sample.record.getRequiredMinimumSize(), 8U) << part.bit;
    EXPECT_FALSE(sample.parse(std::string(7, 'x'))) << part.bit;
    EXPECT_TRUE(sample.parse(sampleBody(part.bit, FIELDS))) << part.bit;
    EXPECT_EQ((sample.record.*part.value)(), part.expected) << part.bit;
  }
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
  EXPECT_EQ(sample.record.id(), FIELDS.identifier);
  EXPECT_EQ(sample.record.ip(), FIELDS.ip);
  EXPECT_EQ(sample.record.getPid(), FIELDS.pid);
  EXPECT_EQ(sample.record.getTid(), FIELDS.tid);
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

TEST(PerfEventDataSampleTest, GroupCountIsTheLowHalfOfItsWord) {
  Sample sample(Attr().sampleType(PERF_SAMPLE_READ).readFormat(0xC));
  EXPECT_TRUE(sample.parse(Body().u64(0x1'0000'0002).zeros(32).str()));
  EXPECT_EQ(sample.record.readData().size(), 40U);
  EXPECT_TRUE(sample.parse(Body().u64(0xFFFFFFFF'00000000).str()));
  EXPECT_EQ(sample.record.readData().size(), 8U);
}

TEST(PerfEventDataSampleTest, GroupCountBeyondTheEndIsRefused) {
  Sample sample(Attr().sampleType(PERF_SAMPLE_READ).readFormat(0xC));
  EXPECT_TRUE(sample.parse(Body().u64(2).zeros(32).str()));
  EXPECT_FALSE(sample.parse(Body().u64(2).zeros(31).str()));
  // Counts whose size in bytes is zero or small in 32 bits.
  for (const uint64_t count : {0x10000000U, 0x10000001U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(sample.parse(Body().u64(count).zeros(32).str())) << count;
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

TEST(PerfEventDataSampleTest, CallchainNeedsRoomForOneAddressEvenWhenEmpty) {
  Sample sample(PERF_SAMPLE_CALLCHAIN);
  EXPECT_EQ(sample.record.getRequiredMinimumSize(), 16U);
  EXPECT_FALSE(sample.parse(callchainBody(0, {})));
  EXPECT_FALSE(sample.parse(callchainBody(0, {}) + std::string(7, 'x')));
  EXPECT_TRUE(sample.parse(callchainBody(0, {}) + std::string(8, 'x')));
}

TEST(PerfEventDataSampleTest, EmptyCallchainConsumesOnlyItsCount) {
  Sample sample(PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_RAW);
  EXPECT_TRUE(sample.parse(Body().u64(0).u32(8).bytes("8 bytes.").str()));
  EXPECT_EQ(bytesOf(sample.record.rawData()), "8 bytes.");
}

TEST(PerfEventDataSampleTest, CallchainCountIsTheLowHalfOfItsWord) {
  Sample sample(PERF_SAMPLE_CALLCHAIN);
  EXPECT_TRUE(sample.parse(callchainBody(0x1'0000'0002, {1, 2})));
  EXPECT_THAT(sample.record.callchain(), ElementsAre(1, 2));
}

TEST(PerfEventDataSampleTest, CallchainCountBeyondTheEndIsRefused) {
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

TEST(PerfEventDataSampleTest, CallchainThatLeavesNoRoomForTheRawSizeIsRefused) {
  Sample sample(PERF_SAMPLE_CALLCHAIN | PERF_SAMPLE_RAW);
  EXPECT_TRUE(sample.parse(callchainBody(2, {1, 2}) + Body().u32(0).str()));
  EXPECT_FALSE(sample.parse(callchainBody(2, {1, 2})));
  EXPECT_FALSE(sample.parse(callchainBody(2, {1, 2}) + std::string(3, '\0')));
}

TEST(PerfEventDataSampleTest, RawSizeBeyondTheEndIsRefused) {
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

TEST(PerfEventDataSampleTest, RawSizeOneBeyondTheEndIsRefusedInEveryCommonLayout) {
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

// Also when the part at fault comes after parts that are sound.
TEST(PerfEventDataSampleTest, RefusedSampleLeavesEveryFieldAndTheMiscFlags) {
  Sample sample(EVERYTHING);
  const PerfEventDataSample& record = sample.record;
  const BodyView view(sampleBody(EVERYTHING, FIELDS));
  ASSERT_TRUE(sample.record.parse(view, 2));

  const SampleFields others = {.readBlock = std::string(8, 'y'), .callchain = {9}, .raw = "other"};
  std::string body = sampleBody(EVERYTHING, others);
  body.pop_back();
  EXPECT_FALSE(sample.parse(body, 1));
  EXPECT_EQ(record.misc(), 2U);
  EXPECT_EQ(record.ip(), FIELDS.ip);
  EXPECT_EQ(record.getPid(), FIELDS.pid);
  EXPECT_EQ(record.getTid(), FIELDS.tid);
  EXPECT_EQ(record.time(), FIELDS.time);
  EXPECT_EQ(record.addr(), FIELDS.addr);
  EXPECT_EQ(record.id(), FIELDS.id);
  EXPECT_EQ(record.streamId(), FIELDS.streamId);
  EXPECT_EQ(record.getCpu(), FIELDS.cpu);
  EXPECT_EQ(record.getResource(), FIELDS.res);
  EXPECT_EQ(record.period(), FIELDS.period);
  EXPECT_EQ(record.readData().data(), view.data() + 64);
  EXPECT_EQ(record.readData().size(), 8U);
  EXPECT_THAT(record.callchain(), ElementsAreArray(FIELDS.callchain));
  EXPECT_EQ(bytesOf(record.rawData()), "raw!");
}

TEST(PerfEventDataSampleTest, RefusedSampleOfACommonLayoutLeavesItsFields) {
  Sample sample(COMMON_WITH_PERIOD);
  ASSERT_TRUE(sample.parse(sampleBody(COMMON_WITH_PERIOD, FIELDS), 2));
  std::string body = sampleBody(COMMON_WITH_PERIOD, {.callchain = {9}, .raw = "other"});
  body.pop_back();
  EXPECT_FALSE(sample.parse(body, 1));
  EXPECT_EQ(sample.record.ip(), FIELDS.ip);
  EXPECT_EQ(sample.record.period(), FIELDS.period);
  EXPECT_THAT(sample.record.callchain(), ElementsAreArray(FIELDS.callchain));
  EXPECT_EQ(sample.record.misc(), 2U);
}

TEST(PerfEventDataSampleTest, RefusalsAreSilent) {
  Sample sample(COMMON_WITH_ID);
  const LogCapture log;
  EXPECT_FALSE(sample.parse(std::string(43, '\0')));
  EXPECT_FALSE(sample.parse(std::string(44, '\x01')));
  EXPECT_THAT(log.lines(), IsEmpty());
}

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

TEST(PerfEventDataSampleTest, FieldsKeepTheLastSampleUntilTheNext) {
  Sample sample(0x7);
  EXPECT_TRUE(sample.parse(sampleBody(0x7, {.ip = 1, .pid = 2, .tid = 3, .time = 4})));
  EXPECT_TRUE(sample.parse(sampleBody(0x7, {.ip = 5, .pid = 6, .tid = 7, .time = 8})));
  EXPECT_EQ(sample.record.ip(), 5U);
  EXPECT_EQ(sample.record.getPid(), 6U);
  EXPECT_EQ(sample.record.getTid(), 7U);
  EXPECT_EQ(sample.record.time(), 8U);
  EXPECT_EQ(sample.record.addr(), ALL_ONES_64);
}

}  // namespace
