// A conversion in which one call of the C library fails, once, at every place: whatever it is, the
// document is the same or an error says why not, no list that is not whole is kept, and the run
// ends.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/DriverRun.h"
#include "tests/app/SymbolRun.h"
#include "tests/faults/LongTests.h"

namespace {

constexpr unsigned LONGEST_RUN = 20;  // seconds

// Enough samples for the thread that writes rows, too.
PerfFileBuilder longSymbolRecording() {
  PerfFileBuilder recording = symbolRecording();
  for (unsigned i = 0; i < 1500; ++i) {
    recording.sample(at(3 * SECOND + i, 0x8110, 10, 10));
  }
  return recording;
}

// Longer than a pipe's block and a stream's buffer.
std::string longList() {
  std::string list = LIBRARY_LIST;
  for (int i = 0; i < 2000; ++i) {
    list += "00003000 D data" + std::to_string(i) + "\n";
  }
  return list;
}

// The parameter: the call that fails, by its name in FailingCalls.cpp.
class FailingCallTest : public testing::TestWithParam<const char*> {
 protected:
  FailingCallTest() : symbols_(longSymbolRecording()) {
    symbols_.addFile("lib/libx.so", longList(), LIBRARY_TIME);
    symbols_.folder().write("kernel.syms", "c0008000 T _text\nc0009000 T _etext\n");
    symbols_.folder().write("test.conf",
                            R"({"kernelSymbolFile": "kernel.syms", "symbolCacheDir": "cache",)"
                            R"( "onTargetMode": true, "log": {"level": "INFO"}})");
  }

  ProgramRun program() const {
    ProgramRun run(symbols_.folder().path());
    run.arguments({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"});
    return run.lister("./lister -x").longest(LONGEST_RUN);
  }

  // Whether there was such a call.
  bool convertWithFailure(unsigned at) {
    std::filesystem::remove_all(symbols_.folder().file("cache"));
    std::filesystem::remove(symbols_.folder().file("document.json"));
    std::filesystem::remove(symbols_.folder().file("failed"));
    const ProgramResult result = program()
                                     .variable("LD_PRELOAD", FAILING_CALLS)
                                     .variable("FAILING_CALL", GetParam())
                                     .variable("FAILING_AT", std::to_string(at))
                                     .variable("FAILING_REPORT", "failed")
                                     .run();
    if (!symbols_.folder().has("failed")) {
      return false;
    }
    SCOPED_TRACE("call " + std::to_string(at) + "\n" + result.out + result.err);
    // What is said before there is a log goes to standard error.
    const bool isExplained = result.out.find(" ERROR ") != std::string::npos ||
                             (result.status == 1 && !result.err.empty());
    EXPECT_TRUE(result.status == 0 || result.status == 1) << result.status;
    // Symbols are left out of a document that is whole but for them; the recording is not.
    if (result.out.find("[PerfRecordFileReader]: ERROR") != std::string::npos) {
      EXPECT_EQ(result.status, 1);
    }
    EXPECT_TRUE(isExplained || (result.status == 0 && document() == expected_));
    expectRightDocumentOfNextRun();
    return true;
  }

  void expectRightDocumentOfNextRun() {
    const ProgramResult next = program().run();
    EXPECT_EQ(next.status, 0) << next.out << next.err;
    EXPECT_EQ(document(), expected_) << "of the next run\n" << next.out << next.err;
  }

  std::string document() const { return symbols_.folder().read("document.json"); }

  SymbolRun symbols_;
  std::string expected_;
};

}  // namespace

TEST_P(FailingCallTest, DocumentIsTheSameOrAnErrorSaysWhyNot) {
  ASSERT_EQ(program().run().status, 0);
  expected_ = document();
  // Every reading matters to one pass or the other.
  const std::string call = GetParam();
  const unsigned sample = call == "malloc" ? 41 : call == "read" ? 1 : 7;
  const unsigned stride = areLongTests() ? 1 : sample;
  unsigned tried = 0;
  for (unsigned at = 1; convertWithFailure(at); at += stride) {
    ++tried;
  }
  std::cout << tried << " calls of " << call << std::endl;
  EXPECT_GT(tried, 0U);
}

INSTANTIATE_TEST_SUITE_P(, FailingCallTest,
                         testing::Values("read", "write", "writev", "open", "fopen", "fclose",
                                         "rename", "select", "poll", "fcntl", "fork", "pipe",
                                         "pthread_create", "malloc", "lseek", "stat"),
                         [](const auto& call) { return std::string(call.param); });
