// What the tests of child processes, pipes and selectors share.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

#include "kestrel/exec/LinuxSimpleExec.h"
#include "kestrel/exec/PortableFile.h"

struct SelfDestruct {
  void operator()(kestrel::SimpleExec* exec) const { exec->selfDestruct(); }
};
using ExecPtr = std::unique_ptr<kestrel::LinuxSimpleExec, SelfDestruct>;

ExecPtr makeExec();

// The words that run a script: /bin/sh -c `script`.
std::vector<std::string> shell(const std::string& script);

// Runs a command to its end and returns its standard output.
std::string outputOf(const std::vector<std::string>& command);

// Everything up to the end of data or an error. Waits for a pipe that does not block.
std::string readAll(kestrel::PortableFile& file);

// As "%p" prints it.
std::string text(const void* address);

std::size_t countThreads();
std::size_t countDescriptors();
// Descriptors of pipes' writing ends, and one that is not among those of `before`; -1 if none is.
std::set<int> writablePipes();
int newPipe(const std::set<int>& before);
bool processExists(pid_t pid);

// Tests again and again until it is true; false after ten seconds.
bool eventually(const std::function<bool()>& condition);

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Which sanitizer is at work; the undefined behaviour sanitizer comes with the one for addresses.
#if defined(__SANITIZE_ADDRESS__)
#define EXEC_TESTS_WITH_ASAN 1
#elif defined(__SANITIZE_THREAD__)
#define EXEC_TESTS_WITH_TSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define EXEC_TESTS_WITH_ASAN 1
#elif __has_feature(thread_sanitizer)
#define EXEC_TESTS_WITH_TSAN 1
#endif
#endif

// The undefined behaviour sanitizer opens pipes of its own to look at objects, and takes all
// objects for broken when it gets none.
#ifdef EXEC_TESTS_WITH_ASAN
#define SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT() GTEST_SKIP() << "the sanitizer needs descriptors"
#else
#define SKIP_UNLESS_DESCRIPTORS_MAY_RUN_OUT() static_cast<void>(0)
#endif

// Sanitizers keep tables far larger than any limit on memory; the emulator of 64-bit processors
// sets no limit at all.
#if defined(EXEC_TESTS_WITH_ASAN) || defined(EXEC_TESTS_WITH_TSAN)
#define SKIP_UNLESS_MEMORY_MAY_RUN_OUT() GTEST_SKIP() << "the sanitizer needs memory"
#elif defined(TRACEMILL_EMULATED) && __SIZEOF_POINTER__ > 4
#define SKIP_UNLESS_MEMORY_MAY_RUN_OUT() GTEST_SKIP() << "the emulator sets no limit on memory"
#else
#define SKIP_UNLESS_MEMORY_MAY_RUN_OUT() static_cast<void>(0)
#endif

// Takes descriptors until none is left but `spare`, and gives them back at the end of the scope.
// With `limit` the soft limit is that many descriptors meanwhile.
class DescriptorShortage {
 public:
  DescriptorShortage(unsigned spare, unsigned limit);
  ~DescriptorShortage();
  DescriptorShortage(const DescriptorShortage&) = delete;
  DescriptorShortage& operator=(const DescriptorShortage&) = delete;

 private:
  rlim_t formerLimit_;
  std::vector<int> taken_;
};

// Takes every descriptor below FD_SETSIZE, so that new ones lie outside the select set.
class SelectSetFilled {
 public:
  SelectSetFilled();
  ~SelectSetFilled();
  SelectSetFilled(const SelectSetFilled&) = delete;
  SelectSetFilled& operator=(const SelectSetFilled&) = delete;

 private:
  rlim_t formerLimit_;
  std::vector<int> taken_;
};

// Runs `body` in a process of its own that starts afresh, for what would spoil the test's process.
// The body returns an empty text when all is well, else what is wrong.
#define EXPECT_WELL_IN_FRESH_PROCESS(body)                       \
  do {                                                           \
    GTEST_FLAG_SET(death_test_style, "threadsafe");              \
    EXPECT_EXIT(exitWith(body), testing::ExitedWithCode(0), ""); \
  } while (false)

[[noreturn]] void exitWith(const std::string& complaint);
