// What is not promised, so that nobody finds out by accident.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/app/Conversion.h"
#include "tests/app/DriverRun.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// The rows of a small recording's samples.
std::string rowsOf(const std::vector<std::string>& arguments) {
  return Conversion(simpleRecording(IP_TID_TIME_CPU)).arguments(arguments).run().sampleRows();
}

}  // namespace

TEST(LimitsTest, NamesOfFilesAreWrittenAsTheyAreRecorded) {
  for (const std::string name : {"/lib/\x01.so", "/lib/\xff\xfe.so"}) {
    PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
    recording.mmap(1, 1, 0x8000, 0x1000, 0, name).sample(at(SECOND, 0x8000, 1, 1));
    const ConversionResult result = Conversion(recording).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.document, HasSubstr("\"" + name + "\""));
    EXPECT_FALSE(nlohmann::json::accept(result.document));
  }
}

TEST(LimitsTest, TimesThatAreNoNumbersAreWrittenAsTheyAre) {
  EXPECT_THAT(rowsOf({"-s", "1", "-A", "1e308"}), HasSubstr(",inf,"));
}

TEST(LimitsTest, OneFileAsInputAndOutputIsDestroyed) {
  const DriverRun driver;
  driver.configure();
  const ProgramResult result =
      driver.run({"-c", "test.conf", "-i", "recording.perf", "-o", "recording.perf"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(readLog(driver.folder().read("run.log")), "PerfRecordFileReader"),
              ElementsAre("ERROR [PerfRecordFileReader] Perf file is of insufficient size.",
                          "ERROR [PerfRecordFileReader] Perf file is of insufficient size."));
  EXPECT_THAT(driver.folder().read("recording.perf"), testing::StartsWith("{\"samples\":"));
}
