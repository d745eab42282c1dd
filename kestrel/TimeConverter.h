// Maps time stamps of the recording (data time) to the caller's clock (clock time), selects those
// inside the requested clock window, and yields each one relative to the window's start. All times
// are seconds.
//
//   clock time = offset + (data time - base) * skew
//   data time  = (clock time - offset) / skew + base
//
// The window is closed at its start and open at its end. One thread only.
#pragma once

namespace kestrel {

class TimeConverter {
 public:
  virtual ~TimeConverter() = default;

  // `clockStart` 0 asks for no window: the first time stamp seen becomes time zero. `duration` 0 or
  // less leaves the end open. A start that maps to data time 0 is taken for none, too, and an end
  // that does for an open one (kept so): the window then begins at the first time stamp and keeps
  // its end. Nothing is validated: a skew of 0 gives what the arithmetic gives.
  void setup(double clockStart, double duration, double skew, double offset, double base);

  // Whether `dataTime` lies inside the window. `clockTime` always receives its clock time relative
  // to the window's start. Without a window, a time stamp below the first one seen lies outside:
  // kept so, recordings are not sorted.
  bool nextTimestamp(double dataTime, double& clockTime);
  // Whether the window's start is known; without one asked for, from the first time stamp on.
  bool hasWindow() const { return dataStart_ != 0.0; }
  // What nextTimestamp() would answer, once hasWindow(). Changes nothing.
  bool isInside(double dataTime) const;

 private:
  double clockStart_ = 0.0;
  double clockEnd_ = 0.0;   // 0: open
  double dataStart_ = 0.0;  // 0: not known yet
  double dataEnd_ = 0.0;    // 0: open
  double skew_ = 0.0;
  double offset_ = 0.0;
  double base_ = 0.0;
  double reference_ = 0.0;  // the clock time that results are relative to
};

}  // namespace kestrel
