// What is known of a recording beside its samples.
#pragma once

#include <string>

namespace report {

struct RecordingFacts {
  std::string name;          // of the file that was given
  std::string qualityJson;   // quality.json of tracemill-prepare as it stands; empty: unknown
  std::string baselineName;  // of the recording that it is compared with; empty: none
  std::string baselineQualityJson;
};

}  // namespace report
