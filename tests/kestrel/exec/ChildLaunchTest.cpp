// What a command is started with: descriptors, signals, directory, environment and arguments.
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/ChildLaunch.h"
#include "kestrel/exec/PipeSignal.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::ChildLaunch;
using kestrel::PipeSignal;
using kestrel::PortablePipe;
using testing::HasSubstr;
using testing::Not;

const std::string PROBE = KESTREL_EXEC_PROBE;

std::string probe(const std::string& what) { return outputOf({PROBE, what}); }

std::string currentDirectory() {
  char path[PATH_MAX];
  return getcwd(path, sizeof(path)) == nullptr ? "" : path;
}

TEST(ChildLaunchTest, NoDescriptorButTheStandardOnesReachesTheCommand) {
  std::vector<int> inherited;
  for (const int number : {3, 7, 200, 900}) {
    inherited.push_back(fcntl(STDIN_FILENO, F_DUPFD, number));  // not close-on-exec
    ASSERT_NE(inherited.back(), -1);
  }
  EXPECT_EQ(probe("descriptors"), "0 1 2 ");
  for (const int fd : inherited) {
    close(fd);
  }
}

// All ways to lack standard descriptors: bit n of `missing` says that n is closed.
std::string runWithoutStandardDescriptors(unsigned missing) {
  const int complaints = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
  for (int fd = 0; fd <= 2; ++fd) {
    if ((missing >> fd & 1U) != 0) {
      close(fd);
    }
  }
  std::string problem;
  if (probe("descriptors") != "0 1 2 ") {
    problem += "other descriptors reach the command; ";
  }
  const ExecPtr exec = makeExec();
  exec->exec(shell("cat; echo error >&2"), nullptr);
  const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  std::unique_ptr<PortablePipe> input(exec->claimReadPipe());
  const std::unique_ptr<PortablePipe> errors(exec->claimErrorPipe());
  input->write("through", 7);
  input.reset();
  if (readAll(*output) != "through") {
    problem += "the input does not come out; ";
  }
  if (readAll(*errors) != "error\n") {
    problem += "the errors do not come out; ";
  }
  exec->waitTilDone(0);
  if (exec->getExitStatus() != 0) {
    problem += "the status is " + std::to_string(exec->getExitStatus());
  }
  exec->exec({"/no/such/command"}, nullptr);
  exec->waitTilDone(0);
  if (exec->getExitStatus() != -5 || exec->getErrorNumber() != ENOENT) {
    problem += "a missing command is not told";
  }
  dup2(complaints, STDERR_FILENO);
  return problem;
}

TEST(ChildLaunchTest, PipeEndsMayBeStandardDescriptorsThemselves) {
  for (unsigned missing = 1; missing < 8; ++missing) {
    SCOPED_TRACE(missing);
    EXPECT_WELL_IN_FRESH_PROCESS(runWithoutStandardDescriptors(missing));
  }
}

// Runs a way of closing descriptors in a child, and tells whether it left just those below the
// first.
template <typename Close>
bool closesFrom(int first, Close closeThem) {
  const int high = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 700);
  const int low = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, first);
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  const pid_t pid = fork();
  if (pid == 0) {
    bool well = closeThem(first);
    for (int fd = first; fd < 1024; ++fd) {
      well = well && fcntl(fd, F_GETFD) == -1;
    }
    well =
        well && fcntl(STDIN_FILENO, F_GETFD) != -1 && (kept >= first || fcntl(kept, F_GETFD) != -1);
    _exit(well ? 0 : 1);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  close(high);
  close(low);
  close(kept);
  return status == 0;
}

TEST(ChildLaunchTest, TheListOfOpenDescriptorsIsClosedWhole) {
  std::vector<int> many;
  for (int i = 0; i < 300; ++i) {  // more than one buffer of directory entries
    many.push_back(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 20));
  }
  EXPECT_TRUE(closesFrom(4, [](int first) { return ChildLaunch::closeListed(first); }));
  for (const int fd : many) {
    close(fd);
  }
}

TEST(ChildLaunchTest, DescriptorsAreClosedOneByOneUpToTheBound) {
  EXPECT_TRUE(closesFrom(4, [](int first) {
    ChildLaunch::closeUpTo(first, 1024);
    return true;
  }));
  EXPECT_GE(ChildLaunch::findDescriptorBound(), 256);
  EXPECT_LE(ChildLaunch::findDescriptorBound(), 65536);
}

TEST(ChildLaunchTest, TheRangeIsClosedWhereTheSystemCanDoThat) {
  EXPECT_TRUE(closesFrom(4, [](int first) {
    return ChildLaunch::closeRange(first) || ChildLaunch::closeListed(first);
  }));
}

std::string runAfterIgnoring() {
  PipeSignal::ignore();
  PipeSignal::ignore();
  struct sigaction action = {};
  sigaction(SIGPIPE, nullptr, &action);
  if (action.sa_handler != SIG_IGN) {
    return "the program does not ignore SIGPIPE";
  }
  return probe("signals") == "SIGPIPE default" ? "" : probe("signals");
}

TEST(ChildLaunchTest, SigpipeIsAsItWasBeforeTheProgramIgnoredIt) {
  EXPECT_WELL_IN_FRESH_PROCESS(runAfterIgnoring());
}

std::string runAfterIgnoringWhatWasIgnored() {
  signal(SIGPIPE, SIG_IGN);
  PipeSignal::ignore();
  return probe("signals") == "SIGPIPE ignored" ? "" : probe("signals");
}

TEST(ChildLaunchTest, SigpipeStaysIgnoredWhenTheProgramWasStartedSo) {
  EXPECT_WELL_IN_FRESH_PROCESS(runAfterIgnoringWhatWasIgnored());
}

std::string runAfterIgnoringWhatWasHandled() {
  signal(SIGPIPE, [](int /*signal*/) {});
  PipeSignal::ignore();
  return probe("signals") == "SIGPIPE default" ? "" : probe("signals");
}

TEST(ChildLaunchTest, AHandlerOfSigpipeBecomesTheDefault) {
  EXPECT_WELL_IN_FRESH_PROCESS(runAfterIgnoringWhatWasHandled());
}

TEST(ChildLaunchTest, SigpipeIsLeftAloneWhenTheProgramNeverIgnoredIt) {
  EXPECT_WELL_IN_FRESH_PROCESS(probe("signals") == "SIGPIPE default" ? std::string()
                                                                     : probe("signals"));
}

TEST(ChildLaunchTest, TheSignalMaskIsInherited) {
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigaddset(&blocked, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const std::string signals = probe("signals");
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  EXPECT_THAT(signals, HasSubstr(" " + std::to_string(SIGHUP) + " " + std::to_string(SIGUSR1)));
  EXPECT_THAT(probe("signals"), Not(HasSubstr(" " + std::to_string(SIGUSR1))));
}

TEST(ChildLaunchTest, TheDirectoryIsTheProgramsUnlessOneIsGiven) {
  for (const std::string directory : {"", "."}) {
    const ExecPtr exec = makeExec();
    exec->exec({"/bin/pwd", "-P"}, directory, nullptr);
    const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
    EXPECT_EQ(readAll(*output), currentDirectory() + "\n");
  }
  EXPECT_EQ(outputOf({"/bin/pwd", "-P"}), currentDirectory() + "\n");
}

TEST(ChildLaunchTest, ARelativeCommandIsLookedForInTheWorkingDirectory) {
  const TempDir temp;
  const std::string path = temp.write("tool", "#!/bin/sh\necho found\n");
  ASSERT_EQ(system(("chmod +x " + path).c_str()), 0);
  const ExecPtr exec = makeExec();
  exec->exec({"./tool"}, temp.path(), nullptr);
  const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "found\n");
}

TEST(ChildLaunchTest, TheEnvironmentIsInheritedUnlessOneIsSet) {
  setenv("EXEC_TEST_VARIABLE", "inherited", 1);
  EXPECT_THAT(probe("environment"), HasSubstr("EXEC_TEST_VARIABLE=inherited\n"));
  unsetenv("EXEC_TEST_VARIABLE");
  EXPECT_THAT(probe("environment"), Not(HasSubstr("EXEC_TEST_VARIABLE")));
}

TEST(ChildLaunchTest, AnEnvironmentThatIsSetIsTheWholeOne) {
  const char* const variables[] = {"B=2", "A=one two", nullptr};
  const ExecPtr exec = makeExec();
  exec->setEnvironment(variables);
  exec->exec({"env"}, nullptr);  // not the probe, whose launcher under emulation adds variables
  std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "A=one two\nB=2\n");
  exec->waitTilDone(0);

  exec->setEnvironment(nullptr);
  exec->exec({"env"}, nullptr);
  output.reset(exec->claimWritePipe());
  EXPECT_THAT(readAll(*output), HasSubstr("PATH="));
  exec->waitTilDone(0);
}

TEST(ChildLaunchTest, ACommandIsSearchedOnThePathWithAnEnvironmentToo) {
  const char* const variables[] = {"A=1", nullptr};
  const ExecPtr exec = makeExec();
  exec->setEnvironment(variables);
  exec->exec({"env"}, nullptr);
  const std::unique_ptr<PortablePipe> output(exec->claimWritePipe());
  EXPECT_EQ(readAll(*output), "A=1\n");
}

TEST(ChildLaunchTest, ArgumentsArriveByteForByte) {
  EXPECT_EQ(outputOf({PROBE, "arguments", "", "a b", "\x80\xFF\n\t", "$HOME;|*"}),
            "4 [] [612062] [80ff0a09] [24484f4d453b7c2a]");
}

TEST(ChildLaunchTest, ManyArgumentsArrive) {
  std::vector<std::string> command = {PROBE, "arguments"};
  command.insert(command.end(), 5000, "x");
  EXPECT_THAT(outputOf(command), testing::StartsWith("5000 [78] [78]"));
}

TEST(ChildLaunchTest, TooManyArgumentsCannotBeExecuted) {
  const ExecPtr exec = makeExec();
  exec->exec({"/bin/true", std::string(10000000, 'x')}, nullptr);
  EXPECT_FALSE(exec->waitTilExecuted());
  exec->waitTilDone(0);
  EXPECT_EQ(exec->getExitStatus(), -5);
  EXPECT_EQ(exec->getErrorNumber(), E2BIG);
}

}  // namespace
