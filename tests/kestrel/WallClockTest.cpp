#include <cmath>
#include <limits>
#include <string>
#include <sys/time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/SystemStartTime.h"
#include "kestrel/WallClock.h"
#include "kestrel/log/Logger.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

double systemNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6;
}

std::string textOf(double time) {
  std::string text = "older";
  kestrel::timeToString(time, text);
  return text;
}

class WallClockTest : public testing::Test {
 protected:
  ~WallClockTest() override { kestrel::setFakeTimeOffset(0.0); }

  LogCapture log_;
};

TEST_F(WallClockTest, NowIsTheTimeOfDay) {
  const double before = systemNow();
  const double now = kestrel::getNow();
  EXPECT_GE(now, before);
  EXPECT_LE(now, systemNow());
}

TEST_F(WallClockTest, FakeOffsetMovesTheTimeAndIsLoggedOnlyWhenItChanges) {
  kestrel::setFakeTimeOffset(2.5);
  EXPECT_EQ(kestrel::getFakeTimeOffset(), 2.5);
  const double before = systemNow();
  const double now = kestrel::getNow();
  EXPECT_GE(now, before + 2.5);
  EXPECT_LE(now, systemNow() + 2.5);
  kestrel::setFakeTimeOffset(2.5);
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{"INFO", "Time", "Fake time offset has been set to 2.500000"}));
}

TEST_F(WallClockTest, StartTimeIsNowLessTheUptimeAndIsFoundOnce) {
  const TempDir temp;
  const std::string path = temp.write("uptime", "1000.25 1900.50\n");
  kestrel::SystemStartTime startTime(path.c_str());
  const double before = systemNow();
  const double start = startTime.get();
  EXPECT_GE(start, before - 1000.25);
  EXPECT_LE(start, systemNow() - 1000.25);
  EXPECT_EQ(startTime.get(), start);

  const std::vector<LogLine> lines = log_.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].level, "DEBUG");
  EXPECT_THAT(lines[0].message,
              StartsWith("getSystemStartTime: uptime=1000.250000, idletime=1900.500000, now="));
  EXPECT_EQ(lines[1].level, "INFO");
  EXPECT_THAT(lines[1].message, StartsWith("The system start time is "));
}

TEST_F(WallClockTest, DebugLineComesOnlyWithDebugOutputEnabled) {
  const TempDir temp;
  const std::string path = temp.write("uptime", "1 1");
  kestrel::SystemStartTime startTime(path.c_str());
  kestrel::Logger::setMasterLogLevel(*kestrel::LogLevel::LVL_INFO);
  startTime.get();
  EXPECT_THAT(log_.messages("Time", "DEBUG"), IsEmpty());
  EXPECT_EQ(log_.messages("Time", "INFO").size(), 1u);
}

TEST_F(WallClockTest, UptimeAloneIsEnough) {
  const TempDir temp;
  const std::string path = temp.write("uptime", "50.5");
  kestrel::SystemStartTime startTime(path.c_str());
  EXPECT_NEAR(startTime.get(), systemNow() - 50.5, 5.0);
}

TEST_F(WallClockTest, WithoutUptimeFileTheStartTimeIsZeroAndStaysSo) {
  const TempDir temp;
  const std::string path = temp.file("uptime");
  kestrel::SystemStartTime startTime(path.c_str());
  EXPECT_EQ(startTime.get(), 0.0);
  temp.write("uptime", "1 1");  // too late
  EXPECT_EQ(startTime.get(), 0.0);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{"ERROR", "Time", "getSystemStartTime: Could not open /proc/uptime"}));
}

TEST_F(WallClockTest, UptimeThatIsNoNumberGivesZeroAndStaysSo) {
  const TempDir temp;
  for (const char* text : {"", "up 3 days"}) {
    log_.clear();
    const std::string path = temp.write("uptime", text);
    kestrel::SystemStartTime startTime(path.c_str());
    EXPECT_EQ(startTime.get(), 0.0);
    EXPECT_EQ(startTime.get(), 0.0);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(LogLine{"ERROR", "Time", "getSystemStartTime: Could not parse /proc/uptime"}));
  }
}

TEST_F(WallClockTest, UptimeDirectoryGivesZero) {
  const TempDir temp;
  kestrel::SystemStartTime startTime(temp.path().c_str());
  EXPECT_EQ(startTime.get(), 0.0);
}

TEST(TimeToStringTest, HalfASecond) { EXPECT_EQ(textOf(0.5), "01/01/70 00:00:00.500"); }

TEST(TimeToStringTest, MillisecondsAreNotPadded) {
  EXPECT_EQ(textOf(0.005), "01/01/70 00:00:00.5");
  EXPECT_EQ(textOf(0.0), "01/01/70 00:00:00.0");
}

TEST(TimeToStringTest, IsInUniversalTime) {
  EXPECT_EQ(textOf(1234567890.25), "02/13/09 23:31:30.250");
}

TEST(TimeToStringTest, FillsTheBufferAndReturnsItsLength) {
  char buffer[80];
  EXPECT_EQ(kestrel::timeToString(86399.125, buffer), 21);
  EXPECT_STREQ(buffer, "01/01/70 23:59:59.125");
}

TEST(TimeToStringTest, NegativeTimesAreCutTowardZero) {
  EXPECT_EQ(textOf(-0.5), "01/01/70 00:00:00.-500");
  EXPECT_EQ(textOf(-1.25), "12/31/69 23:59:59.-250");
}

TEST(TimeToStringTest, SecondsOutside32BitsSaturate) {
  EXPECT_EQ(textOf(2147483647.5), "01/19/38 03:14:07.500");
  EXPECT_EQ(textOf(2147483648.0), "01/19/38 03:14:07.0");
  EXPECT_EQ(textOf(1e300), "01/19/38 03:14:07.0");
  EXPECT_EQ(textOf(std::numeric_limits<double>::infinity()), "01/19/38 03:14:07.0");
  EXPECT_EQ(textOf(-2147483648.5), "12/13/01 20:45:52.-500");
  EXPECT_EQ(textOf(-2147483649.0), "12/13/01 20:45:52.0");
  EXPECT_EQ(textOf(-std::numeric_limits<double>::infinity()), "12/13/01 20:45:52.0");
}

TEST(TimeToStringTest, NotANumberCountsAsZero) {
  EXPECT_EQ(textOf(std::nan("")), "01/01/70 00:00:00.0");
}

class LoggerNames : public kestrel::Logger::LoggerVisitor {
 public:
  void visit(kestrel::Logger* logger) override { names.push_back(logger->getName()); }
  std::vector<std::string> names;
};

std::vector<std::string> loggerNames() {
  LoggerNames loggers;
  kestrel::Logger::visitLoggers(loggers);
  return loggers.names;
}

TEST(WallClockLoggerTest, ReadingTheTimeMakesNoLogger) {
  const std::vector<std::string> before = loggerNames();
  kestrel::getNow();
  textOf(1.0);
  kestrel::getFakeTimeOffset();
  EXPECT_EQ(loggerNames(), before);
}

}  // namespace
