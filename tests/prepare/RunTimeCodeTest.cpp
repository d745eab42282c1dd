// Code that processes made while they ran: which files name it, in whole runs.
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/RunTimeCode.h"
#include "tests/prepare/PrepareCommand.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/Encodings.h"
#include "tests/support/recordings/RecordingFile.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::uint64_t SECOND = 1'000'000'000;
constexpr std::uint64_t CODE = 0x7f0000000000;
constexpr std::uint64_t WALL = 1'700'000'000 * SECOND;  // at 0 on the recording's clock
constexpr int MONOTONIC = 1;

// A process that executes at 100 s and is sampled in code of its own making until 102 s.
made::Recording madeCode() {
  made::Recording recording;
  recording.events[0].clockid = MONOTONIC;
  recording.clockData = {MONOTONIC, WALL, 0};
  recording.sample({.ip = CODE, .pid = 5, .tid = 5, .time = 100 * SECOND})
      .comm({.pid = 7, .tid = 7, .name = "jit", .time = 100 * SECOND, .isExec = true})
      .map({.pid = 7,
            .tid = 7,
            .address = CODE,
            .length = 0x10000,
            .file = "//anon",
            .time = 100 * SECOND})
      .map({.pid = 7,
            .tid = 7,
            .address = CODE + 0x100000,
            .length = 0x1000,
            .file = "/app/jit-7.dump",
            .time = 100 * SECOND})
      .sample({.ip = CODE + 8, .pid = 7, .tid = 7, .time = 101 * SECOND})
      .sample({.ip = CODE + 8, .pid = 7, .tid = 7, .time = 102 * SECOND});
  return recording;
}

std::string number(std::uint64_t value, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes += static_cast<char>(i < 8 ? value >> (8 * i) : 0);
  }
  return bytes;
}

// As perf describes the jitdump format: one function, loaded at a time.
std::string loadRecord(std::uint64_t time, const std::string& name) {
  const std::string body = number(7, 4) + number(7, 4) + number(CODE, 8) + number(CODE, 8) +
                           number(16, 8) + number(time, 8) + name + '\0';
  return number(0, 4) + number(16 + body.size(), 4) + number(time, 8) + body;
}

class RunTimeCodeTest : public testing::Test {
 protected:
  RunTimeCodeTest() {
    std::filesystem::create_directories(root.file("tmp"));
    std::filesystem::create_directories(root.file("app"));
  }

  // Of a file below the root.
  void setTime(const std::string& name, std::uint64_t nanoseconds) {
    const timespec time{static_cast<time_t>(nanoseconds / SECOND), 0};
    const timespec times[] = {time, time};
    ASSERT_EQ(utimensat(AT_FDCWD, root.file(name).c_str(), times, 0), 0);
  }

  // All lists of the prepared folder.
  std::string listsOf(const made::Recording& recording) {
    root.write("perf.data", made::fileBytes(recording));
    return lists();
  }
  std::string lists() {
    const Ending run = prepareWith({"--no-cache", "-q", "--sysroot", root.path(), "-o",
                                    root.file("prepared"), root.file("perf.data")});
    EXPECT_EQ(run.status, 0) << run.err;
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(root.file("prepared/symbols"))) {
      all += entry.path().extension() == ".list"
                 ? root.read("prepared/symbols/" + entry.path().filename().native())
                 : "";
    }
    return all;
  }
  std::string quality() { return root.read("prepared/quality.json"); }

  TempDir root;
};

}  // namespace

TEST_F(RunTimeCodeTest, AJitdumpThatWasMappedNamesTheCode) {
  root.write("app/jit-7.dump", number(0x4A695444, 4) + number(1, 4) + number(40, 4) +
                                   number(62, 4) + number(0, 4) + number(7, 4) + number(0, 16) +
                                   loadRecord(99 * SECOND, "made_before") +
                                   loadRecord(103 * SECOND, "made_behind_the_last_sample"));
  const std::string lists = listsOf(madeCode());
  EXPECT_THAT(lists, HasSubstr("made_before"));
  EXPECT_THAT(lists, Not(HasSubstr("made_behind_the_last_sample")));
}

TEST_F(RunTimeCodeTest, FilesOfThatNameOnly) {
  EXPECT_TRUE(prepare::RunTimeCode::isJitDump("/a/jit-12.dump"));
  EXPECT_TRUE(prepare::RunTimeCode::isJitDump("jit-1.dump"));
  for (const char* name :
       {"", "jit-.dump", "/jit-1.dump/x", "jit-1x.dump", "jit-1.dumps", "/a/bit-1.dump"}) {
    EXPECT_FALSE(prepare::RunTimeCode::isJitDump(name)) << name;
  }
}

TEST_F(RunTimeCodeTest, APerfMapFromBeforeTheProcessIsNotUsed) {
  root.write("tmp/perf-7.map", "7f0000000000 100 of_another\n");
  setTime("tmp/perf-7.map", WALL + 80 * SECOND);
  EXPECT_THAT(listsOf(madeCode()), Not(HasSubstr("of_another")));
  EXPECT_THAT(quality(), HasSubstr("\"old-perf-map\""));
  EXPECT_THAT(quality(), HasSubstr("/tmp/perf-7.map"));
}

// Written once when the program begins, and never again.
TEST_F(RunTimeCodeTest, APerfMapOfTheProcessMayBeOlderThanItsSamples) {
  root.write("tmp/perf-7.map", "7f0000000000 100 its_own\n");
  setTime("tmp/perf-7.map", WALL + 100 * SECOND);
  EXPECT_THAT(listsOf(madeCode()), HasSubstr("its_own"));
}

TEST_F(RunTimeCodeTest, OfAProcessThatRanBeforeThePerfMapMayBeOld) {
  made::Recording recording = madeCode();
  std::get<made::Comm>(recording.records[1]).isExec = false;
  root.write("tmp/perf-7.map", "7f0000000000 100 its_own\n");
  setTime("tmp/perf-7.map", WALL);
  EXPECT_THAT(listsOf(recording), HasSubstr("its_own"));
}

// perf's own clock and the file's time; a copy of the recording tells nothing.
TEST_F(RunTimeCodeTest, WithoutAWallClockTheTimeOfTheRecordingHasToAgree) {
  timespec now{};
  timespec monotonic{};
  clock_gettime(CLOCK_REALTIME, &now);
  clock_gettime(CLOCK_MONOTONIC, &monotonic);
  if (monotonic.tv_sec < 200) {
    GTEST_SKIP() << "this machine runs since a moment only";
  }
  const auto boot = static_cast<std::uint64_t>(now.tv_sec - monotonic.tv_sec) * SECOND;
  utsname system{};
  uname(&system);
  made::Recording recording = madeCode();
  recording.events[0].clockid = 0;
  recording.clockData.reset();
  recording.hostname = system.nodename;
  recording.osRelease = system.release;
  root.write("tmp/perf-7.map", "7f0000000000 100 of_another\n");
  setTime("tmp/perf-7.map", boot + 80 * SECOND);
  root.write("perf.data", made::fileBytes(recording));
  setTime("perf.data", boot + 103 * SECOND);
  EXPECT_THAT(lists(), Not(HasSubstr("of_another")));
  setTime("perf.data", boot + 1000 * SECOND);
  EXPECT_THAT(lists(), HasSubstr("of_another"));
}

TEST(ManyProcessesTest, OfNoMoreThanSoManyItIsKnownWhenTheyBegan) {
  const std::string bytes = made::fileBytes(madeCode());
  const recordings::Recording recording(std::make_unique<recordings::MemoryInput>(asBytes(bytes)));
  prepare::RunTimeCode code;
  code.onSample(100 * SECOND);
  for (std::uint32_t pid = 1; pid <= 60'000; ++pid) {
    code.onBegin(pid);
  }
  listing::File early;
  early.pid = 1;
  code.describe(early, recording, true);
  listing::File late;
  late.pid = 60'000;
  code.describe(late, recording, true);
  EXPECT_GT(early.begin, INT64_MIN);
  EXPECT_EQ(late.begin, INT64_MIN);
}
