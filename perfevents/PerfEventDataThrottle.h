// PERF_RECORD_THROTTLE and PERF_RECORD_UNTHROTTLE: the kernel stopped or resumed an event that
// fired too often. The two records share one layout.
#pragma once

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataThrottleChange : public PerfEventData {
 public:
  bool parseEventData(const kestrel::ByteBufferViewport& body) override;

  uint64_t time() const { return time_; }  // nanoseconds on the recording's clock
  uint64_t id() const { return id_; }
  uint64_t streamId() const { return streamId_; }

 protected:
  PerfEventDataThrottleChange(const PerfEventAttribute& attribute, const char* loggerName);

 private:
  uint64_t time_ = 0;
  uint64_t id_ = UINT64_MAX;
  uint64_t streamId_ = UINT64_MAX;
};

class PerfEventDataThrottle : public PerfEventDataThrottleChange {
 public:
  explicit PerfEventDataThrottle(const PerfEventAttribute& attribute)
      : PerfEventDataThrottleChange(attribute, "PerfEventDataThrottle") {}
  Type getType() const override { return Type::Throttle; }
};

class PerfEventDataUnthrottle : public PerfEventDataThrottleChange {
 public:
  explicit PerfEventDataUnthrottle(const PerfEventAttribute& attribute)
      : PerfEventDataThrottleChange(attribute, "PerfEventDataUnthrottle") {}
  Type getType() const override { return Type::Unthrottle; }
};

}  // namespace perfevents
