// What a reader of recordings has to say about a file, worked out anew from the format.
#pragma once

#include <string>
#include <string_view>

// The one ERROR message of each pass over a file of these bytes; empty when it is sound.
std::string expectedComplaint(std::string_view file);

// Not the reader's: it ends the run, and is said once.
inline constexpr const char* NO_ATTRIBUTES =
    "At least one PerfEventAttribute is required to construct PerfRecordEventDataStore";
