#include "perfevents/PerfEventAttribute.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "kestrel/log/Logger.h"
#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfEventAttribute");
  return *logger;
}

bool _isSet(uint64_t flags, abi::AttrFlag bit) { return (flags >> bit & 1U) != 0; }

}  // namespace

PerfEventAttribute::PerfEventAttribute() : type_(abi::TYPE_MAX) { _log(); }

PerfEventAttribute::PerfEventAttribute(const kestrel::ByteBufferViewport& data,
                                       const std::vector<uint64_t>& ids)
    : PerfEventAttribute() {
  if (!initialize(data, ids)) {
    throw std::invalid_argument("Data is not of sufficient size to hold a full perf_event_attr.");
  }
}

bool PerfEventAttribute::initialize(const kestrel::ByteBufferViewport& data,
                                    const std::vector<uint64_t>& ids) {
  if (data.size() < abi::ATTR_SIZE_VER0) {
    _log().tracef("Perf event attribute data not large enough. Size is %u, expected at least %u",
                  data.size(), abi::ATTR_SIZE_VER0);
    return false;
  }
  ids_ = ids;
  raw_.initialize(data.data(), data.size(), data.size());
  const uint64_t flags = RecordCursor::at<uint64_t>(raw_, abi::ATTR_FLAGS);
  _decodeVersion0(flags);
  if (data.size() < abi::ATTR_SIZE_VER1) {
    return true;
  }
  _decodeVersion1(flags);
  if (data.size() < abi::ATTR_SIZE_VER2) {
    return true;
  }
  branchSampleType_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_BRANCH_SAMPLE_TYPE);
  if (data.size() < abi::ATTR_SIZE_VER3) {
    return true;
  }
  _decodeVersion3(flags);
  return true;
}

void PerfEventAttribute::_decodeVersion0(uint64_t flags) {
  type_ = RecordCursor::at<uint32_t>(raw_, abi::ATTR_TYPE);
  size_ = RecordCursor::at<uint32_t>(raw_, abi::ATTR_SIZE);
  config_ = static_cast<uint32_t>(RecordCursor::at<uint64_t>(raw_, abi::ATTR_CONFIG));
  samplePeriod_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_SAMPLE_PERIOD);
  sampleType_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_SAMPLE_TYPE);
  readFormat_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_READ_FORMAT);
  wakeupEvents_ = RecordCursor::at<uint32_t>(raw_, abi::ATTR_WAKEUP_EVENTS);
  bpType_ = RecordCursor::at<uint32_t>(raw_, abi::ATTR_BP_TYPE);
  bpAddr_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_BP_ADDR);
  disabled_ = _isSet(flags, abi::FLAG_DISABLED);
  inherit_ = _isSet(flags, abi::FLAG_INHERIT);
  pinned_ = _isSet(flags, abi::FLAG_PINNED);
  exclusive_ = _isSet(flags, abi::FLAG_EXCLUSIVE);
  excludeUser_ = _isSet(flags, abi::FLAG_EXCLUDE_USER);
  excludeKernel_ = _isSet(flags, abi::FLAG_EXCLUDE_KERNEL);
  excludeHv_ = _isSet(flags, abi::FLAG_EXCLUDE_HV);
  excludeIdle_ = _isSet(flags, abi::FLAG_EXCLUDE_IDLE);
  mmap_ = _isSet(flags, abi::FLAG_MMAP);
  comm_ = _isSet(flags, abi::FLAG_COMM);
  freq_ = _isSet(flags, abi::FLAG_FREQ);
  inheritStat_ = _isSet(flags, abi::FLAG_INHERIT_STAT);
  enableOnExec_ = _isSet(flags, abi::FLAG_ENABLE_ON_EXEC);
  task_ = _isSet(flags, abi::FLAG_TASK);
  watermark_ = _isSet(flags, abi::FLAG_WATERMARK);
  preciseIp_ = static_cast<uint32_t>(flags >> abi::FLAG_PRECISE_IP & 3U);
  mmapData_ = _isSet(flags, abi::FLAG_MMAP_DATA);
  sampleIdAll_ = _isSet(flags, abi::FLAG_SAMPLE_ID_ALL);
}

void PerfEventAttribute::_decodeVersion1(uint64_t flags) {
  excludeHost_ = _isSet(flags, abi::FLAG_EXCLUDE_HOST);
  excludeGuest_ = _isSet(flags, abi::FLAG_EXCLUDE_GUEST);
  bpLen_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_BP_LEN);
}

void PerfEventAttribute::_decodeVersion3(uint64_t flags) {
  excludeCallchainKernel_ = _isSet(flags, abi::FLAG_EXCLUDE_CALLCHAIN_KERNEL);
  excludeCallchainUser_ = _isSet(flags, abi::FLAG_EXCLUDE_CALLCHAIN_USER);
  sampleRegsUser_ = RecordCursor::at<uint64_t>(raw_, abi::ATTR_SAMPLE_REGS_USER);
  sampleStackUser_ = RecordCursor::at<uint32_t>(raw_, abi::ATTR_SAMPLE_STACK_USER);
}

bool PerfEventAttribute::isAssociatedWithId(uint64_t id) const {
  return std::find(ids_.begin(), ids_.end(), id) != ids_.end();
}

}  // namespace perfevents
