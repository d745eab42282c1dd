#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Options.h"

using prepare::Options;
using prepare::UsageError;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

Options parsed(std::vector<std::string> words) {
  words.insert(words.begin(), "tracemill-prepare");
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return Options::parse(static_cast<int>(words.size()), pointers.data());
}

std::string refusalOf(const std::vector<std::string>& words) {
  try {
    parsed(words);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "taken";
}

const std::string HELP = " See tracemill-prepare --help.";

}  // namespace

TEST(PrepareOptionsTest, WithoutWordsTheDefaultsHold) {
  const Options options = parsed({});
  EXPECT_EQ(options.action, Options::Action::PREPARE);
  EXPECT_EQ(options.recording, "perf.data");
  EXPECT_EQ(options.output, "");
  EXPECT_FALSE(options.keepUnknown);
  EXPECT_FALSE(options.quiet);
}

TEST(PrepareOptionsTest, EveryOptionIsTaken) {
  const Options options = parsed({"-o",
                                  "out",
                                  "--event",
                                  "cycles",
                                  "--event=faults",
                                  "--window",
                                  "1:2:3,4s",
                                  "--keep-unknown",
                                  "--sysroot",
                                  "/a",
                                  "--sysroot",
                                  "/b",
                                  "--debug-dir",
                                  "/d",
                                  "--kallsyms",
                                  "k",
                                  "--vmlinux",
                                  "v",
                                  "--no-demangle",
                                  "--no-lines",
                                  "--no-cache",
                                  "--cache-size",
                                  "2M",
                                  "--listing-timeout",
                                  "5",
                                  "--max-frames",
                                  "9",
                                  "-q",
                                  "my.data"});
  EXPECT_EQ(options.recording, "my.data");
  EXPECT_EQ(options.output, "out");
  EXPECT_THAT(options.events, ElementsAre("cycles", "faults"));
  EXPECT_EQ(options.window, "1:2:3,4s");
  EXPECT_TRUE(options.keepUnknown);
  EXPECT_THAT(options.listing.sysroots, ElementsAre("/a", "/b"));
  EXPECT_THAT(options.listing.debugDirs, ElementsAre("/d"));
  EXPECT_EQ(options.listing.kallsyms, "k");
  EXPECT_EQ(options.listing.vmlinux, "v");
  EXPECT_FALSE(options.listing.demangle);
  EXPECT_FALSE(options.listing.lines);
  EXPECT_FALSE(options.listing.cache);
  EXPECT_EQ(options.listing.cacheSize, 2u << 20);
  EXPECT_EQ(options.listing.timeout, std::chrono::seconds(5));
  EXPECT_EQ(options.maxFrames, 9u);
  EXPECT_TRUE(options.quiet);
}

TEST(PrepareOptionsTest, ActionsAndStandardInput) {
  EXPECT_EQ(parsed({"-l"}).action, Options::Action::LIST);
  EXPECT_EQ(parsed({"--help", "--bogus"}).action, Options::Action::HELP);
  EXPECT_EQ(parsed({"--version"}).action, Options::Action::VERSION);
  EXPECT_EQ(parsed({"-"}).recording, "-");
  EXPECT_EQ(parsed({"--", "-x"}).recording, "-x");
}

TEST(PrepareOptionsTest, EachErrorIsASentence) {
  EXPECT_EQ(refusalOf({"--bogus"}), "--bogus: no such option." + HELP);
  EXPECT_EQ(refusalOf({"-x"}), "-x: no such option." + HELP);
  EXPECT_EQ(refusalOf({"-xq"}), "-x: no such option." + HELP);
  EXPECT_EQ(refusalOf({"--list", "-qx"}), "-x: no such option." + HELP);
  EXPECT_EQ(refusalOf({"--no"}), "--no: no such option." + HELP);
  EXPECT_EQ(refusalOf({"--list=yes"}), "--list=yes takes no value." + HELP);
  EXPECT_EQ(refusalOf({"-o"}), "-o needs a value." + HELP);
  EXPECT_EQ(refusalOf({"a", "--event"}), "--event needs a value." + HELP);
  EXPECT_EQ(refusalOf({"a", "b"}), "b: one recording at a time." + HELP);
  for (const char* const number : {"", "0", "-1", "x", "1x", " 1", "99999999999999999999"}) {
    EXPECT_EQ(refusalOf({"--max-frames", number}),
              "--max-frames: '" + std::string(number) + "' is no number from 1 to 4096." + HELP);
  }
  EXPECT_THAT(refusalOf({"--cache-size", "K"}), HasSubstr("--cache-size: '' is no number"));
  EXPECT_THAT(refusalOf({"--listing-timeout", "0"}), HasSubstr("--listing-timeout: '0' is no"));
}

TEST(PrepareOptionsTest, HelpListsEveryOption) {
  for (const char* const option :
       {"--output", "--list", "--event", "--window", "--keep-unknown", "--sysroot", "--debug-dir",
        "--kallsyms", "--vmlinux", "--no-demangle", "--no-lines", "--no-cache", "--cache-size",
        "--listing-timeout", "--max-frames", "--quiet", "--help", "--version"}) {
    EXPECT_THAT(Options::helpText(), HasSubstr(option));
  }
}
