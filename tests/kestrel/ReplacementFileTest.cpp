#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>

#include "kestrel/ReplacementFile.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

using kestrel::ReplacementFile;

namespace {

// What happens, once, when a file is about to be locked.
std::function<void()> beforeLock;

void put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

std::size_t filesIn(const TempDir& temp) {
  const fs::directory_iterator entries(temp.path());
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(ReplacementFileTest, TheFileKeepsItsContentUntilTheCommit) {
  const TempDir temp;
  temp.write("list", "old");
  ReplacementFile replacement(temp.file("list"));
  ASSERT_TRUE(replacement.isOpen());
  put(replacement.temporaryPath(), "new");
  EXPECT_EQ(temp.read("list"), "old");
  EXPECT_TRUE(replacement.commit());
  EXPECT_EQ(temp.read("list"), "new");
  EXPECT_EQ(filesIn(temp), 1U);
}

TEST(ReplacementFileTest, NothingIsLeftWithoutACommit) {
  const TempDir temp;
  {
    const ReplacementFile replacement(temp.file("list"));
    ASSERT_TRUE(replacement.isOpen());
    EXPECT_EQ(filesIn(temp), 1U);
  }
  EXPECT_EQ(filesIn(temp), 0U);
}

TEST(ReplacementFileTest, CommitEmptyDropsWhatWasWritten) {
  const TempDir temp;
  temp.write("list", "old");
  ReplacementFile replacement(temp.file("list"));
  put(replacement.temporaryPath(), "half of the ne");
  EXPECT_TRUE(replacement.commitEmpty());
  EXPECT_EQ(temp.read("list"), "");
  EXPECT_EQ(filesIn(temp), 1U);
}

TEST(ReplacementFileTest, ASecondCommitFails) {
  const TempDir temp;
  ReplacementFile replacement(temp.file("list"));
  EXPECT_TRUE(replacement.commit());
  EXPECT_FALSE(replacement.commit());
}

TEST(ReplacementFileTest, ANewFileHasTheModeThatTheMaskLeaves) {
  const TempDir temp;
  umask(022);
  ReplacementFile replacement(temp.file("list"));
  ASSERT_TRUE(replacement.commit());
  struct stat status {};
  ASSERT_EQ(stat(temp.file("list").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST(ReplacementFileTest, ANameOf255BytesIsReplacedAndOneOf256IsNot) {
  const TempDir temp;
  ReplacementFile longest(temp.file(std::string(255, 'n')));
  EXPECT_TRUE(longest.isOpen());
  EXPECT_TRUE(longest.commit());
  EXPECT_FALSE(ReplacementFile(temp.file(std::string(256, 'n'))).isOpen());
}

TEST(ReplacementFileTest, ADirectoryAPipeAndAMissingFolderCannotBeReplaced) {
  const TempDir temp;
  fs::create_directory(temp.file("folder"));
  ASSERT_EQ(mkfifo(temp.file("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(ReplacementFile(temp.file("folder")).isOpen());
  EXPECT_FALSE(ReplacementFile(temp.file("pipe")).isOpen());
  EXPECT_FALSE(ReplacementFile(temp.file("missing/list")).isOpen());
  EXPECT_FALSE(ReplacementFile(temp.file("missing/list")).commit());
}

TEST(ReplacementFileTest, TwoOfOneFileDoNotMeetAndTheLaterCommitStays) {
  const TempDir temp;
  ReplacementFile one(temp.file("list"));
  ReplacementFile other(temp.file("list"));
  EXPECT_NE(one.temporaryPath(), other.temporaryPath());
  put(one.temporaryPath(), "one");
  put(other.temporaryPath(), "other");
  EXPECT_TRUE(one.commit());
  EXPECT_TRUE(other.commit());
  EXPECT_EQ(temp.read("list"), "other");
}

TEST(ReplacementFileTest, RemoveAbandonedTakesWhatTheDeadLeftAndNothingElse) {
  const TempDir temp;
  temp.write(".replacement-1-0", "of a process that died");
  temp.write("list.nm", "a list");
  ReplacementFile running(temp.file("other.nm"));
  ReplacementFile::removeAbandoned(temp.path());
  EXPECT_FALSE(fs::exists(temp.file(".replacement-1-0")));
  EXPECT_TRUE(fs::exists(temp.file("list.nm")));
  EXPECT_TRUE(fs::exists(running.temporaryPath()));
  EXPECT_TRUE(running.commit());
}

TEST(ReplacementFileTest, AFileThatIsTakenAwayBeforeItIsLockedIsMadeAgain) {
  const TempDir temp;
  beforeLock = [&temp] {
    for (const auto& entry : fs::directory_iterator(temp.path())) {
      fs::remove(entry.path());
    }
  };
  ReplacementFile replacement(temp.file("list"));
  EXPECT_EQ(beforeLock, nullptr);
  ASSERT_TRUE(replacement.isOpen());
  EXPECT_TRUE(fs::exists(replacement.temporaryPath()));
  EXPECT_TRUE(replacement.commit());
}

TEST(ReplacementFileTest, RemoveAbandonedOfAMissingFolderDoesNothing) {
  const TempDir temp;
  ReplacementFile::removeAbandoned(temp.file("missing"));
}

}  // namespace

// The test program's own, which stands before that of the C library.
extern "C" int flock(int descriptor, int operation) noexcept {
  if (const std::function<void()> act = std::exchange(beforeLock, nullptr)) {
    act();
  }
  return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}
