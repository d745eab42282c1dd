#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/ShellCommandLineParser.h"

namespace {

using kestrel::ShellCommandLineParser;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> parse(const std::string& line) {
  std::vector<std::string> words;
  ShellCommandLineParser::parse(line, words);
  return words;
}

void expectRoundTrip(const std::vector<std::string>& words) {
  const std::string line = ShellCommandLineParser::unparse(words);
  EXPECT_EQ(parse(line), words) << "through the line: " << line;
}

TEST(ShellCommandLineParserTest, QuotedAndEscapedBlanksBelongToTheirWords) {
  EXPECT_THAT(parse("nm -n 'a b' c\\ d \"x\\ty\""), ElementsAre("nm", "-n", "a b", "c d", "x\ty"));
}

TEST(ShellCommandLineParserTest, OnlyBlanksAndTabsSeparateWords) {
  EXPECT_THAT(parse("  a\tb \t c\nd  "), ElementsAre("a", "b", "c\nd"));
  EXPECT_THAT(parse(""), IsEmpty());
  EXPECT_THAT(parse(" \t "), IsEmpty());
}

TEST(ShellCommandLineParserTest, WordsAreAppended) {
  std::vector<std::string> words = {"first"};
  ShellCommandLineParser::parse("second third", words);
  EXPECT_THAT(words, ElementsAre("first", "second", "third"));
}

TEST(ShellCommandLineParserTest, RoomForThirtyTwoWordsIsReserved) {
  std::vector<std::string> words;
  ShellCommandLineParser::parse("a", words);
  EXPECT_GE(words.capacity(), 32U);
}

TEST(ShellCommandLineParserTest, APairOfDoubleQuotesAloneIsAnEmptyWord) {
  EXPECT_THAT(parse("a \"\" b"), ElementsAre("a", "", "b"));
  EXPECT_THAT(parse("''"), ElementsAre(""));
  EXPECT_THAT(parse("\"\""), ElementsAre(""));
}

TEST(ShellCommandLineParserTest, AnUnterminatedQuoteStillEndsTheWord) {
  EXPECT_THAT(parse("a \"b c"), ElementsAre("a", "b c"));
  EXPECT_THAT(parse("a 'b c"), ElementsAre("a", "b c"));
  EXPECT_THAT(parse("a \""), ElementsAre("a", ""));
}

TEST(ShellCommandLineParserTest, ABackslashAtTheEndOfTheLineIsDropped) {
  EXPECT_THAT(parse("a\\"), ElementsAre("a"));
  EXPECT_THAT(parse("\\"), ElementsAre(""));
  EXPECT_THAT(parse("\"a\\"), ElementsAre("a"));
}

TEST(ShellCommandLineParserTest, QuotesGoOnWithinAWord) {
  EXPECT_THAT(parse("a'b c'\"d e\"f"), ElementsAre("ab cd ef"));
  EXPECT_THAT(parse("'a\"b' \"c'd\""), ElementsAre("a\"b", "c'd"));
}

TEST(ShellCommandLineParserTest, SingleQuotesKnowNoEscapes) {
  EXPECT_THAT(parse("'a\\tb' 'c\\'"), ElementsAre("a\\tb", "c\\"));
}

TEST(ShellCommandLineParserTest, BackslashesDecodeInsideAndOutsideDoubleQuotes) {
  const std::string escapes = "\\a\\b\\f\\n\\r\\t\\v\\\"\\'\\\\";
  EXPECT_THAT(parse(escapes), ElementsAre("\a\b\f\n\r\t\v\"'\\"));
  EXPECT_THAT(parse("\"" + escapes + "\""), ElementsAre("\a\b\f\n\r\t\v\"'\\"));
}

TEST(ShellCommandLineParserTest, BothLettersOfTheEscapeCharacterDecodeToABackslash) {
  EXPECT_THAT(parse("x\\ey x\\Ey \"\\e\\E\""), ElementsAre("x\\y", "x\\y", "\\\\"));
}

TEST(ShellCommandLineParserTest, AnyOtherCharacterKeepsItsBackslash) {
  EXPECT_THAT(parse("\\d \\0 \\A \"\\x\""), ElementsAre("\\d", "\\0", "\\A", "\\x"));
  EXPECT_THAT(parse("a\\\tb"), ElementsAre("a\\\tb"));
  EXPECT_THAT(parse("\\\xC3\xA9"), ElementsAre("\\\xC3\xA9"));
}

TEST(ShellCommandLineParserTest, AWordMayBeginWithAnEscape) {
  EXPECT_THAT(parse("\\n a"), ElementsAre("\n", "a"));
}

TEST(ShellCommandLineParserTest, BytesAboveSevenBitsAndNulPassThrough) {
  EXPECT_THAT(parse("\x80\xFF \xA0"), ElementsAre("\x80\xFF", "\xA0"));
  EXPECT_THAT(parse(std::string("a\0b", 3)), ElementsAre(std::string("a\0b", 3)));
}

TEST(ShellCommandLineParserTest, ALongLineAndALongWordAreParsed) {
  const std::string word(1000000, 'x');
  EXPECT_THAT(parse(word + " " + word), ElementsAre(word, word));
}

TEST(ShellCommandLineParserTest, UnparseLeavesPlainWordsAlone) {
  EXPECT_EQ(ShellCommandLineParser::unparse({"/usr/bin/nm", "-nCgl", "--format=bsd", "$x*"}),
            "/usr/bin/nm -nCgl --format=bsd $x*");
  EXPECT_EQ(ShellCommandLineParser::unparse({}), "");
}

TEST(ShellCommandLineParserTest, UnparseQuotesWhatParseWouldChange) {
  EXPECT_EQ(ShellCommandLineParser::unparse({"", "a b", "it's", "say \"x\"", "c:\\d", "1\n2\t3"}),
            "\"\" \"a b\" \"it's\" \"say \\\"x\\\"\" \"c:\\\\d\" \"1\\n2\\t3\"");
}

TEST(ShellCommandLineParserTest, UnparseIsTheInverseForEveryByte) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(static_cast<unsigned char>(byte));
    expectRoundTrip({std::string(1, c)});
    expectRoundTrip({std::string("a") + c, c + std::string("b"), "a" + std::string(2, c) + "b"});
    expectRoundTrip({std::string("\\") + c, std::string("'") + c, std::string("\"") + c});
  }
}

TEST(ShellCommandLineParserTest, UnparseIsTheInverseForAnyWords) {
  expectRoundTrip({});
  expectRoundTrip({""});
  expectRoundTrip({"", "", ""});
  std::mt19937 random(20140304);
  const std::string likely = "ab \t\"'\\enEt\n";
  for (int round = 0; round < 5000; ++round) {
    std::vector<std::string> words(random() % 5);
    for (std::string& word : words) {
      for (unsigned left = random() % 8; left > 0; --left) {
        word += random() % 4 == 0 ? static_cast<char>(static_cast<unsigned char>(random() % 256))
                                  : likely[random() % likely.size()];
      }
    }
    expectRoundTrip(words);
  }
}

}  // namespace
