// Sizes that a recording claims and does not have: none of them is memory, and none is time.
#include <chrono>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/RecordingError.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/CompressedStream.h"
#include "tests/support/recordings/RecordingFile.h"

namespace {

constexpr std::uint64_t LIES[] = {0xffff,
                                  0x7fffffff,
                                  0xffffffff,
                                  std::uint64_t{1} << 40,
                                  0x7fffffffffffffff,
                                  0xfffffffffffffff0,
                                  0xffffffffffffffff};

// Beyond what a sound file takes. A sanitizer keeps what was freed for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long MOST_KILOBYTES = 512 * 1024;
#else
constexpr long MOST_KILOBYTES = 32 * 1024;
#endif

long peakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

made::Recording content() {
  made::Recording recording;
  recording.osRelease = "6.1.0";
  recording.commandLine = {"perf", "record"};
  recording.buildIds = {{.file = "/bin/app", .id = "12345678901234567890"}};
  recording.comm({.pid = 10, .tid = 10, .name = "app"})
      .map({.pid = 10, .tid = 10, .address = 0x8000, .length = 0x1000, .file = "/bin/app"})
      .sample({.ip = 0x8010, .pid = 10, .tid = 10, .time = 1000})
      .record(
          {.type = 71, .body = made::Fields().u64(16).zeros(40), .behind = std::string(16, 'x')})
      .finishedRound();
  return recording;
}

void readAll(const std::string& bytes) {
  try {
    Walked walked(bytes);
    recordings::WalkCounts counts;
    walked.recording.count(counts);
  } catch (const recordings::RecordingError&) {
    return;  // refused
  }
}

// Every word of the file in turn becomes each of the lies, in words of 4 and of 8 bytes.
void readWithLies(const std::string& whole) {
  readAll(whole);
  const long before = peakKilobytes();
  const auto begin = std::chrono::steady_clock::now();
  for (std::size_t at = 8; at + 8 <= whole.size(); at += 4) {
    for (const std::uint64_t lie : LIES) {
      std::string bent = whole;
      const std::size_t width = at % 8 == 0 ? 8 : 4;
      std::memcpy(bent.data() + at, &lie, width);
      readAll(bent);
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::minutes(2));
  EXPECT_LT(peakKilobytes() - before, MOST_KILOBYTES);
}

class Counter : public recordings::RecordVisitor {
 public:
  bool wantsSamplesOf(std::uint32_t) override { return true; }
  void onSample(std::uint32_t, const recordings::Sample&) override { ++samples; }
  void onMap(const recordings::MapRecord&) override {}
  void onComm(const recordings::CommRecord&) override {}
  void onFork(const recordings::TaskRecord&) override {}
  void onExit(const recordings::TaskRecord&) override {}
  void onKsymbol(const recordings::KsymbolRecord&) override {}
  void onProgress(std::uint64_t, std::uint64_t) override {}

  std::uint64_t samples = 0;
};

}  // namespace

TEST(HostileSizesTest, OfAFile) { readWithLies(made::fileBytes(content())); }

TEST(HostileSizesTest, OfAPipe) {
  readWithLies(made::fileBytes(content(), {.form = made::Form::PIPE, .hasTracingData = true}));
}

TEST(HostileSizesTest, OfACompressedRecording) {
  readWithLies(made::fileBytes(content(), {.compression = made::Compression::COMPRESSED}));
  readWithLies(made::fileBytes(content(), {.compression = made::Compression::COMPRESSED2}));
}

// The same record over and over packs into little; what is held to be sorted is bounded all the
// same, the rest goes to a file.
TEST(HostileSizesTest, FewBytesThatUnpackToMany) {
  constexpr std::size_t PUSHES = 1000;
  constexpr std::size_t SAMPLES_OF_PUSH = 1000;
  const made::Encoding unfinished{.isUnfinished = true};
  made::Recording recording;
  const std::string header = made::fileBytes(recording, unfinished);
  recording.sample({.ip = 0x8010, .pid = 10, .tid = 10, .time = 1000});
  const std::string sample = made::fileBytes(recording, unfinished).substr(header.size());
  std::string push;
  for (std::size_t i = 0; i < SAMPLES_OF_PUSH; ++i) {
    push += sample;
  }
  made::CompressedStream stream({.compression = made::Compression::COMPRESSED});
  std::string bytes = header;
  for (std::size_t i = 0; i < PUSHES; ++i) {
    bytes += stream.push(push);
  }
  ASSERT_LT(bytes.size(), PUSHES * push.size() / 100);

  recordings::Recording source(std::make_unique<recordings::MemoryInput>(asBytes(bytes)));
  recordings::WalkCounts counts;
  Counter counter;
  const long before = peakKilobytes();
  EXPECT_TRUE(source.walk(counter, recordings::TimeOrder::Trust::NOTHING, "/tmp", counts));
  EXPECT_EQ(counter.samples, PUSHES * SAMPLES_OF_PUSH);
  EXPECT_LT(peakKilobytes() - before, MOST_KILOBYTES);
}
