#include "kestrel/log/LogStamp.h"

#include <ctime>
#include <sys/time.h>

namespace kestrel {

LogStamp LogStamp::now() {
  LogStamp stamp{};
  timeval time{};
  gettimeofday(&time, nullptr);
  const std::time_t seconds = time.tv_sec;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  if (strftime(stamp.text, sizeof stamp.text, "%b %d %H:%M:%S", &parts) == 0) {
    stamp.text[0] = '\0';
  }
  stamp.milliseconds = static_cast<long>(time.tv_usec / 1000);
  return stamp;
}

}  // namespace kestrel
