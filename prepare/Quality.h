// How good a prepared recording is: how much of it has names, what has none and why, and what would
// help. Written as quality.json (share/tracemill-quality.schema.json) and, at the end of a run, as
// a few lines of text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "prepare/ChainEnds.h"
#include "prepare/Names.h"
#include "prepare/Preparation.h"
#include "prepare/WallClock.h"
#include "recordings/Recording.h"

namespace prepare {

// Of addresses in one mode of the processor.
struct NamedCounts {
  std::uint64_t all = 0;
  std::uint64_t mapped = 0;  // in a known library, program, module or the kernel
  double named = 0;          // the share of all that has a function, 0 to 1
};

// What has no name, and why.
struct Nameless {
  std::string reason;  // a word for machines
  std::string text;    // a sentence
  std::string name;    // of the file, where it is about one
  std::uint64_t samples = 0;
  std::uint64_t callers = 0;
  std::string cure;
  std::vector<std::string> searched;
};

class Quality {
 public:
  Quality(const recordings::Recording& recording, const recordings::WalkCounts& walk,
          const Preparation& preparation, const Names& names, std::uint32_t event);

  std::string json() const;
  // Aligned lines, each with its line feed.
  std::string text() const;

 private:
  void _countNames();
  void _explain();
  void _explainFile(const HitFile& hit);
  void _judge();
  std::string _judgementOfChains() const;

  const recordings::Recording& recording_;
  const recordings::WalkCounts& walk_;
  const Preparation& preparation_;
  const Names& names_;
  std::uint32_t event_;
  RecordedClock clock_;
  NamedCounts userSamples_, kernelSamples_, userCallers_, kernelCallers_;
  struct FileCounts {
    std::uint64_t all = 0;
    std::uint64_t named = 0;
  };
  std::map<std::uint32_t, FileCounts> samplesOfFile_;  // as counted, by MappedFile::index
  std::vector<Nameless> nameless_;
  std::vector<ChainEnd> chainEnds_;
  std::string judgement_;
};

}  // namespace prepare
