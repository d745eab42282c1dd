#include "tests/support/PerfFileBuilder.h"

#include <algorithm>
#include <cstring>

#include "tests/support/TempDir.h"

namespace {

// struct perf_file_header, perf_file_section, perf_trace_event_type, perf_event_header
constexpr std::size_t HEADER_BYTES = 104;
constexpr std::size_t MAGIC_BYTES = 8;
constexpr std::size_t SECTION_BYTES = 16;
constexpr std::size_t EVENT_NAME_BYTES = 64;
constexpr std::size_t EVENT_HEADER_BYTES = 8;
constexpr std::size_t NEWEST_STRUCTURE_BYTES = 96;

template <typename T>
void store(std::string& bytes, std::size_t offset, T value) {
  if (bytes.size() < offset + sizeof value) {
    bytes.resize(offset + sizeof value, '\0');
  }
  std::memcpy(&bytes[offset], &value, sizeof value);
}

std::string padded(std::string_view text, std::size_t size) {
  std::string bytes(text.substr(0, size));
  bytes.resize(size, '\0');
  return bytes;
}

}  // namespace

template <typename T>
Body& Body::_number(T value) {
  store(bytes_, bytes_.size(), value);
  return *this;
}

Body& Body::u8(uint8_t value) { return _number(value); }
Body& Body::u16(uint16_t value) { return _number(value); }
Body& Body::u32(uint32_t value) { return _number(value); }
Body& Body::u64(uint64_t value) { return _number(value); }

Body& Body::zeros(std::size_t count) {
  bytes_.append(count, '\0');
  return *this;
}

Body& Body::bytes(std::string_view bytes) {
  bytes_.append(bytes);
  return *this;
}

Body& Body::name(std::string_view text) { return bytes(padded(text, (text.size() / 8 + 1) * 8)); }

Attr::Attr() : bytes_(NEWEST_STRUCTURE_BYTES, '\0'), structureSize_(NEWEST_STRUCTURE_BYTES) {
  structureSize(NEWEST_STRUCTURE_BYTES);
}

Attr& Attr::structureSize(std::size_t bytes) {
  bytes_.resize(std::max(bytes_.size(), bytes), '\0');
  structureSize_ = bytes;
  return sizeField(static_cast<uint32_t>(bytes));
}

Attr& Attr::u32(std::size_t offset, uint32_t value) {
  store(bytes_, offset, value);
  return *this;
}

Attr& Attr::u64(std::size_t offset, uint64_t value) {
  store(bytes_, offset, value);
  return *this;
}

Attr& Attr::ids(std::vector<uint64_t> ids) {
  ids_ = std::move(ids);
  return *this;
}

Attr& Attr::idsSection(uint64_t offset, uint64_t size) {
  idsSection_ = {offset, size};
  return *this;
}

uint64_t Attr::_sampleType() const {
  uint64_t sampleType = 0;
  std::memcpy(&sampleType, &bytes_[24], sizeof sampleType);
  return sampleType;
}

std::string sampleBody(uint64_t sampleType, const SampleFields& fields) {
  Body body;
  const auto u64If = [&](uint64_t bit, uint64_t value) {
    if ((sampleType & bit) != 0) {
      body.u64(value);
    }
  };
  const auto pairIf = [&](uint64_t bit, uint32_t first, uint32_t second) {
    if ((sampleType & bit) != 0) {
      body.u32(first).u32(second);
    }
  };
  u64If(0x10000, fields.identifier);
  u64If(0x1, fields.ip);
  pairIf(0x2, fields.pid, fields.tid);
  u64If(0x4, fields.time);
  u64If(0x8, fields.addr);
  u64If(0x40, fields.id);
  u64If(0x200, fields.streamId);
  pairIf(0x80, fields.cpu, fields.res);
  u64If(0x100, fields.period);
  if ((sampleType & 0x10) != 0) {
    body.bytes(fields.readBlock);
  }
  u64If(0x20, fields.callchain.size());
  for (const uint64_t address : fields.callchain) {
    u64If(0x20, address);
  }
  if ((sampleType & 0x400) != 0) {
    body.u32(static_cast<uint32_t>(fields.raw.size())).bytes(fields.raw);
  }
  return body.str();
}

PerfFileBuilder& PerfFileBuilder::attribute(Attr attribute) {
  attributes_.push_back(std::move(attribute));
  return *this;
}

PerfFileBuilder& PerfFileBuilder::eventType(uint64_t id, std::string_view name) {
  eventTypes_ += Body().u64(id).bytes(padded(name, EVENT_NAME_BYTES)).str();
  return *this;
}

PerfFileBuilder& PerfFileBuilder::record(uint32_t type, const Body& body, uint16_t misc) {
  return recordOfSize(type, static_cast<uint16_t>(EVENT_HEADER_BYTES + body.size()), body, misc);
}

PerfFileBuilder& PerfFileBuilder::recordOfSize(uint32_t type, uint16_t size, const Body& body,
                                               uint16_t misc) {
  return data(Body().u32(type).u16(misc).u16(size).bytes(body.str()).str());
}

PerfFileBuilder& PerfFileBuilder::data(std::string_view bytes) {
  data_ += bytes;
  return *this;
}

PerfFileBuilder& PerfFileBuilder::comm(uint32_t pid, uint32_t tid, std::string_view name) {
  return record(3, Body().u32(pid).u32(tid).name(name));
}

PerfFileBuilder& PerfFileBuilder::mmap(uint32_t pid, uint32_t tid, uint64_t address,
                                       uint64_t length, uint64_t pageOffset,
                                       std::string_view name) {
  return record(1, Body().u32(pid).u32(tid).u64(address).u64(length).u64(pageOffset).name(name));
}

PerfFileBuilder& PerfFileBuilder::sample(const SampleFields& fields, uint16_t misc) {
  const uint64_t sampleType = attributes_.empty() ? 0 : attributes_.front()._sampleType();
  return record(9, Body().bytes(sampleBody(sampleType, fields)), misc);
}

PerfFileBuilder& PerfFileBuilder::magic(std::string_view bytes) {
  magic_ = padded(bytes, MAGIC_BYTES);
  return *this;
}

PerfFileBuilder& PerfFileBuilder::header(Header word, uint64_t value) {
  overrides_[word] = value;
  return *this;
}

PerfFileBuilder& PerfFileBuilder::trailer(std::string_view bytes) {
  trailer_ += bytes;
  return *this;
}

PerfFileBuilder& PerfFileBuilder::truncateBy(std::size_t bytes) {
  cut_ += bytes;
  return *this;
}

PerfFileBuilder& PerfFileBuilder::fileSize(std::size_t bytes) {
  fileSize_ = bytes;
  return *this;
}

uint64_t PerfFileBuilder::idsOffset() const { return HEADER_BYTES; }

uint64_t PerfFileBuilder::attrsOffset() const { return idsOffset() + _idCount() * 8; }

uint64_t PerfFileBuilder::eventTypesOffset() const {
  return attrsOffset() + attributes_.size() * (_largestStructure() + SECTION_BYTES);
}

uint64_t PerfFileBuilder::dataOffset() const { return eventTypesOffset() + eventTypes_.size(); }

std::string PerfFileBuilder::bytes() const {
  std::string bytes =
      _header() + _idSections() + _attributeEntries() + eventTypes_ + data_ + trailer_;
  bytes.resize(bytes.size() - std::min(cut_, bytes.size()));
  if (fileSize_) {
    bytes.resize(*fileSize_, '\0');
  }
  return bytes;
}

std::string PerfFileBuilder::writeTo(const TempDir& folder, const std::string& name) const {
  return folder.write(name, bytes());
}

std::size_t PerfFileBuilder::_largestStructure() const {
  std::size_t largest = attributes_.empty() ? NEWEST_STRUCTURE_BYTES : 0;
  for (const Attr& attribute : attributes_) {
    largest = std::max(largest, attribute.structureSize_);
  }
  return largest;
}

std::size_t PerfFileBuilder::_idCount() const {
  std::size_t count = 0;
  for (const Attr& attribute : attributes_) {
    count += attribute.ids_.size();
  }
  return count;
}

std::string PerfFileBuilder::_header() const {
  const uint64_t entryBytes = _largestStructure() + SECTION_BYTES;
  Body header;
  header.bytes(magic_).u64(HEADER_BYTES).u64(entryBytes);
  header.u64(attrsOffset()).u64(attributes_.size() * entryBytes);
  header.u64(dataOffset()).u64(data_.size());
  header.u64(eventTypesOffset()).u64(eventTypes_.size());
  header.zeros(32);
  std::string bytes = header.str();
  for (const auto& [word, value] : overrides_) {
    store(bytes, static_cast<std::size_t>(word), value);
  }
  return bytes;
}

std::string PerfFileBuilder::_idSections() const {
  Body ids;
  for (const Attr& attribute : attributes_) {
    for (const uint64_t id : attribute.ids_) {
      ids.u64(id);
    }
  }
  return ids.str();
}

std::string PerfFileBuilder::_attributeEntries() const {
  Body entries;
  uint64_t nextIds = idsOffset();
  for (const Attr& attribute : attributes_) {
    const uint64_t idBytes = attribute.ids_.size() * 8;
    const auto [offset, size] = attribute.idsSection_.value_or(std::pair(nextIds, idBytes));
    entries.bytes(padded(attribute.structure(), _largestStructure())).u64(offset).u64(size);
    nextIds += idBytes;
  }
  return entries.str();
}
