#include "tests/support/recordings/RecordingFile.h"

#include <stdexcept>

#include "tests/support/recordings/CompressedStream.h"
#include "tests/support/recordings/Features.h"
#include "tests/support/recordings/RecordEncoder.h"

namespace made {

namespace {

constexpr std::size_t HEADER_BYTES = 104;
constexpr std::size_t SHORT_HEADER_BYTES = 72;
constexpr std::size_t PIPE_HEADER_BYTES = 16;
constexpr std::size_t SECTION_BYTES = 16;
constexpr std::size_t EVENT_NAME_BYTES = 64;

constexpr uint32_t TYPE_HEADER_ATTR = 64;
constexpr uint32_t TYPE_TRACING_DATA = 66;
constexpr uint32_t TYPE_BUILD_ID = 67;
constexpr uint32_t TYPE_EVENT_UPDATE = 78;
constexpr uint32_t TYPE_HEADER_FEATURE = 80;
constexpr uint64_t UPDATE_NAME = 2;
constexpr uint64_t FEATURES_OF_PERF_6_1 = 32;  // the mark behind the last feature of a pipe

constexpr uint64_t PERFILE2_NUMBER = 0x32454c4946524550;

bool hasIds(const Encoding& encoding) { return encoding.identification != Identification::NONE; }

Fields magicOf(const Encoding& encoding) {
  Fields fields;
  return encoding.magic == Magic::PERFFILE ? fields.bytes("PERFFILE") : fields.u64(PERFILE2_NUMBER);
}

// Records one after another, those from the buffers compressed where the encoding says so.
class RecordSequence {
 public:
  RecordSequence(const RecordEncoder& encoder, const Encoding& encoding)
      : encoder_(encoder), encoding_(encoding), stream_(encoding) {}

  void add(const Record& record) {
    if (encoding_.compression == Compression::NONE) {
      bytes_ += encoder_.bytes(record);
    } else if (isMadeByPerf(record)) {
      _push();
      bytes_ += encoder_.bytes(record);
    } else {
      waiting_ += encoder_.bytes(record);
    }
  }

  std::string finished() {
    _push();
    return std::move(bytes_);
  }

 private:
  void _push() {
    for (std::size_t begin = 0; begin < waiting_.size(); begin += encoding_.pushBytes) {
      bytes_ += stream_.push(waiting_.substr(begin, encoding_.pushBytes));
    }
    waiting_.clear();
  }

  const RecordEncoder& encoder_;
  const Encoding& encoding_;
  CompressedStream stream_;
  std::string bytes_;
  std::string waiting_;
};

// The parts of a file, put together in the order that the encoding asks for.
class FileWriter {
 public:
  FileWriter(const Recording& recording, const Encoding& encoding)
      : recording_(recording), encoding_(encoding), encoder_(recording, encoding) {}

  std::string file(const std::string& records, std::map<unsigned, Fields> features) const {
    const bool isShort = encoding_.form == Form::SHORT_HEADER;
    if (isShort || encoding_.isUnfinished) {
      features.clear();
    }
    const std::size_t idsBegin = isShort ? SHORT_HEADER_BYTES : HEADER_BYTES;
    const std::string ids = _ids();
    const std::string eventTypes = _eventTypes();
    const std::size_t attributesSize = _attributes(0).size();
    std::size_t attributesBegin = idsBegin + ids.size();
    const std::size_t typesBegin =
        attributesBegin + (encoding_.attributesLast ? 0 : attributesSize);
    const std::size_t dataBegin = typesBegin + eventTypes.size();
    const std::string featureSections = _featureSections(dataBegin + records.size(), features);
    if (encoding_.attributesLast) {
      attributesBegin = dataBegin + records.size() + featureSections.size();
    }
    const std::string attributes = _attributes(idsBegin);

    Fields header = magicOf(encoding_);
    header.u64(idsBegin).u64(_entryBytes());
    header.u64(attributesBegin).u64(attributesSize);
    header.u64(dataBegin).u64(encoding_.isUnfinished ? 0 : records.size());
    header.u64(eventTypes.empty() ? 0 : typesBegin).u64(eventTypes.size());
    if (!isShort) {
      header.u64(_featureBits(features)).zeros(24);
    }
    return header.in(encoding_.order) + ids + (encoding_.attributesLast ? "" : attributes) +
           eventTypes + records + featureSections + (encoding_.attributesLast ? attributes : "");
  }

  std::string pipe(const std::string& records) const {
    std::string bytes = magicOf(encoding_).u64(PIPE_HEADER_BYTES).in(encoding_.order);
    for (std::size_t i = 0; i < recording_.events.size(); ++i) {
      Fields body;
      body.bytes(encoder_.attribute(recording_.events[i]));
      bytes += encoder_.plainBytes(TYPE_HEADER_ATTR, 0, body.u64s(_idsOf(i)));
    }
    for (const auto& [feature, section] : features()) {
      if (feature != Feature::BUILD_ID) {
        bytes += encoder_.plainBytes(TYPE_HEADER_FEATURE, 0, Fields().u64(feature).append(section));
      }
    }
    bytes += encoder_.plainBytes(TYPE_HEADER_FEATURE, 0, Fields().u64(FEATURES_OF_PERF_6_1));
    if (encoding_.hasTracingData) {
      const std::string formats = "made for a test!";
      Fields body;
      body.u32(static_cast<uint32_t>(formats.size())).u32(0);
      bytes += encoder_.plainBytes(TYPE_TRACING_DATA, 0, body) + formats;
    }
    for (std::size_t i = 0; i < recording_.events.size() && hasIds(encoding_); ++i) {
      Fields body;
      body.u64(UPDATE_NAME).u64(recording_.idsOf(i).front()).text(recording_.events[i].name);
      bytes += encoder_.plainBytes(TYPE_EVENT_UPDATE, 0, body);
    }
    for (const FileBuildId& entry : recording_.buildIds) {
      bytes += encoder_.plainBytes(TYPE_BUILD_ID, buildIdMisc(entry), buildIdBody(entry));
    }
    return bytes + records;
  }

  std::map<unsigned, Fields> features() const {
    return featuresOf(recording_, encoding_, encoder_);
  }
  const RecordEncoder& encoder() const { return encoder_; }

 private:
  std::vector<uint64_t> _idsOf(std::size_t event) const {
    return hasIds(encoding_) ? recording_.idsOf(event) : std::vector<uint64_t>{};
  }

  std::size_t _entryBytes() const {
    return encoding_.attributeSize + encoding_.attributePadding + SECTION_BYTES;
  }

  std::string _ids() const {
    Fields fields;
    for (std::size_t i = 0; i < recording_.events.size(); ++i) {
      fields.u64s(_idsOf(i));
    }
    return fields.in(encoding_.order);
  }

  std::string _attributes(std::size_t idsBegin) const {
    Fields fields;
    for (std::size_t i = 0; i < recording_.events.size(); ++i) {
      const std::size_t idsSize = _idsOf(i).size() * 8;
      fields.bytes(encoder_.attribute(recording_.events[i])).zeros(encoding_.attributePadding);
      fields.u64(idsBegin).u64(idsSize);
      idsBegin += idsSize;
    }
    return fields.in(encoding_.order);
  }

  std::string _eventTypes() const {
    Fields fields;
    for (const Event& event : recording_.events) {
      if (encoding_.hasEventTypes) {
        fields.u64(event.config).textOfSize(event.name, EVENT_NAME_BYTES);
      }
    }
    return fields.in(encoding_.order);
  }

  // The table of the sections, and the sections.
  std::string _featureSections(std::size_t begin,
                               const std::map<unsigned, Fields>& features) const {
    Fields table;
    Fields sections;
    begin += features.size() * SECTION_BYTES;
    for (const auto& [feature, section] : features) {
      table.u64(begin + sections.size()).u64(section.size());
      sections.append(section);
    }
    return table.append(sections).in(encoding_.order);
  }

  // An unfinished file has the bits all the same: perf sets them first.
  uint64_t _featureBits(const std::map<unsigned, Fields>& present) const {
    uint64_t bits = 0;
    for (const auto& [feature, section] : encoding_.isUnfinished ? features() : present) {
      bits |= uint64_t{1} << feature;
    }
    return bits;
  }

  const Recording& recording_;
  const Encoding& encoding_;
  RecordEncoder encoder_;
};

}  // namespace

std::string fileBytes(const Recording& recording, const Encoding& encoding) {
  const FileWriter writer(recording, encoding);
  RecordSequence records(writer.encoder(), encoding);
  for (const Record& record : recording.records) {
    records.add(record);
  }
  return encoding.form == Form::PIPE ? writer.pipe(records.finished())
                                     : writer.file(records.finished(), writer.features());
}

std::map<std::string, std::string> folderFiles(const Recording& recording,
                                               const Encoding& encoding) {
  if (encoding.form != Form::FILE) {
    throw std::invalid_argument("a folder has files with long headers");
  }
  Encoding withoutRounds = encoding;
  withoutRounds.hasRounds = false;
  const FileWriter writer(recording, withoutRounds);
  RecordSequence head(writer.encoder(), withoutRounds);
  std::map<uint32_t, RecordSequence> rings;
  for (const Record& record : recording.records) {
    if (isMadeByPerf(record)) {
      head.add(record);
    } else {
      rings.try_emplace(cpuOf(record), writer.encoder(), withoutRounds).first->second.add(record);
    }
  }
  std::map<unsigned, Fields> features = writer.features();
  features[Feature::DIR_FORMAT].u64(1);
  std::map<std::string, std::string> files{{"data", writer.file(head.finished(), features)}};
  for (auto& [cpu, ring] : rings) {
    files["data." + std::to_string(cpu)] = ring.finished();
  }
  return files;
}

}  // namespace made
