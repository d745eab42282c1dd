// One decoded event record: the base of the record classes. A record object is made once by the
// record store and parsed into again and again; what it holds is valid until the next record of its
// type, and views into the body only while the listener handles the record. One thread only.
#pragma once

#include <cstdint>

#include "kestrel/ByteBufferViewport.h"
#include "perfevents/PerfAbi.h"

namespace perfevents {

class PerfEventAttribute;

class PerfEventData {
 public:
  // The kernel's PERF_RECORD_* numbers; Unknown for every record that is not decoded.
  enum class Type : uint32_t {
    Unknown = 0,
    Mmap = abi::RECORD_MMAP,
    Lost = abi::RECORD_LOST,
    Comm = abi::RECORD_COMM,
    Exit = abi::RECORD_EXIT,
    Throttle = abi::RECORD_THROTTLE,
    Unthrottle = abi::RECORD_UNTHROTTLE,
    Fork = abi::RECORD_FORK,
    Read = abi::RECORD_READ,
    Sample = abi::RECORD_SAMPLE,
  };

  // The `misc` word of the record header: PERF_RECORD_MISC_* bits, the CPU mode in the low three.
  using MiscFlags = uint16_t;

  // Borrows the attribute whose layout the records have; it must outlive this object. No minimum
  // size.
  explicit PerfEventData(const PerfEventAttribute& attribute);
  PerfEventData(const PerfEventData&) = delete;
  PerfEventData& operator=(const PerfEventData&) = delete;

  // Decodes the bytes that follow the record header. Does not look at the minimum size: parse()
  // did. Returns false and leaves every field as it was when the body contradicts itself.
  virtual bool parseEventData(const kestrel::ByteBufferViewport& body) = 0;
  virtual ~PerfEventData() = default;
  // The fewest bytes that a body of this type has.
  virtual unsigned int getRequiredMinimumSize() const { return requiredMinimumSize_; }
  virtual Type getType() const = 0;

  // Decodes one record. Returns false, and changes neither fields nor misc flags, for a body that
  // is too short or contradicts itself.
  bool parse(const kestrel::ByteBufferViewport& body, MiscFlags misc);

  const PerfEventAttribute& attribute() const { return attribute_; }
  MiscFlags misc() const { return misc_; }

 protected:
  // For the record classes: each has a log category of its own name, and bodies of at least
  // `minimumSize` bytes.
  PerfEventData(const PerfEventAttribute& attribute, const char* loggerName,
                unsigned int minimumSize);
  void _requireMoreBytes(unsigned int bytes) { requiredMinimumSize_ += bytes; }

 private:
  const PerfEventAttribute& attribute_;
  uint32_t requiredMinimumSize_ = 0;
  MiscFlags misc_ = 0;
};

}  // namespace perfevents
