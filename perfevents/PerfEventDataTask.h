// PERF_RECORD_EXIT and PERF_RECORD_FORK: a task ended or was made. The two records share one
// layout.
#pragma once

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataTask : public PerfEventData {
 public:
  bool parseEventData(const kestrel::ByteBufferViewport& body) override;

  uint32_t pid() const { return pid_; }
  uint32_t ppid() const { return ppid_; }
  uint32_t tid() const { return tid_; }
  uint32_t ptid() const { return ptid_; }
  uint64_t time() const { return time_; }  // nanoseconds on the recording's clock

 protected:
  PerfEventDataTask(const PerfEventAttribute& attribute, const char* loggerName);

 private:
  uint32_t pid_ = UINT32_MAX;
  uint32_t ppid_ = UINT32_MAX;
  uint32_t tid_ = UINT32_MAX;
  uint32_t ptid_ = UINT32_MAX;
  uint64_t time_ = 0;
};

class PerfEventDataExit : public PerfEventDataTask {
 public:
  explicit PerfEventDataExit(const PerfEventAttribute& attribute)
      : PerfEventDataTask(attribute, "PerfEventDataExit") {}
  Type getType() const override { return Type::Exit; }
};

class PerfEventDataFork : public PerfEventDataTask {
 public:
  explicit PerfEventDataFork(const PerfEventAttribute& attribute)
      : PerfEventDataTask(attribute, "PerfEventDataFork") {}
  Type getType() const override { return Type::Fork; }
};

}  // namespace perfevents
