// One content, written in every form that perf gives it, is read as one.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/Encodings.h"
#include "tests/support/recordings/RecordingFile.h"

using made::Encoding;
using made::Form;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

const std::vector<std::string> EXPECTED = {
    "comm 10/10 app",
    "map 10/10 8000+1000@2000 /bin/app",
    "sample 0 8010 10/11 t1000 cpu1",
    "fork 12/12 of 10/11",
    "sample 0 8020 12/12 t1200 cpu0",
    "exit 12/12",
    "sample 0 8030 10/10 t1400 cpu1",
};

made::Recording content() {
  made::Recording recording;
  recording.comm({.pid = 10, .tid = 10, .name = "app"})
      .map({.pid = 10,
            .tid = 10,
            .address = 0x8000,
            .length = 0x1000,
            .pageOffset = 0x2000,
            .file = "/bin/app"})
      .sample({.ip = 0x8010, .pid = 10, .tid = 11, .time = 1000, .cpu = 1})
      .fork({.pid = 12, .parentPid = 10, .tid = 12, .parentTid = 11, .time = 1100, .cpu = 1})
      .finishedRound()
      .sample({.ip = 0x8020, .pid = 12, .tid = 12, .time = 1200})
      .exit({.pid = 12, .parentPid = 10, .tid = 12, .parentTid = 11, .time = 1300})
      .sample({.ip = 0x8030, .pid = 10, .tid = 10, .time = 1400, .cpu = 1})
      .finishedRound();
  return recording;
}

}  // namespace

TEST(EncodingsTest, EveryFormSaysTheSame) {
  for (const auto& [name, encoding] : made::allEncodings()) {
    const Walked walked(made::fileBytes(content(), encoding));
    EXPECT_TRUE(walked.isInOrder) << name;
    EXPECT_THAT(walked.lines, ElementsAreArray(EXPECTED)) << name;
    EXPECT_TRUE(walked.counts.damages.empty()) << name;
    EXPECT_EQ(walked.counts.brokenRecords, 0u) << name;
    ASSERT_EQ(walked.recording.events().size(), 1u) << name;
    EXPECT_EQ(walked.recording.events()[0].name, "cpu-clock") << name;
    EXPECT_THAT(walked.counts.samplesOfEvent, ElementsAre(3u)) << name;
  }
}

TEST(EncodingsTest, AFolderOfRingsSaysTheSame) {
  for (const made::Compression kind : {made::Compression::NONE, made::Compression::COMPRESSED}) {
    const TempDir folder;
    for (const auto& [name, bytes] : made::folderFiles(content(), {.compression = kind})) {
      folder.write(name, bytes);
    }
    const auto recording = recordings::Recording::open(folder.path());
    WalkLog log;
    recordings::WalkCounts counts;
    EXPECT_TRUE(recording->walk(log, recordings::TimeOrder::Trust::ROUNDS, folder.path(), counts));
    EXPECT_THAT(log.lines(), ElementsAreArray(EXPECTED));
    EXPECT_TRUE(recording->header().facts.isDirectory);
    EXPECT_EQ(folder.path(), recording->folder());
  }
}

TEST(EncodingsTest, SeveralEventsAreToldApartByTheirIds) {
  made::Recording recording;
  recording.events = {{.name = "cycles:u", .type = 0},
                      {.name = "task-clock", .config = 1, .ids = {7, 8}}};
  recording.sample({.ip = 1, .pid = 5, .tid = 5, .time = 10})
      .sample({.ip = 2, .pid = 5, .tid = 5, .time = 11, .event = 1, .id = 1})
      .sample({.ip = 3, .pid = 5, .tid = 5, .time = 12, .event = 1})
      .finishedRound();
  for (const auto& [name, encoding] : made::allEncodings()) {
    if (encoding.identification == made::Identification::NONE) {
      continue;
    }
    const Walked walked(made::fileBytes(recording, encoding));
    EXPECT_THAT(walked.lines, ElementsAre("sample 0 1 5/5 t10 cpu0", "sample 1 2 5/5 t11 cpu0",
                                          "sample 1 3 5/5 t12 cpu0"))
        << name;
    EXPECT_THAT(walked.counts.samplesOfEvent, ElementsAre(1u, 2u)) << name;
    // Only these two tell the names that perf made up.
    if (encoding.form != Form::SHORT_HEADER && !encoding.isUnfinished) {
      EXPECT_EQ(walked.recording.events()[0].name, "cycles:u") << name;
    }
  }
}

// With IDENTIFIER, layouts may differ: the id is the first word of a sample in each of them.
TEST(EncodingsTest, EventsMayHaveSamplesOfDifferentLayout) {
  made::Recording recording;
  recording.events = {{.name = "cpu-clock"},
                      {.name = "task-clock",
                       .config = 1,
                       .sampleType = made::SampleBit::TID | made::SampleBit::TIME |
                                     made::SampleBit::ADDR | made::SampleBit::CALLCHAIN}};
  recording.sample({.ip = 1, .pid = 5, .tid = 5, .time = 10, .cpu = 3})
      .sample({.pid = 5, .tid = 6, .time = 11, .chain = {0x10, 0x20}, .event = 1});
  const Walked walked(
      made::fileBytes(recording, {.identification = made::Identification::IDENTIFIER}));
  EXPECT_THAT(walked.lines,
              ElementsAre("sample 0 1 5/5 t10 cpu3", "sample 1 0 5/6 t11 cpu0 [10 20]"));
}

TEST(EncodingsTest, ASampleWithAnIdOfNoEventIsCountedOnly) {
  made::Recording recording;
  recording.events = {{.name = "cpu-clock", .ids = {100}},
                      {.name = "task-clock", .config = 1, .ids = {200}}};
  recording.sample({.ip = 1, .pid = 5, .tid = 5, .time = 10})
      .sample({.ip = 2, .pid = 5, .tid = 5, .time = 11, .event = 1});
  std::string bytes =
      made::fileBytes(recording, {.identification = made::Identification::IDENTIFIER});
  // The last sample: header, identifier; 8 + 48 bytes, in front of the feature sections.
  const std::string id("\xc8\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0", 16);
  const std::size_t at = bytes.find(id);
  ASSERT_NE(at, std::string::npos);
  bytes[at] = '\x77';
  const Walked walked(bytes);
  EXPECT_THAT(walked.lines, ElementsAre("sample 0 1 5/5 t10 cpu0"));
  EXPECT_EQ(walked.counts.samplesOfNoEvent, 1u);
}

// `--tail-synthesize`: what was there at the start stands at the end of the file.
TEST(EncodingsTest, WhatHasNoTimeWasSoFromTheBeginning) {
  made::Recording recording;
  recording.sample({.ip = 0x8010, .pid = 10, .tid = 10, .time = 5})
      .finishedRound()
      .comm({.pid = 10, .tid = 10, .name = "app"})
      .map({.pid = 10, .tid = 10, .address = 0x8000, .length = 0x1000, .file = "/bin/app"});
  EXPECT_THAT(Walked(made::fileBytes(recording)).lines,
              ElementsAre("comm 10/10 app", "map 10/10 8000+1000@0 /bin/app",
                          "sample 0 8010 10/10 t5 cpu0"));
}

// Without times, or without trailers, the order of the file is the only one there is.
TEST(EncodingsTest, WithoutTimesTheOrderIsThatOfTheFile) {
  made::Recording recording;
  recording.events[0].sampleType = made::SampleBit::IP | made::SampleBit::TID;
  recording.sample({.ip = 2, .pid = 1, .tid = 1})
      .comm({.pid = 1, .tid = 1, .name = "later", .time = 5})
      .sample({.ip = 1, .pid = 1, .tid = 1});
  EXPECT_THAT(Walked(made::fileBytes(recording, {.hasSampleIdAll = false})).lines,
              ElementsAre("sample 0 2 1/1 t0 cpu0", "comm 1/1 later", "sample 0 1 1/1 t0 cpu0"));
}

TEST(EncodingsTest, WithoutTrailersSideRecordsStayBetweenTheirSamples) {
  made::Recording recording;
  recording.sample({.ip = 1, .pid = 1, .tid = 1, .time = 10})
      .comm({.pid = 1, .tid = 1, .name = "next", .time = 11, .isExec = true})
      .sample({.ip = 2, .pid = 1, .tid = 1, .time = 12})
      .finishedRound();
  EXPECT_THAT(
      Walked(made::fileBytes(recording, {.hasSampleIdAll = false})).lines,
      ElementsAre("sample 0 1 1/1 t10 cpu0", "comm 1/1 next exec", "sample 0 2 1/1 t12 cpu0"));
}
