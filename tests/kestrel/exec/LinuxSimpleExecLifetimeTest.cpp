// Listeners, disposal and what several threads may do to a process runner at once.
#include <atomic>
#include <linux/sched.h>
#include <memory>
#include <sched.h>
#include <signal.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/LinuxSimpleExec.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/LogCapture.h"

namespace {

using kestrel::LinuxSimpleExec;
using kestrel::PortablePipe;
using kestrel::SimpleExec;
using testing::Contains;

constexpr const char* LOGGER = "LinuxSimpleExec";

bool noInstances() {
  return eventually([] { return LinuxSimpleExec::getInstanceCount() == 0; });
}

// Notes what it is told; a test derives what it does about it.
class Listener : public SimpleExec::ExitListener {
 public:
  void onExit(SimpleExec* exec, int exitStatus) override {
    status = exitStatus;
    fieldDuringCall = exec->getExitStatus();
    runningDuringCall = exec->isRunning();
    ++calls;
    react(exec);
  }
  virtual void react(SimpleExec* /*exec*/) {}

  std::atomic<int> calls{0};
  std::atomic<int> status{-100};
  std::atomic<int> fieldDuringCall{-100};
  std::atomic<bool> runningDuringCall{false};
};

// Stays in its call until it is released.
class HoldingListener : public Listener {
 public:
  void react(SimpleExec* exec) override {
    eventually([this] { return released.load(); });
    act(exec);
    left = true;
  }
  virtual void act(SimpleExec* /*exec*/) {}

  std::atomic<bool> released{false};
  std::atomic<bool> left{false};
};

TEST(LinuxSimpleExecLifetimeTest, TheListenerIsToldBeforeTheStatusIsStored) {
  Listener listener;
  const ExecPtr exec = makeExec();
  exec->exec(shell("exit 7"), &listener);
  exec->waitTilDone(0);
  EXPECT_EQ(listener.calls, 1);
  EXPECT_EQ(listener.status, 7);
  EXPECT_EQ(listener.fieldDuringCall, -1);
  EXPECT_TRUE(listener.runningDuringCall);
  EXPECT_EQ(exec->getExitStatus(), 7);
}

TEST(LinuxSimpleExecLifetimeTest, TheListenerIsToldOfACommandThatCouldNotBeExecuted) {
  Listener listener;
  const ExecPtr exec = makeExec();
  exec->exec({"/no/such/command", "argument"}, &listener);
  exec->waitTilDone(0);
  EXPECT_EQ(listener.calls, 1);
  EXPECT_EQ(listener.status, -5);
}

TEST(LinuxSimpleExecLifetimeTest, TheListenerIsNotToldOfACommandThatWasNeverStarted) {
  Listener listener;
  const ExecPtr exec = makeExec();
  EXPECT_EQ(exec->exec("", "", &listener), -2);
  exec->waitTilDone(0);
  EXPECT_EQ(listener.calls, 0);
}

TEST(LinuxSimpleExecLifetimeTest, WaitersWakeAfterTheListenerHasReturned) {
  HoldingListener listener;
  const ExecPtr exec = makeExec();
  exec->exec({"true"}, &listener);
  EXPECT_TRUE(eventually([&] { return listener.calls == 1; }));
  EXPECT_EQ(exec->waitTilDone(50), -1);
  listener.released = true;
  EXPECT_EQ(exec->waitTilDone(0), 0);
  EXPECT_TRUE(listener.left);
}

TEST(LinuxSimpleExecLifetimeTest, AnObjectWithoutAChildIsDeletedAtOnce) {
  makeExec().reset();
  EXPECT_EQ(LinuxSimpleExec::getInstanceCount(), 0U);
  SimpleExec* const exec = kestrel::SimpleExecFactory::createInstance();
  EXPECT_EQ(LinuxSimpleExec::getInstanceCount(), 1U);
  exec->exec({"true"}, nullptr);
  exec->waitTilDone(0);
  exec->selfDestruct();
  EXPECT_EQ(LinuxSimpleExec::getInstanceCount(), 0U);
}

TEST(LinuxSimpleExecLifetimeTest, AnObjectWhoseChildRunsIsDeletedAtItsEnd) {
  const std::size_t before = countDescriptors();
  const LogCapture log;
  Listener listener;
  ExecPtr exec = makeExec();
  exec->exec({"sleep", "60"}, &listener);
  const std::string self = text(exec.get()) + " [sleep] ";
  const pid_t pid = exec->getPid();
  exec.reset();
  EXPECT_EQ(LinuxSimpleExec::getInstanceCount(), 1U);
  EXPECT_TRUE(processExists(pid));
  kill(pid, SIGKILL);
  EXPECT_TRUE(noInstances());
  EXPECT_EQ(listener.calls, 0);
  EXPECT_FALSE(processExists(pid));
  EXPECT_EQ(countDescriptors(), before);
  EXPECT_THAT(log.messages(LOGGER, "TRACE"), Contains(self + "selfDestruct()"));
  EXPECT_EQ(log.messages(LOGGER, "DEBUG").back(), self + "self destructing control flow");
  EXPECT_FALSE(log.has("DEBUG", LOGGER, self + "notifying interested parties, control flow ends"));
}

TEST(LinuxSimpleExecLifetimeTest, AListenerMayDisposeOfTheObject) {
  class Disposer : public Listener {
   public:
    void react(SimpleExec* exec) override {
      exec->selfDestruct();
      instances = LinuxSimpleExec::getInstanceCount();
    }
    std::atomic<unsigned> instances{0};
  };
  for (int i = 0; i < 50; ++i) {
    const LogCapture log;
    Disposer disposer;
    // The child may have ended, and the object be gone, before exec() returns.
    EXPECT_EQ(kestrel::SimpleExecFactory::createInstance()->exec({"true"}, &disposer), -1);
    ASSERT_TRUE(noInstances());
    EXPECT_EQ(disposer.calls, 1);
    EXPECT_EQ(disposer.status, 0);
    EXPECT_EQ(disposer.instances, 1U);  // it lives until the call has returned
    EXPECT_THAT(log.messages(LOGGER, "DEBUG").back(),
                testing::EndsWith(" [true] self destructing control flow"));
  }
}

TEST(LinuxSimpleExecLifetimeTest, DisposalFromAnotherThreadWaitsForARunningListener) {
  HoldingListener listener;
  ExecPtr exec = makeExec();
  exec->exec({"true"}, &listener);
  ASSERT_TRUE(eventually([&] { return listener.calls == 1; }));
  std::atomic<bool> returned{false};
  std::thread disposer([&] {
    exec.reset();
    EXPECT_TRUE(listener.left);
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(returned);
  EXPECT_EQ(LinuxSimpleExec::getInstanceCount(), 1U);
  listener.released = true;
  disposer.join();
  EXPECT_EQ(LinuxSimpleExec::getInstanceCount(), 0U);
}

TEST(LinuxSimpleExecLifetimeTest,
     DisposalAtTheVeryEndOfAChildNeitherLeaksNorCallsTheListenerLater) {
  for (int i = 0; i < 200; ++i) {
    auto listener = std::make_unique<Listener>();
    ExecPtr exec = makeExec();
    exec->exec({"true"}, listener.get());
    std::this_thread::sleep_for(std::chrono::microseconds(i * 20));
    exec.reset();
    listener.reset();  // a later call would be caught by the sanitizers
  }
  EXPECT_TRUE(noInstances());
}

// Makes a process of the given id that does nothing. False when this system does not allow it.
bool impersonate(pid_t pid) {
#ifdef SYS_clone3
  pid_t wanted = pid;
  clone_args arguments = {};
  arguments.exit_signal = SIGCHLD;
  arguments.set_tid = reinterpret_cast<std::uintptr_t>(&wanted);
  arguments.set_tid_size = 1;
  const long result = syscall(SYS_clone3, &arguments, sizeof(arguments));
  if (result == 0) {
    for (;;) {
      pause();
    }
  }
  return result == pid;
#else
  static_cast<void>(pid);
  return false;
#endif
}

TEST(LinuxSimpleExecLifetimeTest, NoSignalIsSentOnceTheChildIsReaped) {
  HoldingListener listener;
  const ExecPtr exec = makeExec();
  exec->exec({"true"}, &listener);
  ASSERT_TRUE(eventually([&] { return listener.calls == 1; }));
  const pid_t pid = exec->getPid();
  EXPECT_FALSE(processExists(pid));  // reaped before the listener is told
  EXPECT_TRUE(exec->isRunning());
  const bool possible = impersonate(pid);
  exec->terminate(true);
  exec->terminate(false);
  if (possible) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "another process was killed";
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  listener.released = true;
  exec->waitTilDone(0);
  exec->terminate(true);
  if (!possible) {
    GTEST_SKIP() << "no process of a chosen id can be made here";
  }
}

TEST(LinuxSimpleExecLifetimeTest, AChildStaysUntilItIsReapedUnderTheLock) {
  // terminate() against the end of the child, again and again: what it hits is the child or
  // nothing.
  for (int i = 0; i < 200; ++i) {
    const ExecPtr exec = makeExec();
    exec->exec({"true"}, nullptr);
    while (exec->isRunning()) {
      exec->terminate(i % 2 == 0);
      exec->getPid();
    }
    EXPECT_THAT(exec->getExitStatus(), testing::AnyOf(0, -7));
  }
}

TEST(LinuxSimpleExecLifetimeTest, SeveralThreadsRunCommandsAtOnce) {
  const std::size_t before = countDescriptors();
  std::atomic<int> problems{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&problems, i] {
      for (int round = 0; round < 20; ++round) {
        const std::string word = std::to_string(i) + "-" + std::to_string(round);
        problems += outputOf({"echo", word}) == word + "\n" ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(problems, 0);
  EXPECT_TRUE(noInstances());
  EXPECT_EQ(countDescriptors(), before);
}

TEST(LinuxSimpleExecLifetimeTest, SeveralThreadsWaitForOneChild) {
  const ExecPtr exec = makeExec();
  exec->exec({"sleep", "0.3"}, nullptr);
  std::atomic<int> woken{0};
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 6; ++i) {
    threads.emplace_back([&exec, &woken, i] {
      const bool executed = exec->waitTilExecuted();
      const int done = exec->waitTilDone(i % 2 == 0 ? 0 : 60000);
      woken += executed && done == 0 && exec->getExitStatus() == 0 ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(woken, 6);
}

TEST(LinuxSimpleExecLifetimeTest, UnclaimedEndsAreClosedWithTheObject) {
  const std::size_t before = countDescriptors();
  {
    const ExecPtr exec = makeExec();
    exec->exec({"true"}, nullptr);
    const std::unique_ptr<PortablePipe> claimed(exec->claimWritePipe());
    exec->waitTilDone(0);
    EXPECT_EQ(countDescriptors(), before + 3);
  }
  EXPECT_EQ(countDescriptors(), before);
}

}  // namespace
