// Small recordings of each kind, cut after every byte, and with every byte changed: whatever is in
// them, the reader says what it can, ends soon, and needs no more memory than a sound one.
#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/Processes.h"
#include "recordings/RecordingError.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/Encodings.h"
#include "tests/support/recordings/RecordingFile.h"

using testing::ElementsAre;

namespace {

made::Recording content() {
  made::Recording recording;
  recording.events[0].sampleType |= made::SampleBit::CALLCHAIN;
  recording.comm({.pid = 10, .tid = 10, .name = "app"})
      .map({.pid = 10, .tid = 10, .address = 0x8000, .length = 0x1000, .file = "/bin/app"})
      .sample({.ip = 0x8010, .pid = 10, .tid = 10, .time = 1000, .chain = {0x8010, 0x8020}})
      .finishedRound()
      .fork({.pid = 12, .parentPid = 10, .tid = 12, .parentTid = 10, .time = 1100})
      .sample({.ip = 0x8020, .pid = 12, .tid = 12, .time = 1200, .chain = {0x8020}})
      .record(
          {.type = 71, .body = made::Fields().u64(16).zeros(40), .behind = std::string(16, 'x')})
      .exit({.pid = 12, .parentPid = 10, .tid = 12, .parentTid = 10, .time = 1300})
      .finishedRound();
  return recording;
}

// Everything that reads: both walks, and the count.
void readAll(const std::string& bytes) {
  try {
    Walked walked(bytes);
    if (!walked.isInOrder) {
      Walked(bytes, recordings::TimeOrder::Trust::NOTHING);
    }
    recordings::WalkCounts counts;
    walked.recording.count(counts);
    // A few hundred bytes hold no more than that, however they are packed.
    ASSERT_LT(walked.lines.size(), 100000u);
  } catch (const recordings::RecordingError& error) {
    const std::string sentence = error.what();
    ASSERT_EQ(sentence.back() == '?' ? '.' : sentence.back(), '.') << sentence;
  }
}

class Kinds : public testing::TestWithParam<std::pair<std::string, made::Encoding>> {};

std::vector<std::pair<std::string, made::Encoding>> kinds(bool isCompressed) {
  std::vector<std::pair<std::string, made::Encoding>> some;
  for (auto& each : made::allEncodings()) {
    const made::Encoding& encoding = each.second;
    // Of the sizes of attributes, and of what is packed at once, two stand for all.
    const bool isOneOfMany = (each.first.find("attribute of") != std::string::npos &&
                              encoding.attributeSize != 64 && encoding.attributeSize != 200) ||
                             encoding.pushBytes == 61 || encoding.pushBytes == 100000;
    if (!isOneOfMany && isCompressed == (encoding.compression != made::Compression::NONE)) {
      some.push_back(std::move(each));
    }
  }
  return some;
}

std::string wordOf(const testing::TestParamInfo<Kinds::ParamType>& kind) {
  std::string name;
  for (const char character : kind.param.first) {
    name += std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
  }
  return name;
}

}  // namespace

TEST_P(Kinds, CutAfterEveryByte) {
  const std::string whole = made::fileBytes(content(), GetParam().second);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    readAll(whole.substr(0, size));
  }
}

TEST_P(Kinds, EveryByteChanged) {
  const std::string whole = made::fileBytes(content(), GetParam().second);
  const auto begin = std::chrono::steady_clock::now();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int value : {0, 1, 0x7f, 0x80, 0xff}) {
      std::string bent = whole;
      bent[at] = static_cast<char>(value);
      readAll(bent);
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::minutes(4));
}

// Two suites, so that they run beside each other.
INSTANTIATE_TEST_SUITE_P(DamagedPlainRecordingTest, Kinds, testing::ValuesIn(kinds(false)), wordOf);
INSTANTIATE_TEST_SUITE_P(DamagedCompressedRecordingTest, Kinds, testing::ValuesIn(kinds(true)),
                         wordOf);

// What came before the damage stands, and the damage is told.
TEST(DamagedRecordingTest, ACutFileGivesWhatCameBefore) {
  const std::string whole = made::fileBytes(content());
  const std::vector<std::string> all = Walked(whole).lines;
  const uint64_t end = Walked(whole).recording.header().dataEnd;
  ASSERT_EQ(all.size(), 6u);
  std::size_t before = 0;
  for (uint64_t size = Walked(whole).recording.header().dataBegin; size < end; ++size) {
    const Walked cut(whole.substr(0, size));
    ASSERT_LE(before, cut.lines.size()) << size;
    ASSERT_EQ(
        std::vector<std::string>(all.begin(), all.begin() + static_cast<long>(cut.lines.size())),
        cut.lines);
    ASSERT_EQ(cut.counts.damages.size(), 1u) << size;
    before = cut.lines.size();
  }
  EXPECT_EQ(before, 6u);
}

TEST(DamagedRecordingTest, AZeroedTailGivesWhatCameBefore) {
  made::Recording recording = content();
  recording.record({.type = 0, .body = made::Fields().zeros(0)});
  std::string bytes = made::fileBytes(content(), {.isUnfinished = true});
  const std::size_t size = bytes.size();
  bytes += std::string(4096, '\0');
  const Walked walked(bytes);
  EXPECT_EQ(walked.lines.size(), 6u);
  ASSERT_EQ(walked.counts.damages.size(), 1u);
  EXPECT_EQ(size, walked.counts.damages[0].offset);
  EXPECT_EQ(walked.counts.damages[0].lostBytes, 4096u);
}
