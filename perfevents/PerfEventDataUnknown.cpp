#include "perfevents/PerfEventDataUnknown.h"

#include "perfevents/PerfAbi.h"

namespace perfevents {

PerfEventDataUnknown::PerfEventDataUnknown(const PerfEventAttribute& attribute)
    : PerfEventData(attribute, "PerfEventDataUnknown", abi::UNKNOWN_MINIMUM_SIZE) {}

bool PerfEventDataUnknown::parseEventData(const kestrel::ByteBufferViewport& body) {
  bytes_ = body;
  return true;
}

}  // namespace perfevents
