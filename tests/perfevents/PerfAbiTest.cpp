#include <cstddef>
#include <cstring>
#include <linux/perf_event.h>

#include <gtest/gtest.h>

#include "perfevents/PerfAbi.h"

// The kernel's own header is the judge wherever it has the number; the file's structures are perf's
// own and are written down by hand.

namespace {

namespace abi = perfevents::abi;

// The bits of the flag word that a change of the kernel's bit fields sets.
template <typename Change>
uint64_t flagsAfter(Change change) {
  perf_event_attr attribute;
  std::memset(&attribute, 0, sizeof attribute);
  change(attribute);
  uint64_t flags = 0;
  std::memcpy(&flags, reinterpret_cast<const char*>(&attribute) + abi::ATTR_FLAGS, sizeof flags);
  return flags;
}

constexpr uint64_t bit(abi::AttrFlag flag) { return uint64_t{1} << flag; }

TEST(PerfAbiTest, AttributeSizes) {
  EXPECT_EQ(abi::ATTR_SIZE_VER0, PERF_ATTR_SIZE_VER0);
  EXPECT_EQ(abi::ATTR_SIZE_VER1, PERF_ATTR_SIZE_VER1);
  EXPECT_EQ(abi::ATTR_SIZE_VER2, PERF_ATTR_SIZE_VER2);
  EXPECT_EQ(abi::ATTR_SIZE_VER3, PERF_ATTR_SIZE_VER3);
  EXPECT_EQ(abi::TYPE_MAX, unsigned{PERF_TYPE_MAX});
}

TEST(PerfAbiTest, AttributeOffsets) {
  EXPECT_EQ(abi::ATTR_TYPE, offsetof(perf_event_attr, type));
  EXPECT_EQ(abi::ATTR_SIZE, offsetof(perf_event_attr, size));
  EXPECT_EQ(abi::ATTR_CONFIG, offsetof(perf_event_attr, config));
  EXPECT_EQ(abi::ATTR_SAMPLE_PERIOD, offsetof(perf_event_attr, sample_period));
  EXPECT_EQ(abi::ATTR_SAMPLE_TYPE, offsetof(perf_event_attr, sample_type));
  EXPECT_EQ(abi::ATTR_READ_FORMAT, offsetof(perf_event_attr, read_format));
  EXPECT_EQ(abi::ATTR_FLAGS, offsetof(perf_event_attr, read_format) + sizeof(uint64_t));
  EXPECT_EQ(abi::ATTR_WAKEUP_EVENTS, offsetof(perf_event_attr, wakeup_events));
  EXPECT_EQ(abi::ATTR_BP_TYPE, offsetof(perf_event_attr, bp_type));
  EXPECT_EQ(abi::ATTR_BP_ADDR, offsetof(perf_event_attr, bp_addr));
  EXPECT_EQ(abi::ATTR_BP_LEN, offsetof(perf_event_attr, bp_len));
  EXPECT_EQ(abi::ATTR_BRANCH_SAMPLE_TYPE, offsetof(perf_event_attr, branch_sample_type));
  EXPECT_EQ(abi::ATTR_SAMPLE_REGS_USER, offsetof(perf_event_attr, sample_regs_user));
  EXPECT_EQ(abi::ATTR_SAMPLE_STACK_USER, offsetof(perf_event_attr, sample_stack_user));
}

TEST(PerfAbiTest, AttributeFlags) {
  EXPECT_EQ(bit(abi::FLAG_DISABLED), flagsAfter([](auto& attr) { attr.disabled = 1; }));
  EXPECT_EQ(bit(abi::FLAG_INHERIT), flagsAfter([](auto& attr) { attr.inherit = 1; }));
  EXPECT_EQ(bit(abi::FLAG_PINNED), flagsAfter([](auto& attr) { attr.pinned = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUSIVE), flagsAfter([](auto& attr) { attr.exclusive = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_USER), flagsAfter([](auto& attr) { attr.exclude_user = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_KERNEL), flagsAfter([](auto& attr) { attr.exclude_kernel = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_HV), flagsAfter([](auto& attr) { attr.exclude_hv = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_IDLE), flagsAfter([](auto& attr) { attr.exclude_idle = 1; }));
  EXPECT_EQ(bit(abi::FLAG_MMAP), flagsAfter([](auto& attr) { attr.mmap = 1; }));
  EXPECT_EQ(bit(abi::FLAG_COMM), flagsAfter([](auto& attr) { attr.comm = 1; }));
  EXPECT_EQ(bit(abi::FLAG_FREQ), flagsAfter([](auto& attr) { attr.freq = 1; }));
  EXPECT_EQ(bit(abi::FLAG_INHERIT_STAT), flagsAfter([](auto& attr) { attr.inherit_stat = 1; }));
  EXPECT_EQ(bit(abi::FLAG_ENABLE_ON_EXEC), flagsAfter([](auto& attr) { attr.enable_on_exec = 1; }));
  EXPECT_EQ(bit(abi::FLAG_TASK), flagsAfter([](auto& attr) { attr.task = 1; }));
  EXPECT_EQ(bit(abi::FLAG_WATERMARK), flagsAfter([](auto& attr) { attr.watermark = 1; }));
  EXPECT_EQ(uint64_t{3} << abi::FLAG_PRECISE_IP,
            flagsAfter([](auto& attr) { attr.precise_ip = 3; }));
  EXPECT_EQ(bit(abi::FLAG_MMAP_DATA), flagsAfter([](auto& attr) { attr.mmap_data = 1; }));
  EXPECT_EQ(bit(abi::FLAG_SAMPLE_ID_ALL), flagsAfter([](auto& attr) { attr.sample_id_all = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_HOST), flagsAfter([](auto& attr) { attr.exclude_host = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_GUEST), flagsAfter([](auto& attr) { attr.exclude_guest = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_CALLCHAIN_KERNEL),
            flagsAfter([](auto& attr) { attr.exclude_callchain_kernel = 1; }));
  EXPECT_EQ(bit(abi::FLAG_EXCLUDE_CALLCHAIN_USER),
            flagsAfter([](auto& attr) { attr.exclude_callchain_user = 1; }));
}

TEST(PerfAbiTest, SampleBits) {
  EXPECT_EQ(abi::SAMPLE_IP, uint64_t{PERF_SAMPLE_IP});
  EXPECT_EQ(abi::SAMPLE_TID, uint64_t{PERF_SAMPLE_TID});
  EXPECT_EQ(abi::SAMPLE_TIME, uint64_t{PERF_SAMPLE_TIME});
  EXPECT_EQ(abi::SAMPLE_ADDR, uint64_t{PERF_SAMPLE_ADDR});
  EXPECT_EQ(abi::SAMPLE_READ, uint64_t{PERF_SAMPLE_READ});
  EXPECT_EQ(abi::SAMPLE_CALLCHAIN, uint64_t{PERF_SAMPLE_CALLCHAIN});
  EXPECT_EQ(abi::SAMPLE_ID, uint64_t{PERF_SAMPLE_ID});
  EXPECT_EQ(abi::SAMPLE_CPU, uint64_t{PERF_SAMPLE_CPU});
  EXPECT_EQ(abi::SAMPLE_PERIOD, uint64_t{PERF_SAMPLE_PERIOD});
  EXPECT_EQ(abi::SAMPLE_STREAM_ID, uint64_t{PERF_SAMPLE_STREAM_ID});
  EXPECT_EQ(abi::SAMPLE_RAW, uint64_t{PERF_SAMPLE_RAW});
  EXPECT_EQ(abi::SAMPLE_BRANCH_STACK, uint64_t{PERF_SAMPLE_BRANCH_STACK});
  EXPECT_EQ(abi::SAMPLE_REGS_USER, uint64_t{PERF_SAMPLE_REGS_USER});
  EXPECT_EQ(abi::SAMPLE_STACK_USER, uint64_t{PERF_SAMPLE_STACK_USER});
  EXPECT_EQ(abi::SAMPLE_WEIGHT, uint64_t{PERF_SAMPLE_WEIGHT});
  EXPECT_EQ(abi::SAMPLE_DATA_SRC, uint64_t{PERF_SAMPLE_DATA_SRC});
  EXPECT_EQ(abi::SAMPLE_IDENTIFIER, uint64_t{PERF_SAMPLE_IDENTIFIER});
}

TEST(PerfAbiTest, ReadFormatBits) {
  EXPECT_EQ(abi::FORMAT_TOTAL_TIME_ENABLED, uint64_t{PERF_FORMAT_TOTAL_TIME_ENABLED});
  EXPECT_EQ(abi::FORMAT_TOTAL_TIME_RUNNING, uint64_t{PERF_FORMAT_TOTAL_TIME_RUNNING});
  EXPECT_EQ(abi::FORMAT_ID, uint64_t{PERF_FORMAT_ID});
  EXPECT_EQ(abi::FORMAT_GROUP, uint64_t{PERF_FORMAT_GROUP});
}

TEST(PerfAbiTest, RecordTypes) {
  EXPECT_EQ(abi::RECORD_MMAP, uint32_t{PERF_RECORD_MMAP});
  EXPECT_EQ(abi::RECORD_LOST, uint32_t{PERF_RECORD_LOST});
  EXPECT_EQ(abi::RECORD_COMM, uint32_t{PERF_RECORD_COMM});
  EXPECT_EQ(abi::RECORD_EXIT, uint32_t{PERF_RECORD_EXIT});
  EXPECT_EQ(abi::RECORD_THROTTLE, uint32_t{PERF_RECORD_THROTTLE});
  EXPECT_EQ(abi::RECORD_UNTHROTTLE, uint32_t{PERF_RECORD_UNTHROTTLE});
  EXPECT_EQ(abi::RECORD_FORK, uint32_t{PERF_RECORD_FORK});
  EXPECT_EQ(abi::RECORD_READ, uint32_t{PERF_RECORD_READ});
  EXPECT_EQ(abi::RECORD_SAMPLE, uint32_t{PERF_RECORD_SAMPLE});
}

TEST(PerfAbiTest, RecordHeader) {
  EXPECT_EQ(abi::EVENT_HEADER_SIZE, sizeof(perf_event_header));
  EXPECT_EQ(abi::EVENT_HEADER_TYPE_OFFSET, offsetof(perf_event_header, type));
  EXPECT_EQ(abi::EVENT_HEADER_MISC_OFFSET, offsetof(perf_event_header, misc));
  EXPECT_EQ(abi::EVENT_HEADER_SIZE_OFFSET, offsetof(perf_event_header, size));
  EXPECT_EQ(abi::LARGEST_EVENT_SIZE, 65535U);
}

TEST(PerfAbiTest, FileStructures) {
  EXPECT_EQ(abi::MINIMUM_FILE_SIZE, 200U);
  EXPECT_EQ(abi::FILE_HEADER_SIZE, 104U);
  EXPECT_EQ(abi::FILE_FEATURE_WORDS, 4U);
  EXPECT_EQ(abi::FILE_SECTION_SIZE, 16U);
  EXPECT_EQ(abi::SMALLEST_FILE_ATTR_SIZE, 80U);
  EXPECT_EQ(abi::LARGEST_FILE_ATTR_SIZE, 65552U);
  EXPECT_EQ(abi::TRACE_EVENT_TYPE_SIZE, 72U);
  EXPECT_EQ(abi::TRACE_EVENT_NAME_OFFSET, 8U);
  EXPECT_EQ(abi::TRACE_EVENT_NAME_SIZE, 64U);
}

TEST(PerfAbiTest, SmallestBodies) {
  EXPECT_EQ(abi::MMAP_MINIMUM_SIZE, 32U);
  EXPECT_EQ(abi::LOST_MINIMUM_SIZE, 16U);
  EXPECT_EQ(abi::COMM_MINIMUM_SIZE, 8U);
  EXPECT_EQ(abi::TASK_MINIMUM_SIZE, 24U);
  EXPECT_EQ(abi::THROTTLE_MINIMUM_SIZE, 24U);
  EXPECT_EQ(abi::READ_MINIMUM_SIZE, 16U);
  EXPECT_EQ(abi::READ_MINIMUM_SIZE_WITH_FORMAT, 48U);
  EXPECT_EQ(abi::READ_VALUES_OFFSET, 8U);
  EXPECT_EQ(abi::UNKNOWN_MINIMUM_SIZE, 8U);
}

}  // namespace
