// What a recording says, apart from how its file is written: events, and records in the order in
// which they stand in the file. made::Encoding chooses the file, made::fileBytes() writes it.
//
//   made::Recording recording;
//   recording.comm({.pid = 10, .tid = 10, .name = "app"})
//       .map({.pid = 10, .tid = 10, .address = 0x8000, .length = 0x1000, .file = "/bin/app"})
//       .sample({.ip = 0x8010, .pid = 10, .tid = 10, .time = 1'000'000});
//
// Addresses are run-time addresses, lengths and offsets bytes, times nanoseconds. A record other
// than a sample whose time is 0 is one that perf itself made for what existed before: its trailer
// is zero, and it is never compressed. Numbers are those of the kernel's perf_event.h and of
// tools/perf/util/header.h; nothing comes from the readers under test.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tests/support/recordings/Fields.h"

namespace made {

// Bits of perf_event_attr.sample_type.
struct SampleBit {
  static constexpr uint64_t IP = 1;
  static constexpr uint64_t TID = 1 << 1;
  static constexpr uint64_t TIME = 1 << 2;
  static constexpr uint64_t ADDR = 1 << 3;
  static constexpr uint64_t READ = 1 << 4;
  static constexpr uint64_t CALLCHAIN = 1 << 5;
  static constexpr uint64_t ID = 1 << 6;
  static constexpr uint64_t CPU = 1 << 7;
  static constexpr uint64_t PERIOD = 1 << 8;
  static constexpr uint64_t STREAM_ID = 1 << 9;
  static constexpr uint64_t RAW = 1 << 10;
  static constexpr uint64_t BRANCH_STACK = 1 << 11;
  static constexpr uint64_t REGS_USER = 1 << 12;
  static constexpr uint64_t STACK_USER = 1 << 13;
  static constexpr uint64_t WEIGHT = 1 << 14;
  static constexpr uint64_t DATA_SRC = 1 << 15;
  static constexpr uint64_t IDENTIFIER = 1 << 16;
  static constexpr uint64_t TRANSACTION = 1 << 17;
  static constexpr uint64_t REGS_INTR = 1 << 18;
  static constexpr uint64_t PHYS_ADDR = 1 << 19;
  static constexpr uint64_t AUX = 1 << 20;
  static constexpr uint64_t CGROUP = 1 << 21;
  static constexpr uint64_t DATA_PAGE_SIZE = 1 << 22;
  static constexpr uint64_t CODE_PAGE_SIZE = 1 << 23;
  static constexpr uint64_t WEIGHT_STRUCT = 1 << 24;
};

// Bits of perf_event_attr.read_format.
struct ReadBit {
  static constexpr uint64_t TOTAL_TIME_ENABLED = 1;
  static constexpr uint64_t TOTAL_TIME_RUNNING = 1 << 1;
  static constexpr uint64_t ID = 1 << 2;
  static constexpr uint64_t GROUP = 1 << 3;
  static constexpr uint64_t LOST = 1 << 4;
};

// Low bits of perf_event_header.misc: where the processor was, and whose a map is.
enum class Mode : uint16_t { UNKNOWN, KERNEL, USER, HYPERVISOR, GUEST_KERNEL, GUEST_USER };

// Words of a call chain that say of what the next ones are.
constexpr uint64_t CONTEXT_HV = static_cast<uint64_t>(-32);
constexpr uint64_t CONTEXT_KERNEL = static_cast<uint64_t>(-128);
constexpr uint64_t CONTEXT_USER = static_cast<uint64_t>(-512);

struct Event {
  std::string name = "cpu-clock";
  uint32_t type = 1;  // PERF_TYPE_SOFTWARE
  uint64_t config = 0;
  uint64_t period = 1'000'000;
  bool isFrequency = false;  // `period` is then a number of samples a second
  // Without ID and IDENTIFIER, which are the encoding's.
  uint64_t sampleType =
      SampleBit::IP | SampleBit::TID | SampleBit::TIME | SampleBit::CPU | SampleBit::PERIOD;
  uint64_t readFormat = 0;
  uint64_t moreFlags = 0;         // flag bits of the attribute beyond those that the encoding sets
  uint64_t branchSampleType = 0;  // structures of 80 bytes and more
  uint64_t regsUser = 0;          // 88 bytes (and stackUser) need 96
  uint32_t stackUser = 0;
  int32_t clockid = 0;
  uint64_t regsIntr = 0;        // 104 bytes
  std::vector<uint64_t> ids{};  // empty: 100, 200, ... for the first, second, ... event
};

struct Map {
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint64_t address = 0;
  uint64_t length = 0;
  uint64_t pageOffset = 0;
  std::string file{};
  uint64_t time = 0;
  uint32_t cpu = 0;
  Mode mode = Mode::USER;
  bool isData = false;  // PERF_RECORD_MISC_MMAP_DATA
  // In the MMAP2 forms only. A build id, up to 20 bytes, in the form that has them; a map without
  // one is written with its inode there, too, as the kernel does.
  std::string buildId{};
  uint32_t major = 8;
  uint32_t minor = 1;
  uint64_t inode = 77;
  uint64_t generation = 0;
  uint32_t protection = 5;  // PROT_READ | PROT_EXEC
  uint32_t flags = 2;       // MAP_PRIVATE
};

struct Comm {
  uint32_t pid = 0;
  uint32_t tid = 0;
  std::string name{};
  uint64_t time = 0;
  uint32_t cpu = 0;
  bool isExec = false;  // PERF_RECORD_MISC_COMM_EXEC
};

// A thread or process that begins (fork) or ends (exit).
struct Task {
  uint32_t pid = 0;
  uint32_t parentPid = 0;
  uint32_t tid = 0;
  uint32_t parentTid = 0;
  uint64_t time = 0;
  uint32_t cpu = 0;
};

struct Branch {
  uint64_t from = 0;
  uint64_t to = 0;
  uint64_t flags = 0;  // bits as on little-endian processors
};

struct Registers {
  uint64_t abi = 0;  // 0: none, 1: 32 bits, 2: 64 bits
  std::vector<uint64_t> values{};
};

// A field is written where the event's sample_type has its bit.
struct Sample {
  uint64_t ip = 0;
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint64_t time = 0;
  uint32_t cpu = 0;
  Mode mode = Mode::USER;
  uint64_t period = 1'000'000;
  std::vector<uint64_t> chain{};  // with its context marks
  std::size_t event = 0;          // index into Recording's events
  std::size_t id = 0;             // index into the event's ids
  uint16_t moreMisc = 0;
  uint64_t address = 0;
  uint64_t streamId = 0;
  std::vector<uint64_t> read{};  // all words of the field; empty: zeros, as many as it takes
  std::string raw{};             // 4 bytes more than a multiple of 8
  std::optional<uint64_t> branchIndex{};
  std::vector<Branch> branches{};
  std::vector<uint64_t> branchCounters{};
  Registers regsUser{};
  std::string stack{};
  std::optional<uint64_t> stackUsed{};  // bytes of `stack` in use; nothing: all
  uint64_t weight = 0;
  uint64_t dataSource = 0;
  uint64_t transaction = 0;
  Registers regsIntr{};
  uint64_t physicalAddress = 0;
  uint64_t cgroup = 0;
  uint64_t dataPageSize = 0;
  uint64_t codePageSize = 0;
  std::string aux{};
};

// A record of any other type. Types below 64 get a trailer where the encoding has them.
struct Other {
  uint32_t type = 0;
  Fields body{};
  uint64_t time = 0;
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint32_t cpu = 0;
  uint16_t misc = 0;
  std::string behind{};  // bytes that follow the record without being in its size
};

struct Fork : Task {};
struct Exit : Task {};

// The mark that perf writes once it has been through all of its buffers.
struct FinishedRound {};

using Record = std::variant<Map, Comm, Fork, Exit, Sample, Other, FinishedRound>;

struct FileBuildId {
  std::string file{};
  std::string id{};  // up to 20 bytes
  Mode mode = Mode::USER;
  int32_t pid = -1;
};

struct ClockData {
  uint32_t clockid = 1;
  uint64_t wallNanoseconds = 0;
  uint64_t clockNanoseconds = 0;
};

struct Recording {
  std::vector<Event> events{Event{}};
  std::vector<Record> records{};

  // Facts of the feature sections. Empty: not there. The form with the short header has none of
  // them. Readers tell the bitmap's byte order by the hostname, which perf always writes.
  std::string hostname = "board";
  std::string osRelease{};
  std::string architecture{};
  std::vector<std::string> commandLine{};
  std::vector<FileBuildId> buildIds{};
  std::optional<ClockData> clockData{};
  std::optional<std::pair<uint64_t, uint64_t>> sampleTime{};

  Recording& map(Map map);
  Recording& comm(Comm comm);
  Recording& fork(Task task);
  Recording& exit(Task task);
  Recording& sample(Sample sample);
  Recording& record(Other other);
  Recording& finishedRound();

  // The ids of an event, as a file that has ids shows them.
  std::vector<uint64_t> idsOf(std::size_t event) const;
};

}  // namespace made
