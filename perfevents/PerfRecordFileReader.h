// Reads a file written by `perf record`. The constructor loads header, attributes, stream ids and
// trace event names; parseEvents() then walks the data section once. No byte swapping: the file
// comes from a machine of the same byte order. Every size in the file is a claim and is believed
// only as far as the file reaches. The feature sections behind the data are not read. Format: see
// PerfAbi.h. Log: "PerfRecordFileReader".
//
// A reader owns the position of its stream: one reader at a time, on one thread.
#pragma once

#include <array>
#include <iosfwd>
#include <memory>
#include <vector>

#include "perfevents/PerfAbi.h"
#include "perfevents/PerfEventDataStore.h"
#include "perfevents/PerfOutputReader.h"
#include "perfevents/RecordStream.h"
#include "perfevents/SampleFilter.h"

namespace perfevents {

class PerfRecordFileReader : public PerfOutputReader {
 public:
  // A part of the file: both in bytes, the offset from the start of the file.
  struct PerfFileSection {
    uint64_t offset = 0;
    uint64_t size = 0;
  };

  // The file header as read.
  struct PerfFileHeader {
    std::array<char, 8> magic{};  // not validated
    uint64_t size = 0;            // of this header
    uint64_t attrSize = 0;        // of one entry of the attributes section
    PerfFileSection attrs;
    PerfFileSection data;
    PerfFileSection eventTypes;
    std::array<uint64_t, abi::FILE_FEATURE_WORDS> features{};
  };

  // Opens `path` for reading. A directory counts as a file that cannot be opened. False, with
  // failbit set, on failure.
  static bool openPerfRecordFile(std::ifstream& stream, std::string& path);

  // Throws std::ios_base::failure, after an ERROR line with the same text, for a file that cannot
  // be read, and std::invalid_argument for one without attributes (when `createStore`). Without a
  // store every record is delivered as a PerfEventDataUnknown of its whole bytes, header included.
  PerfRecordFileReader(std::ifstream& stream, bool createStore);

  // Walks the data section from where the stream stands: once a reader, or after cueFirstEvent(). A
  // record with an impossible size and a short read end the walk with an ERROR line; what was
  // delivered stays delivered, and onClose() follows in every case. What the listener throws passes
  // through, without onClose().
  void parseEvents(PerfEventDataListener& listener) override;

  // Which samples the next walk delivers; all by default.
  void filterSamples(SampleFilter filter);

  const boost::ptr_vector<PerfEventAttribute>& getAttributes() const override {
    return attributes_;
  }
  const std::map<uint64_t, std::string>& getTraceEventTypes() const override {
    return traceEventTypes_;
  }
  const std::string& getTraceEventName(uint64_t id) const override;

  const PerfFileHeader& header() const { return header_; }
  // Which revision of perf_event_attr the file uses: 0 to 3, 4 for newer ones.
  int attributeVersion() const { return attributeVersion_; }
  std::streamoff fileSize() const { return fileSize_; }

  // The constructor's steps, in this order; each throws std::ios_base::failure as above.
  void readHeader();
  void readAttributes();
  void readTraceEventTypes();
  // Places the stream on the first record.
  void cueFirstEvent();

 private:
  bool _seek(uint64_t offset);
  void _reportIfUnreadable(int error);
  bool _read(unsigned char* bytes, std::size_t size);
  void _checkSection(const PerfFileSection& section, const char* message) const;
  void _setAttributeVersion();
  std::vector<uint64_t> _readIds(const PerfFileSection& section, uint64_t mostIds);
  bool _readRecord();
  void _deliver(PerfEventData* undecoded, PerfEventDataListener& listener);

  std::istream& stream_;
  bool createStore_;
  PerfFileHeader header_;
  boost::ptr_vector<PerfEventAttribute> attributes_;
  std::map<uint64_t, std::string> traceEventTypes_;
  RecordStream records_;
  SampleFilter filter_ = SampleFilter::all();
  std::size_t timeOffset_ = 0;  // in a sample's body
  std::streampos fileSize_ = 0;
  int attributeVersion_ = 0;
  std::string noName_;
  std::unique_ptr<PerfEventDataStore> store_;
};

// Logs `message` at ERROR and throws it as std::ios_base::failure.
[[noreturn]] void handleError(const char* message);

// A readable summary of the file for diagnosis; the conversion never prints it.
std::ostream& operator<<(std::ostream& out, const PerfRecordFileReader& reader);

}  // namespace perfevents
