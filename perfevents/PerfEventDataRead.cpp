#include "perfevents/PerfEventDataRead.h"

#include "perfevents/PerfAbi.h"
#include "perfevents/PerfEventAttribute.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

PerfEventDataRead::PerfEventDataRead(const PerfEventAttribute& attribute)
    : PerfEventData(attribute, "PerfEventDataRead",
                    attribute.readFormat() != 0 ? abi::READ_MINIMUM_SIZE_WITH_FORMAT
                                                : abi::READ_MINIMUM_SIZE),
      hasReadFormat_(attribute.readFormat() != 0) {}

bool PerfEventDataRead::parseEventData(const kestrel::ByteBufferViewport& body) {
  RecordCursor in(body);
  pid_ = in.take<uint32_t>();
  tid_ = in.take<uint32_t>();
  value_ = in.take<uint64_t>();
  const unsigned int size = body.size() - abi::READ_VALUES_OFFSET;
  // A view shows bytes that others may write through; this one is only read.
  unsigned char* const values =
      size == 0 ? nullptr : const_cast<unsigned char*>(body.data()) + abi::READ_VALUES_OFFSET;
  values_.initialize(values, size, size);
  return true;
}

}  // namespace perfevents
