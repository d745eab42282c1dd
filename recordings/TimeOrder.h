// Brings records into the order of their times. perf writes the buffers of the CPUs in turn, and
// marks with FINISHED_ROUND each time it has been through all of them: what comes after a mark is
// not older than the newest record before the mark before. So only two rounds have to be held.
// Where a recording has no such marks, or breaks their promise, everything is sorted; more than
// MEMORY_LIMIT goes through a temporary file. Equal times keep their order. One thread.
// Source: tools/perf/util/ordered-events.c, tools/perf/builtin-record.c.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "recordings/RecordPool.h"
#include "recordings/SortedRun.h"

namespace recordings {

class TimeOrder {
 public:
  enum class Trust { ROUNDS, NOTHING };
  // Receives the records in order; each is valid during the call only.
  using Deliver = std::function<void(const TimedRecord&)>;

  // Temporary files are made in `scratchDirectory` and have no name there.
  TimeOrder(Trust trust, std::string scratchDirectory, Deliver deliver);

  // Copies the record. With Trust::ROUNDS, false if it is older than what was delivered already:
  // the marks cannot be trusted, and the caller starts afresh with Trust::NOTHING.
  bool add(std::uint64_t time, std::uint32_t event, Bytes record);
  void finishRound();
  // No more records: delivers what is left.
  void finish();

  // Bytes of records held in memory, before the rest goes to a file.
  static constexpr std::size_t MEMORY_LIMIT = 12 * 1024 * 1024;

 private:
  void _spill();
  void _deliverTo(std::uint64_t limit);
  void _mergeTo(std::uint64_t limit);
  void _deliver(const TimedRecord& record);

  Trust trust_;
  std::string scratchDirectory_;
  Deliver deliver_;
  RecordPool pool_;
  std::vector<TimedRecord> held_;
  std::vector<TimedRecord> scratch_;
  std::shared_ptr<ScratchFile> file_;
  std::vector<std::unique_ptr<SortedRun>> runs_;  // oldest first
  std::uint64_t newest_ = 0;
  std::uint64_t newestOfRoundBefore_ = 0;
  std::uint64_t delivered_ = 0;
};

}  // namespace recordings
