#include "recordings/RecordStream.h"

#include <algorithm>
#include <cstring>

#include "recordings/Abi.h"

namespace recordings {

namespace {

constexpr std::size_t BUFFER_SIZE = 256 * 1024;
constexpr std::size_t COMPRESSED2_HEADER_SIZE = 16;
constexpr std::uint64_t LARGEST_PUSH = 1ull << 32;

std::uint64_t roundedUp(std::uint64_t size) { return (size + 7) & ~std::uint64_t{7}; }

Record recordAt(const unsigned char* at, ByteOrder order) {
  Record record;
  record.type = numberAt<std::uint32_t>(at, order);
  record.misc = numberAt<std::uint16_t>(at + 4, order);
  record.bytes = Bytes(at, numberAt<std::uint16_t>(at + 6, order));
  return record;
}

}  // namespace

Bytes Record::body() const { return bytes.subspan(abi::RECORD_HEADER_SIZE); }

RecordStream::RecordStream(const Input& input, std::uint64_t begin, std::uint64_t end,
                           ByteOrder order, Form form)
    : input_(input), offset_(begin), end_(std::max(begin, end)), order_(order), form_(form) {
  const std::uint64_t there = begin < input.size() ? input.size() - begin : 0;
  capacity_ = static_cast<std::size_t>(std::min<std::uint64_t>({BUFFER_SIZE, there, end_ - begin}));
  buffer_ = std::make_unique_for_overwrite<unsigned char[]>(capacity_);
}

bool RecordStream::next(Record& record) {
  for (;;) {
    if (decompressor_ != nullptr && !damage_ && _nextUnpacked(record)) {
      return true;
    }
    if (damage_ || !_nextPlain(record)) {
      return false;
    }
    if (record.type == abi::RECORD_COMPRESSED || record.type == abi::RECORD_COMPRESSED2) {
      if (!_startUnpacking(record)) {
        return false;
      }
    } else {
      return true;
    }
  }
}

// Makes the next `bytes` bytes of the section contiguous in the buffer.
bool RecordStream::_require(std::size_t bytes) {
  if (last_ - first_ >= bytes) {
    return true;
  }
  if (bytes > capacity_ && capacity_ < BUFFER_SIZE) {
    return false;  // the whole rest of the section is shorter
  }
  std::memmove(buffer_.get(), buffer_.get() + first_, last_ - first_);
  last_ -= first_;
  first_ = 0;
  const std::uint64_t readTo = offset_ + last_;
  const std::uint64_t left = end_ > readTo ? end_ - readTo : 0;
  const std::size_t wanted =
      static_cast<std::size_t>(std::min<std::uint64_t>(capacity_ - last_, left));
  last_ += input_.read(readTo, buffer_.get() + last_, wanted);
  return last_ - first_ >= bytes;
}

bool RecordStream::_fail(const char* what) {
  if (!damage_) {
    const std::uint64_t end = std::min(end_, std::max(input_.size(), offset_));
    damage_ = {what, offset_, end - offset_};
  }
  return false;
}

bool RecordStream::_nextPlain(Record& record) {
  if (offset_ >= end_) {
    return false;
  }
  if (!_require(abi::RECORD_HEADER_SIZE)) {
    return _fail("the file ends inside the header of a record");
  }
  record = recordAt(buffer_.get() + first_, order_);
  const std::size_t size = _sizeOf(record);
  if (size < abi::RECORD_HEADER_SIZE) {
    return _fail("a record is shorter than its own header");
  }
  if (!_require(size)) {
    return _fail("the file ends inside a record");
  }
  record.bytes = Bytes(buffer_.get() + first_, size);
  first_ += size;
  offset_ += size;
  const std::uint64_t behind = _bytesBehind(record);
  if (behind > 0 && !_passOver(behind)) {
    return _fail("the file ends inside what follows a record");
  }
  return true;
}

// What the record's header says, except where its 16 bits have overflowed: the first COMPRESSED2
// record of a push of more than 64 KiB bears the size of the whole push, modulo 2^16; it ends after
// 65535 bytes, and the rest of the push has headers of its own.
std::size_t RecordStream::_sizeOf(const Record& record) {
  const std::size_t size = record.bytes.size();
  if (record.type != abi::RECORD_COMPRESSED2 || !_require(COMPRESSED2_HEADER_SIZE)) {
    return size;
  }
  const std::uint64_t used =
      numberAt<std::uint64_t>(buffer_.get() + first_ + abi::RECORD_HEADER_SIZE, order_);
  if (used > LARGEST_PUSH) {
    return size;  // never set
  }
  const std::uint64_t padded = COMPRESSED2_HEADER_SIZE + roundedUp(used);
  if (padded <= abi::LARGEST_RECORD_SIZE || padded % 65536 != size) {
    return size;
  }
  return static_cast<std::size_t>(
      std::min<std::uint64_t>(COMPRESSED2_HEADER_SIZE + used, abi::LARGEST_RECORD_SIZE));
}

// Bytes that belong to a record but are not counted in its size.
std::uint64_t RecordStream::_bytesBehind(const Record& record) const {
  FieldReader fields(record.body(), order_);
  if (record.type == abi::RECORD_AUXTRACE) {
    return fields.take<std::uint64_t>();
  }
  if (record.type == abi::RECORD_TRACING_DATA && form_ == Form::PIPE) {
    return roundedUp(fields.take<std::uint32_t>());
  }
  return 0;
}

// The record before stays readable unless the bytes were not in the buffer, and nobody reads the
// contents of records that have any.
bool RecordStream::_passOver(std::uint64_t bytes) {
  const std::uint64_t there = std::min(end_, input_.size());
  if (offset_ > there || bytes > there - offset_) {
    return false;
  }
  first_ += static_cast<std::size_t>(std::min<std::uint64_t>(bytes, last_ - first_));
  offset_ += bytes;
  if (first_ == last_) {
    first_ = last_ = 0;
  }
  return true;
}

bool RecordStream::_startUnpacking(const Record& record) {
  if (decompressor_ == nullptr) {
    decompressor_ = std::make_unique<Decompressor>();
  }
  Bytes packed = record.body();
  if (record.type == abi::RECORD_COMPRESSED2) {
    // data_size, and that many bytes, padded; it is unset where a push took several records, and
    // then the bytes go on to the record's end.
    const std::uint64_t used = FieldReader(packed, order_).take<std::uint64_t>();
    packed = packed.size() < 8 ? Bytes() : packed.subspan(8);
    if (used <= packed.size() && roundedUp(used) == packed.size()) {
      packed = packed.first(static_cast<std::size_t>(used));
    }
  }
  decompressor_->give(packed);
  return true;
}

bool RecordStream::_nextUnpacked(Record& record) {
  for (;;) {
    const Bytes unpacked = decompressor_->unpacked();
    if (unpacked.size() >= abi::RECORD_HEADER_SIZE) {
      record = recordAt(unpacked.data(), order_);
      const std::size_t size = record.bytes.size();
      if (size < abi::RECORD_HEADER_SIZE) {
        return _fail("a packed record is shorter than its own header");
      }
      if (unpacked.size() >= size) {
        decompressor_->take(size);
        return true;
      }
    }
    if (decompressor_->isUsedUp()) {
      return false;
    }
    if (!decompressor_->unpack()) {
      return _fail("compressed records cannot be unpacked");
    }
  }
}

}  // namespace recordings
