#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/ptr_container/ptr_vector.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventAttribute.h"
#include "tests/perfevents/Decoded.h"
#include "tests/support/BodyView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventAttribute;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string TOO_SHORT = "Data is not of sufficient size to hold a full perf_event_attr.";

// A flag: its accessor, its bit in the kernel's word, and the smallest structure that has it.
struct Flag {
  const char* name;
  bool (PerfEventAttribute::*value)() const;
  unsigned int bit;
  std::size_t structureSize;
};

const Flag FLAGS[] = {
    {"disabled", &PerfEventAttribute::disabled, 0, 64},
    {"inherit", &PerfEventAttribute::inherit, 1, 64},
    {"pinned", &PerfEventAttribute::pinned, 2, 64},
    {"exclusive", &PerfEventAttribute::exclusive, 3, 64},
    {"exclude_user", &PerfEventAttribute::excludeUser, 4, 64},
    {"exclude_kernel", &PerfEventAttribute::excludeKernel, 5, 64},
    {"exclude_hv", &PerfEventAttribute::excludeHv, 6, 64},
    {"exclude_idle", &PerfEventAttribute::excludeIdle, 7, 64},
    {"mmap", &PerfEventAttribute::mmap, 8, 64},
    {"comm", &PerfEventAttribute::comm, 9, 64},
    {"freq", &PerfEventAttribute::freq, 10, 64},
    {"inherit_stat", &PerfEventAttribute::inheritStat, 11, 64},
    {"enable_on_exec", &PerfEventAttribute::enableOnExec, 12, 64},
    {"task", &PerfEventAttribute::task, 13, 64},
    {"watermark", &PerfEventAttribute::watermark, 14, 64},
    {"mmap_data", &PerfEventAttribute::mmapData, 17, 64},
    {"sample_id_all", &PerfEventAttribute::sampleIdAll, 18, 64},
    {"exclude_host", &PerfEventAttribute::excludeHost, 19, 72},
    {"exclude_guest", &PerfEventAttribute::excludeGuest, 20, 72},
    {"exclude_callchain_kernel", &PerfEventAttribute::excludeCallchainKernel, 21, 96},
    {"exclude_callchain_user", &PerfEventAttribute::excludeCallchainUser, 22, 96},
};

// Every field different from every other and from zero, in a structure of this size.
Attr distinct(std::size_t structureSize) {
  return Attr()
      .structureSize(structureSize)
      .sizeField(0x0102)
      .type(0x0304)
      .config(0x0506)
      .samplePeriod(0x1122334455667708)
      .sampleType(0x1122334455667709)
      .readFormat(0x112233445566770A)
      .flags(UINT64_MAX)
      .wakeupEvents(0xA0B0C00B)
      .bpType(0xA0B0C00C)
      .bpAddr(0x112233445566770D)
      .bpLen(0x112233445566770E)
      .branchSampleType(0x112233445566770F)
      .sampleRegsUser(0x1122334455667710)
      .sampleStackUser(0xA0B0C011);
}

void expectFieldsOfTheOldestStructure(const PerfEventAttribute& attribute) {
  EXPECT_EQ(attribute.size(), 0x0102U);
  EXPECT_EQ(attribute.type(), 0x0304U);
  EXPECT_EQ(attribute.config(), 0x0506U);
  EXPECT_EQ(attribute.samplePeriod(), 0x1122334455667708U);
  EXPECT_EQ(attribute.sampleType(), 0x1122334455667709U);
  EXPECT_EQ(attribute.readFormat(), 0x112233445566770AU);
  EXPECT_EQ(attribute.wakeupEvents(), 0xA0B0C00BU);
  EXPECT_EQ(attribute.bpType(), 0xA0B0C00CU);
  EXPECT_EQ(attribute.bpAddr(), 0x112233445566770DU);
  EXPECT_EQ(attribute.preciseIp(), 3U);
}

// Which fields a structure of this size has, all bits being set in the stored flag word.
void expectRevision(std::size_t structureSize, bool has72, bool has80, bool has96) {
  SCOPED_TRACE("structure size " + std::to_string(structureSize));
  const PerfEventAttribute attribute = decoded(distinct(structureSize));
  expectFieldsOfTheOldestStructure(attribute);
  EXPECT_EQ(attribute.bpLen(), has72 ? 0x112233445566770EU : 0U);
  EXPECT_EQ(attribute.branchSampleType(), has80 ? 0x112233445566770FU : 0U);
  EXPECT_EQ(attribute.sampleRegsUser(), has96 ? 0x1122334455667710U : 0U);
  EXPECT_EQ(attribute.sampleStackUser(), has96 ? 0xA0B0C011U : 0U);
  for (const Flag& flag : FLAGS) {
    const bool has = flag.structureSize == 64 || (flag.structureSize == 72 && has72) ||
                     (flag.structureSize == 96 && has96);
    EXPECT_EQ(std::invoke(flag.value, attribute), has) << flag.name;
  }
}

void expectDefaults(const PerfEventAttribute& attribute) {
  EXPECT_THAT(attribute.ids(), IsEmpty());
  EXPECT_EQ(attribute.raw().size(), 0U);
  EXPECT_EQ(attribute.raw().capacity(), 0U);
  EXPECT_EQ(attribute.type(), 6U);
  EXPECT_EQ(attribute.size(), 0U);
  EXPECT_EQ(attribute.config(), 0U);
  EXPECT_EQ(attribute.samplePeriod(), 0U);
  EXPECT_EQ(attribute.sampleType(), 0U);
  EXPECT_EQ(attribute.readFormat(), 0U);
  EXPECT_EQ(attribute.wakeupEvents(), 0U);
  EXPECT_EQ(attribute.preciseIp(), 0U);
  EXPECT_EQ(attribute.bpType(), 0U);
  EXPECT_EQ(attribute.bpAddr(), 0U);
  EXPECT_EQ(attribute.bpLen(), 0U);
  EXPECT_EQ(attribute.branchSampleType(), 0U);
  EXPECT_EQ(attribute.sampleRegsUser(), 0U);
  EXPECT_EQ(attribute.sampleStackUser(), 0U);
  for (const Flag& flag : FLAGS) {
    EXPECT_FALSE(std::invoke(flag.value, attribute)) << flag.name;
  }
}

TEST(PerfEventAttributeTest, DefaultsAreNoTypeAndNothing) {
  const PerfEventAttribute attribute;
  expectDefaults(attribute);
}

TEST(PerfEventAttributeTest, SixtyThreeBytesAreRefusedByTheConstructor) {
  const LogCapture log;
  const BodyView data(std::string(63, '\x01'));
  try {
    const PerfEventAttribute attribute(data, {1});
    FAIL() << "nothing was thrown";
  } catch (const std::invalid_argument& error) {
    EXPECT_EQ(error.what(), TOO_SHORT);
  }
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{
                  "TRACE", "PerfEventAttribute",
                  "Perf event attribute data not large enough. Size is 63, expected at least 64"}));
}

TEST(PerfEventAttributeTest, SixtyThreeBytesLeaveAnAttributeAsItWas) {
  const LogCapture log;
  const Attr stored = distinct(96);
  PerfEventAttribute attribute = decoded(stored, {4, 5});
  EXPECT_FALSE(attribute.initialize(BodyView(std::string(63, '\0')), {6}));
  expectFieldsOfTheOldestStructure(attribute);
  EXPECT_EQ(attribute.sampleStackUser(), 0xA0B0C011U);
  EXPECT_TRUE(attribute.excludeCallchainUser());
  EXPECT_THAT(attribute.ids(), ElementsAre(4, 5));
  EXPECT_EQ(bytesOf(attribute.raw()), stored.structure());

  PerfEventAttribute fresh;
  EXPECT_FALSE(fresh.initialize(BodyView(std::string(63, '\x01')), {6}));
  expectDefaults(fresh);
}

TEST(PerfEventAttributeTest, EmptyDataIsRefusedWithItsSize) {
  const LogCapture log;
  PerfEventAttribute attribute;
  EXPECT_FALSE(attribute.initialize(kestrel::ByteBufferViewport(), {}));
  EXPECT_TRUE(
      log.has("TRACE", "PerfEventAttribute",
              "Perf event attribute data not large enough. Size is 0, expected at least 64"));
}

TEST(PerfEventAttributeTest, SufficientDataIsDecodedWithoutAMessage) {
  const LogCapture log;
  PerfEventAttribute attribute;
  EXPECT_TRUE(attribute.initialize(BodyView(std::string(64, '\0')), {}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(PerfEventAttributeTest, SixtyFourBytesHaveNoneOfTheLaterFieldsEvenIfTheirBitsAreSet) {
  expectRevision(64, false, false, false);
}

TEST(PerfEventAttributeTest, EachRevisionBeginsAtItsSize) {
  expectRevision(65, false, false, false);
  expectRevision(71, false, false, false);
  expectRevision(72, true, false, false);
  expectRevision(79, true, false, false);
  expectRevision(80, true, true, false);
  expectRevision(95, true, true, false);
  expectRevision(96, true, true, true);
}

TEST(PerfEventAttributeTest, SizeBetweenTwoRevisionsDecodesAsTheOlder) {
  expectRevision(88, true, true, false);
}

TEST(PerfEventAttributeTest, SizeBeyondTheNewestRevisionDecodesAsTheNewest) {
  expectRevision(97, true, true, true);
  expectRevision(136, true, true, true);
  expectRevision(65536, true, true, true);
}

TEST(PerfEventAttributeTest, StoredSizeFieldDecidesNothing) {
  const PerfEventAttribute large = decoded(distinct(96).sizeField(64));
  EXPECT_EQ(large.size(), 64U);
  EXPECT_EQ(large.sampleStackUser(), 0xA0B0C011U);
  const PerfEventAttribute small = decoded(distinct(64).sizeField(96));
  EXPECT_EQ(small.size(), 96U);
  EXPECT_EQ(small.bpLen(), 0U);
  const PerfEventAttribute none = decoded(distinct(96).sizeField(0));
  EXPECT_EQ(none.size(), 0U);
  EXPECT_EQ(none.bpLen(), 0x112233445566770EU);
}

TEST(PerfEventAttributeTest, UpperHalfOfConfigIsNotKept) {
  EXPECT_EQ(decoded(Attr().config(0x1'0000'0002)).config(), 2U);
  EXPECT_EQ(decoded(Attr().config(0xFFFFFFFF)).config(), 0xFFFFFFFFU);
}

TEST(PerfEventAttributeTest, EachFlagReadsItsOwnBitOnly) {
  for (const Flag& set : FLAGS) {
    const PerfEventAttribute attribute = decoded(Attr().flags(uint64_t{1} << set.bit));
    for (const Flag& flag : FLAGS) {
      EXPECT_EQ(std::invoke(flag.value, attribute), flag.bit == set.bit)
          << flag.name << " with bit " << set.bit;
    }
    EXPECT_EQ(attribute.preciseIp(), 0U) << set.name;
  }
}

TEST(PerfEventAttributeTest, PreciseIpReadsBothBits) {
  EXPECT_EQ(decoded(Attr().flags(uint64_t{1} << 15)).preciseIp(), 1U);
  EXPECT_EQ(decoded(Attr().flags(uint64_t{1} << 16)).preciseIp(), 2U);
  EXPECT_EQ(decoded(Attr().flags(uint64_t{3} << 15)).preciseIp(), 3U);
  const PerfEventAttribute precise = decoded(Attr().flags(uint64_t{3} << 15));
  for (const Flag& flag : FLAGS) {
    EXPECT_FALSE(std::invoke(flag.value, precise)) << flag.name;
  }
}

TEST(PerfEventAttributeTest, LaterFlagBitsAreNotDecoded) {
  const PerfEventAttribute attribute = decoded(Attr().flags(~uint64_t{0} << 23));
  EXPECT_EQ(attribute.preciseIp(), 0U);
  for (const Flag& flag : FLAGS) {
    EXPECT_FALSE(std::invoke(flag.value, attribute)) << flag.name;
  }
}

TEST(PerfEventAttributeTest, RawCopyHoldsEveryStoredByte) {
  const Attr stored = distinct(120).u64(112, 0xFEDCBA9876543210);
  std::string bytes = stored.structure();
  std::vector<unsigned char> data(bytes.begin(), bytes.end());
  const kestrel::ByteBufferViewport view(data.data(), static_cast<unsigned int>(data.size()),
                                         static_cast<unsigned int>(data.size()));
  const PerfEventAttribute attribute(view, {});
  data.assign(data.size(), 0);
  EXPECT_EQ(attribute.raw().capacity(), 120U);
  EXPECT_EQ(bytesOf(attribute.raw()), bytes);
}

TEST(PerfEventAttributeTest, OnlyTheUsedBytesOfTheDataCount) {
  const LogCapture log;
  const std::string bytes = distinct(96).structure();
  std::vector<unsigned char> data(bytes.begin(), bytes.end());
  const PerfEventAttribute attribute(kestrel::ByteBufferViewport(data.data(), 96, 72), {});
  EXPECT_EQ(attribute.bpLen(), 0x112233445566770EU);
  EXPECT_EQ(attribute.branchSampleType(), 0U);
  EXPECT_EQ(attribute.raw().capacity(), 72U);
  EXPECT_EQ(attribute.raw().size(), 72U);
  PerfEventAttribute shorter;
  EXPECT_FALSE(shorter.initialize(kestrel::ByteBufferViewport(data.data(), 96, 63), {}));
}

TEST(PerfEventAttributeTest, InitializeReplacesIdsAndRawCopy) {
  PerfEventAttribute attribute = decoded(distinct(96), {1, 2, 3});
  const Attr second = distinct(120).type(9);
  EXPECT_TRUE(attribute.initialize(BodyView(second.structure()), {4}));
  EXPECT_THAT(attribute.ids(), ElementsAre(4));
  EXPECT_EQ(attribute.type(), 9U);
  EXPECT_EQ(bytesOf(attribute.raw()), second.structure());
}

TEST(PerfEventAttributeTest, FindsTheFirstAMiddleAndTheLastIdAndNoOther) {
  const PerfEventAttribute attribute = decoded(Attr(), {7, 0xFFFFFFFFFFFFFFFF, 9, 0x100000000});
  const PerfEventAttribute other = decoded(Attr(), {8});
  EXPECT_TRUE(attribute.isAssociatedWithId(7));
  EXPECT_TRUE(attribute.isAssociatedWithId(0xFFFFFFFFFFFFFFFF));
  EXPECT_TRUE(attribute.isAssociatedWithId(9));
  EXPECT_TRUE(attribute.isAssociatedWithId(0x100000000));
  EXPECT_FALSE(attribute.isAssociatedWithId(8));
  EXPECT_FALSE(attribute.isAssociatedWithId(0));
  EXPECT_TRUE(other.isAssociatedWithId(8));
  EXPECT_FALSE(other.isAssociatedWithId(7));
}

TEST(PerfEventAttributeTest, WithoutIdsNoneIsFound) {
  EXPECT_FALSE(decoded(Attr()).isAssociatedWithId(0));
  EXPECT_FALSE(PerfEventAttribute().isAssociatedWithId(0));
}

TEST(PerfEventAttributeTest, IdsCanBeReplaced) {
  PerfEventAttribute attribute = decoded(Attr(), {7});
  attribute.ids({8, 9});
  EXPECT_THAT(attribute.ids(), ElementsAre(8, 9));
  EXPECT_FALSE(attribute.isAssociatedWithId(7));
  EXPECT_TRUE(attribute.isAssociatedWithId(9));
}

TEST(PerfEventAttributeTest, CopiesAreIndependent) {
  const Attr stored = distinct(96);
  PerfEventAttribute original = decoded(stored, {7});
  PerfEventAttribute copy = original;
  PerfEventAttribute assigned;
  assigned = original;
  original.initialize(BodyView(std::string(64, '\0')), {});
  for (const PerfEventAttribute* const each : {&copy, &assigned}) {
    expectFieldsOfTheOldestStructure(*each);
    EXPECT_EQ(each->sampleStackUser(), 0xA0B0C011U);
    EXPECT_TRUE(each->inherit());
    EXPECT_EQ(bytesOf(each->raw()), stored.structure());
    EXPECT_THAT(each->ids(), ElementsAre(7));
  }
}

TEST(PerfEventAttributeTest, ListsOfAttributesCanBeCopied) {
  boost::ptr_vector<PerfEventAttribute> list;
  list.push_back(new PerfEventAttribute(decoded(distinct(96), {7})));
  const boost::ptr_vector<PerfEventAttribute> copy(list);
  list.clear();
  ASSERT_EQ(copy.size(), 1U);
  expectFieldsOfTheOldestStructure(copy[0]);
}

}  // namespace
