// Conversions of recordings of chance, compared byte for byte and count for count with the plainest
// way to do the same. The program runs inside the test, so that its stores can be asked afterwards.
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/Driver.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "model/KeyGenerator.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolCache.h"
#include "symbols/SymbolTableStore.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/PlainConversion.h"
#include "tests/app/RandomRecording.h"
#include "tests/support/FreshStores.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestAccess.h"

namespace {

using kestrel::Singleton;
using testing::IsEmpty;

constexpr std::size_t ANY_PLACE = 12;

struct RandomCase {
  const char* name;
  RecordingShape shape{};
  PlainSettings settings{};
  // Before how many of the values of a row forced line feeds must stand.
  std::size_t placesOfBreaks = 0;
  unsigned seeds = 5;
};

void PrintTo(const RandomCase& chosen, std::ostream* out) { *out << chosen.name; }

std::string numberText(double number) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.17g", number);
  return text;
}

// Functions all over a program that is not relocated, and over a library's first pages.
std::vector<PlainSymbol> functionsFrom(uint64_t first) {
  std::vector<PlainSymbol> symbols;
  for (uint64_t i = 0; i < 200; ++i) {
    const uint64_t number = i * i;
    symbols.push_back({first + 0x31 * number,
                       i % 9 == 0 ? "f" : "say(\"" + std::to_string(i) + "\")",
                       i % 3 == 0 ? "" : "/src/" + std::to_string(i % 5) + "\\.c"});
  }
  return symbols;
}

class RandomConversionTest : public testing::TestWithParam<RandomCase> {
 protected:
  RandomConversionTest()
      : files_{{folder_.file("program"), functionsFrom(0)},
               {folder_.file("library"), functionsFrom(0x1000)},
               {folder_.file("vectors"), functionsFrom(0xFFFFFFFF81000000)}} {
    for (const auto& [path, symbols] : files_) {
      folder_.write(path.substr(folder_.path().size() + 1), listOf(symbols));
    }
  }

  void expectTheSame(unsigned seed) {
    SCOPED_TRACE(seed);
    startAnew();
    const PlainSettings& settings = GetParam().settings;
    std::vector<std::string> names;
    for (const auto& [path, symbols] : files_) {
      names.push_back(path);
    }
    const RandomRecording recording(seed, GetParam().shape, names);
    PlainConversion plain(settings, files_);
    plain.convert(recording.events());
    folder_.write("recording.perf", recording.bytes());
    ASSERT_EQ(runDriver(settings, {"-o", folder_.file("document.json")}), 0);
    EXPECT_TRUE(sameDocument(plain.document().text(), folder_.read("document.json")));
    expectMapCounts(plain, recording.addresses());
    expectOtherCounts(plain);
    expectWildness(plain);
  }

  // Where rows are not written in the background.
  void expectTheSameOnStandardOutput() {
    startAnew();
    StdoutCapture capture;
    ASSERT_EQ(runDriver(GetParam().settings, {}), 0);
    EXPECT_TRUE(sameDocument(folder_.read("document.json"), capture.stop()));
  }

 private:
  // As in a fresh process.
  static void startAnew() {
    makeStoresAnew();
    // What is mapped is its own list.
    Singleton<PerfSettings>::Instance()->symbolListCommand = "cat";
  }

  int runDriver(const PlainSettings& settings, const std::vector<std::string>& output) {
    if (!settings.kernel.empty()) {
      folder_.write("kernel.syms", listOf(settings.kernel));
    }
    folder_.write("test.conf",
                  "{\"kernelSymbolFile\": \"" + folder_.file("kernel.syms") +
                      "\", \"symbolCacheDir\": \"" + folder_.file("cache") +
                      "\", \"maxBackTrace\": " + std::to_string(settings.maxBackTrace) +
                      ", \"timePrecision\": " + std::to_string(settings.timePrecision) +
                      ", \"whitespace\": " + (settings.whitespace ? "true" : "false") + "}");
    std::vector<std::string> words{"tracemill",
                                   "-c",
                                   folder_.file("test.conf"),
                                   "-i",
                                   folder_.file("recording.perf"),
                                   "-s" + numberText(settings.clockStart),
                                   "-d" + numberText(settings.duration),
                                   "-A" + numberText(settings.skew),
                                   "-B" + numberText(settings.offset),
                                   "-C" + numberText(settings.base)};
    words.insert(words.end(), output.begin(), output.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const LogCapture log(*kestrel::LogLevel::LVL_ERROR);
    const int status = Driver().run(static_cast<int>(words.size()), argv.data());
    EXPECT_THAT(log.lines(), IsEmpty());
    return status;
  }

  static void expectMapCounts(PlainConversion& plain, const std::vector<uint64_t>& addresses) {
    auto* const maps = Singleton<MMapStore>::Instance();
    for (uint32_t pid = 0; pid < GetParam().shape.processes; ++pid) {
      for (const uint64_t address : addresses) {
        const PlainMap* const expected = plain.mapAt(pid, address);
        const MMapInfo* const actual = maps->get(pid, address);
        ASSERT_EQ(actual == nullptr, expected == nullptr) << pid << " at " << address;
        if (expected != nullptr) {
          ASSERT_EQ(actual->key, expected->key) << pid << " at " << address;
          ASSERT_EQ(actual->refCount, expected->uses) << pid << " at " << address;
        }
      }
    }
    EXPECT_EQ(maps->kernelMap().refCount, plain.kernelMap().uses);
  }

  static void expectOtherCounts(const PlainConversion& plain) {
    for (const auto& [tid, thread] : plain.threads()) {
      const ThreadInfo* const actual = Singleton<ThreadStore>::Instance()->getThread(9999, tid);
      EXPECT_EQ(actual->refCount, thread.uses) << tid;
      EXPECT_EQ(actual->pid, thread.pid) << tid;
      EXPECT_EQ(actual->name, thread.name) << tid;
    }
    for (const auto& [path, table] : plain.tables()) {
      MMapInfo map;
      map.name = path;
      const SymbolTable* const actual =
          Singleton<SymbolTableStore>::Instance()->getSymbolTable(&map);
      const auto& functions = table.functions.items;
      ASSERT_EQ(actual->items().size(), functions.size()) << path;
      for (std::size_t i = 0; i < functions.size(); ++i) {
        const auto& function = static_cast<const FunctionInfo&>(*actual->items()[i]);
        EXPECT_EQ(function.key, functions[i]->key) << path;
        EXPECT_EQ(function.refCount, functions[i]->uses) << function.name;
      }
    }
  }

  // That the recording was no tame one.
  static void expectWildness(const PlainConversion& plain) {
    const PlainTally& tally = plain.tally();
    EXPECT_GT(tally.samples, 100U);
    EXPECT_GT(tally.madeUp, 100U);
    EXPECT_GT(tally.sharedStarts, 50U);
    EXPECT_GT(tally.functionUses, 10U);
    EXPECT_GT(tally.shadowedLater, 10U);
    EXPECT_EQ(tally.foreignOwners > 0, GetParam().shape.processes > 2);
    EXPECT_GT(plain.document().breaks(), 2U);
    EXPECT_GE(tally.breaks.size(), GetParam().placesOfBreaks);
  }

  const TempDir folder_;
  const std::map<std::string, std::vector<PlainSymbol>> files_;
};

const std::vector<RandomCase>& cases() {
  static const std::vector<RandomCase> all = {
      {.name = "AsConfiguredByDefault"},
      {.name = "Indented", .settings = {.timePrecision = 9, .whitespace = true}},
      {.name = "TimesBelowZero", .settings = {.timePrecision = 3, .skew = -0.75, .offset = 1e3}},
      {.name = "TinyTimes", .settings = {.timePrecision = 15, .skew = 1e-12}},
      {.name = "HugeTimes", .settings = {.timePrecision = 9, .skew = 3e14}},
      {.name = "TimesUntrimmed", .settings = {.timePrecision = 0, .skew = 1e3}},
      {.name = "WholeSecondsAndTenths", .settings = {.timePrecision = 1}},
      {.name = "Window", .settings = {.clockStart = 110, .duration = 300, .offset = -5, .base = 1}},
      {.name = "WindowFromDataTimeZero",
       .settings = {.clockStart = 5, .duration = 400, .base = -5}},
      {.name = "WithoutCallers", .shape = {.samples = 20000}, .settings = {.maxBackTrace = 0}},
      {.name = "EndlessCallers",
       .shape = {.samples = 150, .longestChain = 5000, .places = 20000},
       .settings = {.maxBackTrace = 4000},
       .seeds = 2},
      {.name = "FewMaps", .shape = {.maps = 120, .samples = 3000, .places = 5000}},
      {.name = "ManyMaps",
       .shape = {.maps = 20000, .samples = 20000, .longestChain = 6, .places = 4000},
       .seeds = 2},
      {.name = "OneProcess", .shape = {.maps = 2000, .places = 2000, .processes = 2}},
      {.name = "KernelSymbols",
       .settings = {.kernel = {{0xC0000000, "_text"},
                               {0xC0008000, "start_kernel"},
                               {0xC0100000, "vectors\\"},
                               {0xCF001000, "_end"}}}},
      {.name = "ThousandsOfLines",
       .shape = {.maps = 60, .samples = 30000, .longestChain = 100, .places = 3000},
       .settings = {.maxBackTrace = 100},
       .placesOfBreaks = ANY_PLACE - 2,
       .seeds = 1},
      {.name = "ThousandsOfIndentedLines",
       .shape = {.maps = 400, .samples = 20000, .longestChain = 12},
       .settings = {.maxBackTrace = 50, .timePrecision = 4, .whitespace = true},
       .placesOfBreaks = ANY_PLACE,
       .seeds = 1},
  };
  return all;
}

}  // namespace

TEST_P(RandomConversionTest, GivesTheBytesAndCountsOfThePlainestWay) {
  for (unsigned seed = 1; seed <= GetParam().seeds; ++seed) {
    expectTheSame(seed);
  }
  expectTheSameOnStandardOutput();
}

INSTANTIATE_TEST_SUITE_P(Recordings, RandomConversionTest, testing::ValuesIn(cases()),
                         [](const auto& one) { return std::string(one.param.name); });
