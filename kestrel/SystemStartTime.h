// What getSystemStartTime() gives, found in a file of the form of /proc/uptime. Not installed. Any
// thread.
#pragma once

#include <atomic>

namespace kestrel {

class SystemStartTime {
 public:
  // The path must live as long as this object.
  explicit constexpr SystemStartTime(const char* uptimePath) : path_(uptimePath) {}

  // Found once; 0 when that cannot be told, which is not tried again (kept so).
  double get();

 private:
  static constexpr double NOT_YET_COMPUTED = -1.0;

  double _find() const;

  const char* const path_;
  std::atomic<double> time_{NOT_YET_COMPUTED};
};

}  // namespace kestrel
