// Two walks over one recording with a window of time: the second one leaves out what the first one
// has noted, and delivers the samples and says the lines that it would without.
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataSample.h"
#include "perfevents/QuietStretches.h"
#include "tests/perfevents/PerfFileFixture.h"

namespace {

using perfevents::PerfEventData;
using perfevents::PerfEventDataComm;
using perfevents::PerfEventDataSample;
using perfevents::PerfRecordFileReader;
using perfevents::QuietStretches;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t SAMPLE = 32;      // bytes of a sample record with IP, TID and TIME
constexpr uint64_t SHORTEST = 8192;  // samples that make a stretch
constexpr uint64_t SAMPLES = 40000;
constexpr uint32_t TYPE_MMAP = 1;
constexpr uint32_t TYPE_SAMPLE = 9;
constexpr uint32_t TYPE_MMAP2 = 10;

using Offsets = std::pair<uint64_t, uint64_t>;

// Samples and names, as the second pass wants them.
class SampleListener : public perfevents::PerfEventDataListener {
 public:
  void onEventData(const PerfEventData& record) override {
    if (record.getType() == PerfEventData::Type::Sample) {
      times.push_back(static_cast<const PerfEventDataSample&>(record).time());
    } else if (record.getType() == PerfEventData::Type::Comm) {
      names.push_back(static_cast<const PerfEventDataComm&>(record).comm());
    }
  }
  void onClose() override { ++closed; }

  std::vector<uint64_t> times;
  std::vector<std::string> names;
  int closed = 0;
};

class PerfRecordFileReaderWindowTest : public PerfFileFixture {
 protected:
  // Samples at the times `from` to before `to`.
  static void addSamples(PerfFileBuilder& builder, uint64_t from, uint64_t to) {
    for (uint64_t time = from; time < to; ++time) {
      builder.sample({.ip = 0x8000 + time, .pid = 1, .tid = 1, .time = time});
    }
  }
  static PerfFileBuilder fileOfSamples(uint64_t count = SAMPLES) {
    PerfFileBuilder builder = file();
    addSamples(builder, 0, count);
    return builder;
  }

  // The first walk: what it notes for the times `from` to before `to`.
  std::vector<Offsets> note(const PerfFileBuilder& builder, uint64_t from, uint64_t to) {
    noted_ = QuietStretches();
    const LogCapture log;
    PerfRecordFileReader reader(open(builder), true);
    reader.skipSamples();
    reader.filterSamples([=](uint64_t time) { return from <= time && time < to; });
    reader.noteQuietStretches(noted_);
    SampleListener listener;
    reader.parseEvents(listener);
    EXPECT_EQ(listener.closed, 1);
    EXPECT_THAT(listener.times, IsEmpty());
    namesOfFirstWalk_ = listener.names;
    nameLines_ = log.messages("PerfEventDataComm", "DEBUG");
    std::vector<Offsets> stretches;
    for (const QuietStretches::Stretch& stretch : noted_.stretches()) {
      stretches.emplace_back(stretch.begin, stretch.end);
    }
    return stretches;
  }

  struct Seen {
    std::vector<uint64_t> times;
    std::vector<std::string> names;
    std::vector<std::string> errors;
    std::vector<std::string> nameLines;
    int closed = 0;
    std::ios_base::iostate state = std::ios_base::goodbit;
    std::streamoff place = 0;

    bool operator==(const Seen&) const = default;
  };

  Seen secondWalk(uint64_t from, uint64_t to, const QuietStretches& leftOut) {
    const LogCapture log;
    stream_.clear();
    PerfRecordFileReader reader(stream_, true);
    reader.filterSamples([=](uint64_t time) { return from <= time && time < to; });
    reader.leaveOut(leftOut);
    SampleListener listener;
    reader.parseEvents(listener);
    const std::ios_base::iostate state = stream_.rdstate();
    return {listener.times,
            listener.names,
            log.messages(LOGGER, "ERROR"),
            log.messages("PerfEventDataComm", "DEBUG"),
            listener.closed,
            state,
            stream_.tellg()};
  }

  // Both walks; what the second one sees is the same with and without the stretches. Returns it.
  Seen expectNoDifference(const PerfFileBuilder& builder, uint64_t from, uint64_t to,
                          const std::vector<Offsets>& stretches) {
    EXPECT_EQ(note(builder, from, to), stretches);
    const Seen plain = secondWalk(from, to, {});
    const Seen seen = secondWalk(from, to, noted_);
    EXPECT_TRUE(seen == plain);
    EXPECT_EQ(seen.times, plain.times);
    EXPECT_EQ(seen.errors, plain.errors);
    EXPECT_EQ(seen.names, namesOfFirstWalk_);
    EXPECT_EQ(seen.nameLines, nameLines_);
    EXPECT_EQ(seen.closed, 1);
    return seen;
  }

  static std::vector<uint64_t> timesFrom(uint64_t from, uint64_t to) {
    std::vector<uint64_t> times;
    for (; from < to; ++from) {
      times.push_back(from);
    }
    return times;
  }

  QuietStretches noted_;
  std::vector<std::string> namesOfFirstWalk_;
  std::vector<std::string> nameLines_;
};

}  // namespace

TEST_F(PerfRecordFileReaderWindowTest, WindowInTheMiddle) {
  const Seen seen =
      expectNoDifference(fileOfSamples(), 15000, 20000,
                         {{0, 15000 * SAMPLE}, {20000 * SAMPLE, (SAMPLES - 1) * SAMPLE}});
  EXPECT_EQ(seen.times, timesFrom(15000, 20000));
  EXPECT_THAT(seen.errors, IsEmpty());
}

TEST_F(PerfRecordFileReaderWindowTest, WindowAtTheFront) {
  const Seen seen =
      expectNoDifference(fileOfSamples(), 0, 20000, {{20000 * SAMPLE, (SAMPLES - 1) * SAMPLE}});
  EXPECT_EQ(seen.times, timesFrom(0, 20000));
}

TEST_F(PerfRecordFileReaderWindowTest, WindowAtTheEnd) {
  const Seen seen = expectNoDifference(fileOfSamples(), 30000, UINT64_MAX, {{0, 30000 * SAMPLE}});
  EXPECT_EQ(seen.times, timesFrom(30000, SAMPLES));
}

TEST_F(PerfRecordFileReaderWindowTest, WindowOfTheLastSample) {
  const Seen seen =
      expectNoDifference(fileOfSamples(), SAMPLES - 1, SAMPLES, {{0, (SAMPLES - 1) * SAMPLE}});
  EXPECT_THAT(seen.times, ElementsAre(SAMPLES - 1));
}

TEST_F(PerfRecordFileReaderWindowTest, EmptyWindow) {
  const Seen seen = expectNoDifference(fileOfSamples(), 5, 5, {{0, (SAMPLES - 1) * SAMPLE}});
  EXPECT_THAT(seen.times, IsEmpty());
}

TEST_F(PerfRecordFileReaderWindowTest, WindowOverAll) {
  const Seen seen = expectNoDifference(fileOfSamples(), 0, SAMPLES, {});
  EXPECT_EQ(seen.times.size(), SAMPLES);
}

TEST_F(PerfRecordFileReaderWindowTest, FileWithoutRecords) {
  const Seen seen = expectNoDifference(file(), 5, 9, {});
  EXPECT_THAT(seen.errors, IsEmpty());
}

TEST_F(PerfRecordFileReaderWindowTest, StretchOfExactlyTheShortestLength) {
  expectNoDifference(fileOfSamples(2 * SHORTEST), SHORTEST, SHORTEST + 1, {{0, SHORTEST * SAMPLE}});
  expectNoDifference(fileOfSamples(2 * SHORTEST), SHORTEST - 1, SHORTEST, {});
}

// Samples come by processor, each with its own sequence of times.
TEST_F(PerfRecordFileReaderWindowTest, TimesThatGoBack) {
  PerfFileBuilder builder = file();
  addSamples(builder, 20000, 40000);
  addSamples(builder, 10000, 30000);
  addSamples(builder, 0, 20000);
  const Seen seen = expectNoDifference(
      builder, 18000, 22000, {{2000 * SAMPLE, 28000 * SAMPLE}, {32000 * SAMPLE, 58000 * SAMPLE}});
  EXPECT_EQ(seen.times.size(), 2000U + 4000U + 2000U);
}

// What it says of each name is in the log of both walks.
TEST_F(PerfRecordFileReaderWindowTest, NamesAmongTheSamplesAreDecodedAndLoggedInBothWalks) {
  PerfFileBuilder builder = file();
  addSamples(builder, 0, 10000);
  builder.comm(1, 2, "first");  // 24 bytes
  addSamples(builder, 10000, 20000);
  builder.comm(1, 3, "ta\tb");
  addSamples(builder, 20000, 20100);
  builder.comm(1, 4, "third");
  addSamples(builder, 20100, SAMPLES);
  const uint64_t name = 24;
  const Seen seen = expectNoDifference(builder, 35000, 35001,
                                       {{0, 10000 * SAMPLE},
                                        {10000 * SAMPLE + name, 20000 * SAMPLE + name},
                                        {20100 * SAMPLE + 3 * name, 35000 * SAMPLE + 3 * name}});
  EXPECT_THAT(seen.names, ElementsAre("first", "tab", "third"));
  std::vector<std::string> lines(5 + 4 + 5, "good");  // one for each byte
  lines[5 + 2] = "bad";
  EXPECT_EQ(seen.nameLines, lines);
}

TEST_F(PerfRecordFileReaderWindowTest, OtherRecordsBelongToAStretch) {
  PerfFileBuilder builder = file();
  addSamples(builder, 0, 5000);
  builder.mmap(1, 1, 0x8000, 0x1000, 0, "/bin/app");  // 56 bytes
  builder.record(TYPE_MMAP2, Body().zeros(24));       // 32
  builder.record(0, Body());                          // 8
  builder.record(TYPE_MMAP, Body());                  // 8, too short to be decoded
  addSamples(builder, 5000, 10000);
  expectNoDifference(builder, 9000, 10000, {{0, 9000 * SAMPLE + 56 + 32 + 8 + 8}});
}

TEST_F(PerfRecordFileReaderWindowTest, SamplesTooShortForATimeEndAStretch) {
  PerfFileBuilder builder = file();
  addSamples(builder, 0, 9000);
  builder.record(TYPE_SAMPLE, Body().u64(0x8000).u64(1).u32(7).u16(0).u8(0));  // one byte missing
  addSamples(builder, 9000, 18000);
  builder.record(TYPE_SAMPLE, Body());
  addSamples(builder, 18000, 18001);
  expectNoDifference(builder, 0, 0,
                     {{0, 9000 * SAMPLE}, {9000 * SAMPLE + 31, 18000 * SAMPLE + 31}});
}

// They are as long as they need to be for a time, and too short for what comes behind.
TEST_F(PerfRecordFileReaderWindowTest, SamplesThatWouldBeRefusedBelongToAStretch) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().sampleType(0x87));
  for (uint64_t time = 0; time < 10000; ++time) {
    builder.record(TYPE_SAMPLE, Body().u64(0x8000).u64(1).u64(time));
  }
  const Seen seen = expectNoDifference(builder, 9500, 9600, {{0, 9500 * SAMPLE}});
  EXPECT_THAT(seen.times, IsEmpty());
}

TEST_F(PerfRecordFileReaderWindowTest, LayoutsWithoutATimeHaveNoStretches) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().sampleType(0x3));
  for (uint64_t i = 0; i < 20000; ++i) {
    builder.sample({.ip = i, .pid = 1, .tid = 1});
  }
  const Seen seen = expectNoDifference(builder, 5, 5, {});
  EXPECT_EQ(seen.times.size(), 20000U);
}

TEST_F(PerfRecordFileReaderWindowTest, WithoutAFilterSamplesEndAStretch) {
  PerfFileBuilder builder = file();
  for (int i = 0; i < 9000; ++i) {
    builder.record(0, Body().zeros(24));
  }
  addSamples(builder, 0, 10000);
  PerfRecordFileReader reader(open(builder), true);
  QuietStretches quiet;
  reader.noteQuietStretches(quiet);
  SampleListener listener;
  reader.parseEvents(listener);
  ASSERT_EQ(quiet.stretches().size(), 1U);
  EXPECT_EQ(quiet.stretches()[0].begin, 0U);
  EXPECT_EQ(quiet.stretches()[0].end, 9000 * SAMPLE);
  EXPECT_EQ(listener.times.size(), 10000U);
}

TEST_F(PerfRecordFileReaderWindowTest, GarbledSizeBehindAStretch) {
  for (const uint16_t size : {uint16_t{0}, uint16_t{4}, uint16_t{7}}) {
    PerfFileBuilder builder = fileOfSamples(10000);
    builder.recordOfSize(TYPE_SAMPLE, size, Body().zeros(24));
    addSamples(builder, 0, 10);
    const Seen seen = expectNoDifference(builder, 5, 5, {{0, 9999 * SAMPLE}});
    EXPECT_THAT(seen.errors, ElementsAre(GARBLED));
  }
}

TEST_F(PerfRecordFileReaderWindowTest, FileCutAnywhereBehindAStretch) {
  for (std::size_t cut = 1; cut <= 2 * SAMPLE + 1; ++cut) {
    SCOPED_TRACE(cut);
    PerfFileBuilder builder = fileOfSamples(10000);
    builder.truncateBy(cut);
    const uint64_t whole = 10000 - (cut + SAMPLE - 1) / SAMPLE;
    const Seen seen = expectNoDifference(builder, 0, 0, {{0, (whole - 1) * SAMPLE}});
    EXPECT_THAT(seen.errors, ElementsAre(SHORT_READ));
  }
}

// The header's size field is cut, and the other byte is that of the last record: size 0x0010.
TEST_F(PerfRecordFileReaderWindowTest, SizeCutBehindASmallLastRecordIsGarbled) {
  PerfFileBuilder builder = fileOfSamples(10000);
  builder.record(0, Body().u64(0));
  builder.recordOfSize(0, 0x0204, Body().zeros(0x200));
  builder.truncateBy(0x200 + 1).header(PerfFileBuilder::Header::DATA_SIZE, 10001 * SAMPLE);
  const Seen seen = expectNoDifference(builder, 0, 0, {{0, 10000 * SAMPLE}});
  EXPECT_THAT(seen.errors, ElementsAre(GARBLED));
}

TEST_F(PerfRecordFileReaderWindowTest, DataSectionSmallerThanTheFile) {
  for (const uint64_t more : {uint64_t{0}, uint64_t{1}, SAMPLE - 1}) {
    SCOPED_TRACE(more);
    PerfFileBuilder builder = fileOfSamples(20000);
    builder.header(PerfFileBuilder::Header::DATA_SIZE, 15000 * SAMPLE + more);
    const uint64_t last = more == 0 ? 14999 : 15000;
    const Seen seen = expectNoDifference(builder, 0, 100, {{100 * SAMPLE, last * SAMPLE}});
    EXPECT_EQ(seen.times.size(), 100U);
    EXPECT_THAT(seen.errors, IsEmpty());
  }
}

TEST_F(PerfRecordFileReaderWindowTest, BytesBehindTheDataSectionAreNotRead) {
  PerfFileBuilder builder = fileOfSamples(10000);
  builder.trailer(std::string(100'000, '\xFF'));
  const Seen seen = expectNoDifference(builder, 0, 0, {{0, 9999 * SAMPLE}});
  EXPECT_THAT(seen.errors, IsEmpty());
}

// What stands there meanwhile is no record.
TEST_F(PerfRecordFileReaderWindowTest, StretchesAreNotReadAgain) {
  const PerfFileBuilder builder = fileOfSamples();
  const std::vector<Offsets> stretches = note(builder, 15000, 20000);
  ASSERT_EQ(stretches.size(), 2U);
  std::string bytes = builder.bytes();
  for (const auto& [begin, end] : stretches) {
    const auto length = static_cast<std::size_t>(end - begin);
    const auto at = static_cast<std::size_t>(builder.dataOffset() + begin);
    bytes.replace(at, length, length, '\0');
  }
  stream_ = std::ifstream(folder_.write("perf.data", bytes), std::ios::in | std::ios::binary);
  const Seen seen = secondWalk(15000, 20000, noted_);
  EXPECT_EQ(seen.times, timesFrom(15000, 20000));
  EXPECT_THAT(seen.errors, IsEmpty());
}

// Somebody truncates the recording between the walks.
TEST_F(PerfRecordFileReaderWindowTest, FileThatBecameShorterThanAStretchIsCutOff) {
  const PerfFileBuilder builder = fileOfSamples();
  ASSERT_THAT(note(builder, 30000, 31000),
              ElementsAre(Offsets(0, 30000 * SAMPLE), Offsets(31000 * SAMPLE, 39999 * SAMPLE)));
  PerfFileBuilder shorter = fileOfSamples(100);
  open(shorter.header(PerfFileBuilder::Header::DATA_SIZE, 100 * SAMPLE));
  const Seen seen = secondWalk(30000, 31000, noted_);
  EXPECT_THAT(seen.errors.size(), 1U);
  EXPECT_THAT(seen.times, IsEmpty());
  EXPECT_EQ(seen.closed, 1);
}
