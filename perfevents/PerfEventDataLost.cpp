#include "perfevents/PerfEventDataLost.h"

#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

PerfEventDataLost::PerfEventDataLost(const PerfEventAttribute& attribute)
    : PerfEventData(attribute, "PerfEventDataLost", abi::LOST_MINIMUM_SIZE) {}

bool PerfEventDataLost::parseEventData(const kestrel::ByteBufferViewport& body) {
  RecordCursor in(body);
  id_ = in.take<uint64_t>();
  lost_ = in.take<uint64_t>();
  return true;
}

}  // namespace perfevents
