// Wall-clock time in seconds since the epoch, as a double. Any thread.
#pragma once

#include <string>

namespace kestrel {

// Seconds that getNow() adds to every reading; 0 at first. Logged when it changes.
void setFakeTimeOffset(double offset);
double getFakeTimeOffset();

double getNow();

// When the system was started, found once; 0 when that cannot be told, which is not tried again
// (kept so).
double getSystemStartTime();

// Writes date, time and milliseconds in UTC, as the locale writes the first two: "01/01/70
// 00:00:00.500" in the "C" locale. `buffer` holds at least 80 bytes; what a locale makes longer is
// no text at all. Returns the number of characters. The milliseconds are not padded with zeros
// (kept so: 5 ms read ".5"), and those of a negative time have its sign. A time beyond 32 bits of
// seconds counts as the nearest whole second that fits, and not-a-number as 0.
int timeToString(double time, char* buffer);
void timeToString(double time, std::string& out);

}  // namespace kestrel
