#include <atomic>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/select.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/LinuxSelector.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/kestrel/exec/SelectorSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::LinuxPipe;
using kestrel::LinuxSelector;
using kestrel::PortableFile;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* LOGGER = "LinuxSelector";

// A pipe that changes its descriptor, or closes itself, when it has been read.
class ShiftingPipe : public LinuxPipe {
 public:
  explicit ShiftingPipe(int nextFd) : nextFd_(nextFd) {}
  int read(void* buffer, unsigned size) override {
    const int count = LinuxPipe::read(buffer, size);
    setFd(nextFd_);
    return count;
  }

 private:
  const int nextFd_;
};

class FileWithoutExt : public LinuxPipe {
 public:
  kestrel::PortableFileExt* ext() override { return nullptr; }
};

TEST(LinuxSelectorTest, TellsAListenerThatAFileCanBeRead) {
  Recorder recorder;
  const WatchedPipe source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  source.write('a');
  EXPECT_TRUE(eventually([&] { return recorder.reads == 1; }));
  EXPECT_EQ(recorder.lastByte, 'a');
  source.write('b');
  EXPECT_TRUE(eventually([&] { return recorder.reads == 2; }));
  EXPECT_EQ(recorder.closes, 0);
}

TEST(LinuxSelectorTest, TheSameFileWithTheSameListenerLeavesOneEntry) {
  Recorder recorder;
  const WatchedPipe source;
  LinuxSelector selector;
  EXPECT_TRUE(addPipe(selector, source, recorder));
  EXPECT_TRUE(addPipe(selector, source, recorder));
  selector.closeSelector();
  EXPECT_EQ(recorder.closes, 1);
}

TEST(LinuxSelectorTest, TheSameFileWithAnotherListenerIsRefused) {
  Recorder recorder;
  Recorder other;
  const WatchedPipe source;
  LinuxSelector selector;
  EXPECT_TRUE(addPipe(selector, source, recorder));
  EXPECT_FALSE(addPipe(selector, source, other));
  selector.closeSelector();
  EXPECT_EQ(recorder.closes, 1);
  EXPECT_EQ(other.closes, 0);
}

TEST(LinuxSelectorTest, AFileWhoseDescriptorIsMinusOneIsRefused) {
  const LogCapture log;
  Recorder recorder;
  LinuxPipe closed;
  LinuxSelector selector;
  EXPECT_FALSE(selector.addFile(&closed, &recorder));
  selector.closeSelector();
  EXPECT_EQ(recorder.closes, 0);
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&selector) + " Bad file descriptor passed into addFile()"));
}

TEST(LinuxSelectorTest, AFileWithoutADescriptorIsRefused) {
  Recorder recorder;
  FileWithoutExt file;
  LinuxSelector selector;
  EXPECT_FALSE(selector.addFile(&file, &recorder));
}

TEST(LinuxSelectorTest, ADescriptorOutsideTheSelectSetIsRefused) {
  Recorder recorder;
  LinuxSelector selector;
  const SelectSetFilled filled;
  const LogCapture log;
  WatchedPipe source;
  ASSERT_GE(source.reader->getFd(), FD_SETSIZE);
  EXPECT_FALSE(addPipe(selector, source, recorder));
  delete source.reader;
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&selector) + " Bad file descriptor passed into addFile()"));
}

TEST(LinuxSelectorTest, NullIsRefused) {
  const LogCapture log;
  Recorder recorder;
  LinuxPipe pipe;
  LinuxSelector selector;
  EXPECT_FALSE(selector.addFile(nullptr, &recorder));
  EXPECT_FALSE(selector.addFile(&pipe, nullptr));
  const std::string message = text(&selector) + " Null listener or file passed into addFile()";
  EXPECT_THAT(log.messages(LOGGER, "WARN"), ElementsAre(message, message));
}

TEST(LinuxSelectorTest, AClosedSelectorTakesNoFile) {
  const LogCapture log;
  Recorder recorder;
  WatchedPipe source;
  LinuxSelector selector;
  selector.closeSelector();
  EXPECT_FALSE(addPipe(selector, source, recorder));
  EXPECT_FALSE(selector.addFile(nullptr, nullptr));
  selector.closeFile(source.reader);
  delete source.reader;
  EXPECT_THAT(log.messages(LOGGER, "WARN"), IsEmpty());
}

TEST(LinuxSelectorTest, FilesAreMadeNonBlocking) {
  Recorder recorder;
  const WatchedPipe source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  EXPECT_NE(fcntl(source.reader->getFd(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(LinuxSelectorTest, AListenerThatHasEnoughLosesItsFile) {
  const std::size_t before = countDescriptors();
  Recorder recorder;
  recorder.keeps = false;
  LinuxSelector selector;
  const std::size_t withSelector = countDescriptors();
  const WatchedPipe source;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  source.write('a');
  // The writing end is left.
  EXPECT_TRUE(eventually([&] { return countDescriptors() == withSelector + 1; }));
  EXPECT_EQ(recorder.reads, 1);
  EXPECT_EQ(recorder.closes, 1);
  selector.closeSelector();
  EXPECT_EQ(countDescriptors(), before + 1);
}

TEST(LinuxSelectorTest, AFileAtItsEndIsClosedOnceEvenIfTheListenerWouldKeepIt) {
  Recorder recorder;
  recorder.keepsAtEnd = true;
  LinuxSelector selector;
  WatchedPipe source;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  source.writer->close();
  EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
  selector.closeSelector();
  EXPECT_EQ(recorder.closes, 1);
}

TEST(LinuxSelectorTest, CloseFileIsFollowedByOnClose) {
  Recorder recorder;
  Recorder other;
  LinuxSelector selector;
  const WatchedPipe source;
  const WatchedPipe kept;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  ASSERT_TRUE(addPipe(selector, kept, other));
  selector.closeFile(source.reader);
  EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
  LinuxPipe unknown;
  selector.closeFile(&unknown);
  selector.closeFile(nullptr);
  kept.write('a');
  EXPECT_TRUE(eventually([&] { return other.reads == 1; }));
  EXPECT_EQ(other.closes, 0);
}

TEST(LinuxSelectorTest, AFileThatClosedItselfIsRemoved) {
  Recorder recorder;
  auto* const file = new ShiftingPipe(-1);
  const std::unique_ptr<LinuxPipe> writer(file->openAnonymousPipe());
  LinuxSelector selector;
  ASSERT_TRUE(selector.addFile(file, &recorder));
  writer->write("a", 1);
  EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
  selector.closeSelector();
  EXPECT_EQ(recorder.closes, 1);
  EXPECT_EQ(recorder.lastError, 0);
}

TEST(LinuxSelectorTest, AFileWhoseDescriptorChangesIsWatchedUnderTheNewOne) {
  Recorder recorder;
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  auto* const file = new ShiftingPipe(ends[0]);
  const std::unique_ptr<LinuxPipe> writer(file->openAnonymousPipe());
  LinuxSelector selector;
  ASSERT_TRUE(selector.addFile(file, &recorder));
  writer->write("a", 1);
  EXPECT_TRUE(eventually([&] { return recorder.reads == 1; }));
  EXPECT_EQ(write(ends[1], "b", 1), 1);
  EXPECT_TRUE(eventually([&] { return recorder.reads == 2; }));
  EXPECT_EQ(recorder.lastByte, 'b');
  EXPECT_EQ(recorder.closes, 0);
  close(ends[1]);
}

TEST(LinuxSelectorTest, AFileReopenedOutsideTheSelectSetHasFailed) {
  Recorder recorder;
  Recorder other;
  LinuxPipe replacement;
  std::unique_ptr<ShiftingPipe> file;
  std::unique_ptr<LinuxPipe> writer;
  const WatchedPipe kept;
  LinuxSelector selector;
  int outside = -1;
  {
    const SelectSetFilled filled;
    outside = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, FD_SETSIZE);
    ASSERT_GE(outside, FD_SETSIZE);
  }
  file = std::make_unique<ShiftingPipe>(outside);
  writer.reset(file->openAnonymousPipe());
  ASSERT_TRUE(addPipe(selector, kept, other));
  ASSERT_TRUE(selector.addFile(file.release(), &recorder));
  writer->write("a", 1);
  EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
  EXPECT_EQ(recorder.lastError, EMFILE);
  kept.write('b');  // the loop goes on
  EXPECT_TRUE(eventually([&] { return other.reads == 1; }));
}

TEST(LinuxSelectorTest, LogsItsLife) {
  const LogCapture log;
  Recorder recorder;
  std::string self;
  std::string file;
  {
    const WatchedPipe source;
    LinuxSelector selector;
    self = text(&selector);
    file = text(source.reader);
    ASSERT_TRUE(addPipe(selector, source, recorder));
    EXPECT_TRUE(eventually(
        [&] { return log.has("DEBUG", LOGGER, self + " Received update control flag"); }));
    selector.closeFile(source.reader);
    EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
    selector.closeSelector();
  }
  EXPECT_THAT(log.messages(LOGGER, "DEBUG"), ElementsAre(self + " Received update control flag",
                                                         self + " Received update control flag",
                                                         self + " Closed by control flag"));
  const std::vector<std::string> trace = log.messages(LOGGER, "TRACE");
  EXPECT_THAT(trace, Contains(self + " run()"));
  EXPECT_EQ(trace.front(), self + " Constructor");
  EXPECT_EQ(trace.back(), self + " Destructor");
  EXPECT_THAT(trace, Contains(self + " addFile(" + file + ", " + text(&recorder) + ")"));
  EXPECT_THAT(trace, Contains(self + " closeFile(" + file + ")"));
  EXPECT_THAT(trace, Contains(self + " closeSelector()"));
}

TEST(LinuxSelectorTest, TheDestructorClosesWhatIsOpen) {
  const LogCapture log;
  Recorder recorder;
  const WatchedPipe source;
  std::string self;
  {
    LinuxSelector selector;
    self = text(&selector);
    ASSERT_TRUE(addPipe(selector, source, recorder));
  }
  EXPECT_EQ(recorder.closes, 1);
  std::vector<std::string> trace = log.messages(LOGGER, "TRACE");
  std::erase(trace, self + " run()");  // the loop's thread begins at any time
  ASSERT_GE(trace.size(), 2U);
  EXPECT_EQ(trace[trace.size() - 2], self + " Destructor");
  EXPECT_EQ(trace.back(), self + " closeSelector()");
}

TEST(LinuxSelectorTest, ANamedPipeKeepsItsEntryWhenTheLastWriterLeaves) {
  const TempDir temp;
  const std::string path = temp.file("fifo");
  Recorder recorder;
  auto* const reader = new LinuxPipe();
  reader->setNonBlocking(true);
  ASSERT_EQ(reader->openNamedPipe(path.c_str(), O_RDONLY | O_CREAT), 0);
  LinuxSelector selector;
  ASSERT_TRUE(selector.addFile(reader, &recorder));
  for (int i = 1; i <= 3; ++i) {
    const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(writer, "x", 1), 1);
    close(writer);
    EXPECT_TRUE(eventually([&] { return recorder.reads == i; }));
  }
  EXPECT_EQ(recorder.closes, 0);
}

TEST(LinuxSelectorTest, AReopenedNamedPipeNeverKeepsOthersFromTheSelector) {
  const TempDir temp;
  const std::string path = temp.file("fifo");
  Recorder recorder;
  auto* const reader = new LinuxPipe();  // blocking until the selector has it
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&path] {
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fd, "x", 1), 1);
    close(fd);
  });
  ASSERT_EQ(reader->openNamedPipe(path.c_str(), O_RDONLY), 0);
  LinuxSelector selector;
  ASSERT_TRUE(selector.addFile(reader, &recorder));
  writer.join();
  EXPECT_TRUE(eventually([&] { return recorder.reads == 1; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // reopened meanwhile
  const Stopwatch watch;
  const WatchedPipe source;
  EXPECT_TRUE(addPipe(selector, source, recorder));
  selector.closeSelector();
  EXPECT_LT(watch.seconds(), 5);
}

}  // namespace
