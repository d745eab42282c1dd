#include "perfevents/PerfEventDataTask.h"

#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

PerfEventDataTask::PerfEventDataTask(const PerfEventAttribute& attribute, const char* loggerName)
    : PerfEventData(attribute, loggerName, abi::TASK_MINIMUM_SIZE) {}

bool PerfEventDataTask::parseEventData(const kestrel::ByteBufferViewport& body) {
  RecordCursor in(body);
  pid_ = in.take<uint32_t>();
  ppid_ = in.take<uint32_t>();
  tid_ = in.take<uint32_t>();
  ptid_ = in.take<uint32_t>();
  time_ = in.take<uint64_t>();
  return true;
}

}  // namespace perfevents
