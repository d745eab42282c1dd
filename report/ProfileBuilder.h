// From the rows of a document, in the order in which they are read, to a Profile. One thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "report/KeyIndex.h"
#include "report/Profile.h"

namespace report {

// Rows of "samples", as they were read.
struct SampleRows {
  struct Row {
    int64_t time;  // or ProfileBuilder::NO_TIME
    uint32_t cpu;
    uint32_t pidkey;
    std::size_t chainEnd;  // in mapkeys; its chain begins where that of the row before ends
  };

  std::vector<Row> rows;
  std::vector<uint64_t> mapkeys;  // of all chains, each innermost call first
  uint32_t timeDigits = 0;        // the most fraction digits of a time
};

class ProfileBuilder {
 public:
  // A time that is no finite number, or beyond what 64 bits of nanoseconds hold.
  static constexpr int64_t NO_TIME = std::numeric_limits<int64_t>::max();

  // --- Rows of "samples", in the order of the document.
  void addSamples(const SampleRows& rows);
  std::size_t sampleCount() const { return samples_.size(); }

  // --- Rows of the other tables.
  void addLibrary(uint64_t key, uint32_t pidkey, std::string name, uint64_t start);
  void addFunction(uint64_t key, std::string name, uint64_t start, uint64_t firstMap);
  void addProcess(uint32_t key, uint32_t pid, uint32_t tid, std::string name);
  void addFile(const std::string& name, const std::vector<uint64_t>& functions);

  // Looks up what refers to what, sorts samples by time, leaves the builder empty.
  Profile build();

 private:
  struct Row {
    std::string name;
    uint64_t start = 0;
    uint64_t reference = 0;  // a library's process, a function's first map
  };

  struct Call {
    uint64_t mapkey;
    uint32_t stack;
  };

  uint32_t _addChain(std::span<const uint64_t> mapkeys, uint32_t cpu);
  void _addSample(const SampleRows::Row& row, uint32_t stack);
  uint32_t _libraryOf(Profile& profile, uint64_t mapkey);
  uint32_t _frameOf(Profile& profile, uint64_t mapkey);
  void _buildStacks(Profile& profile);
  void _buildThreads(Profile& profile);
  void _sortSamples();
  void _placeTimeless();

  KeyIndex mapkeys_;
  StackTree stacks_;                              // of indices in mapkeys_
  std::array<std::vector<Call>, 64> lastChains_;  // by CPU; outermost call first
  SampleColumns samples_;
  std::vector<uint32_t> threadKeys_;
  std::unordered_map<uint32_t, uint32_t> threadOfKey_;
  uint32_t lastThreadKey_ = NONE;  // most samples are of the thread of the one before
  uint32_t lastThread_ = NONE;
  uint32_t timeDigits_ = 0;
  uint64_t timelessCount_ = 0;

  std::unordered_map<uint64_t, Row> libraries_;
  std::unordered_map<uint64_t, Row> functions_;
  std::unordered_map<uint32_t, ProfileThread> processes_;
  std::unordered_map<uint32_t, std::string> processNames_;  // by pid
  std::vector<std::string> files_;
  std::unordered_map<uint64_t, uint32_t> fileOfFunction_;
  std::unordered_map<std::string, uint32_t> libraryByName_;
  std::unordered_map<std::string, uint32_t> frameByName_;  // of name, zero byte, library
};

// Adds the samples of `baseline` as counts by stack, so that the two can be compared. Functions are
// the same when their names and the file names of their libraries are.
void addBaseline(Profile& profile, const Profile& baseline);

}  // namespace report
