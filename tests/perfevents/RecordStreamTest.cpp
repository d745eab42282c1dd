// Held against records read one by one, header and body, into one buffer: the plain way, whose
// behaviour at the end of a file RecordStream keeps.
#include <algorithm>
#include <cstring>
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

constexpr std::size_t BLOCK = 128 * 1024;
constexpr std::size_t HEADER = 8;

class PlainReader {
 public:
  explicit PlainReader(std::istream& stream) : stream_(stream), buffer_(65535) {}

  Outcome next() {
    stream_.read(buffer_.data(), HEADER);
    std::memcpy(&size_, buffer_.data() + 6, sizeof(size_));
    if (size_ < HEADER) {
      return Outcome::Garbled;
    }
    stream_.read(buffer_.data() + HEADER, size_ - static_cast<std::streamsize>(HEADER));
    return stream_.fail() ? Outcome::CutOff : Outcome::Record;
  }
  std::string record() const { return {buffer_.data(), size_}; }

 private:
  std::istream& stream_;
  std::vector<char> buffer_;
  uint16_t size_ = 0;
};

std::string recordOf(std::size_t size, unsigned number) {
  const auto fill = static_cast<char>(number * 7 + 1);
  return Body()
      .u32(number)
      .u16(static_cast<uint16_t>(number + 100))
      .u16(static_cast<uint16_t>(size))
      .bytes(std::string(size - HEADER, fill))
      .str();
}

// Records that fill `bytes` to the last.
std::string filler(std::size_t bytes) {
  std::string text;
  for (unsigned number = 0; text.size() < bytes; ++number) {
    const std::size_t left = bytes - text.size();
    text += recordOf(left > 5000 ? 4000 : left, number);
  }
  return text;
}

// Walks `bytes` from `from` on for at most `records` steps, in both ways. Returns how it ended.
Outcome expectSameWalk(const std::string& bytes, std::size_t from = 0,
                       std::size_t records = SIZE_MAX) {
  std::istringstream plainStream(bytes);
  std::istringstream stream(bytes);
  plainStream.seekg(static_cast<std::streamoff>(from));
  stream.seekg(static_cast<std::streamoff>(from));
  PlainReader plain(plainStream);
  RecordStream records_(stream);
  records_.takeStream();
  Outcome last = Outcome::Record;
  for (std::size_t i = 0; i < records && last == Outcome::Record; ++i) {
    last = plain.next();
    EXPECT_EQ(static_cast<int>(records_.next()), static_cast<int>(last)) << "record " << i;
    if (last == Outcome::Record) {
      const std::string record = plain.record();
      const unsigned char* const begin = records_.record();
      EXPECT_EQ(records_.size(), record.size());
      EXPECT_TRUE(std::equal(
          record.begin(), record.end(), begin,
          [](char one, unsigned char other) { return static_cast<unsigned char>(one) == other; }))
          << "record " << i;
      uint32_t type = 0;
      uint16_t misc = 0;
      std::memcpy(&type, record.data(), sizeof(type));
      std::memcpy(&misc, record.data() + 4, sizeof(misc));
      EXPECT_EQ(records_.type(), type);
      EXPECT_EQ(records_.misc(), misc);
    }
  }
  records_.returnStream();
  EXPECT_EQ(stream.fail(), plainStream.fail());
  EXPECT_EQ(stream.good(), plainStream.good());
  if (!plainStream.fail()) {
    EXPECT_EQ(stream.tellg(), plainStream.tellg());
  }
  return last;
}

}  // namespace

TEST(RecordStreamTest, HeaderThatStraddlesBlocksAtEachOfItsBytes) {
  for (std::size_t before = 0; before <= HEADER; ++before) {
    SCOPED_TRACE(before);
    const std::string bytes = filler(BLOCK - before) + recordOf(5000, 200) + recordOf(8, 201);
    EXPECT_EQ(expectSameWalk(bytes), Outcome::CutOff);
  }
}

TEST(RecordStreamTest, RecordThatStraddlesBlocks) {
  for (const std::size_t size : {std::size_t{9}, std::size_t{5000}, std::size_t{65535}}) {
    for (const std::size_t inside : {std::size_t{1}, HEADER, HEADER + 1, size - 1, size}) {
      SCOPED_TRACE(std::to_string(size) + " " + std::to_string(inside));
      const std::string bytes =
          filler(BLOCK - std::min(inside, size)) + recordOf(size, 90) + filler(2 * BLOCK);
      EXPECT_EQ(expectSameWalk(bytes), Outcome::CutOff);
    }
  }
}

TEST(RecordStreamTest, FileCutAtEachByteOfAHeaderAtTheEndOfABlock) {
  for (std::size_t before = 0; before <= HEADER; ++before) {
    const std::string bytes = filler(BLOCK - before) + recordOf(300, 77) + recordOf(300, 78);
    for (std::size_t left = 0; left <= 320; left += left < 20 ? 1 : 50) {
      SCOPED_TRACE(std::to_string(before) + " " + std::to_string(left));
      EXPECT_EQ(expectSameWalk(bytes.substr(0, BLOCK - before + left)), Outcome::CutOff);
    }
  }
}

// What is not read of the size is the size of the record before: 0x0108, and of 0x0204 one byte.
TEST(RecordStreamTest, HeaderCutWithinItsSizeKeepsTheOtherByteOfTheOneBefore) {
  const std::string bytes = recordOf(0x108, 1) + Body().u32(2).u16(0).u16(0x0204).str();
  EXPECT_EQ(expectSameWalk(bytes.substr(0, 0x108 + 7)), Outcome::CutOff);  // 0x0104
  const std::string small = recordOf(0x10, 1) + Body().u32(2).u16(0).u16(0x0204).str();
  EXPECT_EQ(expectSameWalk(small.substr(0, 0x10 + 7)), Outcome::Garbled);  // 0x0004
  EXPECT_EQ(expectSameWalk(small.substr(0, 0x10 + 6)), Outcome::CutOff);   // 0x0010
}

TEST(RecordStreamTest, HeaderCutWithinItsSizeBehindABlockBoundary) {
  for (std::size_t before = 0; before <= 24; ++before) {
    SCOPED_TRACE(before);
    const std::string small = filler(BLOCK - before) + recordOf(0x10, 1);
    const std::string cut = Body().u32(2).u16(0).u16(0x0204).str().substr(0, 7);
    EXPECT_EQ(expectSameWalk(small + cut), Outcome::Garbled);
  }
}

TEST(RecordStreamTest, WithoutARecordBeforeAnEmptyOrCutHeaderIsGarbled) {
  EXPECT_EQ(expectSameWalk(""), Outcome::Garbled);
  EXPECT_EQ(expectSameWalk(recordOf(300, 1).substr(0, 6)), Outcome::Garbled);
  EXPECT_EQ(expectSameWalk(recordOf(300, 1).substr(0, 7)), Outcome::CutOff);  // size 44
}

TEST(RecordStreamTest, GarbledSizesLeaveTheStreamBehindTheHeader) {
  for (uint16_t size = 0; size < HEADER; ++size) {
    const std::string header = Body().u32(9).u16(0).u16(size).str();
    EXPECT_EQ(expectSameWalk(filler(1000) + header + filler(1000)), Outcome::Garbled);
    EXPECT_EQ(expectSameWalk(filler(BLOCK - 3) + header + filler(1000)), Outcome::Garbled);
    EXPECT_EQ(expectSameWalk(header), Outcome::Garbled);
  }
}

TEST(RecordStreamTest, StoppedAnywhereTheStreamStandsBehindTheLastRecord) {
  const std::string bytes = filler(3 * BLOCK);
  for (std::size_t records = 0; records <= 100; ++records) {  // it holds 99
    EXPECT_EQ(expectSameWalk(bytes, 0, records), records < 100 ? Outcome::Record : Outcome::CutOff)
        << records;
  }
}

TEST(RecordStreamTest, BeginsWhereTheStreamIs) {
  const std::string bytes = recordOf(40, 1) + recordOf(50, 2) + filler(BLOCK);
  EXPECT_EQ(expectSameWalk(bytes, 40), Outcome::CutOff);
  EXPECT_EQ(expectSameWalk(bytes, 90, 2), Outcome::Record);
}

TEST(RecordStreamTest, SecondWalkSeesTheSameRecords) {
  const std::string bytes = filler(BLOCK + 5000);
  std::istringstream stream(bytes);
  RecordStream records(stream);
  for (int walk = 0; walk < 2; ++walk) {
    stream.clear();
    stream.seekg(0);
    records.takeStream();
    std::string seen;
    while (seen.size() < bytes.size() && records.next() == Outcome::Record) {
      seen.append(records.record(), records.record() + records.size());
    }
    EXPECT_TRUE(seen == bytes) << walk;
    records.returnStream();
    EXPECT_TRUE(stream.good());
  }
}

// Of a header cut within its size the other byte is that of the last record, 0x0010, not of the
// first, 0x0118.
TEST(RecordStreamTest, SecondWalkStillHasTheHeaderOfTheLastRecord) {
  const std::string cut = Body().u32(2).u16(0).u16(0x0204).str().substr(0, 7);
  std::istringstream stream(recordOf(0x118, 1) + recordOf(0x10, 2) + cut);
  RecordStream records(stream);
  records.takeStream();
  EXPECT_EQ(static_cast<int>(records.next()), static_cast<int>(Outcome::Record));
  EXPECT_EQ(static_cast<int>(records.next()), static_cast<int>(Outcome::Record));
  records.returnStream();
  records.takeStream();
  EXPECT_EQ(static_cast<int>(records.next()), static_cast<int>(Outcome::Garbled));
}

TEST(RecordStreamTest, TheLargestRecordsSpaceCanBeReadFromEveryRecordsStart) {
  std::istringstream stream(filler(2 * BLOCK));
  RecordStream records(stream);
  records.takeStream();
  unsigned sum = 0;
  while (records.next() == Outcome::Record) {
    sum += records.record()[65534];  // an address sanitizer would object
  }
  EXPECT_GE(sum, 0U);
}

TEST(RecordStreamTest, RandomFilesCutAnywhere) {
  std::mt19937 random(20261121);
  for (int file = 0; file < 60; ++file) {
    SCOPED_TRACE(file);
    std::string bytes;
    const unsigned longest = random() % 3 == 0 ? 60000 : 300;
    const std::size_t wanted = random() % (3 * BLOCK);
    for (unsigned number = 0; bytes.size() < wanted; ++number) {
      bytes += recordOf(HEADER + random() % longest, number);
    }
    if (random() % 3 == 0 && !bytes.empty()) {
      bytes[random() % bytes.size()] = static_cast<char>(random() % 256);
    }
    expectSameWalk(bytes);
    expectSameWalk(
        bytes.substr(0, bytes.size() - std::min<std::size_t>(bytes.size(), random() % 400)));
  }
}

// Gives its bytes, and then fails as a disk does.
class FailingBuffer : public std::stringbuf {
 public:
  FailingBuffer(const std::string& bytes, int error) : std::stringbuf(bytes), error_(error) {}

 protected:
  std::streamsize xsgetn(char* to, std::streamsize size) override {
    const std::streamsize count = std::stringbuf::xsgetn(to, size);
    if (count < size) {
      errno = error_;
      throw std::ios_base::failure("the disk has failed");
    }
    return count;
  }

 private:
  const int error_;
};

TEST(RecordStreamTest, AReadThatFailsIsToldWithItsReason) {
  FailingBuffer buffer(filler(BLOCK), EIO);
  std::istream stream(&buffer);
  RecordStream records(stream);
  records.takeStream();
  EXPECT_EQ(records.readError(), 0);
  while (records.next() == Outcome::Record) {
  }
  errno = 0;  // whatever happens since
  EXPECT_EQ(records.readError(), EIO);
  records.returnStream();
  EXPECT_TRUE(stream.bad());
}

TEST(RecordStreamTest, TheEndOfAFileIsNoReadError) {
  std::istringstream stream(filler(BLOCK).substr(0, BLOCK - 1));
  RecordStream records(stream);
  records.takeStream();
  while (records.next() == Outcome::Record) {
  }
  EXPECT_EQ(records.readError(), 0);
  EXPECT_FALSE(stream.bad());
}
