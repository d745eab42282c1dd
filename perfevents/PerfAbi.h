// The numbers of the perf.data file and of the records in it that the decoders are made of. Offsets
// and sizes are bytes; all fields are in the byte order of the machine that recorded. Sources: the
// kernel's include/uapi/linux/perf_event.h (attributes, records, samples) and its
// tools/perf/util/header.h (file header, sections, trace event types).
#pragma once

#include <cstddef>
#include <cstdint>

namespace perfevents::abi {

// struct perf_file_header
constexpr std::size_t FILE_HEADER_SIZE = 104;
constexpr std::size_t FILE_FEATURE_WORDS = 4;  // adds_features: 256 bits

// Smaller files are refused: a header, an attribute of the first revision, and 16 bytes more.
constexpr std::size_t MINIMUM_FILE_SIZE = 200;

// struct perf_file_section: offset and size, 64 bits each
constexpr std::size_t FILE_SECTION_SIZE = 16;

// struct perf_file_attr: a perf_event_attr of the recording kernel's size, then the section of its
// ids
constexpr uint64_t SMALLEST_FILE_ATTR_SIZE = 80;
constexpr uint64_t LARGEST_FILE_ATTR_SIZE = 65552;

// struct perf_trace_event_type: the id, then a NUL-padded name
constexpr std::size_t TRACE_EVENT_TYPE_SIZE = 72;
constexpr std::size_t TRACE_EVENT_NAME_OFFSET = 8;
constexpr std::size_t TRACE_EVENT_NAME_SIZE = 64;

// struct perf_event_header
constexpr unsigned int EVENT_HEADER_SIZE = 8;
constexpr std::size_t EVENT_HEADER_TYPE_OFFSET = 0;
constexpr std::size_t EVENT_HEADER_MISC_OFFSET = 4;
constexpr std::size_t EVENT_HEADER_SIZE_OFFSET = 6;
constexpr std::size_t LARGEST_EVENT_SIZE = 65535;  // the size field has 16 bits

// struct perf_event_attr: PERF_ATTR_SIZE_VER0 to VER3
constexpr unsigned int ATTR_SIZE_VER0 = 64;
constexpr unsigned int ATTR_SIZE_VER1 = 72;
constexpr unsigned int ATTR_SIZE_VER2 = 80;
constexpr unsigned int ATTR_SIZE_VER3 = 96;

enum AttrOffset : unsigned int {
  ATTR_TYPE = 0,
  ATTR_SIZE = 4,
  ATTR_CONFIG = 8,
  ATTR_SAMPLE_PERIOD = 16,
  ATTR_SAMPLE_TYPE = 24,
  ATTR_READ_FORMAT = 32,
  ATTR_FLAGS = 40,
  ATTR_WAKEUP_EVENTS = 48,
  ATTR_BP_TYPE = 52,
  ATTR_BP_ADDR = 56,
  ATTR_BP_LEN = 64,
  ATTR_BRANCH_SAMPLE_TYPE = 72,
  ATTR_SAMPLE_REGS_USER = 80,
  ATTR_SAMPLE_STACK_USER = 88,
};

// Bits of the flag word at ATTR_FLAGS, counted from the least significant bit.
enum AttrFlag : unsigned int {
  FLAG_DISABLED = 0,
  FLAG_INHERIT = 1,
  FLAG_PINNED = 2,
  FLAG_EXCLUSIVE = 3,
  FLAG_EXCLUDE_USER = 4,
  FLAG_EXCLUDE_KERNEL = 5,
  FLAG_EXCLUDE_HV = 6,
  FLAG_EXCLUDE_IDLE = 7,
  FLAG_MMAP = 8,
  FLAG_COMM = 9,
  FLAG_FREQ = 10,
  FLAG_INHERIT_STAT = 11,
  FLAG_ENABLE_ON_EXEC = 12,
  FLAG_TASK = 13,
  FLAG_WATERMARK = 14,
  FLAG_PRECISE_IP = 15,  // two bits
  FLAG_MMAP_DATA = 17,
  FLAG_SAMPLE_ID_ALL = 18,
  FLAG_EXCLUDE_HOST = 19,
  FLAG_EXCLUDE_GUEST = 20,
  FLAG_EXCLUDE_CALLCHAIN_KERNEL = 21,
  FLAG_EXCLUDE_CALLCHAIN_USER = 22,
};

constexpr uint32_t TYPE_MAX = 6;  // PERF_TYPE_MAX: one past the last event type

// enum perf_event_sample_format
constexpr uint64_t SAMPLE_IP = 0x1;
constexpr uint64_t SAMPLE_TID = 0x2;
constexpr uint64_t SAMPLE_TIME = 0x4;
constexpr uint64_t SAMPLE_ADDR = 0x8;
constexpr uint64_t SAMPLE_READ = 0x10;
constexpr uint64_t SAMPLE_CALLCHAIN = 0x20;
constexpr uint64_t SAMPLE_ID = 0x40;
constexpr uint64_t SAMPLE_CPU = 0x80;
constexpr uint64_t SAMPLE_PERIOD = 0x100;
constexpr uint64_t SAMPLE_STREAM_ID = 0x200;
constexpr uint64_t SAMPLE_RAW = 0x400;
constexpr uint64_t SAMPLE_BRANCH_STACK = 0x800;
constexpr uint64_t SAMPLE_REGS_USER = 0x1000;
constexpr uint64_t SAMPLE_STACK_USER = 0x2000;
constexpr uint64_t SAMPLE_WEIGHT = 0x4000;
constexpr uint64_t SAMPLE_DATA_SRC = 0x8000;
constexpr uint64_t SAMPLE_IDENTIFIER = 0x10000;

// enum perf_event_read_format
constexpr uint64_t FORMAT_TOTAL_TIME_ENABLED = 0x1;
constexpr uint64_t FORMAT_TOTAL_TIME_RUNNING = 0x2;
constexpr uint64_t FORMAT_ID = 0x4;
constexpr uint64_t FORMAT_GROUP = 0x8;

// enum perf_event_type: the record types that are decoded; see PerfEventData::Type
constexpr uint32_t RECORD_MMAP = 1;
constexpr uint32_t RECORD_LOST = 2;
constexpr uint32_t RECORD_COMM = 3;
constexpr uint32_t RECORD_EXIT = 4;
constexpr uint32_t RECORD_THROTTLE = 5;
constexpr uint32_t RECORD_UNTHROTTLE = 6;
constexpr uint32_t RECORD_FORK = 7;
constexpr uint32_t RECORD_READ = 8;
constexpr uint32_t RECORD_SAMPLE = 9;

// Record bodies, without the event header.
constexpr unsigned int MMAP_MINIMUM_SIZE = 32;
constexpr unsigned int LOST_MINIMUM_SIZE = 16;
constexpr unsigned int COMM_MINIMUM_SIZE = 8;
constexpr unsigned int TASK_MINIMUM_SIZE = 24;      // EXIT and FORK
constexpr unsigned int THROTTLE_MINIMUM_SIZE = 24;  // THROTTLE and UNTHROTTLE
constexpr unsigned int READ_MINIMUM_SIZE = 16;
constexpr unsigned int READ_MINIMUM_SIZE_WITH_FORMAT = 48;
constexpr unsigned int READ_VALUES_OFFSET = 8;
constexpr unsigned int UNKNOWN_MINIMUM_SIZE = 8;

}  // namespace perfevents::abi
