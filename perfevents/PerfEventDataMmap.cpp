#include "perfevents/PerfEventDataMmap.h"

#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

PerfEventDataMmap::PerfEventDataMmap(const PerfEventAttribute& attribute)
    : PerfEventData(attribute, "PerfEventDataMmap", abi::MMAP_MINIMUM_SIZE) {}

bool PerfEventDataMmap::parseEventData(const kestrel::ByteBufferViewport& body) {
  RecordCursor in(body);
  pid_ = in.take<uint32_t>();
  tid_ = in.take<uint32_t>();
  addr_ = in.take<uint64_t>();
  len_ = in.take<uint64_t>();
  pgoff_ = in.take<uint64_t>();
  filename_ = in.takeString();  // what follows its NUL (padding, sample ids) is not ours
  return true;
}

}  // namespace perfevents
