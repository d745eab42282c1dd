// Processes and threads as the converter will see them, and how they are written down while they
// wait on a shelf.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "prepare/Placement.h"
#include "recordings/MappedFiles.h"

namespace prepare {

struct PlainProcess {
  Placement placement;
  std::uint64_t kernelHits = 0;  // samples and callers in the kernel itself
  std::string name;              // of its first thread at the end; empty: not known
  // Since it was new or came back from the shelf.
  std::uint64_t newHits = 0;

  std::string text() const;
  // `files`: those that the placement's pieces are of.
  static PlainProcess restored(const std::string& text, const recordings::MappedFiles& files);
};

struct SampledThread {
  std::uint32_t pid = 0;
  std::uint32_t recordedTid = 0;
  bool isNameSettled = false;  // what that tid is called now is not this thread's name
  std::uint64_t samples = 0;
  std::string name;  // of the samples counted in `underName`; at the end, the last one
  std::uint64_t underName = 0;
  std::map<std::string, std::uint64_t> underOthers;
  std::uint64_t newSamples = 0;  // as newHits

  // The last name becomes this; empty: stays as it is.
  void rename(const std::string& last);
  std::uint64_t samplesUnderOtherNames() const;

  std::string text() const;
  static SampledThread restored(const std::string& text);
};

}  // namespace prepare
