#include "recordings/Recording.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <system_error>

#include "recordings/Abi.h"
#include "recordings/RecordingError.h"

namespace recordings {

namespace {

constexpr std::uint64_t NO_TIME = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t PROGRESS_EVERY = 4096;  // records
constexpr std::size_t MOST_STREAMS = 65536;     // that are throttled at a time

bool isOfKernel(const Record& record) { return record.type < abi::RECORD_USER_TYPES; }

// A record that perf made at the start: of what was there already.
bool tellsOfState(const Record& record, const FileHeader& header) {
  if ((record.type != abi::RECORD_MMAP && record.type != abi::RECORD_MMAP2 &&
       record.type != abi::RECORD_COMM) ||
      header.events.empty()) {
    return false;
  }
  const SampleLayout layout(header.events.front().attribute, header.order);
  return layout.timeOfOther(record) == 0;
}

}  // namespace

std::unique_ptr<Recording> Recording::open(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  if (!fs::is_directory(path, ignored)) {
    return std::make_unique<Recording>(std::make_unique<FileInput>(path));
  }
  const std::string main = (fs::path(path) / "data").string();
  if (!fs::exists(main, ignored)) {
    throw RecordingError(path + ": is a folder without a file named data, so it is no recording.");
  }
  auto recording = std::make_unique<Recording>(std::make_unique<FileInput>(main));
  recording->_addDataFiles(path);
  return recording;
}

Recording::Recording(std::unique_ptr<Input> input)
    : input_(std::move(input)), header_(FileHeader::read(*input_)) {
  _readBeginning();
}

Recording::~Recording() = default;

// The files of the rings, in the order of their numbers.
void Recording::_addDataFiles(const std::string& folder) {
  namespace fs = std::filesystem;
  folder_ = folder;
  std::map<unsigned long, std::string> paths;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const bool isNumbered = name.size() > 5 && name.size() < 15 && name.starts_with("data.") &&
                            name.find_first_not_of("0123456789", 5) == std::string::npos;
    if (isNumbered && entry.is_regular_file()) {
      paths[std::stoul(name.substr(5))] = entry.path().string();
    }
  }
  for (const auto& [number, path] : paths) {
    dataFiles_.push_back(std::make_unique<FileInput>(path));
  }
}

std::uint64_t Recording::size() const {
  std::uint64_t size = input_->size();
  for (const auto& file : dataFiles_) {
    size += file->size();
  }
  return size;
}

// Events and their names may come as records, before the first one from a buffer.
void Recording::_readBeginning() {
  RecordStream stream(*input_, header_.dataBegin, header_.dataEnd, header_.order, header_.form);
  for (Record record; stream.next(record);) {
    if (record.type == abi::RECORD_SAMPLE || record.type == abi::RECORD_FINISHED_ROUND) {
      break;
    }
    beginsWithState_ = beginsWithState_ || tellsOfState(record, header_);
    header_.addRecord(record);
  }
  header_.finishEvents(input_->name());
  for (const Event& event : header_.events) {
    layouts_.emplace_back(event.attribute, header_.order);
  }
}

std::vector<std::unique_ptr<RecordStream>> Recording::_streams() const {
  std::vector<std::unique_ptr<RecordStream>> streams;
  streams.push_back(std::make_unique<RecordStream>(*input_, header_.dataBegin, header_.dataEnd,
                                                   header_.order, header_.form));
  for (const auto& file : dataFiles_) {
    streams.push_back(std::make_unique<RecordStream>(*file, 0, file->size(), header_.order));
  }
  return streams;
}

// One walk over all records of a recording.
class Recording::Walk {
 public:
  Walk(const Recording& recording, RecordVisitor* visitor, WalkCounts& counts)
      : recording_(recording), header_(recording.header_), visitor_(visitor), counts_(counts) {
    counts_ = WalkCounts();
    counts_.samplesOfEvent.resize(recording.layouts_.size());
  }

  // False if a record came too late.
  bool run(TimeOrder::Trust trust, const std::string& scratchDirectory);
  void count();

 private:
  struct KnownId {
    std::uint64_t id = NO_TIME;
    std::uint32_t event = 0;
  };

  void _runStateFirst();
  bool _takeRecord(const Record& record, TimeOrder& order);
  void _countRecord(const Record& record);
  bool _findSampleEvent(const Record& record, std::uint32_t& event);
  bool _eventOfId(std::uint64_t id, std::uint32_t& event);
  std::uint32_t _eventOfOther(const Record& record);
  std::uint64_t _timeOfOther(std::uint32_t event, const Record& record) const;
  void _deliver(std::uint32_t event, const Record& record);
  void _deliverSample(std::uint32_t event, const Record& record);
  void _deliverOther(std::uint32_t event, const Record& record);
  template <typename Decoded, typename Handler>
  void _handOver(const std::optional<Decoded>& decoded, Handler handler) {
    if (decoded) {
      (visitor_->*handler)(*decoded);
    } else {
      ++counts_.brokenRecords;
    }
  }
  void _noteThrottle(const Record& record, Bytes body);

  const Recording& recording_;
  const FileHeader& header_;
  RecordVisitor* visitor_;
  WalkCounts& counts_;
  std::uint64_t lastTime_ = 0;  // of the last record that had one, in the order of the file
  bool isStateKnown_ = false;   // untimed records have been handed over before
  std::array<KnownId, 64> knownIds_;
  std::map<std::uint64_t, std::uint64_t> throttledSince_;  // by stream
};

bool Recording::walk(RecordVisitor& visitor, TimeOrder::Trust trust,
                     const std::string& scratchDirectory, WalkCounts& counts) {
  // The files of a folder have no marks that hold for all of them.
  if (!dataFiles_.empty()) {
    trust = TimeOrder::Trust::NOTHING;
  }
  return Walk(*this, &visitor, counts).run(trust, scratchDirectory);
}

void Recording::count(WalkCounts& counts) { Walk(*this, nullptr, counts).count(); }

bool Recording::Walk::run(TimeOrder::Trust trust, const std::string& scratchDirectory) {
  if (!recording_.beginsWithState_) {
    _runStateFirst();
  }
  TimeOrder order(trust, scratchDirectory, [this](const TimedRecord& timed) {
    const unsigned char* const at = timed.bytes;
    const Record record{numberAt<std::uint32_t>(at, header_.order),
                        numberAt<std::uint16_t>(at + 4, header_.order), timed.span()};
    _deliver(timed.event, record);
  });
  const std::uint64_t allBytes = recording_.size();
  std::uint64_t bytesBefore = 0;
  std::uint64_t records = 0;
  for (const auto& stream : recording_._streams()) {
    for (Record record; stream->next(record);) {
      if (!_takeRecord(record, order)) {
        return false;
      }
      if (++records % PROGRESS_EVERY == 0) {
        visitor_->onProgress(bytesBefore + stream->offset(), allBytes);
      }
    }
    bytesBefore += stream->offset();
    if (stream->damage()) {
      counts_.damages.push_back(stream->damage());
    }
  }
  order.finish();
  return true;
}

void Recording::Walk::count() {
  for (const auto& stream : recording_._streams()) {
    for (Record record; stream->next(record);) {
      _countRecord(record);
      std::uint32_t event = 0;
      if (record.type == abi::RECORD_SAMPLE && _findSampleEvent(record, event)) {
        ++counts_.samplesOfEvent[event];
        const std::uint64_t time = recording_.layouts_[event].timeOfSample(record);
        if (time != 0 && time != NO_TIME) {
          counts_.firstTime = counts_.firstTime == 0 ? time : std::min(counts_.firstTime, time);
          counts_.lastTime = std::max(counts_.lastTime, time);
        }
      }
    }
    if (stream->damage()) {
      counts_.damages.push_back(stream->damage());
    }
  }
}

// What has no time was so from the beginning, even if it stands at the end of the file.
void Recording::Walk::_runStateFirst() {
  for (const auto& stream : recording_._streams()) {
    for (Record record; stream->next(record);) {
      if (!isOfKernel(record) || record.type == abi::RECORD_SAMPLE) {
        continue;
      }
      const std::uint32_t event = _eventOfOther(record);
      const SampleLayout& layout = recording_.layouts_[event];
      if (layout.attribute().has(abi::FLAG_SAMPLE_ID_ALL) && layout.timeOfOther(record) == 0) {
        _deliverOther(event, record);
      }
    }
  }
  counts_.brokenRecords = 0;  // they are counted when they come again
  isStateKnown_ = true;
}

void Recording::Walk::_countRecord(const Record& record) {
  const std::size_t last = counts_.recordsOfType.size() - 1;
  ++counts_.recordsOfType[std::min<std::size_t>(record.type, last)];
}

bool Recording::Walk::_takeRecord(const Record& record, TimeOrder& order) {
  _countRecord(record);
  if (!isOfKernel(record)) {
    if (record.type == abi::RECORD_FINISHED_ROUND) {
      order.finishRound();
    }
    return true;
  }
  std::uint32_t event = 0;
  std::uint64_t time = 0;
  if (record.type == abi::RECORD_SAMPLE) {
    if (!_findSampleEvent(record, event)) {
      return true;
    }
    ++counts_.samplesOfEvent[event];
    if (!visitor_->wantsSamplesOf(event)) {
      return true;
    }
    time = recording_.layouts_[event].timeOfSample(record);
  } else {
    event = _eventOfOther(record);
    time = _timeOfOther(event, record);
  }
  if (time != 0 && time != NO_TIME) {
    lastTime_ = time;
    return order.add(time, event, record.bytes);
  }
  if (record.type == abi::RECORD_SAMPLE || !isStateKnown_ ||
      !recording_.layouts_[event].attribute().has(abi::FLAG_SAMPLE_ID_ALL)) {
    _deliver(event, record);
  }
  return true;
}

// Before 2.6.38 side records had no time: each happened behind the record in front of it.
std::uint64_t Recording::Walk::_timeOfOther(std::uint32_t event, const Record& record) const {
  const SampleLayout& layout = recording_.layouts_[event];
  return layout.attribute().has(abi::FLAG_SAMPLE_ID_ALL) ? layout.timeOfOther(record) : lastTime_;
}

// False, and counted, if the sample is of no event.
bool Recording::Walk::_findSampleEvent(const Record& record, std::uint32_t& event) {
  event = 0;
  if (recording_.layouts_.size() == 1) {
    return true;
  }
  const std::optional<std::uint64_t> id = recording_.layouts_[0].idOfSample(record);
  if (!id || *id == 0 || _eventOfId(*id, event)) {
    return true;
  }
  ++counts_.samplesOfNoEvent;
  return false;
}

bool Recording::Walk::_eventOfId(std::uint64_t id, std::uint32_t& event) {
  KnownId& known = knownIds_[id % knownIds_.size()];
  if (known.id != id) {
    const auto found = header_.eventOfId.find(id);
    if (found == header_.eventOfId.end()) {
      return false;
    }
    known = {id, found->second};
  }
  event = known.event;
  return true;
}

// Trailers may differ from event to event only where the id is their last word.
std::uint32_t Recording::Walk::_eventOfOther(const Record& record) {
  std::uint32_t event = 0;
  if (recording_.layouts_.size() > 1 && record.body().size() >= 8 &&
      recording_.layouts_[0].attribute().has(abi::FLAG_SAMPLE_ID_ALL) &&
      (recording_.layouts_[0].attribute().sampleType & abi::SAMPLE_IDENTIFIER) != 0) {
    const unsigned char* const last = record.bytes.data() + record.bytes.size() - 8;
    _eventOfId(numberAt<std::uint64_t>(last, header_.order), event);
  }
  return event;
}

void Recording::Walk::_deliver(std::uint32_t event, const Record& record) {
  if (record.type == abi::RECORD_SAMPLE) {
    _deliverSample(event, record);
  } else {
    _deliverOther(event, record);
  }
}

void Recording::Walk::_deliverSample(std::uint32_t event, const Record& record) {
  Sample sample;
  if (!recording_.layouts_[event].decode(record, sample)) {
    ++counts_.brokenRecords;
    return;
  }
  if (sample.time != 0) {
    counts_.firstTime =
        counts_.firstTime == 0 ? sample.time : std::min(counts_.firstTime, sample.time);
    counts_.lastTime = std::max(counts_.lastTime, sample.time);
  }
  visitor_->onSample(event, sample);
}

void Recording::Walk::_deliverOther(std::uint32_t event, const Record& record) {
  const ByteOrder order = header_.order;
  const Bytes body = recording_.layouts_[event].bodyOf(record);
  switch (record.type) {
    case abi::RECORD_MMAP:
    case abi::RECORD_MMAP2:
      _handOver(MapRecord::decode(record, body, order), &RecordVisitor::onMap);
      break;
    case abi::RECORD_COMM:
      _handOver(CommRecord::decode(record, body, order), &RecordVisitor::onComm);
      break;
    case abi::RECORD_FORK:
      _handOver(TaskRecord::decode(record, body, order), &RecordVisitor::onFork);
      break;
    case abi::RECORD_EXIT:
      _handOver(TaskRecord::decode(record, body, order), &RecordVisitor::onExit);
      break;
    case abi::RECORD_KSYMBOL:
      _handOver(KsymbolRecord::decode(body, order), &RecordVisitor::onKsymbol);
      break;
    case abi::RECORD_LOST:
      counts_.lostRecords += decodeLost(record, body, order).value_or(0);
      break;
    case abi::RECORD_LOST_SAMPLES:
      counts_.lostSamples += decodeLost(record, body, order).value_or(0);
      break;
    case abi::RECORD_THROTTLE:
    case abi::RECORD_UNTHROTTLE:
      _noteThrottle(record, body);
      break;
    default:
      break;
  }
}

void Recording::Walk::_noteThrottle(const Record& record, Bytes body) {
  FieldReader fields(body, header_.order);
  const std::uint64_t time = fields.take<std::uint64_t>();
  fields.skip(8);  // id
  const std::uint64_t stream = fields.take<std::uint64_t>();
  if (!fields.ok()) {
    ++counts_.brokenRecords;
    return;
  }
  if (record.type == abi::RECORD_THROTTLE) {
    ++counts_.throttles;
    if (throttledSince_.size() < MOST_STREAMS) {
      throttledSince_.emplace(stream, time);
    }
  } else if (const auto since = throttledSince_.find(stream); since != throttledSince_.end()) {
    counts_.throttledNanoseconds += time > since->second ? time - since->second : 0;
    throttledSince_.erase(since);
  }
}

}  // namespace recordings
