// Any record as it is: a view of its bytes.
#pragma once

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataUnknown : public PerfEventData {
 public:
  explicit PerfEventDataUnknown(const PerfEventAttribute& attribute);

  bool parseEventData(const kestrel::ByteBufferViewport& body) override;
  Type getType() const override { return Type::Unknown; }

  // Points into the reader's buffer, valid during the listener call only.
  const kestrel::ByteBufferViewport& bytes() const { return bytes_; }

 private:
  kestrel::ByteBufferViewport bytes_;
};

}  // namespace perfevents
