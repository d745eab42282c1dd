// The numbers of perf.data as perf 2.6.31 to 6.15 write it. Offsets and sizes are bytes; numbers
// are in the byte order of the machine that recorded. Sources: the kernel's
// include/uapi/linux/perf_event.h (attributes, kernel records, samples), and below its tools/perf/:
// util/header.h and Documentation/perf.data-file-format.txt (file, features), util/event.h (records
// 64 and up).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace recordings::abi {

// struct perf_file_header. Magic: as the bytes stand in the file.
constexpr char MAGIC_2[] = "PERFILE2";
constexpr char MAGIC_2_FOREIGN[] = "2ELIFREP";
constexpr char MAGIC_1[] = "PERFFILE";
constexpr char MAGIC_1_FOREIGN[] = "ELIFFREP";
constexpr std::size_t MAGIC_SIZE = 8;
constexpr std::uint64_t PIPE_HEADER_SIZE = 16;
constexpr std::uint64_t OLD_HEADER_SIZE = 72;  // without the feature bits
constexpr std::uint64_t HEADER_SIZE = 104;
constexpr std::size_t FEATURE_WORDS = 4;  // 64 bits each
constexpr std::size_t FEATURES_OFFSET = 72;

// struct perf_event_attr
constexpr std::uint32_t ATTR_FIRST_SIZE = 64;
constexpr std::uint32_t ATTR_LARGEST_SIZE = 4096;  // PAGE_SIZE, the kernel's own limit
constexpr std::uint64_t SECTION_SIZE = 16;         // the ids' section behind each attribute
// What perf looks for in attr_size to tell the byte order of the oldest files.
constexpr std::array<std::uint64_t, 5> OLD_ATTR_ENTRY_SIZES = {80, 88, 96, 112, 120};

// Bits of the attribute's flag word, counted from the least significant.
enum AttributeFlag : unsigned {
  FLAG_FREQUENCY = 10,
  FLAG_SAMPLE_ID_ALL = 18,
  FLAG_EXCLUDE_CALLCHAIN_KERNEL = 21,
  FLAG_EXCLUDE_CALLCHAIN_USER = 22,
  FLAG_COMM_EXEC = 24,
  FLAG_USE_CLOCKID = 25,
};

enum AttributeType : std::uint32_t { TYPE_HARDWARE = 0, TYPE_SOFTWARE = 1, TYPE_TRACEPOINT = 2 };
constexpr std::uint64_t SOFTWARE_DUMMY = 9;

// enum perf_event_sample_format
constexpr std::uint64_t SAMPLE_IP = 1ull << 0;
constexpr std::uint64_t SAMPLE_TID = 1ull << 1;
constexpr std::uint64_t SAMPLE_TIME = 1ull << 2;
constexpr std::uint64_t SAMPLE_ADDR = 1ull << 3;
constexpr std::uint64_t SAMPLE_READ = 1ull << 4;
constexpr std::uint64_t SAMPLE_CALLCHAIN = 1ull << 5;
constexpr std::uint64_t SAMPLE_ID = 1ull << 6;
constexpr std::uint64_t SAMPLE_CPU = 1ull << 7;
constexpr std::uint64_t SAMPLE_PERIOD = 1ull << 8;
constexpr std::uint64_t SAMPLE_STREAM_ID = 1ull << 9;
constexpr std::uint64_t SAMPLE_RAW = 1ull << 10;
constexpr std::uint64_t SAMPLE_BRANCH_STACK = 1ull << 11;
constexpr std::uint64_t SAMPLE_REGS_USER = 1ull << 12;
constexpr std::uint64_t SAMPLE_STACK_USER = 1ull << 13;
constexpr std::uint64_t SAMPLE_WEIGHT = 1ull << 14;
constexpr std::uint64_t SAMPLE_DATA_SRC = 1ull << 15;
constexpr std::uint64_t SAMPLE_IDENTIFIER = 1ull << 16;

constexpr std::uint64_t BRANCH_HW_INDEX = 1ull << 17;
constexpr std::uint64_t BRANCH_COUNTERS = 1ull << 19;    // a word for each entry, behind all
constexpr std::uint64_t BRANCH_CALL_STACK = 1ull << 11;  // --call-graph lbr
constexpr std::size_t BRANCH_ENTRY_SIZE = 24;

// enum perf_event_read_format
constexpr std::uint64_t FORMAT_ENABLED = 1;
constexpr std::uint64_t FORMAT_RUNNING = 2;
constexpr std::uint64_t FORMAT_ID = 4;
constexpr std::uint64_t FORMAT_GROUP = 8;
constexpr std::uint64_t FORMAT_LOST = 16;

// struct perf_event_header: type u32, misc u16, size u16 (with the header)
constexpr std::size_t RECORD_HEADER_SIZE = 8;
constexpr std::size_t LARGEST_RECORD_SIZE = 65535;

enum RecordType : std::uint32_t {
  RECORD_MMAP = 1,
  RECORD_LOST = 2,
  RECORD_COMM = 3,
  RECORD_EXIT = 4,
  RECORD_THROTTLE = 5,
  RECORD_UNTHROTTLE = 6,
  RECORD_FORK = 7,
  RECORD_READ = 8,
  RECORD_SAMPLE = 9,
  RECORD_MMAP2 = 10,
  RECORD_LOST_SAMPLES = 13,
  RECORD_KSYMBOL = 17,
  // From here on records are written by perf itself and have no trailer.
  RECORD_USER_TYPES = 64,
  RECORD_HEADER_ATTR = 64,
  RECORD_TRACING_DATA = 66,
  RECORD_BUILD_ID = 67,
  RECORD_FINISHED_ROUND = 68,
  RECORD_AUXTRACE = 71,
  RECORD_EVENT_UPDATE = 78,
  RECORD_HEADER_FEATURE = 80,
  RECORD_COMPRESSED = 81,
  RECORD_COMPRESSED2 = 83,
};

// misc of a record header
constexpr std::uint16_t MISC_CPUMODE = 7;
constexpr std::uint16_t MISC_KERNEL = 1;
constexpr std::uint16_t MISC_USER = 2;
constexpr std::uint16_t MISC_GUEST_KERNEL = 4;
constexpr std::uint16_t MISC_GUEST_USER = 5;
constexpr std::uint16_t MISC_MMAP_DATA = 1u << 13;
constexpr std::uint16_t MISC_COMM_EXEC = 1u << 13;
constexpr std::uint16_t MISC_FORK_EXEC = 1u << 13;  // made by perf for a living process
constexpr std::uint16_t MISC_MMAP_BUILD_ID = 1u << 14;
constexpr std::uint16_t MISC_BUILD_ID_SIZE = 1u << 15;

constexpr std::uint32_t MAP_HUGETLB = 0x40000;
constexpr std::uint16_t KSYMBOL_UNREGISTER = 1;

// Marks in call chains: words from here on are none of code.
constexpr std::uint64_t CONTEXT_FIRST = static_cast<std::uint64_t>(-4095);
constexpr std::uint64_t CONTEXT_KERNEL = static_cast<std::uint64_t>(-128);
constexpr std::uint64_t CONTEXT_USER = static_cast<std::uint64_t>(-512);

// Features: the bits of the file header, and the sections they announce.
enum Feature : unsigned {
  FEATURE_BUILD_ID = 2,
  FEATURE_HOSTNAME = 3,
  FEATURE_OSRELEASE = 4,
  FEATURE_VERSION = 5,
  FEATURE_ARCH = 6,
  FEATURE_CPUDESC = 8,
  FEATURE_CPUID = 9,
  FEATURE_CMDLINE = 11,
  FEATURE_EVENT_DESC = 12,
  FEATURE_PMU_MAPPINGS = 16,
  FEATURE_SAMPLE_TIME = 21,
  FEATURE_CLOCKID = 23,
  FEATURE_DIR_FORMAT = 24,
  FEATURE_COMPRESSED = 27,
  FEATURE_CLOCK_DATA = 29,
};
constexpr unsigned FEATURE_BITS = 256;

// An entry of the table of build ids, with its record header.
constexpr std::size_t BUILD_ID_SIZE = 20;
constexpr std::size_t BUILD_ID_ENTRY_PID_SIZE = 4;  // since 2.6.35
constexpr std::size_t BUILD_ID_ENTRY_SIZE_OFFSET = 32;
constexpr std::size_t BUILD_ID_ENTRY_NAME_OFFSET = 36;

}  // namespace recordings::abi
