// Broken files: how opening them fails, and how a walk over them ends.
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfRecordFileReader.h"
#include "tests/perfevents/PerfFileFixture.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::handleError;
using perfevents::PerfRecordFileReader;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Header = PerfFileBuilder::Header;

const std::string NOT_OPEN = "Input file stream has not been opened.";
const std::string TOO_SMALL = "Perf file is of insufficient size.";
const std::string HEADER_READ = "Error reading perf file header.";
const std::string HEADER_SIZE =
    "Invalid header size recorded in perf file header.  Perf file corrupt.";
const std::string ATTR_SIZE =
    "Invalid attribute size recorded in perf file header.  Perf file corrupt.";
const std::string ATTRS_PLACE = "Invalid attribute offset location.  Perf file corrupt.";
const std::string OTHER_PLACE = "Invalid trace event types offset location.  Perf file corrupt.";
const std::string ATTRS_READ = "Error reading perf file attributes.  Perf file corrupt.";
const std::string IDS_READ = "Error reading perf file attribute IDs.  Perf file corrupt.";
const std::string TYPES_CUE = "Error reading perf file trace event types.  Perf file corrupt.";
const std::string TYPES_COUNT = "Number of trace event types is invalid.  Perf file corrupt.";
const std::string TYPES_READ = "Error reading trace event types.  Perf file corrupt.";
const std::string DATA_CUE = "Error cueing read of perf event data.  Perf file corrupt.";

class PerfRecordFileReaderBrokenFileTest : public PerfFileFixture {
 protected:
  // The file opens.
  void expectSound(const PerfFileBuilder& builder, bool createStore = true) {
    EXPECT_NO_THROW(PerfRecordFileReader(open(builder), createStore));
  }

  // The number of ids that the attributes of a file together have.
  std::size_t idsOf(const PerfFileBuilder& builder) {
    const PerfRecordFileReader reader(open(builder), true);
    std::size_t count = 0;
    for (const auto& attribute : reader.getAttributes()) {
      count += attribute.ids().size();
    }
    return count;
  }
};

TEST_F(PerfRecordFileReaderBrokenFileTest, HandleErrorLogsAndThrows) {
  expectFailureOf([] { handleError("a message with 100%s in it"); }, "a message with 100%s in it");
}

TEST_F(PerfRecordFileReaderBrokenFileTest, StreamThatIsNotOpen) {
  std::ifstream stream;
  expectFailure(stream, NOT_OPEN);
  std::ifstream absent(folder_.file("absent"));
  expectFailure(absent, NOT_OPEN);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, StreamThatHasFailedBefore) {
  std::ifstream& stream = open(file());
  stream.setstate(std::ios::failbit);
  expectFailure(stream, TOO_SMALL);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, FileOf199BytesIsTooSmallAndOf200BytesIsNot) {
  const PerfFileBuilder smallest = PerfFileBuilder().attribute(Attr().structureSize(64));
  expectFailure(PerfFileBuilder(smallest).fileSize(199), TOO_SMALL);
  expectSound(PerfFileBuilder(smallest).fileSize(200));
  expectFailure(PerfFileBuilder(smallest).fileSize(0), TOO_SMALL);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, HeaderThatCannotBeRead) {
  std::ifstream& stream = open(file());
  PerfRecordFileReader reader(stream, true);
  stream.close();
  expectFailureOf([&reader] { reader.readHeader(); }, HEADER_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, HeaderSizeIsExactly104) {
  for (const uint64_t size : {0ULL, 100ULL, 103ULL, 105ULL, 112ULL, 0x1'0000'0068ULL}) {
    expectFailure(file().header(Header::SIZE, size), HEADER_SIZE);
  }
  expectSound(file().header(Header::SIZE, 104));
}

TEST_F(PerfRecordFileReaderBrokenFileTest, AttributeSizeBelow80OrAbove65552) {
  const uint64_t wrong[] = {0, 1, 79, 65553, 0x1'0000'0000 + 112, 0xFFFFFFFFFFFFFFFF};
  for (const uint64_t size : wrong) {
    expectFailure(file().header(Header::ATTR_SIZE, size), ATTR_SIZE);
  }
  expectSound(PerfFileBuilder().attribute(Attr().structureSize(64)).fileSize(200));
  expectSound(PerfFileBuilder().attribute(Attr().structureSize(65552 - 16)));
  expectFailure(PerfFileBuilder().attribute(Attr().structureSize(65553 - 16)), ATTR_SIZE);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, HeaderSizeIsCheckedBeforeTheAttributeSize) {
  expectFailure(file().header(Header::SIZE, 100).header(Header::ATTR_SIZE, 79), HEADER_SIZE);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, RevisionIsNamedBeforeTheSectionsAreChecked) {
  const LogCapture log;
  EXPECT_THROW(PerfRecordFileReader(open(file().header(Header::DATA_OFFSET, 1000)), true),
               std::ios_base::failure);
  EXPECT_THAT(log.lines(LOGGER),
              ElementsAre(LogLine{"INFO", LOGGER,
                                  "Current version 3 of perf file attributes used in perf file."},
                          LogLine{"ERROR", LOGGER, OTHER_PLACE}));
}

TEST_F(PerfRecordFileReaderBrokenFileTest, AttributesSectionBeyondTheEnd) {
  const uint64_t size = file().bytes().size();
  expectFailure(file().header(Header::ATTRS_OFFSET, size + 1), ATTRS_PLACE);
  expectFailure(file().header(Header::ATTRS_SIZE, size + 1), ATTRS_PLACE);
  expectFailure(file().header(Header::ATTRS_OFFSET, 0x8000000000000000), ATTRS_PLACE);
  expectFailure(file().header(Header::ATTRS_SIZE, 0xFFFFFFFFFFFFFFFF), ATTRS_PLACE);
  // At the very end it passes the check; what follows is about its contents.
  expectFailure(file().header(Header::ATTRS_OFFSET, size), ATTRS_READ);
  expectFailure(file().header(Header::ATTRS_SIZE, 2 * 112).fileSize(2 * 112), ATTRS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, TraceEventTypesSectionBeyondTheEnd) {
  const uint64_t size = file().bytes().size();
  expectFailure(file().header(Header::EVENT_TYPES_OFFSET, size + 1), OTHER_PLACE);
  expectFailure(file().header(Header::EVENT_TYPES_SIZE, size + 1), OTHER_PLACE);
  expectFailure(file().header(Header::EVENT_TYPES_OFFSET, 0x8000000000000000), OTHER_PLACE);
  expectSound(file().header(Header::EVENT_TYPES_OFFSET, size));
  expectFailure(file().header(Header::EVENT_TYPES_SIZE, size), TYPES_COUNT);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, DataSectionBeyondTheEndHasTheMessageOfTraceEventTypes) {
  const uint64_t size = file().bytes().size();
  expectFailure(file().header(Header::DATA_OFFSET, size + 1), OTHER_PLACE);
  expectFailure(file().header(Header::DATA_SIZE, size + 1), OTHER_PLACE);
  expectFailure(file().header(Header::DATA_OFFSET, 0xFFFFFFFFFFFFFFFF), OTHER_PLACE);
  expectFailure(file().header(Header::DATA_SIZE, 0x8000000000000000), OTHER_PLACE);
  expectSound(file().header(Header::DATA_OFFSET, size));
  expectSound(file().header(Header::DATA_SIZE, size));
}

TEST_F(PerfRecordFileReaderBrokenFileTest, AttributesSectionIsCheckedFirst) {
  PerfFileBuilder builder = file();
  builder.header(Header::DATA_OFFSET, 1000).header(Header::EVENT_TYPES_OFFSET, 1000);
  expectFailure(builder.header(Header::ATTRS_OFFSET, 1000), ATTRS_PLACE);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, SumOfOffsetAndSizeIsNotChecked) {
  const PerfFileBuilder builder = file().comm(1, 2, "app");
  expectSound(PerfFileBuilder(builder).header(Header::DATA_SIZE, builder.bytes().size()));
}

TEST_F(PerfRecordFileReaderBrokenFileTest, NoAttributesMeansNoStore) {
  const LogCapture log;
  const PerfFileBuilder builder = file().header(Header::ATTRS_SIZE, 0).comm(1, 2, "app");
  try {
    const PerfRecordFileReader reader(open(builder), true);
    FAIL() << "nothing was thrown";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(),
                 "At least one PerfEventAttribute is required to construct "
                 "PerfRecordEventDataStore");
  }
  const PerfRecordFileReader reader(open(builder), false);
  EXPECT_THAT(reader.getAttributes(), IsEmpty());
  expectSound(file().header(Header::ATTRS_SIZE, 111), false);
  EXPECT_THROW(PerfRecordFileReader(open(file().header(Header::ATTRS_SIZE, 111)), true),
               std::invalid_argument);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, AttributeEntryCutByTheEnd) {
  PerfFileBuilder builder = file().attribute(Attr());  // the second entry ends with the file
  expectSound(builder);
  builder.header(Header::DATA_OFFSET, 0).header(Header::EVENT_TYPES_OFFSET, 0);
  for (const std::size_t missing : {1U, 16U, 17U}) {
    expectFailure(PerfFileBuilder(builder).truncateBy(missing), ATTRS_READ);
  }
}

TEST_F(PerfRecordFileReaderBrokenFileTest, AttributesThatCannotBeSought) {
  std::ifstream& stream = open(file());
  PerfRecordFileReader reader(stream, false);
  stream.close();
  expectFailureOf([&reader] { reader.readAttributes(); }, ATTRS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, IdsThatReachBeyondTheEnd) {
  const auto withIds = [](uint64_t offset, uint64_t size) {
    return PerfFileBuilder().attribute(Attr().idsSection(offset, size)).fileSize(256);
  };
  EXPECT_EQ(idsOf(withIds(248, 8)), 1U);
  EXPECT_EQ(idsOf(withIds(248, 15)), 1U);
  expectFailure(withIds(248, 16), IDS_READ);
  expectFailure(withIds(249, 8), IDS_READ);
  expectFailure(withIds(256, 8), IDS_READ);
  expectFailure(withIds(1'000'000, 8), IDS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, IdsWhoseOffsetNoFileHas) {
  const auto withIds = [](uint64_t offset, uint64_t size) {
    return PerfFileBuilder().attribute(Attr().idsSection(offset, size));
  };
  expectFailure(withIds(0x8000000000000000, 8), IDS_READ);
  expectFailure(withIds(0xFFFFFFFFFFFFFFFF, 8), IDS_READ);
  expectFailure(withIds(0xFFFFFFFFFFFFFFFF, 0), IDS_READ);
}

// The claim is believed only as far as the file reaches: neither time nor memory follow it.
TEST_F(PerfRecordFileReaderBrokenFileTest, EnormousClaimsOfIdsFailAtOnce) {
  for (const uint64_t size : {0x100000000ULL, 0x8000000000000000ULL, 0xFFFFFFFFFFFFFFFFULL}) {
    expectFailure(PerfFileBuilder().attribute(Attr().idsSection(0, size)), IDS_READ);
  }
}

// A large file with holes costs nothing to make, and its size says nothing about what can be read.
TEST_F(PerfRecordFileReaderBrokenFileTest, ClaimOfIdsIsNotAllocatedBeforeItIsRead) {
  constexpr uint64_t TEBIBYTE = uint64_t{1} << 40;
  const std::string path =
      PerfFileBuilder().attribute(Attr().idsSection(TEBIBYTE, TEBIBYTE)).writeTo(folder_);
  std::error_code error;
  std::filesystem::resize_file(path, TEBIBYTE, error);
  if (error) {
    GTEST_SKIP() << "no files of this size here: " << error.message();
  }
  std::ifstream stream(path, std::ios::in | std::ios::binary);
  expectFailure(stream, IDS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, AllIdsTogetherAreAtMostTheFilesSizeBy8) {
  const auto withIds = [](uint64_t first, uint64_t second) {
    PerfFileBuilder builder;
    builder.attribute(Attr().idsSection(0, first)).attribute(Attr().idsSection(0, second));
    return builder.fileSize(400);
  };
  EXPECT_EQ(idsOf(withIds(400, 0)), 50U);
  EXPECT_EQ(idsOf(withIds(400, 7)), 50U);
  EXPECT_EQ(idsOf(withIds(0, 400)), 50U);
  EXPECT_EQ(idsOf(withIds(200, 200)), 50U);
  EXPECT_EQ(idsOf(withIds(400 - 8, 8)), 50U);
  expectFailure(withIds(400, 8), IDS_READ);
  expectFailure(withIds(200, 208), IDS_READ);
  expectFailure(withIds(400, 400), IDS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, BoundOfTheIdsCountsWholeIds) {
  const auto withIds = [](uint64_t first, uint64_t second) {
    PerfFileBuilder builder;
    builder.attribute(Attr().idsSection(0, first)).attribute(Attr().idsSection(0, second));
    return builder.fileSize(407);
  };
  EXPECT_EQ(idsOf(withIds(200, 200)), 50U);
  expectFailure(withIds(200, 208), IDS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, ManyOverlappingIdSectionsFailAtOnce) {
  PerfFileBuilder builder;
  for (int i = 0; i < 2000; ++i) {
    builder.attribute(Attr().idsSection(0, 200'000));
  }
  ASSERT_GT(builder.bytes().size(), 200'000U);
  expectFailure(builder, IDS_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, MoreTraceEventTypesThanAttributes) {
  expectSound(file().eventType(1, "one"));
  expectFailure(file().eventType(1, "one").eventType(2, "two"), TYPES_COUNT);
  expectFailure(file().header(Header::ATTRS_SIZE, 0).eventType(1, "one"), TYPES_COUNT);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, TraceEventTypeCutByTheEnd) {
  PerfFileBuilder builder = file().eventType(1, "one").header(Header::DATA_OFFSET, 0);
  expectSound(builder);
  expectFailure(PerfFileBuilder(builder).truncateBy(1), TYPES_READ);
  expectFailure(PerfFileBuilder(builder).truncateBy(72), TYPES_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, TraceEventTypesThatCannotBeSought) {
  std::ifstream& stream = open(file());
  PerfRecordFileReader reader(stream, true);
  stream.close();
  expectFailureOf([&reader] { reader.readTraceEventTypes(); }, TYPES_CUE);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, FirstEventThatCannotBeSought) {
  std::ifstream& stream = open(file());
  PerfRecordFileReader reader(stream, true);
  stream.close();
  expectFailureOf([&reader] { reader.cueFirstEvent(); }, DATA_CUE);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, FirstEventCannotBeCuedAfterAFailedWalk) {
  std::ifstream& stream = open(file().comm(1, 2, "app").header(Header::DATA_SIZE, 32));
  PerfRecordFileReader reader(stream, true);
  NotingListener listener;
  reader.parseEvents(listener);
  expectFailureOf([&reader] { reader.cueFirstEvent(); }, DATA_CUE);
  stream.clear();
  EXPECT_NO_THROW(reader.cueFirstEvent());
}

TEST_F(PerfRecordFileReaderBrokenFileTest, RecordSizeOf0To7EndsTheWalkAfterTheRecordsBefore) {
  for (uint16_t size = 0; size < 8; ++size) {
    PerfFileBuilder builder = file();
    builder.comm(1, 2, "one").recordOfSize(3, size, Body().zeros(16)).comm(1, 2, "two");
    expectBrokenWalk(builder, {"3 one"}, GARBLED);
  }
}

TEST_F(PerfRecordFileReaderBrokenFileTest, RecordCutByTheEndEndsTheWalk) {
  PerfFileBuilder builder = file().comm(1, 2, "one").comm(1, 2, "two");
  expectBrokenWalk(builder.truncateLastRecordBy(1), {"3 one"}, SHORT_READ);
  expectBrokenWalk(builder.truncateLastRecordBy(15), {"3 one"}, SHORT_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, RecordLongerThanTheFileEndsTheWalk) {
  PerfFileBuilder builder = file();
  builder.comm(1, 2, "one").recordOfSize(3, 65535, Body().zeros(16));
  expectBrokenWalk(builder, {"3 one"}, SHORT_READ);
}

// Nothing was read before: the size is zero.
TEST_F(PerfRecordFileReaderBrokenFileTest, DataThatClaimsToBeWhereTheFileHasEnded) {
  expectBrokenWalk(file().header(Header::DATA_SIZE, 50), {}, GARBLED);
}

// The size of the record before still stands where the next header could not be read.
TEST_F(PerfRecordFileReaderBrokenFileTest, DataThatClaimsMoreThanTheFileHolds) {
  expectBrokenWalk(file().comm(1, 2, "one").header(Header::DATA_SIZE, 25), {"3 one"}, SHORT_READ);
  expectBrokenWalk(file().comm(1, 2, "one").header(Header::DATA_SIZE, 200), {"3 one"}, SHORT_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, RecordWithoutABodyBeforeTheEndLeavesItsSizeToo) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr());
  expectBrokenWalk(builder.record(9, Body()).header(Header::DATA_SIZE, 9), {"9"}, SHORT_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, HeaderCutBeforeItsSize) {
  const Body start = Body().u32(3).u16(0);
  expectBrokenWalk(file().data(start.str()), {}, GARBLED);
  expectBrokenWalk(file().comm(1, 2, "one").data(start.str()), {"3 one"}, SHORT_READ);
}

// Half of the size is there: the other half is that of the record before.
TEST_F(PerfRecordFileReaderBrokenFileTest, HeaderCutWithinItsSize) {
  const auto start = [](uint8_t lowByte) { return Body().u32(3).u16(0).u8(lowByte).str(); };
  expectBrokenWalk(file().data(start(7)), {}, GARBLED);
  expectBrokenWalk(file().data(start(8)), {}, SHORT_READ);
  PerfFileBuilder afterShort = file().comm(1, 2, "one");
  expectBrokenWalk(afterShort.data(start(4)), {"3 one"}, GARBLED);
  const std::string name(0x100, 'n');
  PerfFileBuilder afterLong = file().record(3, Body().u32(1).u32(2).bytes(name));
  expectBrokenWalk(afterLong.data(start(4)), {"3 " + name}, SHORT_READ);
}

TEST_F(PerfRecordFileReaderBrokenFileTest, WholeHeaderAtTheEndOfTheFile) {
  const auto header = [](uint16_t size) { return Body().u32(3).u16(0).u16(size).str(); };
  expectBrokenWalk(file().comm(1, 2, "one").data(header(9)), {"3 one"}, SHORT_READ);
  expectBrokenWalk(file().comm(1, 2, "one").data(header(7)), {"3 one"}, GARBLED);
  EXPECT_THAT(walk(file().comm(1, 2, "one").data(header(8))).errors, IsEmpty());
}

TEST_F(PerfRecordFileReaderBrokenFileTest, SampleWhoseCountsPointPastItsEndIsSkipped) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().sampleType(0x4C7));
  builder.record(9, Body().zeros(40).u32(5).bytes("four")).comm(1, 2, "after");
  const Walk seen = walk(builder);
  EXPECT_THAT(seen.records, ElementsAre("3 after"));
  EXPECT_THAT(seen.errors, IsEmpty());
}

}  // namespace
