#include "kestrel/WallClock.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <sys/time.h>

#include "kestrel/SystemStartTime.h"
#include "kestrel/log/Logger.h"

namespace kestrel {

namespace {

constexpr std::size_t TEXT_SIZE = 80;

std::atomic<double> fakeTimeOffset{0.0};
constinit SystemStartTime systemStartTime("/proc/uptime");

Logger& _log() {
  static Logger* const logger = Logger::getLogger("Time");
  return *logger;
}

// Reads uptime and idle time as far as they are there. The number of values read, below 0 for none
// at the end of the file; `now` is the time of the reading.
int _readUptime(std::FILE* file, double& uptime, double& idleTime, double& now) {
  const int count = fscanf(file, "%lf %lf", &uptime, &idleTime);
  now = getNow();
  fclose(file);
  return count;
}

// Whole seconds toward zero, within 32 bits; `time` becomes the nearest time that has them.
std::int32_t _wholeSeconds(double& time) {
  constexpr double LEAST = std::numeric_limits<std::int32_t>::min();
  constexpr double MOST = std::numeric_limits<std::int32_t>::max();
  if (std::isnan(time)) {
    time = 0.0;
  } else if (std::trunc(time) < LEAST) {
    time = LEAST;
  } else if (std::trunc(time) > MOST) {
    time = MOST;
  }
  return static_cast<std::int32_t>(time);
}

}  // namespace

void setFakeTimeOffset(double offset) {
  if (offset == fakeTimeOffset.load()) {
    return;
  }
  fakeTimeOffset.store(offset);
  _log().infof("Fake time offset has been set to %f", offset);
}

double getFakeTimeOffset() { return fakeTimeOffset.load(); }

double getNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6 +
         fakeTimeOffset.load();
}

double getSystemStartTime() { return systemStartTime.get(); }

double SystemStartTime::_find() const {
  std::FILE* const file = fopen(path_, "re");
  if (file == nullptr) {
    _log().errorf("getSystemStartTime: Could not open /proc/uptime");
    return 0.0;
  }
  double uptime = 0.0;
  double idleTime = 0.0;
  double now = 0.0;
  if (_readUptime(file, uptime, idleTime, now) <= 0) {
    _log().errorf("getSystemStartTime: Could not parse /proc/uptime");
    return 0.0;
  }
  const double result = now - uptime;
  _log().debugf("getSystemStartTime: uptime=%f, idletime=%f, now=%f", uptime, idleTime, now);
  _log().infof("The system start time is %f", result);
  return result;
}

double SystemStartTime::get() {
  const double known = time_.load();
  if (known != NOT_YET_COMPUTED) {
    return known;
  }
  const double found = _find();
  time_.store(found);
  return found;
}

int timeToString(double time, char* buffer) {
  const std::int32_t seconds = _wholeSeconds(time);
  const int milliseconds = static_cast<int>((time - seconds) * 1000.0);
  char format[TEXT_SIZE];
  snprintf(format, sizeof format, "%%x %%X.%d", milliseconds);
  const std::time_t wholeTime = seconds;
  std::tm parts{};
  gmtime_r(&wholeTime, &parts);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // made above, of two conversions and digits
  const std::size_t length = strftime(buffer, TEXT_SIZE, format, &parts);
#pragma GCC diagnostic pop
  if (length == 0) {
    buffer[0] = '\0';  // a locale's text that does not fit
  }
  return static_cast<int>(length);
}

void timeToString(double time, std::string& out) {
  char text[TEXT_SIZE];
  timeToString(time, text);
  out = text;
}

}  // namespace kestrel
