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
    EXPECT_EQ(7, handle.longValue(7));
    EXPECT_EQ(7.5L, handle.doubleValue(7.5L));
    EXPECT_TRUE(handle.booleanValue(true));
    EXPECT_FALSE(handle.booleanValue(false));
    EXPECT_EQ(&text, &handle.stringValue(text));
    EXPECT_EQ(chars, handle.stringValuePtr(chars));
    EXPECT_EQ(nullptr, handle.stringValuePtr(nullptr));
  }
  EXPECT_EQ("{}", compact(root));
}

TEST(JSOMValues, NullArrayAndObjectGiveTheDefault) {
  const std::string text = "default";
  for (const char* json : {"null", "[1]", "{\"a\":1}"}) {
    JSOM handle = loaded(json);
    EXPECT_EQ(7, handle.longValue(7));
    EXPECT_EQ(7.5L, handle.doubleValue(7.5L));
    EXPECT_TRUE(handle.booleanValue(true));
    EXPECT_EQ(&text, &handle.stringValue(text));
    EXPECT_EQ(nullptr, handle.stringValuePtr(nullptr));
    EXPECT_EQ(json, compact(handle));
  }
}

TEST(JSOMValues, LongOfNumbersAndBooleans) {
  EXPECT_EQ(-3, loaded("-3").longValue(7));
  EXPECT_EQ(2, loaded("2.9").longValue(7));
  EXPECT_EQ(-2, loaded("-2.9").longValue(7));
  EXPECT_EQ(1, loaded("true").longValue(7));
  EXPECT_EQ(0, loaded("false").longValue(7));
  JSOM huge;
  huge.setDouble(1e30);
  EXPECT_EQ(std::numeric_limits<long long>::max(), huge.longValue(7));
  huge.setDouble(-1e30);
  EXPECT_EQ(std::numeric_limits<long long>::min(), huge.longValue(7));
  huge.setDouble(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(0, huge.longValue(7));
}

TEST(JSOMValues, LongReadsDoNotConvertNumbers) {
  JSOM handle = loaded("2.5");
  EXPECT_EQ(2, handle.longValue(7));
  EXPECT_EQ("2.5", compact(handle));
}

TEST(JSOMValues, LongOfADigitStringConvertsInPlace) {
  JSOM handle = loaded(R"({"a":"-012"})");
  EXPECT_EQ(-12, handle["a"].longValue(7));
  EXPECT_EQ(R"({"a":-12})", compact(handle));
  EXPECT_EQ(0, withString("-0").longValue(7));
}

TEST(JSOMValues, LongOfADigitStringWrapsLikeTheParser) {
  EXPECT_EQ(-1, withString("18446744073709551615").longValue(7));
  EXPECT_EQ(5, withString("18446744073709551621").longValue(7));
  EXPECT_EQ(std::numeric_limits<long long>::min(), withString("-9223372036854775808").longValue(7));
}

TEST(JSOMValues, LongOfAnyOtherStringIsTheDefault) {
  for (const std::string text :
       {"", "-", "+1", " 1", "1 ", "1.0", "1.", "12x", "0x10", "--1", "1e5", "true"}) {
    JSOM handle = withString(text);
    EXPECT_EQ(7, handle.longValue(7)) << text;
    EXPECT_TRUE(handle.isString());
  }
  EXPECT_EQ(7, withString(std::string("12\0", 3)).longValue(7));
}

TEST(JSOMValues, DoubleOfNumbersAndBooleans) {
  EXPECT_EQ(2.5L, loaded("2.5").doubleValue(7));
  EXPECT_EQ(-3.0L, loaded("-3").doubleValue(7));
  EXPECT_EQ(1.0L, loaded("true").doubleValue(7));
  EXPECT_EQ(0.0L, loaded("false").doubleValue(7));
}

TEST(JSOMValues, DoubleOfANumberStringConvertsInPlace) {
  JSOM handle = loaded(R"({"a":"-2.50"})");
  EXPECT_EQ(-2.5L, handle["a"].doubleValue(7));
  EXPECT_EQ(R"({"a":-2.5})", compact(handle));
  JSOM whole = withString("12");
  EXPECT_EQ(12.0L, whole.doubleValue(7));
  EXPECT_TRUE(whole.isNumber());
  EXPECT_EQ(5.0L, withString("5.").doubleValue(7));
  EXPECT_EQ(18446744073709551615.0, withString("18446744073709551615").doubleValue(7));
}

TEST(JSOMValues, DoubleOfAnyOtherStringIsTheDefault) {
  for (const std::string text :
       {"", "-", "+1", ".5", "1.5 ", " 1.5", "1e5", "1.5.2", "inf", "nan"}) {
    JSOM handle = withString(text);
    EXPECT_EQ(7.5L, handle.doubleValue(7.5L)) << text;
    EXPECT_TRUE(handle.isString());
  }
  EXPECT_EQ(7.5L, withString(std::string("1.5\0", 4)).doubleValue(7.5L));
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
    EXPECT_EQ("true", compact(handle));
  }
  for (const char* text : {"off", "Off", "OFF", "f", "F", "n", "N", "0"}) {
    JSOM handle = withString(text);
    EXPECT_FALSE(handle.booleanValue(true)) << text;
    EXPECT_EQ("false", compact(handle));
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
  EXPECT_EQ("x", text);
  EXPECT_EQ(&text, &handle.stringValue(JSOM::EMPTY_STRING));
  EXPECT_EQ(text.c_str(), handle.stringValuePtr(nullptr));
}

TEST(JSOMValues, StringOfANumberConvertsInPlace) {
  JSOM handle = loaded(R"([3,2.5,0.123456,2.0])");
  EXPECT_EQ("3", handle[0].stringValue(JSOM::EMPTY_STRING));
  EXPECT_STREQ("2.5", handle[1].stringValuePtr(nullptr));
  EXPECT_EQ("0.1235", handle[2].stringValue(JSOM::EMPTY_STRING));
  EXPECT_EQ("2", handle[3].stringValue(JSOM::EMPTY_STRING));
  EXPECT_EQ(R"(["3","2.5","0.1235","2"])", compact(handle));
}

TEST(JSOMValues, StringOfADoubleHasTheDefaultPrecision) {
  JSOM handle = loaded("0.123456");
  JSOM::defaultPrecision = 2;
  EXPECT_EQ("0.12", handle.stringValue(JSOM::EMPTY_STRING));
  JSOM::defaultPrecision = 4;
}

TEST(JSOMValues, StringOfABooleanConvertsInPlace) {
  JSOM handle = loaded("[true,false]");
  EXPECT_EQ("true", handle[0].stringValue(JSOM::EMPTY_STRING));
  EXPECT_STREQ("false", handle[1].stringValuePtr(nullptr));
  EXPECT_EQ(R"(["true","false"])", compact(handle));
}

TEST(JSOMExpansion, KnownNamesAreReplaced) {
  setenv("JSOM_HOME", "/home/me", 1);
  setenv("JSOM_EMPTY", "", 1);
  EXPECT_EQ("/home/me/x", expanded("${JSOM_HOME}/x"));
  EXPECT_EQ("a/home/meb/home/me", expanded("a${JSOM_HOME}b${JSOM_HOME}"));
  EXPECT_EQ("ab", expanded("a${JSOM_EMPTY}b"));
}

TEST(JSOMExpansion, UnknownNamesStay) {
  setenv("JSOM_HOME", "/home/me", 1);
  unsetenv("JSOM_UNSET");
  EXPECT_EQ("${JSOM_UNSET}/x", expanded("${JSOM_UNSET}/x"));
  EXPECT_EQ("/home/me ${JSOM_UNSET}", expanded("${JSOM_HOME} ${JSOM_UNSET}"));
  EXPECT_EQ("${}", expanded("${}"));
}

TEST(JSOMExpansion, OtherTextStays) {
  setenv("JSOM_HOME", "/home/me", 1);
  for (const char* text :
       {"$JSOM_HOME", "$ {JSOM_HOME}", "{JSOM_HOME}", "$", "${", "${JSOM_HOME", "a}", "$}", ""}) {
    EXPECT_EQ(text, expanded(text));
  }
  EXPECT_EQ("/home/me${JSOM_HOME", expanded("${JSOM_HOME}${JSOM_HOME"));
  EXPECT_EQ("$/home/me}", expanded("$${JSOM_HOME}}"));
}

TEST(JSOMExpansion, EverythingUpToTheBraceIsTheName) {
  setenv("JSOM_HOME", "/home/me", 1);
  setenv("A$${B", "odd", 1);
  EXPECT_EQ("odd", expanded("${A$${B}"));
  EXPECT_EQ("${x${JSOM_HOME}", expanded("${x${JSOM_HOME}"));
  EXPECT_EQ("${x${JSOM_HOME}/home/me", expanded("${x${JSOM_HOME}${JSOM_HOME}"));
}

TEST(JSOMExpansion, ValuesAreNotExpandedAgain) {
  setenv("JSOM_HOME", "/home/me", 1);
  setenv("JSOM_OUTER", "${JSOM_HOME}", 1);
  EXPECT_EQ("${JSOM_HOME}", expanded("${JSOM_OUTER}"));
}

TEST(JSOMExpansion, NamesThatNoVariableCanHaveStay) {
  setenv("JSOM_HOME", "x=y", 1);
  EXPECT_EQ("${JSOM_HOME=x}", expanded("${JSOM_HOME=x}"));
  const std::string cut("${JSOM_HOME\0z}", 14);
  EXPECT_EQ(cut, expanded(cut));
}

TEST(JSOMExpansion, ZeroBytesBesideAReferenceAreKept) {
  setenv("JSOM_HOME", "/home/me", 1);
  EXPECT_EQ(std::string("a\0/home/me\0", 11), expanded(std::string("a\0${JSOM_HOME}\0", 15)));
}

TEST(JSOMExpansion, AllStringsOfATreeButNoKeysAndNoOtherValues) {
  setenv("JSOM_HOME", "/home/me", 1);
  JSOM handle = loaded(
      R"({"${JSOM_HOME}":"${JSOM_HOME}","a":[1,"${JSOM_HOME}",{"b":"x${JSOM_HOME}"},[]],"c":null,"d":2.5,"e":true})");
  handle.expandValues();
  EXPECT_EQ(
      R"({"${JSOM_HOME}":"/home/me","a":[1,"/home/me",{"b":"x/home/me"},[]],"c":null,"d":2.5,"e":true})",
      compact(handle));
}

TEST(JSOMExpansion, ScalarsAndHandlesThatAreNotBoundAreLeftAlone) {
  JSOM number = loaded("5");
  number.expandValues();
  EXPECT_EQ("5", compact(number));
  JSOM unbound;
  unbound.expandValues();
  EXPECT_EQ("", compact(unbound));
}
