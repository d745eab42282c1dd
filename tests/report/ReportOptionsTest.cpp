#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/ReportOptions.h"

namespace report {

namespace {

struct Parsed {
  ReportOptions options;
  std::optional<int> status;
  std::string errors;
};

Parsed parse(std::vector<std::string> words) {
  words.insert(words.begin(), "tracemill-report");
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  Parsed result;
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  result.status = result.options.parse(static_cast<int>(argv.size()), argv.data());
  testing::internal::GetCapturedStdout();
  result.errors = testing::internal::GetCapturedStderr();
  return result;
}

}  // namespace

TEST(ReportOptionsTest, AFile) {
  const Parsed parsed = parse({"perf.data"});
  EXPECT_EQ(parsed.status, std::nullopt);
  EXPECT_EQ(parsed.options.input, "perf.data");
  EXPECT_EQ(parsed.options.format, Format::HTML);
}

TEST(ReportOptionsTest, OptionsMayFollowTheFile) {
  const Parsed parsed = parse({"a.json", "-f", "jsonl", "--output=b", "--json", "--no-open", "-q"});
  EXPECT_EQ(parsed.options.input, "a.json");
  EXPECT_EQ(parsed.options.format, Format::JSONL);
  EXPECT_EQ(parsed.options.output, "b");
  EXPECT_TRUE(parsed.options.keepDocument && parsed.options.quiet && !parsed.options.open);
}

TEST(ReportOptionsTest, WhatIsBehindTheDashesBelongsToTheProgram) {
  const Parsed parsed = parse({"--record-options", "-F 99  -a", "--", "make", "-j2", "--help"});
  EXPECT_EQ(parsed.status, std::nullopt);
  EXPECT_EQ(parsed.options.command, (std::vector<std::string>{"make", "-j2", "--help"}));
  EXPECT_EQ(parsed.options.recordOptions, (std::vector<std::string>{"-F", "99", "-a"}));
}

TEST(ReportOptionsTest, Comparing) {
  const Parsed parsed = parse({"--compare", "before.data", "after.data"});
  EXPECT_EQ(parsed.options.baseline, "before.data");
  EXPECT_EQ(parsed.options.input, "after.data");
}

TEST(ReportOptionsTest, HelpAndVersionEndWell) {
  EXPECT_EQ(parse({"--help"}).status, 0);
  EXPECT_EQ(parse({"-h"}).status, 0);
  EXPECT_EQ(parse({"--version"}).status, 0);
}

TEST(ReportOptionsTest, MistakesEndWithTwoAndASentence) {
  EXPECT_EQ(parse({}).status, 2);
  EXPECT_EQ(parse({"--"}).status, 2);
  EXPECT_EQ(parse({"a", "b"}).status, 2);
  EXPECT_EQ(parse({"a", "--", "b"}).status, 2);
  EXPECT_EQ(parse({"--nonsense", "a"}).status, 2);
  EXPECT_EQ(parse({"a", "-o"}).status, 2);
  EXPECT_EQ(parse({"-f", "pdf", "a"}).errors,
            "tracemill-report: There is no format pdf. See tracemill-report --help.\n");
  EXPECT_EQ(parse({"-f", "folded", "--compare", "a", "b"}).status, 2);
}

}  // namespace report
