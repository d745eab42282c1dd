// Typed reads with their conversions in place, and the expansion of environment variables.
#include <cstdlib>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "tests/kestrel/json/JsonTexts.h"

using kestrel::JSOM;

namespace {

JSOM withString(const std::string& text) {
  JSOM handle;
  handle.setString(text);
  return handle;
}

std::string expanded(const std::string& text) {
  JSOM handle = withString(text);
  handle.expandValues();
  return handle.stringValue(JSOM::EMPTY_STRING);
}

}  // namespace

TEST(JSOMValues, HandlesThatAreNotBoundGiveTheDefault) {
  JSOM root = loaded("{}");
  const std::string text = "default";
  const char* const chars = "chars";
  for (const JSOM& handle : {JSOM(), JSOM(JSOM::JERROR), JSOM(root["missing"])}) {
    EXPECT_EQ(handle.longValue(7), 7);
    EXPECT_EQ(handle.doubleValue(7.5L), 7.5L);
    EXPECT_TRUE(handle.booleanValue(true));
    EXPECT_FALSE(handle.booleanValue(false));
    EXPECT_EQ(&text, &handle.stringValue(text));
    EXPECT_EQ(chars, handle.stringValuePtr(chars));
    EXPECT_EQ(handle.stringValuePtr(nullptr), nullptr);
  }
  EXPECT_EQ(compact(root), "{}");
}

TEST(JSOMValues, NullArrayAndObjectGiveTheDefault) {
  const std::string text = "default";
  for (const char* json : {"null", "[1]", "{\"a\":1}"}) {
    JSOM handle = loaded(json);
    EXPECT_EQ(handle.longValue(7), 7);
    EXPECT_EQ(handle.doubleValue(7.5L), 7.5L);
    EXPECT_TRUE(handle.booleanValue(true));
    EXPECT_EQ(&text, &handle.stringValue(text));
    EXPECT_EQ(handle.stringValuePtr(nullptr), nullptr);
    EXPECT_EQ(json, compact(handle));
  }
}

TEST(JSOMValues, LongOfNumbersAndBooleans) {
  EXPECT_EQ(loaded("-3").longValue(7), -3);
  EXPECT_EQ(loaded("2.9").longValue(7), 2);
  EXPECT_EQ(loaded("-2.9").longValue(7), -2);
  EXPECT_EQ(loaded("true").longValue(7), 1);
  EXPECT_EQ(loaded("false").longValue(7), 0);
  JSOM huge;
  huge.setDouble(1e30);
  EXPECT_EQ(std::numeric_limits<long long>::max(), huge.longValue(7));
  huge.setDouble(-1e30);
  EXPECT_EQ(std::numeric_limits<long long>::min(), huge.longValue(7));
  huge.setDouble(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(huge.longValue(7), 0);
}

TEST(JSOMValues, LongReadsDoNotConvertNumbers) {
  JSOM handle = loaded("2.5");
  EXPECT_EQ(handle.longValue(7), 2);
  EXPECT_EQ(compact(handle), "2.5");
}

TEST(JSOMValues, LongOfADigitStringConvertsInPlace) {
  JSOM handle = loaded(R"({"a":"-012"})");
  EXPECT_EQ(handle["a"].longValue(7), -12);
  EXPECT_EQ(compact(handle), R"({"a":-12})");
  EXPECT_EQ(withString("-0").longValue(7), 0);
}

TEST(JSOMValues, LongOfADigitStringWrapsLikeTheParser) {
  EXPECT_EQ(withString("18446744073709551615").longValue(7), -1);
  EXPECT_EQ(withString("18446744073709551621").longValue(7), 5);
  EXPECT_EQ(std::numeric_limits<long long>::min(), withString("-9223372036854775808").longValue(7));
}

TEST(JSOMValues, LongOfAnyOtherStringIsTheDefault) {
  for (const std::string text :
       {"", "-", "+1", " 1", "1 ", "1.0", "1.", "12x", "0x10", "--1", "1e5", "true"}) {
    JSOM handle = withString(text);
    EXPECT_EQ(handle.longValue(7), 7) << text;
    EXPECT_TRUE(handle.isString());
  }
  EXPECT_EQ(withString(std::string("12\0", 3)).longValue(7), 7);
}

TEST(JSOMValues, DoubleOfNumbersAndBooleans) {
  EXPECT_EQ(loaded("2.5").doubleValue(7), 2.5L);
  EXPECT_EQ(loaded("-3").doubleValue(7), -3.0L);
  EXPECT_EQ(loaded("true").doubleValue(7), 1.0L);
  EXPECT_EQ(loaded("false").doubleValue(7), 0.0L);
}

TEST(JSOMValues, DoubleOfANumberStringConvertsInPlace) {
  JSOM handle = loaded(R"({"a":"-2.50"})");
  EXPECT_EQ(handle["a"].doubleValue(7), -2.5L);
  EXPECT_EQ(compact(handle), R"({"a":-2.5})");
  JSOM whole = withString("12");
  EXPECT_EQ(whole.doubleValue(7), 12.0L);
  EXPECT_TRUE(whole.isNumber());
  EXPECT_EQ(withString("5.").doubleValue(7), 5.0L);
  EXPECT_EQ(withString("18446744073709551615").doubleValue(7), 18446744073709551615.0);
}

TEST(JSOMValues, DoubleOfAnyOtherStringIsTheDefault) {
  for (const std::string text :
       {"", "-", "+1", ".5", "1.5 ", " 1.5", "1e5", "1.5.2", "inf", "nan"}) {
    JSOM handle = withString(text);
    EXPECT_EQ(handle.doubleValue(7.5L), 7.5L) << text;
    EXPECT_TRUE(handle.isString());
  }
  EXPECT_EQ(withString(std::string("1.5\0", 4)).doubleValue(7.5L), 7.5L);
}

TEST(JSOMValues, BooleanOfNumbersAndBooleans) {
  EXPECT_TRUE(loaded("true").booleanValue(false));
  EXPECT_FALSE(loaded("false").booleanValue(true));
  EXPECT_TRUE(loaded("-1").booleanValue(false));
  EXPECT_FALSE(loaded("0").booleanValue(true));
  EXPECT_TRUE(loaded("0.5").booleanValue(false));
  EXPECT_FALSE(loaded("0.0").booleanValue(true));
}

TEST(JSOMValues, BooleanOfTheRecognisedStringsConvertsInPlace) {
  for (const char* text :
       {"true", "TRUE", "tRuE", "yes", "Yes", "on", "ON", "t", "T", "y", "Y", "1"}) {
    JSOM handle = withString(text);
    EXPECT_TRUE(handle.booleanValue(false)) << text;
    EXPECT_EQ(compact(handle), "true");
  }
  for (const char* text : {"off", "Off", "OFF", "f", "F", "n", "N", "0"}) {
    JSOM handle = withString(text);
    EXPECT_FALSE(handle.booleanValue(true)) << text;
    EXPECT_EQ(compact(handle), "false");
  }
}

TEST(JSOMValues, FalseAndNoAndAllOtherStringsAreNotRecognised) {
  for (const std::string text : {"FALSE", "false", "No", "no", "", "2", "of", "ye", "yess", "truer",
                                 "true ", "x", "\xd4", "on\xff"}) {
    JSOM handle = withString(text);
    EXPECT_TRUE(handle.booleanValue(true)) << text;
    EXPECT_FALSE(handle.booleanValue(false)) << text;
    EXPECT_TRUE(handle.isString());
  }
}

TEST(JSOMValues, StringOfAStringIsTheNodesOwn) {
  JSOM handle = withString("x");
  const std::string& text = handle.stringValue(JSOM::EMPTY_STRING);
  EXPECT_EQ(text, "x");
  EXPECT_EQ(&text, &handle.stringValue(JSOM::EMPTY_STRING));
  EXPECT_EQ(text.c_str(), handle.stringValuePtr(nullptr));
}

TEST(JSOMValues, StringOfANumberConvertsInPlace) {
  JSOM handle = loaded(R"([3,2.5,0.123456,2.0])");
  EXPECT_EQ(handle[0].stringValue(JSOM::EMPTY_STRING), "3");
  EXPECT_STREQ(handle[1].stringValuePtr(nullptr), "2.5");
  EXPECT_EQ(handle[2].stringValue(JSOM::EMPTY_STRING), "0.1235");
  EXPECT_EQ(handle[3].stringValue(JSOM::EMPTY_STRING), "2");
  EXPECT_EQ(compact(handle), R"(["3","2.5","0.1235","2"])");
}

TEST(JSOMValues, StringOfADoubleHasTheDefaultPrecision) {
  JSOM handle = loaded("0.123456");
  JSOM::defaultPrecision = 2;
  EXPECT_EQ(handle.stringValue(JSOM::EMPTY_STRING), "0.12");
  JSOM::defaultPrecision = 4;
}

TEST(JSOMValues, StringOfABooleanConvertsInPlace) {
  JSOM handle = loaded("[true,false]");
  EXPECT_EQ(handle[0].stringValue(JSOM::EMPTY_STRING), "true");
  EXPECT_STREQ(handle[1].stringValuePtr(nullptr), "false");
  EXPECT_EQ(compact(handle), R"(["true","false"])");
}

TEST(JSOMExpansion, KnownNamesAreReplaced) {
  setenv("JSOM_HOME", "/home/me", 1);
  setenv("JSOM_EMPTY", "", 1);
  EXPECT_EQ(expanded("${JSOM_HOME}/x"), "/home/me/x");
  EXPECT_EQ(expanded("a${JSOM_HOME}b${JSOM_HOME}"), "a/home/meb/home/me");
  EXPECT_EQ(expanded("a${JSOM_EMPTY}b"), "ab");
}

TEST(JSOMExpansion, UnknownNamesStay) {
  setenv("JSOM_HOME", "/home/me", 1);
  unsetenv("JSOM_UNSET");
  EXPECT_EQ(expanded("${JSOM_UNSET}/x"), "${JSOM_UNSET}/x");
  EXPECT_EQ(expanded("${JSOM_HOME} ${JSOM_UNSET}"), "/home/me ${JSOM_UNSET}");
  EXPECT_EQ(expanded("${}"), "${}");
}

TEST(JSOMExpansion, OtherTextStays) {
  setenv("JSOM_HOME", "/home/me", 1);
  for (const char* text :
       {"$JSOM_HOME", "$ {JSOM_HOME}", "{JSOM_HOME}", "$", "${", "${JSOM_HOME", "a}", "$}", ""}) {
    EXPECT_EQ(text, expanded(text));
  }
  EXPECT_EQ(expanded("${JSOM_HOME}${JSOM_HOME"), "/home/me${JSOM_HOME");
  EXPECT_EQ(expanded("$${JSOM_HOME}}"), "$/home/me}");
}

TEST(JSOMExpansion, EverythingUpToTheBraceIsTheName) {
  setenv("JSOM_HOME", "/home/me", 1);
  setenv("A$${B", "odd", 1);
  EXPECT_EQ(expanded("${A$${B}"), "odd");
  EXPECT_EQ(expanded("${x${JSOM_HOME}"), "${x${JSOM_HOME}");
  EXPECT_EQ(expanded("${x${JSOM_HOME}${JSOM_HOME}"), "${x${JSOM_HOME}/home/me");
}

TEST(JSOMExpansion, ValuesAreNotExpandedAgain) {
  setenv("JSOM_HOME", "/home/me", 1);
  setenv("JSOM_OUTER", "${JSOM_HOME}", 1);
  EXPECT_EQ(expanded("${JSOM_OUTER}"), "${JSOM_HOME}");
}

TEST(JSOMExpansion, NamesThatNoVariableCanHaveStay) {
  setenv("JSOM_HOME", "x=y", 1);
  EXPECT_EQ(expanded("${JSOM_HOME=x}"), "${JSOM_HOME=x}");
  const std::string cut("${JSOM_HOME\0z}", 14);
  EXPECT_EQ(cut, expanded(cut));
}

TEST(JSOMExpansion, ZeroBytesBesideAReferenceAreKept) {
  setenv("JSOM_HOME", "/home/me", 1);
  EXPECT_EQ(expanded(std::string("a\0${JSOM_HOME}\0", 15)), std::string("a\0/home/me\0", 11));
}

TEST(JSOMExpansion, AllStringsOfATreeButNoKeysAndNoOtherValues) {
  setenv("JSOM_HOME", "/home/me", 1);
  JSOM handle = loaded(
      R"({"${JSOM_HOME}":"${JSOM_HOME}","a":[1,"${JSOM_HOME}",{"b":"x${JSOM_HOME}"},[]],"c":null,"d":2.5,"e":true})");
  handle.expandValues();
  EXPECT_EQ(
      compact(handle),
      R"({"${JSOM_HOME}":"/home/me","a":[1,"/home/me",{"b":"x/home/me"},[]],"c":null,"d":2.5,"e":true})");
}

TEST(JSOMExpansion, ScalarsAndHandlesThatAreNotBoundAreLeftAlone) {
  JSOM number = loaded("5");
  number.expandValues();
  EXPECT_EQ(compact(number), "5");
  JSOM unbound;
  unbound.expandValues();
  EXPECT_EQ(compact(unbound), "");
}
