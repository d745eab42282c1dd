#include <climits>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/BlockProcessor.h"
#include "kestrel/FileUtils.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using kestrel::FileUtils;
using testing::ElementsAre;
using testing::IsEmpty;

// Notes the sizes of the blocks, and -1 for the end of data, -2 for an error.
class Blocks : public kestrel::BlockProcessor {
 public:
  static constexpr int END = -1;
  static constexpr int ERROR = -2;

  void processBuffer(const char* data, int length) override {
    calls.push_back(length);
    bytes.append(data, static_cast<std::size_t>(length));
  }
  void processEOF() override { calls.push_back(END); }
  void processError(const char* /*message*/) override { calls.push_back(ERROR); }

  std::vector<int> calls;
  std::string bytes;
};

TEST(FileUtilsMkpathTest, CreatesAllDirectoriesAboveAFile) {
  const TempDir temp;
  EXPECT_TRUE(FileUtils::mkpath(temp.file("a/b/c/file"), false));
  EXPECT_TRUE(fs::is_directory(temp.file("a")));
  EXPECT_TRUE(fs::is_directory(temp.file("a/b")));
  EXPECT_TRUE(fs::is_directory(temp.file("a/b/c")));
  EXPECT_FALSE(fs::exists(temp.file("a/b/c/file")));
}

TEST(FileUtilsMkpathTest, RelativePathsStartAtTheWorkingDirectory) {
  const TempDir temp;
  const fs::path before = fs::current_path();
  fs::current_path(temp.path());
  EXPECT_TRUE(FileUtils::mkpath("a/b/c/file", false));
  fs::current_path(before);
  EXPECT_TRUE(fs::is_directory(temp.file("a/b/c")));
}

TEST(FileUtilsMkpathTest, BareFileNameCreatesNothingAndIsDone) {
  const TempDir temp;
  const fs::path before = fs::current_path();
  fs::current_path(temp.path());
  EXPECT_TRUE(FileUtils::mkpath("file", false));
  EXPECT_TRUE(FileUtils::mkpath("dir\\file", false));  // a backslash separates nothing
  fs::current_path(before);
  EXPECT_TRUE(fs::is_empty(temp.path()));
}

TEST(FileUtilsMkpathTest, CreatesTheDirectoryItselfWhenAsked) {
  const TempDir temp;
  EXPECT_TRUE(FileUtils::mkpath(temp.file("a/b"), true));
  EXPECT_TRUE(fs::is_directory(temp.file("a/b")));
  EXPECT_TRUE(FileUtils::mkpath(temp.file("a/b"), true));  // again: it exists
  EXPECT_TRUE(FileUtils::mkpath(temp.file("x/y/"), true));
  EXPECT_TRUE(fs::is_directory(temp.file("x/y")));
}

TEST(FileUtilsMkpathTest, EmptyPathsAndPathsEndingInAColonAreDone) {
  EXPECT_TRUE(FileUtils::mkpath("", true));
  EXPECT_TRUE(FileUtils::mkpath("", false));
  const TempDir temp;
  EXPECT_TRUE(FileUtils::mkpath(temp.file("a/c:"), true));
  EXPECT_FALSE(fs::exists(temp.file("a")));
}

TEST(FileUtilsMkpathTest, AFileInTheWayFailsButCountsAsMadeWhenItIsTheDirectory) {
  const TempDir temp;
  temp.write("file", "");
  EXPECT_TRUE(FileUtils::mkpath(temp.file("file"), true));
  EXPECT_FALSE(FileUtils::mkpath(temp.file("file/below"), true));
  EXPECT_FALSE(FileUtils::mkpath(temp.file("file/below/x"), false));
}

TEST(FileUtilsMkpathTest, AComponentThatIsTooLongFailsAndLeavesItsParents) {
  const TempDir temp;
  EXPECT_FALSE(FileUtils::mkpath(temp.file("a/" + std::string(256, 'n') + "/c"), true));
  EXPECT_TRUE(fs::is_directory(temp.file("a")));
}

// A path below `start` of PATH_MAX - 1 bytes: with its end the longest there is.
std::string longestPath(const std::string& start) {
  std::string path = start;
  while (path.size() + 200 < PATH_MAX) {
    path += "/" + std::string(99, 'd');
  }
  path += "/";
  path.resize(PATH_MAX - 1, 'd');
  return path;
}

TEST(FileUtilsMkpathTest, CreatesWhateverThePathLimitAllows) {
  const TempDir temp;
  const std::string path = longestPath(temp.path());
  EXPECT_TRUE(FileUtils::mkpath(path, true));
  EXPECT_TRUE(fs::is_directory(path));
  EXPECT_FALSE(FileUtils::mkpath(path + "d", true));
  EXPECT_FALSE(FileUtils::mkpath(path + "/d", true));
}

TEST(FileUtilsMkpathTest, EndlessPathsFailWithoutExhaustingTheStack) {
  const TempDir temp;
  std::string path = longestPath(temp.path());
  for (int i = 0; i < 5'000'000; ++i) {
    path += "/d";
  }
  EXPECT_FALSE(FileUtils::mkpath(path, true));
  EXPECT_TRUE(
      fs::is_directory(longestPath(temp.path())));  // its parents, as far as they can be made
  EXPECT_FALSE(FileUtils::mkpath(temp.path() + "/" + std::string(10'000'000, 'x'), true));
}

TEST(FileUtilsProcessTest, FileOfTwoFullBlocksIsDeliveredAsTwoBlocksAndTheEnd) {
  const TempDir temp;
  const std::string bytes = std::string(2048, 'a') + std::string(2048, 'b');
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processFile(temp.write("f", bytes), blocks));
  EXPECT_THAT(blocks.calls, ElementsAre(2048, 2048, Blocks::END));
  EXPECT_EQ(blocks.bytes, bytes);
}

TEST(FileUtilsProcessTest, EmptyFileGivesTheEndOnly) {
  const TempDir temp;
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processFile(temp.write("f", ""), blocks));
  EXPECT_THAT(blocks.calls, ElementsAre(Blocks::END));
}

TEST(FileUtilsProcessTest, ShortLastBlockIsDeliveredWithItsSize) {
  const TempDir temp;
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processFile(temp.write("f", std::string(2049, 'x')), blocks));
  EXPECT_THAT(blocks.calls, ElementsAre(2048, 1, Blocks::END));

  Blocks less;
  EXPECT_TRUE(FileUtils::processFile(temp.write("g", std::string(2047, 'x')), less));
  EXPECT_THAT(less.calls, ElementsAre(2047, Blocks::END));
}

TEST(FileUtilsProcessTest, BytesAreReadAsTheyAre) {
  const TempDir temp;
  const std::string bytes("\r\n\x1a\0\xff", 5);
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processFile(temp.write("f", bytes), blocks));
  EXPECT_EQ(blocks.bytes, bytes);
}

TEST(FileUtilsProcessTest, MissingFileGivesFalseAndNoCalls) {
  const TempDir temp;
  Blocks blocks;
  EXPECT_FALSE(FileUtils::processFile(temp.file("missing"), blocks));
  EXPECT_THAT(blocks.calls, IsEmpty());
}

TEST(FileUtilsProcessTest, DirectoryCountsAsAnEmptyFile) {
  const TempDir temp;
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processFile(temp.path(), blocks));
  EXPECT_THAT(blocks.calls, ElementsAre(Blocks::END));
}

TEST(FileUtilsProcessTest, BadStreamGivesFalseAndNoCalls) {
  std::istringstream in("text");
  in.setstate(std::ios::badbit);
  Blocks blocks;
  EXPECT_FALSE(FileUtils::processStream(in, blocks));
  EXPECT_THAT(blocks.calls, IsEmpty());
}

TEST(FileUtilsProcessTest, StreamThatHasEndedAlreadyGivesTheEndOnly) {
  std::istringstream in("text");
  std::string rest;
  in >> rest >> rest;
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processStream(in, blocks));
  EXPECT_THAT(blocks.calls, ElementsAre(Blocks::END));
}

TEST(FileUtilsProcessTest, StreamIsReadFromWhereItStands) {
  std::istringstream in("skipped rest");
  in.ignore(8);
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processStream(in, blocks));
  EXPECT_EQ(blocks.bytes, "rest");
}

// Yields some bytes, then a read error.
class FailingBuffer : public std::streambuf {
 protected:
  int_type underflow() override {
    if (given_) {
      throw std::runtime_error("read error");
    }
    given_ = true;
    setg(bytes_, bytes_, bytes_ + sizeof bytes_);
    return traits_type::to_int_type(bytes_[0]);
  }

 private:
  char bytes_[4] = {'d', 'a', 't', 'a'};
  bool given_ = false;
};

TEST(FileUtilsProcessTest, ReadErrorInTheMiddleEndsTheDataWithoutAnErrorCall) {
  FailingBuffer buffer;
  std::istream in(&buffer);
  Blocks blocks;
  EXPECT_TRUE(FileUtils::processStream(in, blocks));
  EXPECT_THAT(blocks.calls, testing::Contains(Blocks::END).Times(1));
  EXPECT_THAT(blocks.calls, testing::Not(testing::Contains(Blocks::ERROR)));
}

TEST(FileUtilsWriteTest, WritesExactlyTheseBytesOverAnOlderFile) {
  const TempDir temp;
  const std::string bytes("a\0b\r\n", 5);
  EXPECT_TRUE(FileUtils::writeFile(temp.write("f", "older and longer"), bytes));
  EXPECT_EQ(temp.read("f"), bytes);
  EXPECT_TRUE(FileUtils::writeFile(temp.file("f"), "text", 3));
  EXPECT_EQ(temp.read("f"), "tex");
  EXPECT_TRUE(FileUtils::writeFile(temp.file("f"), nullptr, 0));
  EXPECT_EQ(temp.read("f"), "");
}

TEST(FileUtilsWriteTest, FailsWithoutADirectoryAndOnAFullDisk) {
  const TempDir temp;
  EXPECT_FALSE(FileUtils::writeFile(temp.file("missing/f"), "x"));
  EXPECT_FALSE(FileUtils::writeFile(temp.path(), "x"));
  if (fs::exists("/dev/full")) {
    EXPECT_FALSE(FileUtils::writeFile("/dev/full", "x"));
    EXPECT_FALSE(FileUtils::writeFile("/dev/full", std::string(1 << 20, 'x')));
  }
}

TEST(FileUtilsCopyTest, CopiesTheBytesOverAnOlderFile) {
  const TempDir temp;
  for (const std::size_t size : {0u, 1u, 2048u, 2049u, 100'000u}) {
    const std::string bytes(size, static_cast<char>('a' + size % 7));
    temp.write("from", bytes);
    EXPECT_TRUE(FileUtils::copyFile(temp.file("from"), temp.file("to")));
    EXPECT_EQ(temp.read("to"), bytes);
    EXPECT_EQ(temp.read("from"), bytes);
  }
}

TEST(FileUtilsCopyTest, ACopyOntoItselfFailsAndKeepsTheFile) {
  const TempDir temp;
  temp.write("f", "kept");
  fs::create_hard_link(temp.file("f"), temp.file("link"));
  EXPECT_FALSE(FileUtils::copyFile(temp.file("f"), temp.file("f")));
  EXPECT_FALSE(FileUtils::copyFile(temp.file("f"), temp.file("link")));
  EXPECT_EQ(temp.read("f"), "kept");
}

TEST(FileUtilsCopyTest, FailsForWhatIsNoRegularFileOrCannotBeWritten) {
  const TempDir temp;
  temp.write("f", "x");
  EXPECT_FALSE(FileUtils::copyFile(temp.file("missing"), temp.file("to")));
  EXPECT_FALSE(FileUtils::copyFile(temp.path(), temp.file("to")));
  ASSERT_EQ(mkfifo(temp.file("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(FileUtils::copyFile(temp.file("pipe"), temp.file("to")));
  EXPECT_FALSE(temp.has("to"));
  EXPECT_FALSE(FileUtils::copyFile(temp.file("f"), temp.file("missing/to")));
  if (fs::exists("/dev/full")) {
    EXPECT_FALSE(FileUtils::copyFile(temp.file("f"), "/dev/full"));
  }
}

}  // namespace
