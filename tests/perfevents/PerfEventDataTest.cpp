// The record classes but the sample.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/log/Logger.h"
#include "perfevents/PerfEventData.h"
#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataLost.h"
#include "perfevents/PerfEventDataMmap.h"
#include "perfevents/PerfEventDataRead.h"
#include "perfevents/PerfEventDataTask.h"
#include "perfevents/PerfEventDataThrottle.h"
#include "perfevents/PerfEventDataUnknown.h"
#include "tests/perfevents/Decoded.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::isIgnore;
using perfevents::PerfEventAttribute;
using perfevents::PerfEventData;
using perfevents::PerfEventDataComm;
using perfevents::PerfEventDataExit;
using perfevents::PerfEventDataFork;
using perfevents::PerfEventDataLost;
using perfevents::PerfEventDataMmap;
using perfevents::PerfEventDataRead;
using perfevents::PerfEventDataThrottle;
using perfevents::PerfEventDataUnknown;
using perfevents::PerfEventDataUnthrottle;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t ALL_ONES_32 = 0xFFFFFFFF;
constexpr uint64_t ALL_ONES_64 = 0xFFFFFFFFFFFFFFFF;

class PerfEventDataTest : public testing::Test {
 protected:
  const PerfEventAttribute attribute_ = decoded(Attr());
  const PerfEventAttribute withReadFormat_ = decoded(Attr().readFormat(0x8));
};

// A record class that notes what reaches it.
class Probe : public PerfEventData {
 public:
  explicit Probe(const PerfEventAttribute& attribute) : PerfEventData(attribute) {}
  Probe(const PerfEventAttribute& attribute, unsigned int minimumSize)
      : PerfEventData(attribute, "Probe", minimumSize) {}

  bool parseEventData(const kestrel::ByteBufferViewport& body) override {
    parsedSize = static_cast<int>(body.size());
    return answer;
  }
  Type getType() const override { return Type::Unknown; }

  bool answer = true;
  int parsedSize = -1;
};

Body mmapBody() {
  return Body().u32(10).u32(11).u64(0x1122334455667788).u64(0x2000).u64(0x99AABBCCDDEEFF00);
}

template <typename Task>
void expectTaskRecord(const PerfEventAttribute& attribute, PerfEventData::Type type) {
  Task record(attribute);
  EXPECT_EQ(record.getType(), type);
  EXPECT_EQ(record.getRequiredMinimumSize(), 24U);
  EXPECT_EQ(record.pid(), ALL_ONES_32);
  EXPECT_EQ(record.ppid(), ALL_ONES_32);
  EXPECT_EQ(record.tid(), ALL_ONES_32);
  EXPECT_EQ(record.ptid(), ALL_ONES_32);

  const Body body = Body().u32(1).u32(2).u32(3).u32(4).u64(0x1122334455667788);
  EXPECT_FALSE(record.parse(BodyView(body.str().substr(0, 23)), 5));
  EXPECT_EQ(record.pid(), ALL_ONES_32);
  EXPECT_EQ(record.misc(), 0U);

  EXPECT_TRUE(record.parse(BodyView(body), 5));
  EXPECT_EQ(record.pid(), 1U);
  EXPECT_EQ(record.ppid(), 2U);
  EXPECT_EQ(record.tid(), 3U);
  EXPECT_EQ(record.ptid(), 4U);
  EXPECT_EQ(record.time(), 0x1122334455667788U);
  EXPECT_EQ(record.misc(), 5U);
  EXPECT_TRUE(record.parse(BodyView(Body(body).u64(7)), 5)) << "with a sample id behind";
}

template <typename Throttle>
void expectThrottleRecord(const PerfEventAttribute& attribute, PerfEventData::Type type) {
  Throttle record(attribute);
  EXPECT_EQ(record.getType(), type);
  EXPECT_EQ(record.getRequiredMinimumSize(), 24U);
  EXPECT_EQ(record.time(), 0U);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_EQ(record.streamId(), ALL_ONES_64);

  const Body body = Body().u64(0x1122334455667788).u64(2).u64(0x8000000000000003);
  EXPECT_FALSE(record.parse(BodyView(body.str().substr(0, 23)), 5));
  EXPECT_EQ(record.time(), 0U);
  EXPECT_EQ(record.misc(), 0U);

  EXPECT_TRUE(record.parse(BodyView(body), 5));
  EXPECT_EQ(record.time(), 0x1122334455667788U);
  EXPECT_EQ(record.id(), 2U);
  EXPECT_EQ(record.streamId(), 0x8000000000000003U);
  EXPECT_EQ(record.misc(), 5U);
}

std::string commOf(const PerfEventAttribute& attribute, const std::string& name) {
  PerfEventDataComm record(attribute);
  EXPECT_TRUE(record.parse(BodyView(Body().u32(1).u32(2).bytes(name)), 0));
  return record.comm();
}

std::string filenameOf(const PerfEventAttribute& attribute, const std::string& name) {
  PerfEventDataMmap record(attribute);
  EXPECT_TRUE(record.parse(BodyView(mmapBody().bytes(name)), 0));
  return record.filename();
}

TEST_F(PerfEventDataTest, TypesHaveTheKernelsNumbers) {
  using Type = PerfEventData::Type;
  EXPECT_EQ(static_cast<unsigned int>(Type::Unknown), 0U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Mmap), 1U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Lost), 2U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Comm), 3U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Exit), 4U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Throttle), 5U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Unthrottle), 6U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Fork), 7U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Read), 8U);
  EXPECT_EQ(static_cast<unsigned int>(Type::Sample), 9U);
  EXPECT_TRUE((std::is_same_v<PerfEventData::MiscFlags, uint16_t>));
}

TEST_F(PerfEventDataTest, BaseHasNoMinimumSizeAndNoMiscFlags) {
  Probe record(attribute_);
  EXPECT_EQ(record.getRequiredMinimumSize(), 0U);
  EXPECT_EQ(record.misc(), 0U);
  EXPECT_EQ(&record.attribute(), &attribute_);
  EXPECT_TRUE(record.parse(kestrel::ByteBufferViewport(), 1));
  EXPECT_EQ(record.parsedSize, 0);
}

TEST_F(PerfEventDataTest, BodyBelowTheMinimumIsNotParsedAndLeavesTheMiscFlags) {
  Probe record(attribute_, 10);
  EXPECT_TRUE(record.parse(BodyView(std::string(10, 'x')), 0x8001));
  EXPECT_EQ(record.parsedSize, 10);
  EXPECT_EQ(record.misc(), 0x8001U);
  EXPECT_FALSE(record.parse(BodyView(std::string(9, 'x')), 2));
  EXPECT_EQ(record.parsedSize, 10);
  EXPECT_EQ(record.misc(), 0x8001U);
}

TEST_F(PerfEventDataTest, FailedParseLeavesTheMiscFlags) {
  Probe record(attribute_, 10);
  EXPECT_TRUE(record.parse(BodyView(std::string(10, 'x')), 0x8001));
  record.answer = false;
  EXPECT_FALSE(record.parse(BodyView(std::string(11, 'x')), 2));
  EXPECT_EQ(record.parsedSize, 11);
  EXPECT_EQ(record.misc(), 0x8001U);
}

TEST_F(PerfEventDataTest, MiscFlagsAreKeptUnchanged) {
  Probe record(attribute_);
  for (const uint16_t misc : std::initializer_list<uint16_t>{0, 1, 2, 0x2000, 0xFFFF}) {
    EXPECT_TRUE(record.parse(kestrel::ByteBufferViewport(), misc));
    EXPECT_EQ(record.misc(), misc);
  }
}

TEST_F(PerfEventDataTest, EachRecordClassHasALoggerOfItsName) {
  struct Collector : kestrel::Logger::LoggerVisitor {
    void visit(kestrel::Logger* logger) override { names.push_back(logger->getName()); }
    std::vector<std::string> names;
  };
  Probe base(attribute_);
  PerfEventDataUnknown unknown(attribute_);
  PerfEventDataMmap mmap(attribute_);
  PerfEventDataLost lost(attribute_);
  PerfEventDataComm comm(attribute_);
  PerfEventDataExit exit(attribute_);
  PerfEventDataThrottle throttle(attribute_);
  PerfEventDataUnthrottle unthrottle(attribute_);
  PerfEventDataFork fork(attribute_);
  PerfEventDataRead read(attribute_);
  Collector collector;
  kestrel::Logger::visitLoggers(collector);
  EXPECT_THAT(collector.names,
              testing::IsSupersetOf({"PerfEventData", "PerfEventDataUnknown", "PerfEventDataMmap",
                                     "PerfEventDataLost", "PerfEventDataComm", "PerfEventDataExit",
                                     "PerfEventDataThrottle", "PerfEventDataUnthrottle",
                                     "PerfEventDataFork", "PerfEventDataRead"}));
}

TEST_F(PerfEventDataTest, MmapDefaults) {
  const PerfEventDataMmap record(attribute_);
  EXPECT_EQ(record.getType(), PerfEventData::Type::Mmap);
  EXPECT_EQ(record.getRequiredMinimumSize(), 32U);
  EXPECT_EQ(record.pid(), ALL_ONES_32);
  EXPECT_EQ(record.tid(), ALL_ONES_32);
  EXPECT_EQ(record.addr(), ALL_ONES_64);
  EXPECT_EQ(record.len(), 0U);
  EXPECT_EQ(record.pgoff(), ALL_ONES_64);
  EXPECT_EQ(record.filename(), "");
}

TEST_F(PerfEventDataTest, MmapIsDecoded) {
  PerfEventDataMmap record(attribute_);
  EXPECT_TRUE(record.parse(BodyView(mmapBody().name("/bin/app")), 2));
  EXPECT_EQ(record.pid(), 10U);
  EXPECT_EQ(record.tid(), 11U);
  EXPECT_EQ(record.addr(), 0x1122334455667788U);
  EXPECT_EQ(record.len(), 0x2000U);
  EXPECT_EQ(record.pgoff(), 0x99AABBCCDDEEFF00U);
  EXPECT_EQ(record.filename(), "/bin/app");
  EXPECT_EQ(record.misc(), 2U);
}

TEST_F(PerfEventDataTest, MmapOf31BytesIsRefusedAndOf32BytesHasAnEmptyName) {
  PerfEventDataMmap record(attribute_);
  EXPECT_FALSE(record.parse(BodyView(mmapBody().str().substr(0, 31)), 2));
  EXPECT_EQ(record.pid(), ALL_ONES_32);
  EXPECT_TRUE(record.parse(BodyView(mmapBody().bytes("x")), 0));
  EXPECT_EQ(record.filename(), "x");
  EXPECT_TRUE(record.parse(BodyView(mmapBody()), 2));
  EXPECT_EQ(record.pid(), 10U);
  EXPECT_EQ(record.filename(), "");
}

TEST_F(PerfEventDataTest, MmapNameIsCutAtItsFirstNulAndNotFiltered) {
  EXPECT_EQ(filenameOf(attribute_, std::string("/a\0/b\0", 6)), "/a");
  EXPECT_EQ(filenameOf(attribute_, "/no/end"), "/no/end");
  EXPECT_EQ(filenameOf(attribute_, "/t\tab\x80\xFF\n"), "/t\tab\x80\xFF\n");
  EXPECT_EQ(filenameOf(attribute_, std::string("\0abc", 4)), "");
}

TEST_F(PerfEventDataTest, SampleIdBehindTheNulIsNotPartOfAName) {
  EXPECT_EQ(filenameOf(attribute_, Body().name("/bin/app").u32(10).u32(11).u64(12).str()),
            "/bin/app");
  EXPECT_EQ(commOf(attribute_, Body().name("app").u32(0x61616161).u64(12).str()), "app");
}

TEST_F(PerfEventDataTest, LostIsDecoded) {
  PerfEventDataLost record(attribute_);
  EXPECT_EQ(record.getType(), PerfEventData::Type::Lost);
  EXPECT_EQ(record.getRequiredMinimumSize(), 16U);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_EQ(record.lost(), 0U);
  const Body body = Body().u64(0x1122334455667788).u64(0x99AABBCCDDEEFF00);
  EXPECT_FALSE(record.parse(BodyView(body.str().substr(0, 15)), 3));
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_TRUE(record.parse(BodyView(body), 3));
  EXPECT_EQ(record.id(), 0x1122334455667788U);
  EXPECT_EQ(record.lost(), 0x99AABBCCDDEEFF00U);
  EXPECT_EQ(record.misc(), 3U);
}

TEST_F(PerfEventDataTest, CommDefaults) {
  const PerfEventDataComm record(attribute_);
  EXPECT_EQ(record.getType(), PerfEventData::Type::Comm);
  EXPECT_EQ(record.getRequiredMinimumSize(), 8U);
  EXPECT_EQ(record.pid(), ALL_ONES_32);
  EXPECT_EQ(record.tid(), ALL_ONES_32);
  EXPECT_EQ(record.comm(), "");
}

TEST_F(PerfEventDataTest, CommIsDecoded) {
  PerfEventDataComm record(attribute_);
  EXPECT_TRUE(record.parse(BodyView(Body().u32(10).u32(11).name("my app")), 0x2000));
  EXPECT_EQ(record.pid(), 10U);
  EXPECT_EQ(record.tid(), 11U);
  EXPECT_EQ(record.comm(), "my app");
  EXPECT_EQ(record.misc(), 0x2000U);
}

TEST_F(PerfEventDataTest, CommOf7BytesIsRefusedAndOf8BytesHasAnEmptyName) {
  PerfEventDataComm record(attribute_);
  EXPECT_TRUE(record.parse(BodyView(Body().u32(1).u32(2).bytes("x")), 0));
  EXPECT_EQ(record.comm(), "x");
  EXPECT_FALSE(record.parse(BodyView(Body().u32(10).u16(11).u8(0)), 1));
  EXPECT_EQ(record.pid(), 1U);
  EXPECT_EQ(record.comm(), "x");
  EXPECT_TRUE(record.parse(BodyView(Body().u32(10).u32(11)), 2));
  EXPECT_EQ(record.pid(), 10U);
  EXPECT_EQ(record.tid(), 11U);
  EXPECT_EQ(record.comm(), "");
}

TEST_F(PerfEventDataTest, CommDropsControlCharactersAndBytesOf0x80AndAbove) {
  EXPECT_EQ(commOf(attribute_, std::string("ab\tc\0\0\0\0", 8)), "abc");
  EXPECT_EQ(commOf(attribute_, "\x80x"), "x");
  EXPECT_EQ(commOf(attribute_, "\x01\x1F \x7E\x7F\x80\xFF!"), " \x7E!");
  EXPECT_EQ(commOf(attribute_, "\xFF\xFE"), "");
}

TEST_F(PerfEventDataTest, CommIsCutAtItsFirstNulBeforeItIsFiltered) {
  EXPECT_EQ(commOf(attribute_, std::string("a\0b", 3)), "a");
  EXPECT_EQ(commOf(attribute_, std::string("\x01\0b", 3)), "");
  EXPECT_EQ(commOf(attribute_, std::string("\0abc", 4)), "");
}

TEST_F(PerfEventDataTest, CommLogsEachCharacterOfTheName) {
  const LogCapture log;
  commOf(attribute_, std::string("a\tb\0c", 5));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{"DEBUG", "PerfEventDataComm", "good"},
                                       LogLine{"DEBUG", "PerfEventDataComm", "bad"},
                                       LogLine{"DEBUG", "PerfEventDataComm", "good"}));
}

TEST_F(PerfEventDataTest, OnlyPrintableAsciiIsNotIgnored) {
  const LogCapture log(*kestrel::LogLevel::LVL_INFO);
  for (int byte = 0; byte < 256; ++byte) {
    EXPECT_EQ(isIgnore(static_cast<char>(static_cast<unsigned char>(byte))),
              byte < 0x20 || byte > 0x7E)
        << byte;
  }
}

TEST_F(PerfEventDataTest, IgnoredBytesLogBadAndOthersGood) {
  const LogCapture log;
  isIgnore('\x1F');
  isIgnore(' ');
  isIgnore('~');
  isIgnore('\x7F');
  isIgnore('\xFF');
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{"DEBUG", "PerfEventDataComm", "bad"},
                                       LogLine{"DEBUG", "PerfEventDataComm", "good"},
                                       LogLine{"DEBUG", "PerfEventDataComm", "good"},
                                       LogLine{"DEBUG", "PerfEventDataComm", "bad"},
                                       LogLine{"DEBUG", "PerfEventDataComm", "bad"}));
}

TEST_F(PerfEventDataTest, ExitIsDecoded) {
  expectTaskRecord<PerfEventDataExit>(attribute_, PerfEventData::Type::Exit);
}

TEST_F(PerfEventDataTest, ForkIsDecoded) {
  expectTaskRecord<PerfEventDataFork>(attribute_, PerfEventData::Type::Fork);
}

TEST_F(PerfEventDataTest, ThrottleIsDecoded) {
  expectThrottleRecord<PerfEventDataThrottle>(attribute_, PerfEventData::Type::Throttle);
}

TEST_F(PerfEventDataTest, UnthrottleIsDecoded) {
  expectThrottleRecord<PerfEventDataUnthrottle>(attribute_, PerfEventData::Type::Unthrottle);
}

TEST_F(PerfEventDataTest, ReadDefaults) {
  const PerfEventDataRead record(attribute_);
  EXPECT_EQ(record.getType(), PerfEventData::Type::Read);
  EXPECT_EQ(record.pid(), ALL_ONES_32);
  EXPECT_EQ(record.tid(), ALL_ONES_32);
  EXPECT_EQ(record.value(), 0U);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_EQ(record.timeEnabled(), 0U);
  EXPECT_EQ(record.timeRunning(), 0U);
  EXPECT_THAT(record.valueList(), IsEmpty());
  EXPECT_EQ(record.values().data(), nullptr);
  EXPECT_EQ(record.values().size(), 0U);
  EXPECT_FALSE(record.hasReadFormat());
}

TEST_F(PerfEventDataTest, ReadNeeds16BytesOr48WithAReadFormat) {
  PerfEventDataRead bare(attribute_);
  EXPECT_EQ(bare.getRequiredMinimumSize(), 16U);
  EXPECT_FALSE(bare.parse(BodyView(std::string(15, 'x')), 0));
  EXPECT_TRUE(bare.parse(BodyView(std::string(16, 'x')), 0));

  PerfEventDataRead formatted(withReadFormat_);
  EXPECT_TRUE(formatted.hasReadFormat());
  EXPECT_EQ(formatted.getRequiredMinimumSize(), 48U);
  EXPECT_FALSE(formatted.parse(BodyView(std::string(40, 'x')), 1));
  EXPECT_FALSE(formatted.parse(BodyView(std::string(47, 'x')), 1));
  EXPECT_EQ(formatted.pid(), ALL_ONES_32);
  EXPECT_EQ(formatted.misc(), 0U);
  EXPECT_TRUE(formatted.parse(BodyView(std::string(48, 'x')), 1));
}

TEST_F(PerfEventDataTest, ReadFormatIsTakenWhole) {
  const PerfEventAttribute high = decoded(Attr().readFormat(uint64_t{1} << 40));
  const PerfEventDataRead record(high);
  EXPECT_TRUE(record.hasReadFormat());
  EXPECT_EQ(record.getRequiredMinimumSize(), 48U);
}

TEST_F(PerfEventDataTest, ReadIsDecodedAndItsValuesAreAViewOfTheBody) {
  PerfEventDataRead record(withReadFormat_);
  const BodyView body(Body().u32(10).u32(11).u64(0x1122334455667788).u64(2).u64(3).u64(4).u64(5));
  EXPECT_TRUE(record.parse(body, 6));
  EXPECT_EQ(record.pid(), 10U);
  EXPECT_EQ(record.tid(), 11U);
  EXPECT_EQ(record.value(), 0x1122334455667788U);
  EXPECT_EQ(record.values().data(), body.data() + 8);
  EXPECT_EQ(record.values().size(), 40U);
  EXPECT_EQ(record.values().capacity(), 40U);
  EXPECT_EQ(record.misc(), 6U);
  EXPECT_EQ(record.timeEnabled(), 0U);
  EXPECT_EQ(record.timeRunning(), 0U);
  EXPECT_EQ(record.id(), ALL_ONES_64);
  EXPECT_THAT(record.valueList(), IsEmpty());
}

TEST_F(PerfEventDataTest, UnknownViewsTheWholeBody) {
  PerfEventDataUnknown record(attribute_);
  EXPECT_EQ(record.getType(), PerfEventData::Type::Unknown);
  EXPECT_EQ(record.getRequiredMinimumSize(), 8U);
  EXPECT_EQ(record.bytes().data(), nullptr);
  EXPECT_EQ(record.bytes().size(), 0U);
  EXPECT_FALSE(record.parse(BodyView(std::string(7, 'x')), 1));
  EXPECT_EQ(record.bytes().data(), nullptr);

  const std::string storage(12, 'x');
  const BodyView bytes(storage);
  kestrel::ByteBufferViewport body(bytes);
  body.size(8);
  EXPECT_TRUE(record.parse(body, 1));
  EXPECT_EQ(record.bytes().data(), bytes.data());
  EXPECT_EQ(record.bytes().size(), 8U);
  EXPECT_EQ(record.bytes().capacity(), 12U);
  EXPECT_EQ(record.misc(), 1U);
}

}  // namespace
