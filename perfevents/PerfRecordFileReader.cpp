#include "perfevents/PerfRecordFileReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <istream>
#include <optional>
#include <utility>

#include "kestrel/log/Logger.h"
#include "perfevents/PerfEventDataListener.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfEventDataUnknown.h"
#include "perfevents/PerfRecordEventDataStore.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfRecordFileReader");
  return *logger;
}

PerfRecordFileReader::PerfFileSection _takeSection(RecordCursor& in) {
  PerfRecordFileReader::PerfFileSection section;
  section.offset = in.take<uint64_t>();
  section.size = in.take<uint64_t>();
  return section;
}

}  // namespace

void handleError(const char* message) {
  _log().error(message);
  throw std::ios_base::failure(message);
}

bool PerfRecordFileReader::openPerfRecordFile(std::ifstream& stream, std::string& path) {
  stream.clear();
  std::error_code unknown;  // what cannot be looked at cannot be opened either
  if (!std::filesystem::is_directory(path, unknown)) {
    stream.open(path, std::ios::in | std::ios::binary);
  }
  const bool isOpened = stream.is_open() && !stream.fail();
  if (!isOpened) {
    stream.setstate(std::ios::failbit);
  }
  return isOpened;
}

PerfRecordFileReader::PerfRecordFileReader(std::ifstream& stream, bool createStore)
    : PerfOutputReader(stream), stream_(stream), createStore_(createStore), records_(stream) {
  _log();
  if (!stream.is_open()) {
    handleError("Input file stream has not been opened.");
  }
  errno = 0;
  stream_.seekg(0, std::ios::end);
  fileSize_ = stream_.tellg();
  if (fileSize_ == std::streampos(-1)) {
    stream_.setstate(std::ios_base::failbit);  // which a place that cannot be told leaves alone
  }
  _reportIfUnreadable(errno);
  if (!stream_ || fileSize_ < static_cast<std::streamoff>(abi::MINIMUM_FILE_SIZE)) {
    handleError("Perf file is of insufficient size.");
  }
  readHeader();
  readAttributes();
  readTraceEventTypes();
  if (createStore_) {
    store_ = std::make_unique<PerfRecordEventDataStore>(attributes_);
  }
  cueFirstEvent();
}

bool PerfRecordFileReader::_seek(uint64_t offset) {
  errno = 0;
  stream_.seekg(static_cast<std::streamoff>(offset));
  _reportIfUnreadable(errno);
  return !stream_.fail();
}

bool PerfRecordFileReader::_read(unsigned char* bytes, std::size_t size) {
  errno = 0;
  stream_.read(reinterpret_cast<char*>(bytes), static_cast<std::streamsize>(size));
  _reportIfUnreadable(errno);
  return !stream_.fail();
}

// Called after each use of the stream. What the file itself is to blame for, an offset that is none
// or a file that has no places, is left to the caller's message.
void PerfRecordFileReader::_reportIfUnreadable(int error) {
  const bool isOfTheFile = error == 0 || error == EINVAL || error == EOVERFLOW || error == ESPIPE;
  if (stream_.fail() && !isOfTheFile) {
    _log().errorf("Error reading perf file: %s", std::strerror(error));
    stream_.setstate(std::ios_base::badbit);
  }
}

void PerfRecordFileReader::readHeader() {
  std::array<unsigned char, abi::FILE_HEADER_SIZE> bytes{};
  if (!_seek(0) || !_read(bytes.data(), bytes.size())) {
    handleError("Error reading perf file header.");
  }
  RecordCursor in(bytes.data(), bytes.size());
  std::copy_n(bytes.begin(), header_.magic.size(), header_.magic.begin());
  in.skip(header_.magic.size());
  header_.size = in.take<uint64_t>();
  header_.attrSize = in.take<uint64_t>();
  header_.attrs = _takeSection(in);
  header_.data = _takeSection(in);
  header_.eventTypes = _takeSection(in);
  for (uint64_t& word : header_.features) {
    word = in.take<uint64_t>();
  }

  if (header_.size != abi::FILE_HEADER_SIZE) {
    handleError("Invalid header size recorded in perf file header.  Perf file corrupt.");
  }
  if (header_.attrSize < abi::SMALLEST_FILE_ATTR_SIZE ||
      header_.attrSize > abi::LARGEST_FILE_ATTR_SIZE) {
    handleError("Invalid attribute size recorded in perf file header.  Perf file corrupt.");
  }
  _setAttributeVersion();
  _checkSection(header_.attrs, "Invalid attribute offset location.  Perf file corrupt.");
  const char* const eventTypesText =
      "Invalid trace event types offset location.  Perf file corrupt.";
  _checkSection(header_.eventTypes, eventTypesText);
  _checkSection(header_.data, eventTypesText);  // kept: the data section shares the text
}

void PerfRecordFileReader::_setAttributeVersion() {
  const uint64_t structureSize = header_.attrSize - abi::FILE_SECTION_SIZE;
  switch (structureSize) {
    case abi::ATTR_SIZE_VER0:
      attributeVersion_ = 0;
      _log().infof("Older version 0 of perf file attributes used in perf file.");
      break;
    case abi::ATTR_SIZE_VER1:
      attributeVersion_ = 1;
      _log().infof("Older version 1 of perf file attributes used in perf file.");
      break;
    case abi::ATTR_SIZE_VER2:
      attributeVersion_ = 2;
      _log().infof("Older version 2 of perf file attributes used in perf file.");
      break;
    case abi::ATTR_SIZE_VER3:
      attributeVersion_ = 3;
      _log().infof("Current version 3 of perf file attributes used in perf file.");
      break;
    default:
      if (structureSize > abi::ATTR_SIZE_VER3) {
        attributeVersion_ = 4;
        _log().warnf(
            "Perf file attribute may indicate new generation kernel or perf record version was used.");
      }
      break;
  }
}

// Offset and size are looked at separately; a section that runs past the end is met by the reads.
void PerfRecordFileReader::_checkSection(const PerfFileSection& section,
                                         const char* message) const {
  const auto fileSize = static_cast<uint64_t>(static_cast<std::streamoff>(fileSize_));
  if (section.offset > fileSize || section.size > fileSize) {
    handleError(message);
  }
}

void PerfRecordFileReader::readAttributes() {
  const char* const entryText = "Error reading perf file attributes.  Perf file corrupt.";
  if (!_seek(header_.attrs.offset)) {
    handleError(entryText);
  }
  kestrel::ByteBuffer structure;
  structure.size(static_cast<unsigned int>(header_.attrSize - abi::FILE_SECTION_SIZE));
  std::array<unsigned char, abi::FILE_SECTION_SIZE> sectionBytes{};
  std::vector<PerfFileSection> idSections;
  attributes_.clear();
  const uint64_t entries = header_.attrs.size / header_.attrSize;
  for (uint64_t i = 0; i < entries; ++i) {
    if (!_read(structure.data(), structure.size()) ||
        !_read(sectionBytes.data(), sectionBytes.size())) {
      handleError(entryText);
    }
    attributes_.push_back(new PerfEventAttribute(structure, {}));
    RecordCursor in(sectionBytes.data(), sectionBytes.size());
    idSections.push_back(_takeSection(in));
  }

  // No honest file holds more ids than it has room for; without this bound, sections that overlap
  // would cost the square of the file's size.
  uint64_t idsLeft =
      static_cast<uint64_t>(static_cast<std::streamoff>(fileSize_)) / sizeof(uint64_t);
  for (std::size_t i = 0; i < idSections.size(); ++i) {
    std::vector<uint64_t> ids = _readIds(idSections[i], idsLeft);
    idsLeft -= ids.size();
    attributes_[i].ids(std::move(ids));
  }
}

std::vector<uint64_t> PerfRecordFileReader::_readIds(const PerfFileSection& section,
                                                     uint64_t mostIds) {
  const char* const idText = "Error reading perf file attribute IDs.  Perf file corrupt.";
  const uint64_t count = section.size / sizeof(uint64_t);
  if (!_seek(section.offset) || count > mostIds) {
    handleError(idText);
  }
  std::vector<uint64_t> ids;  // grows as it is read: the count is a claim
  for (uint64_t i = 0; i < count; ++i) {
    std::array<unsigned char, sizeof(uint64_t)> bytes{};
    if (!_read(bytes.data(), bytes.size())) {
      handleError(idText);
    }
    ids.push_back(RecordCursor(bytes.data(), bytes.size()).take<uint64_t>());
  }
  return ids;
}

void PerfRecordFileReader::readTraceEventTypes() {
  if (!_seek(header_.eventTypes.offset)) {
    handleError("Error reading perf file trace event types.  Perf file corrupt.");
  }
  const uint64_t count = header_.eventTypes.size / abi::TRACE_EVENT_TYPE_SIZE;
  if (count > attributes_.size()) {
    handleError("Number of trace event types is invalid.  Perf file corrupt.");
  }
  traceEventTypes_.clear();
  for (uint64_t i = 0; i < count; ++i) {
    std::array<unsigned char, abi::TRACE_EVENT_TYPE_SIZE> bytes{};
    if (!_read(bytes.data(), bytes.size())) {
      handleError("Error reading trace event types.  Perf file corrupt.");
    }
    bytes.back() = 0;  // the last byte of the name
    RecordCursor in(bytes.data(), bytes.size());
    const auto id = in.take<uint64_t>();
    traceEventTypes_[id] = in.takeString();
  }
}

const std::string& PerfRecordFileReader::getTraceEventName(uint64_t id) const {
  const auto found = traceEventTypes_.find(id);
  return found == traceEventTypes_.end() ? noName_ : found->second;
}

void PerfRecordFileReader::cueFirstEvent() {
  if (!_seek(header_.data.offset)) {
    handleError("Error cueing read of perf event data.  Perf file corrupt.");
  }
}

void PerfRecordFileReader::parseEvents(PerfEventDataListener& listener) {
  PerfEventDataUnknown* undecoded = nullptr;
  std::unique_ptr<PerfEventDataUnknown> owned;
  if (!createStore_) {
    owned = std::make_unique<PerfEventDataUnknown>(attributes_.at(0));
    undecoded = owned.get();
  }
  const auto size = static_cast<int64_t>(header_.data.size);
  int64_t offset = 0;
  records_.takeStream();
  while (offset < size && _readRecord()) {
    _deliver(undecoded, listener);
    offset += records_.size();
  }
  records_.returnStream();
  listener.onClose();
}

bool PerfRecordFileReader::_readRecord() {
  const RecordStream::Outcome outcome = records_.next();
  if (outcome != RecordStream::Outcome::Record) {
    _reportIfUnreadable(records_.readError());
  }
  switch (outcome) {
    case RecordStream::Outcome::Garbled:
      _log().errorf("Garbled event data header size.  Perf file corrupt.");
      return false;
    case RecordStream::Outcome::CutOff:
      _log().errorf("Error reading event data from perf file.  Perf file corrupt.");
      return false;
    case RecordStream::Outcome::Record:
      break;
  }
  return true;
}

void PerfRecordFileReader::_deliver(PerfEventData* undecoded, PerfEventDataListener& listener) {
  const auto type = static_cast<PerfEventData::Type>(records_.type());
  const uint16_t misc = records_.misc();
  if (undecoded != nullptr) {
    const kestrel::ByteBufferViewport whole(records_.record(), abi::LARGEST_EVENT_SIZE,
                                            records_.size());
    if (undecoded->parse(whole, misc)) {
      listener.onEventData(*undecoded);
    }
    return;
  }
  constexpr unsigned int HEADER = abi::EVENT_HEADER_SIZE;
  const kestrel::ByteBufferViewport body(
      records_.record() + HEADER, abi::LARGEST_EVENT_SIZE - HEADER, records_.size() - HEADER);
  if (type == PerfEventData::Type::Sample && !filter_.admits(body, timeOffset_)) {
    return;
  }
  if (const PerfEventData* const event = store_->getEventData(type, body, misc)) {
    listener.onEventData(*event);
  }
}

void PerfRecordFileReader::filterSamples(SampleFilter filter) {
  const std::optional<std::size_t> offset = PerfEventDataSample::timeOffset(attributes_.at(0));
  timeOffset_ = offset.value_or(0);
  filter_ = offset || !filter.looksAtTimes() ? std::move(filter) : SampleFilter::all();
}

}  // namespace perfevents
