// Decoded event records for tests of what consumes them: bodies from
// tests/support/PerfFileBuilder.h, parsed by the real record classes.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kestrel/ByteBufferViewport.h"
#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataMmap.h"
#include "perfevents/PerfEventDataSample.h"
#include "tests/support/PerfFileBuilder.h"

// A record with the attribute that it refers to and the bytes that it was parsed from.
template <typename Record>
class EventRecord {
 public:
  explicit EventRecord(const std::string& body, uint64_t sampleType = 0)
      : body_(body.begin(), body.end()) {
    const std::string structure = Attr().sampleType(sampleType).structure();
    std::vector<unsigned char> bytes(structure.begin(), structure.end());
    attribute_ =
        std::make_unique<perfevents::PerfEventAttribute>(_view(bytes), std::vector<uint64_t>());
    record_ = std::make_unique<Record>(*attribute_);
    if (!record_->parse(_view(body_), 0)) {
      throw std::logic_error("the test's record does not parse");
    }
  }

  operator const Record&() const { return *record_; }

 private:
  static kestrel::ByteBufferViewport _view(std::vector<unsigned char>& bytes) {
    const auto size = static_cast<unsigned>(bytes.size());
    return kestrel::ByteBufferViewport(bytes.data(), size, size);
  }

  std::vector<unsigned char> body_;
  std::unique_ptr<perfevents::PerfEventAttribute> attribute_;
  std::unique_ptr<Record> record_;
};

using CommRecord = EventRecord<perfevents::PerfEventDataComm>;
using MmapRecord = EventRecord<perfevents::PerfEventDataMmap>;
using SampleRecord = EventRecord<perfevents::PerfEventDataSample>;

inline CommRecord commRecord(uint32_t pid, uint32_t tid, const std::string& name) {
  return CommRecord(Body().u32(pid).u32(tid).name(name).str());
}

inline MmapRecord mmapRecord(uint32_t pid, uint32_t tid, uint64_t address, uint64_t length,
                             uint64_t pageOffset, const std::string& file) {
  return MmapRecord(
      Body().u32(pid).u32(tid).u64(address).u64(length).u64(pageOffset).name(file).str());
}

inline SampleRecord sampleRecord(uint64_t sampleType, const SampleFields& fields) {
  return SampleRecord(sampleBody(sampleType, fields), sampleType);
}
