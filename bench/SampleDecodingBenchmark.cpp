// Samples from bytes to fields: the three layouts that perf record has had by default, and one that
// is decoded field by field as any other.
#include <cstddef>
#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

#include "kestrel/log/Logger.h"
#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfEventDataSample.h"
#include "tests/support/BodyView.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

// A sample of the layout `sampleType` whose call chain has `callers` addresses.
void decodeSample(benchmark::State& state, uint64_t sampleType, std::size_t callers) {
  kestrel::Logger::setMasterLogLevel(*kestrel::LogLevel::LVL_WARN);  // no lines among the figures
  const perfevents::PerfEventAttribute attribute(
      BodyView(Attr().sampleType(sampleType).structure()), {});
  perfevents::PerfEventDataSample sample(attribute);
  SampleFields fields{.ip = 0x7f12'3456'7890, .pid = 100, .tid = 101, .time = 1'000'000'000};
  fields.callchain.assign(callers, 0x7f12'3456'7890);
  const BodyView body(sampleBody(sampleType, fields));
  for (auto _ : state) {
    bool isParsed = sample.parse(body, 0);
    benchmark::DoNotOptimize(isParsed);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(decodeSample, 0x4C7, 0x4C7, 0);
BENCHMARK_CAPTURE(decodeSample, 0x487, 0x487, 0);
BENCHMARK_CAPTURE(decodeSample, 0x5A7, 0x5A7, 16);
BENCHMARK_CAPTURE(decodeSample, dynamic, 0x1A7, 16);  // what perf record -a -g writes today

}  // namespace
