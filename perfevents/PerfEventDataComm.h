// PERF_RECORD_COMM: a thread got its name.
#pragma once

#include <string>

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataComm : public PerfEventData {
 public:
  explicit PerfEventDataComm(const PerfEventAttribute& attribute);

  bool parseEventData(const kestrel::ByteBufferViewport& body) override;
  Type getType() const override { return Type::Comm; }

  uint32_t pid() const { return pid_; }
  uint32_t tid() const { return tid_; }
  // Printable ASCII only: every other byte of the recorded name is dropped, which keeps names clean
  // for the document.
  const std::string& comm() const { return comm_; }

 private:
  uint32_t pid_ = UINT32_MAX;
  uint32_t tid_ = UINT32_MAX;
  std::string comm_;
};

// Whether a byte is left out of names: true outside 0x20 to 0x7E. Each call logs "good" (kept) or
// "bad" (left out) at DEBUG through "PerfEventDataComm".
bool isIgnore(char c);

}  // namespace perfevents
