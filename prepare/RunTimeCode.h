// What tells which files name the code that processes made while they ran: the jitdump files that
// they mapped, and when they began, for a perf map that is older is another process's. To be told
// of what happens in the order of time. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "listing/File.h"
#include "recordings/Recording.h"

namespace prepare {

class RunTimeCode {
 public:
  void onSample(std::uint64_t time);
  void onMap(const recordings::MapRecord& map);
  // A process begins, or another program in it.
  void onBegin(std::uint32_t pid);

  // Completes what is asked for with `file.pid`. `isThisMachine`: the recording was made here.
  void describe(listing::File& file, const recordings::Recording& recording,
                bool isThisMachine) const;

  // "jit-PID.dump", in any directory.
  static bool isJitDump(const std::string& path);

 private:
  // Of a time on the recording's clock, nanoseconds since 1970; nothing unless it is sure.
  std::optional<std::int64_t> _wallTime(std::uint64_t time, const recordings::Recording& recording,
                                        bool isThisMachine) const;

  std::map<std::uint32_t, std::vector<std::string>> jitDumps_;
  std::map<std::uint32_t, std::uint64_t> begins_;  // 0: before the first sample
  std::uint64_t firstTime_ = 0;
  std::uint64_t lastTime_ = 0;
};

}  // namespace prepare
