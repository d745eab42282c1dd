// The recording's clock and the wall clock: which clock it is, when its first sample was, and the
// options with which the converter takes a window that is given in wall-clock time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "recordings/Recording.h"

namespace prepare {

// A stretch of wall-clock time, as --window gives it.
struct Window {
  std::int64_t startNanoseconds = 0;  // since 1970, UTC
  std::uint64_t lengthNanoseconds = 0;

  // "14:03:10.5,2s", "2026-11-21 14:03:10.5,500ms": local time. A time of day without a date is the
  // first one not before the recording's first sample, or the one on its day. Throws UsageError.
  static Window parse(const std::string& text, std::int64_t firstSampleNanoseconds);
};

class RecordedClock {
 public:
  RecordedClock(const recordings::FileHeader& header, std::uint64_t firstSample);

  // One sentence.
  const std::string& description() const { return description_; }
  // Of a time on the recording's clock, nanoseconds since 1970; nothing if the recording does not
  // tie its clock to the wall clock.
  std::optional<std::int64_t> wallNanoseconds(std::uint64_t time) const;
  std::optional<std::int64_t> wallOfFirstSample() const { return wallNanoseconds(firstSample_); }
  // For tracemill: "-A 1 -B .. -C .. -s .. -d ..". Its clock counts seconds of the local day of the
  // first sample, so that `-s 50590.5` is 14:03:10.5. Only with a wall clock.
  std::string optionsFor(const Window& window) const;

 private:
  std::string description_;
  std::uint64_t firstSample_;
  std::optional<std::int64_t> wallLessClock_;
};

// "2026-11-21 14:03:10.500000000 +0100", local time.
std::string wallText(std::int64_t nanoseconds);
// "12.345678901", seconds.
std::string secondsText(std::uint64_t nanoseconds);

}  // namespace prepare
