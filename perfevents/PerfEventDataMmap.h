// PERF_RECORD_MMAP: a file was mapped into a process. Addresses are run-time addresses, lengths and
// offsets bytes.
#pragma once

#include <string>

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataMmap : public PerfEventData {
 public:
  explicit PerfEventDataMmap(const PerfEventAttribute& attribute);

  bool parseEventData(const kestrel::ByteBufferViewport& body) override;
  Type getType() const override { return Type::Mmap; }

  uint32_t pid() const { return pid_; }
  uint32_t tid() const { return tid_; }
  uint64_t addr() const { return addr_; }
  uint64_t len() const { return len_; }
  uint64_t pgoff() const { return pgoff_; }
  // As recorded, up to its first NUL.
  const std::string& filename() const { return filename_; }

 private:
  uint32_t pid_ = UINT32_MAX;
  uint32_t tid_ = UINT32_MAX;
  uint64_t addr_ = UINT64_MAX;
  uint64_t len_ = 0;
  uint64_t pgoff_ = UINT64_MAX;
  std::string filename_;
};

}  // namespace perfevents
