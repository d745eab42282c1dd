#include "app/PerfInputRunnerPass2.h"

#include "kestrel/TimeConverter.h"
#include "kestrel/log/Logger.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfRecordFileReader.h"

using perfevents::PerfEventData;

namespace {

// The time stamps of a recording are nanoseconds, those of a TimeConverter seconds.
double _secondsOf(uint64_t nanoseconds) {
  constexpr double NANOSECONDS_PER_SECOND = 1e9;
  return static_cast<double>(nanoseconds) / NANOSECONDS_PER_SECOND;
}

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfInputRunnerPass2");
  return *logger;
}

}  // namespace

PerfInputRunnerPass2::PerfInputRunnerPass2(std::ifstream* input, kestrel::TimeConverter* converter,
                                           kestrel::JsomWriter* writer, SampleWriter::Mode mode)
    : sampleWriter_(mode), converter_(converter), writer_(writer) {
  _log();
  sampleWriter_.writeHeader(*writer_);
  try {
    perfevents::PerfRecordFileReader reader(*input, true);
    if (converter_->hasWindow()) {
      reader.filterSamples(perfevents::SampleFilter::byTime(
          [this](uint64_t time) { return converter_->isInside(_secondsOf(time)); }));
    }
    reader.parseEvents(*this);
  } catch (const std::ios_base::failure& failure) {
    _log().debugf("%p An I/O exception occurred: %s", static_cast<void*>(this), failure.what());
    if (!tableClosed_) {  // the walk never began, and nobody else closes the table
      onClose();
    }
  }
}

void PerfInputRunnerPass2::onEventData(const PerfEventData& record) {
  if (record.getType() != PerfEventData::Type::Sample) {
    return;
  }
  const auto& sample = static_cast<const perfevents::PerfEventDataSample&>(record);
  const double dataTime = _secondsOf(sample.time());
  double clockTime = 0.0;
  if (!converter_->nextTimestamp(dataTime, clockTime)) {
    return;
  }
  sample_.copy(sample);
  if (sample_.ip == 0) {
    return;
  }
  sample_.time = clockTime;
  sampleWriter_.writeSample(*writer_, sample_);
}

void PerfInputRunnerPass2::onClose() {
  sampleWriter_.writeFooter(*writer_);
  tableClosed_ = true;
}
