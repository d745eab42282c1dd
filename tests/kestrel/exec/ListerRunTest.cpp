// The whole machinery as the symbol cache uses it: a command whose output is copied into a stream
// while the caller waits.
#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/FileTie.h"
#include "kestrel/exec/PortableFileProcessor.h"
#include "tests/kestrel/exec/ExecSupport.h"

namespace {

using kestrel::FileTie;
using kestrel::PortablePipe;

struct ListerRun {
  bool executed = false;
  bool drained = false;
  int status = 0;
  std::string output;
};

ListerRun runLister(const std::vector<std::string>& command) {
  ListerRun run;
  const ExecPtr exec = makeExec();
  exec->discardErrorPipe();
  exec->exec(command, nullptr);
  std::unique_ptr<PortablePipe> pipe(exec->claimWritePipe());
  run.executed = exec->waitTilExecuted();
  if (run.executed) {
    std::ostringstream target;
    FileTie tie;
    if (tie.tie(pipe.get(), &target)) {
      pipe.release();
    }
    exec->waitTilDone(0);
    run.drained = tie.getFileProcessor() != nullptr && tie.getFileProcessor()->waitTilDone(5000);
    tie.close();
    run.output = target.str();
  } else {
    exec->waitTilDone(0);
  }
  run.status = exec->getExitStatus();
  return run;
}

TEST(ListerRunTest, TheOutputArrivesWhole) {
  const ListerRun run =
      runLister(shell("i=0; while [ $i -lt 2000 ]; do echo line $i; i=$((i+1)); done"));
  EXPECT_TRUE(run.executed);
  EXPECT_TRUE(run.drained);
  EXPECT_EQ(run.status, 0);
  std::string expected;
  for (int i = 0; i < 2000; ++i) {
    expected += "line " + std::to_string(i) + "\n";
  }
  EXPECT_EQ(run.output, expected);
}

TEST(ListerRunTest, TheOutputOfAQuickCommandIsKept) {
  for (int i = 0; i < 50; ++i) {
    const ListerRun run = runLister({"echo", "quick"});
    ASSERT_TRUE(run.executed);
    ASSERT_EQ(run.output, "quick\n");
  }
}

TEST(ListerRunTest, AMissingCommandIsKnownToBeMissing) {
  const ListerRun run = runLister({"/no/such/lister", "file"});
  EXPECT_FALSE(run.executed);
  EXPECT_EQ(run.status, -5);
}

TEST(ListerRunTest, AMegabyteOnStandardErrorDoesNotStopTheCommand) {
  const Stopwatch watch;
  const ListerRun run = runLister(shell("head -c 1048576 /dev/zero >&2; echo done"));
  EXPECT_EQ(run.output, "done\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(run.drained);
  EXPECT_LT(watch.seconds(), 30);
}

TEST(ListerRunTest, StandardErrorAndOutputMayAlternate) {
  const ListerRun run =
      runLister(shell("for i in 1 2 3 4 5 6 7 8; do head -c 200000 /dev/zero >&2; "
                      "head -c 200000 /dev/zero; done"));
  EXPECT_EQ(run.output.size(), 1600000U);
  EXPECT_EQ(run.status, 0);
}

TEST(ListerRunTest, ACommandThatNeverStopsWritingErrorsCanBeEnded) {
  const ExecPtr exec = makeExec();
  exec->discardErrorPipe();
  exec->exec(shell("exec cat /dev/zero >&2"), nullptr);
  EXPECT_TRUE(exec->waitTilExecuted());
  EXPECT_EQ(exec->waitTilDone(200), -1);
  exec->terminate(true);
  EXPECT_EQ(exec->waitTilDone(10000), 0);
  EXPECT_EQ(exec->getExitStatus(), -7);
}

TEST(ListerRunTest, AnErrorPipeThatIsDiscardedCannotBeClaimed) {
  const std::size_t before = countDescriptors();
  const ExecPtr exec = makeExec();
  exec->discardErrorPipe();
  exec->exec({"true"}, nullptr);
  EXPECT_EQ(exec->claimErrorPipe(), nullptr);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->claimErrorPipe(), nullptr);
  EXPECT_EQ(countDescriptors(), before + 2);
}

TEST(ListerRunTest, AnErrorPipeThatIsNotDiscardedIsKeptForTheCaller) {
  const ExecPtr exec = makeExec();
  exec->exec(shell("echo for the caller >&2"), nullptr);
  exec->waitTilDone(0);
  const std::unique_ptr<PortablePipe> errors(exec->claimErrorPipe());
  EXPECT_EQ(readAll(*errors), "for the caller\n");
}

TEST(ListerRunTest, ACommandThatClosesStandardErrorIsWaitedFor) {
  const ListerRun run = runLister(shell("exec 2>&-; sleep 0.3; echo late"));
  EXPECT_EQ(run.output, "late\n");
  EXPECT_EQ(run.status, 0);
}

TEST(ListerRunTest, ADescendantThatKeepsStandardErrorOpenDoesNotDelayTheEnd) {
  const Stopwatch watch;
  const ExecPtr exec = makeExec();
  exec->discardErrorPipe();
  exec->exec(shell("sleep 20 >/dev/null </dev/null & exit 4"), nullptr);
  EXPECT_EQ(exec->waitTilDone(0), 0);
  EXPECT_EQ(exec->getExitStatus(), 4);
  EXPECT_LT(watch.seconds(), 10);
}

TEST(ListerRunTest, AThousandRunsLeaveNothingBehindAndNeverStall) {
  const std::size_t threadsAtStart = countThreads();
  const std::size_t descriptorsAtStart = countDescriptors();
  std::size_t threadsAtRun100 = 0;
  double longest = 0;
  for (int i = 1; i <= 1000; ++i) {
    const Stopwatch watch;
    const ListerRun run = runLister({"true"});
    longest = std::max(longest, watch.seconds());
    ASSERT_TRUE(run.executed && run.drained) << i;
    ASSERT_EQ(run.status, 0) << i;
    if (i == 100) {
      threadsAtRun100 = countThreads();
    }
  }
  EXPECT_LE(countThreads(), threadsAtRun100);
  EXPECT_LE(countThreads(), threadsAtStart + 4);
  EXPECT_EQ(countDescriptors(), descriptorsAtStart);
  EXPECT_LT(longest, 1);
}

}  // namespace
