#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/Options.h"
#include "tests/app/ProgramRun.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"

namespace {

using testing::MatchesRegex;

// Parses these words behind the program's name.
std::optional<int> parse(Options& options, std::vector<std::string> words) {
  words.insert(words.begin(), "tracemill");
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  return options.parse(static_cast<int>(words.size()), argv.data());
}

// They must parse.
Options parsed(const std::vector<std::string>& words) {
  Options options;
  EXPECT_EQ(parse(options, words), std::nullopt);
  return options;
}

ProgramResult run(const std::vector<std::string>& words) {
  const TempDir folder;
  return ProgramRun(folder.path()).arguments(words).run();
}

// The program ends at once with this one line.
void expectMistake(const std::vector<std::string>& words, const std::string& line) {
  const ProgramResult result = run(words);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, line + "\n");
  EXPECT_EQ(result.out, "");
}

const char* const USAGE_BEHIND_FIRST_LINE =
    " USAGE tracemill [options]\n"
    "       -h          show this help\n"
    "       -c file     the configuration file (default tracemill.conf)\n"
    "       -s time     Clock start time in seconds\n"
    "       -d duration Clock duration in seconds\n"
    "       -i file     Input perf data file\n"
    "       -o file     Output file (stdout)\n"
    "       -a          Append output file\n"
    "       -A number   Time conversion from data to clock multiplier or skew (1.0)\n"
    "       -B number   Time conversion from data to clock offset (0.0)\n"
    "       -C number   Time conversion from data to clock base (0.0)\n"
    " TIME\n"
    "\n"
    "   clockStartTime(-s) = the clock time to start collection.\n"
    "\n"
    "   dataStartTime = the time to start collection, adjusted for input time stamps.\n"
    "                 = (clockStartTime(-s) - offset(-B)) / skew(-A) + base(-C)\n";

void expectUsage(const ProgramResult& result) {
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
  const std::size_t end = result.out.find('\n') + 1;
  EXPECT_THAT(result.out.substr(0, end),
              MatchesRegex("tracemill - converts raw Perf data to generic plot data\\. Built "
                           "[A-Z][a-z][a-z] [ 0-9][0-9] [0-9][0-9][0-9][0-9] "
                           "[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\n"));
  EXPECT_EQ(result.out.substr(end), USAGE_BEHIND_FIRST_LINE);
}

}  // namespace

TEST(OptionsTest, Defaults) {
  const Options options = parsed({});
  EXPECT_EQ(options.configFile, "tracemill.conf");
  EXPECT_EQ(options.clockStart, 0.0);
  EXPECT_EQ(options.clockDuration, 0.0);
  EXPECT_EQ(options.inputFile, std::nullopt);
  EXPECT_EQ(options.outputFile, std::nullopt);
  EXPECT_FALSE(options.append);
  EXPECT_EQ(options.skew, 1.0);
  EXPECT_EQ(options.offset, 0.0);
  EXPECT_EQ(options.base, 0.0);
}

TEST(OptionsTest, EveryOption) {
  const Options options = parsed({"-c", "some.conf", "-s", "1.5", "-d", "2.5", "-i", "in", "-o",
                                  "out", "-a", "-A", "3.5", "-B", "4.5", "-C", "5.5"});
  EXPECT_EQ(options.configFile, "some.conf");
  EXPECT_EQ(options.clockStart, 1.5);
  EXPECT_EQ(options.clockDuration, 2.5);
  EXPECT_EQ(options.inputFile, "in");
  EXPECT_EQ(options.outputFile, "out");
  EXPECT_TRUE(options.append);
  EXPECT_EQ(options.skew, 3.5);
  EXPECT_EQ(options.offset, 4.5);
  EXPECT_EQ(options.base, 5.5);
}

TEST(OptionsTest, LaterRepetitionOverridesTheEarlier) {
  const Options options = parsed(
      {"-i", "first", "-s", "1", "-A", "7", "-i", "second", "-s", "2", "-A", "x", "-a", "-a"});
  EXPECT_EQ(options.inputFile, "second");
  EXPECT_EQ(options.clockStart, 2.0);
  EXPECT_EQ(options.skew, 0.0);
  EXPECT_TRUE(options.append);
}

TEST(OptionsTest, ArgumentsMayBeAttached) {
  const Options options = parsed({"-iin", "-s1e2"});
  EXPECT_EQ(options.inputFile, "in");
  EXPECT_EQ(options.clockStart, 100.0);
}

TEST(OptionsTest, GroupedOptions) {
  const Options options = parsed({"-aiin"});
  EXPECT_TRUE(options.append);
  EXPECT_EQ(options.inputFile, "in");
}

TEST(OptionsTest, NonOptionArgumentsAreIgnored) {
  const Options options = parsed({"one", "-i", "in", "-", "two", "-a", "--", "-x"});
  EXPECT_EQ(options.inputFile, "in");
  EXPECT_TRUE(options.append);
}

TEST(OptionsTest, AnArgumentMayBeginWithADash) {
  const Options options = parsed({"-s", "-1.5", "-i", "-a"});
  EXPECT_EQ(options.clockStart, -1.5);
  EXPECT_EQ(options.inputFile, "-a");
  EXPECT_FALSE(options.append);
}

TEST(OptionsTest, AnEmptyNameIsAName) {
  const Options options = parsed({"-i", "", "-o", ""});
  EXPECT_EQ(options.inputFile, "");
  EXPECT_EQ(options.outputFile, "");
}

TEST(OptionsTest, NumbersAreWhatStrtodMakesOfThem) {
  EXPECT_EQ(parsed({"-s", " 7.25s"}).clockStart, 7.25);
  EXPECT_EQ(parsed({"-s", "abc"}).clockStart, 0.0);
  EXPECT_EQ(parsed({"-s", ""}).clockStart, 0.0);
  EXPECT_EQ(parsed({"-s", "0x10"}).clockStart, 16.0);
  EXPECT_EQ(parsed({"-s", "1e3"}).clockStart, 1000.0);
  EXPECT_EQ(parsed({"-s", "+.5"}).clockStart, 0.5);
  EXPECT_EQ(parsed({"-d", "inf"}).clockDuration, std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(parsed({"-A", "nan"}).skew));
  EXPECT_EQ(parsed({"-B", "-2e400"}).offset, -std::numeric_limits<double>::infinity());
  EXPECT_EQ(parsed({"-C", "12,5"}).base, 12.0);
}

TEST(OptionsTest, ParseReturnsTheStatusOfHelpAndMistakes) {
  StdoutCapture out;
  StderrCapture err;
  Options options;
  EXPECT_EQ(parse(options, {"-h"}), 1);
  EXPECT_EQ(parse(options, {"-x"}), 1);
  EXPECT_EQ(parse(options, {"-i"}), 1);
  EXPECT_EQ(err.stop(), "Unknown option `-120'.\nOption -i requires an argument.\n");
}

TEST(OptionsTest, HelpPrintsTheUsageAndEndsWithStatusOne) { expectUsage(run({"-h"})); }

TEST(OptionsTest, HelpEndsTheOptionsAtOnce) {
  expectUsage(run({"-h", "-x"}));
  expectUsage(run({"-i", "in", "-h", "-c"}));
}

TEST(OptionsTest, HelpNamesTheBuiltInConfigurationFile) {
  expectUsage(run({"-c", "other.conf", "-h"}));
}

TEST(OptionsTest, MissingArguments) {
  for (const char option : std::string("csodiABC")) {
    const std::string word = std::string("-") + option;
    expectMistake({word}, "Option " + word + " requires an argument.");
  }
  expectMistake({"-ac"}, "Option -c requires an argument.");
}

TEST(OptionsTest, UnknownPrintableOptionsAreNamedByTheirCode) {
  expectMistake({"-x"}, "Unknown option `-120'.");
  expectMistake({"-H"}, "Unknown option `-72'.");
  expectMistake({"-ax"}, "Unknown option `-120'.");
  expectMistake({"- "}, "Unknown option `-32'.");
  expectMistake({"-~"}, "Unknown option `-126'.");
  expectMistake({"-:"}, "Unknown option `-58'.");
  expectMistake({"-?"}, "Unknown option `-63'.");
  expectMistake({"--help"}, "Unknown option `-45'.");
}

TEST(OptionsTest, UnprintableOptionsAreNamedByAnEightAndTheirCode) {
  expectMistake({"-\x01"}, "Unknown option character `81'.");
  expectMistake({"-\x1f"}, "Unknown option character `831'.");
  expectMistake({"-\x7f"}, "Unknown option character `8127'.");
}

TEST(OptionsTest, CharacterCodesFrom0x80AreUnsigned) {
  expectMistake({"-\x80"}, "Unknown option character `8128'.");
  expectMistake({"-\xC3\xA4"}, "Unknown option character `8195'.");
  expectMistake({"-\xff"}, "Unknown option character `8255'.");
}

TEST(OptionsTest, TheFirstMistakeEndsTheRun) {
  expectMistake({"-x", "-y"}, "Unknown option `-120'.");
  expectMistake({"-x", "-h"}, "Unknown option `-120'.");
  expectMistake({"-x", "-c"}, "Unknown option `-120'.");
}
