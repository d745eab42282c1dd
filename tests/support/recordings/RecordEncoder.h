// Writes single records in an encoding: header, body, trailer.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/recordings/Encoding.h"
#include "tests/support/recordings/Recording.h"

namespace made {

class RecordEncoder {
 public:
  // Borrows both. Throws std::invalid_argument where the encoding cannot hold the recording:
  // several events without ids, or fields whose size is in a part of the attribute that it cuts
  // off.
  RecordEncoder(const Recording& recording, const Encoding& encoding);

  // The record with what follows it; nothing for a mark that the encoding leaves out. Throws
  // std::length_error where the record does not fit into 65535 bytes.
  std::string bytes(const Record& record) const;
  // A record without a trailer.
  std::string plainBytes(uint32_t type, uint16_t misc, const Fields& body) const;

  // An attribute as the file holds it, with as many bytes as the encoding says.
  std::string attribute(const Event& event) const;
  // A sample's body in the layout of its event.
  Fields sampleBody(const Sample& sample) const;

 private:
  struct Origin {  // what a trailer tells
    uint32_t pid;
    uint32_t tid;
    uint64_t time;
    uint32_t cpu;
  };

  uint64_t _sampleType(const Event& event) const;
  uint64_t _attributeFlags(const Event& event) const;
  std::string _withTrailer(uint32_t type, uint16_t misc, Fields body, const Origin& origin) const;
  std::string _map(const Map& map) const;
  std::string _task(uint32_t type, const Task& task) const;
  std::string _other(const Other& other) const;

  const Recording& recording_;
  const Encoding& encoding_;
};

// Whether perf itself made the record, for what existed before it began.
bool isMadeByPerf(const Record& record);
// The processor that the record is about.
uint32_t cpuOf(const Record& record);

}  // namespace made
