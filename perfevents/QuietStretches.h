// Where a recording has nothing to say: the stretches of its data section in which a second walk
// would find neither a sample that is wanted nor a record that is logged. A narrow time window
// leaves out most of a recording this way, and need not read it again. Offsets are bytes from the
// start of the data section. One thread only.
#pragma once

#include <cstdint>
#include <vector>

namespace perfevents {

class QuietStretches {
 public:
  // Shorter ones are read faster than passed over.
  static constexpr uint64_t SHORTEST = 256 * 1024;

  struct Stretch {
    uint64_t begin = 0;
    uint64_t end = 0;  // the offset of the record behind
  };

  // Takes the records of a walk in their order.
  void add(uint64_t offset, bool isQuiet) {
    lastOffset_ = offset;
    if (!isQuiet) {
      _close(offset);
    } else if (!isOpen_) {
      isOpen_ = true;
      begin_ = offset;
    }
  }
  // Ends the walk. Its last record is in no stretch: how a recording ends decides what is logged.
  void finish() { _close(lastOffset_); }

  // In ascending order, apart from each other.
  const std::vector<Stretch>& stretches() const { return stretches_; }

 private:
  void _close(uint64_t end) {
    if (isOpen_ && end - begin_ >= SHORTEST) {
      stretches_.push_back({begin_, end});
    }
    isOpen_ = false;
  }

  std::vector<Stretch> stretches_;
  bool isOpen_ = false;
  uint64_t begin_ = 0;  // of the open one
  uint64_t lastOffset_ = 0;
};

}  // namespace perfevents
