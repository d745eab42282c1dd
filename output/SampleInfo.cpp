#include "output/SampleInfo.h"

#include <algorithm>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "perfevents/PerfEventDataSample.h"

namespace {

constexpr double NANOSECONDS_PER_SECOND = 1e9;

}  // namespace

void SampleInfo::copy(const perfevents::PerfEventDataSample& record) {
  backtrace.clear();
  if (record.ip() == UINT64_MAX) {
    static_cast<SampleFacts&>(*this) = {};
    return;
  }
  time = static_cast<double>(record.time()) / NANOSECONDS_PER_SECOND;
  ip = record.ip();
  pid = record.getPid();
  tid = record.getTid();
  cpu = static_cast<uint32_t>(record.getCpu());
  const std::vector<uint64_t>& chain = record.callchain();
  if (!chain.empty()) {
    const std::size_t most = kestrel::Singleton<PerfSettings>::Instance()->maxBackTrace;
    const auto kept = static_cast<std::ptrdiff_t>(std::min(chain.size() - 1, most));
    backtrace.assign(chain.begin() + 1, chain.begin() + 1 + kept);
  }
}
