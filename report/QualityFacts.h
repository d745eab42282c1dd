// What other formats tell of a recording beside its samples, out of quality.json.
#pragma once

#include <string>

namespace report {

// The name of the recorded machine; empty where quality.json has none, or is none.
std::string hostOf(const std::string& qualityJson);

// The command line that was recorded; empty as above.
std::string commandLineOf(const std::string& qualityJson);

}  // namespace report
