#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/PipeSignal.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::LinuxPipe;
using kestrel::PortableFile;
using kestrel::PortablePipe;

struct AnonymousPipe {
  LinuxPipe reader;
  std::unique_ptr<LinuxPipe> writer;

  explicit AnonymousPipe(bool nonBlocking = false) {
    reader.setNonBlocking(nonBlocking);
    writer.reset(reader.openAnonymousPipe());
  }
};

bool isNonBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }
bool isCloseOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

std::string makeFifo(const TempDir& temp) {
  const std::string path = temp.file("fifo");
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  return path;
}

// A writer's descriptor; waits until a reader has the pipe open.
int openWriter(const std::string& path) { return open(path.c_str(), O_WRONLY | O_CLOEXEC); }

void writeTo(const std::string& path, const std::string& bytes) {
  const int fd = openWriter(path);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
}

std::string readOnce(PortableFile& file) {
  char buffer[64];
  const int count = file.read(buffer, sizeof(buffer));
  return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : std::to_string(count);
}

// What a file gives until it no longer blocks.
int readResult(PortableFile& file) {
  char byte = 0;
  int result = file.read(&byte, 1);
  eventually([&] { return (result = file.read(&byte, 1)) != PortableFile::WOULD_BLOCK; });
  return result;
}

TEST(LinuxPipeTest, IsClosedAtFirst) {
  LinuxPipe pipe;
  char byte = 0;
  EXPECT_EQ(pipe.getFd(), -1);
  EXPECT_EQ(pipe.getDefaultMode(), 0666U);
  EXPECT_FALSE(pipe.isEOF());
  EXPECT_EQ(pipe.read(&byte, 1), -2);
  EXPECT_EQ(pipe.write(&byte, 1), -2);
  pipe.flush();
  pipe.close();
  EXPECT_EQ(pipe.getFd(), -1);
}

TEST(LinuxPipeTest, IsItsOwnExtension) {
  LinuxPipe pipe;
  auto* const ext = dynamic_cast<kestrel::LinuxFileExt*>(pipe.ext());
  ASSERT_NE(ext, nullptr);
  ext->setDefaultMode(0600);
  EXPECT_EQ(pipe.getDefaultMode(), 0600U);
}

TEST(LinuxPipeTest, AnAnonymousPipeCarriesBytes) {
  AnonymousPipe pipe;
  ASSERT_NE(pipe.writer, nullptr);
  EXPECT_EQ(pipe.writer->write("hello", 5), 5);
  char buffer[3];
  EXPECT_EQ(pipe.reader.read(buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 3), "hel");
  EXPECT_EQ(readOnce(pipe.reader), "lo");
}

TEST(LinuxPipeTest, TheEndOfAnAnonymousPipeIsZeroAndStaysSo) {
  AnonymousPipe pipe;
  pipe.writer->write("x", 1);
  pipe.writer->close();
  EXPECT_EQ(readOnce(pipe.reader), "x");
  EXPECT_FALSE(pipe.reader.isEOF());
  EXPECT_EQ(readOnce(pipe.reader), "0");
  EXPECT_TRUE(pipe.reader.isEOF());
  EXPECT_EQ(readOnce(pipe.reader), "0");
}

TEST(LinuxPipeTest, AReadOfNothingIsNotTheEnd) {
  AnonymousPipe pipe;
  char byte = 0;
  EXPECT_EQ(pipe.reader.read(&byte, 0), 0);
  EXPECT_FALSE(pipe.reader.isEOF());
}

TEST(LinuxPipeTest, ANonBlockingPipeSaysThatItWouldBlock) {
  AnonymousPipe pipe(true);
  EXPECT_EQ(readOnce(pipe.reader), "-1");
  const std::string block(65536, 'x');
  while (pipe.writer->write(block.data(), 65536) > 0) {
  }
  EXPECT_EQ(pipe.writer->write("x", 1), -1);
}

TEST(LinuxPipeTest, NonBlockingIsSetAndClearedOnAnOpenPipe) {
  AnonymousPipe pipe;
  EXPECT_FALSE(isNonBlocking(pipe.reader.getFd()));
  EXPECT_FALSE(isNonBlocking(pipe.writer->getFd()));
  pipe.reader.setNonBlocking(true);
  EXPECT_TRUE(isNonBlocking(pipe.reader.getFd()));
  pipe.reader.setNonBlocking(false);
  EXPECT_FALSE(isNonBlocking(pipe.reader.getFd()));
}

TEST(LinuxPipeTest, BothEndsOfANonBlockingPipeAreNonBlocking) {
  AnonymousPipe pipe(true);
  EXPECT_TRUE(isNonBlocking(pipe.reader.getFd()));
  EXPECT_TRUE(isNonBlocking(pipe.writer->getFd()));
  pipe.writer->setNonBlocking(false);
  EXPECT_FALSE(isNonBlocking(pipe.writer->getFd()));
}

TEST(LinuxPipeTest, DescriptorsAreCloseOnExecAndClosedWithTheObject) {
  const std::size_t before = countDescriptors();
  {
    const TempDir temp;
    AnonymousPipe pipe;
    LinuxPipe named;
    ASSERT_EQ(named.openNamedPipe(makeFifo(temp).c_str(), O_RDWR), 0);
    EXPECT_TRUE(isCloseOnExec(pipe.reader.getFd()));
    EXPECT_TRUE(isCloseOnExec(pipe.writer->getFd()));
    EXPECT_TRUE(isCloseOnExec(named.getFd()));
  }
  EXPECT_EQ(countDescriptors(), before);
}

TEST(LinuxPipeTest, OpeningAgainClosesTheFirstDescriptor) {
  const std::size_t before = countDescriptors();
  LinuxPipe reader;
  const std::unique_ptr<LinuxPipe> first(reader.openAnonymousPipe());
  const std::unique_ptr<LinuxPipe> second(reader.openAnonymousPipe());
  EXPECT_EQ(countDescriptors(), before + 3);
}

TEST(LinuxPipeTest, NoPipeIsNull) {
  SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT();
  const DescriptorShortage shortage(1, 64);
  LinuxPipe reader;
  EXPECT_EQ(reader.openAnonymousPipe(), nullptr);
  EXPECT_EQ(reader.getFd(), -1);
}

TEST(LinuxPipeTest, WritingWhereNobodyReadsFails) {
  kestrel::PipeSignal::ignore();
  AnonymousPipe pipe;
  pipe.reader.close();
  EXPECT_EQ(pipe.writer->write("x", 1), -2);
}

TEST(LinuxPipeTest, ReadingTheWrongEndFails) {
  AnonymousPipe pipe;
  EXPECT_EQ(readOnce(*pipe.writer), "-2");
  EXPECT_EQ(pipe.reader.write("x", 1), -2);
}

TEST(LinuxPipeTest, ADescriptorThatIsTakenOverIsNonBlockingWhereThePipeIs) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  LinuxPipe reader;
  reader.setNonBlocking(true);
  reader.setFd(ends[0]);
  LinuxPipe writer;
  writer.setFd(ends[1]);
  EXPECT_NE(fcntl(ends[0], F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0);
}

TEST(LinuxPipeTest, SetFdTakesTheDescriptorAndForgetsTheEnd) {
  AnonymousPipe ended;
  ended.writer->close();
  EXPECT_EQ(readOnce(ended.reader), "0");
  ASSERT_TRUE(ended.reader.isEOF());

  const std::size_t before = countDescriptors();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ended.reader.setFd(ends[0]);
  EXPECT_FALSE(ended.reader.isEOF());
  EXPECT_EQ(ended.reader.getFd(), ends[0]);
  EXPECT_EQ(countDescriptors(), before + 1);  // the former one is closed
  EXPECT_EQ(write(ends[1], "y", 1), 1);
  close(ends[1]);
  EXPECT_EQ(readOnce(ended.reader), "y");
  EXPECT_EQ(readOnce(ended.reader), "0");
}

void doNothing(int /*signal*/) {}

TEST(LinuxPipeTest, AnInterruptedReadIsRepeated) {
  struct sigaction action = {};
  action.sa_handler = doNothing;  // without SA_RESTART
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  AnonymousPipe pipe;
  itimerval interval = {};
  interval.it_value.tv_usec = 20000;
  ASSERT_EQ(setitimer(ITIMER_REAL, &interval, nullptr), 0);
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &blocked, &former);
  std::thread writer([&pipe] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pipe.writer->write("late", 4);
  });
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  errno = 0;
  EXPECT_EQ(readOnce(pipe.reader), "late");
  EXPECT_EQ(errno, 0);
  writer.join();
}

TEST(LinuxPipeTest, ANamedPipeIsOpenedForReadingUnlessTheFlagsSayOtherwise) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe keepsItOpen;
  ASSERT_EQ(keepsItOpen.openNamedPipe(path.c_str(), O_RDWR), 0);
  EXPECT_EQ(fcntl(keepsItOpen.getFd(), F_GETFL) & O_ACCMODE, O_RDWR);

  LinuxPipe reader;
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_TRUNC | O_NONBLOCK), 0);
  EXPECT_EQ(fcntl(reader.getFd(), F_GETFL) & (O_ACCMODE | O_TRUNC | O_APPEND | O_NONBLOCK),
            O_RDONLY);
  LinuxPipe appender;
  ASSERT_EQ(appender.openNamedPipe(path.c_str(), O_WRONLY | O_APPEND), 0);
  EXPECT_EQ(fcntl(appender.getFd(), F_GETFL) & (O_ACCMODE | O_APPEND), O_WRONLY | O_APPEND);
  LinuxPipe odd;
  ASSERT_EQ(odd.openNamedPipe(path.c_str(), O_ACCMODE), 0);
  EXPECT_EQ(fcntl(odd.getFd(), F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST(LinuxPipeTest, ANonBlockingPipeOpensANameWithoutWaiting) {
  const TempDir temp;
  LinuxPipe reader;
  reader.setNonBlocking(true);
  ASSERT_EQ(reader.openNamedPipe(makeFifo(temp).c_str(), O_RDONLY), 0);
  EXPECT_TRUE(isNonBlocking(reader.getFd()));
  EXPECT_EQ(readOnce(reader), "-1");
}

TEST(LinuxPipeTest, CreationUsesTheDefaultMode) {
  const TempDir temp;
  const std::string path = temp.file("made");
  const mode_t mask = umask(022);
  LinuxPipe pipe;
  EXPECT_EQ(pipe.openNamedPipe(path.c_str(), O_RDWR | O_CREAT), 0);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFIFO | 0644));
  pipe.setDefaultMode(0600);
  EXPECT_EQ(pipe.openNamedPipe(temp.file("private").c_str(), O_RDWR | O_CREAT), 0);
  ASSERT_EQ(stat(temp.file("private").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFIFO | 0600));
  umask(mask);
}

TEST(LinuxPipeTest, CreatingANameThatIsThereOpensIt) {
  const TempDir temp;
  LinuxPipe pipe;
  EXPECT_EQ(pipe.openNamedPipe(makeFifo(temp).c_str(), O_RDWR | O_CREAT), 0);
}

TEST(LinuxPipeTest, FailuresToOpenANameAreTold) {
  const TempDir temp;
  LinuxPipe pipe;
  EXPECT_EQ(pipe.openNamedPipe(temp.file("missing").c_str(), O_RDWR), -4);
  EXPECT_EQ(pipe.openNamedPipe(temp.write("file", "x").c_str(), O_RDWR), -5);
  EXPECT_EQ(pipe.openNamedPipe(temp.file("file").c_str(), O_RDWR | O_CREAT), -5);
  EXPECT_EQ(pipe.openNamedPipe(temp.path().c_str(), O_RDONLY), -5);
  EXPECT_EQ(pipe.openNamedPipe(temp.file("no/where").c_str(), O_RDWR | O_CREAT), -2);
  EXPECT_EQ(pipe.openNamedPipe(temp.file("file/below").c_str(), O_RDWR), -2);
  EXPECT_EQ(pipe.openNamedPipe("", O_RDWR), -4);
  EXPECT_EQ(pipe.openNamedPipe(nullptr, O_RDWR), -4);
  pipe.setNonBlocking(true);
  EXPECT_EQ(pipe.openNamedPipe(makeFifo(temp).c_str(), O_WRONLY), -2);  // nobody reads it
  EXPECT_EQ(pipe.getFd(), -1);
}

TEST(LinuxPipeTest, MissingPermissionsAreTold) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  chmod(path.c_str(), 0);
  chmod(temp.path().c_str(), 0555);
  {
    const OrdinaryUser ordinary;
    LinuxPipe pipe;
    EXPECT_EQ(pipe.openNamedPipe(path.c_str(), O_RDWR), -3);
    EXPECT_EQ(pipe.openNamedPipe(temp.file("new").c_str(), O_RDWR | O_CREAT), -3);
  }
  chmod(temp.path().c_str(), 0700);
}

TEST(LinuxPipeTest, ANamedPipeSurvivesItsWriters) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe reader;
  std::thread writers([&path] {
    writeTo(path, "one ");
    writeTo(path, "two ");
    writeTo(path, "three");
  });
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_RDONLY), 0);
  std::string all;
  while (all.size() < 13) {
    all += readOnce(reader);
  }
  writers.join();
  EXPECT_EQ(all, "one two three");
  EXPECT_FALSE(reader.isEOF());
}

TEST(LinuxPipeTest, ANonBlockingNamedPipeWithoutWritersWouldBlock) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe reader;
  reader.setNonBlocking(true);
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_RDONLY), 0);
  writeTo(path, "x");
  EXPECT_EQ(readOnce(reader), "x");
  EXPECT_EQ(readOnce(reader), "-1");
  EXPECT_EQ(readOnce(reader), "-1");
  EXPECT_TRUE(isNonBlocking(reader.getFd()));
  EXPECT_TRUE(isCloseOnExec(reader.getFd()));
  writeTo(path, "y");
  EXPECT_EQ(readOnce(reader), "y");
}

TEST(LinuxPipeTest, APipeMadeNonBlockingAfterwardsIsReopenedWithoutWaiting) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe reader;
  std::thread writer([&path] { writeTo(path, "x"); });
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_RDONLY), 0);
  writer.join();
  reader.setNonBlocking(true);
  EXPECT_EQ(readOnce(reader), "x");
  const Stopwatch watch;
  EXPECT_EQ(readOnce(reader), "-1");
  EXPECT_LT(watch.seconds(), 5);
}

TEST(LinuxPipeTest, ANamedPipeThatCannotBeReopenedIsAtItsEnd) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe reader;
  reader.setNonBlocking(true);
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_RDONLY), 0);
  unlink(path.c_str());
  EXPECT_EQ(readResult(reader), -2);  // after the 0 of the first read
  EXPECT_TRUE(reader.isEOF());
  EXPECT_EQ(reader.getFd(), -1);
}

TEST(LinuxPipeTest, ANamedPipeIsReopenedWithTheLastDescriptor) {
  SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT();
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe reader;
  reader.setNonBlocking(true);
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_RDONLY), 0);
  const DescriptorShortage shortage(0, 64);
  EXPECT_EQ(readOnce(reader), "-1");
  EXPECT_NE(reader.getFd(), -1);
}

TEST(LinuxPipeTest, AWriterWhoComesDuringAReopenFindsAReader) {
  const TempDir temp;
  const std::string path = makeFifo(temp);
  LinuxPipe reader;
  reader.setNonBlocking(true);
  ASSERT_EQ(reader.openNamedPipe(path.c_str(), O_RDONLY), 0);
  std::atomic<bool> ended{false};
  std::atomic<int> turnedAway{0};
  std::thread writer([&] {
    for (int i = 0; i < 60000; ++i) {
      const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);  // needs a reader
      turnedAway += fd == -1 ? 1 : 0;
      close(fd);
    }
    ended = true;
  });
  char byte = 0;
  while (!ended) {
    reader.read(&byte, 1);  // finds the end again and again
  }
  writer.join();
  EXPECT_EQ(turnedAway, 0);
}

TEST(LinuxPipeTest, APipeThatIsSetToADescriptorIsNoLongerNamed) {
  const TempDir temp;
  LinuxPipe pipe;
  pipe.setNonBlocking(true);
  ASSERT_EQ(pipe.openNamedPipe(makeFifo(temp).c_str(), O_RDONLY), 0);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[1]);
  pipe.setFd(ends[0]);
  EXPECT_EQ(readOnce(pipe), "0");
}

}  // namespace
