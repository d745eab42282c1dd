#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>

#include <boost/ptr_container/ptr_vector.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataMmap.h"
#include "perfevents/PerfEventDataRead.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfRecordEventDataStore.h"
#include "tests/perfevents/Decoded.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventAttribute;
using perfevents::PerfEventData;
using perfevents::PerfEventDataComm;
using perfevents::PerfEventDataMmap;
using perfevents::PerfEventDataRead;
using perfevents::PerfEventDataSample;
using perfevents::PerfRecordEventDataStore;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const LOGGER = "PerfRecordEventDataStore";
const std::string DIFFERENT_LAYOUTS =
    "Attributes stored in perf record file will result in event data of different layouts.  This "
    "may cause parsing failure.";

using Attributes = boost::ptr_vector<PerfEventAttribute>;

Attributes listOf(const std::vector<Attr>& attributes) {
  Attributes list;
  for (const Attr& attribute : attributes) {
    list.push_back(new PerfEventAttribute(decoded(attribute)));
  }
  return list;
}

// The warnings of a store built from these attributes.
std::vector<std::string> warningsOf(const std::vector<Attr>& attributes) {
  const Attributes list = listOf(attributes);
  const LogCapture log;
  const PerfRecordEventDataStore store(list);
  EXPECT_EQ(log.lines(LOGGER).size(), log.messages(LOGGER, "WARN").size());
  return log.messages(LOGGER, "WARN");
}

bool similar(const Attr& one, const Attr& other) {
  const bool answer = PerfRecordEventDataStore::areAtributesSimilar(decoded(one), decoded(other));
  EXPECT_EQ(PerfRecordEventDataStore::areAtributesSimilar(decoded(other), decoded(one)), answer);
  return answer;
}

class PerfRecordEventDataStoreTest : public testing::Test {
 protected:
  // The record of a body of this type; null when the store skips it.
  PerfEventData* get(uint32_t type, const Body& body, uint16_t misc = 0) {
    return store_.getEventData(static_cast<PerfEventData::Type>(type), BodyView(body), misc);
  }

  const Attributes attributes_ = listOf({Attr().sampleType(0x7)});
  PerfRecordEventDataStore store_{attributes_};
};

TEST_F(PerfRecordEventDataStoreTest, EmptyAttributeListIsRefused) {
  const Attributes none;
  try {
    const PerfRecordEventDataStore store(none);
    FAIL() << "nothing was thrown";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(),
                 "At least one PerfEventAttribute is required to construct "
                 "PerfRecordEventDataStore");
  }
}

TEST_F(PerfRecordEventDataStoreTest, TypesOutside1To9GiveNothingAndNoMessage) {
  const LogCapture log;
  for (const uint32_t type : {0U, 10U, 11U, 64U, 68U, 0x80000001U, 0xFFFFFFFFU}) {
    EXPECT_EQ(get(type, Body().zeros(64)), nullptr) << type;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PerfRecordEventDataStoreTest, EachTypeHasItsOwnRecord) {
  std::set<const PerfEventData*> records;
  for (uint32_t type = 1; type <= 9; ++type) {
    const PerfEventData* const record = get(type, Body().zeros(64), 3);
    ASSERT_NE(record, nullptr) << type;
    EXPECT_EQ(static_cast<uint32_t>(record->getType()), type);
    EXPECT_EQ(record->misc(), 3U) << type;
    EXPECT_EQ(&record->attribute(), &attributes_[0]) << type;
    records.insert(record);
  }
  EXPECT_EQ(records.size(), 9U);
}

TEST_F(PerfRecordEventDataStoreTest, SmallestBodyOfEachTypeIsTakenAndOneByteLessIsNot) {
  const struct {
    uint32_t type;
    std::size_t size;
  } smallest[] = {{1, 32}, {2, 16}, {3, 8}, {4, 24}, {5, 24}, {6, 24}, {7, 24}, {8, 16}, {9, 24}};
  const LogCapture log;
  for (const auto& [type, size] : smallest) {
    EXPECT_EQ(get(type, Body().zeros(size - 1)), nullptr) << type;
    const PerfEventData* const record = get(type, Body().zeros(size));
    ASSERT_NE(record, nullptr) << type;
    EXPECT_EQ(record->getRequiredMinimumSize(), size) << type;
  }
  EXPECT_THAT(log.lines(), IsEmpty()) << "skipped without a message";
}

TEST_F(PerfRecordEventDataStoreTest, MmapOf31BytesGivesNothingAndOf32BytesAnEmptyName) {
  EXPECT_EQ(get(1, Body().zeros(31)), nullptr);
  const auto* const record = dynamic_cast<PerfEventDataMmap*>(get(1, Body().u32(10).zeros(28)));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->pid(), 10U);
  EXPECT_EQ(record->filename(), "");
}

TEST_F(PerfRecordEventDataStoreTest, CommNamesAreCleaned) {
  const Body body = Body().u32(1).u32(2).bytes(std::string("ab\tc\0\0\0\0", 8));
  const auto* record = dynamic_cast<PerfEventDataComm*>(get(3, body));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->comm(), "abc");
  record = dynamic_cast<PerfEventDataComm*>(get(3, Body().u32(1).u32(2).bytes("\x80x")));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->comm(), "x");
}

TEST_F(PerfRecordEventDataStoreTest, RecordIsReusedByTheNextOfItsType) {
  PerfEventData* const first = get(3, Body().u32(1).u32(2).name("one"), 1);
  PerfEventData* const second = get(3, Body().u32(3).u32(4).name("two"), 2);
  EXPECT_EQ(first, second);
  const auto& record = dynamic_cast<PerfEventDataComm&>(*first);
  EXPECT_EQ(record.pid(), 3U);
  EXPECT_EQ(record.comm(), "two");
  EXPECT_EQ(record.misc(), 2U);
}

TEST_F(PerfRecordEventDataStoreTest, FailedParseLeavesTheRecordAsItWas) {
  const auto* const comm =
      dynamic_cast<PerfEventDataComm*>(get(3, Body().u32(1).u32(2).name("one"), 1));
  ASSERT_NE(comm, nullptr);
  EXPECT_EQ(get(3, Body().zeros(7), 2), nullptr);
  EXPECT_EQ(comm->pid(), 1U);
  EXPECT_EQ(comm->tid(), 2U);
  EXPECT_EQ(comm->comm(), "one");
  EXPECT_EQ(comm->misc(), 1U);
}

TEST_F(PerfRecordEventDataStoreTest, SampleWhoseCountsPointPastItsEndIsSkippedAndLeavesTheRecord) {
  const Attributes list = listOf({Attr().sampleType(0x4C7)});
  const LogCapture log(*kestrel::LogLevel::LVL_INFO);
  PerfRecordEventDataStore store(list);
  const BodyView sound(sampleBody(0x4C7, {.ip = 5, .pid = 6, .id = 7, .raw = "raw"}));
  const auto* const record =
      dynamic_cast<PerfEventDataSample*>(store.getEventData(PerfEventData::Type::Sample, sound, 1));
  ASSERT_NE(record, nullptr);
  const BodyView broken(Body().zeros(40).u32(4).bytes("raw"));
  EXPECT_EQ(store.getEventData(PerfEventData::Type::Sample, broken, 2), nullptr);
  EXPECT_EQ(record->ip(), 5U);
  EXPECT_EQ(record->getPid(), 6U);
  EXPECT_EQ(record->id(), 7U);
  EXPECT_EQ(bytesOf(record->rawData()), "raw");
  EXPECT_EQ(record->misc(), 1U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PerfRecordEventDataStoreTest, ReadOf40BytesWithAReadFormatGivesNothing) {
  const Attributes list = listOf({Attr().readFormat(0x1)});
  PerfRecordEventDataStore store(list);
  EXPECT_EQ(store.getEventData(PerfEventData::Type::Read, BodyView(std::string(40, 'x')), 0),
            nullptr);
  EXPECT_EQ(store.getEventData(PerfEventData::Type::Read, BodyView(std::string(47, 'x')), 0),
            nullptr);
  const auto* const record = dynamic_cast<PerfEventDataRead*>(
      store.getEventData(PerfEventData::Type::Read, BodyView(std::string(48, 'x')), 0));
  ASSERT_NE(record, nullptr);
  EXPECT_TRUE(record->hasReadFormat());
}

TEST_F(PerfRecordEventDataStoreTest, EverythingIsDecodedWithTheFirstAttribute) {
  const Attributes list = listOf({Attr().sampleType(0x1), Attr().sampleType(0x4).readFormat(0xF)});
  PerfRecordEventDataStore store(list);
  const auto* const sample = dynamic_cast<PerfEventDataSample*>(
      store.getEventData(PerfEventData::Type::Sample, BodyView(Body().u64(5)), 0));
  ASSERT_NE(sample, nullptr);
  EXPECT_EQ(sample->ip(), 5U);
  EXPECT_EQ(sample->time(), 0U);
  EXPECT_NE(store.getEventData(PerfEventData::Type::Read, BodyView(std::string(16, 'x')), 0),
            nullptr);
}

TEST_F(PerfRecordEventDataStoreTest, AttributesAreSimilarByTheirFourLayoutFields) {
  const Attr base = Attr().sampleType(0x7).readFormat(0x3);
  EXPECT_TRUE(similar(base, base));
  EXPECT_FALSE(similar(base, Attr(base).sizeField(72)));
  EXPECT_FALSE(similar(base, Attr(base).sampleType(0x107)));
  EXPECT_FALSE(similar(base, Attr(base).sampleType(uint64_t{1} << 40 | 0x7)));
  EXPECT_FALSE(similar(base, Attr(base).readFormat(0x1)));
  EXPECT_FALSE(similar(base, Attr(base).readFormat(uint64_t{1} << 40 | 0x3)));
  EXPECT_FALSE(similar(base, Attr(base).flags(uint64_t{1} << 18)));
}

TEST_F(PerfRecordEventDataStoreTest, OtherFieldsDoNotMakeAttributesDifferent) {
  const Attr base = Attr().sampleType(0x7).readFormat(0x3);
  const uint64_t allButSampleIdAll = ~(uint64_t{1} << 18);
  EXPECT_TRUE(similar(base, Attr(base)
                                .type(1)
                                .config(2)
                                .samplePeriod(3)
                                .flags(allButSampleIdAll)
                                .wakeupEvents(4)
                                .bpType(5)
                                .bpAddr(6)
                                .bpLen(7)
                                .branchSampleType(8)
                                .sampleRegsUser(9)
                                .sampleStackUser(10)));
}

TEST_F(PerfRecordEventDataStoreTest, OneAttributeOrSimilarOnesDoNotWarn) {
  const Attr one = Attr().sampleType(0x7);
  EXPECT_THAT(warningsOf({one}), IsEmpty());
  EXPECT_THAT(warningsOf({one, one, one}), IsEmpty());
}

TEST_F(PerfRecordEventDataStoreTest, TwoAttributesWithDifferentSampleTypesWarnOnce) {
  EXPECT_THAT(warningsOf({Attr().sampleType(0x7), Attr().sampleType(0x107)}),
              ElementsAre(DIFFERENT_LAYOUTS));
}

TEST_F(PerfRecordEventDataStoreTest, ThreeAttributesWhereOnlyTheLastDiffersWarnOnce) {
  const Attr one = Attr().sampleType(0x7);
  EXPECT_THAT(warningsOf({one, one, Attr().sampleType(0x107)}), ElementsAre(DIFFERENT_LAYOUTS));
}

TEST_F(PerfRecordEventDataStoreTest, SeveralDifferentAttributesWarnOnce) {
  EXPECT_THAT(warningsOf({Attr().sampleType(1), Attr().sampleType(2), Attr().sampleType(3),
                          Attr().sampleType(4)}),
              ElementsAre(DIFFERENT_LAYOUTS));
}

TEST_F(PerfRecordEventDataStoreTest, WarningComesBeforeTheMessagesOfTheSampleLayout) {
  const Attributes list = listOf({Attr().sampleType(0x487), Attr().sampleType(0x7)});
  const LogCapture log;
  const PerfRecordEventDataStore store(list);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{"WARN", LOGGER, DIFFERENT_LAYOUTS},
                          LogLine{"DEBUG", "PerfEventDataSample",
                                  "PERF_RECORD_SAMPLE format is common (to perf record) and but "
                                  "excludes ID."}));
}

}  // namespace
