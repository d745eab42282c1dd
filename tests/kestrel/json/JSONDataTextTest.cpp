#include <climits>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSONData.h"

using kestrel::JSONData;

namespace {

std::string rewritten(const std::string& json, bool pretty, int precision = 6, int depth = 0) {
  JSONData node;
  EXPECT_TRUE(node.setFromJsonStlString(json)) << json;
  std::string out;
  node.appendJsonString(out, pretty, precision, depth);
  return out;
}

std::string doubleText(double value, int precision) {
  JSONData node;
  node.setDouble(value);
  std::string out;
  node.toJsonString(out, false, precision);
  return out;
}

}  // namespace

TEST(JSONDataText, FreshNodeHasNone) {
  std::string out = "x";
  JSONData().appendJsonString(out, true, 6, 0);
  JSONData().appendStringValue(out, 6);
  EXPECT_EQ("x", out);
}

TEST(JSONDataText, Compact) {
  const std::string json = R"({"a":[1,-2,[]],"b":{"c":null,"d":{}},"e":"x","f":true,"g":false})";
  EXPECT_EQ(json, rewritten(json, false));
}

TEST(JSONDataText, Pretty) {
  EXPECT_EQ(
      "{\n"
      " \"a\": [\n"
      "  1,\n"
      "  {\n"
      "   \"b\": null\n"
      "  }\n"
      " ],\n"
      " \"c\": {\n"
      " },\n"
      " \"d\": [\n"
      " ]\n"
      "}",
      rewritten(R"({"a":[1,{"b":null}],"c":{},"d":[]})", true));
}

TEST(JSONDataText, PrettyAtADepthIndentsEverythingAfterTheFirstLine) {
  EXPECT_EQ("[\n    1\n   ]", rewritten("[1]", true, 6, 3));
  EXPECT_EQ("[\n   ]", rewritten("[]", true, 6, 3));
  EXPECT_EQ("[1]", rewritten("[1]", false, 6, 3));
}

TEST(JSONDataText, IndentationIsCutOffAt50Spaces) {
  const std::string spaces(50, ' ');
  EXPECT_EQ("[\n" + spaces + "1\n" + spaces.substr(1) + "]", rewritten("[1]", true, 6, 49));
  EXPECT_EQ("[\n" + spaces + "1\n" + spaces + "]", rewritten("[1]", true, 6, 50));
  EXPECT_EQ("[\n" + spaces + "1\n" + spaces + "]", rewritten("[1]", true, 6, INT_MAX));
  EXPECT_EQ("[\n1\n]", rewritten("[1]", true, 6, -5));
}

TEST(JSONDataText, ToJsonStringEmptiesTheOutputFirst) {
  JSONData node;
  node.setLong(5);
  std::string out = "old";
  node.toJsonString(out, false, 6);
  EXPECT_EQ("5", out);
  node.appendJsonString(out, false, 6, 0);
  EXPECT_EQ("55", out);
}

TEST(JSONDataText, Longs) {
  EXPECT_EQ("[9223372036854775807,-9223372036854775808,0]",
            rewritten("[9223372036854775807,-9223372036854775808,0]", false));
}

TEST(JSONDataText, Doubles) {
  EXPECT_EQ("2", doubleText(2.0, 6));
  EXPECT_EQ("2", doubleText(2.0, 0));
  EXPECT_EQ("1.5", doubleText(1.5, 6));
  EXPECT_EQ("0.333", doubleText(1.0 / 3, 3));
  EXPECT_EQ("-0", doubleText(-0.0001, 3));
  EXPECT_EQ("3", doubleText(2.5000001, 0));
  EXPECT_EQ("100", doubleText(100, 2));
}

TEST(JSONDataText, NoExponentNotation) {
  EXPECT_EQ("123450000000000000", doubleText(1.2345e17, 20));
}

TEST(JSONDataText, PrecisionZeroTrimsTheZerosOfWholeNumbersToo) {
  // The rule looks at the length only.
  EXPECT_EQ("1", doubleText(100, 0));
  EXPECT_EQ("101", doubleText(101, 0));
  EXPECT_EQ("0", doubleText(0, 0));
}

TEST(JSONDataText, DoublesAreCutAt63Bytes) {
  EXPECT_EQ("0.5" + std::string(60, '0'), doubleText(0.5, 70));
  EXPECT_EQ("0.5" + std::string(60, '0'), doubleText(0.5, 1000000000));
  EXPECT_EQ("0.5" + std::string(60, '0'), doubleText(0.5, 62));  // 64 bytes, cut to 63: not trimmed
  EXPECT_EQ("0.5", doubleText(0.5, 61));
  EXPECT_EQ("0", doubleText(0.5, INT_MAX));
  // 2^1023 has 308 digits.
  EXPECT_EQ("898846567431157953864652595394512366808988489471153286367150405",
            doubleText(std::ldexp(1.0, 1023), 4));
  EXPECT_EQ("-89884656743115795386465259539451236680898848947115328636715040",
            doubleText(-std::ldexp(1.0, 1023), 100));
}

TEST(JSONDataText, NegativePrecisionGivesSixDigitsTrimmed) {
  EXPECT_EQ("0.333333", doubleText(1.0 / 3, -1));
  EXPECT_EQ("2.5", doubleText(2.5, INT_MIN));
}

TEST(JSONDataText, InfinityAndNotANumber) {
  EXPECT_EQ("inf", doubleText(std::numeric_limits<double>::infinity(), 4));
  const std::string nan = doubleText(std::numeric_limits<double>::quiet_NaN(), 4);
  EXPECT_TRUE(nan == "nan" || nan == "-nan") << nan;
}

TEST(JSONDataText, SevenBytesOfStringsAndKeysAreEscaped) {
  JSONData node;
  auto* const value = new JSONData;
  value->setString("\b\t\n\f\r\"\\/\x01\x7f\xc3\xa9");
  node.setByKey("k\n", value);
  std::string out;
  node.toJsonString(out, false, 6);
  EXPECT_EQ("{\"k\\n\":\"\\b\\t\\n\\f\\r\\\"\\\\/\x01\x7f\xc3\xa9\"}", out);
}

TEST(JSONDataText, QuoteAppends) {
  std::string out = "x";
  JSONData::quoteJsonString(std::string("a\0b", 3), out);
  EXPECT_EQ(std::string("x\"a\0b\"", 6), out);
}

TEST(JSONDataText, StringValueIsTheTextWithoutQuotes) {
  JSONData node;
  const auto value = [&](const std::string& json) {
    EXPECT_TRUE(node.setFromJsonStlString(json));
    std::string out = "=";
    node.appendStringValue(out, 2);
    return out;
  };
  EXPECT_EQ("=a\nb", value(R"("a\nb")"));
  EXPECT_EQ("=null", value("null"));
  EXPECT_EQ("=true", value("true"));
  EXPECT_EQ("=-7", value("-7"));
  EXPECT_EQ("=1.25", value("1.25"));
  EXPECT_EQ("=", value("[1]"));
  EXPECT_EQ("=", value("{}"));
}

TEST(JSONDataText, StreamGetsTheCompactTextWithSixFractionDigits) {
  JSONData node;
  ASSERT_TRUE(node.setFromJsonStlString(R"({"a":[0.33333333333,2.50],"b":"x"})"));
  std::ostringstream out;
  node.appendStream(out);
  EXPECT_EQ(R"({"a":[0.333333,2.5],"b":"x"})", out.str());
}
