// Whole runs on broken recordings: the document, every line of the reader and of the passes, and
// the exit status. Each message stands twice, as both passes construct a reader.
#include <array>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/Recordings.h"

namespace {

using Header = PerfFileBuilder::Header;
using testing::ElementsAreArray;

const char* const CURRENT =
    "INFO [PerfRecordFileReader] Current version 3 of perf file attributes used in perf file.";

// Their lines, an exception's without what the library appends to its text.
LogTexts linesOfReaderAndPasses(const ConversionResult& result) {
  LogTexts lines;
  for (const std::string& line : result.log) {
    if (line.find(" [PerfRecordFileReader] ") != std::string::npos ||
        line.find(" [PerfInputRunnerPass") != std::string::npos) {
      const std::string suffix = ": iostream error";
      lines.push_back(line.ends_with(suffix) ? line.substr(0, line.size() - suffix.size()) : line);
    }
  }
  return lines;
}

ConversionResult expectRun(const std::string& recording, const std::string& golden,
                           const LogTexts& expected) {
  ConversionResult result = Conversion(recording).run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(matchesGolden(golden, result.document));
  EXPECT_THAT(linesOfReaderAndPasses(result), ElementsAreArray(expected));
  EXPECT_EQ(result.messages().back(), "INFO [main] Conversion completed in # seconds.");
  return result;
}

// Neither pass gets a reader. `before`: what each reader logs until it fails.
void expectUnreadable(const std::string& recording, const std::string& message,
                      const LogTexts& before = {}) {
  LogTexts expected;
  for (const char* pass : {"PerfInputRunnerPass1", "PerfInputRunnerPass2"}) {
    expected.insert(expected.end(), before.begin(), before.end());
    expected.push_back("ERROR [PerfRecordFileReader] " + message);
    expected.push_back(std::string("DEBUG [") + pass + "] # An I/O exception occurred: " + message);
  }
  expectRun(recording, "no-rows", expected);
}

// Both walks end with `message`, or without one when it is empty.
void expectWalk(const PerfFileBuilder& recording, const std::string& golden,
                const std::string& message) {
  LogTexts expected;
  for (int pass = 1; pass <= 2; ++pass) {
    expected.emplace_back(CURRENT);
    if (!message.empty()) {
      expected.push_back("ERROR [PerfRecordFileReader] " + message);
    }
  }
  expectRun(recording.bytes(), golden, expected);
}

const char* const SMALL = "Perf file is of insufficient size.";
const char* const HEADER_SIZE =
    "Invalid header size recorded in perf file header.  Perf file corrupt.";
const char* const ATTRIBUTE_SIZE =
    "Invalid attribute size recorded in perf file header.  Perf file corrupt.";
const char* const ATTRIBUTE_OFFSET = "Invalid attribute offset location.  Perf file corrupt.";
const char* const TYPES_OFFSET = "Invalid trace event types offset location.  Perf file corrupt.";
const char* const ATTRIBUTES = "Error reading perf file attributes.  Perf file corrupt.";
const char* const IDS = "Error reading perf file attribute IDs.  Perf file corrupt.";
const char* const TYPE_COUNT = "Number of trace event types is invalid.  Perf file corrupt.";
const char* const TYPES = "Error reading trace event types.  Perf file corrupt.";
const char* const GARBLED = "Garbled event data header size.  Perf file corrupt.";
const char* const EVENT_DATA = "Error reading event data from perf file.  Perf file corrupt.";

PerfFileBuilder simple() { return simpleRecording(IP_TID_TIME_CPU); }

constexpr std::size_t SAMPLE_BYTES = 8 + 32;  // of each sample of simple()

std::string withHeader(Header word, uint64_t value) { return simple().header(word, value).bytes(); }

uint64_t sizeOf(const PerfFileBuilder& recording) { return recording.bytes().size(); }

}  // namespace

TEST(GoldenBrokenFileTest, TooSmall) {
  expectUnreadable("", SMALL);
  expectUnreadable(simple().fileSize(199).bytes(), SMALL);
}

TEST(GoldenBrokenFileTest, TwoHundredBytesAreEnoughToBeLookedAt) {
  expectUnreadable(simple().fileSize(200).bytes(), TYPES_OFFSET, {CURRENT});
}

TEST(GoldenBrokenFileTest, HeaderSizeOtherThan104) {
  expectUnreadable(withHeader(Header::SIZE, 100), HEADER_SIZE);
  expectUnreadable(withHeader(Header::SIZE, 112), HEADER_SIZE);
  expectUnreadable(withHeader(Header::SIZE, 0), HEADER_SIZE);
}

TEST(GoldenBrokenFileTest, TextInsteadOfARecording) {
  expectUnreadable(std::string(1000, 'x'), HEADER_SIZE);
}

TEST(GoldenBrokenFileTest, AnyMagicWillDo) {
  expectWalk(simple().magic("whatever"), "simple", "");
  expectWalk(simple().magic(""), "simple", "");
}

TEST(GoldenBrokenFileTest, AttributeSizeOutOfRange) {
  expectUnreadable(withHeader(Header::ATTR_SIZE, 79), ATTRIBUTE_SIZE);
  expectUnreadable(withHeader(Header::ATTR_SIZE, 65553), ATTRIBUTE_SIZE);
  expectUnreadable(withHeader(Header::ATTR_SIZE, 0), ATTRIBUTE_SIZE);
  expectUnreadable(withHeader(Header::ATTR_SIZE, ALL_ONES), ATTRIBUTE_SIZE);
}

TEST(GoldenBrokenFileTest, SectionsBehindTheEnd) {
  const uint64_t end = sizeOf(simple());
  expectUnreadable(withHeader(Header::ATTRS_OFFSET, end + 1), ATTRIBUTE_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::ATTRS_SIZE, end + 1), ATTRIBUTE_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::EVENT_TYPES_OFFSET, end + 1), TYPES_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::EVENT_TYPES_SIZE, end + 1), TYPES_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::DATA_OFFSET, end + 1), TYPES_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::DATA_SIZE, end + 1), TYPES_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::DATA_OFFSET, ALL_ONES), TYPES_OFFSET, {CURRENT});
  expectUnreadable(withHeader(Header::DATA_SIZE, uint64_t{1} << 63), TYPES_OFFSET, {CURRENT});
}

TEST(GoldenBrokenFileTest, AttributesCutOff) {
  const uint64_t end = sizeOf(simple());
  expectUnreadable(withHeader(Header::ATTRS_OFFSET, end - 111), ATTRIBUTES, {CURRENT});
  expectUnreadable(withHeader(Header::ATTRS_OFFSET, end), ATTRIBUTES, {CURRENT});
}

TEST(GoldenBrokenFileTest, IdsCutOff) {
  const auto withIds = [](uint64_t offset, uint64_t size) {
    PerfFileBuilder recording;
    recording.attribute(Attr().sampleType(IP_TID_TIME_CPU).idsSection(offset, size));
    return recording.fileSize(400).bytes();
  };
  expectUnreadable(withIds(393, 8), IDS, {CURRENT});
  expectUnreadable(withIds(400, 8), IDS, {CURRENT});
  expectUnreadable(withIds(0, 408), IDS, {CURRENT});
  expectUnreadable(withIds(0, ALL_ONES), IDS, {CURRENT});
  expectUnreadable(withIds(ALL_ONES, 8), IDS, {CURRENT});
  expectRun(withIds(392, 8), "no-rows", {CURRENT, CURRENT});
  expectRun(withIds(392, 15), "no-rows", {CURRENT, CURRENT});
}

TEST(GoldenBrokenFileTest, OverlappingIdSectionsHoldAtMostWhatTheFileCould) {
  const auto withIds = [](uint64_t secondSize) {
    PerfFileBuilder recording;
    recording.attribute(Attr().sampleType(IP_TID_TIME_CPU).idsSection(0, 320));
    recording.attribute(Attr().sampleType(IP_TID_TIME_CPU).idsSection(0, secondSize));
    return recording.fileSize(640).bytes();
  };
  expectRun(withIds(320), "no-rows", {CURRENT, CURRENT});
  expectUnreadable(withIds(328), IDS, {CURRENT});
}

TEST(GoldenBrokenFileTest, MoreTraceEventTypesThanAttributes) {
  PerfFileBuilder recording = simple();
  recording.eventType(1, "one");
  expectWalk(recording, "simple", "");
  recording.eventType(2, "two");
  expectUnreadable(recording.bytes(), TYPE_COUNT, {CURRENT});
}

TEST(GoldenBrokenFileTest, TraceEventTypesCutOff) {
  PerfFileBuilder recording = simple();
  recording.header(Header::EVENT_TYPES_SIZE, 72);
  recording.header(Header::EVENT_TYPES_OFFSET, sizeOf(recording) - 71);
  expectUnreadable(recording.bytes(), TYPES, {CURRENT});
}

TEST(GoldenBrokenFileTest, CutInsideTheLastRecord) {
  expectWalk(simple().truncateLastRecordBy(1), "two-rows", EVENT_DATA);
  expectWalk(simple().truncateLastRecordBy(SAMPLE_BYTES - 8), "two-rows", EVENT_DATA);
}

TEST(GoldenBrokenFileTest, CutInsideOrBeforeARecordHeaderTheEarlierSizeStands) {
  expectWalk(simple().truncateLastRecordBy(SAMPLE_BYTES - 5), "two-rows", EVENT_DATA);
  expectWalk(simple().truncateLastRecordBy(SAMPLE_BYTES), "two-rows", EVENT_DATA);
}

TEST(GoldenBrokenFileTest, CutBeforeTheFirstRecordIsGarbled) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.sample(at(SECOND, 0x8010, 10, 10));
  expectWalk(PerfFileBuilder(recording).truncateBy(SAMPLE_BYTES), "no-rows", GARBLED);
  // Six bytes of the header: its size is not among them. A seventh: it is, as far as it matters.
  expectWalk(PerfFileBuilder(recording).truncateBy(SAMPLE_BYTES - 6), "no-rows", GARBLED);
  expectWalk(PerfFileBuilder(recording).truncateBy(SAMPLE_BYTES - 7), "no-rows", EVENT_DATA);
}

TEST(GoldenBrokenFileTest, RecordSizesBelowEightEndTheWalk) {
  for (const uint16_t size : std::array<uint16_t, 3>{0, 1, 7}) {
    PerfFileBuilder recording = simpleRecordingWithoutThird(IP_TID_TIME_CPU);
    recording.recordOfSize(9, size, Body()).sample(thirdSample());
    expectWalk(recording, "two-rows", GARBLED);
  }
}

TEST(GoldenBrokenFileTest, StrayBytesAtTheEndAfterGoodRecords) {
  expectWalk(simple().data("abc"), "simple", EVENT_DATA);
}

TEST(GoldenBrokenFileTest, DataSectionThatEndsEarlier) {
  const uint64_t size = sizeOf(simple()) - simple().dataOffset();
  expectWalk(simple().header(Header::DATA_SIZE, size - SAMPLE_BYTES), "two-rows", "");
  // A record that has begun is read to its end.
  expectWalk(simple().header(Header::DATA_SIZE, size - SAMPLE_BYTES + 1), "simple", "");
}

TEST(GoldenBrokenFileTest, LastRecordReachesBeyondTheDataSection) {
  PerfFileBuilder recording = simpleRecordingWithoutThird(IP_TID_TIME_CPU);
  const Body body = Body().bytes(sampleBody(IP_TID_TIME_CPU, thirdSample()));
  recording.recordOfSize(9, SAMPLE_BYTES + 16, body).trailer(std::string(16, '\0'));
  expectWalk(recording, "simple", "");
}

TEST(GoldenBrokenFileTest, EmptyDataSection) {
  expectWalk(simple().header(Header::DATA_SIZE, 0), "no-rows", "");
}

TEST(GoldenBrokenFileTest, DataSectionAtTheEndOfTheFile) {
  const uint64_t end = sizeOf(simple());
  expectWalk(simple().header(Header::DATA_OFFSET, end), "no-rows", GARBLED);
}

TEST(GoldenBrokenFileTest, WithoutAttributesTheDocumentIsClosedAndTheStatusIsOne) {
  const LogTexts messages = {
      "INFO [main] Failed to load kernel symbols.  size:0 range:bf000000-cf000000 from kernel.syms",
      "ERROR [main] At least one PerfEventAttribute is required to construct "
      "PerfRecordEventDataStore"};
  for (const std::string& recording :
       {withHeader(Header::ATTRS_SIZE, 0), withHeader(Header::ATTRS_SIZE, 111),
        withHeader(Header::ATTR_SIZE, 65552)}) {
    const ConversionResult result = Conversion(recording).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(matchesGolden("nothing", result.document));
    EXPECT_THAT(result.linesOf("main"), ElementsAreArray(messages));
  }
}

TEST(GoldenBrokenFileTest, WithoutAttributesTheIndentedDocumentIsClosedToo) {
  Conversion conversion(withHeader(Header::ATTRS_SIZE, 0));
  conversion.setting("\"whitespace\": true");
  EXPECT_EQ(conversion.run().document, "{\n}");
}

TEST(GoldenBrokenFileTest, UnreadableFilesGiveTheIndentedDocumentWithoutRows) {
  Conversion conversion(std::string(1000, 'x'));
  conversion.setting("\"whitespace\": true");
  const ConversionResult result = conversion.run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(matchesGolden("no-rows-indented", result.document));
}

TEST(GoldenBrokenFileTest, WhereverTheFileIsCutTheDocumentIsWhole) {
  const std::string whole = simple().bytes();
  const std::string noRows = goldenDocument("no-rows");
  const std::string head = noRows.substr(0, noRows.find("]},\"libraries\""));
  for (std::size_t size = 0; size < whole.size(); size += 13) {
    const ConversionResult result = Conversion(whole.substr(0, size)).run();
    EXPECT_EQ(result.status, 0) << size;
    EXPECT_EQ(result.err, "") << size;
    EXPECT_TRUE(result.document.starts_with(head)) << size;
    EXPECT_TRUE(result.document.ends_with("\"ref to line number\"},\"data\":[]}}")) << size;
  }
}
