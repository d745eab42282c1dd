// The writer: what a value of each kind costs, without the stream behind it.
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>

#include <benchmark/benchmark.h>

#include "kestrel/json/JsomWriter.h"

namespace {

// Takes all and keeps nothing.
class NoFile : public std::streambuf {
 protected:
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    benchmark::DoNotOptimize(bytes);
    return count;
  }
  int_type overflow(int_type byte) override { return traits_type::not_eof(byte); }
};

// A writer with an open array, which takes values without end.
class Writer : public benchmark::Fixture {
 public:
  void SetUp(const benchmark::State&) override { writer.startArray(); }
  void TearDown(const benchmark::State&) override { writer.end(); }

  NoFile file;
  std::ostream stream{&file};
  kestrel::JsomWriter writer{&stream};
};

BENCHMARK_F(Writer, SmallInteger)(benchmark::State& state) {
  uint32_t value = 0;
  for (auto _ : state) {
    writer.appendUnsignedInt(value++ & 0xFF);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_F(Writer, Address)(benchmark::State& state) {
  uint64_t value = 0x7f12'3456'0000;
  for (auto _ : state) {
    writer.appendUnsignedLong(value += 16);
  }
  state.SetItemsProcessed(state.iterations());
}

// Sample times: seconds with six digits.
BENCHMARK_F(Writer, Time)(benchmark::State& state) {
  double value = 0.0;
  for (auto _ : state) {
    writer.appendDouble(value += 0.000'050'1, 6);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_F(Writer, String)(benchmark::State& state) {
  const std::string name = "std::vector<int, std::allocator<int> >::push_back(int const&)";
  for (auto _ : state) {
    writer.appendString(name, false);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(name.size()));
}

BENCHMARK_F(Writer, StringWithEscapes)(benchmark::State& state) {
  const std::string name = "operator\"\" _s\t(char const*) C:\\src\\literals.cpp line\nfeed";
  for (auto _ : state) {
    writer.appendString(name, false);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(name.size()));
}

}  // namespace
