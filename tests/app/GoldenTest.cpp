// Whole runs: a recording built here, converted by the real program, and the document compared with
// the one in tests/golden.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/Recordings.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Converts and compares; the run must succeed and complain about nothing.
ConversionResult expectGolden(const std::string& name, const Conversion& conversion) {
  ConversionResult result = conversion.run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.complaints(), IsEmpty());
  EXPECT_TRUE(matchesGolden(name, result.document));
  return result;
}

PerfFileBuilder appRecording(uint64_t layout = IP_TID_TIME_CPU) {
  PerfFileBuilder recording = recordingOf(layout);
  recording.comm(10, 10, "app").mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  return recording;
}

PerfFileBuilder chainRecording() {
  PerfFileBuilder recording = appRecording(WITH_CALLCHAIN);
  recording.comm(10, 11, "worker").mmap(10, 10, 0x40000000, 0x2000, 0, "/nowhere/libx.so");
  std::vector<uint64_t> forty;
  for (uint64_t i = 0; i < 40; ++i) {
    forty.push_back(0x8000 + 4 * i);
  }
  recording.sample(
      withChain(at(8 * EIGHTH, 0x8010, 10, 10), {CONTEXT_USER, 0x8010, 0x8020, 0x40000010}));
  recording.sample(withChain(at(10 * EIGHTH, 0xC0001000, 10, 11, 1),
                             {CONTEXT_KERNEL, 0xC0001000, CONTEXT_USER, 0x8014}));
  recording.sample(withChain(at(12 * EIGHTH, 0x8018, 10, 10), {0x8018}));
  // Without an entry the record is shorter than the layout's least size, and is left out.
  recording.sample(withChain(at(14 * EIGHTH, 0x801c, 10, 10), {}));
  recording.sample(withChain(at(16 * EIGHTH, 0x8000, 10, 10), forty));
  recording.sample(withChain(at(18 * EIGHTH, 0x801c, 10, 10), {0x801c, 0x8020, CONTEXT_USER}));
  return recording;
}

}  // namespace

TEST(GoldenTest, SimpleRunCompact) {
  Conversion conversion(simpleRecording(IP_TID_TIME_CPU));
  const ConversionResult result = expectGolden("simple", conversion);
  EXPECT_THAT(
      result.messages(),
      ElementsAre(
          "INFO [SymbolCache] Skipping..., source file does not exist 'kernel'",
          "INFO [main] Failed to load kernel symbols.  size:0 range:bf000000-cf000000 from "
          "kernel.syms",
          "INFO [PerfRecordFileReader] Current version 3 of perf file attributes used in perf "
          "file.",
          "INFO [PerfEventDataSample] PERF_RECORD_SAMPLE format is not a common format.  Will use "
          "dynamically created parser.",
          "INFO [PerfRecordFileReader] Current version 3 of perf file attributes used in perf "
          "file.",
          "INFO [PerfEventDataSample] PERF_RECORD_SAMPLE format is not a common format.  Will use "
          "dynamically created parser.",
          "INFO [SymbolCache] Skipping..., source file does not exist '/nowhere/app'",
          "INFO [SymbolCache] Skipping..., source file does not exist '/nowhere/libx.so'",
          "INFO [main] Conversion completed in # seconds."));
}

TEST(GoldenTest, SimpleRunIndented) {
  Conversion conversion(simpleRecording(IP_TID_TIME_CPU));
  conversion.setting("\"whitespace\": true");
  expectGolden("simple-indented", conversion);
}

TEST(GoldenTest, SimpleRunTwiceIsTheSameDocument) {
  Conversion conversion(simpleRecording(IP_TID_TIME_CPU));
  expectGolden("simple", conversion);
  expectGolden("simple", conversion);
}

TEST(GoldenTest, TheCommonLayoutsGiveTheSameDocument) {
  expectGolden("simple", Conversion(simpleRecording(0x4C7)));
  expectGolden("simple", Conversion(simpleRecording(0x487)));
  expectGolden("simple", Conversion(simpleRecording(0x5A7)));
}

TEST(GoldenTest, IdentifierLayout) {
  expectGolden("simple", Conversion(simpleRecording(WITH_IDENTIFIER)));
  expectGolden("simple", Conversion(simpleRecording(0x4C7 | 0x10000)));
}

TEST(GoldenTest, EveryAttributeRevisionGivesTheSameDocument) {
  for (const std::size_t size : {64U, 72U, 80U, 88U, 96U}) {
    PerfFileBuilder recording;
    recording.attribute(Attr().structureSize(size).sampleType(IP_TID_TIME_CPU));
    recording.comm(10, 10, "app").comm(10, 11, "worker");
    recording.mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
    recording.mmap(10, 10, 0x40000000, 0x2000, 0, "/nowhere/libx.so");
    recording.sample(at(2 * SECOND, 0x8010, 10, 10));
    recording.sample(at(2 * SECOND + 4 * EIGHTH, 0x40000100, 10, 11, 1));
    recording.sample(at(3 * SECOND + 2 * EIGHTH, 0x8fff, 10, 10));
    expectGolden("simple", Conversion(recording));
  }
}

TEST(GoldenTest, CallChain) { expectGolden("call-chain", Conversion(chainRecording())); }

TEST(GoldenTest, CallChainIndented) {
  Conversion conversion(chainRecording());
  conversion.setting("\"whitespace\": true");
  expectGolden("call-chain-indented", conversion);
}

TEST(GoldenTest, MaxBackTraceZeroWritesNoneAndResolvesNone) {
  Conversion conversion(chainRecording());
  conversion.setting("\"maxBackTrace\": 0");
  expectGolden("no-back-trace", conversion);
}

TEST(GoldenTest, MadeUpMaps) {
  PerfFileBuilder recording = appRecording();
  recording.comm(10, 12, "worker");
  recording.sample(at(0 * EIGHTH + SECOND, 0x12345, 10, 10));
  recording.sample(at(1 * EIGHTH + SECOND, 0x1ffff, 10, 12));
  recording.sample(at(2 * EIGHTH + SECOND, 0x20000, 10, 12, 1));
  recording.sample(at(3 * EIGHTH + SECOND, 0x30010, 30, 31, 1));
  recording.sample(at(4 * EIGHTH + SECOND, 0x7fff12345678, 10, 10));
  // Behind the program's map: the page begins before it, and is made anew, as the nearest map
  // below is the program's.
  recording.sample(at(5 * EIGHTH + SECOND, 0x9000, 10, 10));
  recording.sample(at(6 * EIGHTH + SECOND, 0x9000, 10, 10));
  recording.sample(at(7 * EIGHTH + SECOND, 0x100, 10, 10));
  expectGolden("made-up-maps", Conversion(recording));
}

TEST(GoldenTest, InterruptPages) {
  PerfFileBuilder recording = recordingOf(WITH_CALLCHAIN);
  recording.comm(10, 10, "app");
  recording.sample(withChain(at(0 * EIGHTH + SECOND, 0xFFFF0F00, 10, 10), {0}));
  recording.sample(withChain(at(1 * EIGHTH + SECOND, 0xFFFFFFFE, 10, 10), {0}));
  // The last address of the range is in no map: each lookup makes another.
  recording.sample(withChain(at(2 * EIGHTH + SECOND, 0xFFFFFFFF, 10, 10), {0}));
  recording.sample(withChain(at(3 * EIGHTH + SECOND, 0xFFFFFFFF, 10, 10), {0}));
  recording.sample(withChain(at(4 * EIGHTH + SECOND, 0xFFFFFFFFFFFF0010, 10, 10), {0}));
  recording.sample(withChain(at(5 * EIGHTH + SECOND, 0xFFFFFFFFFFFFFFFE, 10, 10), {0, ALL_ONES}));
  recording.sample(withChain(at(6 * EIGHTH + SECOND, 0xFFFEFFFF, 10, 10), {0}));
  recording.sample(withChain(at(7 * EIGHTH + SECOND, 0x100000000, 10, 10), {0}));
  expectGolden("interrupt-pages", Conversion(recording));
}

TEST(GoldenTest, KernelAndStackAddresses) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "app");
  recording.mmap(10, 10, 0xC0000000, 0x1000, 0, "/nowhere/in-kernel");
  recording.mmap(10, 10, 0xB0000000, 0x1000, 0, "/nowhere/in-stack");
  recording.sample(at(0 * EIGHTH + SECOND, 0xC0000010, 10, 10));
  recording.sample(at(1 * EIGHTH + SECOND, 0xBF000000, 10, 10));
  recording.sample(at(2 * EIGHTH + SECOND, 0xCF000000, 10, 10));
  recording.sample(at(3 * EIGHTH + SECOND, 0xCF000001, 10, 10));
  recording.sample(at(4 * EIGHTH + SECOND, 0xB0000000, 10, 10));
  recording.sample(at(5 * EIGHTH + SECOND, 0xBEFFFFFF, 10, 10));
  recording.sample(at(6 * EIGHTH + SECOND, 0xAFFFFFFF, 10, 10));
  recording.sample(at(7 * EIGHTH + SECOND, 0xC0000020, 0, 0));
  recording.sample(at(8 * EIGHTH + SECOND, 0xB0000010, 1, 1));
  recording.sample(at(9 * EIGHTH + SECOND, 0xC0000030, 2, 2));
  expectGolden("kernel-and-stack", Conversion(recording));
}

TEST(GoldenTest, OutOfOrderTimesBeforeTheFirstSampleAreLeftOut) {
  PerfFileBuilder recording = appRecording();
  recording.comm(10, 11, "late");
  recording.sample(at(5 * SECOND, 0x8010, 10, 10));
  recording.sample(at(4 * SECOND, 0x8014, 10, 11));
  recording.sample(at(5 * SECOND + 4 * EIGHTH, 0x8018, 10, 10));
  recording.sample(at(5 * SECOND - 1, 0x801c, 10, 11));
  recording.sample(at(5 * SECOND + 2 * EIGHTH, 0x8020, 10, 10));
  recording.sample(at(5 * SECOND, 0x8024, 10, 10));
  expectGolden("out-of-order", Conversion(recording));
}

namespace {

PerfFileBuilder windowRecording() {
  PerfFileBuilder recording = appRecording();
  recording.sample(at(5 * SECOND - 1, 0x8000, 10, 10));
  recording.sample(at(5 * SECOND, 0x8004, 10, 10));
  recording.sample(at(6 * SECOND, 0x8008, 10, 10));
  recording.sample(at(7'400'000'000, 0x800c, 10, 10));
  recording.sample(at(7'499'999'999, 0x8010, 10, 10));
  recording.sample(at(7'500'000'000, 0x8014, 10, 10));
  recording.sample(at(9 * SECOND, 0x8018, 10, 10));
  return recording;
}

}  // namespace

TEST(GoldenTest, WindowWithSkewOffsetAndBase) {
  // From 1 + (10 - 2) / 2 = 5 to 1 + (15 - 2) / 2 = 7.5 seconds of the data's clock.
  Conversion conversion(windowRecording());
  conversion.arguments({"-s", "10", "-d", "5", "-A", "2", "-B", "2", "-C", "1"});
  expectGolden("window", conversion);
}

TEST(GoldenTest, WindowWithOpenEnd) {
  Conversion conversion(windowRecording());
  conversion.arguments({"-s", "5"});
  expectGolden("open-window", conversion);
}

TEST(GoldenTest, WindowWithoutSamples) {
  Conversion conversion(windowRecording());
  conversion.arguments({"-s", "1", "-d", "3"});
  expectGolden("no-rows", conversion);
}

TEST(GoldenTest, SkippedSamplesTakeNoKeyButTheFirstOpensTheWindow) {
  PerfFileBuilder recording = appRecording();
  recording.sample(at(4 * SECOND + 4 * EIGHTH, 0, 10, 10));
  recording.sample(at(5 * SECOND, 0x8010, 10, 10));
  recording.sample(at(5 * SECOND + 4 * EIGHTH, ALL_ONES, 10, 10));
  recording.sample(at(6 * SECOND, 0x8014, 10, 10));
  expectGolden("skipped-samples", Conversion(recording));
}

TEST(GoldenTest, LayoutWithoutIpGivesNoRows) {
  PerfFileBuilder recording = appRecording(0x2 | 0x4 | 0x80);
  recording.sample(at(SECOND, 0, 10, 10));
  expectGolden("no-rows", Conversion(recording));
}

TEST(GoldenTest, RecordingWithoutRecords) {
  expectGolden("no-rows", Conversion(recordingOf(IP_TID_TIME_CPU)));
}

TEST(GoldenTest, KeyOrder) {
  PerfFileBuilder recording = appRecording();
  recording.mmap(10, 10, 0x20000, 0x1000, 0, "/nowhere/unused");
  recording.sample(at(0 * EIGHTH + SECOND, 0xC0008010, 10, 10));
  recording.sample(at(1 * EIGHTH + SECOND, 0xC0008100, 10, 10));
  recording.sample(at(2 * EIGHTH + SECOND, 0xC0008180, 10, 10));
  recording.sample(at(3 * EIGHTH + SECOND, 0xC0008181, 10, 10));  // still the kernel's, no function
  recording.sample(at(4 * EIGHTH + SECOND, 0xC0008182, 10, 10));  // behind the kernel
  recording.sample(at(5 * EIGHTH + SECOND, 0x8010, 10, 10));
  recording.sample(at(6 * EIGHTH + SECOND, 0x50000000, 10, 10));
  recording.sample(at(7 * EIGHTH + SECOND, 0xB0000000, 10, 10));
  Conversion conversion(recording);
  conversion.folder().write("kernel.syms",
                            "c0008000 T _text\n"
                            "c0008100 T do_work\n"
                            "c0008180 t helper\t[module]\n"
                            "c0008200 D some_data\n");
  const ConversionResult result = expectGolden("key-order", conversion);
  const LogTexts messages = result.messages();
  ASSERT_GE(messages.size(), 3U);
  EXPECT_THAT(LogTexts(messages.begin(), messages.begin() + 3),
              ElementsAre("INFO [SymbolCache] Using override for 'kernel' in 'kernel.syms'",
                          "INFO [SymbolTableStore] Loaded 3 symbols for 'kernel'",
                          "INFO [main] Loaded kernel symbols.  size:3 range:c0008000-c0008181 from "
                          "kernel.syms"));
}

TEST(GoldenTest, NamesWithEscapesDeletedFilesAndShortNames) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10,
                 "a\"b\\c\t\x80\x7f"
                 "d");  // unprintable bytes vanish from names
  recording.comm(11, 11, "app (deleted)");
  recording.comm(12, 12, "first").comm(99, 12, "second");
  recording.record(3, Body().u32(13).u32(13));
  recording.mmap(10, 10, 0x10000, 0x1000, 0, "/nowhere/q\"b\\s\tt\nn\rr\bb\ff\x01\x7f\xC3\xA4/");
  recording.mmap(11, 11, 0x20000, 0x1000, 0, "/nowhere/gone.so (deleted)");
  recording.mmap(12, 12, 0x30000, 0x1000, 0, "/nowhere/twice (deleted) and (deleted)");
  recording.record(1, Body().u32(13).u32(13).u64(0x40000).u64(0x1000).u64(0));
  recording.mmap(10, 10, 0x50000, 0x1000, 0, "ab");
  recording.mmap(10, 10, 0x60000, 0x1000, 0, "abcd");
  recording.mmap(10, 10, 0x70000, 0x1000, 0, "abc");
  recording.sample(at(0 * EIGHTH + SECOND, 0x10010, 10, 10));
  recording.sample(at(1 * EIGHTH + SECOND, 0x20010, 11, 11));
  recording.sample(at(2 * EIGHTH + SECOND, 0x30010, 12, 12));
  recording.sample(at(3 * EIGHTH + SECOND, 0x40010, 13, 13));
  recording.sample(at(4 * EIGHTH + SECOND, 0x50010, 10, 10));
  recording.sample(at(5 * EIGHTH + SECOND, 0x60010, 10, 10));
  recording.sample(at(6 * EIGHTH + SECOND, 0x70010, 10, 10));
  recording.sample(at(7 * EIGHTH + SECOND, 0x500010, 10, 10));
  const ConversionResult result = Conversion(recording).run();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(matchesGolden("names", result.document));
}

namespace {

PerfFileBuilder lateRecording(bool withOtherRecords) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.sample(at(SECOND, 0x8010, 20, 21));
  if (withOtherRecords) {
    recording.record(0, Body().u64(1));
    recording.record(2, Body().u64(1).u64(5));
    recording.record(4, Body().u32(20).u32(1).u32(21).u32(1).u64(SECOND));
    recording.record(5, Body().u64(SECOND).u64(1).u64(1));
    recording.record(6, Body().u64(SECOND).u64(1).u64(1));
    recording.record(7, Body().u32(20).u32(1).u32(21).u32(1).u64(SECOND));
    recording.record(8, Body().u32(20).u32(21).u64(1));
    recording.record(10, Body().u32(20).u32(20).u64(0x8000).u64(0x1000).zeros(64));
    recording.record(64, Body().zeros(40));
    recording.record(68, Body());
    recording.record(0xFFFFFFFF, Body().zeros(65527));
    recording.record(1, Body().zeros(31));
    recording.record(3, Body().zeros(7));
    recording.record(9, Body().zeros(31));
  }
  recording.mmap(20, 20, 0x8000, 0x1000, 0, "/nowhere/late");
  recording.sample(at(SECOND + 4 * EIGHTH, 0x40000010, 20, 20));
  recording.mmap(20, 20, 0x40000000, 0x1000, 0, "/nowhere/later.so");
  return recording;
}

}  // namespace

TEST(GoldenTest, MapsAfterTheirSamplesAndSamplesWithoutComm) {
  expectGolden("late-records", Conversion(lateRecording(false)));
}

TEST(GoldenTest, OtherUnknownAndShortRecordsChangeNothing) {
  expectGolden("late-records", Conversion(lateRecording(true)));
}

TEST(GoldenTest, TrailingFeatureSectionsAreNotRead) {
  PerfFileBuilder recording = simpleRecording(IP_TID_TIME_CPU);
  recording.trailer(std::string(5000, '\xFF'));
  expectGolden("simple", Conversion(recording));
}
