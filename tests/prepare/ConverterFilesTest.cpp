#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/ConverterFiles.h"
#include "prepare/PrepareError.h"
#include "tests/support/TempDir.h"

using prepare::ConverterFiles;
using prepare::PreparedFolder;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class ConverterFilesTest : public testing::Test {
 protected:
  ConverterFilesTest() : folder_(temp_.file("out")), files_(folder_) {}

  TempDir temp_;
  PreparedFolder folder_;
  ConverterFiles files_;
};

}  // namespace

TEST_F(ConverterFilesTest, OrdinaryNamesStay) {
  EXPECT_EQ(files_.nameOf("/usr/bin/app"), "/usr/bin/app");
  EXPECT_EQ(files_.nameOf("[vdso]"), "[vdso]");
  EXPECT_EQ(files_.nameOf("relative"), "relative");
}

TEST_F(ConverterFilesTest, NamesCannotLeadOut) {
  for (const char* const name : {"../../x", "/a/../../../../x", "..", "/..", "a/.."}) {
    const std::string written = files_.nameOf(name);
    EXPECT_THAT("/" + written + "/", Not(HasSubstr("/../"))) << name;
  }
}

TEST_F(ConverterFilesTest, NamesThatNoFileSystemTakesAreShortened) {
  const std::string name = files_.nameOf("/" + std::string(5000, 'x'));
  EXPECT_LE(name.size(), 255u);
  EXPECT_LE(files_.nameOf(std::string(30000, '/')).size(), 4000u);
  std::string deep;
  for (int i = 0; i < 5000; ++i) {
    deep += "/ab";
  }
  EXPECT_LE(files_.nameOf(deep).size(), 3500u);
}

// A brace in front means to the converter that it made the map up; short names it shows as blank.
TEST_F(ConverterFilesTest, NamesThatMeanSomethingToTheConverterAreSpeltAnotherWay) {
  EXPECT_THAT(files_.nameOf("{10}"), Not(StartsWith("{")));
  for (const char* const name : {"a", "/a", "/ab", ""}) {
    EXPECT_GE(files_.nameOf(name).size(), 4u) << name;
  }
}

// The converter cuts this behind a name itself.
TEST_F(ConverterFilesTest, DeletedFilesLoseTheirMark) {
  EXPECT_EQ(files_.nameOf("/bin/old (deleted)"), "/bin/old");
}

TEST_F(ConverterFilesTest, NoTwoShareAName) {
  std::set<std::string> names;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 5000; ++i) {
    const std::string name = files_.nameOf("/bin/app");
    EXPECT_LE(name.size(), 200u);
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(std::filesystem::path("/" + name).lexically_normal().string(), "/bin/app");
  }
  EXPECT_TRUE(names.insert(files_.nameOf("/bin/app (deleted)")).second);
  EXPECT_TRUE(names.insert(files_.nameOf("//bin/app")).second);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(ConverterFilesTest, ListsHaveStandInsInTheFolder) {
  files_.addListText("/bin/app", "list");
  files_.addListText("[vdso]", "list");
  EXPECT_TRUE(std::filesystem::exists(folder_.workPath("files/bin/app")));
  EXPECT_TRUE(std::filesystem::exists(folder_.workPath("files/[vdso]")));
  files_.finish({});
  EXPECT_TRUE(std::filesystem::exists(folder_.workPath("symbols/symbolcache.json")));
  EXPECT_TRUE(std::filesystem::exists(folder_.workPath("tracemill.conf")));
}

// One map's name may be the folder of another's.
TEST_F(ConverterFilesTest, AFolderInAFilesPlace) {
  files_.addListText("/data/app", "list");
  files_.addListText("/data", "list");
  EXPECT_TRUE(std::filesystem::is_directory(folder_.workPath("files/data")));
}

TEST(ConverterFilesPathTest, FoldersThatNoConfigurationCanNameAreRefused) {
  for (const char* const name : {"a:b", "${HOME}", "back\\slash"}) {
    const TempDir temp;
    const PreparedFolder folder(temp.file(name));
    EXPECT_THROW(ConverterFiles files(folder), prepare::PrepareError) << name;
  }
}
