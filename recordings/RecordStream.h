// The records of one data section, in the order of the file: compressed ones are unpacked, and what
// follows a record without being one (hardware traces, tracepoint formats in a pipe) is passed
// over. Memory does not depend on the size of the section. One thread.
//
// A record of size 0, one that runs past the end, or bytes that cannot be unpacked end the stream:
// what came before stands, and damage() says what was lost.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "recordings/Decompressor.h"
#include "recordings/FieldReader.h"
#include "recordings/Input.h"

namespace recordings {

struct Record {
  std::uint32_t type = 0;
  std::uint16_t misc = 0;
  Bytes bytes;  // whole, with its header, in the recording's byte order

  Bytes body() const;
};

struct Damage {
  std::string what;             // empty: none
  std::uint64_t offset = 0;     // in the file
  std::uint64_t lostBytes = 0;  // from there to where the section was to end, or the file does
  explicit operator bool() const { return !what.empty(); }
};

class RecordStream {
 public:
  enum class Form { FILE, PIPE };

  // The section [begin, end) of the input, which is borrowed; `end` beyond the input's end counts
  // as damage when the stream gets there.
  RecordStream(const Input& input, std::uint64_t begin, std::uint64_t end, ByteOrder order,
               Form form = Form::FILE);

  // False at the end. The record is valid until the next call.
  bool next(Record& record);
  const Damage& damage() const { return damage_; }
  // Where the next record is read from, in the file.
  std::uint64_t offset() const { return offset_; }

 private:
  bool _nextPlain(Record& record);
  bool _nextUnpacked(Record& record);
  bool _startUnpacking(const Record& record);
  bool _passOver(std::uint64_t bytes);
  bool _require(std::size_t bytes);
  bool _fail(const char* what);
  std::size_t _sizeOf(const Record& record);
  std::uint64_t _bytesBehind(const Record& record) const;

  const Input& input_;
  std::uint64_t offset_;
  std::uint64_t end_;
  ByteOrder order_;
  Form form_;
  std::unique_ptr<unsigned char[]> buffer_;
  std::size_t capacity_;
  std::size_t first_ = 0;  // bytes of the buffer not yet handed out: [first_, last_)
  std::size_t last_ = 0;
  std::unique_ptr<Decompressor> decompressor_;  // made with the first compressed record
  Damage damage_;
};

}  // namespace recordings
