// Where the time of a sample stands, without decoding the sample.
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/ByteBufferViewport.h"
#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfEventDataSample.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

constexpr uint64_t TIME = 0x4;
constexpr uint64_t IDENTIFIER = 0x10000;
constexpr uint64_t STAMP = 0x1122334455667788;

std::optional<std::size_t> timeOffsetOf(uint64_t sampleType) {
  const std::string structure = Attr().sampleType(sampleType).structure();
  std::vector<unsigned char> bytes(structure.begin(), structure.end());
  const auto size = static_cast<unsigned>(bytes.size());
  const kestrel::ByteBufferViewport view(bytes.data(), size, size);
  return perfevents::PerfEventDataSample::timeOffset(
      perfevents::PerfEventAttribute(view, std::vector<uint64_t>()));
}

}  // namespace

TEST(PerfEventDataSampleTimeTest, OffsetIsThatOfTheTimeInEveryLayout) {
  SampleFields fields;
  fields.time = STAMP;
  fields.readBlock = std::string(8, 0);
  for (uint64_t layout = 0; layout < 0x800; ++layout) {
    for (const uint64_t sampleType : {layout | TIME, layout | TIME | IDENTIFIER}) {
      const auto offset = timeOffsetOf(sampleType);
      ASSERT_TRUE(offset.has_value());
      uint64_t found = 0;
      std::memcpy(&found, sampleBody(sampleType, fields).data() + *offset, sizeof(found));
      ASSERT_EQ(found, STAMP) << std::hex << sampleType;
    }
  }
}

TEST(PerfEventDataSampleTimeTest, LayoutsWithoutATimeHaveNone) {
  for (const uint64_t sampleType : {uint64_t{0}, uint64_t{0x1}, uint64_t{0x7FB}, IDENTIFIER}) {
    EXPECT_FALSE(timeOffsetOf(sampleType).has_value());
  }
}
