// Whole runs: what the lines of a symbol list become in the "functions" and "files" tables.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/SymbolRun.h"

namespace {

using testing::HasSubstr;

// The text of the rows of a table in a compact document.
std::string rowsOf(const std::string& document, const std::string& table) {
  const std::string before = "},\"data\":[";
  const std::size_t name = document.find("\"" + table + "\":{\"descriptions\":");
  const std::size_t from = document.find(before, name) + before.size();
  return document.substr(from, document.find("]}", from) - from);
}

// A run over one library at 0x40000000 with this list, sampled at these places in it.
ConversionResult runOf(const std::string& list, const std::vector<uint64_t>& places) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.mmap(1, 1, 0x40000000, 0x100000, 0, "lib/libx.so");
  for (const uint64_t place : places) {
    recording.sample(at(SECOND, 0x40000000 + place, 1, 1));
  }
  const SymbolRun symbols(recording);
  symbols.addFile("lib/libx.so", list, LIBRARY_TIME);
  return symbols.run();
}

std::string functionsOf(const std::string& list, const std::vector<uint64_t>& places) {
  return rowsOf(runOf(list, places).document, "functions");
}

std::string filesOf(const std::string& list, const std::vector<uint64_t>& places) {
  return rowsOf(runOf(list, places).document, "files");
}

}  // namespace

TEST(GoldenFunctionsTest, TextAndWeakSymbolsOfEitherCaseAreFunctions) {
  EXPECT_EQ(functionsOf("1000 T one_\n1010 t two_\n1020 W three\n1030 w four\n1040 V five\n"
                        "1050 i six_\n1060 T seven\n",
                        {0x1000, 0x1010, 0x1020, 0x1030, 0x1040, 0x1050, 0x1060}),
            "[4,\"one_\",4096,16,[3]],[5,\"two_\",4112,16,[3]],[6,\"three\",4128,16,[3]],"
            "[7,\"four\",4144,48,[3]],[8,\"seven\",4192,1,[3]]");
}

TEST(GoldenFunctionsTest, NamesOfUpToTwoCharactersAreBlank) {
  EXPECT_EQ(functionsOf("1000 T a\n1010 T ab\n1020 T abc\n1030 T end_\n", {0x1000, 0x1010, 0x1020}),
            "[4,\"*BlankName*\",4096,16,[3]],[5,\"*BlankName*\",4112,16,[3]],"
            "[6,\"abc\",4128,16,[3]]");
}

TEST(GoldenFunctionsTest, TheLastLineOfAnAddressWins) {
  const std::string list = "1000 T first\tx.c:1\n1000 T second\ty.c:2\n1010 T end_\n";
  EXPECT_EQ(functionsOf(list, {0x1000}), "[4,\"second\",4096,16,[3]]");
  EXPECT_EQ(filesOf(list, {0x1000}), "[1,\"y.c\",[[4,0]]]");
}

TEST(GoldenFunctionsTest, MappingSymbolsAreIgnoredWhereverTheyStand) {
  EXPECT_EQ(
      functionsOf("1000 T one_\n1010 t $a\n1020 t $t.5\n1030 T my$data\n1040 T $x\n1050 T end_\n",
                  {0x1030, 0x1040}),
      "[4,\"one_\",4096,64,[3]],[5,\"*BlankName*\",4160,16,[3]]");
}

TEST(GoldenFunctionsTest, OrderInTheListDoesNotMatter) {
  EXPECT_EQ(functionsOf("1020 T three\n1000 T one_\n1010 T two_\n", {0x1020, 0x1000}),
            "[4,\"one_\",4096,16,[3]],[6,\"three\",4128,1,[3]]");
}

TEST(GoldenFunctionsTest, LastLineWithoutLineFeedIsNotRead) {
  EXPECT_EQ(functionsOf("1000 T one_\n1010 T two_", {0x1000, 0x1010}), "[4,\"one_\",4096,1,[3]]");
}

TEST(GoldenFunctionsTest, CarriageReturnsAreDropped) {
  EXPECT_EQ(functionsOf("1000 T one_\r\n1010 T two_\r\n", {0x1000}), "[4,\"one_\",4096,16,[3]]");
}

TEST(GoldenFunctionsTest, NamesAreEscapedAsInJson) {
  EXPECT_EQ(functionsOf("1000 T operator\"\" \\_x(char)\n1010 T end_\n", {0x1000}),
            "[4,\"operator\\\"\\\" \\\\_x(char)\",4096,16,[3]]");
}

TEST(GoldenFunctionsTest, FilesListTheirSampledFunctionsOnly) {
  const std::string list =
      "1000 T one_\tb.c:1\n1010 T two_\tb.c:2\n1020 T three\tb.c:3\n1030 T four\tmissed.c:1\n"
      "1040 T five\ta.c:5\n1050 T end_\tend.c:1\n";
  EXPECT_EQ(filesOf(list, {0x1020, 0x1000, 0x1040, 0x1050}),
            "[1,\"a.c\",[[8,0]]],[2,\"b.c\",[[4,0],[6,0]]]");
  EXPECT_EQ(filesOf(list, {0x1010}), "[1,\"b.c\",[[5,0]]]");
  EXPECT_EQ(filesOf(list, {0x1050}), "");
}

TEST(GoldenFunctionsTest, SourceFilesEndAtTheFirstColon) {
  EXPECT_EQ(filesOf("1000 T one_\tc:/src/x.c:10\n1010 T end_\n", {0x1000}), "[1,\"c\",[[4,0]]]");
  EXPECT_EQ(filesOf("1000 T one_\t:10\n1010 T end_\n", {0x1000}), "");
  EXPECT_EQ(filesOf("1000 T one_\tx.c\n1010 T end_\n", {0x1000}), "");
}

TEST(GoldenFunctionsTest, MapsFromTheSharedLibraryBaseOnAreRelocated) {
  const auto nameAt = [](uint64_t start, uint64_t pageOffset, const std::string& list,
                         uint64_t address) {
    PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
    recording.mmap(1, 1, start, 0x3000, pageOffset, "bin/app").sample(at(SECOND, address, 1, 1));
    const SymbolRun symbols(recording);
    symbols.addFile("bin/app", list, APP_TIME);
    return rowsOf(symbols.run().document, "functions");
  };
  const std::string relocated = "2010 T found\n2020 T end_\n";
  EXPECT_THAT(nameAt(0x40000000, 0x1000, relocated, 0x40001010), HasSubstr("\"found\""));
  EXPECT_THAT(nameAt(0xD0000000, 0x1000, relocated, 0xD0001010), HasSubstr("\"found\""));
  EXPECT_THAT(nameAt(0x7fff00000000, 0x1000, relocated, 0x7fff00001010), HasSubstr("\"found\""));
  EXPECT_THAT(nameAt(0x3FFFF000, 0x1000, "40000010 T found\n40000020 T end_\n", 0x40000010),
              HasSubstr("\"found\""));
  // A map that begins inside the kernel's range and reaches beyond it.
  EXPECT_THAT(nameAt(0xCF000000, 0x1000, "cf000010 T found\ncf000020 T end_\n", 0xCF000010),
              HasSubstr("\"found\""));
  EXPECT_THAT(nameAt(0xCF001000, 0x1000, relocated, 0xCF002010), HasSubstr("\"found\""));
}

TEST(GoldenFunctionsTest, MadeUpMapsAreNeverListedEvenIfThereAreFilesOfTheirNames) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(1, 1, "app").sample(at(SECOND, 0x12345, 1, 1));
  recording.sample(at(SECOND, 0x12345, 1, 1)).sample(at(SECOND, 0xB0000010, 1, 1));
  const SymbolRun symbols(recording);
  symbols.addFile("{app-10000}", "12345 T never\n12346 T end_\n", APP_TIME);
  symbols.addFile("{stack:b0000000-beffffff}", "b0000010 T never\nb0000020 T end_\n", APP_TIME);
  const ConversionResult result = symbols.run();
  EXPECT_EQ(rowsOf(result.document, "functions"), "");
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_THAT(result.linesOf("SymbolCache"), testing::Each(HasSubstr("kernel")));
}

TEST(GoldenFunctionsTest, FrozenCacheBelievesASizeOfZero) {
  SymbolRun symbols;
  symbols.run();
  symbols.folder().write("cache/symbolcache.json",
                         "{\"bin/app\":{\"file\":\"bin_app.nm\",\"mtime\":1400000000,\"size\":0},"
                         "\"lib/libx.so\":{\"file\":\"lib_libx.so.nm\"}}");
  symbols.conversion().setting("\"freezeSymbolCache\": true");
  const LogTexts lines = symbols.run().linesOf("SymbolCache");
  EXPECT_THAT(lines, testing::IsSupersetOf({"INFO [SymbolCache] Cache Freeze: Skipping... no "
                                            "cached version of 'bin/app'",
                                            "INFO [SymbolCache] Cache Freeze: Using previously "
                                            "cached version of 'lib/libx.so' in "
                                            "'cache/lib_libx.so.nm'"}));
}

TEST(GoldenFunctionsTest, ProcessOfAUsedMapIsWrittenThoughOnlyItsThreadsWereSampled) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "app").comm(10, 11, "worker").comm(12, 12, "idle");
  recording.mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.mmap(12, 12, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.sample(at(SECOND, 0x8000, 10, 11));
  EXPECT_EQ(rowsOf(Conversion(recording).run().document, "processes"),
            "[10,10,10,\"app\"],[11,10,11,\"worker\"]");
}
