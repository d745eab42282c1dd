// Starting commands, how they end, and what is logged about it. See LinuxSimpleExecLifetimeTest for
// listeners and disposal, ChildLaunchTest for what the child gets.
#include <memory>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/LinuxSimpleExec.h"
#include "kestrel/threads/ThreadGroup.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::LinuxSimpleExec;
using kestrel::PortablePipe;
using kestrel::SimpleExec;
using testing::Contains;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Not;

constexpr const char* LOGGER = "LinuxSimpleExec";
const std::vector<std::string> MISSING = {"/no/such/command", "argument"};

int statusOf(const std::vector<std::string>& command) {
  const ExecPtr exec = makeExec();
  EXPECT_EQ(exec->exec(command, nullptr), -1);
  EXPECT_EQ(exec->waitTilDone(0), 0);
  return exec->getExitStatus();
}

TEST(LinuxSimpleExecTest, TheExitCodeIsTheStatus) {
  EXPECT_EQ(statusOf({"/bin/true"}), 0);
  EXPECT_EQ(statusOf(shell("exit 1")), 1);
  EXPECT_EQ(statusOf(shell("exit 127")), 127);
  EXPECT_EQ(statusOf(shell("exit 255")), 255);
}

TEST(LinuxSimpleExecTest, NothingRunsBeforeTheFirstCommand) {
  const ExecPtr exec = makeExec();
  EXPECT_FALSE(exec->isRunning());
  EXPECT_EQ(exec->getExitStatus(), -2);
  EXPECT_EQ(exec->waitTilDone(0), 0);
  EXPECT_EQ(exec->waitTilDone(1), 0);
  EXPECT_FALSE(exec->waitTilExecuted());
  EXPECT_EQ(exec->getPid(), -1);
  EXPECT_EQ(exec->getName(), "");
  EXPECT_EQ(exec->getArgv(), nullptr);
  EXPECT_EQ(exec->claimWritePipe(), nullptr);
  EXPECT_EQ(exec->claimReadPipe(), nullptr);
  EXPECT_EQ(exec->claimErrorPipe(), nullptr);
  exec->terminate(true);
}

TEST(LinuxSimpleExecTest, ACommandThatDoesNotExistIsStartedAndEndsWithMinusFive) {
  const LogCapture log;
  const unsigned errors = LinuxSimpleExec::getErrorCount();
  const ExecPtr exec = makeExec();
  EXPECT_EQ(exec->exec(MISSING, nullptr), -1);
  EXPECT_EQ(exec->waitTilDone(0), 0);
  EXPECT_EQ(exec->getExitStatus(), -5);
  EXPECT_EQ(exec->getErrorNumber(), ENOENT);
  EXPECT_EQ(LinuxSimpleExec::getErrorCount(), errors + 1);
  const std::string self = text(exec.get()) + " [command] ";
  EXPECT_THAT(log.messages(LOGGER, "WARN"), ElementsAre(self + "execute failed errno=2"));
  // The child itself ended with code 1.
  EXPECT_THAT(log.messages(LOGGER, "DEBUG"),
              Contains(self + "process " + std::to_string(exec->getPid()) + " exited with 1"));
}

TEST(LinuxSimpleExecTest, AFileThatIsNoCommandCannotBeExecuted) {
  const TempDir temp;
  const ExecPtr exec = makeExec();
  exec->exec({temp.write("file", "#!/bin/sh\n")}, nullptr);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), -5);
  EXPECT_EQ(exec->getErrorNumber(), EACCES);
  EXPECT_EQ(statusOf({""}), -5);
  EXPECT_EQ(statusOf({"/"}), -5);
}

TEST(LinuxSimpleExecTest, AWorkingDirectoryThatDoesNotExistIsAFailureToExecute) {
  const ExecPtr exec = makeExec();
  EXPECT_EQ(exec->exec("/bin/true", "/no/such/directory", nullptr), -1);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), -5);
  EXPECT_EQ(exec->getErrorNumber(), ENOENT);
}

TEST(LinuxSimpleExecTest, AChildKilledByASignalEndsWithMinusSeven) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec(shell("kill -15 $$"), nullptr);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), -7);
  EXPECT_THAT(log.messages(LOGGER, "DEBUG"),
              Contains(text(exec.get()) + " [sh] process " + std::to_string(exec->getPid()) +
                       " was killed with signal 15"));
}

TEST(LinuxSimpleExecTest, TerminateSendsSigintUnlessForced) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec({"sleep", "60"}, nullptr);
  ASSERT_TRUE(exec->waitTilExecuted());
  EXPECT_TRUE(exec->isRunning());
  exec->terminate(false);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), -7);
  const std::string self = text(exec.get()) + " [sleep] ";
  EXPECT_THAT(
      log.messages(LOGGER, "DEBUG"),
      Contains(self + "process " + std::to_string(exec->getPid()) + " was killed with signal 2"));
  EXPECT_THAT(log.messages(LOGGER, "TRACE"), Contains(self + "terminate(0)"));
}

TEST(LinuxSimpleExecTest, ForcedTerminateSendsSigkill) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec(shell("trap '' INT; exec sleep 60"), nullptr);
  ASSERT_TRUE(exec->waitTilExecuted());
  exec->terminate(true);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), -7);
  const std::string self = text(exec.get()) + " [sh] ";
  EXPECT_THAT(
      log.messages(LOGGER, "DEBUG"),
      Contains(self + "process " + std::to_string(exec->getPid()) + " was killed with signal 9"));
  EXPECT_THAT(log.messages(LOGGER, "TRACE"), Contains(self + "terminate(1)"));
}

TEST(LinuxSimpleExecTest, AChildMayAnswerSigintItself) {
  const ExecPtr exec = makeExec();
  exec->exec(shell("trap 'exit 42' INT; echo ready; while :; do sleep 0.01; done"), nullptr);
  const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  char ready[6];
  ASSERT_EQ(output->read(ready, sizeof(ready)), 6);
  exec->terminate(false);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), 42);
}

TEST(LinuxSimpleExecTest, NoCommandIsMinusTwo) {
  const LogCapture log;
  const unsigned errors = LinuxSimpleExec::getErrorCount();
  const ExecPtr exec = makeExec();
  const char* const none[] = {nullptr};
  const char* const one[] = {"true"};
  EXPECT_EQ(exec->exec({}, nullptr), -2);
  EXPECT_EQ(exec->exec(std::vector<std::string>(), std::string("/"), nullptr), -2);
  EXPECT_EQ(exec->exec("", nullptr, nullptr), -2);
  EXPECT_EQ(exec->exec(" \t", nullptr, nullptr), -2);
  EXPECT_EQ(exec->exec(static_cast<const char*>(nullptr), nullptr, nullptr), -2);
  EXPECT_EQ(exec->exec(0, one, nullptr, nullptr), -2);
  EXPECT_EQ(exec->exec(-1, one, nullptr, nullptr), -2);
  EXPECT_EQ(exec->exec(1, nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(exec->exec(1, none, nullptr, nullptr), -2);
  EXPECT_EQ(exec->getExitStatus(), -2);
  EXPECT_EQ(exec->getErrorNumber(), 22);
  EXPECT_FALSE(exec->isRunning());
  EXPECT_FALSE(exec->waitTilExecuted());
  EXPECT_EQ(LinuxSimpleExec::getErrorCount(), errors + 9);
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              Contains(text(exec.get()) + " no command to run").Times(9));
}

TEST(LinuxSimpleExecTest, EveryFormOfExecRunsTheCommand) {
  const char* const argv[] = {"sh", "-c", "pwd; echo $0", "name", "beyond argc"};
  ExecPtr exec = makeExec();
  EXPECT_EQ(exec->exec(4, argv, "/", nullptr), -1);
  std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "/\nname\n");

  exec = makeExec();
  EXPECT_EQ(exec->exec({"sh", "-c", "echo vector"}, nullptr), -1);
  output.reset(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "vector\n");

  exec = makeExec();
  EXPECT_EQ(exec->exec({"pwd"}, std::string("/usr"), nullptr), -1);
  output.reset(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "/usr\n");

  exec = makeExec();
  EXPECT_EQ(exec->exec("sh -c 'echo \"a  b\"'", "/", nullptr), -1);
  output.reset(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "a  b\n");
}

TEST(LinuxSimpleExecTest, NameAndArgumentsAreKept) {
  const ExecPtr exec = makeExec();
  exec->exec({"/usr/bin/env", "true", "x y"}, nullptr);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getName(), "env");
  const char* const* const argv = exec->getArgv();
  ASSERT_NE(argv, nullptr);
  EXPECT_STREQ(argv[0], "/usr/bin/env");
  EXPECT_STREQ(argv[1], "true");
  EXPECT_STREQ(argv[2], "x y");
  EXPECT_EQ(argv[3], nullptr);
  exec->exec({"true"}, nullptr);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getName(), "true");
}

TEST(LinuxSimpleExecTest, TheThreePipesReachTheChild) {
  const ExecPtr exec = makeExec();
  exec->exec(shell("cat; echo error >&2"), nullptr);
  const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  std::unique_ptr<PortablePipe> input(exec->claimReadPipe());
  const std::unique_ptr<PortablePipe> errors(exec->claimErrorPipe());
  EXPECT_EQ(input->write("through", 7), 7);
  input.reset();
  EXPECT_EQ(readAll(*output), "through");
  EXPECT_EQ(readAll(*errors), "error\n");
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), 0);
}

TEST(LinuxSimpleExecTest, ClaimingTheSamePipeTwiceGivesNull) {
  const ExecPtr exec = makeExec();
  exec->exec({"true"}, nullptr);
  for (PortablePipe* (LinuxSimpleExec::*claim)() :
       {&LinuxSimpleExec::claimWritePipe, &LinuxSimpleExec::claimReadPipe,
        &LinuxSimpleExec::claimErrorPipe}) {
    const std::unique_ptr<PortablePipe> pipe((exec.get()->*claim)());
    EXPECT_NE(pipe, nullptr);
    EXPECT_EQ((exec.get()->*claim)(), nullptr);
  }
}

TEST(LinuxSimpleExecTest, OutputIsKeptAfterTheEndOfTheChild) {
  const ExecPtr exec = makeExec();
  exec->exec(shell("echo late"), nullptr);
  exec->waitTilDone(0);
  const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "late\n");
}

TEST(LinuxSimpleExecTest, WaitingIsBounded) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec({"sleep", "60"}, nullptr);
  ASSERT_TRUE(exec->waitTilExecuted());
  const Stopwatch watch;
  EXPECT_EQ(exec->waitTilDone(120), -1);
  EXPECT_GE(watch.seconds(), 0.11);
  EXPECT_TRUE(exec->isRunning());
  exec->terminate(true);
  EXPECT_EQ(exec->waitTilDone(60000), 0);
  EXPECT_EQ(exec->waitTilDone(1), 0);
  const std::string self = text(exec.get()) + " [sleep] ";
  const auto debug = log.messages(LOGGER, "DEBUG");
  EXPECT_THAT(debug, Contains(self + "waitTilDone: waiting 120 msecs"));
  EXPECT_THAT(debug, Contains(self + "waitTilDone: i am awake"));
  const auto trace = log.messages(LOGGER, "TRACE");
  EXPECT_THAT(trace, Contains(self + "waitTilDone(120)"));
  EXPECT_THAT(trace, Contains(self + "waitTilDone(60000)"));
}

TEST(LinuxSimpleExecTest, WaitingForeverIsLogged) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec({"sleep", "0.2"}, nullptr);
  EXPECT_EQ(exec->waitTilDone(0), 0);
  const std::string self = text(exec.get()) + " [sleep] ";
  EXPECT_THAT(log.messages(LOGGER, "DEBUG"),
              Contains(self + "waitTilDone: waiting forever").Times(1));
  EXPECT_THAT(log.messages(LOGGER, "DEBUG"), Contains(self + "waitTilDone: i am awake").Times(1));
  EXPECT_THAT(log.messages(LOGGER, "TRACE"), Contains(self + "waitTilDone(0)"));
}

TEST(LinuxSimpleExecTest, ARunIsLoggedStepByStep) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec({"/bin/sh", "-c", "exit 3"}, nullptr);
  EXPECT_TRUE(eventually([&] { return !exec->isRunning(); }));
  const std::string self = text(exec.get());
  const std::string named = self + " \\[sh\\] ";
  const std::string pid = std::to_string(exec->getPid());
  std::vector<std::string> lines;
  for (const LogLine& line : log.lines(LOGGER)) {
    lines.push_back(line.level + " " + line.message);
  }
  EXPECT_THAT(
      lines, ElementsAre(
                 "TRACE " + self + " exec", "TRACE " + self + " _init()",
                 "DEBUG " + self + " command is /bin/sh, -c, exit 3]",
                 MatchesRegex("DEBUG " + named + "created pipe #0 \\[[0-9]+,[0-9]+\\]"),
                 MatchesRegex("DEBUG " + named + "created pipe #1 \\[[0-9]+,[0-9]+\\]"),
                 MatchesRegex("DEBUG " + named + "created pipe #2 \\[[0-9]+,[0-9]+\\]"),
                 MatchesRegex("DEBUG " + named + "created pipe #3 \\[[0-9]+,[0-9]+\\]"),
                 "DEBUG " + self + " [sh] forked child pid=" + pid, "TRACE " + self + " [sh] run()",
                 "DEBUG " + self + " [sh] process " + pid + " exited with 3",
                 "DEBUG " + self + " [sh] checking status pipe for errors",
                 "DEBUG " + self + " [sh] notifying interested parties, control flow ends"));
}

TEST(LinuxSimpleExecTest, AnObjectRunsOneCommandAfterAnother) {
  const std::size_t before = countDescriptors();
  const ExecPtr exec = makeExec();
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(exec->exec(shell("exit " + std::to_string(i)), nullptr), -1);
    exec->waitTilDone(0);
    EXPECT_EQ(exec->getExitStatus(), i);
    EXPECT_EQ(countDescriptors(), before + 3);  // the ends that nobody claimed
  }
  exec->exec(MISSING, nullptr);
  exec->waitTilDone(0);
  exec->exec({"true"}, nullptr);
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), 0);
  EXPECT_EQ(exec->getErrorNumber(), 0);
  EXPECT_TRUE(exec->waitTilExecuted());
}

TEST(LinuxSimpleExecTest, ACommandIsRefusedWhileAChildRuns) {
  const LogCapture log;
  const ExecPtr exec = makeExec();
  EXPECT_EQ(exec->exec({"sleep", "60"}, nullptr), LinuxSimpleExec::RUNNING);
  const int pid = exec->getPid();
  EXPECT_EQ(exec->exec({"true"}, nullptr), LinuxSimpleExec::REFUSED);
  EXPECT_NE(LinuxSimpleExec::REFUSED, LinuxSimpleExec::RUNNING);
  EXPECT_EQ(exec->getExitStatus(), LinuxSimpleExec::RUNNING);
  EXPECT_EQ(exec->getPid(), pid);
  EXPECT_EQ(exec->getName(), "sleep");
  EXPECT_THAT(log.messages(LOGGER, "WARN"), ElementsAre(text(exec.get()) + " [sleep] child pid=" +
                                                        std::to_string(pid) + " is still running"));
  exec->terminate(true);
  exec->waitTilDone(0);
}

TEST(LinuxSimpleExecTest, WithoutAllFourPipesTheStatusIsMinusThree) {
  SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT();
  const std::size_t before = countDescriptors();
  for (unsigned spare = 0; spare < 8; ++spare) {
    const LogCapture log;
    const unsigned errors = LinuxSimpleExec::getErrorCount();
    const ExecPtr exec = makeExec();
    {
      const DescriptorShortage shortage(spare, 64);
      EXPECT_EQ(exec->exec({"/bin/true"}, nullptr), -3) << spare;
    }
    EXPECT_EQ(countDescriptors(), before) << spare;
    EXPECT_EQ(exec->getExitStatus(), -3);
    EXPECT_EQ(exec->getErrorNumber(), EMFILE);
    EXPECT_EQ(LinuxSimpleExec::getErrorCount(), errors + 1);
    EXPECT_FALSE(exec->waitTilExecuted());
    EXPECT_EQ(exec->claimWritePipe(), nullptr);
    EXPECT_THAT(log.messages(LOGGER, "WARN"),
                ElementsAre(text(exec.get()) + " [true] could not create pipe errno=24"));
    EXPECT_THAT(log.messages(LOGGER, "DEBUG"),
                Contains(MatchesRegex(".*created pipe.*")).Times(spare / 2));
  }
}

std::string execWithoutFork() {
  const std::size_t before = countDescriptors();
  const LogCapture log;
  const ExecPtr exec = makeExec();
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_NPROC, &none);
  if (getuid() == 0 && setresuid(65534, 65534, 65534) != 0) {  // root has no such limit
    return "cannot become an ordinary user";
  }
  if (exec->exec({"/bin/true"}, nullptr) != -4 || exec->getExitStatus() != -4) {
    return "the status is " + std::to_string(exec->getExitStatus());
  }
  if (exec->getErrorNumber() != EAGAIN || LinuxSimpleExec::getErrorCount() != 1) {
    return "the failure is not counted";
  }
  if (exec->waitTilExecuted() || exec->waitTilDone(0) != 0) {
    return "it looks as if a child had been started";
  }
  if (!log.has("WARN", LOGGER, text(exec.get()) + " [true] could not fork errno=11")) {
    return "no warning";
  }
  return countDescriptors() == before ? "" : "descriptors are left open";
}

TEST(LinuxSimpleExecTest, AForkThatFailsIsMinusFour) {
  EXPECT_WELL_IN_FRESH_PROCESS(execWithoutFork());
}

std::string execWithoutWatcher() {
  kestrel::DefaultThreadGroup::Instance()->close();
  const std::size_t before = countDescriptors();
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->discardErrorPipe();
  if (exec->exec({"sleep", "60"}, nullptr) != -4 || exec->getExitStatus() != -4) {
    return "the status is " + std::to_string(exec->getExitStatus());
  }
  if (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) {
    return "there is a child left";
  }
  if (exec->waitTilExecuted() || exec->waitTilDone(0) != 0 || exec->isRunning()) {
    return "it looks as if a child ran";
  }
  if (exec->claimWritePipe() != nullptr || countDescriptors() != before) {
    return "descriptors are left open";
  }
  if (LinuxSimpleExec::getErrorCount() != 1 || LinuxSimpleExec::getExecutionCount() != 0) {
    return "the counters are wrong";
  }
  exec->terminate(true);
  const bool warned =
      log.has("WARN", LOGGER, text(exec.get()) + " [sleep] could not fork errno=11");
  return warned ? "" : "no warning";
}

TEST(LinuxSimpleExecTest, AChildWithoutAWatcherIsKilledAndReaped) {
  EXPECT_WELL_IN_FRESH_PROCESS(execWithoutWatcher());
}

std::string execWithoutChildrenToWaitFor() {
  signal(SIGCHLD, SIG_IGN);  // the system reaps children by itself
  const LogCapture log;
  const ExecPtr exec = makeExec();
  exec->exec({"/bin/true"}, nullptr);
  exec->waitTilDone(0);
  if (exec->getExitStatus() != -6 || exec->getErrorNumber() != ECHILD) {
    return "the status is " + std::to_string(exec->getExitStatus());
  }
  const std::string message =
      text(exec.get()) + " [true] waitpid(" + std::to_string(exec->getPid()) + ") failed errno=10";
  return log.has("WARN", LOGGER, message) ? "" : "no warning";
}

TEST(LinuxSimpleExecTest, AChildThatCannotBeWaitedForIsMinusSix) {
  EXPECT_WELL_IN_FRESH_PROCESS(execWithoutChildrenToWaitFor());
}

TEST(LinuxSimpleExecTest, TheOutcomeOfTheExecIsKnownBeforeTheChildEnds) {
  const ExecPtr exec = makeExec();
  exec->exec({"sleep", "60"}, nullptr);
  EXPECT_TRUE(exec->waitTilExecuted());
  EXPECT_TRUE(exec->isRunning());
  EXPECT_TRUE(exec->waitTilExecuted());
  exec->terminate(true);
  exec->waitTilDone(0);
  EXPECT_TRUE(exec->waitTilExecuted());
}

TEST(LinuxSimpleExecTest, AQuickCommandWasExecutedEvenIfItHasEnded) {
  for (int i = 0; i < 100; ++i) {
    const ExecPtr exec = makeExec();
    exec->exec({"true"}, nullptr);
    if (i % 2 == 0) {
      exec->waitTilDone(0);
    }
    ASSERT_TRUE(exec->waitTilExecuted()) << i;
  }
}

TEST(LinuxSimpleExecTest, AMissingCommandWasNotExecuted) {
  for (int i = 0; i < 100; ++i) {
    const ExecPtr exec = makeExec();
    EXPECT_EQ(exec->exec(MISSING, nullptr), -1);
    if (i % 2 == 0) {
      exec->waitTilDone(0);
    }
    ASSERT_FALSE(exec->waitTilExecuted()) << i;
    exec->waitTilDone(0);
    ASSERT_EQ(exec->getExitStatus(), -5) << i;
  }
}

}  // namespace
