// Which samples both passes leave out by their time alone, before they are decoded.
#pragma once

#include <cstdint>
#include <functional>

#include "kestrel/TimeConverter.h"

// The time stamps of a recording are nanoseconds, those of a TimeConverter seconds.
inline double secondsOf(uint64_t nanoseconds) {
  constexpr double NANOSECONDS_PER_SECOND = 1e9;
  return static_cast<double>(nanoseconds) / NANOSECONDS_PER_SECOND;
}

// Whether a time stamp in nanoseconds is inside the converter's window; empty while there is none.
// Borrows the converter.
inline std::function<bool(uint64_t)> timeFilter(const kestrel::TimeConverter& converter) {
  if (!converter.hasWindow()) {
    return {};
  }
  return [&converter](uint64_t time) { return converter.isInside(secondsOf(time)); };
}
