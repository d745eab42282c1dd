// Settings that show in the rows of the "samples" table.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/Recordings.h"

namespace {

PerfFileBuilder timesRecording() {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(1, 1, "a").mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.sample(at(SECOND, 0x8000, 1, 1));
  recording.sample(at(SECOND + 4 * EIGHTH, 0x8000, 1, 1));
  recording.sample(at(101 * SECOND, 0x8000, 1, 1));
  recording.sample(at(SECOND + 400, 0x8000, 1, 1));
  recording.sample(at(2'250'300'000, 0x8000, 1, 1));
  return recording;
}

// The rows of timesRecording() with these times.
std::string timesRows(const std::vector<std::string>& times) {
  std::string rows;
  for (std::size_t i = 0; i < times.size(); ++i) {
    rows += (i == 0 ? "[" : ",[") + std::to_string(i + 1) + ",32768,3," + times[i] + ",0,1,1,[]]";
  }
  return rows;
}

std::string rowsAtPrecision(const std::string& precision) {
  Conversion conversion(timesRecording());
  conversion.setting("\"timePrecision\": " + precision);
  return conversion.run().sampleRows();
}

// A chain of `count` addresses 32768, 32772, ...: what the back trace shows of it.
std::string backTraceOf(const std::string& maxBackTrace, uint64_t count) {
  PerfFileBuilder recording = recordingOf(WITH_CALLCHAIN);
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  std::vector<uint64_t> chain;
  for (uint64_t i = 0; i < count; ++i) {
    chain.push_back(0x8000 + 4 * i);
  }
  recording.sample(withChain(at(SECOND, 0x8000, 1, 1), chain));
  Conversion conversion(recording);
  conversion.setting("\"maxBackTrace\": " + maxBackTrace);
  const std::string rows = conversion.run().sampleRows();
  const std::string before = "[1,32768,3,0,0,1,1,";
  EXPECT_TRUE(rows.starts_with(before)) << rows;
  return rows.substr(before.size());
}

// The back trace with `count` entries, and the row's end.
std::string entries(uint64_t count) {
  std::string text = "[";
  for (uint64_t i = 1; i <= count; ++i) {
    text += (i == 1 ? "[" : ",[") + std::to_string(32768 + 4 * i) + ",3]";
  }
  return text + "]]";
}

}  // namespace

TEST(GoldenSettingsTest, TimePrecisionDefault) {
  const ConversionResult result = Conversion(timesRecording()).run();
  EXPECT_EQ(result.sampleRows(), timesRows({"0", "0.5", "100", "0", "1.2503"}));
}

TEST(GoldenSettingsTest, WithoutAWindowSkewCountsButOffsetAndBaseCancelOut) {
  Conversion conversion(timesRecording());
  conversion.arguments({"-A", "4", "-B", "1000", "-C", "0.25", "-d", "0.125"});
  EXPECT_EQ(conversion.run().sampleRows(), timesRows({"0", "2", "400", "0.000002", "5.0012"}));
}

TEST(GoldenSettingsTest, TimePrecisionOneAndThree) {
  EXPECT_EQ(rowsAtPrecision("1"), timesRows({"0", "0.5", "100", "0", "1.3"}));
  EXPECT_EQ(rowsAtPrecision("3"), timesRows({"0", "0.5", "100", "0", "1.25"}));
}

TEST(GoldenSettingsTest, TimePrecisionNineKeepsNanoseconds) {
  EXPECT_EQ(rowsAtPrecision("9"), timesRows({"0", "0.5", "100", "0.0000004", "1.2503"}));
}

TEST(GoldenSettingsTest, TimePrecisionZeroIsSixUntrimmedDigits) {
  EXPECT_EQ(rowsAtPrecision("0"),
            timesRows({"0.000000", "0.500000", "100.000000", "0.000000", "1.250300"}));
}

TEST(GoldenSettingsTest, TimePrecisionNegativeIsWhatPrintfMakesOfIt) {
  EXPECT_EQ(rowsAtPrecision("-1"), timesRows({"0", "0.5", "100", "0", "1.2503"}));
}

TEST(GoldenSettingsTest, TimePrecisionBeyondTheBufferIsCutAndNotTrimmed) {
  const std::string rows253 = rowsAtPrecision("253");  // 255 bytes of text: fits, and is trimmed
  EXPECT_TRUE(rows253.starts_with("[1,32768,3,0,0,1,1,[]],[2,32768,3,0.5,0,")) << rows253;
  for (const char* precision : {"254", "300"}) {
    const std::string rows = rowsAtPrecision(precision);
    EXPECT_TRUE(rows.starts_with("[1,32768,3,0." + std::string(253, '0') +
                                 ",0,1,1,[]],"
                                 "[2,32768,3,0.5" +
                                 std::string(252, '0') +
                                 ",0,1,1,[]],"
                                 "[3,32768,3,100." +
                                 std::string(251, '0') + ",0,1,1,[]],"))
        << precision << ": " << rows;
  }
}

TEST(GoldenSettingsTest, TimePrecisionThatPrintfCannotFormatWritesZero) {
  EXPECT_EQ(rowsAtPrecision("2147483647"), timesRows({"0", "0", "0", "0", "0"}));
}

TEST(GoldenSettingsTest, MaxBackTraceKeepsTheFirstEntriesAfterTheDroppedOne) {
  EXPECT_EQ(backTraceOf("1", 40), entries(1));
  EXPECT_EQ(backTraceOf("3", 4), entries(3));
  EXPECT_EQ(backTraceOf("3", 5), entries(3));
  EXPECT_EQ(backTraceOf("16", 16), entries(15));
  EXPECT_EQ(backTraceOf("16", 17), entries(16));
  EXPECT_EQ(backTraceOf("1000", 40), entries(39));
  EXPECT_EQ(backTraceOf("4294967295", 40), entries(39));
  EXPECT_EQ(backTraceOf("0", 40), entries(0));
}

TEST(GoldenSettingsTest, MaxBackTraceOfAnotherTypeIsReadAsTheHandleReadsIt) {
  EXPECT_EQ(backTraceOf("\"3\"", 40), entries(3));
  EXPECT_EQ(backTraceOf("2.9", 40), entries(2));
  EXPECT_EQ(backTraceOf("true", 40), entries(1));
  EXPECT_EQ(backTraceOf("\"three\"", 40), entries(16));
  EXPECT_EQ(backTraceOf("[1]", 40), entries(16));
  EXPECT_EQ(backTraceOf("null", 40), entries(16));
}

TEST(GoldenSettingsTest, WhitespaceIsReadAsTheHandleReadsBooleans) {
  Conversion yes(timesRecording());
  yes.setting("\"whitespace\": \"yes\"");
  EXPECT_TRUE(yes.run().document.starts_with("{\n \"samples\": {\n"));
  Conversion no(timesRecording());
  no.setting("\"whitespace\": \"false\"");
  EXPECT_TRUE(no.run().document.starts_with("{\"samples\":{"));
  Conversion one(timesRecording());
  one.setting("\"whitespace\": 1");
  EXPECT_TRUE(one.run().document.ends_with("\n }\n}"));
}
