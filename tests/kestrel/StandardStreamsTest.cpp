#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "kestrel/StandardStreams.h"

namespace {

using kestrel::StandardStreams;

constexpr int FAILED_TO_FORK = -1;

// Runs `action` in a child, whose standard streams it may ruin, and returns what it returned.
template <typename Action>
int inChild(Action action) {
  std::cout.flush();
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    return FAILED_TO_FORK;
  }
  if (child == 0) {
    _exit(action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : FAILED_TO_FORK;
}

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

bool canWrite(int descriptor) { return write(descriptor, "x", 1) == 1; }

int openedNext() { return open("/dev/null", O_RDONLY); }

void redirectOutput(const char* path) {
  const int file = open(path, O_WRONLY);
  dup2(file, STDOUT_FILENO);
  close(file);
}

TEST(StandardStreamsTest, ReservingLeavesOpenDescriptorsAlone) {
  EXPECT_EQ(inChild([] {
              redirectOutput("/dev/null");
              const int expected = openedNext();
              close(expected);
              StandardStreams::reserveDescriptors();
              return canWrite(STDOUT_FILENO) && openedNext() == expected ? 1 : 0;
            }),
            1);
}

TEST(StandardStreamsTest, ReservedOutputIsNotTakenByTheNextFileAndCannotBeWritten) {
  EXPECT_EQ(inChild([] {
              close(STDOUT_FILENO);
              StandardStreams::reserveDescriptors();
              return isOpen(STDOUT_FILENO) && !canWrite(STDOUT_FILENO) && openedNext() > 2 ? 1 : 0;
            }),
            1);
}

TEST(StandardStreamsTest, EachClosedDescriptorIsReserved) {
  for (const int closed : {0, 1, 2}) {
    EXPECT_EQ(inChild([closed] {
                close(closed);
                StandardStreams::reserveDescriptors();
                return isOpen(closed) && !canWrite(closed) && openedNext() > 2 ? 1 : 0;
              }),
              1)
        << closed;
  }
}

TEST(StandardStreamsTest, AllThreeAreReservedAndNoOtherDescriptorIsUsedUp) {
  EXPECT_EQ(inChild([] {
              const int expected = openedNext();
              close(expected);
              close(0);
              close(1);
              close(2);
              StandardStreams::reserveDescriptors();
              return isOpen(0) && isOpen(1) && isOpen(2) && openedNext() == expected ? 1 : 0;
            }),
            1);
}

TEST(StandardStreamsTest, FlushHandsOverWhatBothKindsOfStreamsPrinted) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(inChild([&ends] {
              dup2(ends[1], STDOUT_FILENO);
              printf("one ");
              std::cout << "two";
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            1);
  close(ends[1]);
  char text[16] = {};
  EXPECT_EQ(read(ends[0], text, sizeof text), 7);
  EXPECT_EQ(std::string(text), "one two");
  close(ends[0]);
}

TEST(StandardStreamsTest, FlushSucceedsWhenNothingWasPrinted) {
  EXPECT_EQ(inChild([] {
              redirectOutput("/dev/full");
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            1);
}

TEST(StandardStreamsTest, FlushFailsOnAFullDevice) {
  EXPECT_EQ(inChild([] {
              redirectOutput("/dev/full");
              printf("x");
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            0);
  EXPECT_EQ(inChild([] {
              redirectOutput("/dev/full");
              std::cout << "x";
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            0);
}

TEST(StandardStreamsTest, FlushFailsWhenOutputWasLostBefore) {
  EXPECT_EQ(inChild([] {
              redirectOutput("/dev/full");
              printf("x");
              fflush(stdout);
              redirectOutput("/dev/null");
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            0);
  EXPECT_EQ(inChild([] {
              redirectOutput("/dev/full");
              std::cout << "x" << std::flush;
              redirectOutput("/dev/null");
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            0);
}

TEST(StandardStreamsTest, FlushFailsOnAReservedOutput) {
  EXPECT_EQ(inChild([] {
              close(STDOUT_FILENO);
              StandardStreams::reserveDescriptors();
              printf("x");
              return StandardStreams::flushOutput() ? 1 : 0;
            }),
            0);
}

}  // namespace
