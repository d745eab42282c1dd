#include <atomic>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <string>
#include <sys/select.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/LinuxPipe.h"
#include "kestrel/LinuxSelector.h"
#include "kestrel/ThreadGroup.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::LinuxPipe;
using kestrel::LinuxSelector;
using kestrel::PortableFile;
using kestrel::PortableSelector;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char* LOGGER = "LinuxSelector";

// Reads one byte for each call and counts.
class Recorder : public PortableSelector::Listener {
 public:
  bool onCanRead(PortableSelector* /*selector*/, PortableFile* file) override {
    char byte = 0;
    const int count = file->read(&byte, 1);
    if (count == 1) {
      lastByte = byte;
      ++reads;
    }
    return keeps && (count != 0 || keepsAtEnd);
  }
  void onError(PortableSelector* /*selector*/, PortableFile* /*file*/, int error) override {
    lastError = error;
  }
  void onClose(PortableSelector* /*selector*/, PortableFile* /*file*/) override { ++closes; }

  std::atomic<bool> keeps{true};
  std::atomic<bool> keepsAtEnd{false};
  std::atomic<char> lastByte{0};
  std::atomic<int> reads{0};
  std::atomic<int> lastError{0};
  std::atomic<int> closes{0};
};

// A pipe whose reading end goes to a selector.
struct Source {
  LinuxPipe* reader = new LinuxPipe();  // the selector's once it is registered
  std::unique_ptr<LinuxPipe> writer{reader->openAnonymousPipe()};

  void write(char byte) const { EXPECT_EQ(writer->write(&byte, 1), 1); }
};

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

bool addPipe(LinuxSelector& selector, const Source& source, Recorder& recorder) {
  return selector.addFile(source.reader, &recorder);
}

TEST(LinuxSelectorTest, TellsAListenerThatAFileCanBeRead) {
  Recorder recorder;
  const Source source;
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
  const Source source;
  LinuxSelector selector;
  EXPECT_TRUE(addPipe(selector, source, recorder));
  EXPECT_TRUE(addPipe(selector, source, recorder));
  EXPECT_EQ(selector.getFileCountForTest(), 1U);
}

TEST(LinuxSelectorTest, TheSameFileWithAnotherListenerIsRefused) {
  Recorder recorder;
  Recorder other;
  const Source source;
  LinuxSelector selector;
  EXPECT_TRUE(addPipe(selector, source, recorder));
  EXPECT_FALSE(addPipe(selector, source, other));
  EXPECT_EQ(selector.getFileCountForTest(), 1U);
}

TEST(LinuxSelectorTest, AFileWhoseDescriptorIsMinusOneIsRefused) {
  const LogCapture log;
  Recorder recorder;
  LinuxPipe closed;
  LinuxSelector selector;
  EXPECT_FALSE(selector.addFile(&closed, &recorder));
  EXPECT_EQ(selector.getFileCountForTest(), 0U);
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
  Source source;
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
  Source source;
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
  const Source source;
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
  const Source source;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  source.write('a');
  EXPECT_TRUE(eventually([&] { return selector.getFileCountForTest() == 0; }));
  EXPECT_EQ(recorder.reads, 1);
  EXPECT_EQ(recorder.closes, 1);
  EXPECT_EQ(countDescriptors(), withSelector + 1);  // the writing end
  selector.closeSelector();
  EXPECT_EQ(countDescriptors(), before + 1);
}

TEST(LinuxSelectorTest, AFileAtItsEndIsClosedOnceEvenIfTheListenerWouldKeepIt) {
  Recorder recorder;
  recorder.keepsAtEnd = true;
  LinuxSelector selector;
  Source source;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  source.writer->close();
  EXPECT_TRUE(eventually([&] { return selector.getFileCountForTest() == 0; }));
  EXPECT_EQ(recorder.closes, 1);
}

TEST(LinuxSelectorTest, CloseFileIsFollowedByOnClose) {
  Recorder recorder;
  Recorder other;
  LinuxSelector selector;
  const Source source;
  const Source kept;
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
  EXPECT_EQ(selector.getFileCountForTest(), 1U);
}

TEST(LinuxSelectorTest, AFileThatClosedItselfIsRemoved) {
  Recorder recorder;
  auto* const file = new ShiftingPipe(-1);
  const std::unique_ptr<LinuxPipe> writer(file->openAnonymousPipe());
  LinuxSelector selector;
  ASSERT_TRUE(selector.addFile(file, &recorder));
  writer->write("a", 1);
  EXPECT_TRUE(eventually([&] { return selector.getFileCountForTest() == 0; }));
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
  const Source kept;
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
  EXPECT_EQ(selector.getFileCountForTest(), 1U);
}

TEST(LinuxSelectorTest, WithoutAnIntervalTheLoopSleepsUntilSomethingIsReady) {
  Recorder recorder;
  const Source source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  EXPECT_TRUE(eventually([&] { return selector.getWakeUpCountForTest() == 1; }));  // the update
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(selector.getWakeUpCountForTest(), 1U);
  source.write('a');
  EXPECT_TRUE(eventually([&] { return selector.getWakeUpCountForTest() == 2; }));
}

// Sets an interval and wakes the loop so that it is taken up.
void applyInterval(LinuxSelector& selector, Recorder& recorder, const Source& source,
                   double seconds) {
  dynamic_cast<kestrel::PortableSelectorExt*>(selector.ext())->setWakeUpInterval(seconds);
  const int reads = recorder.reads;
  source.write('x');
  EXPECT_TRUE(eventually([&] { return recorder.reads == reads + 1; }));
}

TEST(LinuxSelectorTest, WithAnIntervalTheLoopWakesUpAgainAndAgain) {
  Recorder recorder;
  const Source source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  applyInterval(selector, recorder, source, 0.01);
  const unsigned before = selector.getWakeUpCountForTest();
  const Stopwatch watch;
  EXPECT_TRUE(eventually([&] { return selector.getWakeUpCountForTest() >= before + 20; }));
  EXPECT_GE(watch.seconds(), 0.15);
  applyInterval(selector, recorder, source, 1.5);
  const unsigned after = selector.getWakeUpCountForTest();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LE(selector.getWakeUpCountForTest(), after + 1);
  source.write('y');  // still reacts at once
  EXPECT_TRUE(eventually([&] { return recorder.lastByte == 'y'; }));
}

TEST(LinuxSelectorTest, IntervalsThatAreNoneOrHugeDoNotDisturbTheLoop) {
  const LogCapture log(*kestrel::LogLevel::LVL_WARN);
  Recorder recorder;
  const Source source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  for (const double seconds :
       {-1.0, std::numeric_limits<double>::quiet_NaN(), 1e300, -1e300, 0.0,
        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
    applyInterval(selector, recorder, source, seconds);
    // At most the update of addFile() and the one time-out of the interval before may still come.
    const unsigned before = selector.getWakeUpCountForTest();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_LE(selector.getWakeUpCountForTest(), before + 2) << seconds;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(LinuxSelectorTest, ATinyIntervalDoesNotMakeTheLoopSpin) {
  Recorder recorder;
  const Source source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  applyInterval(selector, recorder, source, 1e-12);
  const unsigned before = selector.getWakeUpCountForTest();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LE(selector.getWakeUpCountForTest(), before + 400);
  EXPECT_GE(selector.getWakeUpCountForTest(), before + 2);
}

TEST(LinuxSelectorTest, ClosingClosesEveryFile) {
  const std::size_t before = countDescriptors();
  {
    std::vector<Source> sources(20);
    std::vector<Recorder> recorders(20);
    LinuxSelector selector;
    for (std::size_t i = 0; i < sources.size(); ++i) {
      ASSERT_TRUE(addPipe(selector, sources[i], recorders[i]));
    }
    selector.closeSelector();
    for (const Recorder& recorder : recorders) {
      EXPECT_EQ(recorder.closes, 1);
    }
    selector.closeSelector();
  }
  EXPECT_EQ(countDescriptors(), before);
}

TEST(LinuxSelectorTest, ABrokenControlPipeEndsTheLoopAndClosingReturnsAtOnce) {
  const LogCapture log;
  Recorder recorder;
  const Source source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_NE(dup2(nothing, selector.getControlFdForTest()), -1);
  close(nothing);
  EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
  const Stopwatch watch;
  selector.closeSelector();
  EXPECT_LT(watch.seconds(), 1);
  Source late;
  EXPECT_FALSE(addPipe(selector, late, recorder));
  delete late.reader;
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&selector) + " Control pipe is broken, closing..."));
}

TEST(LinuxSelectorTest, AnInvalidDescriptorEndsTheLoop) {
  const LogCapture log;
  Recorder recorder;
  Recorder other;
  const Source source;
  const Source second;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  ASSERT_TRUE(addPipe(selector, second, other));
  EXPECT_TRUE(eventually([&] { return selector.getWakeUpCountForTest() >= 1; }));
  close(second.reader->getFd());
  source.write('a');
  EXPECT_TRUE(eventually([&] { return other.closes == 1; }));
  EXPECT_EQ(recorder.closes, 1);
  selector.closeSelector();
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&selector) + " Select error: invalid file descriptor was given."));
}

TEST(LinuxSelectorTest, TheStopIsWrittenAgainWhenTheControlPipeWasFull) {
  // Holds the loop in a call, and so its lock, until told otherwise.
  class Holder : public Recorder {
   public:
    bool onCanRead(PortableSelector* selector, PortableFile* file) override {
      entered = true;
      eventually([this] { return released.load(); });
      return Recorder::onCanRead(selector, file);
    }
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
  };
  Holder holder;
  const Source source;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, holder));
  const int control = selector.getControlFdForTest();
  source.write('a');
  ASSERT_TRUE(eventually([&] { return holder.entered.load(); }));
  const std::string ignored(4096, 'x');
  while (write(control, ignored.data(), ignored.size()) > 0) {
  }
  while (write(control, "x", 1) > 0) {
  }
  std::thread closer([&selector] { selector.closeSelector(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const Stopwatch watch;
  holder.released = true;
  closer.join();
  EXPECT_LT(watch.seconds(), 10);
  EXPECT_EQ(holder.closes, 1);
}

TEST(LinuxSelectorTest, WithoutAControlPipeTheSelectorIsClosed) {
  SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT();
  const std::size_t before = countDescriptors();
  const LogCapture log;
  Recorder recorder;
  Source source;
  std::string address;
  {
    const DescriptorShortage shortage(1, 64);
    LinuxSelector selector;
    address = text(&selector);
    EXPECT_FALSE(addPipe(selector, source, recorder));
    selector.closeSelector();
  }
  EXPECT_THAT(log.messages(LOGGER, "ERROR"),
              ElementsAre(address + " Cannot create anonymous pipe! errno=24"));
  EXPECT_THAT(log.messages(LOGGER, "TRACE"), Not(Contains(address + " run()")));
  delete source.reader;
  source.writer.reset();
  EXPECT_EQ(countDescriptors(), before);
}

TEST(LinuxSelectorTest, AControlPipeOutsideTheSelectSetCountsAsFailed) {
  Recorder recorder;
  Source source;
  const LogCapture log;
  const SelectSetFilled filled;
  const std::size_t before = countDescriptors();
  {
    LinuxSelector selector;
    EXPECT_FALSE(addPipe(selector, source, recorder));
    EXPECT_THAT(log.messages(LOGGER, "ERROR"),
                ElementsAre(text(&selector) + " Cannot create anonymous pipe! errno=24"));
  }
  EXPECT_EQ(countDescriptors(), before);
  delete source.reader;
}

std::string selectWithoutThreads() {
  kestrel::DefaultThreadGroup::Instance()->close();
  Recorder recorder;
  Source source;
  LinuxSelector selector;
  if (addPipe(selector, source, recorder)) {
    return "a selector without a thread took a file";
  }
  delete source.reader;
  selector.closeSelector();
  return "";
}

TEST(LinuxSelectorTest, WithoutAThreadTheSelectorIsClosed) {
  EXPECT_WELL_IN_FRESH_PROCESS(selectWithoutThreads());
}

TEST(LinuxSelectorTest, LogsItsLife) {
  const LogCapture log;
  Recorder recorder;
  std::string self;
  std::string file;
  {
    const Source source;
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
  const Source source;
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
  EXPECT_EQ(selector.getFileCountForTest(), 1U);
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
  const Source source;
  EXPECT_TRUE(addPipe(selector, source, recorder));
  selector.closeSelector();
  EXPECT_LT(watch.seconds(), 5);
}

TEST(LinuxSelectorTest, SeveralThreadsAddAndCloseFiles) {
  LinuxSelector selector;
  std::atomic<int> problems{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&selector, &problems] {
      for (int round = 0; round < 50; ++round) {
        Recorder recorder;
        const Source source;
        bool well = addPipe(selector, source, recorder);
        source.write('a');
        well = well && eventually([&] { return recorder.reads == 1; });
        selector.closeFile(source.reader);
        well = well && eventually([&] { return recorder.closes == 1; });
        problems += well ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(problems, 0);
  EXPECT_TRUE(eventually([&] { return selector.getFileCountForTest() == 0; }));
}

TEST(LinuxSelectorTest, ManySelectorsComeAndGo) {
  const std::size_t before = countDescriptors();
  for (int i = 0; i < 500; ++i) {
    const std::unique_ptr<PortableSelector> selector(
        kestrel::PortableSelectorFactory::createSelector());
    ASSERT_NE(selector, nullptr);
    if (i % 2 == 0) {
      selector->closeSelector();
    }
  }
  EXPECT_EQ(countDescriptors(), before);
}

}  // namespace
