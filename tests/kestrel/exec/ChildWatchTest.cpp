#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "kestrel/exec/ChildWatch.h"
#include "tests/kestrel/exec/ExecSupport.h"

namespace {

using kestrel::ChildWatch;

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;

  Pipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  ~Pipe() {
    close(readEnd);
    closeWriteEnd();
  }
  void closeWriteEnd() {
    if (writeEnd != -1) {
      close(writeEnd);
      writeEnd = -1;
    }
  }
};

pid_t forkSleeper(unsigned milliseconds, int code) {
  const pid_t pid = fork();
  if (pid == 0) {
    usleep(milliseconds * 1000);
    _exit(code);
  }
  return pid;
}

TEST(ChildWatchTest, DataInTheStatusPipeIsAFailureAndStaysThere) {
  Pipe status;
  const pid_t pid = forkSleeper(0, 1);
  const std::int32_t error = 13;
  ASSERT_EQ(write(status.writeEnd, &error, sizeof(error)), 4);
  status.closeWriteEnd();
  EXPECT_FALSE(ChildWatch(pid).awaitExecuted(status.readEnd));
  int code = 0;
  EXPECT_TRUE(ChildWatch::readExecError(status.readEnd, code));
  EXPECT_EQ(code, 13);
  EXPECT_FALSE(ChildWatch::readExecError(status.readEnd, code));
  waitpid(pid, nullptr, 0);
}

TEST(ChildWatchTest, AHangUpOfTheStatusPipeIsSuccess) {
  Pipe status;
  const pid_t pid = forkSleeper(60000, 0);
  status.closeWriteEnd();
  kill(pid, SIGSTOP);  // it need not end
  // The child of this test holds the writing end as well, unlike a command: it closes at exec.
  kill(pid, SIGKILL);
  EXPECT_TRUE(ChildWatch(pid).awaitExecuted(status.readEnd));
  waitpid(pid, nullptr, 0);
}

TEST(ChildWatchTest, AStatusPipeThatSomebodyElseHoldsDoesNotHangTheWatch) {
  const Pipe status;
  const pid_t pid = forkSleeper(0, 0);
  const Stopwatch watch;
  EXPECT_TRUE(ChildWatch(pid).awaitExecuted(status.readEnd));
  EXPECT_LT(watch.seconds(), 5);
  waitpid(pid, nullptr, 0);
}

TEST(ChildWatchTest, AShortMessageInTheStatusPipeIsNoError) {
  const Pipe status;
  int code = 0;
  ASSERT_EQ(write(status.writeEnd, "abc", 3), 3);
  EXPECT_FALSE(ChildWatch::readExecError(status.readEnd, code));
}

TEST(ChildWatchTest, TheEndIsAwaitedWithoutReaping) {
  const pid_t pid = forkSleeper(50, 9);
  const ChildWatch child(pid);
  EXPECT_EQ(child.awaitEnd(), 0);
  EXPECT_TRUE(processExists(pid));
  int status = 0;
  EXPECT_EQ(child.reap(status), 0);
  EXPECT_EQ(WEXITSTATUS(status), 9);
  EXPECT_FALSE(processExists(pid));
  EXPECT_EQ(child.awaitEnd(), ECHILD);
  EXPECT_EQ(child.reap(status), ECHILD);
}

TEST(ChildWatchTest, OutputIsDroppedUntilTheChildEndsEvenIfThePipeStaysOpen) {
  const Pipe output;
  const pid_t pid = forkSleeper(100, 0);
  ASSERT_EQ(write(output.writeEnd, "dropped", 7), 7);
  const Stopwatch watch;
  ChildWatch(pid).dropOutput(output.readEnd);
  EXPECT_LT(watch.seconds(), 5);
  char byte = 0;
  EXPECT_EQ(read(output.readEnd, &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  waitpid(pid, nullptr, 0);
}

TEST(ChildWatchTest, OutputIsDroppedUntilThePipeIsClosed) {
  Pipe output;
  ASSERT_EQ(write(output.writeEnd, "dropped", 7), 7);
  output.closeWriteEnd();
  const pid_t pid = forkSleeper(60000, 0);
  const Stopwatch watch;
  ChildWatch(pid).dropOutput(output.readEnd);
  EXPECT_LT(watch.seconds(), 5);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

}  // namespace
