// Cuts a stream into event records. Reads it in large blocks and hands the records out in place: a
// call of the stream for every record would cost more than decoding it. Format: perf_event_header,
// see PerfAbi.h. One thread only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>

#include "kestrel/ByteBuffer.h"
#include "perfevents/PerfAbi.h"

namespace perfevents {

class RecordStream {
 public:
  enum class Outcome {
    Record,
    Garbled,  // the header gives less than its own size
    CutOff,   // the stream ends, or fails, inside the record
  };

  // Borrows the stream.
  explicit RecordStream(std::istream& stream) : stream_(stream) {}

  // Begins at the stream's position. Until returnStream(), the stream belongs to this object.
  void takeStream();
  // Steps to the next record. A header that the stream does not have whole is completed from the
  // one before, and that decides between the two failures.
  Outcome next() {
    const std::size_t left = filledTo_ - nextAt_;
    if (left >= abi::EVENT_HEADER_SIZE) {
      size_ = _sizeAt(buffer_.data() + nextAt_);
      if (size_ >= abi::EVENT_HEADER_SIZE && size_ <= left) {
        recordAt_ = nextAt_;
        nextAt_ += size_;
        return Outcome::Record;
      }
    }
    return _nextAcrossBlocks();
  }
  // Leaves the stream as if the records had been read from it one by one: behind the last one, or
  // failed when it is cut off.
  void returnStream();

  // The last record, its header included, and its size in bytes. At least LARGEST_EVENT_SIZE bytes
  // are there to be read from the record's start on, and they stay until the next step.
  unsigned char* record() { return buffer_.data() + recordAt_; }
  uint16_t size() const { return size_; }
  // The errno of what failed when the system was asked for the file, which is why the stream is
  // bad; else 0.
  int readError() const { return readError_; }
  // The other fields of its header.
  uint32_t type() const {
    return _fieldAt<uint32_t>(buffer_.data() + recordAt_, abi::EVENT_HEADER_TYPE_OFFSET);
  }
  uint16_t misc() const {
    return _fieldAt<uint16_t>(buffer_.data() + recordAt_, abi::EVENT_HEADER_MISC_OFFSET);
  }

 private:
  template <typename T>
  static T _fieldAt(const unsigned char* header, std::size_t offset) {
    T value = 0;
    std::memcpy(&value, header + offset, sizeof(value));
    return value;
  }
  static uint16_t _sizeAt(const unsigned char* header) {
    return _fieldAt<uint16_t>(header, abi::EVENT_HEADER_SIZE_OFFSET);
  }
  Outcome _nextAcrossBlocks();
  void _keepHeader();
  bool _provide(std::size_t bytes);
  void _noteReadError();

  std::istream& stream_;
  kestrel::ByteBuffer buffer_;
  std::streamoff blockStart_ = 0;  // the position of the buffer's first byte in the stream
  std::size_t recordAt_ = 0;       // places in the buffer
  std::size_t nextAt_ = 0;
  std::size_t filledTo_ = 0;
  std::array<unsigned char, abi::EVENT_HEADER_SIZE> header_{};  // of the record before
  uint16_t size_ = 0;
  bool isCutOff_ = false;
  int readError_ = 0;
};

}  // namespace perfevents
