// What was counted and how its samples are laid out: the parts of a perf_event_attr that a reader
// needs, of any size that any kernel has written.
// Source: the kernel's include/uapi/linux/perf_event.h, struct perf_event_attr.
#pragma once

#include <cstdint>

#include "recordings/Abi.h"
#include "recordings/FieldReader.h"

namespace recordings {

struct Attribute {
  std::uint32_t type = 0;
  std::uint64_t config = 0;
  std::uint64_t period = 0;  // or the frequency in Hz: FLAG_FREQUENCY
  std::uint64_t sampleType = 0;
  std::uint64_t readFormat = 0;
  std::uint64_t flags = 0;
  std::uint64_t branchSampleType = 0;
  std::uint64_t sampleRegsUser = 0;
  std::uint32_t sampleStackUser = 0;  // bytes asked for
  std::int32_t clockId = 0;           // FLAG_USE_CLOCKID
  std::uint64_t sampleRegsIntr = 0;

  bool has(abi::AttributeFlag flag) const { return (flags >> flag & 1) != 0; }
  // Carries side records only, never samples of its own.
  bool isDummy() const { return type == abi::TYPE_SOFTWARE && config == abi::SOFTWARE_DUMMY; }

  // From its bytes; what they do not hold is 0. `bytes` beyond the attribute's own size are not
  // looked at.
  static Attribute decode(Bytes bytes, ByteOrder order);
};

}  // namespace recordings
