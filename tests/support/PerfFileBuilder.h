// Builds perf.data files for tests, sound ones and broken ones, so that a test shows what is odd
// about its file. Every offset and size here is written down anew from the kernel's perf_event.h
// and from tools/perf/util/header.h; nothing comes from the reader under test, so that a wrong
// number there cannot cancel out. Numbers are stored in the byte order of the machine, as perf
// does.
//
// The file: header, ids of each attribute, attribute entries, trace event types, records, and what
// follows the records. Header fields describe exactly that, unless header() overrides them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class TempDir;

// Bytes put one after another.
class Body {
 public:
  Body& u8(uint8_t value);
  Body& u16(uint16_t value);
  Body& u32(uint32_t value);
  Body& u64(uint64_t value);
  Body& zeros(std::size_t count);
  Body& bytes(std::string_view bytes);
  // The text, a NUL, and NULs up to the next multiple of eight bytes of text: a name as the kernel
  // writes it.
  Body& name(std::string_view text);

  const std::string& str() const { return bytes_; }
  std::size_t size() const { return bytes_.size(); }

 private:
  template <typename T>
  Body& _number(T value);

  std::string bytes_;
};

// One perf_event_attr with its ids. At first a structure of 96 bytes, all zero but its size field.
class Attr {
 public:
  Attr();

  // How many bytes of the structure the file holds, and its own size field. A structure that grows
  // gets zeros.
  Attr& structureSize(std::size_t bytes);
  Attr& sizeField(uint32_t value) { return u32(4, value); }

  Attr& type(uint32_t value) { return u32(0, value); }
  Attr& config(uint64_t value) { return u64(8, value); }
  Attr& samplePeriod(uint64_t value) { return u64(16, value); }
  Attr& sampleType(uint64_t value) { return u64(24, value); }
  Attr& readFormat(uint64_t value) { return u64(32, value); }
  Attr& flags(uint64_t word) { return u64(40, word); }
  Attr& wakeupEvents(uint32_t value) { return u32(48, value); }
  Attr& bpType(uint32_t value) { return u32(52, value); }
  Attr& bpAddr(uint64_t value) { return u64(56, value); }
  Attr& bpLen(uint64_t value) { return u64(64, value); }
  Attr& branchSampleType(uint64_t value) { return u64(72, value); }
  Attr& sampleRegsUser(uint64_t value) { return u64(80, value); }
  Attr& sampleStackUser(uint32_t value) { return u32(88, value); }
  // Numbers at any offset; what lies past the structure's size is not stored.
  Attr& u32(std::size_t offset, uint32_t value);
  Attr& u64(std::size_t offset, uint64_t value);

  Attr& ids(std::vector<uint64_t> ids);
  // What the entry says about where its ids are, whatever is there.
  Attr& idsSection(uint64_t offset, uint64_t size);

  // The structure's bytes.
  std::string structure() const { return bytes_.substr(0, structureSize_); }

 private:
  friend class PerfFileBuilder;

  uint64_t _sampleType() const;

  std::string bytes_;  // at least the largest known revision
  std::size_t structureSize_;
  std::vector<uint64_t> ids_;
  std::optional<std::pair<uint64_t, uint64_t>> idsSection_;  // offset, size
};

// The values of a sample; the builder stores those that the layout has.
struct SampleFields {
  uint64_t identifier = 0;
  uint64_t ip = 0;
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint64_t time = 0;  // nanoseconds
  uint64_t addr = 0;
  uint64_t id = 0;
  uint64_t streamId = 0;
  uint32_t cpu = 0;
  uint32_t res = 0;
  uint64_t period = 0;
  std::string readBlock{};  // PERF_SAMPLE_READ, as its bytes
  std::vector<uint64_t> callchain{};
  std::string raw{};
};

// The body of a sample of this sample_type, up to and with the raw data.
std::string sampleBody(uint64_t sampleType, const SampleFields& fields);

class PerfFileBuilder {
 public:
  // The 64-bit words of the file header behind its magic; the value is the word's file offset.
  enum class Header : std::size_t {
    SIZE = 8,
    ATTR_SIZE = 16,
    ATTRS_OFFSET = 24,
    ATTRS_SIZE = 32,
    DATA_OFFSET = 40,
    DATA_SIZE = 48,
    EVENT_TYPES_OFFSET = 56,
    EVENT_TYPES_SIZE = 64,
    FEATURES_0 = 72,
    FEATURES_1 = 80,
    FEATURES_2 = 88,
    FEATURES_3 = 96,
  };

  // Entries have the size of the largest structure among them; smaller ones are filled with zeros.
  PerfFileBuilder& attribute(Attr attribute);
  // A name of up to 64 bytes, filled with NULs; a longer one is cut to 64.
  PerfFileBuilder& eventType(uint64_t id, std::string_view name);

  // A record with its header; its size field says what it has.
  PerfFileBuilder& record(uint32_t type, const Body& body, uint16_t misc = 0);
  // A record whose header says `size`, whatever its body has.
  PerfFileBuilder& recordOfSize(uint32_t type, uint16_t size, const Body& body, uint16_t misc = 0);
  // Bytes among the records.
  PerfFileBuilder& data(std::string_view bytes);
  PerfFileBuilder& comm(uint32_t pid, uint32_t tid, std::string_view name);
  PerfFileBuilder& mmap(uint32_t pid, uint32_t tid, uint64_t address, uint64_t length,
                        uint64_t pageOffset, std::string_view name);
  // A sample in the layout of the first attribute so far; none: an empty body.
  PerfFileBuilder& sample(const SampleFields& fields, uint16_t misc = 0);

  // Eight bytes; at first "PERFILE2".
  PerfFileBuilder& magic(std::string_view bytes);
  // Lets a header word say something else.
  PerfFileBuilder& header(Header word, uint64_t value);
  // Bytes behind the records that belong to no section, as feature sections do.
  PerfFileBuilder& trailer(std::string_view bytes);

  // Cuts the file at its end. The header goes on claiming what was there.
  PerfFileBuilder& truncateBy(std::size_t bytes);
  // Like truncateBy(), for a file without a trailer: the last record loses its last bytes.
  PerfFileBuilder& truncateLastRecordBy(std::size_t bytes) { return truncateBy(bytes); }
  // Cuts the file to this size, or fills it up with zeros.
  PerfFileBuilder& fileSize(std::size_t bytes);

  // Where the sections are, as far as no header word is overridden.
  uint64_t idsOffset() const;
  uint64_t attrsOffset() const;
  uint64_t eventTypesOffset() const;
  uint64_t dataOffset() const;

  // The whole file.
  std::string bytes() const;
  // Writes the file into the folder and returns its path.
  std::string writeTo(const TempDir& folder, const std::string& name = "perf.data") const;

 private:
  std::size_t _largestStructure() const;
  std::size_t _idCount() const;
  std::string _header() const;
  std::string _idSections() const;
  std::string _attributeEntries() const;

  std::string magic_ = "PERFILE2";
  std::vector<Attr> attributes_;
  std::string eventTypes_;
  std::string data_;
  std::string trailer_;
  std::map<Header, uint64_t> overrides_;
  std::size_t cut_ = 0;
  std::optional<std::size_t> fileSize_;
};
