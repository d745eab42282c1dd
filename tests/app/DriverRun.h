// A folder in which a test runs tracemill with a command line and files of its own. Logs go to
// run.log at INFO, the cache to cache/, the kernel's symbol list is kernel.syms.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/ProgramRun.h"
#include "tests/app/Recordings.h"
#include "tests/support/TempDir.h"

class DriverRun {
 public:
  // A simple recording is there as recording.perf.
  DriverRun() { folder_.write("recording.perf", simpleRecording(IP_TID_TIME_CPU).bytes()); }

  const TempDir& folder() const { return folder_; }

  // Writes test.conf with these members besides those for log, cache and kernel.
  void configure(const std::string& members = "") const {
    folder_.write("test.conf",
                  "{\"log\": {\"level\": \"INFO\", \"adapter\": "
                  "{\"type\": \"file\", \"baseName\": \"run.log\"}},\n"
                  "\"kernelSymbolFile\": \"kernel.syms\", \"symbolCacheDir\": \"cache\",\n" +
                      members + "}\n");
  }

  ProgramRun program(const std::vector<std::string>& words) const {
    return ProgramRun(folder_.path()).arguments(words);
  }

  ProgramResult run(const std::vector<std::string>& words) const { return program(words).run(); }
  // recording.perf, with test.conf, into document.json.
  ProgramResult convert() const {
    return run({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"});
  }

  // What the driver itself logged in the last run.
  LogTexts log() const { return linesOf(readLog(folder_.read("run.log")), "main"); }

 private:
  TempDir folder_;
};

class DriverFixture : public testing::Test {
 protected:
  const DriverRun driver_;
};

inline const char* const NO_KERNEL =
    "INFO [main] Failed to load kernel symbols.  size:0 range:bf000000-cf000000 from kernel.syms";
inline const char* const COMPLETED = "INFO [main] Conversion completed in # seconds.";
