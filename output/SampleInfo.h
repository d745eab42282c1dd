// One sample on its way to the document.
#pragma once

#include <cstdint>
#include <vector>

namespace perfevents {
class PerfEventDataSample;
}

// What a row shows of its sample as it stands.
struct SampleFacts {
  double time = 0.0;  // seconds
  uint64_t ip = 0;    // 0: there is no sample to write
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint32_t cpu = 0;
};

struct SampleInfo : SampleFacts {
  // Takes a record. A record without an ip gives ip 0, and with it nothing else. Of the call chain
  // the first entry (the sampled place itself, or a marker) is dropped and at most the settings'
  // maxBackTrace of the others are kept.
  void copy(const perfevents::PerfEventDataSample& record);
  void copy(const SampleInfo& other) { *this = other; }

  std::vector<uint64_t> backtrace;  // return addresses, innermost first
};
