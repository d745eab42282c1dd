#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/PrepareError.h"
#include "prepare/StandardInput.h"
#include "recordings/Recording.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/RecordingFile.h"

using prepare::openStandardInput;
using testing::HasSubstr;

namespace {

std::string all(const recordings::Input& input) {
  const std::vector<unsigned char> bytes = input.bytesAt(0, input.size());
  return std::string(bytes.begin(), bytes.end());
}

// Each case is a process of its own, so that its standard input may become another.
void putInPlace(int descriptor) { ASSERT_EQ(dup2(descriptor, STDIN_FILENO), STDIN_FILENO); }

// Writes to a pipe, in small pieces, whatever is read from the other end.
std::string throughPipe(const std::string& text, const std::string& scratch) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  putInPlace(ends[0]);
  close(ends[0]);
  std::thread writer([&] {
    for (std::size_t at = 0; at < text.size();) {
      const ssize_t done =
          write(ends[1], text.data() + at, std::min<std::size_t>(1000, text.size() - at));
      if (done <= 0) {
        break;
      }
      at += static_cast<std::size_t>(done);
    }
    close(ends[1]);
  });
  const auto input = openStandardInput(scratch);
  writer.join();
  EXPECT_EQ(input->name(), "standard input");
  return all(*input);
}

}  // namespace

TEST(StandardInputTest, WhatComesThroughAPipeIsReadWholeAndLeavesNoFile) {
  const TempDir temp;
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += std::to_string(i);
  }
  EXPECT_EQ(text, throughPipe(text, temp.path()));
  EXPECT_EQ(throughPipe("", temp.path()), "");
  EXPECT_TRUE(std::filesystem::is_empty(temp.path()));
}

TEST(StandardInputTest, AFileIsReadWhereItIs) {
  const TempDir temp;
  temp.write("file", "recording");
  putInPlace(open(temp.file("file").c_str(), O_RDONLY | O_CLOEXEC));
  const auto input = openStandardInput("/no/such/folder");
  EXPECT_EQ(input->size(), 9u);
  EXPECT_EQ(all(*input), "recording");
  unsigned char rest[9];
  EXPECT_EQ(input->read(6, rest, sizeof rest), 3u);
  EXPECT_EQ(input->read(9, rest, sizeof rest), 0u);
}

TEST(StandardInputTest, BytesBehindTheEndAreNone) {
  const TempDir temp;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  putInPlace(ends[0]);
  ASSERT_EQ(write(ends[1], "four", 4), 4);
  close(ends[1]);
  const auto input = openStandardInput(temp.path());
  unsigned char bytes[9];
  EXPECT_EQ(input->read(0, bytes, sizeof bytes), 4u);
  EXPECT_EQ(input->read(3, bytes, sizeof bytes), 1u);
  EXPECT_EQ(input->read(4, bytes, sizeof bytes), 0u);
  EXPECT_EQ(input->read(~std::uint64_t{0}, bytes, sizeof bytes), 0u);
}

TEST(StandardInputTest, ATerminalIsNoRecording) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  if (terminal == -1 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
    GTEST_SKIP() << "no terminals here";
  }
  putInPlace(open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC));
  try {
    openStandardInput("/tmp");
    FAIL() << "taken";
  } catch (const prepare::PrepareError& error) {
    EXPECT_THAT(error.what(), HasSubstr("is a terminal. Pipe a recording in: perf record -o - "));
  }
}

TEST(StandardInputTest, WhatCannotBeReadIsToldOf) {
  const TempDir temp;
  putInPlace(open(temp.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  try {
    openStandardInput(temp.path());
    FAIL() << "taken";
  } catch (const prepare::PrepareError& error) {
    EXPECT_STREQ("standard input: cannot be read: Is a directory.", error.what());
  }
}
