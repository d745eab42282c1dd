#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/FileFinder.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::FileFinder;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(FileFinderTest, FirstDirectoryThatHasTheNameWins) {
  const TempDir temp;
  std::filesystem::create_directories(temp.file("one"));
  std::filesystem::create_directories(temp.file("two"));
  temp.write("two/lib.so", "");
  FileFinder finder;
  finder.setSearchPath(temp.file("one") + ":" + temp.file("two"));
  std::string found;
  EXPECT_TRUE(finder.findFile("lib.so", found));
  EXPECT_EQ(found, temp.file("two/lib.so"));

  temp.write("one/lib.so", "");
  EXPECT_TRUE(finder.findFile("lib.so", found));
  EXPECT_EQ(found, temp.file("one/lib.so"));
}

TEST(FileFinderTest, DirectoryActsAsTheRootOfAbsoluteNames) {
  const TempDir temp;
  std::filesystem::create_directories(temp.file("sysroot/lib"));
  temp.write("sysroot/lib/libc.so", "");
  FileFinder finder;
  finder.appendSearchPath(temp.file("sysroot"));
  std::string found;
  EXPECT_TRUE(finder.findFile("/lib/libc.so", found));
  EXPECT_EQ(found, temp.file("sysroot//lib/libc.so"));
}

TEST(FileFinderTest, NameItselfIsTriedFirstOnlyWhenAsked) {
  const TempDir temp;
  const std::string name = temp.write("as-given", "");
  FileFinder finder;
  std::string found = "older";
  EXPECT_FALSE(finder.findFile(name, found));
  EXPECT_EQ(found, "");
  finder.setCheckAsGiven(true);
  EXPECT_TRUE(finder.findFile(name, found));
  EXPECT_EQ(found, name);
  finder.setSearchPath("/");  // would find it too, as "/" and the name
  EXPECT_TRUE(finder.findFile(name, found));
  EXPECT_EQ(found, name);
  finder.setCheckAsGiven(false);
  EXPECT_TRUE(finder.findFile(name, found));
  EXPECT_EQ(found, "/" + name);
}

TEST(FileFinderTest, NothingFoundEmptiesTheResultAlsoWhenItIsTheName) {
  FileFinder finder;
  finder.setSearchPath("/nowhere");
  std::string name = "missing";
  EXPECT_FALSE(finder.findFile(name, name));
  EXPECT_EQ(name, "");
}

TEST(FileFinderTest, TheResultMayBeTheNameItself) {
  const TempDir temp;
  temp.write("f", "");
  FileFinder finder;
  finder.setSearchPath("/nowhere:" + temp.path());
  std::string name = "f";
  EXPECT_TRUE(finder.findFile(name, name));
  EXPECT_EQ(name, temp.file("f"));
}

TEST(FileFinderTest, DirectoriesCountAsFound) {
  const TempDir temp;
  FileFinder finder;
  finder.setSearchPath(temp.path());
  std::string found;
  EXPECT_TRUE(finder.findFile("", found));
  EXPECT_EQ(found, temp.path() + "/");
}

TEST(FileFinderTest, PathTextIsSplitAtEveryColonAndEmptyPiecesAreTheWorkingDirectory) {
  FileFinder finder;
  finder.setSearchPath(":/a::b/:");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("./", "/a/", "./", "b/", "./"));
  finder.setSearchPath("");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("./"));
  finder.setSearchPath(static_cast<const char*>(nullptr));
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("./"));
  finder.setSearchPath(std::string("/x"));
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("/x/"));
}

TEST(FileFinderTest, BackslashesBecomeSlashesAndALastOneYieldsTwo) {
  FileFinder finder;
  finder.setSearchPath(std::vector<std::string>{"a\\b", "c\\", "d/", "\\"});
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("a/b/", "c//", "d/", "//"));
  finder.setSearchPath(std::vector<std::string>{});
  EXPECT_THAT(finder.getSearchPath(), IsEmpty());
}

TEST(FileFinderTest, DuplicatesInASearchPathStay) {
  FileFinder finder;
  finder.setSearchPath("/a:/b:/a/");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("/a/", "/b/", "/a/"));
}

TEST(FileFinderTest, AppendAndPrependMoveAnEntryThatIsThereAlready) {
  FileFinder finder;
  finder.setSearchPath("/a:/b:/c");
  finder.appendSearchPath("/a");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("/b/", "/c/", "/a/"));
  finder.prependSearchPath("/c/");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("/c/", "/b/", "/a/"));
  finder.appendSearchPath("");
  finder.prependSearchPath("d");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("d/", "/c/", "/b/", "/a/", "./"));
}

TEST(FileFinderTest, OnlyTheFirstEqualEntryIsRemovedBeforeItIsAdded) {
  FileFinder finder;
  finder.setSearchPath("/a:/b:/a");
  finder.prependSearchPath("/a");
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("/a/", "/b/", "/a/"));
  finder.appendSearchPath(finder.getSearchPath()[0]);
  EXPECT_THAT(finder.getSearchPath(), ElementsAre("/b/", "/a/", "/a/"));
}

}  // namespace
