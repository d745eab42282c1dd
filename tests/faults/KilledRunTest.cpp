// Runs that are killed at any moment: the next run with the same cache gives the document that a
// run with a cache of its own gives.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"
#include "tests/faults/LongTests.h"

namespace {

using std::chrono::microseconds;

class KilledRunTest : public testing::Test {
 protected:
  KilledRunTest() { symbols_.conversion().lister(SLOW); }

  void SetUp() override {
    symbols_.folder().write("slow-lister",
                            "#!/bin/sh\n"
                            "while IFS= read -r line; do echo \"$line\"; sleep 0.01; done "
                            "<\"$2.list\"\n");
    std::filesystem::permissions(symbols_.folder().file("slow-lister"),
                                 std::filesystem::perms::owner_all);
  }

  // How long a run takes that nobody kills.
  microseconds durationOfARun() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
    return std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - begin);
  }

  void removeCache() const { std::filesystem::remove_all(symbols_.folder().file("cache")); }

  // Whether it was still running.
  bool killAfter(microseconds moment) {
    RunningProgram running = symbols_.conversion().lister(SLOW).start();
    std::this_thread::sleep_for(moment);
    running.sendSignal(SIGKILL);
    return running.wait().status == 1000 + SIGKILL;
  }

  void expectRightDocumentOfNextRun() {
    symbols_.conversion().lister("./lister -x");
    const ConversionResult next = symbols_.run();
    EXPECT_EQ(next.err, "");
    EXPECT_TRUE(matchesGolden("symbols", next.document));
    EXPECT_EQ(symbols_.folder().read("cache/bin_app.nm"), APP_LIST);
    EXPECT_EQ(symbols_.folder().read("cache/lib_libx.so.nm"), LIBRARY_LIST);
    EXPECT_EQ(symbols_.folder().read("cache/symbolcache.json"),
              "{" + appEntry() + "," + libraryEntry() + "}");
  }

  // A lister that was about to be executed when its run was killed may hold the run's files a
  // little longer; they go with the first run that finds them free.
  void expectNothingElseStays() const {
    const std::string names = "bin_app.nm lib_libx.so.nm symbolcache.json ";
    for (int i = 0; i < 100 && symbols_.cacheNames() != names; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      symbols_.run();
    }
    EXPECT_EQ(symbols_.cacheNames(), names);
  }

  microseconds randomMoment(microseconds until) {
    return microseconds(
        std::uniform_int_distribution<microseconds::rep>(0, until.count())(random_));
  }

  static constexpr const char* SLOW = "./slow-lister -x";

  SymbolRun symbols_;
  std::mt19937 random_{20};  // the moments of a failed test come again
};

}  // namespace

TEST_F(KilledRunTest, NextRunGivesTheRightDocument) {
  const int moments = areLongTests() ? 200 : 20;
  const microseconds whole = durationOfARun();
  int tried = 0;
  int killed = 0;  // a quick run may have ended by itself before its moment came
  for (; killed < moments && tried < 5 * moments && !HasFailure(); ++tried) {
    removeCache();
    const microseconds moment = randomMoment(whole);
    SCOPED_TRACE("killed after " + std::to_string(moment.count()) + " microseconds");
    killed += killAfter(moment) ? 1 : 0;
    expectRightDocumentOfNextRun();
    expectNothingElseStays();
  }
  std::cout << killed << " of " << tried << " runs killed" << std::endl;
  EXPECT_EQ(killed, moments);
}

TEST_F(KilledRunTest, RunAfterManyThatWereKilledGivesTheRightDocument) {
  const int moments = areLongTests() ? 200 : 10;
  const microseconds whole = durationOfARun();
  removeCache();
  for (int i = 0; i < moments; ++i) {
    killAfter(randomMoment(whole));
  }
  expectRightDocumentOfNextRun();
  expectNothingElseStays();
}
