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
  EXPECT_EQ(Options::Action::PREPARE, options.action);
  EXPECT_EQ("perf.data", options.recording);
  EXPECT_EQ("", options.output);
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
  EXPECT_EQ("my.data", options.recording);
  EXPECT_EQ("out", options.output);
  EXPECT_THAT(options.events, ElementsAre("cycles", "faults"));
  EXPECT_EQ("1:2:3,4s", options.window);
  EXPECT_TRUE(options.keepUnknown);
  EXPECT_THAT(options.listing.sysroots, ElementsAre("/a", "/b"));
  EXPECT_THAT(options.listing.debugDirs, ElementsAre("/d"));
  EXPECT_EQ("k", options.listing.kallsyms);
  EXPECT_EQ("v", options.listing.vmlinux);
  EXPECT_FALSE(options.listing.demangle);
  EXPECT_FALSE(options.listing.lines);
  EXPECT_FALSE(options.listing.cache);
  EXPECT_EQ(2u << 20, options.listing.cacheSize);
  EXPECT_EQ(std::chrono::seconds(5), options.listing.timeout);
  EXPECT_EQ(9u, options.maxFrames);
  EXPECT_TRUE(options.quiet);
}

TEST(PrepareOptionsTest, ActionsAndStandardInput) {
  EXPECT_EQ(Options::Action::LIST, parsed({"-l"}).action);
  EXPECT_EQ(Options::Action::HELP, parsed({"--help", "--bogus"}).action);
  EXPECT_EQ(Options::Action::VERSION, parsed({"--version"}).action);
  EXPECT_EQ("-", parsed({"-"}).recording);
  EXPECT_EQ("-x", parsed({"--", "-x"}).recording);
}

TEST(PrepareOptionsTest, EachErrorIsASentence) {
  EXPECT_EQ("--bogus: no such option." + HELP, refusalOf({"--bogus"}));
  EXPECT_EQ("-x: no such option." + HELP, refusalOf({"-x"}));
  EXPECT_EQ("-x: no such option." + HELP, refusalOf({"-xq"}));
  EXPECT_EQ("-x: no such option." + HELP, refusalOf({"--list", "-qx"}));
  EXPECT_EQ("--no: no such option." + HELP, refusalOf({"--no"}));
  EXPECT_EQ("--list=yes takes no value." + HELP, refusalOf({"--list=yes"}));
  EXPECT_EQ("-o needs a value." + HELP, refusalOf({"-o"}));
  EXPECT_EQ("--event needs a value." + HELP, refusalOf({"a", "--event"}));
  EXPECT_EQ("b: one recording at a time." + HELP, refusalOf({"a", "b"}));
  for (const char* const number : {"", "0", "-1", "x", "1x", " 1", "99999999999999999999"}) {
    EXPECT_EQ("--max-frames: '" + std::string(number) + "' is no number from 1 to 4096." + HELP,
              refusalOf({"--max-frames", number}));
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
