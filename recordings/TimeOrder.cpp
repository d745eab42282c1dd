#include "recordings/TimeOrder.h"

#include <algorithm>
#include <limits>
#include <queue>

namespace recordings {

namespace {

constexpr std::size_t READ_AHEAD_OF_ALL = 8 * 1024 * 1024;
constexpr std::size_t LEAST_READ_AHEAD = 4 * 1024;
constexpr std::size_t MOST_READ_AHEAD = 256 * 1024;

}  // namespace

TimeOrder::TimeOrder(Trust trust, std::string scratchDirectory, Deliver deliver)
    : trust_(trust), scratchDirectory_(std::move(scratchDirectory)), deliver_(std::move(deliver)) {}

bool TimeOrder::add(std::uint64_t time, std::uint32_t event, Bytes record) {
  if (time < delivered_) {
    return false;
  }
  newest_ = std::max(newest_, time);
  held_.push_back({time, pool_.copy(record), static_cast<std::uint32_t>(record.size()), event});
  if (pool_.usedBytes() + held_.size() * 2 * sizeof(TimedRecord) > MEMORY_LIMIT) {
    _spill();
  }
  return true;
}

void TimeOrder::finishRound() {
  if (trust_ == Trust::ROUNDS) {
    _deliverTo(newestOfRoundBefore_);
    newestOfRoundBefore_ = newest_;
  }
}

void TimeOrder::finish() { _deliverTo(std::numeric_limits<std::uint64_t>::max()); }

void TimeOrder::_spill() {
  sortByTime(held_, scratch_);
  if (file_ == nullptr) {
    file_ = std::make_shared<ScratchFile>(scratchDirectory_);
  }
  runs_.push_back(std::make_unique<SortedRun>(file_, held_));
  for (const TimedRecord& record : held_) {
    pool_.free(record.bytes);
  }
  held_.clear();
}

void TimeOrder::_deliver(const TimedRecord& record) {
  delivered_ = record.time;
  deliver_(record);
}

void TimeOrder::_deliverTo(std::uint64_t limit) {
  sortByTime(held_, scratch_);
  if (!runs_.empty()) {
    _mergeTo(limit);
    return;
  }
  std::size_t done = 0;
  while (done < held_.size() && held_[done].time <= limit) {
    _deliver(held_[done]);
    pool_.free(held_[done].bytes);
    ++done;
  }
  held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(done));
}

// The records in memory are the youngest of equal times, and of the runs each is older than the
// next.
void TimeOrder::_mergeTo(std::uint64_t limit) {
  using Head =
      std::pair<std::uint64_t, std::size_t>;  // time, number of the run; memory is the last
  std::priority_queue<Head, std::vector<Head>, std::greater<>> heads;
  const std::size_t memory = runs_.size();
  const std::size_t readAhead =
      std::clamp(READ_AHEAD_OF_ALL / memory, LEAST_READ_AHEAD, MOST_READ_AHEAD);
  std::size_t done = 0;
  const auto push = [&](std::size_t source) {
    const TimedRecord* front = nullptr;
    if (source == memory) {
      front = done < held_.size() ? &held_[done] : nullptr;
    } else {
      front = runs_[source]->front();
    }
    if (front != nullptr && front->time <= limit) {
      heads.emplace(front->time, source);
    }
  };
  for (std::size_t source = 0; source <= memory; ++source) {
    if (source < memory) {
      runs_[source]->setReadAhead(readAhead);
    }
    push(source);
  }
  while (!heads.empty()) {
    const std::size_t source = heads.top().second;
    heads.pop();
    if (source == memory) {
      _deliver(held_[done]);
      pool_.free(held_[done].bytes);
      ++done;
    } else {
      _deliver(*runs_[source]->front());
      runs_[source]->pop();
    }
    push(source);
  }
  held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(done));
  std::erase_if(runs_, [](const auto& run) { return run->front() == nullptr; });
  if (runs_.empty()) {
    file_.reset();
  }
}

}  // namespace recordings
