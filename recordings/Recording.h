// One recording, whatever form it has: a file, a pipe's bytes in a file, or a folder of files
// (`perf record --threads`). Tells what is in it, and walks its records in the order of time.
// Samples of all events, and every record that explains them, go to a visitor; what nobody needs is
// counted. Memory does not grow with the recording. One thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "recordings/FileHeader.h"
#include "recordings/Input.h"
#include "recordings/RecordStream.h"
#include "recordings/SampleLayout.h"
#include "recordings/SideRecords.h"
#include "recordings/TimeOrder.h"

namespace recordings {

// Receives the records of a walk. Records are valid during the call only.
class RecordVisitor {
 public:
  virtual ~RecordVisitor() = default;
  // Whether samples of this event are to be handed over; the others are counted only.
  virtual bool wantsSamplesOf(std::uint32_t event) = 0;
  virtual void onSample(std::uint32_t event, const Sample& sample) = 0;
  virtual void onMap(const MapRecord& map) = 0;
  virtual void onComm(const CommRecord& comm) = 0;
  virtual void onFork(const TaskRecord& task) = 0;
  virtual void onExit(const TaskRecord& task) = 0;
  virtual void onKsymbol(const KsymbolRecord& symbol) = 0;
  // Now and then, how far the walk is.
  virtual void onProgress(std::uint64_t doneBytes, std::uint64_t allBytes) = 0;
};

// What a walk met, besides what it handed over.
struct WalkCounts {
  std::vector<std::uint64_t> samplesOfEvent;
  std::uint64_t samplesOfNoEvent = 0;  // with an id that is in no list
  std::uint64_t brokenRecords = 0;     // too short for what they claim to hold
  std::uint64_t lostRecords = 0;       // LOST: what did not fit the buffers
  std::uint64_t lostSamples = 0;       // LOST_SAMPLES
  std::uint64_t throttles = 0;
  std::uint64_t throttledNanoseconds = 0;  // between THROTTLE and UNTHROTTLE, summed over the CPUs
  std::uint64_t firstTime = 0;             // of the samples that were handed over
  std::uint64_t lastTime = 0;
  std::array<std::uint64_t, 256> recordsOfType{};  // the last: of that type or a higher one
  std::vector<Damage> damages;                     // one for each file that has any
};

class Recording {
 public:
  // A file or a folder. Throws RecordingError.
  static std::unique_ptr<Recording> open(const std::string& path);
  // Of these bytes alone.
  explicit Recording(std::unique_ptr<Input> input);
  ~Recording();

  const std::string& name() const { return input_->name(); }
  std::uint64_t size() const;
  const FileHeader& header() const { return header_; }
  const std::vector<Event>& events() const { return header_.events; }
  // Of an event's samples.
  const SampleLayout& layout(std::uint32_t event) const { return layouts_[event]; }
  // The folder of the files, where it is one; else empty.
  const std::string& folder() const { return folder_; }

  // Hands over all records in the order of time. False if the recording breaks the promise of its
  // FINISHED_ROUND marks, so that some came too late: then the visitor's state is worthless, and a
  // second walk with Trust::NOTHING gives the right order. Temporary files are made in
  // `scratchDirectory`.
  bool walk(RecordVisitor& visitor, TimeOrder::Trust trust, const std::string& scratchDirectory,
            WalkCounts& counts);
  // Counts only; hands over nothing.
  void count(WalkCounts& counts);

 private:
  class Walk;

  void _readBeginning();
  void _addDataFiles(const std::string& folder);
  std::vector<std::unique_ptr<RecordStream>> _streams() const;

  std::unique_ptr<Input> input_;
  std::string folder_;
  std::vector<std::unique_ptr<Input>> dataFiles_;  // of a folder
  FileHeader header_;
  std::vector<SampleLayout> layouts_;
  // Whether the file begins with what was there at the start, as it does unless perf was asked to
  // write that last.
  bool beginsWithState_ = false;
};

}  // namespace recordings
