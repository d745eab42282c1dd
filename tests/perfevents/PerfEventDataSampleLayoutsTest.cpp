// Every layout there can be of the parts that are decoded: each value comes to its own field.
#include <string>

#include <gtest/gtest.h>

#include "tests/perfevents/SampleSupport.h"
#include "tests/support/LogCapture.h"

namespace {

constexpr uint64_t ALL_PARTS = EVERYTHING | PERF_SAMPLE_IDENTIFIER;

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
  for (const uint64_t layout : {COMMON_WITHOUT_ID, COMMON_WITH_PERIOD, ALL_PARTS}) {
    Sample sample(layout);
    ASSERT_TRUE(sample.parse(sampleBody(layout, FIELDS) + std::string(100, '\xEE')));
    expectFields(sample.record, layout, FIELDS);
  }
}
