// The driver and its configuration file.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/DriverRun.h"
#include "tests/app/GoldenDocument.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const MISSING = "Could not load configuration file test.conf\n";
const char* const PARSER = "JSONData::setFromJsonString(): ";

// A configuration of these bytes ends the run with this on standard error.
void expectUnusable(const std::string& bytes, const std::string& err) {
  DriverRun driver;
  driver.folder().write("test.conf", bytes);
  const ProgramResult result = driver.convert();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, err + MISSING);
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(driver.folder().has("document.json"));
}

// Runs with only these bytes as the configuration; log lines go to standard output.
ProgramResult runWith(const DriverRun& driver, const std::string& bytes) {
  driver.folder().write("test.conf", bytes);
  return driver.convert();
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

using DriverConfigurationTest = DriverFixture;

}  // namespace

TEST_F(DriverConfigurationTest, MissingFileEndsTheRunEvenIfTheInputIsGiven) {
  const ProgramResult result = driver_.run({"-c", "nowhere.conf", "-i", "recording.perf"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "JSOM::fromFile(): could not open file 'nowhere.conf'\n"
            "Could not load configuration file nowhere.conf\n");
  EXPECT_EQ(result.out, "");
}

TEST_F(DriverConfigurationTest, TheDefaultNameMustExistToo) {
  const ProgramResult result = driver_.run({"-i", "recording.perf"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "JSOM::fromFile(): could not open file 'tracemill.conf'\n"
            "Could not load configuration file tracemill.conf\n");
}

TEST_F(DriverConfigurationTest, TheDefaultNameIsRead) {
  driver_.configure("\"inputPerfFile\": \"recording.perf\", \"outputFile\": \"document.json\"");
  std::filesystem::rename(driver_.folder().file("test.conf"),
                          driver_.folder().file("tracemill.conf"));
  EXPECT_EQ(driver_.run({}).status, 0);
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
}

TEST_F(DriverConfigurationTest, EmptyFile) {
  expectUnusable("", "");
  expectUnusable("  \n// nothing but a comment", "");
}

TEST_F(DriverConfigurationTest, Directory) {
  std::filesystem::create_directory(driver_.folder().file("folder.conf"));
  const ProgramResult result = driver_.run({"-c", "folder.conf", "-i", "recording.perf"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "JSOM::fromFile(): could not open file 'folder.conf'\n"
            "Could not load configuration file folder.conf\n");
}

TEST_F(DriverConfigurationTest, Unreadable) {
  driver_.configure();
  std::filesystem::permissions(driver_.folder().file("test.conf"), std::filesystem::perms::none);
  const ProgramResult result =
      driver_.program({"-c", "test.conf", "-i", "recording.perf"}).asOrdinaryUser().run();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "JSOM::fromFile(): could not open file 'test.conf'\n"
            "Could not load configuration file test.conf\n");
}

TEST_F(DriverConfigurationTest, Binary) {
  const std::string missing = std::string(PARSER) + "syntax error: missing value\n";
  expectUnusable(
      "\x7f"
      "ELF\x02\x01\x01",
      missing);
  expectUnusable(std::string(1000, '\xff'), missing);
  expectUnusable("PERFILE2 and so on", missing);
  expectUnusable(std::string(1000, '\0'), "");
}

TEST_F(DriverConfigurationTest, CutInHalf) {
  const std::string parser = PARSER;
  expectUnusable("{\"log\": {\"level\": \"INF", parser + "syntax error: invalid string\n");
  expectUnusable("{\"log\": {\"lev", parser + "syntax error: invalid string for object key\n");
  expectUnusable("{\"log\": {\"level\"", parser + "syntax error: object colon expected\n");
  expectUnusable("{\"log\": {\"level\": \"INFO\"",
                 parser + "syntax error: object comma or end expected\n");
  expectUnusable("{\"log\": {\"level\": \"INFO\",", parser + "syntax error: object not closed\n");
  expectUnusable("{\"log\": [1,", parser + "syntax error: array not closed\n");
  expectUnusable("{\"whitespace\": tr", parser + "syntax error: invalid boolean value\n");
  expectUnusable("{\"log\":", "");
}

TEST_F(DriverConfigurationTest, NestedTooDeeply) {
  const std::string line = std::string(PARSER) + "syntax error: nested too deeply\n";
  expectUnusable(nested(10'001), line);
  expectUnusable(std::string(100'000'000, '['), line);
  std::string objects;
  for (int i = 0; i < 1'000'000; ++i) {
    objects += "{\"a\":";
  }
  expectUnusable(objects, line);
}

TEST_F(DriverConfigurationTest, NestedAsDeepAsAllowed) {
  driver_.configure("\"unknown\": " + nested(9'999));
  EXPECT_EQ(driver_.convert().status, 0);
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
}

TEST_F(DriverConfigurationTest, EmptyObjectLeavesTheDefaultsAndLogsToStandardOutput) {
  const ProgramResult result = runWith(driver_, "{}");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  // Which kernel list there is depends on the machine; the range is the default or the list's.
  const LogTexts lines = linesOf(readLog(result.out), "main");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[0], testing::EndsWith(" from /proc/kallsyms"));
  EXPECT_EQ(lines[1], COMPLETED);
  EXPECT_TRUE(driver_.folder().has("symbols"));
}

TEST_F(DriverConfigurationTest, CommentsAndTrailingCommas) {
  runWith(driver_,
          "// first\n{ /* the kernel's list */ \"kernelSymbolFile\": \"none\",\n"
          "\"whitespace\": true, // last\n}\nanything");
  EXPECT_TRUE(matchesGolden("simple-indented", driver_.folder().read("document.json")));
}

TEST_F(DriverConfigurationTest, ALogMemberThatIsNoObjectIsIgnored) {
  const ProgramResult result =
      runWith(driver_, "{\"kernelSymbolFile\": \"none\", \"log\": \"level\"}");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(readLog(result.out), "main"),
              ElementsAre("INFO [main] Failed to load kernel symbols.  size:0 "
                          "range:bf000000-cf000000 from none",
                          COMPLETED));
}

TEST_F(DriverConfigurationTest, LevelsAreThoseOfTheLogMember) {
  const ProgramResult quiet =
      runWith(driver_, "{\"kernelSymbolFile\": \"none\", \"log\": {\"level\": \"warn\"}}");
  EXPECT_EQ(quiet.out, "");
  const ProgramResult one =
      runWith(driver_,
              "{\"kernelSymbolFile\": \"none\", "
              "\"log\": {\"default\": \"OFF\", \"categories\": {\"SymbolTableStore\": \"ALL\"}}}");
  EXPECT_THAT(readLog(one.out), testing::Each(testing::HasSubstr(" [SymbolTableStore] ")));
  EXPECT_THAT(readLog(one.out), testing::Not(IsEmpty()));
}

TEST_F(DriverConfigurationTest, ReferencesToEnvironmentVariablesAreExpanded) {
  driver_.configure(
      "\"inputPerfFile\": \"${TRACEMILL_TEST_FOLDER}/recording.perf\", "
      "\"outputFile\": \"${TRACEMILL_TEST_FOLDER}/${TRACEMILL_TEST_NAME}.json\"");
  const ProgramResult result = driver_.program({"-c", "test.conf"})
                                   .variable("TRACEMILL_TEST_FOLDER", driver_.folder().path())
                                   .variable("TRACEMILL_TEST_NAME", "expanded")
                                   .run();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("expanded.json")));
}

TEST_F(DriverConfigurationTest, ReferencesToUnsetVariablesStay) {
  driver_.configure("\"inputPerfFile\": \"${TRACEMILL_TEST_UNSET}/recording.perf\"");
  EXPECT_EQ(driver_.run({"-c", "test.conf"}).status, 1);
  EXPECT_THAT(driver_.log(),
              ElementsAre(NO_KERNEL,
                          "ERROR [main] Cannot open ${TRACEMILL_TEST_UNSET}/recording.perf for "
                          "reading, aborting.."));
}

TEST_F(DriverConfigurationTest, SettingsHoldForTheRun) {
  driver_.configure("\"symbolCacheDir\": \"made/for/this\"");
  EXPECT_EQ(driver_.convert().status, 0);
  EXPECT_TRUE(driver_.folder().has("made/for/this"));
  EXPECT_FALSE(driver_.folder().has("cache"));
  EXPECT_FALSE(driver_.folder().has("symbols"));
}

TEST_F(DriverConfigurationTest, EachRunBeginsANewLogFile) {
  driver_.configure(
      "\"log\": {\"level\": \"INFO\", \"adapter\": {\"type\": \"file\", \"fileCount\": 2, "
      "\"baseName\": \"logs/run.log\"}}");
  driver_.run({"-c", "test.conf", "-i", "nowhere.perf"});
  const std::string first = driver_.folder().read("logs/run.log");
  EXPECT_FALSE(driver_.folder().has("logs/run.log.1"));
  driver_.run({"-c", "test.conf"});
  EXPECT_EQ(driver_.folder().read("logs/run.log.1"), first);
  EXPECT_THAT(linesOf(readLog(driver_.folder().read("logs/run.log")), "main"),
              ElementsAre(NO_KERNEL, "ERROR [main] No input file specified, aborting.."));
  driver_.run({"-c", "test.conf"});
  EXPECT_FALSE(driver_.folder().has("logs/run.log.2"));
}

TEST_F(DriverConfigurationTest, AdapterOfAnUnknownTypeLeavesLinesOnStandardOutput) {
  driver_.configure("\"log\": {\"adapter\": {\"type\": \"socket\"}}");
  const ProgramResult result = driver_.run({"-c", "test.conf"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(readLog(result.out), "main"),
              ElementsAre(NO_KERNEL, "ERROR [main] No input file specified, aborting.."));
}

TEST_F(DriverConfigurationTest, LogFileThatCannotBeMadeLosesTheLinesOnly) {
  driver_.folder().write("occupied", "");
  driver_.configure(
      "\"log\": {\"adapter\": {\"type\": \"file\", \"baseName\": \"occupied/run.log\"}}");
  const ProgramResult result = driver_.convert();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err,
              testing::StartsWith("FileLogAdapter: Cannot create log file occupied/run.log\n"));
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
}
