#include "tests/faults/BentFiles.h"

#include <cstring>
#include <set>

namespace {

// struct perf_file_header and perf_file_attr
constexpr std::size_t HEADER_BYTES = 104;
constexpr std::size_t SECTION_BYTES = 16;
constexpr std::size_t ATTR_ENTRY_BYTES_AT = 16;
constexpr std::size_t ATTRS_AT = 24;
constexpr std::size_t DATA_AT = 40;
constexpr std::size_t DATA_SIZE_AT = 48;
constexpr std::size_t LAST_HEADER_SIZE_AT = 64;

// struct perf_event_attr
constexpr std::size_t SAMPLE_TYPE_AT = 24;
constexpr std::size_t READ_FORMAT_AT = 32;

// struct perf_event_header
constexpr std::size_t RECORD_HEADER_BYTES = 8;
constexpr std::size_t RECORD_SIZE_AT = 6;
constexpr uint32_t SAMPLE_RECORD = 9;

uint64_t u64(std::string_view bytes, std::size_t offset) { return numberAt(bytes, offset, 8); }

std::size_t sizeAt(std::string_view bytes, std::size_t offset) {
  return static_cast<std::size_t>(u64(bytes, offset));
}

void store(std::string& bytes, std::size_t offset, std::size_t width, uint64_t value) {
  if (width == 8) {
    std::memcpy(&bytes[offset], &value, sizeof value);
  } else if (width == 4) {
    const auto number = static_cast<uint32_t>(value);
    std::memcpy(&bytes[offset], &number, sizeof number);
  } else {
    const auto number = static_cast<uint16_t>(value);
    std::memcpy(&bytes[offset], &number, sizeof number);
  }
}

bool isSample(std::string_view file, std::size_t record) {
  return numberAt(file, record, 4) == SAMPLE_RECORD;
}

// The counts inside a sample: PERF_SAMPLE_READ of a group, PERF_SAMPLE_CALLCHAIN, PERF_SAMPLE_RAW.
void addSampleFields(std::string_view file, std::size_t record, const std::string& name,
                     std::vector<FileField>& fields) {
  const std::size_t attribute = sizeAt(file, ATTRS_AT);
  const uint64_t sampleType = u64(file, attribute + SAMPLE_TYPE_AT);
  const uint64_t readFormat = u64(file, attribute + READ_FORMAT_AT);
  std::size_t at = record + RECORD_HEADER_BYTES;
  // IDENTIFIER, IP, TID, TIME, ADDR, ID, STREAM_ID, CPU, PERIOD: eight bytes each
  for (const uint64_t bit : {0x10000U, 0x1U, 0x2U, 0x4U, 0x8U, 0x40U, 0x200U, 0x80U, 0x100U}) {
    at += (sampleType & bit) != 0 ? 8 : 0;
  }
  if ((sampleType & 0x10) != 0) {
    const auto words = [&](uint64_t bits) {
      std::size_t count = 0;
      for (uint64_t left = readFormat & bits; left != 0; left &= left - 1) {
        ++count;
      }
      return count;
    };
    const bool isGroup = (readFormat & 0x8) != 0;
    if (isGroup) {
      fields.push_back({name + " group nr", at, 8});
      at += 8 * (1 + words(0x3) + sizeAt(file, at) * (1 + words(0x4)));
    } else {
      at += 8 * (1 + words(0x7));
    }
  }
  if ((sampleType & 0x20) != 0) {
    fields.push_back({name + " chain nr", at, 8});
    at += 8 * (1 + sizeAt(file, at));
  }
  if ((sampleType & 0x400) != 0) {
    fields.push_back({name + " raw size", at, 4});
  }
}

}  // namespace

uint64_t numberAt(std::string_view bytes, std::size_t offset, std::size_t width) {
  uint16_t two = 0;
  uint32_t four = 0;
  uint64_t eight = 0;
  switch (width) {
    case 2:
      std::memcpy(&two, &bytes[offset], sizeof two);
      return two;
    case 4:
      std::memcpy(&four, &bytes[offset], sizeof four);
      return four;
    default:
      std::memcpy(&eight, &bytes[offset], sizeof eight);
      return eight;
  }
}

std::vector<std::size_t> recordBoundaries(const std::string& file) {
  std::size_t at = sizeAt(file, DATA_AT);
  const std::size_t end = at + sizeAt(file, DATA_SIZE_AT);
  std::vector<std::size_t> boundaries{at};
  while (at < end) {
    at += static_cast<std::size_t>(numberAt(file, at + RECORD_SIZE_AT, 2));
    boundaries.push_back(at);
  }
  return boundaries;
}

std::vector<FileField> sizeFields(const std::string& file) {
  std::vector<FileField> fields;
  for (std::size_t at = 8; at <= LAST_HEADER_SIZE_AT; at += 8) {
    fields.push_back({"header word at " + std::to_string(at), at, 8});
  }
  const std::size_t entryBytes = sizeAt(file, ATTR_ENTRY_BYTES_AT);
  const std::size_t attributes = sizeAt(file, ATTRS_AT);
  for (std::size_t i = 0; i < sizeAt(file, ATTRS_AT + 8) / entryBytes; ++i) {
    const std::string name = "attribute " + std::to_string(i);
    const std::size_t ids = attributes + (i + 1) * entryBytes - SECTION_BYTES;
    fields.push_back({name + " size", attributes + i * entryBytes + 4, 4});
    fields.push_back({name + " ids offset", ids, 8});
    fields.push_back({name + " ids size", ids + 8, 8});
  }
  const std::vector<std::size_t> records = recordBoundaries(file);
  for (std::size_t i = 0; i + 1 < records.size(); ++i) {
    const std::string name = "record " + std::to_string(i);
    fields.push_back({name + " size", records[i] + RECORD_SIZE_AT, 2});
    if (isSample(file, records[i])) {
      addSampleFields(file, records[i], name, fields);
    }
  }
  return fields;
}

std::string withFewRecords(const std::string& file, std::size_t samples, std::size_t others) {
  const std::vector<std::size_t> records = recordBoundaries(file);
  std::string cut = file.substr(0, records.front());
  for (std::size_t i = 0; i + 1 < records.size(); ++i) {
    std::size_t& left = isSample(file, records[i]) ? samples : others;
    if (left > 0) {
      --left;
      cut += file.substr(records[i], records[i + 1] - records[i]);
    }
  }
  store(cut, DATA_SIZE_AT, 8, cut.size() - records.front());
  return cut;
}

void visitCuts(const std::string& file, const BentFileVisitor& visit) {
  const std::size_t attributes = sizeAt(file, ATTRS_AT);
  std::vector<std::size_t> boundaries = recordBoundaries(file);
  boundaries.push_back(HEADER_BYTES);
  boundaries.push_back(attributes);
  boundaries.push_back(attributes + sizeAt(file, ATTR_ENTRY_BYTES_AT));
  std::set<std::size_t> sizes{0, 1};
  for (const std::size_t boundary : boundaries) {
    sizes.insert({boundary - 1, boundary, boundary + 1});
  }
  for (const std::size_t size : sizes) {
    if (size <= file.size()) {
      visit("cut at " + std::to_string(size), file.substr(0, size));
    }
  }
}

void visitFlippedHeaderBytes(const std::string& file, const std::vector<unsigned char>& masks,
                             const BentFileVisitor& visit) {
  for (std::size_t at = 0; at < HEADER_BYTES; ++at) {
    for (const unsigned char mask : masks) {
      std::string bent = file;
      bent[at] = static_cast<char>(static_cast<unsigned char>(bent[at]) ^ mask);
      visit("header byte " + std::to_string(at) + " xor " + std::to_string(mask), bent);
    }
  }
}

void visitChangedFields(const std::string& file, const BentFileVisitor& visit) {
  for (const FileField& field : sizeFields(file)) {
    for (const uint64_t value :
         {uint64_t{0}, uint64_t{1}, numberAt(file, field.offset, field.width) + 1, ~uint64_t{0}}) {
      std::string bent = file;
      store(bent, field.offset, field.width, value);
      visit(field.name + " = " + std::to_string(value), bent);
    }
  }
}
