#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "kestrel/log/FileLogAdapter.h"
#include "kestrel/log/LogLevel.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using kestrel::LogLevel;
using testing::EndsWith;
using testing::MatchesRegex;

class FileLogAdapterTest : public testing::Test {
 protected:
  // An adapter on the file "base" of the temp folder; `members` like "\"fileCount\": 3".
  std::unique_ptr<kestrel::LogAdapter> make(const std::string& members) {
    return makeNamed(temp_.file("base"), members);
  }
  static std::unique_ptr<kestrel::LogAdapter> makeNamed(const std::string& baseName,
                                                        const std::string& members) {
    kestrel::JSOM config;
    config.fromString("{" + members + (members.empty() ? "" : ", ") + "\"baseName\": \"" +
                      baseName + "\"}");
    return std::unique_ptr<kestrel::LogAdapter>(
        kestrel::FileLogAdapterFactory().createLogAdapter(config));
  }

  void log(kestrel::LogAdapter& adapter, const std::string& message, bool buffering = false) {
    adapter.log(*LogLevel::LVL_INFO, loggerName_, message.c_str(), buffering);
  }
  std::size_t size(const std::string& name) const { return temp_.read(name).size(); }

  // "base" and what stands behind it, without the number 0 for the base file itself.
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(temp_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const TempDir temp_;
  std::string loggerName_ = "name";
};

TEST_F(FileLogAdapterTest, LineHasTheLayoutOfStandardOutput) {
  const auto adapter = make("");
  adapter->log(*LogLevel::LVL_WARN, loggerName_, "the message", false);
  EXPECT_THAT(temp_.read("base"),
              MatchesRegex("[A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\."
                           "[0-9][0-9][0-9] \\[name\\]: WARN the message\n"));
}

TEST_F(FileLogAdapterTest, StringFormWritesTheSameLine) {
  const auto adapter = make("");
  adapter->log(*LogLevel::LVL_WARN, loggerName_, std::string("as string"), false);
  EXPECT_THAT(temp_.read("base"), EndsWith(" [name]: WARN as string\n"));
}

TEST_F(FileLogAdapterTest, FileIsOpenedByTheFirstLine) {
  auto adapter = make("");
  adapter->flush();
  EXPECT_FALSE(temp_.has("base"));
  log(*adapter, "x");
  EXPECT_TRUE(temp_.has("base"));
}

TEST_F(FileLogAdapterTest, BufferedLinesReachTheFileWithFlushOrTheAdaptersEnd) {
  auto adapter = make("");
  log(*adapter, "one", true);
  EXPECT_EQ(temp_.read("base"), "");
  adapter->flush();
  EXPECT_THAT(temp_.read("base"), EndsWith("one\n"));
  log(*adapter, "two", true);
  adapter.reset();
  EXPECT_THAT(temp_.read("base"), EndsWith("two\n"));
}

TEST_F(FileLogAdapterTest, WithThreeFilesTheFirstLineMovesThemUpAndDeletesTheLast) {
  temp_.write("base", "current");
  temp_.write("base.1", "older");
  temp_.write("base.2", "oldest");
  const auto adapter = make("\"fileCount\": 3");
  log(*adapter, "new");
  EXPECT_THAT(names(), testing::ElementsAre("base", "base.1", "base.2"));
  EXPECT_THAT(temp_.read("base"), EndsWith("new\n"));
  EXPECT_EQ(temp_.read("base.1"), "current");
  EXPECT_EQ(temp_.read("base.2"), "older");
}

TEST_F(FileLogAdapterTest, WithTwoFilesTheCurrentOneReplacesTheOld) {
  temp_.write("base", "current");
  temp_.write("base.1", "older");
  temp_.write("base.2", "not ours");
  const auto adapter = make("\"fileCount\": 2");
  log(*adapter, "new");
  EXPECT_EQ(temp_.read("base.1"), "current");
  EXPECT_EQ(temp_.read("base.2"), "not ours");
}

TEST_F(FileLogAdapterTest, LastFileIsDeletedAlsoWhenNoneFollowsIt) {
  temp_.write("base", "current");
  temp_.write("base.3", "last");
  const auto adapter = make("\"fileCount\": 4");
  log(*adapter, "new");
  EXPECT_THAT(names(), testing::ElementsAre("base", "base.1"));
}

TEST_F(FileLogAdapterTest, WhatCannotBeDeletedStays) {
  for (const char* count : {"4", "1000000"}) {
    const TempDir temp;
    const std::string last = "base." + std::to_string(std::stoi(count) - 1);
    fs::create_directory(temp.file(last));
    temp.write("base.1", "1");
    log(*makeNamed(temp.file("base"), std::string("\"fileCount\": ") + count), "new");
    EXPECT_TRUE(fs::is_directory(temp.file(last))) << count;
    EXPECT_EQ(temp.read("base.2"), "1") << count;
  }
}

TEST_F(FileLogAdapterTest, WithOneFileThePreviousOneIsTruncated) {
  for (const char* count : {"1", "0", "-1", "-5000000000"}) {
    temp_.write("base", "current");
    temp_.write("base.1", "not ours");
    const auto adapter = make(std::string("\"fileCount\": ") + count);
    log(*adapter, "new");
    EXPECT_THAT(temp_.read("base"), testing::Not(testing::HasSubstr("current"))) << count;
    EXPECT_THAT(temp_.read("base"), EndsWith("new\n")) << count;
    EXPECT_EQ(temp_.read("base.1"), "not ours") << count;
    EXPECT_FALSE(temp_.has("base.2")) << count;
  }
}

TEST_F(FileLogAdapterTest, WithoutFileCountOneFileIsKept) {
  temp_.write("base", "current");
  const auto adapter = make("");
  log(*adapter, "new");
  EXPECT_THAT(names(), testing::ElementsAre("base"));
}

TEST_F(FileLogAdapterTest, LineThatStartsBelowTheLimitIsWrittenWholeAndTheNextOneRotates) {
  const auto adapter = make("\"maxSize\": 1000, \"fileCount\": 2");
  log(*adapter, "");
  const std::size_t overhead = size("base");
  log(*adapter, std::string(990 - 2 * overhead, 'a'));
  ASSERT_EQ(size("base"), 990u);
  log(*adapter, std::string(100, 'b'));
  EXPECT_EQ(size("base"), 990 + overhead + 100);
  EXPECT_FALSE(temp_.has("base.1"));
  log(*adapter, "c");
  EXPECT_EQ(size("base.1"), 990 + overhead + 100);
  EXPECT_EQ(size("base"), overhead + 1);
}

TEST_F(FileLogAdapterTest, FileThatHasReachedTheLimitExactlyIsRotated) {
  const auto adapter = make("\"maxSize\": 100, \"fileCount\": 3");
  log(*adapter, "");
  const std::size_t overhead = size("base");
  log(*adapter, std::string(99 - 2 * overhead, 'a'));
  ASSERT_EQ(size("base"), 99u);
  log(*adapter, "");  // 99 is below 100
  EXPECT_EQ(size("base"), 99 + overhead);
  log(*adapter, std::string(100 - overhead, 'b'));
  ASSERT_EQ(size("base"), 100u);
  log(*adapter, "c");  // 100 is not
  EXPECT_EQ(size("base.1"), 100u);
  EXPECT_EQ(size("base.2"), 99 + overhead);
}

TEST_F(FileLogAdapterTest, BufferedBytesCountForTheLimit) {
  const auto adapter = make("\"maxSize\": 10, \"fileCount\": 2");
  log(*adapter, "one", true);
  log(*adapter, "two", true);
  adapter->flush();
  EXPECT_THAT(temp_.read("base.1"), EndsWith("one\n"));
  EXPECT_THAT(temp_.read("base"), EndsWith("two\n"));
}

TEST_F(FileLogAdapterTest, LimitOfZeroIsNoLimit) {
  const auto adapter = make("\"maxSize\": 0, \"fileCount\": 2");
  for (int i = 0; i < 100; ++i) {
    log(*adapter, std::string(1000, 'x'));
  }
  EXPECT_GT(size("base"), 100'000u);
  EXPECT_FALSE(temp_.has("base.1"));
}

TEST_F(FileLogAdapterTest, LimitOutside32BitsCountsAsTheNearest) {
  const auto adapter = make("\"maxSize\": 4294967297, \"fileCount\": 2");  // would wrap to 1
  log(*adapter, "one");
  log(*adapter, "two");
  EXPECT_FALSE(temp_.has("base.1"));
}

TEST_F(FileLogAdapterTest, NegativeLimitGivesEachLineItsFile) {
  const auto adapter = make("\"maxSize\": -1, \"fileCount\": 3");
  log(*adapter, "one");
  log(*adapter, "two");
  EXPECT_THAT(temp_.read("base.1"), EndsWith("one\n"));
  EXPECT_THAT(temp_.read("base"), EndsWith("two\n"));
}

TEST_F(FileLogAdapterTest, WithoutBaseNameTheFileIsLogInTheWorkingDirectory) {
  const fs::path before = fs::current_path();
  fs::current_path(temp_.path());
  kestrel::JSOM config;
  config.fromString("{\"type\": \"file\"}");
  kestrel::FileLogAdapter adapter(config);
  log(adapter, "x");
  fs::current_path(before);
  EXPECT_THAT(temp_.read("log"), EndsWith("x\n"));
}

TEST_F(FileLogAdapterTest, MissingDirectoriesAreCreated) {
  const auto adapter = makeNamed(temp_.file("new/dir/base"), "\"fileCount\": 3");
  log(*adapter, "x");
  EXPECT_THAT(temp_.read("new/dir/base"), EndsWith("x\n"));
}

TEST_F(FileLogAdapterTest, LineThatFindsNoFileIsReportedAndLostAndTheNextOneTriesAgain) {
  temp_.write("way", "");
  const std::string path = temp_.file("way/base");
  const auto adapter = makeNamed(path, "");
  StderrCapture errors;
  log(*adapter, "lost");
  EXPECT_EQ(errors.stop(), "FileLogAdapter: Cannot create log file " + path + "\n");
  fs::remove(temp_.file("way"));
  log(*adapter, "kept");
  EXPECT_THAT(temp_.read("way/base"), EndsWith("kept\n"));
  EXPECT_THAT(temp_.read("way/base"), testing::Not(testing::HasSubstr("lost")));
}

TEST_F(FileLogAdapterTest, GapsInTheNumbersStay) {
  for (const char* count : {"6", "1000000"}) {
    for (const char* name : {"base.1", "base.2", "base.3", "base.4", "base.5"}) {
      fs::remove(temp_.file(name));
    }
    temp_.write("base", "0");
    temp_.write("base.1", "1");
    temp_.write("base.3", "3");
    log(*make(std::string("\"fileCount\": ") + count), "new");
    EXPECT_THAT(names(), testing::ElementsAre("base", "base.1", "base.2", "base.4")) << count;
    EXPECT_EQ(temp_.read("base.1"), "0") << count;
    EXPECT_EQ(temp_.read("base.2"), "1") << count;
    EXPECT_EQ(temp_.read("base.4"), "3") << count;
  }
}

// What the loop over all four billion names would do, in no time: only files that exist are
// touched.
TEST_F(FileLogAdapterTest, HugeFileCountTouchesOnlyNumberedFilesThatExist) {
  for (const char* count : {"4294967295", "4294967296", "9000000000000000000"}) {
    const TempDir temp;
    temp.write("base", "0");
    temp.write("base.1", "1");
    temp.write("base.2", "2");
    temp.write("base.10", "10");
    temp.write("base.999", "999");
    temp.write("base.4294967292", "high");
    temp.write("base.4294967293", "last but one");
    temp.write("base.4294967294", "last");
    for (const char* other :
         {"base.0", "base.01", "base.1x", "base.", "base.-1", "base.+1", "base.4294967295",
          "base.4294967296", "base.99999999999999999999", "case.1", "base1"}) {
      temp.write(other, "other");
    }
    const auto start = std::chrono::steady_clock::now();
    log(*makeNamed(temp.file("base"), std::string("\"fileCount\": ") + count), "new");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_THAT(temp.read("base"), EndsWith("new\n"));
    EXPECT_EQ(temp.read("base.1"), "0");
    EXPECT_EQ(temp.read("base.2"), "1");
    EXPECT_EQ(temp.read("base.3"), "2");
    EXPECT_EQ(temp.read("base.11"), "10");
    EXPECT_EQ(temp.read("base.1000"), "999");
    EXPECT_FALSE(temp.has("base.10"));
    EXPECT_FALSE(temp.has("base.999"));
    EXPECT_FALSE(temp.has("base.4294967292"));
    EXPECT_EQ(temp.read("base.4294967293"), "high");
    EXPECT_EQ(temp.read("base.4294967294"), "last but one");
    for (const char* other :
         {"base.0", "base.01", "base.1x", "base.", "base.-1", "base.+1", "base.4294967295",
          "base.4294967296", "base.99999999999999999999", "case.1", "base1"}) {
      EXPECT_EQ(temp.read(other), "other") << other;
    }
  }
}

TEST_F(FileLogAdapterTest, HugeFileCountWorksInTheWorkingDirectory) {
  const fs::path before = fs::current_path();
  fs::current_path(temp_.path());
  temp_.write("base", "0");
  temp_.write("base.1", "1");
  log(*makeNamed("base", "\"fileCount\": 1000000"), "new");
  fs::current_path(before);
  EXPECT_EQ(temp_.read("base.1"), "0");
  EXPECT_EQ(temp_.read("base.2"), "1");
}

// The numbered name of 255 bytes fits the buffer with its end; one more does not.
TEST_F(FileLogAdapterTest, BaseNameTooLongForTheNumberedNamesIsReportedAndNothingIsTouched) {
  std::string directory = temp_.path();
  while (directory.size() < 200) {
    directory += "/dddddddddd";
  }
  fs::create_directories(directory);
  const std::string fits = directory + "/" + std::string(253 - directory.size() - 1, 'f');
  ASSERT_EQ(fits.size() + 2, 255u);
  log(*makeNamed(fits, "\"fileCount\": 2"), "one");
  log(*makeNamed(fits, "\"fileCount\": 2"), "two");
  EXPECT_TRUE(fs::exists(fits + ".1"));
  EXPECT_TRUE(fs::exists(fits));

  for (const auto& [name, count] :
       {std::pair<std::string, std::string>{fits + "f", "2"}, {fits, "11"}, {fits, "4294967295"}}) {
    const auto sizeBefore = fs::file_size(fits);
    StderrCapture errors;
    log(*makeNamed(name, "\"fileCount\": " + count), "lost");
    EXPECT_EQ(errors.stop(), "FileLogAdapter: Cannot create log file " + name + "\n");
    EXPECT_EQ(fs::file_size(fits), sizeBefore);
  }
  EXPECT_FALSE(fs::exists(fits + "f"));

  log(*makeNamed(fits + "f", "\"fileCount\": 1"), "no numbers, no buffer");
  EXPECT_TRUE(fs::exists(fits + "f"));
}

TEST_F(FileLogAdapterTest, EndlessBaseNameIsReported) {
  const std::string name = temp_.path() + "/" + std::string(1'000'000, 'x');
  for (const char* count : {"1", "5"}) {
    StderrCapture errors;
    log(*makeNamed(name, std::string("\"fileCount\": ") + count), "lost");
    EXPECT_EQ(errors.stop(), "FileLogAdapter: Cannot create log file " + name + "\n");
  }
}

TEST_F(FileLogAdapterTest, ConfigurationThatIsNoObjectGivesTheDefaults) {
  const fs::path before = fs::current_path();
  fs::current_path(temp_.path());
  kestrel::FileLogAdapter adapter{kestrel::JSOM()};
  log(adapter, "x");
  fs::current_path(before);
  EXPECT_TRUE(temp_.has("log"));
}

TEST(FileLogAdapterFactoryTest, ItsTypeIsFile) {
  EXPECT_EQ(kestrel::FileLogAdapterFactory().getType(), "file");
}

}  // namespace
