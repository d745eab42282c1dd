#include <algorithm>
#include <atomic>
#include <deque>
#include <fcntl.h>
#include <latch>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <sys/select.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/LinuxSelector.h"
#include "kestrel/threads/Runnable.h"
#include "kestrel/threads/ThreadGroup.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/kestrel/exec/SelectCount.h"
#include "tests/kestrel/exec/SelectorSupport.h"
#include "tests/support/LogCapture.h"

// The loop of the selector: when it wakes up, how it ends, and several threads around it.
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

TEST(LinuxSelectorLoopTest, WithoutAnIntervalTheLoopSleepsUntilSomethingIsReady) {
  Recorder recorder;
  const WatchedPipe source;
  const SelectCount wakeUps;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  EXPECT_TRUE(eventually([&] { return wakeUps.count() == 1; }));  // the update
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(wakeUps.count(), 1U);
  source.write('a');
  EXPECT_TRUE(eventually([&] { return wakeUps.count() == 2; }));
}

// Sets an interval and wakes the loop so that it is taken up.
void applyInterval(LinuxSelector& selector, Recorder& recorder, const WatchedPipe& source,
                   double seconds) {
  dynamic_cast<kestrel::PortableSelectorExt*>(selector.ext())->setWakeUpInterval(seconds);
  const int reads = recorder.reads;
  source.write('x');
  EXPECT_TRUE(eventually([&] { return recorder.reads == reads + 1; }));
}

TEST(LinuxSelectorLoopTest, WithAnIntervalTheLoopWakesUpAgainAndAgain) {
  Recorder recorder;
  const WatchedPipe source;
  const SelectCount wakeUps;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  applyInterval(selector, recorder, source, 0.01);
  const unsigned before = wakeUps.count();
  const Stopwatch watch;
  EXPECT_TRUE(eventually([&] { return wakeUps.count() >= before + 20; }));
  EXPECT_GE(watch.seconds(), 0.15);
  applyInterval(selector, recorder, source, 1.5);
  const unsigned after = wakeUps.count();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LE(wakeUps.count(), after + 1);
  source.write('y');  // still reacts at once
  EXPECT_TRUE(eventually([&] { return recorder.lastByte == 'y'; }));
}

TEST(LinuxSelectorLoopTest, IntervalsThatAreNoneOrHugeDoNotDisturbTheLoop) {
  const LogCapture log(*kestrel::LogLevel::LVL_WARN);
  Recorder recorder;
  const WatchedPipe source;
  const SelectCount wakeUps;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  for (const double seconds :
       {-1.0, std::numeric_limits<double>::quiet_NaN(), 1e300, -1e300, 0.0,
        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
    applyInterval(selector, recorder, source, seconds);
    // At most the update of addFile() and the one time-out of the interval before may still come.
    const unsigned before = wakeUps.count();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_LE(wakeUps.count(), before + 2) << seconds;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(LinuxSelectorLoopTest, ATinyIntervalDoesNotMakeTheLoopSpin) {
  Recorder recorder;
  const WatchedPipe source;
  const SelectCount wakeUps;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  applyInterval(selector, recorder, source, 1e-12);
  const unsigned before = wakeUps.count();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LE(wakeUps.count(), before + 400);
  EXPECT_GE(wakeUps.count(), before + 2);
}

TEST(LinuxSelectorLoopTest, ClosingClosesEveryFile) {
  const std::size_t before = countDescriptors();
  {
    std::vector<WatchedPipe> sources(20);
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

TEST(LinuxSelectorLoopTest, ABrokenControlPipeEndsTheLoopAndClosingReturnsAtOnce) {
  const LogCapture log;
  Recorder recorder;
  const WatchedPipe source;
  const std::set<int> before = writablePipes();
  LinuxSelector selector;
  const int control = newPipe(before);
  ASSERT_TRUE(addPipe(selector, source, recorder));
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_NE(dup2(nothing, control), -1);
  close(nothing);
  EXPECT_TRUE(eventually([&] { return recorder.closes == 1; }));
  const Stopwatch watch;
  selector.closeSelector();
  EXPECT_LT(watch.seconds(), 1);
  WatchedPipe late;
  EXPECT_FALSE(addPipe(selector, late, recorder));
  delete late.reader;
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&selector) + " Control pipe is broken, closing..."));
}

TEST(LinuxSelectorLoopTest, AnInvalidDescriptorEndsTheLoop) {
  const LogCapture log;
  Recorder recorder;
  Recorder other;
  const WatchedPipe source;
  const WatchedPipe second;
  const int secondFd = second.reader->getFd();  // the pipe is the selector's soon
  const SelectCount wakeUps;
  LinuxSelector selector;
  ASSERT_TRUE(addPipe(selector, source, recorder));
  ASSERT_TRUE(addPipe(selector, second, other));
  EXPECT_TRUE(eventually([&] { return wakeUps.count() >= 1; }));
  close(secondFd);
  source.write('a');
  EXPECT_TRUE(eventually([&] { return other.closes == 1; }));
  EXPECT_EQ(recorder.closes, 1);
  selector.closeSelector();
  EXPECT_THAT(log.messages(LOGGER, "WARN"),
              ElementsAre(text(&selector) + " Select error: invalid file descriptor was given."));
}

// As dup2(2), unseen by a sanitizer that watches for threads sharing a descriptor.
void replaceDescriptor(int fd, int target) { syscall(SYS_dup3, fd, target, O_CLOEXEC); }

TEST(LinuxSelectorLoopTest, AStopThatIsLostIsWrittenAgain) {
  Recorder recorder;
  const WatchedPipe source;
  const SelectCount wakeUps;
  const std::set<int> before = writablePipes();
  LinuxSelector selector;
  const int control = newPipe(before);
  ASSERT_TRUE(addPipe(selector, source, recorder));
  ASSERT_TRUE(eventually([&] { return wakeUps.count() == 1; }));
  const int kept = fcntl(control, F_DUPFD_CLOEXEC, 0);
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  replaceDescriptor(nothing, control);
  const Stopwatch watch;
  std::thread closer([&selector] { selector.closeSelector(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(recorder.closes, 0);
  replaceDescriptor(kept, control);
  closer.join();
  EXPECT_LT(watch.seconds(), 5);
  EXPECT_EQ(recorder.closes, 1);
  close(kept);
  close(nothing);
}

TEST(LinuxSelectorLoopTest, AFullControlPipeNeitherStopsTheLoopNorItsEnd) {
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
  const WatchedPipe source;
  const std::set<int> before = writablePipes();
  LinuxSelector selector;
  const int control = newPipe(before);
  ASSERT_TRUE(addPipe(selector, source, holder));
  source.write('a');
  ASSERT_TRUE(eventually([&] { return holder.entered.load(); }));
  const std::string ignored(4096, 'x');
  while (write(control, ignored.data(), ignored.size()) > 0) {
  }
  holder.released = true;
  const Stopwatch watch;
  selector.closeSelector();
  EXPECT_LT(watch.seconds(), 10);
  EXPECT_EQ(holder.reads, 1);
  EXPECT_EQ(holder.closes, 1);
}

TEST(LinuxSelectorLoopTest, WithoutAControlPipeTheSelectorIsClosed) {
  SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT();
  const std::size_t before = countDescriptors();
  const LogCapture log;
  Recorder recorder;
  WatchedPipe source;
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

TEST(LinuxSelectorLoopTest, AControlPipeOutsideTheSelectSetCountsAsFailed) {
  Recorder recorder;
  WatchedPipe source;
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
  WatchedPipe source;
  LinuxSelector selector;
  if (addPipe(selector, source, recorder)) {
    return "a selector without a thread took a file";
  }
  delete source.reader;
  selector.closeSelector();
  return "";
}

TEST(LinuxSelectorLoopTest, WithoutAThreadTheSelectorIsClosed) {
  EXPECT_WELL_IN_FRESH_PROCESS(selectWithoutThreads());
}

// Somebody else's runner, which keeps its worker.
class Occupant : public kestrel::Runnable {
 public:
  void run() override {
    begun.count_down();
    end.wait();
    left.count_down();
  }
  std::latch begun{1};
  std::latch end{1};
  std::latch left{1};
};

TEST(LinuxSelectorLoopTest, WorkersThatAreBusyForOthersAreNotWaitedFor) {
  std::deque<Occupant> occupants(5);
  double quickest = 10;
  for (Occupant& occupant : occupants) {
    ASSERT_TRUE(kestrel::DefaultThreadGroup::Instance()->spawn(&occupant, false));
    occupant.begun.wait();
    const Stopwatch watch;
    const LinuxSelector selector;
    quickest = std::min(quickest, watch.seconds());
  }
  EXPECT_LT(quickest, 0.1);
  for (Occupant& occupant : occupants) {
    occupant.end.count_down();
    occupant.left.wait();
  }
}

TEST(LinuxSelectorLoopTest, SelectorsThatFollowOneAnotherShareOneWorker) {
  std::size_t withOneWorker = 0;
  for (int i = 0; i < 300; ++i) {
    const LinuxSelector selector;
    withOneWorker = i == 0 ? countThreads() : withOneWorker;
  }
  EXPECT_EQ(countThreads(), withOneWorker);
}

TEST(LinuxSelectorLoopTest, SeveralThreadsAddAndCloseFiles) {
  LinuxSelector selector;
  std::atomic<int> problems{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&selector, &problems] {
      for (int round = 0; round < 50; ++round) {
        Recorder recorder;
        const WatchedPipe source;
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
}

TEST(LinuxSelectorLoopTest, ManySelectorsComeAndGo) {
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
