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
  EXPECT_EQ(out, "x");
}

TEST(JSONDataText, Compact) {
  const std::string json = R"({"a":[1,-2,[]],"b":{"c":null,"d":{}},"e":"x","f":true,"g":false})";
  EXPECT_EQ(json, rewritten(json, false));
}

TEST(JSONDataText, Pretty) {
  EXPECT_EQ(rewritten(R"({"a":[1,{"b":null}],"c":{},"d":[]})", true),
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
            "}");
}

TEST(JSONDataText, PrettyAtADepthIndentsEverythingAfterTheFirstLine) {
  EXPECT_EQ(rewritten("[1]", true, 6, 3), "[\n    1\n   ]");
  EXPECT_EQ(rewritten("[]", true, 6, 3), "[\n   ]");
  EXPECT_EQ(rewritten("[1]", false, 6, 3), "[1]");
}

TEST(JSONDataText, IndentationIsCutOffAt50Spaces) {
  const std::string spaces(50, ' ');
  EXPECT_EQ(rewritten("[1]", true, 6, 49), "[\n" + spaces + "1\n" + spaces.substr(1) + "]");
  EXPECT_EQ(rewritten("[1]", true, 6, 50), "[\n" + spaces + "1\n" + spaces + "]");
  EXPECT_EQ(rewritten("[1]", true, 6, INT_MAX), "[\n" + spaces + "1\n" + spaces + "]");
  EXPECT_EQ(rewritten("[1]", true, 6, -5), "[\n1\n]");
}

TEST(JSONDataText, ToJsonStringEmptiesTheOutputFirst) {
  JSONData node;
  node.setLong(5);
  std::string out = "old";
  node.toJsonString(out, false, 6);
  EXPECT_EQ(out, "5");
  node.appendJsonString(out, false, 6, 0);
  EXPECT_EQ(out, "55");
}

TEST(JSONDataText, Longs) {
  EXPECT_EQ(rewritten("[9223372036854775807,-9223372036854775808,0]", false),
            "[9223372036854775807,-9223372036854775808,0]");
}

TEST(JSONDataText, Doubles) {
  EXPECT_EQ(doubleText(2.0, 6), "2");
  EXPECT_EQ(doubleText(2.0, 0), "2");
  EXPECT_EQ(doubleText(1.5, 6), "1.5");
  EXPECT_EQ(doubleText(1.0 / 3, 3), "0.333");
  EXPECT_EQ(doubleText(-0.0001, 3), "-0");
  EXPECT_EQ(doubleText(2.5000001, 0), "3");
  EXPECT_EQ(doubleText(100, 2), "100");
}

TEST(JSONDataText, NoExponentNotation) {
  EXPECT_EQ(doubleText(1.2345e17, 20), "123450000000000000");
}

TEST(JSONDataText, PrecisionZeroTrimsTheZerosOfWholeNumbersToo) {
  // The rule looks at the length only.
  EXPECT_EQ(doubleText(100, 0), "1");
  EXPECT_EQ(doubleText(101, 0), "101");
  EXPECT_EQ(doubleText(0, 0), "0");
}

TEST(JSONDataText, DoublesAreCutAt63Bytes) {
  EXPECT_EQ(doubleText(0.5, 70), "0.5" + std::string(60, '0'));
  EXPECT_EQ(doubleText(0.5, 1000000000), "0.5" + std::string(60, '0'));
  EXPECT_EQ(doubleText(0.5, 62), "0.5" + std::string(60, '0'));  // 64 bytes, cut to 63: not trimmed
  EXPECT_EQ(doubleText(0.5, 61), "0.5");
  EXPECT_EQ(doubleText(0.5, INT_MAX), "0");
  // 2^1023 has 308 digits.
  EXPECT_EQ(doubleText(std::ldexp(1.0, 1023), 4),
            "898846567431157953864652595394512366808988489471153286367150405");
  EXPECT_EQ(doubleText(-std::ldexp(1.0, 1023), 100),
            "-89884656743115795386465259539451236680898848947115328636715040");
}

TEST(JSONDataText, NegativePrecisionGivesSixDigitsTrimmed) {
  EXPECT_EQ(doubleText(1.0 / 3, -1), "0.333333");
  EXPECT_EQ(doubleText(2.5, INT_MIN), "2.5");
}

TEST(JSONDataText, InfinityAndNotANumber) {
  EXPECT_EQ(doubleText(std::numeric_limits<double>::infinity(), 4), "inf");
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
  EXPECT_EQ(out, "{\"k\\n\":\"\\b\\t\\n\\f\\r\\\"\\\\/\x01\x7f\xc3\xa9\"}");
}

TEST(JSONDataText, QuoteAppends) {
  std::string out = "x";
  JSONData::quoteJsonString(std::string("a\0b", 3), out);
  EXPECT_EQ(out, std::string("x\"a\0b\"", 6));
}

TEST(JSONDataText, StringValueIsTheTextWithoutQuotes) {
  JSONData node;
  const auto value = [&](const std::string& json) {
    EXPECT_TRUE(node.setFromJsonStlString(json));
    std::string out = "=";
    node.appendStringValue(out, 2);
    return out;
  };
  EXPECT_EQ(value(R"("a\nb")"), "=a\nb");
  EXPECT_EQ(value("null"), "=null");
  EXPECT_EQ(value("true"), "=true");
  EXPECT_EQ(value("-7"), "=-7");
  EXPECT_EQ(value("1.25"), "=1.25");
  EXPECT_EQ(value("[1]"), "=");
  EXPECT_EQ(value("{}"), "=");
}

TEST(JSONDataText, StreamGetsTheCompactTextWithSixFractionDigits) {
  JSONData node;
  ASSERT_TRUE(node.setFromJsonStlString(R"({"a":[0.33333333333,2.50],"b":"x"})"));
  std::ostringstream out;
  node.appendStream(out);
  EXPECT_EQ(out.str(), R"({"a":[0.333333,2.5],"b":"x"})");
}
