#include "prepare/RunTimeCode.h"

#include <algorithm>
#include <ctime>
#include <string_view>
#include <sys/stat.h>

#include "prepare/WallClock.h"

namespace prepare {

namespace {

constexpr std::int64_t SECOND = 1'000'000'000;
// Clocks differ, times of files are coarse, and a process begins before its first sample.
constexpr std::int64_t TOLERANCE = 10 * SECOND;
// A recording is written until its end, but the last sample may be older.
constexpr std::int64_t LONGEST_SILENCE = 60 * SECOND;
constexpr std::size_t MOST_DUMPS = 16;  // of a process
// Memory must not grow with their number. Of others it is not sure when they began.
constexpr std::size_t MOST_PROCESSES = 50'000;

std::int64_t nanosecondsOf(const timespec& time) {
  return std::int64_t{time.tv_sec} * SECOND + time.tv_nsec;
}

std::int64_t now(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return nanosecondsOf(time);
}

std::optional<std::int64_t> changeOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return nanosecondsOf(status.st_mtim);
}

}  // namespace

bool RunTimeCode::isJitDump(const std::string& path) {
  std::string_view name = path;
  name.remove_prefix(name.rfind('/') + 1);
  if (!name.starts_with("jit-") || !name.ends_with(".dump")) {
    return false;
  }
  const std::string_view number = name.substr(4, name.size() - 9);
  return !number.empty() && number.find_first_not_of("0123456789") == std::string_view::npos;
}

void RunTimeCode::onSample(std::uint64_t time) {
  firstTime_ = firstTime_ == 0 ? time : firstTime_;
  lastTime_ = time;
}

void RunTimeCode::onMap(const recordings::MapRecord& map) {
  if (!isJitDump(map.name) ||
      (jitDumps_.size() == MOST_PROCESSES && !jitDumps_.contains(map.pid))) {
    return;
  }
  std::vector<std::string>& dumps = jitDumps_[map.pid];
  if (dumps.size() < MOST_DUMPS && std::find(dumps.begin(), dumps.end(), map.name) == dumps.end()) {
    dumps.push_back(map.name);
  }
}

// Of a number that comes again, the first process counts: its map may be the one that is there.
void RunTimeCode::onBegin(std::uint32_t pid) {
  if (begins_.size() < MOST_PROCESSES) {
    begins_.try_emplace(pid, lastTime_);
  }
}

void RunTimeCode::describe(listing::File& file, const recordings::Recording& recording,
                           bool isThisMachine) const {
  if (const auto dumps = jitDumps_.find(file.pid); dumps != jitDumps_.end()) {
    file.jitDumps = dumps->second;
  }
  // The times in a jitdump file are of this clock.
  const recordings::Attribute& attribute = recording.header().events.front().attribute;
  if (attribute.has(recordings::abi::FLAG_USE_CLOCKID) && attribute.clockId == CLOCK_MONOTONIC &&
      lastTime_ != 0) {
    file.lastTime = lastTime_;
  }
  if (const auto begin = begins_.find(file.pid); begin != begins_.end() && firstTime_ != 0) {
    const auto wall =
        _wallTime(begin->second == 0 ? firstTime_ : begin->second, recording, isThisMachine);
    if (wall) {
      file.begin = *wall - TOLERANCE;
    }
  }
}

// Where the recording does not say it, two clues have to agree: this machine's clock, which counts
// as perf's does until it is started again, and the time of the recording's file, which is another
// one if it was copied.
std::optional<std::int64_t> RunTimeCode::_wallTime(std::uint64_t time,
                                                   const recordings::Recording& recording,
                                                   bool isThisMachine) const {
  if (const auto wall = RecordedClock(recording.header(), firstTime_).wallNanoseconds(time)) {
    return wall;
  }
  const auto written = changeOf(recording.name());
  if (!isThisMachine || !written ||
      recording.header().events.front().attribute.has(recordings::abi::FLAG_USE_CLOCKID)) {
    return std::nullopt;
  }
  const std::int64_t wallLessClock = now(CLOCK_REALTIME) - now(CLOCK_MONOTONIC);
  const std::int64_t silence =
      *written - wallLessClock - static_cast<std::int64_t>(lastTime_ & INT64_MAX);
  if (silence < -TOLERANCE || silence > LONGEST_SILENCE) {
    return std::nullopt;
  }
  return wallLessClock + static_cast<std::int64_t>(time & INT64_MAX);
}

}  // namespace prepare
