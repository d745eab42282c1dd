#include <cstdlib>
#include <ctime>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Options.h"
#include "prepare/WallClock.h"

using prepare::RecordedClock;
using prepare::UsageError;
using prepare::Window;
using recordings::FileHeader;
using testing::HasSubstr;

namespace {

constexpr std::int64_t SECOND = 1'000'000'000;
// 2026-11-21 14:03:00 UTC: 20778 days after 1970-01-01.
constexpr std::int64_t MOMENT = (std::int64_t{20778} * 86400 + 14 * 3600 + 3 * 60) * SECOND;

class WallClockTest : public testing::Test {
 protected:
  WallClockTest() { zone("UTC"); }
  static void zone(const char* name) {
    setenv("TZ", name, 1);
    tzset();
  }
};

FileHeader headerWith(std::int32_t clockId, bool hasData) {
  FileHeader header;
  header.events.resize(1);
  header.events[0].attribute.sampleType = recordings::abi::SAMPLE_TIME;
  header.events[0].attribute.flags =
      clockId < 0 ? 0 : std::uint64_t{1} << recordings::abi::FLAG_USE_CLOCKID;
  header.events[0].attribute.clockId = clockId;
  if (hasData) {
    header.facts.clockData = {clockId, MOMENT, 5 * SECOND};
  }
  return header;
}

std::string refusalOf(const std::string& text) {
  try {
    Window::parse(text, MOMENT);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "taken";
}

}  // namespace

TEST_F(WallClockTest, TimesOfDayAreOfTheDayOfTheFirstSample) {
  const Window window = Window::parse("14:03:10.5,2s", MOMENT);
  EXPECT_EQ(window.startNanoseconds, MOMENT + 10 * SECOND + SECOND / 2);
  EXPECT_EQ(window.lengthNanoseconds, 2'000'000'000u);
}

TEST_F(WallClockTest, DatesAreTaken) {
  for (const char* const text : {"2026-11-21 14:03:10.5,500ms", "2026-11-21T14:03:10.5,0.5"}) {
    const Window window = Window::parse(text, MOMENT + 86400 * SECOND);
    EXPECT_EQ(window.startNanoseconds, MOMENT + 10 * SECOND + SECOND / 2) << text;
    EXPECT_EQ(window.lengthNanoseconds, 500'000'000u) << text;
  }
}

TEST_F(WallClockTest, LengthsHaveUnits) {
  const auto length = [](const std::string& text) {
    return Window::parse("14:03:10," + text, MOMENT).lengthNanoseconds;
  };
  EXPECT_EQ(length("3"), 3'000'000'000u);
  EXPECT_EQ(length("1.5ms"), 1'500'000u);
  EXPECT_EQ(length("2us"), 2'000u);
  EXPECT_EQ(length("2m"), 120'000'000'000u);
  EXPECT_EQ(length("1min"), 60'000'000'000u);
}

TEST_F(WallClockTest, TheZoneIsThatOfTheReader) {
  zone("UTC-2");  // two hours east
  EXPECT_EQ(Window::parse("16:03:00,1s", MOMENT).startNanoseconds, MOMENT);
  EXPECT_EQ(prepare::wallText(MOMENT + 1), "2026-11-21 16:03:00.000000001 +0200");
  zone("UTC+5");
  EXPECT_EQ(prepare::wallText(MOMENT), "2026-11-21 09:03:00.000000000 -0500");
}

// The recording began before midnight; the window is after it.
TEST_F(WallClockTest, ATimeOfDayThatIsOverIsTomorrows) {
  const std::int64_t late = MOMENT + 9 * 3600 * SECOND;  // 23:03
  EXPECT_EQ(late + 3600 * SECOND, Window::parse("00:03:00,1s", late).startNanoseconds);
  EXPECT_EQ(late, Window::parse("23:03:00,1s", late).startNanoseconds);
}

// In the night of 2026-10-25 Berlin's clocks are set back at 3:00; one day later is 25 hours later.
TEST_F(WallClockTest, TomorrowMayBeMoreThanTwentyFourHoursAway) {
  zone("CET-1CEST,M3.5.0,M10.5.0/3");
  // 2026-10-24 23:30:00 +0200 is 21:30 UTC: day 20750.
  const std::int64_t late = (std::int64_t{20750} * 86400 + 21 * 3600 + 30 * 60) * SECOND;
  ASSERT_EQ(prepare::wallText(late), "2026-10-24 23:30:00.000000000 +0200");
  const Window window = Window::parse("04:00:00,1s", late);
  EXPECT_EQ(prepare::wallText(window.startNanoseconds), "2026-10-25 04:00:00.000000000 +0100");
}

TEST_F(WallClockTest, WhatIsNoWindowIsRefused) {
  for (const char* const text : {"",
                                 "14:03:10",
                                 "14:03:10,",
                                 "14:03:10,0",
                                 "14:03:10,-1s",
                                 "14:03:10,2h",
                                 "14:03:10,2s x",
                                 "24:00:00,1s",
                                 "14:60:00,1s",
                                 "14:03:61,1s",
                                 "14:03,1s",
                                 "14:03:10.,1s",
                                 "14:03:10.x,1s",
                                 "14:03:10x,1s",
                                 "2026-11-21,1s",
                                 "2026-13-21 14:03:10,1s",
                                 "2026-02-30 14:03:10,1s",
                                 "14:03:10,inf",
                                 "14:03:10,nan",
                                 "nonsense,1s"}) {
    EXPECT_THAT(refusalOf(text), HasSubstr("--window: '" + std::string(text) + "' is no time and"));
  }
}

TEST_F(WallClockTest, ClocksAreNamed) {
  EXPECT_EQ(RecordedClock(headerWith(1, false), 1).description(), "CLOCK_MONOTONIC");
  EXPECT_EQ(RecordedClock(headerWith(0, false), 1).description(), "CLOCK_REALTIME");
  EXPECT_EQ(RecordedClock(headerWith(4, false), 1).description(), "CLOCK_MONOTONIC_RAW");
  EXPECT_EQ(RecordedClock(headerWith(7, false), 1).description(), "CLOCK_BOOTTIME");
  EXPECT_EQ(RecordedClock(headerWith(11, false), 1).description(), "CLOCK_TAI");
  EXPECT_THAT(RecordedClock(headerWith(-1, false), 1).description(), HasSubstr("perf's own"));
}

TEST_F(WallClockTest, TheWallClockIsThatOfTheClockData) {
  const RecordedClock clock(headerWith(1, true), 7 * SECOND);
  EXPECT_EQ(clock.wallOfFirstSample().value_or(0), MOMENT + 2 * SECOND);
  EXPECT_FALSE(RecordedClock(headerWith(1, false), 7 * SECOND).wallOfFirstSample());
  EXPECT_FALSE(RecordedClock(headerWith(-1, false), 7 * SECOND).wallOfFirstSample());
  EXPECT_EQ(RecordedClock(headerWith(0, false), MOMENT).wallOfFirstSample().value_or(0), MOMENT);
}

// 14:03:02 is second 50582 of its day.
TEST_F(WallClockTest, OptionsCountSecondsOfTheDay) {
  const RecordedClock clock(headerWith(1, true), 7 * SECOND);
  EXPECT_EQ(clock.optionsFor(Window::parse("14:03:10.5,2s", MOMENT)),
            "-A 1 -B 50582.000000000 -C 7.000000000 -s 50590.500000000 -d 2.000000000");
}
