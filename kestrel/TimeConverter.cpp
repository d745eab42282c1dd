#include "kestrel/TimeConverter.h"

namespace kestrel {

void TimeConverter::setup(double clockStart, double duration, double skew, double offset,
                          double base) {
  clockStart_ = clockStart;
  skew_ = skew;
  offset_ = offset;
  base_ = base;
  if (clockStart == 0.0) {
    reference_ = 0.0;
    clockEnd_ = 0.0;
    dataStart_ = 0.0;
    dataEnd_ = 0.0;
    return;
  }
  dataStart_ = base + (clockStart - offset) / skew;
  if (duration > 0.0) {
    clockEnd_ = clockStart + duration;
    dataEnd_ = base + (clockEnd_ - offset) / skew;
  } else {
    clockEnd_ = 0.0;
    dataEnd_ = 0.0;
  }
  reference_ = clockStart;
}

bool TimeConverter::nextTimestamp(double dataTime, double& clockTime) {
  if (dataStart_ == 0.0) {
    dataStart_ = dataTime;
    reference_ = offset_ + (dataTime - base_) * skew_;
  }
  clockTime = offset_ + (dataTime - base_) * skew_ - reference_;
  return isInside(dataTime);
}

bool TimeConverter::isInside(double dataTime) const {
  if (!(dataTime >= dataStart_)) {  // so written: what is not a number lies outside too
    return false;
  }
  if (dataTime < dataEnd_) {
    return true;
  }
  return dataEnd_ == 0.0;
}

}  // namespace kestrel
