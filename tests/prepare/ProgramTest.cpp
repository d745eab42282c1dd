// Whole runs: from a recording to the folder, and from there through the converter to a document.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faults/SmallDisk.h"
#include "tests/prepare/PrepareCommand.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/RecordingFile.h"

using testing::HasSubstr;
using testing::Not;

namespace {

std::string outputOf(const std::string& command) {
  std::string text;
  std::FILE* const pipe = popen(command.c_str(), "r");
  for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) {
    text += static_cast<char>(byte);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

made::Recording samplesIn(const std::string& file, std::uint64_t ip, std::size_t count) {
  made::Recording recording;
  recording.comm({.pid = 10, .tid = 10, .name = "victim"})
      .map({.pid = 10, .tid = 10, .address = 0x555555554000, .length = 0x100000, .file = file});
  for (std::size_t i = 0; i < count; ++i) {
    recording.sample({.ip = ip, .pid = 10, .tid = 10, .time = 1'000'000'000 + i});
  }
  return recording;
}

}  // namespace

// The victim says itself how far its function is from its beginning.
TEST(PrepareProgramTest, ADocumentHasTheRightFunction) {
  const TempDir temp;
  const std::uint64_t offset = std::stoull(outputOf(VICTIM_COMMAND));
  const std::string recording =
      temp.write("perf.data", made::fileBytes(samplesIn(VICTIM_FILE, 0x555555554000 + offset, 3)));
  const Ending run = prepareWith({"--no-cache", recording});
  ASSERT_EQ(run.status, 0) << run.err;
  outputOf(std::string(TRACEMILL_PROGRAM) + " -c " + recording + ".prepared/tracemill.conf -o " +
           temp.file("profile.json"));
  const std::string document = temp.read("profile.json");
  EXPECT_THAT(document, HasSubstr("right_function"));
  EXPECT_THAT(document, Not(HasSubstr("function_in_front")));
  EXPECT_THAT(document, Not(HasSubstr("function_behind")));
  EXPECT_THAT(document, HasSubstr("victim"));
}

TEST(PrepareProgramTest, WhatIsNoRecordingEndsWithASentenceAndLeavesNothing) {
  const TempDir temp;
  const Ending run = prepareWith({temp.write("perf.data", std::string(300, 'x'))});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("tracemill-prepare: " + temp.file("perf.data") +
                                 ": is no recording of perf record"));
  EXPECT_FALSE(temp.has("perf.data.prepared"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temp.path()), {}), 1);
}

TEST(PrepareProgramTest, AnUnknownEventIsToldWithThoseThatAreThere) {
  const TempDir temp;
  const std::string recording =
      temp.write("perf.data", made::fileBytes(samplesIn("/nowhere", 0x555555554000, 1)));
  const Ending run = prepareWith({"--event", "cycles", recording});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("holds no event 'cycles'; it has cpu-clock."));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temp.path()), {}), 1);
}

// The folder of the run before stays as it was, and of this run nothing is left.
TEST(PrepareProgramTest, AFullDiskLeavesNothingHalfWritten) {
  const TempDir temp;
  std::filesystem::create_directory(temp.file("disk"));
  const SmallDisk disk(temp.file("disk"), 1 << 20);
  SKIP_UNLESS_MOUNTED(disk);
  const std::string small =
      temp.write("small.data", made::fileBytes(samplesIn("/nowhere", 0x555555554010, 5)));
  const std::string large =
      temp.write("large.data", made::fileBytes(samplesIn("/nowhere", 0x555555554010, 50000)));
  const std::string out = temp.file("disk/out");
  ASSERT_EQ(prepareWith({"--no-cache", "-o", out, small}).status, 0);
  const std::string before = temp.read("disk/out/quality.json");
  for (const std::size_t left : {std::size_t{0}, std::size_t{4096}, std::size_t{300000}}) {
    disk.fillUp(left);
    const Ending run = prepareWith({"--no-cache", "-o", out, large});
    EXPECT_EQ(run.status, 1) << left;
    EXPECT_THAT(run.err, HasSubstr("No space left on device")) << left;
    disk.empty();
    EXPECT_EQ(before, temp.read("disk/out/quality.json"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temp.file("disk")), {}), 1);
  }
}
