// Passing over records: what comes behind them, the end of the stream included, is what comes after
// reading them one by one.
#include <algorithm>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "perfevents/RecordStream.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::RecordStream;
using Outcome = RecordStream::Outcome;
using Records = std::vector<std::string>;

constexpr std::size_t BLOCK = 128 * 1024;
constexpr std::size_t HEADER = 8;

std::string recordOf(std::size_t size, unsigned number) {
  return Body()
      .u32(number)
      .u16(0)
      .u16(static_cast<uint16_t>(size))
      .bytes(std::string(size - HEADER, static_cast<char>(number * 7 + 1)))
      .str();
}

Records recordsOf(std::size_t size, std::size_t count) {
  Records records;
  for (std::size_t i = 0; i < count; ++i) {
    records.push_back(recordOf(size, static_cast<unsigned>(i)));
  }
  return records;
}

// The records from `first` to before `behind` are passed over.
struct Passed {
  std::size_t first;
  std::size_t behind;
};

std::string joined(const Records& records, std::size_t from, std::size_t to) {
  return std::accumulate(records.begin() + static_cast<std::ptrdiff_t>(from),
                         records.begin() + static_cast<std::ptrdiff_t>(to), std::string());
}

// Walks the records, without those passed over, then to the end of what stands behind them.
// Returns how it ended.
Outcome walk(const Records& records, const std::string& behindThem, const std::vector<Passed>& all,
             std::istringstream& stream) {
  stream.str(joined(records, 0, records.size()) + behindThem);
  RecordStream reader(stream);
  reader.begin();
  auto passed = all.begin();
  for (std::size_t i = 0; i < records.size();) {
    if (passed != all.end() && passed->first == i) {
      const std::size_t bytes = joined(records, i, passed->behind).size();
      reader.passOver(static_cast<std::streamoff>(bytes));
      i = passed++->behind;
      continue;
    }
    EXPECT_EQ(static_cast<int>(reader.next()), static_cast<int>(Outcome::Record)) << i;
    const unsigned char* const begin = reader.record();
    EXPECT_TRUE(std::string(begin, begin + reader.size()) == records[i]) << i;
    ++i;
  }
  Outcome outcome = Outcome::Record;
  while (outcome == Outcome::Record) {
    outcome = reader.next();
  }
  reader.end();
  return outcome;
}

void expectNoDifference(const Records& records, const std::string& behindThem,
                        const std::vector<Passed>& passed) {
  std::istringstream plain;
  std::istringstream stream;
  const Outcome expected = walk(records, behindThem, {}, plain);
  EXPECT_EQ(static_cast<int>(walk(records, behindThem, passed, stream)),
            static_cast<int>(expected));
  EXPECT_EQ(stream.rdstate(), plain.rdstate());
  if (plain.good()) {
    EXPECT_EQ(stream.tellg(), plain.tellg());
  }
}

const std::string GARBLED = Body().u32(9).u16(0).u16(7).zeros(100).str();

}  // namespace

TEST(RecordStreamPassOverTest, InsideABlock) {
  expectNoDifference(recordsOf(40, 100), GARBLED, {{.first = 10, .behind = 50}});
}

TEST(RecordStreamPassOverTest, OneRecord) {
  expectNoDifference(recordsOf(40, 100), GARBLED, {{.first = 10, .behind = 11}});
}

TEST(RecordStreamPassOverTest, FromTheBeginning) {
  expectNoDifference(recordsOf(40, 100), GARBLED, {{.first = 0, .behind = 50}});
  expectNoDifference(recordsOf(40000, 100), GARBLED, {{.first = 0, .behind = 50}});
}

TEST(RecordStreamPassOverTest, AcrossBlocks) {
  for (const std::size_t behind : {3U, 4U, 5U, 30U, 90U}) {
    SCOPED_TRACE(behind);
    expectNoDifference(recordsOf(40000, 100), GARBLED, {{.first = 2, .behind = behind}});
  }
}

// 64 records fill a block.
TEST(RecordStreamPassOverTest, ToAndFromTheEndOfABlock) {
  const Records records = recordsOf(BLOCK / 64, 400);
  for (const std::size_t first : {1U, 63U, 64U, 65U, 127U, 128U}) {
    for (const std::size_t behind : {129U, 191U, 192U, 193U, 255U, 256U, 257U}) {
      SCOPED_TRACE(std::to_string(first) + " " + std::to_string(behind));
      expectNoDifference(records, GARBLED, {{.first = first, .behind = behind}});
    }
  }
}

TEST(RecordStreamPassOverTest, NothingAtAll) {
  const Records records = recordsOf(BLOCK / 64, 200);
  expectNoDifference(records, GARBLED, {{.first = 0, .behind = 0}});
  expectNoDifference(records, GARBLED, {{.first = 7, .behind = 7}});
  expectNoDifference(records, GARBLED, {{.first = 64, .behind = 64}});
}

TEST(RecordStreamPassOverTest, SeveralTimesInARow) {
  const Records records = recordsOf(5000, 400);
  expectNoDifference(records, GARBLED, {{5, 9}, {9, 200}, {200, 201}, {201, 390}});
  expectNoDifference(records, GARBLED, {{0, 100}, {101, 200}, {203, 204}, {300, 399}});
}

// Of a header that is cut within its size the other byte is that of the record before: so the last
// record is read.
TEST(RecordStreamPassOverTest, UpToTheLastRecordThenCutAtEachByteOfAHeader) {
  for (const std::size_t count : {20U, 7000U}) {
    for (const uint16_t lastSize : {uint16_t{0x10}, uint16_t{0x108}}) {
      Records records = recordsOf(48, count);
      records.push_back(recordOf(lastSize, 1));
      const std::string another = Body().u32(2).u16(0).u16(0x0204).zeros(0x200).str();
      for (std::size_t left = 0; left <= HEADER + 2; ++left) {
        SCOPED_TRACE(std::to_string(count) + " " + std::to_string(lastSize) + " " +
                     std::to_string(left));
        expectNoDifference(records, another.substr(0, left), {{0, count}});
        expectNoDifference(records, another.substr(0, left), {{3, count}});
      }
    }
  }
}

// The cut header's outcome, by hand: the last record's size is 0x0010, the cut one's 0x?204.
TEST(RecordStreamPassOverTest, CutHeaderBehindThemKeepsTheByteOfTheLastRecord) {
  Records records = recordsOf(0x118, 2000);
  records.push_back(recordOf(0x10, 1));
  const std::string another = Body().u32(2).u16(0).u16(0x0204).str();
  std::istringstream one;
  EXPECT_EQ(walk(records, another.substr(0, 7), {{1, 2000}}, one), Outcome::Garbled);
  std::istringstream two;
  EXPECT_EQ(walk(records, another.substr(0, 6), {{1, 2000}}, two), Outcome::CutOff);
}

// Not those of the block's first record, size 0x0118, which was looked at alone.
TEST(RecordStreamPassOverTest, CutHeaderRightBehindThemKeepsTheByteOfTheRecordBeforeThem) {
  Records records = recordsOf(0x118, 2000);
  records[1] = recordOf(0x10, 1);
  const std::string another = Body().u32(2).u16(0).u16(0x0204).str();
  std::istringstream stream;
  EXPECT_EQ(walk(records, another.substr(0, 7), {{2, 2000}}, stream), Outcome::Garbled);
}

// The block before reached the end of the stream, and set its state.
TEST(RecordStreamPassOverTest, BlockThatReachedTheEndOfTheStream) {
  expectNoDifference(recordsOf(3000, 60), "", {{.first = 45, .behind = 59}});
  expectNoDifference(recordsOf(3000, 60), "", {{.first = 1, .behind = 59}});
}

// As when a file has become shorter since its stretches were noted.
TEST(RecordStreamPassOverTest, BeyondTheEndOfTheStreamNothingIsFound) {
  for (const std::streamoff bytes : {100'000, 10'000'000}) {
    std::istringstream stream(joined(recordsOf(40, 100), 0, 100));
    RecordStream reader(stream);
    reader.begin();
    EXPECT_EQ(reader.next(), Outcome::Record);
    reader.passOver(bytes);
    EXPECT_EQ(reader.next(), Outcome::CutOff);
    reader.end();
  }
}

TEST(RecordStreamPassOverTest, StoppedBehindThemTheStreamStandsThere) {
  const Records records = recordsOf(5000, 100);
  for (const std::size_t behind : {std::size_t{4}, std::size_t{26}, std::size_t{90}}) {
    std::istringstream stream(joined(records, 0, records.size()));
    RecordStream reader(stream);
    reader.begin();
    EXPECT_EQ(reader.next(), Outcome::Record);
    reader.passOver(static_cast<std::streamoff>(5000 * (behind - 1)));
    reader.end();
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.tellg(), static_cast<std::streamoff>(5000 * behind));
  }
}

TEST(RecordStreamPassOverTest, RandomRecordsAndPlaces) {
  std::mt19937 random(20261121);
  for (int file = 0; file < 40; ++file) {
    SCOPED_TRACE(file);
    Records records;
    const unsigned longest = random() % 3 == 0 ? 50000 : 2000;
    const std::size_t count = 20 + random() % 300;
    for (unsigned i = 0; i < count; ++i) {
      records.push_back(recordOf(HEADER + random() % longest, i));
    }
    std::vector<Passed> passed;
    for (std::size_t first = random() % 10; first + 1 < count;) {
      const std::size_t behind = first + random() % (count - 1 - first + 1);
      passed.push_back({first, behind});
      first = behind + 1 + random() % 20;
    }
    expectNoDifference(records, random() % 2 == 0 ? "" : GARBLED.substr(0, random() % 12), passed);
  }
}
