// PERF_RECORD_READ: a counter was read. Only the fixed part is decoded; the values are kept as a
// view, since their layout follows the attribute's read_format.
#pragma once

#include <vector>

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataRead : public PerfEventData {
 public:
  explicit PerfEventDataRead(const PerfEventAttribute& attribute);

  bool parseEventData(const kestrel::ByteBufferViewport& body) override;
  Type getType() const override { return Type::Read; }

  uint32_t pid() const { return pid_; }
  uint32_t tid() const { return tid_; }
  uint64_t value() const { return value_; }
  // Whether the attribute asks for more than the bare value.
  bool hasReadFormat() const { return hasReadFormat_; }
  // Everything after pid and tid; points into the reader's buffer, valid during the listener call
  // only.
  const kestrel::ByteBufferViewport& values() const { return values_; }
  // Never decoded: these stay at their defaults.
  uint64_t timeEnabled() const { return timeEnabled_; }
  uint64_t timeRunning() const { return timeRunning_; }
  uint64_t id() const { return id_; }
  const std::vector<uint64_t>& valueList() const { return valueList_; }

 private:
  uint32_t pid_ = UINT32_MAX;
  uint32_t tid_ = UINT32_MAX;
  uint64_t value_ = 0;
  kestrel::ByteBufferViewport values_;
  bool hasReadFormat_;
  uint64_t timeEnabled_ = 0;
  uint64_t timeRunning_ = 0;
  uint64_t id_ = UINT64_MAX;
  std::vector<uint64_t> valueList_;
};

}  // namespace perfevents
