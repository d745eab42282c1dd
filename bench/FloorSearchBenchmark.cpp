// The store of ranges: the search for an address, and the filling in either direction.
#include <array>
#include <cstdint>
#include <random>

#include <benchmark/benchmark.h>

#include "model/RangedItemStore.h"

namespace {

constexpr uint64_t PAGE = 0x1000;

void add(RangedItemStore& store, uint64_t start) {
  auto* const item = new RangedItem;
  item->start = start;
  item->size = PAGE;
  store.addRangedItem(item);
}

// Arguments: how many items, and how many of them share each start.
void findItem(benchmark::State& state) {
  const auto items = static_cast<uint64_t>(state.range(0));
  const auto equalStarts = static_cast<uint64_t>(state.range(1));
  RangedItemStore store(true);
  for (uint64_t i = 0; i < items; ++i) {
    add(store, i / equalStarts * PAGE);
  }
  // More than a branch predictor learns by heart.
  std::array<uint64_t, 16384> addresses{};
  std::mt19937_64 random(1);
  for (uint64_t& address : addresses) {
    address = random() % (items / equalStarts * PAGE);
  }
  std::size_t next = 0;
  for (auto _ : state) {
    RangedItem* item = store.findRangedItem(addresses[next++ % addresses.size()]);
    benchmark::DoNotOptimize(item);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(findItem)->ArgNames({"items", "equalStarts"})->ArgsProduct({{16, 1024, 65536}, {1, 16}});

// Items whose starts come in ascending or descending order.
void fillStore(benchmark::State& state, bool isAscending) {
  const auto items = static_cast<uint64_t>(state.range(0));
  for (auto _ : state) {
    RangedItemStore store(true);
    for (uint64_t i = 0; i < items; ++i) {
      add(store, (isAscending ? i : items - i) * PAGE);
    }
    benchmark::DoNotOptimize(&store);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(fillStore, ascending, true)->Arg(8)->Arg(1000)->Arg(100'000);
BENCHMARK_CAPTURE(fillStore, descending, false)->Arg(8)->Arg(1000)->Arg(100'000);

}  // namespace
