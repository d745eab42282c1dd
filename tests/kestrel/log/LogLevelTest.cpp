#include <string>

#include <gtest/gtest.h>

#include "kestrel/log/LogLevel.h"

namespace {

using kestrel::LogLevel;

struct Expected {
  const LogLevel* level;
  const char* name;
  int value;
};

const Expected* all() {
  static const Expected levels[] = {
      {LogLevel::LVL_OFF, "OFF", 0},     {LogLevel::LVL_FATAL, "FATAL", 1},
      {LogLevel::LVL_ERROR, "ERROR", 2}, {LogLevel::LVL_WARN, "WARN", 3},
      {LogLevel::LVL_INFO, "INFO", 4},   {LogLevel::LVL_DEBUG, "DEBUG", 5},
      {LogLevel::LVL_TRACE, "TRACE", 6}, {LogLevel::LVL_UNKNOWN, "UNKNOWN", 7},
      {LogLevel::LVL_ALL, "ALL", 8},
  };
  return levels;
}

TEST(LogLevelTest, NineLevelsWithTheirNamesAndValues) {
  for (int i = 0; i < 9; ++i) {
    const Expected& expected = all()[i];
    EXPECT_EQ(expected.level->getName(), expected.name);
    EXPECT_EQ(expected.level->getValue(), expected.value);
    EXPECT_EQ(&LogLevel::valueOf(expected.value), expected.level);
  }
}

TEST(LogLevelTest, NamesAreKnownWithoutRegardToCase) {
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(&LogLevel::valueOf(all()[i].name), all()[i].level);
  }
  EXPECT_EQ(&LogLevel::valueOf("debug"), LogLevel::LVL_DEBUG);
  EXPECT_EQ(&LogLevel::valueOf("Info"), LogLevel::LVL_INFO);
  EXPECT_EQ(&LogLevel::valueOf(std::string("wArN")), LogLevel::LVL_WARN);
}

TEST(LogLevelTest, ValueOfAllIsAll) { EXPECT_EQ(LogLevel::valueOf("all").getValue(), 8); }

TEST(LogLevelTest, AnyOtherNameIsUnknown) {
  for (const char* name : {"", "verbose", "DEBUGX", "DEBU", " INFO", "unknown"}) {
    EXPECT_EQ(&LogLevel::valueOf(name), LogLevel::LVL_UNKNOWN) << name;
  }
  EXPECT_EQ(&LogLevel::valueOf(static_cast<const char*>(nullptr)), LogLevel::LVL_UNKNOWN);
}

TEST(LogLevelTest, AnyOtherValueIsUnknown) {
  EXPECT_EQ(&LogLevel::valueOf(9), LogLevel::LVL_UNKNOWN);
  EXPECT_EQ(&LogLevel::valueOf(-1), LogLevel::LVL_UNKNOWN);
}

TEST(LogLevelTest, NamesAreHeldInStaticMembers) {
  EXPECT_STREQ(LogLevel::OFF_NAME, "OFF");
  EXPECT_STREQ(LogLevel::FATAL_NAME, "FATAL");
  EXPECT_STREQ(LogLevel::ERROR_NAME, "ERROR");
  EXPECT_STREQ(LogLevel::WARN_NAME, "WARN");
  EXPECT_STREQ(LogLevel::INFO_NAME, "INFO");
  EXPECT_STREQ(LogLevel::DEBUG_NAME, "DEBUG");
  EXPECT_STREQ(LogLevel::TRACE_NAME, "TRACE");
  EXPECT_STREQ(LogLevel::UNKNOWN_NAME, "UNKNOWN");
  EXPECT_STREQ(LogLevel::ALL_NAME, "ALL");
}

}  // namespace
