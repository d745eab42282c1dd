#include <filesystem>
#include <sys/stat.h>
#include <sys/time.h>

#include <gtest/gtest.h>

#include "kestrel/FileStatus.h"
#include "tests/support/TempDir.h"

using kestrel::FileStatus;

namespace {

TEST(FileStatusTest, AMissingFileHasNone) {
  const TempDir temp;
  EXPECT_FALSE(FileStatus::of(temp.file("missing")).has_value());
  EXPECT_FALSE(FileStatus::of("").has_value());
}

TEST(FileStatusTest, SizeAndWholeSecondsOfTheModification) {
  const TempDir temp;
  temp.write("file", "12345");
  const timeval times[] = {{1, 0}, {1405429210, 999999}};
  ASSERT_EQ(utimes(temp.file("file").c_str(), times), 0);
  const std::optional<FileStatus> status = FileStatus::of(temp.file("file"));
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(status->size, 5);
  EXPECT_EQ(status->modificationTime, 1405429210);
  EXPECT_FALSE(status->isSpecial);
}

TEST(FileStatusTest, LinksAreFollowed) {
  const TempDir temp;
  temp.write("file", "12345");
  std::filesystem::create_symlink(temp.file("file"), temp.file("link"));
  std::filesystem::create_symlink(temp.file("missing"), temp.file("dangling"));
  EXPECT_EQ(FileStatus::of(temp.file("link")).value().size, 5);
  EXPECT_FALSE(FileStatus::of(temp.file("dangling")).has_value());
}

TEST(FileStatusTest, PipesAndDevicesAreSpecialAndFoldersAreNot) {
  const TempDir temp;
  ASSERT_EQ(mkfifo(temp.file("pipe").c_str(), 0600), 0);
  EXPECT_TRUE(FileStatus::of(temp.file("pipe")).value().isSpecial);
  EXPECT_TRUE(FileStatus::of("/dev/null").value().isSpecial);
  EXPECT_FALSE(FileStatus::of(temp.path()).value().isSpecial);
}

}  // namespace
