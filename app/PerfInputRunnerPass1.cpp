#include "app/PerfInputRunnerPass1.h"

#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataMmap.h"
#include "perfevents/PerfRecordFileReader.h"

using perfevents::PerfEventData;

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfInputRunnerPass1");
  return *logger;
}

}  // namespace

PerfInputRunnerPass1::PerfInputRunnerPass1(std::ifstream* input, kestrel::TimeConverter*,
                                           kestrel::JsomWriter*) {
  _log();
  try {
    perfevents::PerfRecordFileReader reader(*input, true);
    reader.filterSamples(perfevents::SampleFilter::none());
    reader.parseEvents(*this);
  } catch (const std::ios_base::failure& failure) {
    _log().debugf("%p An I/O exception occurred: %s", static_cast<void*>(this), failure.what());
  }
}

void PerfInputRunnerPass1::onEventData(const PerfEventData& record) {
  switch (record.getType()) {
    case PerfEventData::Type::Comm:
      kestrel::Singleton<ThreadStore>::Instance()->add(
          static_cast<const perfevents::PerfEventDataComm&>(record));
      break;
    case PerfEventData::Type::Mmap:
      kestrel::Singleton<MMapStore>::Instance()->add(
          static_cast<const perfevents::PerfEventDataMmap&>(record));
      break;
    default:
      break;
  }
}
