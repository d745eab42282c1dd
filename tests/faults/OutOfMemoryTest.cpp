// Runs that do not get the memory that they want: they end with one message and status 1, or they
// end as if nothing had happened; nothing in between, and never by a signal.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/app/DriverRun.h"
#include "tests/faults/PeakMemory.h"

namespace {

using testing::HasSubstr;

class OutOfMemoryTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!IS_MEMORY_MEASURABLE) {
      GTEST_SKIP() << "memory is not the program's own here";
    }
  }

  // Runs with ever more memory until it is enough. `expectEnd` looks at those that end early.
  template <typename Check>
  void growMemory(Check expectEnd) {
    constexpr rlim_t STEP = rlim_t{2} << 20;
    int ended = 0;
    for (rlim_t memory = 6 * STEP; memory < 100 * STEP; memory += STEP) {
      SCOPED_TRACE(memory);
      const ProgramResult result =
          driver_.program({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"})
              .limit(RLIMIT_AS, memory)
              .run();
      if (result.status == 0) {
        EXPECT_GT(ended, 0) << "memory was enough at once";
        return;
      }
      ++ended;
      ASSERT_EQ(result.status, 1);
      expectEnd(result);
    }
    FAIL() << "never enough memory";
  }

  const DriverRun driver_;
};

}  // namespace

// Hardly more than what the loader of programs needs: there is no memory at all for an exception.
TEST_F(OutOfMemoryTest, NothingIsLeftWhenTheProgramBegins) {
  constexpr rlim_t PAGE = 4096;
  constexpr rlim_t STEP = 64 * PAGE;
  constexpr rlim_t ENOUGH_FOR_THE_LOADER = 512 * PAGE;
  constexpr int NOT_LOADED = 127;
  driver_.configure();
  const auto runWith = [this](rlim_t memory) {
    return driver_.program({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"})
        .limit(RLIMIT_AS, memory)
        .run();
  };
  rlim_t enoughToLoad = ENOUGH_FOR_THE_LOADER;
  while (runWith(enoughToLoad).status == NOT_LOADED) {
    enoughToLoad += STEP;
  }
  int ended = 0;
  for (rlim_t memory = enoughToLoad - STEP; memory < enoughToLoad + STEP; memory += PAGE) {
    SCOPED_TRACE(memory);
    const ProgramResult result = runWith(memory);
    if (result.status == NOT_LOADED) {
      continue;
    }
    ++ended;
    ASSERT_EQ(result.status, 1) << result.err;
    EXPECT_THAT(result.err + driver_.folder().read("run.log"),
                HasSubstr("Out of memory, aborting.."));
  }
  EXPECT_GT(ended, 0);
}

TEST_F(OutOfMemoryTest, KernelListThatDoesNotFit) {
  std::string list;
  for (unsigned i = 0; i < 60'000; ++i) {
    list += "c" + std::to_string(1'000'000 + i) + " T function" + std::to_string(i) + "\n";
  }
  driver_.folder().write("kernel.syms", list);
  driver_.configure();
  growMemory([&](const ProgramResult& result) {
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(driver_.folder().read("run.log"), HasSubstr("Out of memory, aborting.."));
  });
}

TEST_F(OutOfMemoryTest, ConfigurationThatDoesNotFit) {
  std::string members = "\"unknown\": [";
  for (int i = 0; i < 60'000; ++i) {
    members += "\"some text of a few more bytes\",";
  }
  driver_.configure(members + "]");
  growMemory([](const ProgramResult& result) {
    EXPECT_THAT(result.err, testing::AnyOf("Out of memory, aborting..\n",
                                           "JSOM::fromFile(): could not allocate memory\n"
                                           "Could not load configuration file test.conf\n"));
  });
}

TEST_F(OutOfMemoryTest, RecordingThatDoesNotFitGivesAValidDocumentAllTheSame) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  for (unsigned i = 0; i < 20'000; ++i) {
    recording.sample(at(SECOND, 0x1'0000ULL * (i + 0x10'0000), i + 10, i + 10));
  }
  driver_.folder().write("recording.perf", recording.bytes());
  driver_.configure();
  growMemory([&](const ProgramResult& result) {
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(driver_.log(), testing::Contains("ERROR [main] Out of memory, aborting.."));
    EXPECT_TRUE(nlohmann::json::accept(driver_.folder().read("document.json")));
  });
}
