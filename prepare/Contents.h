// What --list prints: what a recording is and holds. One text, a fact a line.
#pragma once

#include <string>

#include "recordings/Recording.h"

namespace prepare {

std::string contentsOf(const recordings::Recording& recording, const recordings::WalkCounts& counts,
                       const std::string& window);

// The options of tracemill for a window on the wall clock, one line. Throws UsageError where the
// recording has no wall clock.
std::string windowLine(const recordings::Recording& recording, const recordings::WalkCounts& counts,
                       const std::string& window);

}  // namespace prepare
