// PERF_RECORD_SAMPLE: one sample. Its layout follows the attribute's sample_type, which the
// constructor compiles into a list of getters once; parsing a record is a walk down that list.
// Records whose inner counts point past their end are refused. Log: "PerfEventDataSample".
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "perfevents/PerfEventData.h"
#include "perfevents/PerfEventDataSampleAncillary.h"
#include "perfevents/ValueGetter.h"

namespace perfevents {

class PerfEventDataSample : public PerfEventData, public PerfEventDataSampleAncillary {
 public:
  // Logs which kind of layout was found, and one WARN for each part of it that is left unread.
  explicit PerfEventDataSample(const PerfEventAttribute& attribute);

  // Where the time stands in the body of a sample of this layout; nothing if there is none.
  static std::optional<std::size_t> timeOffset(const PerfEventAttribute& attribute);

  bool parseEventData(const kestrel::ByteBufferViewport& body) override;
  Type getType() const override { return Type::Sample; }
  uint32_t getPid() const override { return values_.pid; }
  uint32_t getTid() const override { return values_.tid; }
  uint64_t getCpu() const override { return values_.cpu; }
  uint64_t getResource() const override { return values_.res; }

  uint64_t ip() const { return values_.ip; }
  uint64_t time() const { return values_.time; }  // nanoseconds on the recording's clock
  uint64_t addr() const { return values_.addr; }
  uint64_t id() const { return values_.id; }
  uint64_t streamId() const { return values_.streamId; }
  uint64_t period() const { return values_.period; }
  // The two views point into the reader's buffer and are valid during the listener call only.
  const kestrel::ByteBufferViewport& readData() const { return readData_; }
  const kestrel::ByteBufferViewport& rawData() const { return rawData_; }
  // The sampled location first, PERF_CONTEXT_* markers included.
  const std::vector<uint64_t>& callchain() const { return callchain_; }

  // Chooses the getters; called by the constructor.
  void setupGetters();
  // The getters of a layout that is none of the common three, bit by bit in the kernel's order of
  // the fields.
  void buildGetters();

 private:
  template <typename Getter, typename... Arguments>
  void _append(Arguments... arguments) {
    getters_.push_back(std::make_unique<Getter>(arguments...));
  }
  void _warnOfUnreadParts() const;

  SampleValues values_;
  kestrel::ByteBufferViewport readData_;
  std::vector<uint64_t> callchain_;
  kestrel::ByteBufferViewport rawData_;
  std::vector<std::unique_ptr<ValueGetter>> getters_;  // in record order
};

}  // namespace perfevents
