#include "perfevents/PerfEventDataThrottle.h"

#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

PerfEventDataThrottleChange::PerfEventDataThrottleChange(const PerfEventAttribute& attribute,
                                                         const char* loggerName)
    : PerfEventData(attribute, loggerName, abi::THROTTLE_MINIMUM_SIZE) {}

bool PerfEventDataThrottleChange::parseEventData(const kestrel::ByteBufferViewport& body) {
  RecordCursor in(body);
  time_ = in.take<uint64_t>();
  id_ = in.take<uint64_t>();
  streamId_ = in.take<uint64_t>();
  return true;
}

}  // namespace perfevents
