// What --list and --window say of recordings that are worked out by hand.
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Contents.h"
#include "prepare/Options.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/RecordingFile.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::uint64_t SECOND = 1'000'000'000;
// 2026-11-21 14:03:00 UTC: 20778 days after 1970-01-01.
constexpr std::uint64_t MOMENT = (std::uint64_t{20778} * 86400 + 14 * 3600 + 3 * 60) * SECOND;

class ContentsTest : public testing::Test {
 protected:
  ContentsTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    recording_.hostname = "board";
    recording_.osRelease = "6.1.0";
    recording_.architecture = "armv7l";
    recording_.commandLine = {"perf", "record", "-g", "--", "sh", "-c", "echo it's; x"};
    recording_.events.push_back({.name = "sched:sched_switch", .type = 2, .config = 5});
    for (made::Event& event : recording_.events) {
      event.moreFlags = 1 << 25;  // use_clockid
      event.clockid = 1;
    }
    recording_.sample({.ip = 0x10, .pid = 1, .tid = 1, .time = 7 * SECOND})
        .sample({.ip = 0x10, .pid = 1, .tid = 1, .time = 8 * SECOND, .event = 1})
        .sample({.ip = 0x10, .pid = 1, .tid = 1, .time = 10 * SECOND + 1});
  }
  std::string bytes() const {
    return made::fileBytes(recording_, {.identification = made::Identification::IDENTIFIER});
  }
  std::string contents(const std::string& window = "") const { return of(bytes(), window); }
  static std::string of(const std::string& bytes, const std::string& window = "") {
    recordings::Recording source(std::make_unique<recordings::MemoryInput>(asBytes(bytes)));
    recordings::WalkCounts counts;
    source.count(counts);
    return prepare::contentsOf(source, counts, window);
  }

  made::Recording recording_;
};

}  // namespace

TEST_F(ContentsTest, SaysWhatTheFileHolds) {
  EXPECT_EQ(contents(),
            "host          board\n"
            "kernel        6.1.0 armv7l\n"
            "command line  perf record -g -- sh -c 'echo it'\\''s; x'\n"
            "clock         CLOCK_MONOTONIC\n"
            "first sample  7.000000000 s\n"
            "duration      3.000000001 s\n"
            "events                   2 samples  cpu-clock\n"
            "                         1 samples  sched:sched_switch\n");
}

// 14:03:02 is second 50582 of its day.
TEST_F(ContentsTest, TellsTheWallClockWhereTheRecordingHasIt) {
  recording_.clockData = {{1, MOMENT, 5 * SECOND}};
  EXPECT_THAT(
      contents(),
      HasSubstr("wall clock    2026-11-21 14:03:02.000000000 +0000 at the first sample\n"
                "all of it     tracemill -A 1 -B 50582.000000000 -C 7.000000000 -s 50582.000000000 "
                "-d 3.000000002\n"));
  EXPECT_THAT(contents("14:03:03.5,2s"),
              HasSubstr("\nwindow        tracemill -A 1 -B 50582.000000000 -C 7.000000000 "
                        "-s 50583.500000000 -d 2.000000000\nevents "));
}

TEST_F(ContentsTest, AWindowNeedsTheWallClock) {
  try {
    contents("14:03:03.5,2s");
    FAIL() << "taken";
  } catch (const prepare::UsageError& error) {
    EXPECT_STREQ("--window: this recording does not say what the time was. Record with -k mono.",
                 error.what());
  }
}

TEST_F(ContentsTest, WhatIsNotThereIsLeftOut) {
  made::Recording nothing;
  nothing.hostname = "";
  nothing.comm({.pid = 1, .tid = 1, .name = "init"});
  const std::string text = of(made::fileBytes(nothing));
  for (const char* const label :
       {"host", "kernel", "command line", "first sample", "duration", "wall", "damaged"}) {
    EXPECT_THAT(text, Not(HasSubstr(label)));
  }
  EXPECT_THAT(text, HasSubstr("events                   0 samples  cpu-clock\n"));
}

TEST_F(ContentsTest, DamageIsTold) {
  const std::string whole = bytes();
  const Walked walked(whole);
  const std::uint64_t end = walked.recording.header().dataEnd;
  const std::string cut = whole.substr(0, end - 3);
  EXPECT_THAT(of(cut), HasSubstr("damaged       the file ends inside a record, at byte "));
  EXPECT_THAT(of(cut), HasSubstr(" bytes are lost\n"));
  EXPECT_THAT(of(cut), HasSubstr("           1 samples  cpu-clock\n"));
}
