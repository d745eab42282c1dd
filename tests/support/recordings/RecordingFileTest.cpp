#include <cstring>
#include <stdexcept>
#include <zstd.h>

#include <gtest/gtest.h>

#include "tests/support/PerfFileBuilder.h"
#include "tests/support/recordings/RecordingFile.h"

using namespace std::string_literals;
using made::ByteOrder;
using made::Compression;
using made::Encoding;
using made::Form;
using made::Identification;
using made::Maps;
using made::Recording;
using made::SampleBit;

namespace {

// The bytes [begin, begin + size) of a file.
std::string part(const std::string& bytes, std::size_t begin, std::size_t size) {
  return bytes.substr(begin, size);
}

uint64_t number(const std::string& bytes, std::size_t offset) {
  uint64_t value = 0;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

Recording smallRecording() {
  Recording recording;
  recording.comm({.pid = 10, .tid = 11, .name = "app"})
      .map({.pid = 10,
            .tid = 11,
            .address = 0x8000,
            .length = 0x1000,
            .pageOffset = 0x2000,
            .file = "/bin/app",
            .time = 5,
            .cpu = 3})
      .sample({.ip = 0x8010, .pid = 10, .tid = 11, .time = 6, .cpu = 1});
  return recording;
}

// Where the records of a file begin.
constexpr std::size_t DATA_OFFSET = 48 - 8;

std::string records(const std::string& file) {
  return part(file, number(file, DATA_OFFSET), number(file, DATA_OFFSET + 8));
}

// What the other builder of recordings writes for smallRecording(), with trailers.
std::string expectedRecords() {
  PerfFileBuilder builder;
  builder.record(3, Body().u32(10).u32(11).name("app").zeros(24));
  const auto trailer = [](Body body) { return body.u32(10).u32(11).u64(5).u32(3).u32(0); };
  builder.record(10,
                 trailer(Body()
                             .u32(10)
                             .u32(11)
                             .u64(0x8000)
                             .u64(0x1000)
                             .u64(0x2000)
                             .u32(8)
                             .u32(1)
                             .u64(77)
                             .u64(0)
                             .u32(5)
                             .u32(2)
                             .name("/bin/app")),
                 2);
  builder.record(9, Body().u64(0x8010).u32(10).u32(11).u64(6).u32(1).u32(0).u64(1'000'000), 2);
  return builder.bytes().substr(builder.dataOffset());
}

}  // namespace

TEST(RecordingFileTest, AFileHasTheRecordsAndTheAttribute) {
  const std::string file = made::fileBytes(smallRecording());
  EXPECT_EQ(part(file, 0, 8), "PERFILE2");
  EXPECT_EQ(number(file, 8), 104u);
  EXPECT_EQ(number(file, 16), 128u + 16);
  const std::size_t attribute = number(file, 24);
  EXPECT_EQ(number(file, attribute), 1u | uint64_t{128} << 32);  // type software, size
  EXPECT_EQ(number(file, attribute + 24), 0x187u);               // IP, TID, TIME, CPU, PERIOD
  EXPECT_EQ(number(file, attribute + 40), 0x1842300u);           // with sample_id_all, mmap2
  EXPECT_EQ(expectedRecords(), records(file));
}

TEST(RecordingFileTest, TheShortHeaderHasNoBitmap) {
  const std::string file = made::fileBytes(
      smallRecording(),
      {.form = Form::SHORT_HEADER, .magic = made::Magic::PERFFILE, .attributeSize = 64});
  EXPECT_EQ(part(file, 0, 8), "PERFFILE");
  EXPECT_EQ(number(file, 8), 72u);
  EXPECT_EQ(number(file, 16), 80u);
  EXPECT_EQ(number(file, 24), 72u);
  EXPECT_EQ(number(file, DATA_OFFSET), 72u + 80);
  EXPECT_EQ(file.size(), number(file, DATA_OFFSET) + number(file, DATA_OFFSET + 8));
}

TEST(RecordingFileTest, TheForeignOrderTurnsNumbersOnly) {
  const std::string file = made::fileBytes(smallRecording(), {.order = ByteOrder::BIG});
  EXPECT_EQ(part(file, 0, 8), "2ELIFREP");
  EXPECT_EQ(part(file, 8, 8), "\0\0\0\0\0\0\0\x68"s);
  // type, size; then the flags: 0x00 0x23 0x84 0x01, the bits of each byte reversed
  EXPECT_EQ(part(file, 104, 8), "\0\0\0\x01\0\0\0\x80"s);
  EXPECT_EQ(part(file, 104 + 40, 8), "\0\xc4\x21\x80\0\0\0\0"s);
  // COMM: type 3, misc 0, size 8 + 8 + 8 + 24; pid 10, tid 11
  const std::size_t data = 104 + 144;
  EXPECT_EQ(part(file, data, 24), "\0\0\0\x03\0\0\0\x30\0\0\0\x0a\0\0\0\x0b"s + "app\0\0\0\0\0"s);
}

TEST(RecordingFileTest, APipeHasAttributesAndFeaturesAsRecords) {
  Recording recording = smallRecording();
  const std::string file = made::fileBytes(
      recording, {.form = Form::PIPE, .attributeSize = 112, .identification = Identification::ID});
  EXPECT_EQ(part(file, 0, 16), "PERFILE2"s + "\x10\0\0\0\0\0\0\0"s);
  EXPECT_EQ(number(file, 16), 64u | uint64_t{8 + 112 + 8} << 48);  // HEADER_ATTR with one id
  EXPECT_EQ(number(file, 16 + 8 + 112), 100u);
  const std::size_t feature = 16 + 128;
  EXPECT_EQ(number(file, feature), 80u | uint64_t{8 + 8 + 4 + 64} << 48);
  EXPECT_EQ(number(file, feature + 8), 3u);
  EXPECT_EQ(part(file, feature + 16, 10), "\x40\0\0\0board\0"s);
}

TEST(RecordingFileTest, APipeOfForeignOrderTurnsItsRecords) {
  const std::string file = made::fileBytes(
      smallRecording(), {.form = Form::PIPE, .order = ByteOrder::BIG, .attributeSize = 64});
  EXPECT_EQ(part(file, 0, 24), "2ELIFREP\0\0\0\0\0\0\0\x10\0\0\0\x40\0\0\0\x48"s);
  // the sample: pid and tid stay in their order
  EXPECT_EQ(part(file, file.size() - 48, 24),
            "\0\0\0\x09\0\x02\0\x30\0\0\0\0\0\0\x80\x10\0\0\0\x0a\0\0\0\x0b"s);
}

TEST(RecordingFileTest, IdsStandWhereTheKernelPutsThem) {
  const Recording recording = smallRecording();
  // A sample begins with its IDENTIFIER, or has its ID behind the time; trailers have the ID
  // behind the time, and the IDENTIFIER last.
  const std::string identified =
      records(made::fileBytes(recording, {.identification = Identification::IDENTIFIER}));
  const std::string withId =
      records(made::fileBytes(recording, {.identification = Identification::ID}));
  EXPECT_EQ(number(identified, identified.size() - 48), 100u);
  EXPECT_EQ(number(withId, withId.size() - 24), 100u);
  const std::size_t mapEnd = 8 + 8 + 8 + 32 + 8 + 32 + 24 + 8 + 16 + 32;  // of COMM and MMAP2
  EXPECT_EQ(number(identified, mapEnd - 8), 100u);
  EXPECT_EQ(number(withId, mapEnd - 16), 100u);
}

TEST(RecordingFileTest, BuildIdsReplaceTheInodeOfMapsThatHaveOne) {
  Recording recording;
  recording.map({.file = "/a", .buildId = std::string(20, 'i')}).map({.file = "[vdso]"});
  const std::string bytes =
      records(made::fileBytes(recording, {.hasSampleIdAll = false, .maps = Maps::MMAP2_BUILD_ID}));
  EXPECT_EQ(number(bytes, 0), 10u | uint64_t{2 | 1 << 14} << 32 | uint64_t{80} << 48);
  EXPECT_EQ(part(bytes, 40, 24), "\x14\0\0\0"s + std::string(20, 'i'));
  EXPECT_EQ(number(bytes, 80), 10u | uint64_t{2} << 32 | uint64_t{80} << 48);
  EXPECT_EQ(number(bytes, 80 + 48), 77u);
}

TEST(RecordingFileTest, OldMapsHaveNeitherInodeNorProtection) {
  Recording recording;
  recording.map({.pid = 1,
                 .tid = 2,
                 .address = 3,
                 .length = 4,
                 .pageOffset = 5,
                 .file = "/a",
                 .isData = true});
  const std::string bytes =
      records(made::fileBytes(recording, {.hasSampleIdAll = false, .maps = Maps::MMAP}));
  PerfFileBuilder builder;
  builder.record(1, Body().u32(1).u32(2).u64(3).u64(4).u64(5).name("/a"), 2 | 1 << 13);
  EXPECT_EQ(builder.bytes().substr(builder.dataOffset()), bytes);
}

TEST(RecordingFileTest, EverySampleFieldStandsInTheKernelsOrder) {
  Recording recording;
  recording.events[0].sampleType = 0x1ffffff & ~(SampleBit::ID | SampleBit::IDENTIFIER);
  recording.events[0].branchSampleType = 1 << 17 | 1 << 19;
  recording.events[0].regsUser = 3;
  recording.events[0].regsIntr = 1;
  recording.sample({.ip = 1,
                    .pid = 2,
                    .tid = 3,
                    .time = 4,
                    .cpu = 7,
                    .period = 8,
                    .chain = {10, 11},
                    .address = 5,
                    .streamId = 6,
                    .read = {9},
                    .raw = "rawr",
                    .branchIndex = 12,
                    .branches = {{13, 14, 15}},
                    .branchCounters = {16},
                    .regsUser = {2, {17, 18}},
                    .stack = "stack---",
                    .stackUsed = 5,
                    .weight = 19,
                    .dataSource = 20,
                    .transaction = 21,
                    .regsIntr = {1, {22}},
                    .physicalAddress = 23,
                    .cgroup = 24,
                    .dataPageSize = 25,
                    .codePageSize = 26,
                    .aux = "auxiliar"});
  Body body;
  body.u64(1).u32(2).u32(3).u64(4).u64(5).u64(6).u32(7).u32(0).u64(8).u64(9);
  body.u64(2).u64(10).u64(11).u32(4).bytes("rawr");
  body.u64(1).u64(12).u64(13).u64(14).u64(15).u64(16);
  body.u64(2).u64(17).u64(18).u64(8).bytes("stack---").u64(5);
  body.u64(19).u64(20).u64(21).u64(1).u64(22).u64(23).u64(24).u64(25).u64(26);
  body.u64(8).bytes("auxiliar");
  const std::string bytes = records(made::fileBytes(recording));
  EXPECT_EQ(body.str(), bytes.substr(8));
}

TEST(RecordingFileTest, CompressedRecordsAreOneStreamAndSplitWhatTheyHold) {
  for (const Compression kind : {Compression::COMPRESSED, Compression::COMPRESSED2}) {
    Recording recording = smallRecording();
    for (uint64_t time = 10; time < 20; ++time) {
      recording.sample({.ip = 0x8000 + time, .pid = 10, .tid = 11, .time = time});
    }
    const std::string plain = records(made::fileBytes(recording));
    const std::string bytes =
        records(made::fileBytes(recording, {.compression = kind, .pushBytes = 100}));
    const bool isPadded = kind == Compression::COMPRESSED2;
    // perf's own COMM stays as it is.
    const std::size_t commBytes = 48;
    EXPECT_EQ(part(plain, 0, commBytes), part(bytes, 0, commBytes));
    std::string unpacked;
    ZSTD_DStream* stream = ZSTD_createDStream();
    std::size_t count = 0;
    for (std::size_t at = commBytes; at < bytes.size(); ++count) {
      const uint64_t header = number(bytes, at);
      EXPECT_EQ(isPadded ? 83u : 81u, header & 0xffffffff);
      const std::size_t size = header >> 48;
      std::string packed = bytes.substr(at + 8, size - 8);
      if (isPadded) {
        EXPECT_EQ(size % 8, 0u);
        packed = packed.substr(8, number(packed, 0));
      }
      EXPECT_EQ(count == 0, packed.starts_with("\x28\xb5\x2f\xfd"));
      std::string output(1000, '\0');
      ZSTD_inBuffer from{packed.data(), packed.size(), 0};
      ZSTD_outBuffer to{output.data(), output.size(), 0};
      ASSERT_EQ(ZSTD_isError(ZSTD_decompressStream(stream, &to, &from)), 0u);
      EXPECT_EQ(packed.size(), from.pos);
      unpacked.append(output, 0, to.pos);
      at += size;
    }
    ZSTD_freeDStream(stream);
    EXPECT_LT(4u, count);
    EXPECT_EQ(plain.substr(commBytes), unpacked);
  }
}

TEST(RecordingFileTest, AnUnfinishedFileSaysThatItHasNoData) {
  Recording recording = smallRecording();
  const std::string file = made::fileBytes(recording, {.isUnfinished = true});
  EXPECT_EQ(number(file, DATA_OFFSET + 8), 0u);
  EXPECT_EQ(uint64_t{1} << 3 | 1 << 12, number(file, 72));
  EXPECT_EQ(expectedRecords(), file.substr(number(file, DATA_OFFSET)));
}

TEST(RecordingFileTest, SectionsCanStandInAnotherOrder) {
  const std::string file =
      made::fileBytes(smallRecording(), {.attributePadding = 24, .attributesLast = true});
  EXPECT_EQ(number(file, 16), 128u + 24 + 16);
  EXPECT_EQ(file.size() - (128 + 24 + 16), number(file, 24));
  EXPECT_EQ(number(file, DATA_OFFSET), 104u);
  EXPECT_EQ(number(file, number(file, 24)), 1u | uint64_t{128} << 32);
}

TEST(RecordingFileTest, AFolderHasTheRecordsOfEachProcessorApart) {
  const auto files = made::folderFiles(smallRecording().finishedRound());
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(part(expectedRecords(), 0, 48), records(files.at("data")));
  EXPECT_EQ(part(expectedRecords(), 48 + 112, 48), files.at("data.1"));
  EXPECT_EQ(part(expectedRecords(), 48, 112), files.at("data.3"));
}

TEST(RecordingFileTest, WhatAnEncodingCannotHoldIsRefused) {
  Recording recording = smallRecording();
  recording.events[0].regsUser = 1;
  EXPECT_THROW(made::fileBytes(recording, {.attributeSize = 80}), std::invalid_argument);
  EXPECT_NO_THROW(made::fileBytes(recording, {.attributeSize = 96}));
  recording.events.push_back({.name = "task-clock", .config = 1});
  EXPECT_THROW(made::fileBytes(recording), std::invalid_argument);
  EXPECT_THROW(made::folderFiles(smallRecording(), {.form = Form::PIPE}), std::invalid_argument);
}
