// Sound files: what the reader loads and delivers, and how it says which revision it found.
#include <fstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <boost/ptr_container/exception.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataMmap.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfEventDataUnknown.h"
#include "perfevents/PerfRecordFileReader.h"
#include "tests/perfevents/PerfFileFixture.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventData;
using perfevents::PerfEventDataComm;
using perfevents::PerfEventDataListener;
using perfevents::PerfEventDataMmap;
using perfevents::PerfEventDataSample;
using perfevents::PerfEventDataUnknown;
using perfevents::PerfRecordFileReader;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using Header = PerfFileBuilder::Header;

const std::string NEWER_GENERATION =
    "Perf file attribute may indicate new generation kernel or perf record version was used.";

std::string dataOf(const PerfFileBuilder& builder) {
  return builder.bytes().substr(static_cast<std::size_t>(builder.dataOffset()));
}

class PerfRecordFileReaderTest : public PerfFileFixture {
 protected:
  // The revision that a structure of this size is, and the lines about it.
  void expectVersion(std::size_t structureSize, int version, const std::vector<LogLine>& lines) {
    SCOPED_TRACE("structure size " + std::to_string(structureSize));
    PerfFileBuilder builder;  // large enough through its record
    builder.attribute(Attr().structureSize(structureSize).sampleType(0x487)).comm(1, 2, "app");
    const LogCapture log;
    const PerfRecordFileReader reader(open(builder), true);
    EXPECT_EQ(reader.attributeVersion(), version);
    EXPECT_EQ(log.lines(LOGGER), lines);
    ASSERT_THAT(reader.getAttributes(), SizeIs(1));
    EXPECT_EQ(reader.getAttributes()[0].raw().size(), structureSize);
    EXPECT_EQ(reader.getAttributes()[0].sampleType(), 0x487U);
  }
};

TEST_F(PerfRecordFileReaderTest, HeaderIsKeptAsRead) {
  PerfFileBuilder builder = file().eventType(1, "one").comm(1, 2, "app").magic("ANYTHING");
  builder.header(Header::FEATURES_0, 0x1122334455667788).header(Header::FEATURES_1, 2);
  builder.header(Header::FEATURES_2, 3).header(Header::FEATURES_3, 0x8000000000000000);
  const PerfRecordFileReader reader(open(builder), true);
  EXPECT_EQ(std::string(reader.header().magic.begin(), reader.header().magic.end()), "ANYTHING");
  EXPECT_EQ(reader.header().size, 104U);
  EXPECT_EQ(reader.header().attrSize, 112U);
  EXPECT_EQ(reader.header().attrs.offset, 104U);
  EXPECT_EQ(reader.header().attrs.size, 112U);
  EXPECT_EQ(reader.header().eventTypes.offset, 216U);
  EXPECT_EQ(reader.header().eventTypes.size, 72U);
  EXPECT_EQ(reader.header().data.offset, 288U);
  EXPECT_EQ(reader.header().data.size, 24U);
  EXPECT_THAT(reader.header().features, ElementsAre(0x1122334455667788, 2, 3, 0x8000000000000000));
  EXPECT_EQ(reader.fileSize(), 312);
}

TEST_F(PerfRecordFileReaderTest, MagicMayHoldAnything) {
  for (const std::string& magic : {std::string("2ELIFREP"), std::string(8, '\0')}) {
    EXPECT_EQ(walk(file().magic(magic).comm(1, 2, "app")).records,
              std::vector<std::string>{"3 app"});
  }
}

TEST_F(PerfRecordFileReaderTest, EachRevisionOfTheAttributesIsNamed) {
  expectVersion(64, 0,
                {{"INFO", LOGGER, "Older version 0 of perf file attributes used in perf file."}});
  expectVersion(72, 1,
                {{"INFO", LOGGER, "Older version 1 of perf file attributes used in perf file."}});
  expectVersion(80, 2,
                {{"INFO", LOGGER, "Older version 2 of perf file attributes used in perf file."}});
  expectVersion(96, 3,
                {{"INFO", LOGGER, "Current version 3 of perf file attributes used in perf file."}});
}

TEST_F(PerfRecordFileReaderTest, StructureAboveTheNewestRevisionIsWarnedOf) {
  expectVersion(97, 4, {{"WARN", LOGGER, NEWER_GENERATION}});
  expectVersion(104, 4, {{"WARN", LOGGER, NEWER_GENERATION}});
  expectVersion(65536, 4, {{"WARN", LOGGER, NEWER_GENERATION}});
}

TEST_F(PerfRecordFileReaderTest, StructureBetweenTwoRevisionsIsVersion0WithoutAMessage) {
  for (const std::size_t size : {65U, 71U, 73U, 79U, 81U, 88U, 95U}) {
    expectVersion(size, 0, {});
  }
}

TEST_F(PerfRecordFileReaderTest, AttributesKeepTheirOrderAndTheirOwnIds) {
  PerfFileBuilder builder;
  builder.attribute(Attr().config(1).ids({7, 8}));
  builder.attribute(Attr().config(2));
  builder.attribute(Attr().config(3).ids({0xFFFFFFFFFFFFFFFF}));
  const PerfRecordFileReader reader(open(builder), true);
  const auto& attributes = reader.getAttributes();
  ASSERT_THAT(attributes, SizeIs(3));
  EXPECT_EQ(attributes[0].config(), 1U);
  EXPECT_THAT(attributes[0].ids(), ElementsAre(7, 8));
  EXPECT_EQ(attributes[1].config(), 2U);
  EXPECT_THAT(attributes[1].ids(), IsEmpty());
  EXPECT_EQ(attributes[2].config(), 3U);
  EXPECT_THAT(attributes[2].ids(), ElementsAre(0xFFFFFFFFFFFFFFFF));
  EXPECT_TRUE(attributes[0].isAssociatedWithId(8));
  EXPECT_FALSE(attributes[0].isAssociatedWithId(0xFFFFFFFFFFFFFFFF));
}

TEST_F(PerfRecordFileReaderTest, RestOfTheSectionsThatIsNoWholeEntryIsIgnored) {
  PerfFileBuilder builder = file().eventType(5, "five");
  const uint64_t ids = builder.idsOffset();  // the attribute's own bytes will do as ids
  builder = PerfFileBuilder()
                .attribute(Attr().type(9).sizeField(0).idsSection(ids, 15))
                .eventType(5, "five")
                .comm(1, 2, "app");
  builder.header(Header::ATTRS_SIZE, 112 + 111).header(Header::EVENT_TYPES_SIZE, 72 + 71);
  const PerfRecordFileReader reader(open(builder.fileSize(400)), true);
  ASSERT_THAT(reader.getAttributes(), SizeIs(1));
  EXPECT_THAT(reader.getAttributes()[0].ids(), ElementsAre(9));
  EXPECT_THAT(reader.getTraceEventTypes(), ElementsAre(Pair(5, "five")));
}

TEST_F(PerfRecordFileReaderTest, EmptyIdSectionMayLieAnywhereBehindTheFile) {
  for (const uint64_t size : {0U, 7U}) {
    const PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().idsSection(1'000'000, size));
    const PerfRecordFileReader reader(open(builder), true);
    EXPECT_THAT(reader.getAttributes()[0].ids(), IsEmpty());
  }
}

TEST_F(PerfRecordFileReaderTest, TraceEventTypesAreLoaded) {
  PerfFileBuilder builder = file();
  builder.attribute(Attr()).attribute(Attr());
  builder.eventType(0xFFFFFFFFFFFFFFFF, "sched:sched_switch").eventType(3, "three");
  const PerfRecordFileReader reader(open(builder), true);
  EXPECT_THAT(reader.getTraceEventTypes(),
              ElementsAre(Pair(3, "three"), Pair(0xFFFFFFFFFFFFFFFF, "sched:sched_switch")));
  EXPECT_EQ(reader.getTraceEventName(3), "three");
  EXPECT_EQ(reader.getTraceEventName(0xFFFFFFFFFFFFFFFF), "sched:sched_switch");
}

TEST_F(PerfRecordFileReaderTest, UnknownTraceEventHasAnEmptyName) {
  const PerfRecordFileReader reader(open(file().eventType(3, "three")), true);
  EXPECT_EQ(reader.getTraceEventName(0), "");
  EXPECT_EQ(reader.getTraceEventName(4), "");
  EXPECT_THAT(reader.getTraceEventTypes(), SizeIs(1)) << "asking adds nothing";
}

TEST_F(PerfRecordFileReaderTest, LaterTraceEventOfTheSameIdOverwritesTheName) {
  PerfFileBuilder builder = file();
  builder.attribute(Attr()).eventType(3, "a longer name").eventType(3, "short");
  const PerfRecordFileReader reader(open(builder), true);
  EXPECT_THAT(reader.getTraceEventTypes(), ElementsAre(Pair(3, "short")));
}

TEST_F(PerfRecordFileReaderTest, TraceEventNameOf64CharactersIsStoredAsItsFirst63) {
  const std::string name = std::string(62, 'n') + "xy";
  const PerfRecordFileReader reader(open(file().eventType(3, name)), true);
  EXPECT_EQ(reader.getTraceEventName(3), std::string(62, 'n') + "x");
  const PerfRecordFileReader shorter(open(file().eventType(3, name.substr(0, 63))), true);
  EXPECT_EQ(shorter.getTraceEventName(3), std::string(62, 'n') + "x");
}

TEST_F(PerfRecordFileReaderTest, TraceEventNameEndsAtItsFirstNul) {
  const PerfRecordFileReader reader(open(file().eventType(3, std::string("a\0b", 3))), true);
  EXPECT_EQ(reader.getTraceEventName(3), "a");
}

TEST_F(PerfRecordFileReaderTest, EmptyTraceEventSectionYieldsAnEmptyMap) {
  const PerfRecordFileReader reader(open(file()), true);
  EXPECT_THAT(reader.getTraceEventTypes(), IsEmpty());
  const PerfRecordFileReader shorter(open(file().header(Header::EVENT_TYPES_SIZE, 71)), true);
  EXPECT_THAT(shorter.getTraceEventTypes(), IsEmpty());
}

TEST_F(PerfRecordFileReaderTest, EachAttributeMayHaveATraceEventType) {
  PerfFileBuilder builder = file();
  builder.attribute(Attr()).eventType(1, "one").eventType(2, "two");
  const PerfRecordFileReader reader(open(builder), true);
  EXPECT_THAT(reader.getTraceEventTypes(), SizeIs(2));
}

TEST_F(PerfRecordFileReaderTest, RecordsAreDeliveredInFileOrderDecoded) {
  class Listener : public PerfEventDataListener {
   public:
    void onEventData(const PerfEventData& record) override {
      if (const auto* const comm = dynamic_cast<const PerfEventDataComm*>(&record)) {
        EXPECT_EQ(seen++, 0);
        EXPECT_EQ(comm->pid(), 10U);
        EXPECT_EQ(comm->comm(), "app");
        EXPECT_EQ(comm->misc(), 0U);
      } else if (const auto* const mmap = dynamic_cast<const PerfEventDataMmap*>(&record)) {
        EXPECT_EQ(seen++, 1);
        EXPECT_EQ(mmap->addr(), 0x8000U);
        EXPECT_EQ(mmap->len(), 0x1000U);
        EXPECT_EQ(mmap->pgoff(), 0x200U);
        EXPECT_EQ(mmap->filename(), "/bin/app");
      } else if (const auto* const sample = dynamic_cast<const PerfEventDataSample*>(&record)) {
        EXPECT_EQ(seen++, 2);
        EXPECT_EQ(sample->ip(), 0x8010U);
        EXPECT_EQ(sample->time(), 2'000'000'000U);
        EXPECT_EQ(sample->misc(), 0x8002U);
      }
    }
    void onClose() override { EXPECT_EQ(seen++, 3); }

    int seen = 0;
  };
  PerfFileBuilder builder = file();
  builder.comm(10, 11, "app").mmap(10, 11, 0x8000, 0x1000, 0x200, "/bin/app");
  builder.sample({.ip = 0x8010, .pid = 10, .tid = 11, .time = 2'000'000'000}, 0x8002);
  PerfRecordFileReader reader(open(builder), true);
  Listener listener;
  reader.parseEvents(listener);
  EXPECT_EQ(listener.seen, 4);
}

TEST_F(PerfRecordFileReaderTest, UndecodedRecordsAreSkippedWithoutAMessage) {
  PerfFileBuilder builder = file();
  builder.record(10, Body().zeros(64)).comm(1, 2, "one").record(68, Body().zeros(8));
  builder.record(0, Body().zeros(8)).record(0xFFFFFFFF, Body()).comm(1, 2, "two");
  const Walk seen = walk(builder);
  EXPECT_THAT(seen.records, ElementsAre("3 one", "3 two"));
  EXPECT_THAT(seen.errors, IsEmpty());
  EXPECT_EQ(seen.closed, 1);
}

TEST_F(PerfRecordFileReaderTest, DataSectionOfSize0CallsOnlyOnClose) {
  const Walk seen = walk(file());
  EXPECT_THAT(seen.records, IsEmpty());
  EXPECT_THAT(seen.errors, IsEmpty());
  EXPECT_EQ(seen.closed, 1);
}

TEST_F(PerfRecordFileReaderTest, RecordOf8BytesIsOfferedWithAnEmptyBody) {
  // A layout without any part takes it; a COMM record needs more.
  PerfFileBuilder builder;
  builder.attribute(Attr()).record(9, Body(), 7).record(3, Body()).comm(1, 2, "app");
  const Walk seen = walk(builder);
  EXPECT_THAT(seen.records, ElementsAre("9", "3 app"));
  EXPECT_THAT(seen.misc, ElementsAre(7, 0));
  EXPECT_THAT(seen.errors, IsEmpty());
}

TEST_F(PerfRecordFileReaderTest, LargestRecordFits) {
  const std::string name(65535 - 8 - 8, 'n');
  PerfFileBuilder builder = file();
  builder.record(3, Body().u32(1).u32(2).bytes(name)).comm(1, 2, "after");
  EXPECT_THAT(walk(builder).records, ElementsAre("3 " + name, "3 after"));
}

TEST_F(PerfRecordFileReaderTest, BodyEndsWhereTheRecordEnds) {
  PerfFileBuilder builder = file();
  builder.record(3, Body().u32(1).u32(2).bytes("a long name of no end"));
  builder.record(3, Body().u32(1).u32(2).bytes("b"));
  EXPECT_THAT(walk(builder).records, ElementsAre("3 a long name of no end", "3 b"));
}

TEST_F(PerfRecordFileReaderTest, WalkEndsByTheByteCountOfTheDataSection) {
  PerfFileBuilder builder = file();
  builder.comm(1, 2, "one").comm(1, 2, "two").comm(1, 2, "three");  // 24 bytes each
  EXPECT_THAT(walk(builder.header(Header::DATA_SIZE, 1)).records, ElementsAre("3 one"));
  EXPECT_THAT(walk(builder.header(Header::DATA_SIZE, 24)).records, ElementsAre("3 one"));
  EXPECT_THAT(walk(builder.header(Header::DATA_SIZE, 25)).records, ElementsAre("3 one", "3 two"));
  EXPECT_THAT(walk(builder.header(Header::DATA_SIZE, 72)).errors, IsEmpty());
}

TEST_F(PerfRecordFileReaderTest, WhatFollowsTheDataIsNotRead) {
  const Walk seen = walk(file().comm(1, 2, "app").trailer(std::string(100, '\0')));
  EXPECT_THAT(seen.records, ElementsAre("3 app"));
  EXPECT_THAT(seen.errors, IsEmpty());
}

TEST_F(PerfRecordFileReaderTest, DataIsFoundByItsOffset) {
  PerfFileBuilder builder = file().comm(1, 2, "not this");
  const std::string sought = dataOf(file().comm(1, 2, "but this"));
  builder.header(Header::DATA_OFFSET, builder.bytes().size());
  builder.header(Header::DATA_SIZE, sought.size()).trailer(sought);
  EXPECT_THAT(walk(builder).records, ElementsAre("3 but this"));
}

TEST_F(PerfRecordFileReaderTest, SecondWalkNeedsCueing) {
  PerfRecordFileReader reader(open(file().comm(1, 2, "one").comm(1, 2, "two")), true);
  NotingListener first;
  reader.parseEvents(first);
  EXPECT_THAT(first.records, ElementsAre("3 one", "3 two"));
  reader.cueFirstEvent();
  NotingListener second;
  reader.parseEvents(second);
  EXPECT_EQ(second.records, first.records);
  EXPECT_EQ(second.closed, 1);
}

TEST_F(PerfRecordFileReaderTest, SecondReaderOnTheSameStreamSeesTheSame) {
  std::ifstream& stream = open(file().comm(1, 2, "one").comm(1, 2, "two"));
  for (int pass = 1; pass <= 2; ++pass) {
    NotingListener listener;
    {
      PerfRecordFileReader reader(stream, true);
      reader.parseEvents(listener);
    }
    EXPECT_THAT(listener.records, ElementsAre("3 one", "3 two")) << pass;
    EXPECT_TRUE(stream.is_open());
  }
}

TEST_F(PerfRecordFileReaderTest, ReaderLeavesTheStreamBehindTheData) {
  const PerfFileBuilder builder = file().comm(1, 2, "one").trailer("behind");
  std::ifstream& stream = open(builder);
  PerfRecordFileReader reader(stream, true);
  EXPECT_EQ(stream.tellg(), std::streampos(static_cast<std::streamoff>(builder.dataOffset())));
  NotingListener listener;
  reader.parseEvents(listener);
  EXPECT_EQ(stream.tellg(),
            std::streampos(static_cast<std::streamoff>(builder.bytes().size() - 6)));
}

TEST_F(PerfRecordFileReaderTest, ExceptionOfTheListenerPassesWithoutOnClose) {
  class Throwing : public NotingListener {
   public:
    void onEventData(const PerfEventData& record) override {
      NotingListener::onEventData(record);
      if (records.size() == 2) {
        throw std::runtime_error("enough");
      }
    }
  };
  PerfRecordFileReader reader(open(file().comm(1, 2, "one").comm(1, 2, "two").comm(1, 2, "three")),
                              true);
  Throwing listener;
  EXPECT_THROW(reader.parseEvents(listener), std::runtime_error);
  EXPECT_THAT(listener.records, ElementsAre("3 one", "3 two"));
  EXPECT_EQ(listener.closed, 0);
}

TEST_F(PerfRecordFileReaderTest, WithoutAStoreEveryRecordIsDeliveredWholeAndUndecoded) {
  class Listener : public PerfEventDataListener {
   public:
    void onEventData(const PerfEventData& record) override {
      EXPECT_EQ(record.getType(), PerfEventData::Type::Unknown);
      const auto& unknown = dynamic_cast<const PerfEventDataUnknown&>(record);
      bytes += bytesOf(unknown.bytes());
      sizes.push_back(unknown.bytes().size());
      misc.push_back(record.misc());
      EXPECT_EQ(unknown.bytes().capacity(), 65535U);
    }
    void onClose() override { ++closed; }

    std::string bytes;
    std::vector<unsigned int> sizes;
    std::vector<uint16_t> misc;
    int closed = 0;
  };
  PerfFileBuilder builder = file();
  builder.record(3, Body().u32(1).u32(2).name("one"), 1).record(68, Body(), 2);
  builder.record(9, Body().zeros(3), 3);
  PerfRecordFileReader reader(open(builder), false);
  Listener listener;
  reader.parseEvents(listener);
  EXPECT_EQ(listener.bytes, dataOf(builder));
  EXPECT_THAT(listener.sizes, ElementsAre(24, 8, 11));
  EXPECT_THAT(listener.misc, ElementsAre(1, 2, 3));
  EXPECT_EQ(listener.closed, 1);
}

TEST_F(PerfRecordFileReaderTest, WithoutAStoreNoLayoutIsChosen) {
  const LogCapture log;
  PerfFileBuilder builder = file();
  builder.attribute(Attr().sampleType(0x4C7));
  const PerfRecordFileReader reader(open(builder), false);
  EXPECT_EQ(log.lines().size(), log.lines(LOGGER).size());
}

TEST_F(PerfRecordFileReaderTest, WithoutAStoreAFileNeedsNoAttributesUntilItIsWalked) {
  PerfFileBuilder builder = PerfFileBuilder().comm(1, 2, "app").fileSize(300);
  PerfRecordFileReader reader(open(builder), false);
  EXPECT_THAT(reader.getAttributes(), IsEmpty());
  NotingListener listener;
  EXPECT_THROW(reader.parseEvents(listener), boost::bad_index);
}

TEST_F(PerfRecordFileReaderTest, StepsCanBeRepeated) {
  PerfFileBuilder builder = PerfFileBuilder().attribute(Attr().ids({7})).eventType(3, "three");
  PerfRecordFileReader reader(open(builder), false);
  reader.readHeader();
  reader.readAttributes();
  reader.readTraceEventTypes();
  ASSERT_THAT(reader.getAttributes(), SizeIs(1));
  EXPECT_THAT(reader.getAttributes()[0].ids(), ElementsAre(7));
  EXPECT_THAT(reader.getTraceEventTypes(), ElementsAre(Pair(3, "three")));
}

TEST_F(PerfRecordFileReaderTest, RepeatedStepsReplaceWhatTheyLoaded) {
  const PerfFileBuilder builder =
      PerfFileBuilder().attribute(Attr().config(1)).eventType(3, "three");
  PerfRecordFileReader reader(open(builder), false);
  // The same file, under the reader's stream, now says something else.
  PerfFileBuilder().attribute(Attr().config(2)).eventType(4, "four").writeTo(folder_);
  reader.readHeader();
  reader.readAttributes();
  reader.readTraceEventTypes();
  ASSERT_THAT(reader.getAttributes(), SizeIs(1));
  EXPECT_EQ(reader.getAttributes()[0].config(), 2U);
  EXPECT_THAT(reader.getTraceEventTypes(), ElementsAre(Pair(4, "four")));
}

TEST_F(PerfRecordFileReaderTest, OpeningAFileClearsTheStreamsState) {
  std::string path = file().writeTo(folder_);
  std::ifstream stream;
  stream.setstate(std::ios::failbit | std::ios::eofbit);
  EXPECT_TRUE(PerfRecordFileReader::openPerfRecordFile(stream, path));
  EXPECT_TRUE(stream.is_open());
  EXPECT_TRUE(stream.good());
  const PerfRecordFileReader reader(stream, true);
  EXPECT_EQ(reader.fileSize(), 216);
}

TEST_F(PerfRecordFileReaderTest, OpeningWhatIsNoFileSetsFailbit) {
  for (const std::string& name : {folder_.file("absent"), folder_.path(), std::string()}) {
    std::string path = name;
    std::ifstream stream;
    EXPECT_FALSE(PerfRecordFileReader::openPerfRecordFile(stream, path)) << name;
    EXPECT_FALSE(stream.is_open()) << name;
    EXPECT_TRUE((stream.rdstate() & std::ios::failbit) != 0) << name;
  }
}

}  // namespace
