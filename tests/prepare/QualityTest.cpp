// What the quality report says of what has no name, and of chains that end early.
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/prepare/PrepareCommand.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/RecordingFile.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::uint64_t CODE = 0x555555554000;

class QualityTest : public testing::Test {
 protected:
  json qualityOf(const made::Recording& recording, const std::string& sysroot) {
    temp.write("perf.data", made::fileBytes(recording));
    run = prepareWith(
        {"--no-cache", "--sysroot", sysroot, "-o", temp.file("prepared"), temp.file("perf.data")});
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(temp.read("prepared/quality.json"));
  }

  // Below the folder "root".
  void copyVictim(const std::string& command) {
    std::filesystem::create_directories(temp.file("root/bin"));
    const std::string line = command + " " VICTIM_FILE " " + temp.file("root/bin/victim");
    ASSERT_EQ(std::system(line.c_str()), 0) << line;
  }

  TempDir temp;
  Ending run;
};

made::Recording oneSample(const std::string& file, const std::string& buildId = {}) {
  made::Recording recording;
  recording.map({.pid = 10, .tid = 10, .address = CODE, .length = 0x100000, .file = file});
  recording.sample({.ip = CODE + 0x30, .pid = 10, .tid = 10, .time = 1'000'000'000});
  if (!buildId.empty()) {
    recording.buildIds.push_back({file, buildId});
  }
  return recording;
}

// Samples of perf record --call-graph dwarf on x86-64: all registers, of which `pc` and `sp` count.
made::Recording dumped(std::uint64_t pc, const std::string& stack) {
  made::Recording recording;
  recording.architecture = "x86_64";
  made::Event& event = recording.events[0];
  event.sampleType |=
      made::SampleBit::CALLCHAIN | made::SampleBit::REGS_USER | made::SampleBit::STACK_USER;
  event.regsUser = 0xff0fff;
  event.stackUser = static_cast<std::uint32_t>(stack.size());
  recording.map({.pid = 10, .tid = 10, .address = CODE, .length = 0x100000, .file = "/bin/victim"});
  made::Registers registers{2, std::vector<std::uint64_t>(20)};
  registers.values[7] = 0x7ffc00000000;
  registers.values[8] = pc;
  recording.sample({.ip = pc,
                    .pid = 10,
                    .tid = 10,
                    .time = 1'000'000'000,
                    .chain = {made::CONTEXT_USER, pc},
                    .regsUser = registers,
                    .stack = stack});
  return recording;
}

}  // namespace

TEST_F(QualityTest, AFileWithExportedFunctionsOnlyIsStripped) {
  copyVictim("objcopy --strip-all");
  const json entry = qualityOf(oneSample("/bin/victim"), temp.file("root"))["nameless"][0];
  EXPECT_EQ(entry["reason"], "stripped");
  EXPECT_THAT(entry["cure"], HasSubstr("debug file"));
}

TEST_F(QualityTest, AChangedFileIsNamedWithBothIdsOnce) {
  copyVictim("cp");
  const json entry = qualityOf(oneSample("/bin/victim", std::string(20, '\x11')),
                               temp.file("root"))["nameless"][0];
  EXPECT_EQ(entry["reason"], "changed");
  EXPECT_THAT(entry["text"],
              HasSubstr("recorded 1111111111111111111111111111111111111111, found "));
  EXPECT_THAT(entry["cure"], HasSubstr("--sysroot"));
  EXPECT_THAT(entry["cure"], Not(HasSubstr("changed")));
}

// It is in no file system.
TEST_F(QualityTest, NoSysrootCuresTheVdso) {
  for (const char* id :
       {"", "\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22\x22"}) {
    const json entry = qualityOf(oneSample("[vdso]", id), temp.path())["nameless"][0];
    EXPECT_THAT(entry["cure"], HasSubstr("~/.debug"));
    EXPECT_THAT(entry["cure"], Not(HasSubstr("--sysroot")));
  }
}

TEST_F(QualityTest, ChainsThatEndInAFileThatIsNotThere) {
  const json quality = qualityOf(dumped(CODE + 0x30, std::string(64, '\0')), temp.path());
  ASSERT_EQ(quality["chainEnds"].size(), 1U);
  EXPECT_EQ(quality["chainEnds"][0]["reason"], "file-missing");
  EXPECT_EQ(quality["chainEnds"][0]["name"], "/bin/victim");
  EXPECT_EQ(quality["chainEnds"][0]["samples"], 1);
  EXPECT_THAT(quality["chainEnds"][0]["cure"], HasSubstr("--sysroot"));
  EXPECT_EQ(quality["stackDumps"]["fileMissing"], 1);
  EXPECT_THAT(run.err, HasSubstr("call chains that end early"));
}

TEST_F(QualityTest, ChainsThatLeaveTheRecordedPieceOfStack) {
  copyVictim("cp");
  std::FILE* const pipe = popen(VICTIM_COMMAND, "r");
  unsigned long long offset = 0;
  ASSERT_EQ(std::fscanf(pipe, "%llu", &offset), 1);
  pclose(pipe);
  // Entered from an address in itself, whose caller stands above the eight bytes.
  const std::uint64_t caller = CODE + offset + 1;
  std::string stack;
  for (int i = 0; i < 8; ++i) {
    stack += static_cast<char>(caller >> (8 * i));
  }
  const json quality = qualityOf(dumped(CODE + offset, stack), temp.file("root"));
  ASSERT_EQ(quality["chainEnds"].size(), 1U);
  EXPECT_EQ(quality["chainEnds"][0]["reason"], "stack-too-short");
  EXPECT_THAT(quality["chainEnds"][0]["cure"], HasSubstr("dwarf,65528"));
  EXPECT_THAT(quality["judgement"], HasSubstr("end before the outermost function"));
}
