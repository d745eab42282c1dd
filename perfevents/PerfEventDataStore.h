// Turns the bytes of a record into a decoded record object.
#pragma once

#include "perfevents/PerfEventData.h"

namespace perfevents {

class PerfEventDataStore {
 public:
  // The record object of `type`, parsed from `body`, or null for a record that is skipped. Owned by
  // the store and overwritten by the next record of the same type.
  virtual PerfEventData* getEventData(PerfEventData::Type type,
                                      const kestrel::ByteBufferViewport& body,
                                      PerfEventData::MiscFlags misc) = 0;
  virtual ~PerfEventDataStore() = default;
};

}  // namespace perfevents
