#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/BlockProcessor.h"
#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/PipeSignal.h"
#include "kestrel/exec/PortableFileProcessor.h"
#include "kestrel/exec/PortableSelector.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::LinuxPipe;
using kestrel::PortableFile;
using kestrel::PortableFileProcessor;
using kestrel::PortableSelector;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* LOGGER = "PortableFileProcessor";

// Keeps what it is given.
class Collector : public kestrel::BlockProcessor {
 public:
  void processBuffer(const char* data, int length) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    blocks_.emplace_back(data, static_cast<std::size_t>(length));
    all_ += blocks_.back();
  }
  void processEOF() override { ++ends; }
  void processError(const char* message) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    errors_.emplace_back(message);
  }

  std::string all() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return all_;
  }
  std::vector<std::string> blocks() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return blocks_;
  }
  std::vector<std::string> errors() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return errors_;
  }

  std::atomic<int> ends{0};

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> blocks_;
  std::vector<std::string> errors_;
  std::string all_;
};

struct Source {
  LinuxPipe* reader = new LinuxPipe();  // the processor's once it is registered
  std::unique_ptr<LinuxPipe> writer{reader->openAnonymousPipe()};

  void write(const std::string& bytes) const {
    EXPECT_EQ(writer->write(bytes.data(), static_cast<unsigned>(bytes.size())),
              static_cast<int>(bytes.size()));
  }
};

// Gives the results that a test lists, then WOULD_BLOCK. For direct calls of the listener's
// operations, once the processor's own file has ended and its selector no longer calls them.
class ScriptedFile : public LinuxPipe {
 public:
  explicit ScriptedFile(std::vector<int> results) : results_(std::move(results)) {}
  int read(void* buffer, unsigned size) override {
    ++reads;
    lastSize = size;
    if (results_.empty()) {
      return WOULD_BLOCK;
    }
    const int result = results_.front();
    results_.erase(results_.begin());
    if (result > 0) {
      *static_cast<char*>(buffer) = 'x';
    }
    return result;
  }

  int reads = 0;
  unsigned lastSize = 0;

 private:
  std::vector<int> results_;
};

// Its reads fail.
class FailingPipe : public LinuxPipe {
 public:
  int read(void* /*buffer*/, unsigned /*size*/) override { return FAILED; }
};

// One whose loop has ended with an error.
class FailedSelector : public PortableSelector {
 public:
  bool addFile(PortableFile* /*file*/, Listener* /*listener*/) override { return false; }
  void closeFile(PortableFile* /*file*/) override {}
  void closeSelector() override {}
  kestrel::PortableSelectorExt* ext() override { return nullptr; }
  int getError() const override { return ENOMEM; }
};

TEST(PortableFileProcessorTest, PushesWhatArrivesIntoTheBlockProcessor) {
  Collector collector;
  const Source source;
  PortableFileProcessor processor(source.reader, &collector, 64);
  EXPECT_TRUE(processor.isRegistered());
  source.write("hello ");
  EXPECT_TRUE(eventually([&] { return collector.all() == "hello "; }));
  source.write("world");
  EXPECT_TRUE(eventually([&] { return collector.all() == "hello world"; }));
  EXPECT_FALSE(processor.waitTilDone(1));
  EXPECT_EQ(collector.ends, 0);
}

TEST(PortableFileProcessorTest, AWriterThatClosesItsEndGivesEndOfDataExactlyOnce) {
  Collector collector;
  Source source;
  PortableFileProcessor processor(source.reader, &collector, 64);
  source.write("x");
  source.writer->close();
  EXPECT_TRUE(processor.waitTilDone(10000));
  EXPECT_EQ(collector.all(), "x");
  EXPECT_EQ(collector.ends, 1);
  processor.onClose(nullptr, nullptr);
  EXPECT_EQ(collector.ends, 1);
  processor.close();
  EXPECT_EQ(collector.ends, 1);
  EXPECT_TRUE(processor.waitTilDone(0));
}

TEST(PortableFileProcessorTest, ASourceThatEndedBeforeItIsRegisteredIsDoneAtOnce) {
  for (int i = 0; i < 200; ++i) {
    Collector collector;
    Source source;
    source.writer->close();
    const Stopwatch watch;
    PortableFileProcessor processor(source.reader, &collector, 64);
    ASSERT_TRUE(processor.waitTilDone(5000));
    ASSERT_LT(watch.seconds(), 1);
    ASSERT_EQ(collector.ends, 1);
  }
}

TEST(PortableFileProcessorTest, BlocksAreAsLongAsTheBuffer) {
  Collector collector;
  Source source;
  source.write("abcdefgh");
  source.writer->close();
  PortableFileProcessor processor(source.reader, &collector, 3);
  EXPECT_TRUE(processor.waitTilDone(10000));
  EXPECT_THAT(collector.blocks(), ElementsAre("abc", "def", "gh"));
}

TEST(PortableFileProcessorTest, ABufferSizeOfZeroCountsAsOne) {
  Collector collector;
  Source source;
  source.write("ab");
  source.writer->close();
  PortableFileProcessor processor(source.reader, &collector, 0);
  EXPECT_TRUE(processor.waitTilDone(10000));
  EXPECT_THAT(collector.blocks(), ElementsAre("a", "b"));
}

TEST(PortableFileProcessorTest, WaitingIsBounded) {
  Collector collector;
  const Source source;
  PortableFileProcessor processor(source.reader, &collector, 64);
  const Stopwatch watch;
  EXPECT_FALSE(processor.waitTilDone(100));
  EXPECT_GE(watch.seconds(), 0.09);
  EXPECT_LT(watch.seconds(), 5);
}

TEST(PortableFileProcessorTest, ClosingGivesTheSourceUp) {
  const std::size_t before = countDescriptors();
  Collector collector;
  const Source source;
  {
    PortableFileProcessor processor(source.reader, &collector, 64);
    processor.close();
    EXPECT_EQ(collector.ends, 1);
    EXPECT_TRUE(processor.waitTilDone(0));
    processor.close();
  }
  EXPECT_EQ(collector.ends, 1);
  EXPECT_EQ(countDescriptors(), before + 1);  // the writing end
}

TEST(PortableFileProcessorTest, ASelectorThatFailsIsWhyAFileIsNotReadToItsEnd) {
  Collector collector;
  const Source source;
  PortableFileProcessor processor(source.reader, &collector, 64);
  EXPECT_EQ(processor.getError(), ECANCELED);
  FailedSelector failed;
  processor.onClose(&failed, nullptr);
  EXPECT_TRUE(processor.waitTilDone(0));
  EXPECT_EQ(processor.getError(), ENOMEM);
}

TEST(PortableFileProcessorTest, OneReadForEachReadiness) {
  Collector collector;
  PortableFileProcessor processor(Source().reader, &collector, 1);
  processor.waitTilDone(10000);
  ScriptedFile file({1, 1, 1});
  EXPECT_TRUE(processor.onCanRead(nullptr, &file));
  EXPECT_EQ(file.reads, 1);
}

TEST(PortableFileProcessorTest, SeveralReadsForEachReadinessEndWithTheData) {
  Collector collector;
  PortableFileProcessor processor(Source().reader, &collector, 8);
  processor.waitTilDone(10000);
  processor.setReadsPerReadiness(3);
  ScriptedFile plenty({1, 1, 1, 1});
  EXPECT_TRUE(processor.onCanRead(nullptr, &plenty));
  EXPECT_EQ(plenty.reads, 3);
  EXPECT_EQ(plenty.lastSize, 8U);
  ScriptedFile blocking({1, -1, 1});
  EXPECT_TRUE(processor.onCanRead(nullptr, &blocking));
  EXPECT_EQ(blocking.reads, 2);
  ScriptedFile ending({1, 0, 1});
  EXPECT_FALSE(processor.onCanRead(nullptr, &ending));
  EXPECT_EQ(ending.reads, 2);
}

TEST(PortableFileProcessorTest, NoReadForAReadinessLeavesTheData) {
  Collector collector;
  PortableFileProcessor processor(Source().reader, &collector, 8);
  processor.waitTilDone(10000);
  processor.setReadsPerReadiness(0);
  ScriptedFile file({1});
  EXPECT_TRUE(processor.onCanRead(nullptr, &file));
  EXPECT_EQ(file.reads, 0);
  EXPECT_THAT(collector.blocks(), IsEmpty());
}

TEST(PortableFileProcessorTest, AFailedReadIsReportedAndEndsTheFile) {
  const LogCapture log;
  Collector collector;
  auto* const reader = new FailingPipe();
  const std::unique_ptr<LinuxPipe> writer(reader->openAnonymousPipe());
  const std::string file = text(reader);
  PortableFileProcessor processor(reader, &collector, 8);
  writer->write("x", 1);
  EXPECT_TRUE(processor.waitTilDone(10000));
  EXPECT_THAT(collector.errors(), ElementsAre("File processing error -2"));
  EXPECT_EQ(collector.ends, 1);
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&processor) + " File processing error -2"));
  EXPECT_THAT(log.messages(LOGGER, "TRACE"),
              Contains(testing::MatchesRegex(text(&processor) + " onError\\(0x[0-9a-f]+, " + file +
                                             ", -2\\)")));
}

TEST(PortableFileProcessorTest, NullIsDoneAtOnce) {
  const LogCapture log;
  Collector collector;
  LinuxPipe pipe;
  PortableFileProcessor withoutFile(nullptr, &collector, 8);
  PortableFileProcessor withoutProcessor(&pipe, nullptr, 8);
  EXPECT_FALSE(withoutFile.isRegistered());
  EXPECT_FALSE(withoutProcessor.isRegistered());
  EXPECT_TRUE(withoutFile.waitTilDone(60000));
  EXPECT_TRUE(withoutProcessor.waitTilDone(60000));
  EXPECT_EQ(collector.ends, 0);
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&withoutFile) + " null file or processor",
                          text(&withoutProcessor) + " null file or processor"));
}

TEST(PortableFileProcessorTest, AFileThatIsRefusedStaysTheCallersAndIsDoneAtOnce) {
  const LogCapture log;
  Collector collector;
  LinuxPipe closed;
  PortableFileProcessor processor(&closed, &collector, 8);
  EXPECT_FALSE(processor.isRegistered());
  EXPECT_TRUE(processor.waitTilDone(60000));
  EXPECT_EQ(collector.ends, 0);
  EXPECT_THAT(log.messages(LOGGER, "WARN"), ElementsAre(text(&processor) + " addFile failed"));
  processor.close();
}

TEST(PortableFileProcessorTest, WithoutASelectorNothingIsRegistered) {
  SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT();
  const LogCapture log;
  Collector collector;
  Source source;
  {
    const DescriptorShortage shortage(1, 64);
    PortableFileProcessor processor(source.reader, &collector, 8);
    EXPECT_FALSE(processor.isRegistered());
    EXPECT_TRUE(processor.waitTilDone(60000));
    EXPECT_THAT(log.messages(LOGGER, "WARN"), ElementsAre(text(&processor) + " addFile failed"));
  }
  EXPECT_NE(source.reader->getFd(), -1);
  delete source.reader;
}

std::string processWithoutMemory() {
  const LogCapture log;
  Collector collector;
  Source source;
  const rlimit limits = {1UL << 30, 1UL << 30};
  setrlimit(RLIMIT_AS, &limits);
  PortableFileProcessor processor(source.reader, &collector, 4000000000U);
  if (processor.isRegistered() || !processor.waitTilDone(60000)) {
    return "the processor runs without a buffer";
  }
  delete source.reader;
  const bool warned =
      log.has("WARN", LOGGER, text(&processor) + " could not allocate buffer size 4000000000");
  return warned ? "" : "no warning";
}

TEST(PortableFileProcessorTest, ABufferThatCannotBeHadIsDoneAtOnce) {
  SKIP_UNLESS_MEMORY_MAY_RUN_OUT();
  EXPECT_WELL_IN_FRESH_PROCESS(processWithoutMemory());
}

TEST(PortableFileProcessorTest, LogsItsLife) {
  const LogCapture log;
  Collector collector;
  Source source;
  source.writer->close();
  std::string self;
  {
    PortableFileProcessor processor(source.reader, &collector, 8);
    self = text(&processor);
    processor.waitTilDone(10000);
  }
  EXPECT_THAT(log.messages(LOGGER, "TRACE"),
              ElementsAre(self + " constructor", self + " waitTilDone(10000)", self + " destructor",
                          self + " close()"));
}

TEST(PortableFileProcessorTest, ANamedPipeIsReadAcrossItsWriters) {
  const TempDir temp;
  const std::string path = temp.file("fifo");
  Collector collector;
  auto* const reader = new LinuxPipe();
  reader->setNonBlocking(true);
  ASSERT_EQ(reader->openNamedPipe(path.c_str(), O_RDONLY | O_CREAT), 0);
  PortableFileProcessor processor(reader, &collector, 64);
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(writer, "abc", 3), 3);
    close(writer);
    expected += "abc";
  }
  EXPECT_TRUE(eventually([&] { return collector.all() == expected; }));
  EXPECT_EQ(collector.ends, 0);
  EXPECT_FALSE(processor.waitTilDone(1));
}

TEST(PortableFileProcessorTest, ClosingWhileDataArriveIsSafe) {
  kestrel::PipeSignal::ignore();
  for (int i = 0; i < 200; ++i) {
    Collector collector;
    Source source;
    PortableFileProcessor processor(source.reader, &collector, 16);
    std::thread writer([&source] {
      source.writer->write("some bytes", 10);  // fails when the reader is gone already
      source.writer->close();
    });
    if (i % 2 == 0) {
      writer.join();
    }
    processor.close();
    EXPECT_EQ(collector.ends, 1);
    if (i % 2 == 1) {
      writer.join();
    }
  }
}

}  // namespace
