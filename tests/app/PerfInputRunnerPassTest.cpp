#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/PerfInputRunnerPass1.h"
#include "app/PerfInputRunnerPass2.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/TimeConverter.h"
#include "kestrel/json/JsomWriter.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "tests/app/Recordings.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TableTexts.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::Singleton;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// One recording, one stream and one writer for the passes of a test.
class PerfInputRunnerPassTest : public testing::Test {
 protected:
  PerfInputRunnerPassTest() {
    Singleton<PerfSettings>::Instance()->symbolCacheDir = folder_.file("cache");
    converter_.setup(0, 0, 1, 0, 0);
  }

  void open(const std::string& recording) {
    input_.open(folder_.write("recording.perf", recording), std::ios::binary);
  }
  void open(const PerfFileBuilder& recording) { open(recording.bytes()); }

  void pass1() { const PerfInputRunnerPass1 pass(&input_, &converter_, &writer_); }

  // The document with nothing but the pass's table.
  std::string pass2() {
    writer_.startObject();
    {
      input_.clear();
      input_.seekg(0);
      const PerfInputRunnerPass2 pass(&input_, &converter_, &writer_);
    }
    writer_.endObject();
    return out_.str();
  }

  const TempDir folder_;
  std::ifstream input_;
  kestrel::TimeConverter converter_;
  std::ostringstream out_;
  kestrel::JsomWriter writer_{&out_};
  LogCapture log_;
};

std::string document(const std::string& rows) { return tableText("samples", rows); }

}  // namespace

TEST_F(PerfInputRunnerPassTest, Pass1TakesCommAndMmapRecords) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.sample(at(SECOND, 0x8010, 10, 11));
  recording.comm(10, 11, "worker").mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  open(recording);
  pass1();
  EXPECT_EQ(Singleton<ThreadStore>::Instance()->getThread(10, 11)->name, "worker");
  const MMapInfo* map = Singleton<MMapStore>::Instance()->get(10, 0x8010);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(map->name, "/nowhere/app");
}

TEST_F(PerfInputRunnerPassTest, Pass1IgnoresOtherRecords) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.record(4, Body().u32(10).u32(1).u32(11).u32(1).u64(SECOND));
  recording.record(7, Body().u32(10).u32(1).u32(11).u32(1).u64(SECOND));
  recording.record(8, Body().u32(10).u32(11).u64(1));
  recording.record(10, Body().u32(10).u32(10).u64(0x8000).u64(0x1000).u64(0).name("/nowhere/app"));
  open(recording);
  pass1();
  EXPECT_EQ(Singleton<MMapStore>::Instance()->get(10, 0x8010), nullptr);
  kestrel::JsomWriter writer(&out_);
  writer.startObject();
  Singleton<ThreadStore>::Instance()->writeLegacyJsonObject(writer, true);
  writer.endObject();
  EXPECT_THAT(out_.str(), EndsWith("\"data\":[[0,0,0,\"kernel\"],[1,1,1,\"*init*\"]]}}"));
}

TEST_F(PerfInputRunnerPassTest, Pass1WritesNothing) {
  open(simpleRecording(IP_TID_TIME_CPU));
  pass1();
  EXPECT_EQ(out_.str(), "");
}

TEST_F(PerfInputRunnerPassTest, Pass1KeepsWhatItReadOfATruncatedFile) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "app").comm(11, 11, "lost");
  open(recording.truncateLastRecordBy(1));
  pass1();
  EXPECT_EQ(Singleton<ThreadStore>::Instance()->getThread(10, 10)->name, "app");
  EXPECT_EQ(Singleton<ThreadStore>::Instance()->getThread(11, 11)->name, "");
}

TEST_F(PerfInputRunnerPassTest, Pass1StopsAtAnInputFailureWithADebugMessage) {
  open(std::string("short"));
  pass1();
  EXPECT_THAT(log_.messages("PerfInputRunnerPass1", "DEBUG"),
              ElementsAre(MatchesRegex("0x[0-9a-f]+ An I/O exception occurred: Perf file is of "
                                       "insufficient size\\..*")));
  EXPECT_THAT(log_.lines("PerfInputRunnerPass1"), testing::SizeIs(1));
}

TEST_F(PerfInputRunnerPassTest, Pass2StopsAtAnInputFailureWithADebugMessageAndAWholeTable) {
  open(std::string("short"));
  StderrCapture err;
  EXPECT_EQ(pass2(), document(""));
  EXPECT_EQ(err.stop(), "");
  EXPECT_THAT(log_.messages("PerfInputRunnerPass2", "DEBUG"),
              ElementsAre(MatchesRegex("0x[0-9a-f]+ An I/O exception occurred: Perf file is of "
                                       "insufficient size\\..*")));
}

TEST_F(PerfInputRunnerPassTest, AStreamThatIsNotOpenIsAnInputFailure) {
  pass1();
  EXPECT_EQ(pass2(), document(""));
  EXPECT_THAT(log_.messages("PerfRecordFileReader", "ERROR"),
              ElementsAre("Input file stream has not been opened.",
                          "Input file stream has not been opened."));
}

TEST_F(PerfInputRunnerPassTest, OtherExceptionsReachTheCaller) {
  open(simpleRecording(IP_TID_TIME_CPU).header(PerfFileBuilder::Header::ATTRS_SIZE, 0));
  EXPECT_THROW(pass1(), std::invalid_argument);
  StderrCapture err;
  EXPECT_THROW(pass2(), std::invalid_argument);
  writer_.end();
  EXPECT_EQ(err.stop(), "");
  EXPECT_THAT(log_.lines("PerfInputRunnerPass1"), IsEmpty());
  EXPECT_THAT(log_.lines("PerfInputRunnerPass2"), IsEmpty());
}

TEST_F(PerfInputRunnerPassTest, Pass2WritesARowForEachSampleInFileOrder) {
  open(simpleRecording(IP_TID_TIME_CPU));
  pass1();
  EXPECT_EQ(pass2(), document("[1,32784,3,0,0,10,10,[]],[2,1073742080,4,0.5,1,11,11,[]],"
                              "[3,36863,3,1.25,0,10,10,[]]"));
}

TEST_F(PerfInputRunnerPassTest, Pass2AsksTheConverterForEveryTime) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(1, 1, "a").mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  for (const uint64_t eighths : {799U, 800U, 804U, 839U, 840U}) {
    recording.sample(at(eighths * EIGHTH, 0x8000, 1, 1));
  }
  open(recording);
  pass1();
  converter_.setup(100, 5, 1, 0, 0);
  EXPECT_EQ(pass2(), document("[1,32768,3,0,0,1,1,[]],[2,32768,3,0.5,0,1,1,[]],"
                              "[3,32768,3,4.875,0,1,1,[]]"));
}

TEST_F(PerfInputRunnerPassTest, Pass2SkipsSamplesWithoutAddress) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.mmap(1, 1, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.sample(at(SECOND, 0, 1, 1)).sample(at(SECOND, ALL_ONES, 1, 1));
  recording.sample(at(2 * SECOND, 0x8000, 1, 1));
  open(recording);
  pass1();
  EXPECT_EQ(pass2(), document("[1,32768,3,1,0,1,1,[]]"));
}

TEST_F(PerfInputRunnerPassTest, Pass2WithoutCommRecordsMakesNamelessThreads) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.mmap(5, 5, 0x8000, 0x1000, 0, "/nowhere/app").sample(at(SECOND, 0x8000, 5, 7));
  open(recording);
  pass1();
  EXPECT_EQ(pass2(), document("[1,32768,3,0,0,7,7,[]]"));
  const ThreadInfo* thread = Singleton<ThreadStore>::Instance()->getThread(9, 7);
  EXPECT_EQ(thread->pid, 5U);
  EXPECT_EQ(thread->name, "");
}

TEST_F(PerfInputRunnerPassTest, Pass2CountsUsesOfThreadsAndOfProcessesWithMadeUpMaps) {
  PerfFileBuilder recording = recordingOf(WITH_CALLCHAIN);
  recording.mmap(5, 5, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.sample(withChain(at(SECOND, 0x8000, 5, 7), {0, 0x8004}));
  recording.sample(withChain(at(SECOND, 0x8000, 5, 7), {0}));
  recording.sample(withChain(at(SECOND, 0x90000000, 5, 7), {0, 0x90000004, 0x98000000}));
  open(recording);
  pass1();
  pass2();
  ThreadStore* const threads = Singleton<ThreadStore>::Instance();
  EXPECT_EQ(threads->getThread(5, 7)->refCount, 3U);
  EXPECT_EQ(threads->getProcess(5)->refCount, 2U);  // for two maps made up
  MMapStore* const maps = Singleton<MMapStore>::Instance();
  EXPECT_EQ(maps->get(5, 0x8000)->refCount, 3U);
  EXPECT_EQ(maps->get(5, 0x90000000)->refCount, 2U);
  EXPECT_EQ(maps->get(5, 0x98000000)->refCount, 1U);
}

TEST_F(PerfInputRunnerPassTest, Pass2IgnoresOtherRecords) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "app").mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.record(6, Body().u64(SECOND).u64(1).u64(1));
  open(recording);
  EXPECT_EQ(pass2(), document(""));
  EXPECT_EQ(Singleton<ThreadStore>::Instance()->getThread(10, 10)->name, "");
  EXPECT_EQ(Singleton<MMapStore>::Instance()->get(10, 0x8010), nullptr);
}

TEST_F(PerfInputRunnerPassTest, Pass2KeepsTheRowsOfATruncatedFile) {
  open(simpleRecording(IP_TID_TIME_CPU).truncateLastRecordBy(1));
  pass1();
  EXPECT_EQ(pass2(), document("[1,32784,3,0,0,10,10,[]],[2,1073742080,4,0.5,1,11,11,[]]"));
  EXPECT_TRUE(log_.has("ERROR", "PerfRecordFileReader",
                       "Error reading event data from perf file.  Perf file corrupt."));
  EXPECT_THAT(log_.lines("PerfInputRunnerPass2"), IsEmpty());
}
