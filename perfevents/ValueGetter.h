// The pieces that a sample decoder is made of: each getter copies one stretch of a sample record
// into a field of the sample and says how many bytes that was. Sizes are bytes. Layout:
// PERF_RECORD_SAMPLE in include/uapi/linux/perf_event.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kestrel/ByteBufferViewport.h"

namespace perfevents {

// The fixed-size fields of a sample, in the kernel's order. A field whose bit is absent from the
// layout stays all ones, the time 0.
struct SampleValues {
  uint64_t ip = UINT64_MAX;
  uint32_t pid = UINT32_MAX;
  uint32_t tid = UINT32_MAX;
  uint64_t time = 0;  // nanoseconds
  uint64_t addr = UINT64_MAX;
  uint64_t id = UINT64_MAX;
  uint64_t streamId = UINT64_MAX;
  uint32_t cpu = UINT32_MAX;
  uint32_t res = UINT32_MAX;
  uint64_t period = UINT64_MAX;
};

class ValueGetter {
 public:
  // Copies its stretch from `data` and returns its length. `data` must hold what measure()
  // promised.
  virtual uint32_t operator()(const unsigned char* data) = 0;
  virtual ~ValueGetter() = default;
  // The fewest bytes that the stretch can have.
  virtual uint32_t getMinimumSize() const = 0;
  // The length of the stretch at `data`, of which `left` bytes exist. More than `left` when the
  // stretch does not fit, so that a caller can refuse a record before anything of it is copied.
  virtual uint64_t measure(const unsigned char* data, std::size_t left) const = 0;
};

// A getter whose stretch always has the same length.
template <uint32_t SIZE>
class FixedSizeGetter : public ValueGetter {
 public:
  uint32_t getMinimumSize() const override { return SIZE; }
  uint64_t measure(const unsigned char*, std::size_t) const override { return SIZE; }
};

// One unsigned number. Borrows its destination, like every getter below.
template <typename T>
class TypedValueGetter : public FixedSizeGetter<sizeof(T)> {
 public:
  explicit TypedValueGetter(T* destination) : destination_(destination) {}
  uint32_t operator()(const unsigned char* data) override {
    std::memcpy(destination_, data, sizeof(T));
    return sizeof(T);
  }

 private:
  T* destination_;
};

// ip, pid, tid, time, id, cpu, res in one go.
class GetterWithStreamId : public FixedSizeGetter<40> {
 public:
  explicit GetterWithStreamId(SampleValues* destination) : destination_(destination) {}
  uint32_t operator()(const unsigned char* data) override;

 private:
  SampleValues* destination_;
};

// ip, pid, tid, time, cpu, res in one go.
class GetterNoStreamId : public FixedSizeGetter<32> {
 public:
  explicit GetterNoStreamId(SampleValues* destination) : destination_(destination) {}
  uint32_t operator()(const unsigned char* data) override;

 private:
  SampleValues* destination_;
};

// ip, pid, tid, time, cpu, res, period in one go.
class GetterWithPeriod : public FixedSizeGetter<40> {
 public:
  explicit GetterWithPeriod(SampleValues* destination) : destination_(destination) {}
  uint32_t operator()(const unsigned char* data) override;

 private:
  SampleValues* destination_;
};

// The counter values of PERF_SAMPLE_READ, kept as a view; their length follows the attribute's
// read_format.
class GetterReadFormat : public ValueGetter {
 public:
  GetterReadFormat(kestrel::ByteBufferViewport* destination, uint64_t readFormat);
  uint32_t operator()(const unsigned char* data) override;
  uint32_t getMinimumSize() const override { return fixedSize_; }
  uint64_t measure(const unsigned char* data, std::size_t left) const override;

 private:
  kestrel::ByteBufferViewport* destination_;
  uint32_t fixedSize_;
  uint32_t entrySize_;
  bool group_;
};

// A count of addresses, then the addresses, kept as stored: PERF_CONTEXT_* markers stay among them.
class GetterCallchain : public ValueGetter {
 public:
  explicit GetterCallchain(std::vector<uint64_t>* destination) : destination_(destination) {}
  uint32_t operator()(const unsigned char* data) override;
  uint32_t getMinimumSize() const override { return 16; }  // a chain holds at least one address
  uint64_t measure(const unsigned char* data, std::size_t left) const override;

 private:
  std::vector<uint64_t>* destination_;
};

// A 32-bit size, then so many bytes, kept as a view.
class GetterSampleRaw : public ValueGetter {
 public:
  explicit GetterSampleRaw(kestrel::ByteBufferViewport* destination) : destination_(destination) {}
  uint32_t operator()(const unsigned char* data) override;
  uint32_t getMinimumSize() const override { return 4; }
  uint64_t measure(const unsigned char* data, std::size_t left) const override;

 private:
  kestrel::ByteBufferViewport* destination_;
};

}  // namespace perfevents
