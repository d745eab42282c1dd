// A recording taken apart, so that a fuzzer can change one thing of it and leave the rest sound.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct PerfFileInput {
  struct Attribute {
    std::string structure;  // 64 bytes or more
    std::vector<uint64_t> ids;
  };
  struct Record {
    uint32_t type = 0;
    uint16_t misc = 0;
    uint16_t size = 0;  // what its header says; encode() takes it as it is
    std::string body;

    // Makes the header tell the truth.
    void setSize() { size = static_cast<uint16_t>(8 + body.size()); }
  };

  // What can be made out in these bytes; an attribute of its own when there is none.
  static PerfFileInput decode(std::string_view bytes);
  // A file of these parts whose header describes them.
  std::string encode() const;

  uint64_t sampleType() const;  // the layout of its samples
  void setSampleType(uint64_t sampleType);

  std::string magic = "PERFILE2";
  std::vector<Attribute> attributes;
  std::vector<std::pair<uint64_t, std::string>> eventTypes;  // id and name
  std::vector<Record> records;
};
