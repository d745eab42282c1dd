#include "perfevents/PerfEventData.h"

#include "kestrel/log/Logger.h"

namespace perfevents {

PerfEventData::PerfEventData(const PerfEventAttribute& attribute) : attribute_(attribute) {
  kestrel::Logger::getLogger("PerfEventData");
}

PerfEventData::PerfEventData(const PerfEventAttribute& attribute, const char* loggerName,
                             unsigned int minimumSize)
    : PerfEventData(attribute) {
  kestrel::Logger::getLogger(loggerName);
  requiredMinimumSize_ = minimumSize;
}

bool PerfEventData::parse(const kestrel::ByteBufferViewport& body, MiscFlags misc) {
  if (body.size() < getRequiredMinimumSize() || !parseEventData(body)) {
    return false;
  }
  misc_ = misc;
  return true;
}

}  // namespace perfevents
