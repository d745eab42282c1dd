// Recordings that were cut off, and recordings whose sizes and counts lie: each conversion ends by
// itself, says what is wrong once in each pass, and writes a valid document, in memory that is
// bounded by what the file holds and not by what it claims.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/app/Conversion.h"
#include "tests/app/ProgramRun.h"
#include "tests/app/Recordings.h"
#include "tests/faults/BentFiles.h"
#include "tests/faults/ExpectedComplaint.h"
#include "tests/faults/LongTests.h"
#include "tests/faults/PeakMemory.h"

namespace {

using testing::ElementsAreArray;

// Names are written as they are recorded; what is left must be JSON.
std::string withPlainNames(std::string document) {
  std::replace_if(
      document.begin(), document.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; },
      ' ');
  std::replace_if(
      document.begin(), document.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7e; },
      '?');
  return document;
}

// Five tables whose rows have a value for each description.
void expectTables(const nlohmann::json& document) {
  for (const char* const name : {"samples", "libraries", "functions", "processes", "files"}) {
    ASSERT_TRUE(document.contains(name));
    const nlohmann::json& table = document[name];
    // "bt.ip" and "bt.mapkey" describe one column.
    const std::size_t columns =
        table["descriptions"].size() - (std::string(name) == "samples" ? 1U : 0U);
    for (const nlohmann::json& row : table["data"]) {
      ASSERT_EQ(row.size(), columns) << name;
    }
  }
  EXPECT_EQ(document.size(), 5U);
}

class BentFileTest : public testing::Test {
 protected:
  BentFileTest() {
    folder_.write("test.conf",
                  "{\"kernelSymbolFile\": \"kernel.syms\", \"symbolCacheDir\": \"cache\",\n"
                  "\"freezeSymbolCache\": true, \"log\": {\"level\": \"ERROR\"}}");
  }

  ~BentFileTest() override {
    std::cout << tried_ << " files tried" << std::endl;
    EXPECT_GT(tried_, 0U);
  }

  // Every `stride_`th file is tried.
  BentFileVisitor check() {
    return [this](const std::string& what, const std::string& bytes) {
      if (visited_++ % stride_ == 0 && !HasFailure()) {
        SCOPED_TRACE(what);
        ++tried_;
        _check(bytes);
      }
    };
  }

  // Of files that are too many for an ordinary run.
  void tryFewOnly(std::size_t stride) { stride_ = areLongTests() ? 1 : stride; }

 private:
  void _check(const std::string& bytes) {
    folder_.write("recording.perf", bytes);
    const ProgramResult result =
        ProgramRun(folder_.path())
            .arguments({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"})
            .run();
    const std::string complaint = expectedComplaint(bytes);
    LogTexts errors(complaint.empty() ? 0 : 2, "ERROR [PerfRecordFileReader] " + complaint);
    if (complaint == NO_ATTRIBUTES) {
      errors = {std::string("ERROR [main] ") + NO_ATTRIBUTES};
    }
    EXPECT_EQ(result.status, complaint == NO_ATTRIBUTES ? 1 : 0);
    EXPECT_THAT(readLog(result.out), ElementsAreArray(errors));
    EXPECT_EQ(result.err, "");
    expectPeakMemoryWithin(result, bytes.size());

    const nlohmann::json document =
        nlohmann::json::parse(withPlainNames(folder_.read("document.json")), nullptr, false);
    ASSERT_TRUE(document.is_object());
    if (result.status == 0) {
      expectTables(document);
    }
  }

  const TempDir folder_;
  std::size_t stride_ = 1;
  std::size_t visited_ = 0;
  std::size_t tried_ = 0;
};

// One of each record, with each count that a sample may have.
std::string builtFile() {
  constexpr uint64_t LAYOUT = WITH_CALLCHAIN | 0x10 | 0x400;  // READ, RAW
  constexpr uint64_t GROUP_WITH_IDS = 0x8 | 0x4;
  PerfFileBuilder file;
  file.attribute(Attr().sampleType(LAYOUT).readFormat(GROUP_WITH_IDS).ids({1, 2}));
  file.attribute(Attr().sampleType(LAYOUT).readFormat(GROUP_WITH_IDS).ids({3}));
  file.eventType(1, "cycles").eventType(2, "faults");
  file.comm(10, 10, "app").mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  file.record(2, Body().u64(1).u64(5));                           // LOST
  file.record(4, Body().u32(11).u32(10).u32(11).u32(10).u64(1));  // EXIT
  file.record(5, Body().u64(1).u64(1).u64(1));                    // THROTTLE
  file.record(6, Body().u64(1).u64(1).u64(1));                    // UNTHROTTLE
  file.record(7, Body().u32(12).u32(10).u32(12).u32(10).u64(1));  // FORK
  file.record(8, Body().u32(10).u32(10).zeros(40));               // READ
  file.record(68, Body());                                        // of perf itself, without a body
  SampleFields fields = withChain(at(SECOND, 0x8010, 10, 10), {CONTEXT_USER, 0x8010, 0x9000});
  fields.readBlock = Body().u64(2).u64(100).u64(1).u64(200).u64(2).str();
  fields.raw = "raw bytes..";
  file.sample(fields).sample(fields);
  return file.bytes();
}

// The layouts that perf record writes most, and the smallest attributes.
std::string commonFile(uint64_t layout) {
  PerfFileBuilder file;
  file.attribute(Attr().sampleType(layout).structureSize(64));
  file.comm(10, 10, "app").mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  SampleFields fields = withChain(at(SECOND, 0x8010, 10, 10), {0x8010, 0x9000});
  fields.raw = "1234";
  return file.sample(fields).sample(fields).bytes();
}

std::string recordedFile() {
  std::ifstream in(DEMO_FOLDER "/demo.perf.data", std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<unsigned char> masks() {
  if (areLongTests()) {
    return {0xff, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80};
  }
  return {0xff, 0x01};
}

}  // namespace

TEST_F(BentFileTest, SoundFilesThemselves) {
  for (const std::string& file :
       {builtFile(), commonFile(0x4C7), commonFile(0x487), commonFile(0x5A7), recordedFile()}) {
    check()("sound", file);
    EXPECT_EQ(expectedComplaint(file), "");
  }
}

TEST_F(BentFileTest, BuiltFileCut) { visitCuts(builtFile(), check()); }

TEST_F(BentFileTest, BuiltFileCutAnywhere) {
  const std::string file = builtFile();
  tryFewOnly(7);
  for (std::size_t size = 0; size <= file.size(); ++size) {
    check()("cut at " + std::to_string(size), file.substr(0, size));
  }
}

TEST_F(BentFileTest, BuiltFileWithFlippedHeaderBytes) {
  visitFlippedHeaderBytes(builtFile(), masks(), check());
}

TEST_F(BentFileTest, BuiltFileWithChangedFields) { visitChangedFields(builtFile(), check()); }

TEST_F(BentFileTest, CommonLayouts) {
  for (const uint64_t layout : {0x4C7U, 0x487U, 0x5A7U}) {
    visitCuts(commonFile(layout), check());
    visitChangedFields(commonFile(layout), check());
  }
}

TEST_F(BentFileTest, RecordedFileCut) {
  tryFewOnly(97);
  visitCuts(recordedFile(), check());
}

TEST_F(BentFileTest, RecordedFileWithFlippedHeaderBytes) {
  tryFewOnly(5);
  visitFlippedHeaderBytes(recordedFile(), masks(), check());
}

TEST_F(BentFileTest, RecordedFileWithChangedFields) {
  tryFewOnly(37);
  const std::size_t records = areLongTests() ? 500 : 100;  // of each kind
  visitChangedFields(withFewRecords(recordedFile(), records, records), check());
}
