// What perf tells about a recording beside its records: feature sections of files, feature records
// of pipes. Layouts: tools/perf/Documentation/perf.data-file-format.txt.
#pragma once

#include <cstdint>
#include <map>

#include "tests/support/recordings/RecordEncoder.h"

namespace made {

// Bits of the header's bitmap.
struct Feature {
  static constexpr unsigned BUILD_ID = 2;
  static constexpr unsigned HOSTNAME = 3;
  static constexpr unsigned OSRELEASE = 4;
  static constexpr unsigned ARCH = 6;
  static constexpr unsigned CMDLINE = 11;
  static constexpr unsigned EVENT_DESC = 12;
  static constexpr unsigned SAMPLE_TIME = 21;
  static constexpr unsigned DIR_FORMAT = 24;
  static constexpr unsigned COMPRESSED = 27;
  static constexpr unsigned CLOCK_DATA = 29;
};

// The recording's features by bit. BUILD_ID is among them, which pipes have as records instead.
std::map<unsigned, Fields> featuresOf(const Recording& recording, const Encoding& encoding,
                                      const RecordEncoder& encoder);

// An entry of the BUILD_ID section without its record header.
Fields buildIdBody(const FileBuildId& entry);
// That header's misc.
uint16_t buildIdMisc(const FileBuildId& entry);

}  // namespace made
