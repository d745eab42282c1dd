// Which samples a walk over a recording delivers; the others are not decoded. Samples are nearly
// all of a recording, and decoding one logs nothing that would be missed.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "perfevents/RecordCursor.h"

namespace perfevents {

class SampleFilter {
 public:
  using TimeCondition = std::function<bool(uint64_t)>;  // of a time stamp in nanoseconds

  static SampleFilter all() { return SampleFilter(true, {}); }
  static SampleFilter none() { return SampleFilter(false, {}); }
  // Those of a wanted time, and all of a layout without a time.
  static SampleFilter byTime(TimeCondition isWanted) {
    return SampleFilter(true, std::move(isWanted));
  }

  bool looksAtTimes() const { return isTimeWanted_ != nullptr; }
  // Whether to deliver the sample with this body, whose time stands at `timeOffset`. What is too
  // short to have a time is for its decoder to refuse.
  bool admits(const kestrel::ByteBufferViewport& body, std::size_t timeOffset) const {
    return admitsAny_ && (!isTimeWanted_ || body.size() < timeOffset + sizeof(uint64_t) ||
                          isTimeWanted_(RecordCursor::at<uint64_t>(body, timeOffset)));
  }

 private:
  SampleFilter(bool admitsAny, TimeCondition isTimeWanted)
      : admitsAny_(admitsAny), isTimeWanted_(std::move(isTimeWanted)) {}

  bool admitsAny_;
  TimeCondition isTimeWanted_;  // empty: every time is
};

}  // namespace perfevents
