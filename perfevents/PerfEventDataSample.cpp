#include "perfevents/PerfEventDataSample.h"

#include "kestrel/log/Logger.h"
#include "perfevents/PerfAbi.h"
#include "perfevents/PerfEventAttribute.h"

namespace perfevents {

namespace {

// The layouts that `perf record` writes by default.
constexpr uint64_t LAYOUT_WITH_STREAM_ID = abi::SAMPLE_IP | abi::SAMPLE_TID | abi::SAMPLE_TIME |
                                           abi::SAMPLE_ID | abi::SAMPLE_CPU | abi::SAMPLE_RAW;
constexpr uint64_t LAYOUT_NO_STREAM_ID =
    abi::SAMPLE_IP | abi::SAMPLE_TID | abi::SAMPLE_TIME | abi::SAMPLE_CPU | abi::SAMPLE_RAW;
constexpr uint64_t LAYOUT_WITH_PERIOD = abi::SAMPLE_IP | abi::SAMPLE_TID | abi::SAMPLE_TIME |
                                        abi::SAMPLE_CPU | abi::SAMPLE_PERIOD |
                                        abi::SAMPLE_CALLCHAIN | abi::SAMPLE_RAW;

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfEventDataSample");
  return *logger;
}

}  // namespace

PerfEventDataSample::PerfEventDataSample(const PerfEventAttribute& attribute)
    : PerfEventData(attribute, "PerfEventDataSample", 0) {
  setupGetters();
}

std::optional<std::size_t> PerfEventDataSample::timeOffset(const PerfEventAttribute& attribute) {
  if ((attribute.sampleType() & abi::SAMPLE_TIME) == 0) {
    return std::nullopt;
  }
  std::size_t offset = 0;
  for (const uint64_t before : {abi::SAMPLE_IDENTIFIER, abi::SAMPLE_IP, abi::SAMPLE_TID}) {
    if ((attribute.sampleType() & before) != 0) {
      offset += sizeof(uint64_t);
    }
  }
  return offset;
}

// The texts below are kept word for word, "and but" and the ID that the third layout does not carry
// included: readers of old logs match them.
void PerfEventDataSample::setupGetters() {
  switch (attribute().sampleType()) {
    case LAYOUT_WITH_STREAM_ID:
      _log().debugf("PERF_RECORD_SAMPLE format is common (to perf record) and includes the ID.");
      _append<GetterWithStreamId>(&values_);
      _append<GetterSampleRaw>(&rawData_);
      break;
    case LAYOUT_NO_STREAM_ID:
      _log().debugf("PERF_RECORD_SAMPLE format is common (to perf record) and but excludes ID.");
      _append<GetterNoStreamId>(&values_);
      _append<GetterSampleRaw>(&rawData_);
      break;
    case LAYOUT_WITH_PERIOD:
      _log().debugf(
          "PERF_RECORD_SAMPLE format is common (to perf record) and includes ID and CALLCHAIN.");
      _append<GetterWithPeriod>(&values_);
      _append<GetterCallchain>(&callchain_);
      _append<GetterSampleRaw>(&rawData_);
      break;
    default:
      _log().infof(
          "PERF_RECORD_SAMPLE format is not a common format.  Will use dynamically created parser.");
      buildGetters();
      break;
  }
  for (const auto& getter : getters_) {
    _requireMoreBytes(getter->getMinimumSize());
  }
}

void PerfEventDataSample::buildGetters() {
  const uint64_t sampleType = attribute().sampleType();
  const auto has = [sampleType](uint64_t bit) { return (sampleType & bit) != 0; };
  if (has(abi::SAMPLE_IDENTIFIER)) {
    _append<TypedValueGetter<uint64_t>>(&values_.id);
  }
  if (has(abi::SAMPLE_IP)) {
    _append<TypedValueGetter<uint64_t>>(&values_.ip);
  }
  if (has(abi::SAMPLE_TID)) {
    _append<TypedValueGetter<uint32_t>>(&values_.pid);
    _append<TypedValueGetter<uint32_t>>(&values_.tid);
  }
  if (has(abi::SAMPLE_TIME)) {
    _append<TypedValueGetter<uint64_t>>(&values_.time);
  }
  if (has(abi::SAMPLE_ADDR)) {
    _append<TypedValueGetter<uint64_t>>(&values_.addr);
  }
  if (has(abi::SAMPLE_ID)) {
    _append<TypedValueGetter<uint64_t>>(&values_.id);
  }
  if (has(abi::SAMPLE_STREAM_ID)) {
    _append<TypedValueGetter<uint64_t>>(&values_.streamId);
  }
  if (has(abi::SAMPLE_CPU)) {
    _append<TypedValueGetter<uint32_t>>(&values_.cpu);
    _append<TypedValueGetter<uint32_t>>(&values_.res);
  }
  if (has(abi::SAMPLE_PERIOD)) {
    _append<TypedValueGetter<uint64_t>>(&values_.period);
  }
  if (has(abi::SAMPLE_READ)) {
    _append<GetterReadFormat>(&readData_, attribute().readFormat());
  }
  if (has(abi::SAMPLE_CALLCHAIN)) {
    _append<GetterCallchain>(&callchain_);
  }
  if (has(abi::SAMPLE_RAW)) {
    _append<GetterSampleRaw>(&rawData_);
  }
  _warnOfUnreadParts();
}

// These parts stand after everything that is read, so that leaving them disturbs nothing.
void PerfEventDataSample::_warnOfUnreadParts() const {
  const uint64_t sampleType = attribute().sampleType();
  const uint32_t config = attribute().config();  // a trace point's id
  if ((sampleType & abi::SAMPLE_BRANCH_STACK) != 0) {
    _log().warnf("Branch stack data specified for trace point %u. It will be ignored.", config);
  }
  if ((sampleType & abi::SAMPLE_REGS_USER) != 0) {
    _log().warnf("User register data specified for trace point %u. It will be ignored.", config);
  }
  if ((sampleType & abi::SAMPLE_STACK_USER) != 0) {
    _log().warnf("User stack data specified for trace point %u. It will be ignored.", config);
  }
  if ((sampleType & abi::SAMPLE_WEIGHT) != 0) {
    _log().warnf("Weight data specified for trace point %u. It will be ignored.", config);
  }
  if ((sampleType & abi::SAMPLE_DATA_SRC) != 0) {
    _log().warnf("Data source information specified for trace point %u. It will be ignored.",
                 config);
  }
}

// Measures the whole record before it copies anything: a record that is refused leaves the fields
// as they were.
bool PerfEventDataSample::parseEventData(const kestrel::ByteBufferViewport& body) {
  const unsigned char* at = body.data();
  std::size_t left = body.size();
  for (const auto& getter : getters_) {
    const uint64_t size = getter->measure(at, left);
    if (size > left) {
      return false;
    }
    at += size;
    left -= static_cast<std::size_t>(size);
  }
  at = body.data();
  for (const auto& getter : getters_) {
    at += (*getter)(at);
  }
  return true;
}

}  // namespace perfevents
