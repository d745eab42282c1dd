// Listers that stop, that are killed, and that were never there. What they print otherwise is the
// matter of GoldenListerTest.
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"

namespace {

using testing::IsEmpty;
using testing::IsSupersetOf;

// Whether it becomes so within some seconds.
bool eventually(const std::function<bool()>& isSo) {
  for (int i = 0; i < 3000; ++i) {
    if (isSo()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// A lister that stops itself before it prints the last lines.
class StoppedListerTest : public testing::Test {
 protected:
  StoppedListerTest() {
    symbols_.replaceLister(
        "head -n 1 \"$2.list\"\n"
        "test $2 = bin/app && echo $$ >pid && kill -STOP $$\n"
        "tail -n +2 \"$2.list\"\n");
  }

  // The process id of the lister; 0 unless it has stopped.
  pid_t stoppedLister() const {
    const std::string pid = symbols_.folder().read("pid");
    if (pid.empty() || pid.back() != '\n') {
      return 0;
    }
    const std::string state = readFile("/proc/" + pid.substr(0, pid.size() - 1) + "/stat");
    return state.find(") T ") == std::string::npos ? 0 : std::stoi(pid);
  }

  // Begins a run, and looks that it waits for the stopped lister.
  RunningProgram startAndWait() {
    RunningProgram running = symbols_.conversion().start();
    EXPECT_TRUE(eventually([&] { return (lister_ = stoppedLister()) != 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(running.isRunning());
    EXPECT_EQ(symbols_.cacheNames().find("bin_app.nm"), std::string::npos) << "before it is whole";
    return running;
  }

  static std::string readFile(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  ~StoppedListerTest() override {
    if (lister_ > 0) {
      kill(lister_, SIGKILL);
    }
  }

  SymbolRun symbols_;
  pid_t lister_ = 0;
};

}  // namespace

TEST_F(StoppedListerTest, RunWaitsAndEndsRightlyOnceItGoesOn) {
  RunningProgram running = startAndWait();
  kill(lister_, SIGCONT);
  const ConversionResult result = symbols_.conversion().finish(std::move(running));
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_THAT(result.complaints(), IsEmpty());
}

TEST_F(StoppedListerTest, RunEndsWithoutItsNamesWhenItIsKilledAndTheNextRunTriesAgain) {
  RunningProgram running = startAndWait();
  kill(lister_, SIGKILL);
  const ConversionResult result = symbols_.conversion().finish(std::move(running));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(
      result.complaints(),
      testing::Contains("ERROR [SymbolCache] Error copying symbols of 'bin/app': the lister "
                        "was ended by a signal"));
  EXPECT_EQ(symbols_.cacheNames(), "lib_libx.so.nm symbolcache.json ");
  EXPECT_EQ(symbols_.folder().read("cache/lib_libx.so.nm"), LIBRARY_LIST);
  symbols_.replaceLister("exec cat \"$2.list\"\n");
  EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
}

TEST_F(StoppedListerTest, RunThatIsKilledMeanwhileLeavesNothingThatIsTakenForAList) {
  {
    RunningProgram running = startAndWait();
    running.sendSignal(SIGKILL);
    EXPECT_EQ(running.wait().status, 1000 + SIGKILL);
  }
  symbols_.replaceLister("exec cat \"$2.list\"\n");
  EXPECT_TRUE(matchesGolden("symbols", symbols_.run().document));
  EXPECT_EQ(symbols_.cacheNames(), "bin_app.nm lib_libx.so.nm symbolcache.json ");
}

TEST(ListerFaultTest, MissingListerIsSaidForEachFileAndMendedByTheNextRun) {
  SymbolRun symbols;
  symbols.conversion().lister("./nowhere");
  const ConversionResult missing = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-none", missing.document));
  EXPECT_THAT(
      missing.complaints(),
      IsSupersetOf(
          {"ERROR [SymbolCache] Error running symbols command './nowhere bin/app' exit status=-5",
           "ERROR [SymbolCache] Error running symbols command './nowhere lib/libx.so' exit "
           "status=-5"}));
  symbols.conversion().lister("./lister -x");
  EXPECT_TRUE(matchesGolden("symbols", symbols.run().document));
}

TEST(ListerFaultTest, KilledListerGivesNoListAndTheOtherListsAreWhole) {
  const SymbolRun symbols;
  symbols.replaceLister(
      "test $2 = bin/app && echo 00008000 T _start && kill -9 $$\n"
      "exec cat \"$2.list\"\n");
  const ConversionResult result = symbols.run();
  EXPECT_EQ(symbols.folder().read("cache/lib_libx.so.nm"), LIBRARY_LIST);
  EXPECT_EQ(symbols.cacheNames(), "lib_libx.so.nm symbolcache.json ");
  EXPECT_THAT(
      result.complaints(),
      testing::Contains("ERROR [SymbolCache] Error copying symbols of 'bin/app': the lister "
                        "was ended by a signal"));
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), "{" + libraryEntry() + "}");
}
