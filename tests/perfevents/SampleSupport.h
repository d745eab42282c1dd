// Sample records of any layout, and values to fill them with.
#pragma once

#include <cstdint>
#include <linux/perf_event.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfEventDataSample.h"
#include "tests/perfevents/Decoded.h"
#include "tests/support/BodyView.h"
#include "tests/support/PerfFileBuilder.h"

constexpr uint32_t ALL_ONES_32 = 0xFFFFFFFF;
constexpr uint64_t ALL_ONES_64 = 0xFFFFFFFFFFFFFFFF;

// The layouts that perf record produces by default.
constexpr uint64_t COMMON_WITH_ID = 0x4C7;
constexpr uint64_t COMMON_WITHOUT_ID = 0x487;
constexpr uint64_t COMMON_WITH_PERIOD = 0x5A7;
// Every part of a sample that is decoded, less the identifier.
constexpr uint64_t EVERYTHING = 0x7FF;

// Different in every field; the callchain begins with PERF_CONTEXT_USER.
inline const SampleFields FIELDS = {.identifier = 0x1122334455667701,
                                    .ip = 0x1122334455667702,
                                    .pid = 0xA0B0C003,
                                    .tid = 0xA0B0C004,
                                    .time = 0x1122334455667705,
                                    .addr = 0x1122334455667706,
                                    .id = 0x1122334455667707,
                                    .streamId = 0x1122334455667708,
                                    .cpu = 0xA0B0C009,
                                    .res = 0xA0B0C00A,
                                    .period = 0x112233445566770B,
                                    .readBlock = Body().u64(0x112233445566770C).str(),
                                    .callchain = {0xFFFFFFFFFFFFFE00, 0x112233445566770D, 14},
                                    .raw = "raw!"};

// A sample record object with the attribute that it borrows.
struct Sample {
  explicit Sample(Attr stored) : attribute(decoded(stored)), record(attribute) {}
  explicit Sample(uint64_t sampleType) : Sample(Attr().sampleType(sampleType)) {}

  // Keeps the bytes, since the record's views point into them.
  bool parse(const std::string& body, uint16_t misc = 0) {
    return record.parse(bodies.emplace_back(body), misc);
  }

  const perfevents::PerfEventAttribute attribute;
  perfevents::PerfEventDataSample record;
  std::vector<BodyView> bodies;
};

inline std::string callchainBody(uint64_t count, const std::vector<uint64_t>& addresses) {
  Body body;
  body.u64(count);
  for (const uint64_t address : addresses) {
    body.u64(address);
  }
  return body.str();
}

// What the record has of the layout's parts is these values, what it does not have its defaults.
inline void expectFields(const perfevents::PerfEventDataSample& record, uint64_t layout,
                         const SampleFields& fields) {
  const auto ifHas = [layout](uint64_t part, uint64_t value, uint64_t otherwise) {
    return (layout & part) != 0 ? value : otherwise;
  };
  EXPECT_EQ(record.ip(), ifHas(PERF_SAMPLE_IP, fields.ip, ALL_ONES_64));
  EXPECT_EQ(record.getPid(), ifHas(PERF_SAMPLE_TID, fields.pid, ALL_ONES_32));
  EXPECT_EQ(record.getTid(), ifHas(PERF_SAMPLE_TID, fields.tid, ALL_ONES_32));
  EXPECT_EQ(record.time(), ifHas(PERF_SAMPLE_TIME, fields.time, 0));
  EXPECT_EQ(record.addr(), ifHas(PERF_SAMPLE_ADDR, fields.addr, ALL_ONES_64));
  EXPECT_EQ(record.id(), ifHas(PERF_SAMPLE_ID, fields.id,
                               ifHas(PERF_SAMPLE_IDENTIFIER, fields.identifier, ALL_ONES_64)));
  EXPECT_EQ(record.streamId(), ifHas(PERF_SAMPLE_STREAM_ID, fields.streamId, ALL_ONES_64));
  EXPECT_EQ(record.getCpu(), ifHas(PERF_SAMPLE_CPU, fields.cpu, ALL_ONES_32));
  EXPECT_EQ(record.getResource(), ifHas(PERF_SAMPLE_CPU, fields.res, ALL_ONES_32));
  EXPECT_EQ(record.period(), ifHas(PERF_SAMPLE_PERIOD, fields.period, ALL_ONES_64));
  EXPECT_EQ(bytesOf(record.readData()), (layout & PERF_SAMPLE_READ) != 0 ? fields.readBlock : "");
  EXPECT_EQ(record.callchain(),
            (layout & PERF_SAMPLE_CALLCHAIN) != 0 ? fields.callchain : std::vector<uint64_t>());
  EXPECT_EQ(bytesOf(record.rawData()), (layout & PERF_SAMPLE_RAW) != 0 ? fields.raw : "");
}
