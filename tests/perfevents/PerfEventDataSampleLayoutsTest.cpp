// Every layout there can be of the parts that are decoded: wherever words are copied together and
// wherever that stops, each value comes to its own field.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/perfevents/SampleSupport.h"
#include "tests/support/LogCapture.h"

namespace {

using perfevents::PerfEventDataSample;

// PERF_SAMPLE_*
constexpr uint64_t IP = 0x1;
constexpr uint64_t TID = 0x2;
constexpr uint64_t TIME = 0x4;
constexpr uint64_t ADDR = 0x8;
constexpr uint64_t READ = 0x10;
constexpr uint64_t CALLCHAIN = 0x20;
constexpr uint64_t ID = 0x40;
constexpr uint64_t CPU = 0x80;
constexpr uint64_t PERIOD = 0x100;
constexpr uint64_t STREAM_ID = 0x200;
constexpr uint64_t RAW = 0x400;
constexpr uint64_t IDENTIFIER = 0x10000;
constexpr uint64_t ALL_PARTS = 0x107FF;

// Other values than those of FIELDS, and shorter ones.
SampleFields otherFields() {
  SampleFields fields = FIELDS;
  for (uint64_t* const value : {&fields.identifier, &fields.ip, &fields.time, &fields.addr,
                                &fields.id, &fields.streamId, &fields.period}) {
    *value = ~*value;
  }
  for (uint32_t* const value : {&fields.pid, &fields.tid, &fields.cpu, &fields.res}) {
    *value = ~*value;
  }
  fields.readBlock = "readread";
  fields.callchain = {5};
  fields.raw = "another text";
  return fields;
}

// What the record has of the layout's parts is these values, what it does not have its defaults.
void expectFields(const PerfEventDataSample& record, uint64_t layout, const SampleFields& fields) {
  const auto ifHas = [layout](uint64_t part, uint64_t value, uint64_t otherwise) {
    return (layout & part) != 0 ? value : otherwise;
  };
  EXPECT_EQ(record.ip(), ifHas(IP, fields.ip, ALL_ONES_64));
  EXPECT_EQ(record.getPid(), ifHas(TID, fields.pid, ALL_ONES_32));
  EXPECT_EQ(record.getTid(), ifHas(TID, fields.tid, ALL_ONES_32));
  EXPECT_EQ(record.time(), ifHas(TIME, fields.time, 0));
  EXPECT_EQ(record.addr(), ifHas(ADDR, fields.addr, ALL_ONES_64));
  EXPECT_EQ(record.id(), ifHas(ID, fields.id, ifHas(IDENTIFIER, fields.identifier, ALL_ONES_64)));
  EXPECT_EQ(record.streamId(), ifHas(STREAM_ID, fields.streamId, ALL_ONES_64));
  EXPECT_EQ(record.getCpu(), ifHas(CPU, fields.cpu, ALL_ONES_32));
  EXPECT_EQ(record.getResource(), ifHas(CPU, fields.res, ALL_ONES_32));
  EXPECT_EQ(record.period(), ifHas(PERIOD, fields.period, ALL_ONES_64));
  EXPECT_EQ(bytesOf(record.readData()), (layout & READ) != 0 ? fields.readBlock : "");
  EXPECT_EQ(record.callchain(),
            (layout & CALLCHAIN) != 0 ? fields.callchain : std::vector<uint64_t>());
  EXPECT_EQ(bytesOf(record.rawData()), (layout & RAW) != 0 ? fields.raw : "");
}

class PerfEventDataSampleLayoutsTest : public testing::Test {
 protected:
  // Two samples one after the other, and a refused one behind them.
  static void expectDecoded(uint64_t layout) {
    SCOPED_TRACE("layout " + std::to_string(layout));
    Sample sample(layout);
    expectFields(sample.record, 0, {});
    ASSERT_TRUE(sample.parse(sampleBody(layout, FIELDS)));
    expectFields(sample.record, layout, FIELDS);
    const SampleFields others = otherFields();
    const std::string body = sampleBody(layout, others);
    ASSERT_TRUE(sample.parse(body));
    expectFields(sample.record, layout, others);
    if (!body.empty()) {
      EXPECT_FALSE(sample.parse(sampleBody(layout, FIELDS).substr(0, 7)));
      EXPECT_FALSE(sample.parse(body.substr(0, body.size() - 1)));
      expectFields(sample.record, layout, others);
    }
  }

  const LogCapture quiet_{*kestrel::LogLevel::LVL_ERROR};
};

}  // namespace

TEST_F(PerfEventDataSampleLayoutsTest, EveryLayout) {
  for (uint64_t parts = 0; parts < 0x1000 && !HasFailure(); ++parts) {
    expectDecoded((parts & 0x7FF) | (parts & 0x800) << 5);  // the identifier's bit is 0x10000
  }
}

TEST_F(PerfEventDataSampleLayoutsTest, LongerRecordsHaveTheSameValues) {
  for (const uint64_t layout : {IP | TID | TIME | CPU, COMMON_WITH_PERIOD, ALL_PARTS}) {
    Sample sample(layout);
    ASSERT_TRUE(sample.parse(sampleBody(layout, FIELDS) + std::string(100, '\xEE')));
    expectFields(sample.record, layout, FIELDS);
  }
}
