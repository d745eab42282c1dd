// What a sample says about where it was taken, whatever its layout. Values that a layout lacks are
// all ones.
#pragma once

#include <cstdint>

namespace perfevents {

class PerfEventDataSampleAncillary {
 public:
  virtual ~PerfEventDataSampleAncillary() = default;
  virtual uint32_t getPid() const = 0;
  virtual uint32_t getTid() const = 0;
  virtual uint64_t getCpu() const = 0;
  virtual uint64_t getResource() const = 0;  // the reserved word beside the CPU number
};

}  // namespace perfevents
