#include "tests/fuzz/PerfFileInput.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "tests/support/PerfFileBuilder.h"

namespace {

// As in tests/support/PerfFileBuilder.cpp, written down anew from the kernel's headers.
constexpr std::size_t HEADER_BYTES = 104;
constexpr std::size_t SECTION_BYTES = 16;
constexpr std::size_t SMALLEST_STRUCTURE = 64;
constexpr std::size_t LARGEST_STRUCTURE = 256;  // enough, although files may have more
constexpr std::size_t USUAL_STRUCTURE = 96;
constexpr std::size_t SAMPLE_TYPE_OFFSET = 24;
constexpr std::size_t EVENT_TYPE_BYTES = 72;
constexpr std::size_t MOST_ATTRIBUTES = 16;
constexpr std::size_t MOST_IDS = 16;

template <typename T>
T numberAt(std::string_view bytes, std::size_t offset) {
  T value = 0;
  if (offset <= bytes.size() && sizeof value <= bytes.size() - offset) {
    std::memcpy(&value, bytes.data() + offset, sizeof value);
  }
  return value;
}

// The part that a section of the header describes, as far as it exists.
std::string_view sectionAt(std::string_view bytes, std::size_t offset) {
  const auto start = numberAt<uint64_t>(bytes, offset);
  const auto size = numberAt<uint64_t>(bytes, offset + 8);
  if (start >= bytes.size()) {
    return {};
  }
  return bytes.substr(static_cast<std::size_t>(start),
                      static_cast<std::size_t>(std::min<uint64_t>(size, bytes.size())));
}

void decodeAttributes(std::string_view bytes, std::vector<PerfFileInput::Attribute>& attributes) {
  const auto entrySize = numberAt<uint64_t>(bytes, 16);
  if (entrySize < SMALLEST_STRUCTURE + SECTION_BYTES ||
      entrySize > LARGEST_STRUCTURE + SECTION_BYTES) {
    return;
  }
  const auto structureSize = static_cast<std::size_t>(entrySize) - SECTION_BYTES;
  std::string_view entries = sectionAt(bytes, 24);
  while (entries.size() >= entrySize && attributes.size() < MOST_ATTRIBUTES) {
    PerfFileInput::Attribute attribute{std::string(entries.substr(0, structureSize)), {}};
    const std::string_view ids =
        sectionAt(bytes, static_cast<std::size_t>(entries.data() + structureSize - bytes.data()));
    for (std::size_t i = 0; i + 8 <= ids.size() && i / 8 < MOST_IDS; i += 8) {
      attribute.ids.push_back(numberAt<uint64_t>(ids, i));
    }
    attributes.push_back(std::move(attribute));
    entries.remove_prefix(static_cast<std::size_t>(entrySize));
  }
}

void decodeRecords(std::string_view data, std::vector<PerfFileInput::Record>& records) {
  while (data.size() >= 8) {
    PerfFileInput::Record record;
    record.type = numberAt<uint32_t>(data, 0);
    record.misc = numberAt<uint16_t>(data, 4);
    record.size = numberAt<uint16_t>(data, 6);
    const std::size_t taken = std::clamp<std::size_t>(record.size, 8, data.size());
    record.body = data.substr(8, taken - 8);
    records.push_back(std::move(record));
    data.remove_prefix(taken);
  }
}

Attr builtAttribute(const PerfFileInput::Attribute& attribute) {
  Attr built;
  built.structureSize(attribute.structure.size());
  for (std::size_t i = 0; i + 8 <= attribute.structure.size(); i += 8) {
    built.u64(i, numberAt<uint64_t>(attribute.structure, i));
  }
  return built.ids(attribute.ids);
}

}  // namespace

PerfFileInput PerfFileInput::decode(std::string_view bytes) {
  PerfFileInput input;
  if (bytes.size() >= HEADER_BYTES) {
    input.magic = bytes.substr(0, 8);
    decodeAttributes(bytes, input.attributes);
    std::string_view types = sectionAt(bytes, 56);
    for (; types.size() >= EVENT_TYPE_BYTES; types.remove_prefix(EVENT_TYPE_BYTES)) {
      const std::string_view name = types.substr(8, EVENT_TYPE_BYTES - 8);
      input.eventTypes.emplace_back(numberAt<uint64_t>(types, 0), name.substr(0, name.find('\0')));
    }
    decodeRecords(sectionAt(bytes, 40), input.records);
  }
  if (input.attributes.empty()) {
    input.attributes.push_back({Attr().sampleType(0x7).structure(), {}});
  }
  return input;
}

std::string PerfFileInput::encode() const {
  PerfFileBuilder file;
  file.magic(magic);
  for (const Attribute& attribute : attributes) {
    file.attribute(builtAttribute(attribute));
  }
  for (const auto& [id, name] : eventTypes) {
    file.eventType(id, name);
  }
  for (const Record& record : records) {
    file.recordOfSize(record.type, record.size, Body().bytes(record.body), record.misc);
  }
  return file.bytes();
}

uint64_t PerfFileInput::sampleType() const {
  return attributes.empty() ? 0
                            : numberAt<uint64_t>(attributes.front().structure, SAMPLE_TYPE_OFFSET);
}

void PerfFileInput::setSampleType(uint64_t sampleType) {
  for (Attribute& attribute : attributes) {
    attribute.structure.resize(std::max(attribute.structure.size(), USUAL_STRUCTURE), '\0');
    std::memcpy(&attribute.structure[SAMPLE_TYPE_OFFSET], &sampleType, sizeof sampleType);
  }
}
