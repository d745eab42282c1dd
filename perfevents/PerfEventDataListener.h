// The consumer of a reader's records.
#pragma once

namespace perfevents {

class PerfEventData;

class PerfEventDataListener {
 public:
  // One decoded record, in file order. Borrowed for the call: the object is used again for the next
  // record of its type.
  virtual void onEventData(const PerfEventData& record) = 0;
  // The walk has ended, at the end of the data or at an error. Called once.
  virtual void onClose() = 0;
  virtual ~PerfEventDataListener() = default;
};

}  // namespace perfevents
