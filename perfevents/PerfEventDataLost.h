// PERF_RECORD_LOST: the kernel dropped `lost` events of the stream `id`.
#pragma once

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataLost : public PerfEventData {
 public:
  explicit PerfEventDataLost(const PerfEventAttribute& attribute);

  bool parseEventData(const kestrel::ByteBufferViewport& body) override;
  Type getType() const override { return Type::Lost; }

  uint64_t id() const { return id_; }
  uint64_t lost() const { return lost_; }

 private:
  uint64_t id_ = UINT64_MAX;
  uint64_t lost_ = 0;
};

}  // namespace perfevents
