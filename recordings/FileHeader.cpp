#include "recordings/FileHeader.h"

#include <algorithm>
#include <cstring>

#include "recordings/Abi.h"
#include "recordings/RecordingError.h"

namespace recordings {

namespace {

// More than any recording has of either.
constexpr std::uint64_t LARGEST_TABLE = 1u << 28;
constexpr std::size_t MOST_EVENTS = 65536;

bool isMagic(Bytes header, const char* magic) {
  return std::memcmp(header.data(), magic, abi::MAGIC_SIZE) == 0;
}

// The oldest files have the same magic in both orders: the sizes tell.
bool isOldFileForeign(Bytes header, const std::string& name) {
  for (const ByteOrder order : {ByteOrder::NATIVE, ByteOrder::FOREIGN}) {
    FieldReader fields(header, order);
    fields.skip(abi::MAGIC_SIZE);
    const std::uint64_t size = fields.take<std::uint64_t>();
    const std::uint64_t entry = fields.take<std::uint64_t>();
    const auto& known = abi::OLD_ATTR_ENTRY_SIZES;
    if (size == abi::PIPE_HEADER_SIZE ||
        std::find(known.begin(), known.end(), entry) != known.end()) {
      return order == ByteOrder::FOREIGN;
    }
  }
  throw RecordingError(name + ": the header of this old recording is damaged.");
}

ByteOrder orderOf(Bytes header, const std::string& name) {
  if (isMagic(header, abi::MAGIC_2)) {
    return ByteOrder::NATIVE;
  }
  if (isMagic(header, abi::MAGIC_2_FOREIGN)) {
    return ByteOrder::FOREIGN;
  }
  if (isMagic(header, abi::MAGIC_1) || isMagic(header, abi::MAGIC_1_FOREIGN)) {
    return isOldFileForeign(header, name) ? ByteOrder::FOREIGN : ByteOrder::NATIVE;
  }
  throw RecordingError(name +
                       ": is no recording of perf record (it does not begin with PERFILE2).");
}

bool hasFeature(const std::uint64_t* words, unsigned feature) {
  return (words[feature / 64] >> feature % 64 & 1) != 0;
}

}  // namespace

FileHeader FileHeader::read(const Input& input) {
  const std::vector<unsigned char> bytes = input.bytesAt(0, abi::HEADER_SIZE);
  if (bytes.size() < abi::PIPE_HEADER_SIZE) {
    throw RecordingError(input.name() + ": is no recording: it has " +
                         std::to_string(bytes.size()) +
                         " bytes. Did perf record end before it could write?");
  }
  FileHeader header;
  header.order = orderOf(bytes, input.name());
  FieldReader fields(bytes, header.order);
  fields.skip(abi::MAGIC_SIZE);
  const std::uint64_t size = fields.take<std::uint64_t>();
  if (size == abi::PIPE_HEADER_SIZE) {
    header.form = RecordStream::Form::PIPE;
    header.dataBegin = abi::PIPE_HEADER_SIZE;
    header.dataEnd = input.size();
    return header;
  }
  const std::uint64_t entrySize = fields.take<std::uint64_t>();
  const std::uint64_t attributesOffset = fields.take<std::uint64_t>();
  const std::uint64_t attributesSize = fields.take<std::uint64_t>();
  header.dataBegin = fields.take<std::uint64_t>();
  const std::uint64_t dataSize = fields.take<std::uint64_t>();
  if (!fields.ok()) {
    throw RecordingError(input.name() + ": the file ends inside its header.");
  }
  header._readAttributes(input, entrySize, attributesOffset, attributesSize);
  header.isUnfinished = dataSize == 0;
  header.dataEnd = header.isUnfinished || dataSize > ~header.dataBegin
                       ? std::max(input.size(), header.dataBegin)
                       : header.dataBegin + dataSize;
  if (!header.isUnfinished && size >= abi::HEADER_SIZE && bytes.size() == abi::HEADER_SIZE) {
    header._readFeatures(input, bytes);
  }
  return header;
}

void FileHeader::_readAttributes(const Input& input, std::uint64_t entrySize, std::uint64_t offset,
                                 std::uint64_t size) {
  if (entrySize < abi::ATTR_FIRST_SIZE + abi::SECTION_SIZE ||
      entrySize > abi::ATTR_LARGEST_SIZE + abi::SECTION_SIZE) {
    throw RecordingError(input.name() + ": its attributes have an impossible size of " +
                         std::to_string(entrySize) + " bytes: the header is damaged.");
  }
  const std::vector<unsigned char> table = input.bytesAt(offset, std::min(size, LARGEST_TABLE));
  FieldReader fields(table, order);
  std::uint64_t idBytesLeft =
      input.size();  // tables may lie over each other, but not to gain by it
  while (fields.left() >= entrySize && events.size() < MOST_EVENTS) {
    const Bytes attribute = fields.takeBytes(entrySize - abi::SECTION_SIZE);
    const std::uint64_t idsOffset = fields.take<std::uint64_t>();
    const std::uint64_t idsSize = std::min(fields.take<std::uint64_t>(), idBytesLeft);
    idBytesLeft -= idsSize;
    _addEvent(attribute, input.bytesAt(idsOffset, idsSize));
  }
}

void FileHeader::_addEvent(Bytes attribute, Bytes ids) {
  Event event;
  event.attribute = Attribute::decode(attribute, order);
  for (FieldReader words(ids, order); words.left() >= 8;) {
    event.ids.push_back(words.take<std::uint64_t>());
    eventOfId.emplace(event.ids.back(), static_cast<std::uint32_t>(events.size()));
  }
  events.push_back(std::move(event));
}

// One section each behind the data, in the order of the bits, whatever they announce.
void FileHeader::_readFeatures(const Input& input, Bytes header) {
  std::uint64_t words[abi::FEATURE_WORDS];
  FieldReader bits(header.subspan(abi::FEATURES_OFFSET), order);
  for (std::uint64_t& word : words) {
    word = bits.take<std::uint64_t>();
  }
  if (order == ByteOrder::FOREIGN && !hasFeature(words, abi::FEATURE_HOSTNAME)) {
    for (std::uint64_t& word : words) {
      word = word << 32 | word >> 32;  // 32-bit machines wrote the bits in words of 32
    }
  }
  std::uint64_t at = dataEnd;
  std::uint64_t bytesLeft = input.size();
  for (unsigned feature = 0; feature < abi::FEATURE_BITS; ++feature) {
    if (!hasFeature(words, feature)) {
      continue;
    }
    const std::vector<unsigned char> entry = input.bytesAt(at, abi::SECTION_SIZE);
    at += abi::SECTION_SIZE;
    FieldReader section(entry, order);
    const std::uint64_t offset = section.take<std::uint64_t>();
    const std::uint64_t size = section.take<std::uint64_t>();
    if (section.ok() && size <= std::min(bytesLeft, LARGEST_TABLE)) {
      bytesLeft -= size;
      facts.addFeature(feature, input.bytesAt(offset, size), order, events);
    }
  }
}

bool FileHeader::addRecord(const Record& record) {
  switch (record.type) {
    case abi::RECORD_HEADER_ATTR:
      _addAttribute(record.body());
      return true;
    case abi::RECORD_HEADER_FEATURE: {
      FieldReader fields(record.body(), order);
      const std::uint64_t feature = fields.take<std::uint64_t>();
      // The mark behind the last feature has no payload, and a number that is none's.
      if (fields.left() > 0 && feature < abi::FEATURE_BITS) {
        facts.addFeature(static_cast<unsigned>(feature), fields.rest(), order, events);
      }
      return true;
    }
    case abi::RECORD_EVENT_UPDATE:
      _updateEvent(record.body());
      return true;
    case abi::RECORD_BUILD_ID:
      facts.addBuildId(record.bytes, order);
      return true;
    default:
      return false;
  }
}

void FileHeader::_addAttribute(Bytes body) {
  if (form != RecordStream::Form::PIPE || body.size() < abi::ATTR_FIRST_SIZE ||
      events.size() == MOST_EVENTS) {
    return;
  }
  std::size_t size = numberAt<std::uint32_t>(body.data() + 4, order);
  size = size == 0 ? std::size_t{abi::ATTR_FIRST_SIZE} : std::min(size, body.size());
  _addEvent(body.first(size), body.subspan(size));
}

void FileHeader::_updateEvent(Bytes body) {
  static constexpr std::uint64_t UPDATE_NAME = 2;
  FieldReader fields(body, order);
  const std::uint64_t what = fields.take<std::uint64_t>();
  const std::uint64_t id = fields.take<std::uint64_t>();
  const auto found = eventOfId.find(id);
  if (fields.ok() && what == UPDATE_NAME && found != eventOfId.end()) {
    events[found->second].name = fields.takeRestAsText();
  }
}

void FileHeader::finishEvents(const std::string& inputName) {
  if (events.empty()) {
    throw RecordingError(inputName + ": holds no event, so there are no samples in it.");
  }
  for (Event& event : events) {
    if (event.name.empty()) {
      event.name = nameOf(event.attribute);
    }
  }
}

}  // namespace recordings
