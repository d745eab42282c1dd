// Fuzz target: a recording in memory goes through the reader, the record store, the first pass and
// what the second one asks the stores for, but no text is written: that is what takes the time of a
// conversion, and the target `conversion` does it. The input is the recording; PerfFileChoices.h
// says what else it chooses.
#include <ios>
#include <stdexcept>

#include "app/PerfInputRunnerPass1.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/TimeConverter.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "output/SampleInfo.h"
#include "perfevents/PerfEventDataListener.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfRecordFileReader.h"
#include "perfevents/SampleFilter.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/FreshProcess.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryInput.h"
#include "tests/fuzz/PerfFileChoices.h"

using kestrel::Singleton;

namespace {

double secondsOf(uint64_t nanoseconds) { return static_cast<double>(nanoseconds) / 1e9; }

// Looks up what the row of a sample would refer to.
class SampleLookup : public perfevents::PerfEventDataListener {
 public:
  explicit SampleLookup(kestrel::TimeConverter& times) : times_(times) {}

  void onEventData(const perfevents::PerfEventData& record) override {
    if (record.getType() != perfevents::PerfEventData::Type::Sample) {
      return;
    }
    const auto& sample = static_cast<const perfevents::PerfEventDataSample&>(record);
    double clockTime = 0.0;
    if (!times_.nextTimestamp(secondsOf(sample.time()), clockTime)) {
      return;
    }
    sample_.copy(sample);
    if (sample_.ip == 0) {
      return;
    }
    const ThreadInfo* const thread = threads_.getThread(sample_.pid, sample_.tid);
    require(thread != nullptr, "a sample has a thread");
    _lookUp(sample_.ip);
    for (const uint64_t caller : sample_.backtrace) {
      _lookUp(caller);
    }
  }
  void onClose() override {}

 private:
  void _lookUp(uint64_t address) {
    const MMapInfo* const known = maps_.get(sample_.pid, address);
    require(known == nullptr || known->contains(address) || _isKernelOrStack(address),
            "a map that is found holds the address");
    const MMapInfo* const map = maps_.getFake(sample_.pid, address, "");
    require(map != nullptr, "every address has a map");
    require(known == nullptr || known == map, "no map is made up where there is one");
  }

  // Ranges of the settings, which win over what is mapped.
  bool _isKernelOrStack(uint64_t address) const {
    return (address >= settings_.kernelStartAddress && address <= settings_.kernelEndAddress) ||
           (address >= settings_.stackStartAddress && address <= settings_.stackEndAddress);
  }

  kestrel::TimeConverter& times_;
  const PerfSettings& settings_ = *Singleton<PerfSettings>::Instance();
  ThreadStore& threads_ = *Singleton<ThreadStore>::Instance();
  MMapStore& maps_ = *Singleton<MMapStore>::Instance();
  SampleInfo sample_;
};

void lookUpSamples(std::ifstream& input, kestrel::TimeConverter& times) {
  perfevents::PerfRecordFileReader reader(input, true);
  if (times.hasWindow()) {
    reader.filterSamples(perfevents::SampleFilter::byTime(
        [&times](uint64_t time) { return times.isInside(secondsOf(time)); }));
  }
  SampleLookup lookup(times);
  reader.parseEvents(lookup);
}

void readTwice(const uint8_t* data, std::size_t size) {
  static MemoryInput recording;
  kestrel::TimeConverter times = chooseTimes(choicesIn(data, size));
  try {
    const PerfInputRunnerPass1 pass1(&recording.open(data, size), &times, nullptr);
    lookUpSamples(recording.rewind(), times);
  } catch (const std::ios_base::failure&) {
    // cannot be read
  } catch (const std::invalid_argument&) {
    // has no attributes
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  startAfreshForTest();
  chooseSettings(choicesIn(data, size));
  const AllocationMeter meter;
  readTwice(data, size);
  requireBoundedMemory(meter, size);
  startAfreshForTest();  // what is left over would be looked for as a leak
  return 0;
}
