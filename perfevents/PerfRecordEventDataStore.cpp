#include "perfevents/PerfRecordEventDataStore.h"

#include <stdexcept>

#include "kestrel/log/Logger.h"
#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataLost.h"
#include "perfevents/PerfEventDataMmap.h"
#include "perfevents/PerfEventDataRead.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfEventDataTask.h"
#include "perfevents/PerfEventDataThrottle.h"
#include "perfevents/PerfEventDataUnknown.h"

namespace perfevents {

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfRecordEventDataStore");
  return *logger;
}

}  // namespace

PerfRecordEventDataStore::PerfRecordEventDataStore(
    const boost::ptr_vector<PerfEventAttribute>& attributes)
    : attributes_(attributes) {
  _log();
  if (attributes_.empty()) {
    throw std::invalid_argument(
        "At least one PerfEventAttribute is required to construct PerfRecordEventDataStore");
  }
  buildPerfEventDataParsers();
}

bool PerfRecordEventDataStore::areAtributesSimilar(const PerfEventAttribute& one,
                                                   const PerfEventAttribute& other) {
  return one.size() == other.size() && one.sampleType() == other.sampleType() &&
         one.sampleIdAll() == other.sampleIdAll() && one.readFormat() == other.readFormat();
}

void PerfRecordEventDataStore::buildPerfEventDataParsers() {
  _warnOfDifferentLayouts();
  const PerfEventAttribute& layout = attributes_.front();
  parsers_.push_back(new PerfEventDataUnknown(layout));
  parsers_.push_back(new PerfEventDataMmap(layout));
  parsers_.push_back(new PerfEventDataLost(layout));
  parsers_.push_back(new PerfEventDataComm(layout));
  parsers_.push_back(new PerfEventDataExit(layout));
  parsers_.push_back(new PerfEventDataThrottle(layout));
  parsers_.push_back(new PerfEventDataUnthrottle(layout));
  parsers_.push_back(new PerfEventDataFork(layout));
  parsers_.push_back(new PerfEventDataRead(layout));
  parsers_.push_back(new PerfEventDataSample(layout));
}

void PerfRecordEventDataStore::_warnOfDifferentLayouts() const {
  for (std::size_t i = 0; i + 1 < attributes_.size(); ++i) {
    if (!areAtributesSimilar(attributes_[i], attributes_[i + 1])) {
      _log().warnf(
          "Attributes stored in perf record file will result in event data of different layouts.  This may cause parsing failure.");
      return;
    }
  }
}

PerfEventData* PerfRecordEventDataStore::getEventData(PerfEventData::Type type,
                                                      const kestrel::ByteBufferViewport& body,
                                                      PerfEventData::MiscFlags misc) {
  if (type < PerfEventData::Type::Mmap || type > PerfEventData::Type::Sample) {
    return nullptr;
  }
  PerfEventData& parser = parsers_[static_cast<std::size_t>(type)];
  return parser.parse(body, misc) ? &parser : nullptr;
}

}  // namespace perfevents
