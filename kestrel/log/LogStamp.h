// The moment at which a log line is written, in the parts that the line begins with.
#pragma once

namespace kestrel {

struct LogStamp {
  char text[80];      // local time, "Mar 07 14:03:09"
  long milliseconds;  // of the second

  static LogStamp now();
};

}  // namespace kestrel
