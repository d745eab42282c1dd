// Several runs at once on one cache directory.
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"
#include "tests/faults/LongTests.h"

namespace {

// Runs with documents, logs and configurations of their own.
class SharedCacheTest : public testing::Test {
 protected:
  SharedCacheTest() {
    // Slow enough that the runs list at the same time.
    symbols_.replaceLister(
        "while IFS= read -r line; do echo \"$line\"; sleep 0.01; done <\"$2.list\"\n");
  }

  RunningProgram start(const std::string& name) const {
    symbols_.folder().write(name + ".conf",
                            "{\"kernelSymbolFile\": \"kernel.syms\", \"symbolCacheDir\": "
                            "\"cache\",\n\"log\": {\"adapter\": {\"type\": \"file\", "
                            "\"baseName\": \"" +
                                name + ".log\"}}}");
    return ProgramRun(symbols_.folder().path())
        .arguments({"-c", name + ".conf", "-i", "recording.perf", "-o", name + ".json"})
        .lister("./lister -x")
        .start();
  }

  void expectAllRight(int runs) const {
    std::vector<RunningProgram> running;
    for (int i = 0; i < runs; ++i) {
      running.push_back(start(std::to_string(i)));
    }
    for (int i = 0; i < runs; ++i) {
      const std::string name = std::to_string(i);
      const ProgramResult result = running[static_cast<std::size_t>(i)].wait();
      EXPECT_EQ(result.status, 0);
      EXPECT_EQ(result.err, "");
      EXPECT_TRUE(matchesGolden("symbols", symbols_.folder().read(name + ".json")));
    }
    EXPECT_EQ(symbols_.folder().read("cache/bin_app.nm"), APP_LIST);
    EXPECT_EQ(symbols_.folder().read("cache/lib_libx.so.nm"), LIBRARY_LIST);
    EXPECT_EQ(symbols_.cacheNames(), "bin_app.nm lib_libx.so.nm symbolcache.json ");
    EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
  }

  void expectAllRightManyTimes(int runs) const {
    const int times = areLongTests() ? 50 : 3;
    for (int i = 0; i < times && !HasFailure(); ++i) {
      std::filesystem::remove_all(symbols_.folder().file("cache"));
      expectAllRight(runs);
    }
  }

  const SymbolRun symbols_;
};

}  // namespace

TEST_F(SharedCacheTest, TwoRunsOnAColdCache) { expectAllRightManyTimes(2); }

TEST_F(SharedCacheTest, EightRunsOnAColdCache) { expectAllRightManyTimes(8); }

TEST_F(SharedCacheTest, EightRunsOnAWarmCacheListNothing) {
  symbols_.run();
  symbols_.takeListerRuns();
  expectAllRight(8);
  EXPECT_EQ(symbols_.takeListerRuns(), "");
}

TEST_F(SharedCacheTest, RunsThatFindNoSymbolsDoNotGetInEachOthersWay) {
  symbols_.replaceLister("sleep 0.05\n");
  std::vector<RunningProgram> running;
  for (int i = 0; i < 8; ++i) {
    running.push_back(start(std::to_string(i)));
  }
  for (RunningProgram& run : running) {
    const ProgramResult result = run.wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
  }
  for (int i = 0; i < 8; ++i) {
    EXPECT_TRUE(matchesGolden("symbols-none", symbols_.folder().read(std::to_string(i) + ".json")));
  }
  EXPECT_EQ(symbols_.cacheNames(), "symbolcache.json ");
}
