#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/ValueGetter.h"
#include "tests/support/BodyView.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::GetterCallchain;
using perfevents::GetterNoStreamId;
using perfevents::GetterReadFormat;
using perfevents::GetterSampleRaw;
using perfevents::GetterWithPeriod;
using perfevents::GetterWithStreamId;
using perfevents::SampleValues;
using perfevents::TypedValueGetter;
using perfevents::ValueGetter;
using testing::ElementsAre;

constexpr uint32_t ALL_ONES_32 = 0xFFFFFFFF;
constexpr uint64_t ALL_ONES_64 = 0xFFFFFFFFFFFFFFFF;

// ip, pid, tid, time as the combined layouts begin.
Body leading() {
  return Body().u64(0x1122334455667701).u32(0xA0B0C002).u32(0xA0B0C003).u64(0x1122334455667704);
}

void expectLeading(const SampleValues& values) {
  EXPECT_EQ(values.ip, 0x1122334455667701U);
  EXPECT_EQ(values.pid, 0xA0B0C002U);
  EXPECT_EQ(values.tid, 0xA0B0C003U);
  EXPECT_EQ(values.time, 0x1122334455667704U);
  EXPECT_EQ(values.addr, ALL_ONES_64);
  EXPECT_EQ(values.streamId, ALL_ONES_64);
}

// A getter whose stretch has always this size, however many bytes there are.
void expectFixedSize(const ValueGetter& getter, uint32_t size) {
  EXPECT_EQ(getter.getMinimumSize(), size);
  const BodyView bytes(std::string(size, '\xFF'));
  EXPECT_EQ(getter.measure(bytes.data(), size), size);
  EXPECT_EQ(getter.measure(bytes.data(), 0), size);
}

TEST(ValueGetterTest, DefaultsOfTheValues) {
  const SampleValues values;
  EXPECT_EQ(values.ip, ALL_ONES_64);
  EXPECT_EQ(values.pid, ALL_ONES_32);
  EXPECT_EQ(values.tid, ALL_ONES_32);
  EXPECT_EQ(values.time, 0U);
  EXPECT_EQ(values.addr, ALL_ONES_64);
  EXPECT_EQ(values.id, ALL_ONES_64);
  EXPECT_EQ(values.streamId, ALL_ONES_64);
  EXPECT_EQ(values.cpu, ALL_ONES_32);
  EXPECT_EQ(values.res, ALL_ONES_32);
  EXPECT_EQ(values.period, ALL_ONES_64);
}

TEST(ValueGetterTest, TypedGettersCopyOneNumber) {
  uint64_t wide = 0;
  TypedValueGetter<uint64_t> wideGetter(&wide);
  expectFixedSize(wideGetter, 8);
  EXPECT_EQ(wideGetter(BodyView(Body().u64(0x1122334455667788)).data()), 8U);
  EXPECT_EQ(wide, 0x1122334455667788U);

  uint32_t narrow = 0;
  TypedValueGetter<uint32_t> narrowGetter(&narrow);
  expectFixedSize(narrowGetter, 4);
  EXPECT_EQ(narrowGetter(BodyView(Body().u32(0x99AABBCC)).data()), 4U);
  EXPECT_EQ(narrow, 0x99AABBCCU);
}

TEST(ValueGetterTest, WithStreamIdCopiesItsLayout) {
  SampleValues values;
  GetterWithStreamId getter(&values);
  expectFixedSize(getter, 40);
  const BodyView bytes(leading().u64(0x1122334455667705).u32(0xA0B0C006).u32(0xA0B0C007));
  EXPECT_EQ(getter(bytes.data()), 40U);
  expectLeading(values);
  EXPECT_EQ(values.id, 0x1122334455667705U);
  EXPECT_EQ(values.cpu, 0xA0B0C006U);
  EXPECT_EQ(values.res, 0xA0B0C007U);
  EXPECT_EQ(values.period, ALL_ONES_64);
}

TEST(ValueGetterTest, NoStreamIdCopiesItsLayout) {
  SampleValues values;
  GetterNoStreamId getter(&values);
  expectFixedSize(getter, 32);
  EXPECT_EQ(getter(BodyView(leading().u32(0xA0B0C006).u32(0xA0B0C007)).data()), 32U);
  expectLeading(values);
  EXPECT_EQ(values.id, ALL_ONES_64);
  EXPECT_EQ(values.cpu, 0xA0B0C006U);
  EXPECT_EQ(values.res, 0xA0B0C007U);
  EXPECT_EQ(values.period, ALL_ONES_64);
}

TEST(ValueGetterTest, WithPeriodCopiesItsLayout) {
  SampleValues values;
  GetterWithPeriod getter(&values);
  expectFixedSize(getter, 40);
  const BodyView bytes(leading().u32(0xA0B0C006).u32(0xA0B0C007).u64(0x1122334455667708));
  EXPECT_EQ(getter(bytes.data()), 40U);
  expectLeading(values);
  EXPECT_EQ(values.id, ALL_ONES_64);
  EXPECT_EQ(values.cpu, 0xA0B0C006U);
  EXPECT_EQ(values.res, 0xA0B0C007U);
  EXPECT_EQ(values.period, 0x1122334455667708U);
}

TEST(ValueGetterTest, ReadFormatWithoutAGroupHasAFixedSize) {
  kestrel::ByteBufferViewport view;
  GetterReadFormat bothTimes(&view, 0x3);
  EXPECT_EQ(bothTimes.getMinimumSize(), 24U);
  const BodyView bytes(std::string(32, '\xFF'));
  EXPECT_EQ(bothTimes.measure(bytes.data(), 32), 24U);
  EXPECT_EQ(bothTimes(bytes.data()), 24U);
  EXPECT_EQ(view.data(), bytes.data());
  EXPECT_EQ(view.size(), 24U);
  EXPECT_EQ(view.capacity(), 24U);
  EXPECT_GT(bothTimes.measure(bytes.data(), 23), 23U);
}

TEST(ValueGetterTest, ReadFormatOfAGroupWithIdsConsumesItsEntries) {
  kestrel::ByteBufferViewport view;
  GetterReadFormat getter(&view, 0xC);
  EXPECT_EQ(getter.getMinimumSize(), 8U);
  const BodyView bytes(Body().u64(2).zeros(32));
  EXPECT_EQ(getter.measure(bytes.data(), 40), 40U);
  EXPECT_GT(getter.measure(bytes.data(), 39), 39U);
  EXPECT_EQ(getter(bytes.data()), 40U);
  EXPECT_EQ(view.size(), 40U);
}

TEST(ValueGetterTest, CallchainConsumesItsAddresses) {
  std::vector<uint64_t> chain = {99};
  GetterCallchain getter(&chain);
  EXPECT_EQ(getter.getMinimumSize(), 16U);
  const BodyView bytes(Body().u64(2).u64(5).u64(0xFFFFFFFFFFFFFE00).u64(7));
  EXPECT_EQ(getter.measure(bytes.data(), 32), 24U);
  EXPECT_EQ(getter.measure(bytes.data(), 24), 24U);
  EXPECT_GT(getter.measure(bytes.data(), 23), 23U);
  EXPECT_THAT(chain, ElementsAre(99));
  EXPECT_EQ(getter(bytes.data()), 24U);
  EXPECT_THAT(chain, ElementsAre(5, 0xFFFFFFFFFFFFFE00));
}

TEST(ValueGetterTest, CallchainKeepsItsCapacity) {
  std::vector<uint64_t> chain;
  GetterCallchain getter(&chain);
  getter(BodyView(Body().u64(3).u64(1).u64(2).u64(3)).data());
  const std::size_t capacity = chain.capacity();
  const uint64_t* const storage = chain.data();
  getter(BodyView(Body().u64(1).u64(4)).data());
  EXPECT_EQ(chain.capacity(), capacity);
  EXPECT_EQ(chain.data(), storage);
}

TEST(ValueGetterTest, RawConsumesItsBytes) {
  kestrel::ByteBufferViewport view;
  GetterSampleRaw getter(&view);
  EXPECT_EQ(getter.getMinimumSize(), 4U);
  const BodyView bytes(Body().u32(3).bytes("abcdef"));
  EXPECT_EQ(getter.measure(bytes.data(), 10), 7U);
  EXPECT_EQ(getter.measure(bytes.data(), 7), 7U);
  EXPECT_GT(getter.measure(bytes.data(), 6), 6U);
  EXPECT_EQ(getter(bytes.data()), 7U);
  EXPECT_EQ(bytesOf(view), "abc");
  EXPECT_EQ(view.capacity(), 3U);
}

// A count that is not there cannot be measured: the stretch does not fit, and nothing is read.
TEST(ValueGetterTest, StretchWithoutItsCountDoesNotFit) {
  kestrel::ByteBufferViewport view;
  std::vector<uint64_t> chain;
  const BodyView none("");
  EXPECT_GT(GetterSampleRaw(&view).measure(none.data(), 0), 0U);
  EXPECT_GT(GetterCallchain(&chain).measure(none.data(), 0), 0U);
  EXPECT_GT(GetterReadFormat(&view, 0x8).measure(none.data(), 0), 0U);
  const BodyView three("abc");
  EXPECT_GT(GetterSampleRaw(&view).measure(three.data(), 3), 3U);
  const BodyView seven("abcdefg");
  EXPECT_GT(GetterCallchain(&chain).measure(seven.data(), 7), 7U);
  EXPECT_GT(GetterReadFormat(&view, 0x8).measure(seven.data(), 7), 7U);
}

TEST(ValueGetterTest, CountsAreMeasuredIn64Bits) {
  kestrel::ByteBufferViewport view;
  std::vector<uint64_t> chain;
  // In 32 bits each stretch would be 8 or fewer bytes long.
  const BodyView raw(Body().u32(0xFFFFFFFE).zeros(12));
  EXPECT_GT(GetterSampleRaw(&view).measure(raw.data(), 16), 16U);
  const BodyView addresses(Body().u64(0x20000000).zeros(8));
  EXPECT_GT(GetterCallchain(&chain).measure(addresses.data(), 16), 16U);
  const BodyView entries(Body().u64(0x10000000).zeros(8));
  EXPECT_GT(GetterReadFormat(&view, 0xC).measure(entries.data(), 16), 16U);
}

}  // namespace
