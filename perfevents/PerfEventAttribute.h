// The decoded form of one perf_event_attr of the attributes section, with the stream ids that the
// file gives it. Fields bear the kernel's names; see include/uapi/linux/perf_event.h for their
// meaning. A value class. Log: "PerfEventAttribute".
#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "kestrel/ByteBuffer.h"

namespace perfevents {

class PerfEventAttribute {
 public:
  // No type, every number zero, every flag false, no ids.
  PerfEventAttribute();
  // Decodes `data`. Throws std::invalid_argument when it is too short for the oldest structure (64
  // bytes).
  PerfEventAttribute(const kestrel::ByteBufferViewport& data, const std::vector<uint64_t>& ids);

  // Decodes the fields that a structure of `data.size()` bytes has: the stored `size` field decides
  // nothing. A structure between two revisions counts as the older one. False, changing nothing,
  // below 64 bytes.
  bool initialize(const kestrel::ByteBufferViewport& data, const std::vector<uint64_t>& ids);

  bool isAssociatedWithId(uint64_t id) const;

  const std::vector<uint64_t>& ids() const { return ids_; }
  void ids(std::vector<uint64_t> ids) { ids_ = std::move(ids); }
  // All stored bytes, also those that are not decoded.
  const kestrel::ByteBuffer& raw() const { return raw_; }

  uint32_t type() const { return type_; }
  uint32_t size() const { return size_; }
  // The low half: the upper half is not kept, deliberately.
  uint32_t config() const { return config_; }
  uint64_t samplePeriod() const { return samplePeriod_; }  // or the frequency, when freq()
  bool freq() const { return freq_; }
  uint64_t sampleType() const { return sampleType_; }
  uint64_t readFormat() const { return readFormat_; }
  bool disabled() const { return disabled_; }
  bool inherit() const { return inherit_; }
  bool inheritStat() const { return inheritStat_; }
  bool pinned() const { return pinned_; }
  bool exclusive() const { return exclusive_; }
  bool excludeUser() const { return excludeUser_; }
  bool excludeKernel() const { return excludeKernel_; }
  bool excludeHv() const { return excludeHv_; }
  bool excludeIdle() const { return excludeIdle_; }
  bool mmap() const { return mmap_; }
  bool mmapData() const { return mmapData_; }
  bool comm() const { return comm_; }
  bool enableOnExec() const { return enableOnExec_; }
  bool task() const { return task_; }
  // Or the watermark in bytes, when watermark().
  uint32_t wakeupEvents() const { return wakeupEvents_; }
  bool watermark() const { return watermark_; }
  uint32_t preciseIp() const { return preciseIp_; }  // 0 to 3
  bool sampleIdAll() const { return sampleIdAll_; }
  uint32_t bpType() const { return bpType_; }
  uint64_t bpAddr() const { return bpAddr_; }
  // From a structure of 72 bytes on:
  bool excludeHost() const { return excludeHost_; }
  bool excludeGuest() const { return excludeGuest_; }
  uint64_t bpLen() const { return bpLen_; }
  // From 80 bytes on:
  uint64_t branchSampleType() const { return branchSampleType_; }
  // From 96 bytes on:
  bool excludeCallchainKernel() const { return excludeCallchainKernel_; }
  bool excludeCallchainUser() const { return excludeCallchainUser_; }
  uint64_t sampleRegsUser() const { return sampleRegsUser_; }
  uint32_t sampleStackUser() const { return sampleStackUser_; }

 private:
  void _decodeVersion0(uint64_t flags);
  void _decodeVersion1(uint64_t flags);
  void _decodeVersion3(uint64_t flags);

  std::vector<uint64_t> ids_;
  kestrel::ByteBuffer raw_;
  uint32_t type_;
  uint32_t size_ = 0;
  uint32_t config_ = 0;
  uint64_t samplePeriod_ = 0;
  bool freq_ = false;
  uint64_t sampleType_ = 0;
  uint64_t readFormat_ = 0;
  bool disabled_ = false;
  bool inherit_ = false;
  bool inheritStat_ = false;
  bool pinned_ = false;
  bool exclusive_ = false;
  bool excludeUser_ = false;
  bool excludeKernel_ = false;
  bool excludeHv_ = false;
  bool excludeIdle_ = false;
  bool mmap_ = false;
  bool mmapData_ = false;
  bool comm_ = false;
  bool enableOnExec_ = false;
  bool task_ = false;
  uint32_t wakeupEvents_ = 0;
  bool watermark_ = false;
  uint32_t preciseIp_ = 0;
  bool sampleIdAll_ = false;
  bool excludeHost_ = false;
  bool excludeGuest_ = false;
  uint32_t bpType_ = 0;
  uint64_t bpAddr_ = 0;
  uint64_t bpLen_ = 0;
  bool excludeCallchainKernel_ = false;
  bool excludeCallchainUser_ = false;
  uint64_t branchSampleType_ = 0;
  uint64_t sampleRegsUser_ = 0;
  uint32_t sampleStackUser_ = 0;
};

// A readable dump for diagnosis, a line a field; the conversion never prints it.
std::ostream& operator<<(std::ostream& out, const PerfEventAttribute& attribute);

}  // namespace perfevents
