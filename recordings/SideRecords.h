// The records that explain samples: which process mapped what, who forked whom, names, and losses.
// Each decode() gives nothing for a record that is too short. Addresses are run-time addresses,
// lengths and offsets bytes.
// Source: the kernel's include/uapi/linux/perf_event.h, enum perf_event_type.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "recordings/Facts.h"
#include "recordings/FieldReader.h"
#include "recordings/RecordStream.h"

namespace recordings {

// MMAP and MMAP2.
struct MapRecord {
  std::uint16_t misc = 0;
  std::uint32_t pid = 0;
  std::uint32_t tid = 0;
  std::uint64_t start = 0;
  std::uint64_t length = 0;
  std::uint64_t pageOffset = 0;  // bytes; of the kernel's own map, the address of the symbol named
  std::string name;
  std::uint32_t flags = 0;  // MAP_*
  BuildId buildId;

  bool isOfKernel() const;
  // Not executable: recorded for its data.
  bool isData() const { return (misc & abi::MISC_MMAP_DATA) != 0; }
  static std::optional<MapRecord> decode(const Record& record, Bytes body, ByteOrder order);
};

struct CommRecord {
  std::uint32_t pid = 0;
  std::uint32_t tid = 0;
  std::string name;
  bool isExec = false;  // a new program has taken the process
  static std::optional<CommRecord> decode(const Record& record, Bytes body, ByteOrder order);
};

// FORK and EXIT.
struct TaskRecord {
  std::uint32_t pid = 0;
  std::uint32_t parentPid = 0;
  std::uint32_t tid = 0;
  std::uint32_t parentTid = 0;
  bool isMadeByPerf = false;  // tells of a living task: its maps follow
  static std::optional<TaskRecord> decode(const Record& record, Bytes body, ByteOrder order);
};

// Code that the kernel made or loaded: BPF programs, trampolines, probes.
struct KsymbolRecord {
  std::uint64_t start = 0;
  std::uint32_t length = 0;
  bool isRemoved = false;
  std::string name;
  static std::optional<KsymbolRecord> decode(Bytes body, ByteOrder order);
};

// How many records (LOST) or samples (LOST_SAMPLES) are missing.
std::optional<std::uint64_t> decodeLost(const Record& record, Bytes body, ByteOrder order);

}  // namespace recordings
