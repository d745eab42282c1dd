// Symbol lists from text to a table of functions, as the lister and the kernel print them.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

#include "kestrel/Singleton.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolListProcessor.h"
#include "symbols/SymbolTable.h"
#include "tests/support/TestAccess.h"

namespace {

constexpr int64_t LINES = 100'000;
constexpr std::size_t BLOCK = 65536;  // bytes handed over at a time

// Ascending addresses, each followed by ` type name_number` and `source`.
std::string makeList(const std::string& typeAndName, const std::string& source) {
  std::string list;
  for (int64_t i = 0; i < LINES; ++i) {
    char address[17];
    std::snprintf(address, sizeof address, "%016llx",
                  static_cast<unsigned long long>(0x400000 + i * 48));
    list.append(address).append(typeAndName).append(std::to_string(i)).append(source).append("\n");
  }
  return list;
}

void parseList(benchmark::State& state, const char* typeAndName, const char* source) {
  const std::string list = makeList(typeAndName, source);
  for (auto _ : state) {
    kestrel::TestAccess::reset<SourceFileStore>();  // else it would grow with every iteration
    SymbolTable table;
    SymbolListProcessor processor(&table);
    for (std::size_t at = 0; at < list.size(); at += BLOCK) {
      processor.processBuffer(list.data() + at,
                              static_cast<int>(std::min(BLOCK, list.size() - at)));
    }
    processor.processEOF();
    benchmark::DoNotOptimize(&table);
  }
  state.SetItemsProcessed(state.iterations() * LINES);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(list.size()));
}

BENCHMARK_CAPTURE(parseList, kernel, " t some_kernel_function_", "")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseList, data, " d some_kernel_variable_", "")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseList, program, " T space::Class::function(int, char const*) const::id",
                  "\t/src/file.cpp:12")
    ->Unit(benchmark::kMillisecond);

}  // namespace
