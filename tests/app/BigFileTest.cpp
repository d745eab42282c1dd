// Recordings that no 32-bit number can measure. They are sparse: a few hundred kilobytes of disk,
// but for the one whose records fill it, which takes 270 MB.
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/Recordings.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Header = PerfFileBuilder::Header;

constexpr uint64_t GIB = uint64_t{1} << 30;
constexpr std::size_t FILE_HEADER = 104;

// A file that is zero where nothing was put.
class SparseFile {
 public:
  explicit SparseFile(const std::string& path)
      : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
  ~SparseFile() { close(fd_); }
  SparseFile(const SparseFile&) = delete;
  SparseFile& operator=(const SparseFile&) = delete;

  void put(uint64_t at, std::string_view bytes) const {
    const ssize_t written = pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(at));
    if (written != static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("cannot write the big file: is there room for it?");
    }
  }

  void size(uint64_t bytes) const {
    if (ftruncate(fd_, static_cast<off_t>(bytes)) != 0) {
      throw std::runtime_error("cannot make the file as big as it has to be");
    }
  }

 private:
  int fd_;
};

std::string pathIn(const Conversion& conversion) {
  return conversion.folder().file("recording.perf");
}

PerfFileBuilder simple() { return simpleRecording(IP_TID_TIME_CPU); }

void expectGoldenRun(const Conversion& conversion, const std::string& name) {
  const ConversionResult result = conversion.run();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(matchesGolden(name, result.document));
  EXPECT_THAT(result.complaints(), IsEmpty());
}

// The simple recording's file with everything but its header `distance` further on.
void convertMoved(uint64_t distance) {
  SCOPED_TRACE(distance);
  PerfFileBuilder builder = simple();
  builder.header(Header::ATTRS_OFFSET, distance + builder.attrsOffset());
  builder.header(Header::EVENT_TYPES_OFFSET, distance + builder.eventTypesOffset());
  builder.header(Header::DATA_OFFSET, distance + builder.dataOffset());
  const std::string bytes = builder.bytes();
  const Conversion conversion(bytes);
  const SparseFile file(pathIn(conversion));
  file.put(0, bytes.substr(0, FILE_HEADER));
  file.put(distance + FILE_HEADER, bytes.substr(FILE_HEADER));
  expectGoldenRun(conversion, "simple");
}

}  // namespace

TEST(BigFileTest, SectionsBeyondTwoGiBAreConverted) { convertMoved(2 * GIB); }

TEST(BigFileTest, SectionsBeyondFourGiBAreConverted) {
  convertMoved(4 * GIB);
  convertMoved(9 * GIB);
}

TEST(BigFileTest, RecordsThatLieAcrossTwoAndFourGiBAreConverted) {
  const uint64_t middle = simple().dataOffset() + 100;  // in the third record
  convertMoved(2 * GIB - middle);
  convertMoved(4 * GIB - middle);
}

TEST(BigFileTest, IdsBeyondFourGiBAreRead) {
  PerfFileBuilder recording;
  recording.attribute(Attr().sampleType(IP_TID_TIME_CPU).idsSection(5 * GIB, 16));
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app").sample(at(SECOND, 0x8010, 1, 1));
  const Conversion conversion(recording);
  const SparseFile file(pathIn(conversion));
  file.put(0, recording.bytes());
  file.size(5 * GIB + 15);
  const char* const error =
      "ERROR [PerfRecordFileReader] Error reading perf file attribute IDs.  Perf file corrupt.";
  EXPECT_THAT(conversion.run().complaints(), Contains(error));
  file.size(5 * GIB + 16);
  const ConversionResult result = conversion.run();
  EXPECT_THAT(result.complaints(), IsEmpty());
  EXPECT_EQ(result.sampleRows(), "[1,32784,3,0,0,1,1,[]]");
}

// Records of a type that nobody knows lie between the maps and the samples.
TEST(BigFileTest, MoreThanTwoGiBOfRecordsAreConverted) {
  constexpr uint16_t LARGEST = 0xFFF8;
  constexpr uint64_t COUNT = 2 * GIB / LARGEST + 2;
  PerfFileBuilder maps = recordingOf(IP_TID_TIME_CPU);
  maps.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  PerfFileBuilder all = recordingOf(IP_TID_TIME_CPU);
  all.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app").sample(at(SECOND, 0x8010, 1, 1));
  const uint64_t filled = maps.bytes().size();
  const std::string sample = all.bytes().substr(maps.bytes().size());
  all.header(Header::DATA_SIZE, filled - maps.dataOffset() + COUNT * LARGEST + sample.size());
  const std::string record = Body().u32(1000).u16(0).u16(LARGEST).str();

  const Conversion conversion(all);
  const SparseFile file(pathIn(conversion));
  file.put(0, all.bytes().substr(0, maps.bytes().size()));
  for (uint64_t i = 0; i < COUNT; ++i) {
    file.put(filled + i * LARGEST, record);
  }
  file.put(filled + COUNT * LARGEST, sample);
  const ConversionResult result = conversion.run();
  EXPECT_THAT(result.complaints(), IsEmpty());
  EXPECT_EQ(result.sampleRows(), "[1,32784,3,0,0,1,1,[]]");
}

// The bytes that follow the records are no records, so that the run that believes the size says so.
TEST(BigFileTest, TheSizeOfTheRecordsHas64Bits) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  const uint64_t map = recording.bytes().size() - recording.dataOffset();
  recording.sample(at(SECOND, 0x8010, 1, 1)).header(Header::DATA_SIZE, 4 * GIB + map);
  const Conversion conversion(recording);
  const SparseFile file(pathIn(conversion));
  file.put(0, recording.bytes());
  file.size(5 * GIB);
  const char* const error =
      "ERROR [PerfRecordFileReader] Garbled event data header size.  Perf file corrupt.";
  const ConversionResult result = conversion.run();
  EXPECT_THAT(result.complaints(), ElementsAre(error, error));
  EXPECT_EQ(result.sampleRows(), "[1,32784,3,0,0,1,1,[]]");
}
