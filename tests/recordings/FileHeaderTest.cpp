#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/FileHeader.h"
#include "recordings/RecordingError.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/RecordingFile.h"

using made::Fields;
using recordings::FileHeader;
using recordings::MemoryInput;
using recordings::RecordingError;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string refusalOf(const std::string& bytes) {
  try {
    const Walked walked(bytes);
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "read";
}

made::Recording oneSample() {
  made::Recording recording;
  recording.sample({.ip = 1, .pid = 1, .tid = 1, .time = 1});
  return recording;
}

// The header with another number at an offset.
std::string withNumber(std::string bytes, std::size_t offset, uint64_t number) {
  bytes.replace(offset, 8, Fields().u64(number).in(made::ByteOrder::LITTLE));
  return bytes;
}

}  // namespace

TEST(FileHeaderTest, FormsAreToldApart) {
  const auto header = [](const made::Encoding& encoding) {
    const std::string bytes = made::fileBytes(oneSample(), encoding);
    return FileHeader::read(MemoryInput(asBytes(bytes)));
  };
  const FileHeader file = header({});
  EXPECT_EQ(file.order, recordings::ByteOrder::NATIVE);
  EXPECT_EQ(file.dataBegin, 104u + 144);
  EXPECT_EQ(file.dataBegin + 48, file.dataEnd);
  EXPECT_FALSE(file.isUnfinished);
  const FileHeader foreign = header({.order = made::ByteOrder::BIG});
  EXPECT_EQ(foreign.order, recordings::ByteOrder::FOREIGN);
  EXPECT_EQ(foreign.dataBegin, 104u + 144);
  const FileHeader pipe = header({.form = made::Form::PIPE});
  EXPECT_EQ(pipe.form, recordings::RecordStream::Form::PIPE);
  EXPECT_EQ(pipe.dataBegin, 16u);
  const FileHeader killed = header({.isUnfinished = true});
  EXPECT_TRUE(killed.isUnfinished);
  EXPECT_EQ(killed.dataBegin + 48, killed.dataEnd);
  EXPECT_EQ(killed.facts.hostname, "");  // where its table would be, there are records
}

// PERFFILE stands in either order in the same bytes: the size of an attribute tells.
TEST(FileHeaderTest, TheOldestMagicLeavesTheOrderOpen) {
  for (const std::size_t size : {64u, 72u, 80u, 96u}) {
    for (const made::ByteOrder order : {made::ByteOrder::LITTLE, made::ByteOrder::BIG}) {
      const Walked walked(made::fileBytes(
          oneSample(), {.order = order, .magic = made::Magic::PERFFILE, .attributeSize = size}));
      EXPECT_EQ(walked.lines.size(), 1u) << size;
    }
  }
}

TEST(FileHeaderTest, WhatIsNoRecordingIsRefusedInASentence) {
  EXPECT_THAT(refusalOf(""), HasSubstr("memory: is no recording: it has 0 bytes."));
  EXPECT_THAT(refusalOf("PERFILE2"), HasSubstr("it has 8 bytes."));
  EXPECT_THAT(refusalOf(std::string(200, 'x')),
              HasSubstr("memory: is no recording of perf record"));
  const std::string file = made::fileBytes(oneSample());
  EXPECT_THAT(refusalOf(file.substr(0, 40)), HasSubstr("ends inside its header"));
  EXPECT_THAT(refusalOf(withNumber(file, 16, 0)), HasSubstr("impossible size of 0 bytes"));
  EXPECT_THAT(refusalOf(withNumber(file, 16, ~uint64_t{0})), HasSubstr("impossible size"));
  EXPECT_THAT(refusalOf(withNumber(file, 32, 0)), HasSubstr("holds no event"));
  EXPECT_THAT(refusalOf(withNumber(file, 24, ~uint64_t{0})), HasSubstr("holds no event"));
  EXPECT_THAT(refusalOf(made::fileBytes(oneSample(), {.form = made::Form::PIPE}).substr(0, 16)),
              HasSubstr("holds no event"));
}

TEST(FileHeaderTest, SizesBeyondTheFileAreDamageAndNoMore) {
  const std::string file = made::fileBytes(oneSample());
  for (const uint64_t size : {uint64_t{1} << 40, ~uint64_t{0}, ~uint64_t{0} - 248}) {
    const Walked walked(withNumber(file, 48, size));
    EXPECT_THAT(walked.lines, ElementsAre("sample 0 1 1/1 t1 cpu0")) << size;
  }
  // The records are said to begin behind the end.
  const Walked nothing(withNumber(file, 40, uint64_t{1} << 50));
  EXPECT_EQ(nothing.lines.size(), 0u);
}

TEST(FileHeaderTest, NamesOfEventsMayComeAsRecords) {
  made::Recording recording = oneSample();
  recording.events[0].name = "my-event";
  const std::string pipe = made::fileBytes(
      recording, {.form = made::Form::PIPE, .identification = made::Identification::ID});
  EXPECT_EQ(Walked(pipe).recording.events()[0].name, "my-event");
}

TEST(FileHeaderTest, AnUnknownFeatureOfAPipeIsPassedOver) {
  made::Recording recording;
  recording.record({.type = 80, .body = Fields().u64(200).u64(1)})
      .record({.type = 80, .body = Fields().u64(~uint64_t{0}).u64(1)})
      .record({.type = 80, .body = Fields().u32(3)})
      .sample({.ip = 1, .pid = 1, .tid = 1, .time = 1});
  EXPECT_EQ(Walked(made::fileBytes(recording, {.form = made::Form::PIPE})).lines.size(), 1u);
}
