#include "perfevents/ValueGetter.h"

#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

namespace {

// Counts are 64 bits wide in the record; their low 32 bits count.
uint32_t _countAt(const unsigned char* data, std::size_t left) {
  return static_cast<uint32_t>(RecordCursor(data, left).take<uint64_t>());
}

// A view shows bytes that others may write through; those of a record are only read.
void _show(kestrel::ByteBufferViewport* view, const unsigned char* data, uint32_t size) {
  view->initialize(const_cast<unsigned char*>(data), size, size);
}

void _takeLocation(RecordCursor& in, SampleValues* values) {
  values->ip = in.take<uint64_t>();
  values->pid = in.take<uint32_t>();
  values->tid = in.take<uint32_t>();
  values->time = in.take<uint64_t>();
}

void _takeCpu(RecordCursor& in, SampleValues* values) {
  values->cpu = in.take<uint32_t>();
  values->res = in.take<uint32_t>();
}

}  // namespace

uint32_t GetterWithStreamId::operator()(const unsigned char* data) {
  RecordCursor in(data, getMinimumSize());
  _takeLocation(in, destination_);
  destination_->id = in.take<uint64_t>();
  _takeCpu(in, destination_);
  return getMinimumSize();
}

uint32_t GetterNoStreamId::operator()(const unsigned char* data) {
  RecordCursor in(data, getMinimumSize());
  _takeLocation(in, destination_);
  _takeCpu(in, destination_);
  return getMinimumSize();
}

uint32_t GetterWithPeriod::operator()(const unsigned char* data) {
  RecordCursor in(data, getMinimumSize());
  _takeLocation(in, destination_);
  _takeCpu(in, destination_);
  destination_->period = in.take<uint64_t>();
  return getMinimumSize();
}

GetterReadFormat::GetterReadFormat(kestrel::ByteBufferViewport* destination, uint64_t readFormat)
    : destination_(destination),
      fixedSize_(8),
      entrySize_(0),
      group_((readFormat & abi::FORMAT_GROUP) != 0) {
  const bool hasId = (readFormat & abi::FORMAT_ID) != 0;
  if ((readFormat & abi::FORMAT_TOTAL_TIME_ENABLED) != 0) {
    fixedSize_ += 8;
  }
  if ((readFormat & abi::FORMAT_TOTAL_TIME_RUNNING) != 0) {
    fixedSize_ += 8;
  }
  if (group_) {
    entrySize_ = hasId ? 16 : 8;
  } else if (hasId) {
    fixedSize_ += 8;
  }
}

uint64_t GetterReadFormat::measure(const unsigned char* data, std::size_t left) const {
  return group_ ? fixedSize_ + uint64_t{_countAt(data, left)} * entrySize_ : fixedSize_;
}

uint32_t GetterReadFormat::operator()(const unsigned char* data) {
  const auto size = static_cast<uint32_t>(measure(data, sizeof(uint64_t)));
  _show(destination_, data, size);
  return size;
}

uint64_t GetterCallchain::measure(const unsigned char* data, std::size_t left) const {
  return sizeof(uint64_t) + uint64_t{_countAt(data, left)} * sizeof(uint64_t);
}

uint32_t GetterCallchain::operator()(const unsigned char* data) {
  const uint32_t count = _countAt(data, sizeof(uint64_t));
  destination_->resize(count);  // measured against the record before: at most 8,190 addresses
  if (count > 0) {
    std::memcpy(destination_->data(), data + sizeof(uint64_t), count * sizeof(uint64_t));
  }
  return static_cast<uint32_t>(sizeof(uint64_t) + count * sizeof(uint64_t));
}

uint64_t GetterSampleRaw::measure(const unsigned char* data, std::size_t left) const {
  return sizeof(uint32_t) + uint64_t{RecordCursor(data, left).take<uint32_t>()};
}

uint32_t GetterSampleRaw::operator()(const unsigned char* data) {
  const auto size = static_cast<uint32_t>(measure(data, sizeof(uint32_t)) - sizeof(uint32_t));
  _show(destination_, data + sizeof(uint32_t), size);
  return static_cast<uint32_t>(sizeof(uint32_t)) + size;
}

}  // namespace perfevents
