#include "prepare/WallClock.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "prepare/Options.h"

namespace prepare {

namespace {

constexpr std::int64_t BILLION = 1000000000;
constexpr std::int32_t REALTIME = 0;

std::tm localTime(std::int64_t nanoseconds) {
  const std::time_t seconds = static_cast<std::time_t>(nanoseconds / BILLION);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return parts;
}

std::int64_t momentOf(std::tm parts) {
  parts.tm_isdst = -1;
  return static_cast<std::int64_t>(std::mktime(&parts)) * BILLION;
}

// Whether the calendar has that day.
bool isDay(const std::tm& parts) {
  std::tm noon = parts;
  noon.tm_hour = 12;
  noon.tm_isdst = -1;
  std::mktime(&noon);
  return noon.tm_mon == parts.tm_mon && noon.tm_mday == parts.tm_mday;
}

// Of the local day that holds the moment.
std::int64_t midnightOf(std::int64_t nanoseconds) {
  std::tm parts = localTime(nanoseconds);
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  return momentOf(parts);
}

std::string clockName(std::int32_t id) {
  switch (id) {
    case 0:
      return "CLOCK_REALTIME";
    case 1:
      return "CLOCK_MONOTONIC";
    case 4:
      return "CLOCK_MONOTONIC_RAW";
    case 7:
      return "CLOCK_BOOTTIME";
    case 11:
      return "CLOCK_TAI";
    default:
      return "clock " + std::to_string(id);
  }
}

[[noreturn]] void refuse(const std::string& text) {
  throw UsageError("--window: '" + text +
                   "' is no time and length, as 14:03:10.5,2s or '2026-11-21 14:03:10.5,500ms'. "
                   "See tracemill-prepare --help.");
}

// The digits behind a point, as nanoseconds; the rest of the text must be empty then.
bool parseFraction(std::string_view text, std::int64_t& nanoseconds) {
  nanoseconds = 0;
  if (text.empty()) {
    return true;
  }
  if (text.front() != '.' || text.size() < 2) {
    return false;
  }
  std::int64_t unit = BILLION / 10;
  for (const char digit : text.substr(1)) {
    if (digit < '0' || digit > '9') {
      return false;
    }
    nanoseconds += (digit - '0') * unit;
    unit /= 10;
  }
  return true;
}

std::uint64_t parseLength(const std::string& whole, const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  const std::string_view unit = end;
  double seconds = -1;
  if (unit.empty() || unit == "s") {
    seconds = value;
  } else if (unit == "ms") {
    seconds = value / 1e3;
  } else if (unit == "us") {
    seconds = value / 1e6;
  } else if (unit == "m" || unit == "min") {
    seconds = value * 60;
  }
  if (end == text.c_str() || !(seconds > 0) || seconds > 1e9) {
    refuse(whole);
  }
  return static_cast<std::uint64_t>(std::llround(seconds * 1e9));
}

}  // namespace

Window Window::parse(const std::string& text, std::int64_t firstSampleNanoseconds) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) {
    refuse(text);
  }
  Window window;
  window.lengthNanoseconds = parseLength(text, text.substr(comma + 1));
  const std::string when = text.substr(0, comma);
  std::tm parts = localTime(firstSampleNanoseconds);
  int used = 0;
  const bool hasDate =
      std::sscanf(when.c_str(), "%4d-%2d-%2d%*1[ T]%2d:%2d:%2d%n", &parts.tm_year, &parts.tm_mon,
                  &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &used) == 6;
  if (hasDate) {
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
  } else {
    parts = localTime(firstSampleNanoseconds);
    if (std::sscanf(when.c_str(), "%2d:%2d:%2d%n", &parts.tm_hour, &parts.tm_min, &parts.tm_sec,
                    &used) != 3) {
      refuse(text);
    }
  }
  std::int64_t fraction = 0;
  if (used == 0 ||
      !parseFraction(std::string_view(when).substr(static_cast<std::size_t>(used)), fraction) ||
      parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 60 || parts.tm_hour < 0 ||
      parts.tm_min < 0 || parts.tm_sec < 0 || !isDay(parts)) {
    refuse(text);
  }
  window.startNanoseconds = momentOf(parts) + fraction;
  const auto length = static_cast<std::int64_t>(window.lengthNanoseconds);
  if (!hasDate && window.startNanoseconds + length < firstSampleNanoseconds) {
    ++parts.tm_mday;  // the recording went on past midnight
    window.startNanoseconds = momentOf(parts) + fraction;
  }
  return window;
}

RecordedClock::RecordedClock(const recordings::FileHeader& header, std::uint64_t firstSample)
    : firstSample_(firstSample) {
  const recordings::Attribute& attribute = header.events.front().attribute;
  if ((attribute.sampleType & recordings::abi::SAMPLE_TIME) == 0) {
    description_ = "none: the samples have no times (record without --no-timestamp)";
    return;
  }
  if (attribute.has(recordings::abi::FLAG_USE_CLOCKID)) {
    description_ = clockName(attribute.clockId);
    if (attribute.clockId == REALTIME) {
      wallLessClock_ = 0;
    }
  } else {
    description_ =
        "perf's own, which no program can read; record with -k mono to line up with a log";
  }
  if (const auto& data = header.facts.clockData; data && !wallLessClock_) {
    wallLessClock_ = static_cast<std::int64_t>(data->wallNanoseconds - data->clockNanoseconds);
  }
}

std::optional<std::int64_t> RecordedClock::wallNanoseconds(std::uint64_t time) const {
  if (!wallLessClock_ || firstSample_ == 0) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(*wallLessClock_) + time);
}

std::string RecordedClock::optionsFor(const Window& window) const {
  const std::int64_t wall = wallOfFirstSample().value();
  const std::int64_t midnight = midnightOf(wall);
  const auto ofDay = [midnight](std::int64_t nanoseconds) {
    const std::int64_t left = nanoseconds - midnight;
    return left < 0 ? "-" + secondsText(static_cast<std::uint64_t>(-left))
                    : secondsText(static_cast<std::uint64_t>(left));
  };
  return "-A 1 -B " + ofDay(wall) + " -C " + secondsText(firstSample_) + " -s " +
         ofDay(window.startNanoseconds) + " -d " + secondsText(window.lengthNanoseconds);
}

std::string wallText(std::int64_t nanoseconds) {
  const std::tm parts = localTime(nanoseconds);
  char date[32];
  char zone[16];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &parts);
  std::strftime(zone, sizeof zone, "%z", &parts);
  char text[80];
  std::snprintf(text, sizeof text, "%s.%09" PRId64 " %s", date, nanoseconds % BILLION, zone);
  return text;
}

std::string secondsText(std::uint64_t nanoseconds) {
  char text[40];
  std::snprintf(text, sizeof text, "%" PRIu64 ".%09" PRIu64, nanoseconds / BILLION,
                nanoseconds % BILLION);
  return text;
}

}  // namespace prepare
