// Documents that cannot be written whole, and standard output that is not there.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/DriverRun.h"
#include "tests/app/GoldenDocument.h"

namespace {

using testing::ElementsAre;
using Output = ProgramRun::Output;

const char* const INCOMPLETE =
    "ERROR [main] Cannot write standard output, the document is incomplete.";

const std::vector<std::string> TO_STANDARD_OUTPUT = {"-c", "test.conf", "-i", "recording.perf"};

// A document of some hundred thousand bytes: it does not fit into a buffer.
std::string longRecording() {
  PerfFileBuilder recording = simpleRecording(IP_TID_TIME_CPU);
  for (unsigned i = 0; i < 10000; ++i) {
    recording.sample(at(10 * SECOND + i, 0x8010, 10, 10));
  }
  return recording.bytes();
}

// The driver's lines of a run with this standard output; it must fail, but not be killed.
LogTexts failedRun(Output output, bool longDocument) {
  const DriverRun driver;
  driver.configure();
  if (longDocument) {
    driver.folder().write("recording.perf", longRecording());
  }
  const ProgramResult result = driver.program(TO_STANDARD_OUTPUT).standardOutput(output).run();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
  return driver.log();
}

using DriverOutputTest = DriverFixture;

}  // namespace

TEST_F(DriverOutputTest, FullDiskUnderTheOutputFile) {
  for (const bool longDocument : {false, true}) {
    const DriverRun driver;
    driver.configure();
    if (longDocument) {
      driver.folder().write("recording.perf", longRecording());
    }
    const ProgramResult result =
        driver.run({"-c", "test.conf", "-i", "recording.perf", "-o", "/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(
        driver.log(),
        ElementsAre(NO_KERNEL, "ERROR [main] Cannot write /dev/full, the document is incomplete."));
  }
}

TEST_F(DriverOutputTest, FullDiskUnderStandardOutput) {
  EXPECT_THAT(failedRun(Output::FULL_DISK, false), ElementsAre(NO_KERNEL, INCOMPLETE));
  EXPECT_THAT(failedRun(Output::FULL_DISK, true), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(DriverOutputTest, ClosedPipe) {
  EXPECT_THAT(failedRun(Output::CLOSED_PIPE, false), ElementsAre(NO_KERNEL, INCOMPLETE));
  EXPECT_THAT(failedRun(Output::CLOSED_PIPE, true), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(DriverOutputTest, ClosedStandardOutput) {
  EXPECT_THAT(failedRun(Output::CLOSED, false), ElementsAre(NO_KERNEL, INCOMPLETE));
  EXPECT_THAT(failedRun(Output::CLOSED, true), ElementsAre(NO_KERNEL, INCOMPLETE));
}

TEST_F(DriverOutputTest, ClosedStandardOutputNeverLetsTheDocumentIntoAnotherFile) {
  driver_.configure();
  const std::string recording = driver_.folder().read("recording.perf");
  driver_.program(TO_STANDARD_OUTPUT).standardOutput(Output::CLOSED).run();
  EXPECT_EQ(driver_.folder().read("recording.perf"), recording);
  EXPECT_EQ(driver_.folder().read("run.log").find("samples\""), std::string::npos);
}

TEST_F(DriverOutputTest, ClosedStandardOutputDoesNotMatterToAnOutputFile) {
  driver_.configure();
  const ProgramResult result =
      driver_.program({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"})
          .standardOutput(Output::CLOSED)
          .run();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, COMPLETED));
}

TEST_F(DriverOutputTest, LogLinesThatNobodyReadsDoNotMatterToAnOutputFile) {
  for (const Output output : {Output::CLOSED, Output::CLOSED_PIPE, Output::FULL_DISK}) {
    const DriverRun driver;
    driver.folder().write("test.conf", "{\"kernelSymbolFile\": \"kernel.syms\"}");
    const ProgramResult result =
        driver.program({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"})
            .standardOutput(output)
            .run();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(matchesGolden("simple", driver.folder().read("document.json")));
  }
}

TEST_F(DriverOutputTest, AppendedDocumentThatDoesNotFitIsIncompleteToo) {
  driver_.configure("\"outputFile\": \"/dev/full\", \"appendOutput\": true");
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-i", "recording.perf"}).status, 1);
  EXPECT_THAT(
      driver_.log(),
      ElementsAre(NO_KERNEL, "ERROR [main] Cannot write /dev/full, the document is incomplete."));
}
