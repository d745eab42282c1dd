// Whole runs on odd records and attributes: what is skipped, what is warned of.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/Recordings.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const NOT_COMMON =
    "INFO [PerfEventDataSample] PERF_RECORD_SAMPLE format is not a common format.  Will use "
    "dynamically created parser.";

// A sample between two good ones, given as its bytes.
ConversionResult runWithSample(uint64_t layout, const Body& body) {
  PerfFileBuilder recording = recordingOf(layout);
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.sample(withChain(at(SECOND, 0x8000, 1, 1), {0}));
  recording.record(9, body);
  recording.sample(withChain(at(3 * SECOND, 0x8008, 1, 1), {0}));
  return Conversion(recording).run();
}

const char* const WITHOUT_IT = "[1,32768,3,0,0,1,1,[]],[2,32776,3,2,0,1,1,[]]";
const char* const WITH_IT = "[1,32768,3,0,0,1,1,[]],[2,32772,3,1,0,1,1,[]],[3,32776,3,2,0,1,1,[]]";

// IP, TID, TIME and CPU of the sample between.
Body head() { return Body().u64(0x8004).u32(1).u32(1).u64(2 * SECOND).u32(0).u32(0); }

PerfFileBuilder withAttributes(const std::vector<Attr>& attributes) {
  PerfFileBuilder recording;
  for (const Attr& attribute : attributes) {
    recording.attribute(attribute);
  }
  return recording;
}

}  // namespace

TEST(GoldenRecordTest, CallchainCountsBeyondTheRecordSkipIt) {
  EXPECT_EQ(runWithSample(WITH_CALLCHAIN, head().u64(1).u64(0)).sampleRows(), WITH_IT);
  EXPECT_EQ(runWithSample(WITH_CALLCHAIN, head().u64(2).u64(0)).sampleRows(), WITHOUT_IT);
  EXPECT_EQ(runWithSample(WITH_CALLCHAIN, head().u64(0xFFFFFFFF).u64(0)).sampleRows(), WITHOUT_IT);
  EXPECT_EQ(runWithSample(WITH_CALLCHAIN, head().u64(0x20000000).u64(0)).sampleRows(), WITHOUT_IT);
}

TEST(GoldenRecordTest, CallchainCountIsItsLow32Bits) {
  EXPECT_EQ(runWithSample(WITH_CALLCHAIN, head().u64(0x700000001).u64(0)).sampleRows(), WITH_IT);
}

TEST(GoldenRecordTest, RawSizesBeyondTheRecordSkipIt) {
  constexpr uint64_t LAYOUT = IP_TID_TIME_CPU | 0x400;
  EXPECT_EQ(runWithSample(LAYOUT, head().u32(4).u32(0)).sampleRows(), WITH_IT);
  EXPECT_EQ(runWithSample(LAYOUT, head().u32(5).u32(0)).sampleRows(), WITHOUT_IT);
  EXPECT_EQ(runWithSample(LAYOUT, head().u32(0xFFFFFFFF).u32(0)).sampleRows(), WITHOUT_IT);
}

TEST(GoldenRecordTest, GroupCountsBeyondTheRecordSkipIt) {
  const auto run = [](uint64_t count) {
    PerfFileBuilder recording;
    recording.attribute(Attr().sampleType(IP_TID_TIME_CPU | 0x10).readFormat(0x8 | 0x4));
    recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
    recording.record(9, head().u64(count).u64(5).u64(6));
    return Conversion(recording).run().sampleRows();
  };
  EXPECT_EQ(run(0), "[1,32772,3,0,0,1,1,[]]");
  EXPECT_EQ(run(1), "[1,32772,3,0,0,1,1,[]]");
  EXPECT_EQ(run(2), "");
  EXPECT_EQ(run(0x10000000), "");
}

TEST(GoldenRecordTest, SkippedRecordLeavesNoTraceInTheNext) {
  // The count of the middle one is wrong; nothing of its chain reaches the third.
  const ConversionResult result =
      runWithSample(WITH_CALLCHAIN, head().u64(5).u64(0x8004).u64(0x8800).u64(0x8804));
  EXPECT_EQ(result.sampleRows(), WITHOUT_IT);
  EXPECT_THAT(result.complaints(), IsEmpty());
}

TEST(GoldenRecordTest, AttributesOfDifferentLayoutsAreWarnedOfOncePerPass) {
  const std::string warning =
      "WARN [PerfRecordEventDataStore] Attributes stored in perf record file will result in event "
      "data of different layouts.  This may cause parsing failure.";
  const Attr plain = Attr().sampleType(IP_TID_TIME_CPU);
  PerfFileBuilder recording = withAttributes({plain, plain, Attr().sampleType(WITH_CALLCHAIN)});
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.sample(at(SECOND, 0x8000, 1, 1));
  const ConversionResult result = Conversion(recording).run();
  EXPECT_THAT(result.complaints(), ElementsAre(warning, warning));
  EXPECT_EQ(result.sampleRows(), "[1,32768,3,0,0,1,1,[]]");
  const Attr other = Attr().sampleType(WITH_CALLCHAIN);
  EXPECT_THAT(Conversion(withAttributes({plain, other, plain, other})).run().complaints(),
              ElementsAre(warning, warning));
  EXPECT_THAT(Conversion(withAttributes({plain, plain, plain})).run().complaints(), IsEmpty());
}

TEST(GoldenRecordTest, SampleBitsThatAreIgnoredAreWarnedOfOncePerPass) {
  PerfFileBuilder recording =
      withAttributes({Attr().sampleType(IP_TID_TIME_CPU | 0xF800).config(0x100000007)});
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.record(9, head().zeros(64));
  const ConversionResult result = Conversion(recording).run();
  const LogTexts pass = {
      NOT_COMMON,
      "WARN [PerfEventDataSample] Branch stack data specified for trace point 7. It will be "
      "ignored.",
      "WARN [PerfEventDataSample] User register data specified for trace point 7. It will be "
      "ignored.",
      "WARN [PerfEventDataSample] User stack data specified for trace point 7. It will be ignored.",
      "WARN [PerfEventDataSample] Weight data specified for trace point 7. It will be ignored.",
      "WARN [PerfEventDataSample] Data source information specified for trace point 7. It will be "
      "ignored."};
  // The order of the layout's own line among them is open.
  LogTexts both = pass;
  both.insert(both.end(), pass.begin(), pass.end());
  EXPECT_THAT(result.linesOf("PerfEventDataSample"), testing::UnorderedElementsAreArray(both));
  const LogTexts warnings(pass.begin() + 1, pass.end());
  LogTexts warnedTwice = warnings;
  warnedTwice.insert(warnedTwice.end(), warnings.begin(), warnings.end());
  EXPECT_THAT(result.complaints(), testing::ElementsAreArray(warnedTwice));
  EXPECT_EQ(result.sampleRows(), "[1,32772,3,0,0,1,1,[]]");
}

TEST(GoldenRecordTest, CommonLayoutsAreNamedAtDebug) {
  const auto line = [](uint64_t layout) {
    const LogTexts lines = Conversion(recordingOf(layout)).run().linesOf("PerfEventDataSample");
    EXPECT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines.front(), lines.back());
    return lines.empty() ? "" : lines.front();
  };
  const std::string start =
      "DEBUG [PerfEventDataSample] PERF_RECORD_SAMPLE format is common (to perf record) ";
  EXPECT_EQ(line(0x4C7), start + "and includes the ID.");
  EXPECT_EQ(line(0x487), start + "and but excludes ID.");
  EXPECT_EQ(line(0x5A7), start + "and includes ID and CALLCHAIN.");
  EXPECT_EQ(line(0x104C7), NOT_COMMON);
}

TEST(GoldenRecordTest, AttributeRevisionsAreNamed) {
  const auto lines = [](std::size_t structureSize) {
    PerfFileBuilder recording;
    recording.attribute(Attr().structureSize(structureSize).sampleType(IP_TID_TIME_CPU));
    recording.trailer(std::string(200, '\0'));
    return Conversion(recording).run().linesOf("PerfRecordFileReader");
  };
  const auto older = [](const std::string& version) {
    return "INFO [PerfRecordFileReader] Older version " + version +
           " of perf file attributes used in perf file.";
  };
  const std::string current =
      "INFO [PerfRecordFileReader] Current version 3 of perf file attributes used in perf file.";
  const std::string newer =
      "WARN [PerfRecordFileReader] Perf file attribute may indicate new generation kernel or perf "
      "record version was used.";
  EXPECT_THAT(lines(64), ElementsAre(older("0"), older("0")));
  EXPECT_THAT(lines(72), ElementsAre(older("1"), older("1")));
  EXPECT_THAT(lines(80), ElementsAre(older("2"), older("2")));
  EXPECT_THAT(lines(88), IsEmpty());
  EXPECT_THAT(lines(96), ElementsAre(current, current));
  EXPECT_THAT(lines(104), ElementsAre(newer, newer));
  EXPECT_THAT(lines(65536), ElementsAre(newer, newer));
}

// Thousands of rows are written by a thread of their own, which is nobody's business.
TEST(GoldenRecordTest, LogIsTheSameHoweverManySamplesThereAre) {
  const auto logOf = [](unsigned samples) {
    PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
    recording.mmap(1, 1, 0x8000, 0x1000, 0, "/bin/missing");
    for (unsigned i = 0; i < samples; ++i) {
      recording.sample(at(SECOND + i, 0x8000 + i % 16, 1, 1));
    }
    return Conversion(recording).run().log;
  };
  EXPECT_EQ(logOf(10), logOf(5000));
}
