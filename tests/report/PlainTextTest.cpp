#include <gtest/gtest.h>

#include "report/PlainText.h"

namespace report {

namespace {

constexpr char REPLACED[] = "\xEF\xBF\xBD";

std::string plain(std::string_view json) {
  std::string text;
  appendPlainText(text, json);
  return text;
}

std::string quoted(std::string_view text) {
  std::string result;
  appendJsonString(result, text);
  return result;
}

}  // namespace

TEST(PlainTextTest, Utf8Stays) {
  const std::string text = "\"gr\u00fc\u00df \u540d \U0001F600\"";
  EXPECT_EQ(plain(text), text);
}

TEST(PlainTextTest, BytesThatAreNoUtf8AreReplacedOneByOne) {
  EXPECT_EQ(plain("\"a\xFFz\""), std::string("\"a") + REPLACED + "z\"");
  EXPECT_EQ(plain("\"\xC3\""), std::string("\"") + REPLACED + "\"") << "cut off by the quote";
  EXPECT_EQ(plain("\"\xC0\x80\""), std::string("\"") + REPLACED + REPLACED + "\"") << "overlong";
  EXPECT_EQ(plain("\"\xED\xA0\x80\""), std::string("\"") + REPLACED + REPLACED + REPLACED + "\"")
      << "a surrogate";
  EXPECT_EQ(plain("\"\xF4\x90\x80\x80\"").size(), 2 + 4 * 3U) << "beyond U+10FFFF";
}

TEST(PlainTextTest, ControlCharactersGoInsideOfStringsOnly) {
  EXPECT_EQ(plain("[\n\"a\nb\"\t]"), std::string("[\n\"a") + REPLACED + "b\"\t]");
}

TEST(PlainTextTest, AnEscapedQuoteDoesNotEndAString) {
  EXPECT_EQ(plain("\"a\\\"\x01\""), std::string("\"a\\\"") + REPLACED + "\"");
  EXPECT_EQ(plain("\"a\\\\\"\x01"), "\"a\\\\\"\x01") << "an escaped backslash does not escape";
  EXPECT_EQ(plain("\"a\\\x01\""), std::string("\"a\\") + REPLACED + "\"");
}

TEST(PlainTextTest, WrittenStringsCannotLeaveAPage) {
  EXPECT_EQ(quoted("</script>\"\\"), "\"\\u003c/script\\u003e\\\"\\\\\"");
  EXPECT_EQ(quoted(std::string_view("a\0\xFF", 3)),
            std::string("\"a") + REPLACED + REPLACED + "\"");
}

}  // namespace report
