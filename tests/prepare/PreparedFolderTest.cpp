#include <exception>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/PrepareError.h"
#include "prepare/PreparedFolder.h"
#include "tests/support/TempDir.h"

using prepare::PreparedFolder;
using prepare::PrepareError;
using testing::HasSubstr;

namespace {

std::string refusalOf(const std::string& place) {
  try {
    const PreparedFolder folder(place);
  } catch (const PrepareError& error) {
    return error.what();
  }
  return "taken";
}

std::size_t entriesOf(const TempDir& temp) {
  const std::filesystem::directory_iterator entries(temp.path());
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

void prepareOne(const std::string& place, const std::string& text) {
  PreparedFolder folder(place);
  folder.write("file", text);
  folder.commit();
}

}  // namespace

TEST(PreparedFolderTest, AppearsWholeAtTheEnd) {
  const TempDir temp;
  {
    PreparedFolder folder(temp.file("out"));
    folder.write("file", "text");
    EXPECT_FALSE(temp.has("out"));
    EXPECT_EQ(temp.file("out/file"), folder.finalPath("file"));
    folder.commit();
  }
  EXPECT_EQ(temp.read("out/file"), "text");
  EXPECT_EQ(entriesOf(temp), 1u);
}

TEST(PreparedFolderTest, AnUnfinishedOneLeavesNothing) {
  const TempDir temp;
  {
    const PreparedFolder folder(temp.file("out"));
    folder.write("file", "text");
  }
  EXPECT_EQ(entriesOf(temp), 0u);
}

TEST(PreparedFolderTest, ItsOwnIsReplacedWhole) {
  const TempDir temp;
  prepareOne(temp.file("out"), "first");
  std::filesystem::create_directory(temp.file("out/more"));
  prepareOne(temp.file("out/"), "second");  // a slash at the end changes nothing
  EXPECT_EQ(temp.read("out/file"), "second");
  EXPECT_FALSE(temp.has("out/more"));
  EXPECT_EQ(entriesOf(temp), 1u);
}

TEST(PreparedFolderTest, WhileTheNewOneIsMadeTheOldOneStays) {
  const TempDir temp;
  prepareOne(temp.file("out"), "first");
  {
    const PreparedFolder folder(temp.file("out"));
    folder.write("file", "half");
  }
  EXPECT_EQ(temp.read("out/file"), "first");
  EXPECT_EQ(entriesOf(temp), 1u);
}

TEST(PreparedFolderTest, WhatIsNotItsOwnIsRefused) {
  const TempDir temp;
  temp.write("file", "precious");
  std::filesystem::create_directory(temp.file("folder"));
  temp.write("folder/file", "precious");
  std::filesystem::create_directory(temp.file("empty"));
  std::filesystem::create_symlink("nowhere", temp.file("link"));
  for (const char* const name : {"file", "folder", "empty", "link"}) {
    EXPECT_THAT(refusalOf(temp.file(name)),
                HasSubstr(temp.file(name) + ": stands there already and was not prepared by "
                                            "tracemill-prepare. Name another folder with -o, or "
                                            "remove this one."));
  }
  EXPECT_EQ(temp.read("file"), "precious");
  EXPECT_EQ(temp.read("folder/file"), "precious");
  EXPECT_EQ(entriesOf(temp), 4u);
}

// Somebody else was faster.
TEST(PreparedFolderTest, WhatCameInTheMeantimeIsRefusedToo) {
  const TempDir temp;
  PreparedFolder folder(temp.file("out"));
  temp.write("out", "precious");
  EXPECT_THROW(folder.commit(), PrepareError);
  EXPECT_EQ(temp.read("out"), "precious");
}

TEST(PreparedFolderTest, APlaceThatIsNotThereIsToldOf) {
  const TempDir temp;
  EXPECT_THAT(refusalOf(temp.file("no/such/out")),
              HasSubstr(temp.file("no/such") + ": no folder can be made there: No such file"));
}

// Made, but nothing can be written into it.
TEST(PreparedFolderTest, OneThatCannotBeMarkedIsNotLeftBehind) {
  const TempDir temp;
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit noFiles{0, before.rlim_max};
  std::exception_ptr refusal;  // a sanitizer needs descriptors to look at one
  setrlimit(RLIMIT_NOFILE, &noFiles);
  try {
    const PreparedFolder folder(temp.file("out"));
  } catch (...) {
    refusal = std::current_exception();
  }
  setrlimit(RLIMIT_NOFILE, &before);
  ASSERT_TRUE(refusal != nullptr);
  try {
    std::rethrow_exception(refusal);
  } catch (const PrepareError& error) {
    EXPECT_THAT(error.what(), HasSubstr("cannot be written: Too many open files"));
  }
  EXPECT_EQ(entriesOf(temp), 0u);
}

TEST(PreparedFolderTest, PlacesAreNamedAfterTheRecording) {
  EXPECT_EQ(PreparedFolder::placeFor("perf.data"), "perf.data.prepared");
  EXPECT_EQ(PreparedFolder::placeFor("-"), "perf.data.prepared");
  EXPECT_EQ(PreparedFolder::placeFor("/x/rings//"), "/x/rings.prepared");
}
