// What belongs to somebody else: files that may not be read, folders that may not be written.
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/DriverRun.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"

namespace {

using std::filesystem::perms;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::string> WORDS = {"-c", "test.conf",    "-i", "recording.perf",
                                        "-o", "document.json"};
constexpr perms READ_ONLY_FOLDER = perms::owner_read | perms::owner_exec;
constexpr perms READ_ONLY_FILE = perms::owner_read;

const char* const NO_LIST_OF_APP =
    "WARN [SymbolCache] Error creating symbol output file 'cache/bin_app.nm'";
const char* const NO_LIST_OF_LIBRARY =
    "WARN [SymbolCache] Error creating symbol output file 'cache/lib_libx.so.nm'";

class OtherUserTest : public testing::Test {
 protected:
  void forbid(const std::string& name, perms left) const {
    std::filesystem::permissions(driver_.folder().file(name), left);
  }

  ProgramResult run() const { return driver_.program(WORDS).asOrdinaryUser().run(); }

  const DriverRun driver_;
};

class ForbiddenCacheTest : public testing::Test {
 protected:
  ForbiddenCacheTest() { symbols_.conversion().asOrdinaryUser(); }
  ~ForbiddenCacheTest() override { allow(); }

  void makeCache() const { std::filesystem::create_directory(symbols_.folder().file("cache")); }

  void forbidWriting() const {
    for (const auto& file : std::filesystem::directory_iterator(symbols_.folder().file("cache"))) {
      std::filesystem::permissions(file, READ_ONLY_FILE);
    }
    std::filesystem::permissions(symbols_.folder().file("cache"), READ_ONLY_FOLDER);
  }

  // So that the folder can be removed.
  void allow() const {
    if (std::filesystem::is_directory(symbols_.folder().file("cache"))) {
      std::filesystem::permissions(symbols_.folder().file("cache"), perms::owner_all);
    }
  }

  SymbolRun symbols_;
};

}  // namespace

TEST_F(OtherUserTest, UnreadableRecording) {
  driver_.configure();
  forbid("recording.perf", perms::none);
  EXPECT_EQ(run().status, 1);
  EXPECT_THAT(
      driver_.log(),
      ElementsAre(NO_KERNEL, "ERROR [main] Cannot open recording.perf for reading, aborting.."));
  EXPECT_FALSE(driver_.folder().has("document.json"));
}

TEST_F(OtherUserTest, DocumentInAFolderThatTakesNone) {
  driver_.configure("\"outputFile\": \"documents/document.json\"");
  std::filesystem::create_directory(driver_.folder().file("documents"));
  forbid("documents", READ_ONLY_FOLDER);
  const ProgramResult result =
      driver_.program({"-c", "test.conf", "-i", "recording.perf"}).asOrdinaryUser().run();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(
      driver_.log(),
      ElementsAre(NO_KERNEL,
                  "ERROR [main] Cannot open documents/document.json for writing, aborting.."));
}

TEST_F(OtherUserTest, DocumentThatMayNotBeReplacedStaysAsItIs) {
  driver_.configure();
  driver_.folder().write("document.json", "mine");
  forbid("document.json", READ_ONLY_FILE);
  EXPECT_EQ(run().status, 1);
  EXPECT_EQ(driver_.folder().read("document.json"), "mine");
}

TEST_F(OtherUserTest, UnreadableKernelListIsNone) {
  driver_.configure();
  driver_.folder().write("kernel.syms", "c0008000 T _text\n");
  forbid("kernel.syms", perms::none);
  EXPECT_EQ(run().status, 0);
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
}

TEST_F(ForbiddenCacheTest, MissingFolderIsMade) {
  const ConversionResult result = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(symbols_.cacheNames(), "bin_app.nm lib_libx.so.nm symbolcache.json ");
}

TEST_F(ForbiddenCacheTest, FolderThatMayNotBeMadeLeavesTheFunctionsOut) {
  makeCache();
  std::filesystem::permissions(symbols_.folder().file("cache"), READ_ONLY_FOLDER);
  symbols_.conversion().setting("\"symbolCacheDir\": \"cache/of/mine\"");
  const ConversionResult result = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_THAT(result.complaints(),
              ElementsAre("WARN [SymbolCache] Error creating symbol output file "
                          "'cache/of/mine/bin_app.nm'",
                          "WARN [SymbolCache] Error creating symbol output file "
                          "'cache/of/mine/lib_libx.so.nm'"));
}

TEST_F(ForbiddenCacheTest, EmptyReadOnlyFolderLeavesTheFunctionsOut) {
  makeCache();
  forbidWriting();
  const ConversionResult result = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_THAT(result.complaints(), ElementsAre(NO_LIST_OF_APP, NO_LIST_OF_LIBRARY));
  EXPECT_EQ(symbols_.cacheNames(), "");
}

TEST_F(ForbiddenCacheTest, ReadOnlyFolderGivesTheListsThatItHas) {
  EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
  forbidWriting();
  symbols_.takeListerRuns();
  const ConversionResult result = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_THAT(result.complaints(), IsEmpty());
  EXPECT_EQ(symbols_.takeListerRuns(), "");
}

TEST_F(ForbiddenCacheTest, FileInPlaceOfTheFolderLeavesTheFunctionsOutAndStays) {
  symbols_.folder().write("cache", "mine");
  const ConversionResult result = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_THAT(result.complaints(), ElementsAre(NO_LIST_OF_APP, NO_LIST_OF_LIBRARY));
  EXPECT_EQ(symbols_.folder().read("cache"), "mine");
}

TEST_F(ForbiddenCacheTest, UnreadableIndexIsSaidAndItsListsAreMadeAgain) {
  EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
  std::filesystem::permissions(symbols_.folder().file("cache/symbolcache.json"),
                               perms::owner_write);
  symbols_.takeListerRuns();
  const ConversionResult result = symbols_.run();
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(result.err, "JSOM::fromFile(): could not open file 'cache/symbolcache.json'\n");
  EXPECT_EQ(symbols_.takeListerRuns(), "-x bin/app\n-x lib/libx.so\n");
}
