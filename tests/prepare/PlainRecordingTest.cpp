// What stands behind the records: where a recording comes from, laid out as perf lays it out
// (tools/perf/Documentation/perf.data-file-format.txt).
#include <bit>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/PlainRecording.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/Fields.h"

using made::Fields;
using prepare::PlainRecording;
using recordings::Facts;
using testing::ElementsAre;

namespace {

constexpr std::size_t BITMAP = 72;
constexpr std::size_t FIRST_RECORD = 104 + 96 + 16;  // header, attribute, place of its ids
constexpr std::size_t RECORDS = 8 + 8 + 8 + 24;      // one name with its trailer

// A recording of one name.
std::string writtenWith(const Facts& origin) {
  const TempDir temp;
  PlainRecording output(temp.file("plain"), {}, {});
  output.addName(10, 10, "app");
  output.finish(origin);
  return temp.read("plain");
}

std::string laidOut(const Fields& fields) {
  return fields.in(std::endian::native == std::endian::little ? made::ByteOrder::LITTLE
                                                              : made::ByteOrder::BIG);
}

}  // namespace

TEST(PlainRecordingTest, WhereItComesFromStandsBehindTheRecords) {
  Facts origin;
  origin.hostname = "board";
  origin.processor = std::string(63, 'p');
  origin.processorId = std::string(64, 'i');
  origin.commandLine = {"perf", "record"};
  const std::string bytes = writtenWith(origin);
  EXPECT_EQ(bytes.substr(BITMAP, 32),
            laidOut(Fields().u64(1u << 3 | 1u << 8 | 1u << 9 | 1u << 11).zeros(24)));
  const std::size_t end = FIRST_RECORD + RECORDS;
  const std::size_t first = end + 4 * 16;
  EXPECT_EQ(bytes.substr(end), laidOut(Fields()
                                           .u64s({first, 68})
                                           .u64s({first + 68, 68})
                                           .u64s({first + 136, 132})
                                           .u64s({first + 268, 140})
                                           .u32(64)
                                           .textOfSize("board", 64)
                                           .u32(64)
                                           .textOfSize(origin.processor, 64)
                                           .u32(128)
                                           .textOfSize(origin.processorId, 128)
                                           .u32(2)
                                           .u32(64)
                                           .textOfSize("perf", 64)
                                           .u32(64)
                                           .textOfSize("record", 64)));
}

TEST(PlainRecordingTest, OfAnUnknownOriginNothingIsSaid) {
  const std::string bytes = writtenWith({});
  EXPECT_EQ(bytes.substr(BITMAP, 32), std::string(32, '\0'));
  EXPECT_EQ(bytes.size(), FIRST_RECORD + RECORDS);
}

TEST(PlainRecordingTest, ItIsReadAgainAsItWas) {
  Facts origin;
  origin.hostname = "board";
  origin.osRelease = "6.1.0";
  origin.perfVersion = "6.1.90";
  origin.architecture = "x86_64";
  origin.processor = "A processor";
  origin.processorId = "Maker,6,85,7";
  origin.commandLine = {"perf", "record", "", "-a"};
  const Walked walked(writtenWith(origin));
  EXPECT_THAT(walked.lines, ElementsAre("comm 10/10 app"));
  const Facts& facts = walked.recording.header().facts;
  EXPECT_EQ(facts.hostname, "board");
  EXPECT_EQ(facts.osRelease, "6.1.0");
  EXPECT_EQ(facts.perfVersion, "6.1.90");
  EXPECT_EQ(facts.architecture, "x86_64");
  EXPECT_EQ(facts.processor, "A processor");
  EXPECT_EQ(facts.processorId, "Maker,6,85,7");
  EXPECT_THAT(facts.commandLine, ElementsAre("perf", "record", "", "-a"));
}

// A recording may say anything of itself.
TEST(PlainRecordingTest, EndlessTextsAreCut) {
  Facts origin;
  origin.hostname = std::string(1'000'000, 'h');
  origin.commandLine.resize(1'000'000);
  const std::string bytes = writtenWith(origin);
  EXPECT_LT(bytes.size(), 3'000'000u);
  EXPECT_EQ(Walked(bytes).recording.header().facts.hostname.substr(0, 2), "hh");
}
