#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/Facts.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/RecordingFile.h"

using made::Fields;
using recordings::ByteOrder;
using recordings::Event;
using recordings::Facts;
using testing::ElementsAre;

namespace {

Fields text(const std::string& text) { return Fields().u32(64).textOfSize(text, 64); }

Facts factsOf(unsigned feature, const Fields& section, std::vector<Event> events = {}) {
  Facts facts;
  const std::string bytes = section.in(made::ByteOrder::LITTLE);
  facts.addFeature(feature, asBytes(bytes), ByteOrder::NATIVE, events);
  return facts;
}

// An entry of the table of build ids: 36 bytes, and the name in 64.
Fields entry(uint16_t misc, const std::string& id, uint8_t size, const std::string& name) {
  Fields fields;
  fields.u32(0).u16(misc).u16(100).u32(0xffffffff).bytes(id).zeros(20 - id.size());
  return fields.u8(size).zeros(3).textOfSize(name, 64);
}

}  // namespace

TEST(FactsTest, FeaturesOfAFileInBothOrdersAndAsRecords) {
  made::Recording recording;
  recording.hostname = "target";
  recording.osRelease = "6.1.0";
  recording.architecture = "armv7l";
  recording.commandLine = {"perf", "record", "-a"};
  recording.buildIds = {{.file = "/bin/app", .id = "\x12\x34"}};
  recording.clockData = {1, 1'700'000'000'000'000'000, 5'000};
  recording.sampleTime = {10, 20};
  recording.sample({.ip = 1, .pid = 1, .tid = 1, .time = 15});
  for (const made::Form form : {made::Form::FILE, made::Form::PIPE}) {
    for (const made::ByteOrder order : {made::ByteOrder::LITTLE, made::ByteOrder::BIG}) {
      const Walked walked(made::fileBytes(recording, {.form = form, .order = order}));
      const Facts& facts = walked.recording.header().facts;
      EXPECT_EQ(facts.hostname, "target");
      EXPECT_EQ(facts.osRelease, "6.1.0");
      EXPECT_EQ(facts.architecture, "armv7l");
      EXPECT_THAT(facts.commandLine, ElementsAre("perf", "record", "-a"));
      ASSERT_TRUE(facts.clockData);
      EXPECT_EQ(facts.clockData->clockId, 1);
      EXPECT_EQ(facts.clockData->wallNanoseconds, 1'700'000'000'000'000'000u);
      EXPECT_EQ(facts.clockData->clockNanoseconds, 5'000u);
      EXPECT_EQ(facts.firstSampleTime, 10u);
      EXPECT_EQ(facts.lastSampleTime, 20u);
      ASSERT_EQ(facts.buildIds.size(), 1u);
      EXPECT_EQ(facts.buildIds[0].name, "/bin/app");
      EXPECT_EQ(recordings::hexText(facts.buildIds[0].id).substr(0, 4), "1234");
    }
  }
}

// A kernel of 32 bits and the other byte order writes the bitmap in words of 32 bits.
TEST(FactsTest, TheBitmapOfSmallBigEndianMachines) {
  made::Recording recording;
  recording.hostname = "target";
  recording.sample({.ip = 1, .pid = 1, .tid = 1, .time = 15});
  std::string bytes = made::fileBytes(recording, {.order = made::ByteOrder::BIG});
  bytes = bytes.substr(0, 72) + bytes.substr(76, 4) + bytes.substr(72, 4) + bytes.substr(80);
  EXPECT_EQ(Walked(bytes).recording.header().facts.hostname, "target");
}

TEST(FactsTest, ASizeInTheEntryOfABuildIdCountsWhereItIsMarked) {
  const Facts facts =
      factsOf(2, entry(1 << 15 | 2, "\x01\x02\x03\x04", 4, "/a").append(entry(2, "\x05", 4, "/b")));
  ASSERT_EQ(facts.buildIds.size(), 2u);
  EXPECT_EQ(recordings::hexText(facts.buildIds[0].id), "01020304");
  EXPECT_EQ(recordings::hexText(facts.buildIds[1].id), "0500000000000000000000000000000000000000");
  EXPECT_EQ(facts.buildIds[1].name, "/b");
}

// Before 2.6.35 the entries had no pid: the id at 8, the name at 32, in the whole table.
TEST(FactsTest, BuildIdsOfTheOldestFiles) {
  const auto old = [](const std::string& id, const std::string& name) {
    Fields fields;
    fields.u32(0).u16(1).u16(96).bytes(id).zeros(24 - id.size());
    return fields.textOfSize(name, 64);
  };
  const Facts facts =
      factsOf(2, old("\x01\x02", "[kernel.kallsyms]").append(old("\x03", "/usr/bin/app")));
  ASSERT_EQ(facts.buildIds.size(), 2u);
  EXPECT_EQ(facts.buildIds[0].name, "[kernel.kallsyms]");
  EXPECT_EQ(recordings::hexText(facts.buildIds[0].id).substr(0, 4), "0102");
  EXPECT_EQ(facts.buildIds[1].name, "/usr/bin/app");
  EXPECT_EQ(recordings::hexText(facts.buildIds[1].id).substr(0, 2), "03");
}

TEST(FactsTest, BrokenBuildIdTablesEnd) {
  EXPECT_EQ(factsOf(2, entry(2, "a", 1, "/a").u32(0).u16(0).u16(0)).buildIds.size(), 1u);
  EXPECT_EQ(factsOf(2, entry(2, "a", 1, "/a").u32(0).u16(0).u16(999)).buildIds.size(), 1u);
  EXPECT_EQ(factsOf(2, entry(2, "a", 1, "/a").u32(0)).buildIds.size(), 1u);
}

TEST(FactsTest, NamesOfEventsSkipTheirAttributesAndIds) {
  std::vector<Event> events(2);
  Facts facts;
  const std::string bytes = Fields()
                                .u32(2)
                                .u32(136)
                                .zeros(136)
                                .u32(2)
                                .append(text("cycles:u"))
                                .u64s({1, 2})
                                .zeros(136)
                                .u32(0)
                                .append(text("faults"))
                                .in(made::ByteOrder::LITTLE);
  facts.addFeature(12, asBytes(bytes), ByteOrder::NATIVE, events);
  EXPECT_EQ(events[0].name, "cycles:u");
  EXPECT_EQ(events[1].name, "faults");
}

TEST(FactsTest, TheProcessorHasANameAndAKind) {
  EXPECT_EQ(factsOf(8, text("A processor")).processor, "A processor");
  EXPECT_EQ(factsOf(9, text("Maker,6,85,7")).processorId, "Maker,6,85,7");
}

TEST(FactsTest, WhatIsCutSaysNothing) {
  EXPECT_EQ(factsOf(3, Fields().u32(64).bytes("half")).hostname, "");
  EXPECT_EQ(factsOf(3, Fields().u32(0xffffffff).bytes("half")).hostname, "");
  EXPECT_FALSE(factsOf(29, Fields().u32(1).u32(1).u64(5)).clockData);
  EXPECT_THAT(factsOf(11, Fields().u32(3).append(text("perf"))).commandLine, ElementsAre());
  EXPECT_THAT(factsOf(11, Fields().u32(0xffffffff)).commandLine, ElementsAre());
}

TEST(FactsTest, EventsWithoutANameAreCalledAsPerfCallsThem) {
  const auto name = [](uint32_t type, uint64_t config) {
    recordings::Attribute attribute;
    attribute.type = type;
    attribute.config = config;
    return recordings::nameOf(attribute);
  };
  EXPECT_EQ(name(0, 0), "cycles");
  EXPECT_EQ(name(0, 9), "ref-cycles");
  EXPECT_EQ(name(1, 0), "cpu-clock");
  EXPECT_EQ(name(1, 1), "task-clock");
  EXPECT_EQ(name(1, 9), "dummy");
  EXPECT_EQ(name(1, 11), "cgroup-switches");
  EXPECT_FALSE(name(4, 0x1234).empty());
}
