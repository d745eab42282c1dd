// Names of code that a program made while it ran, from its file jit-PID.dump: records of functions
// loaded and moved, in the order of time. Source:
// perf's description of the jitdump format, in its tools/perf/Documentation.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "listing/Symbol.h"

namespace listing {

// A symbol for each place that a function had, in the order of the records; names are views into
// the bytes. What is broken ends the file, and what is no jitdump has none. Records of a later time
// than the last one (nanoseconds of CLOCK_MONOTONIC) are left out, unless the file counts the
// processor's ticks.
std::vector<Symbol> parseJitDump(std::string_view bytes, std::uint64_t lastTime = UINT64_MAX);

}  // namespace listing
