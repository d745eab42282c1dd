// Perf maps and jitdump files.
#include <gtest/gtest.h>

#include "listing/CodeList.h"
#include "listing/Demangler.h"
#include "listing/JitDump.h"
#include "listing/PerfMap.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

std::string listOf(std::string_view map, AddressRanges ranges = {}) {
  Demangler demangler(Demangler::Style::Names);
  return listOfCode(parsePerfMap(map), std::move(ranges), demangler).text();
}

TEST(PerfMapTest, StartSizeAndNameWithBlanks) {
  EXPECT_EQ(listOf("1000 20 LazyCompile:~f /a b.js:1\n0x1020 0x10 stub x\n"),
            "0000000000001000 t LazyCompile:~f /a b.js:1\n"
            "0000000000001020 t stub x\n"
            "0000000000001030 t [unknown]\n");
}

TEST(PerfMapTest, BrokenLinesAreSkipped) {
  EXPECT_EQ(listOf("\nx\n1000\n1000 20\n1000 20 \nzz 1 f\n10000000000000000 1 f\n2000 8 good"),
            "0000000000002000 t good\n0000000000002008 t [unknown]\n");
}

TEST(PerfMapTest, ALaterLineHasTheAddresses) {
  EXPECT_EQ(
      listOf("1000 100 old\n1040 40 new\n"),
      "0000000000001000 t old\n0000000000001040 t new\n0000000000001080 t old\n0000000000001100 t [unknown]\n");
}

TEST(PerfMapTest, OnlyWhatTouchesTheRanges) {
  EXPECT_EQ(listOf("1000 10 one\n2000 10 two\n3000 10 tri\n", {{0x2000, 0x2008}, {0x2ff0, 0x3000}}),
            "0000000000002000 t two\n0000000000002010 t [unknown]\n");
}

TEST(PerfMapTest, SizeZeroIsAByteAndSizesEndWithTheAddresses) {
  EXPECT_EQ(listOf("1000 0 one\n"), "0000000000001000 t one\n0000000000001001 t [unknown]\n");
  EXPECT_EQ(listOf("fffffffffffffff0 ffff all\n"),
            "fffffffffffffff0 t all\nffffffffffffffff t [unknown]\n");
}

std::string number(std::uint64_t value, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes += i < 8 ? static_cast<char>(value >> (8 * i)) : '\0';
  }
  return bytes;
}

// As perf describes the jitdump format, little-endian.
std::string record(unsigned id, const std::string& body, std::uint64_t time = 0) {
  return number(id, 4) + number(16 + body.size(), 4) + number(time, 8) + body;
}
std::string dumpHeader(std::uint64_t flags = 0) {
  return number(0x4A695444, 4) + number(1, 4) + number(40, 4) + number(62, 4) + number(0, 4) +
         number(7, 4) + number(0, 8) + number(flags, 8);
}
std::string load(std::uint64_t address, std::uint64_t size, std::uint64_t index,
                 const std::string& name, std::uint64_t time = 0) {
  return record(0,
                number(7, 4) + number(7, 4) + number(address, 8) + number(address, 8) +
                    number(size, 8) + number(index, 8) + name + '\0' + "code",
                time);
}

TEST(JitDumpTest, FunctionsWhereTheyWereLoadedAndMoved) {
  const std::string move = number(7, 8) + number(0, 8) + number(0x1000, 8) + number(0x5000, 8) +
                           number(0x10, 8) + number(1, 8);
  const std::string dump = dumpHeader() + load(0x1000, 0x10, 1, "first") +
                           record(2, "debug information") + load(0x2000, 8, 2, "second") +
                           record(1, move);
  const std::vector<Symbol> symbols = parseJitDump(dump);
  ASSERT_EQ(symbols.size(), 3U);
  EXPECT_EQ(symbols[1].name, "second");
  EXPECT_EQ(symbols[2].name, "first");
  EXPECT_EQ(symbols[2].start, 0x5000U);
  EXPECT_EQ(symbols[2].end, 0x5010U);
}

TEST(JitDumpTest, ACutFileHasWhatIsWhole) {
  const std::string dump =
      dumpHeader() + load(0x1000, 0x10, 1, "first") + load(0x2000, 8, 2, "second");
  for (std::size_t size = 0; size < dump.size(); ++size) {
    EXPECT_LE(parseJitDump(dump.substr(0, size)).size(), 1U);
  }
  EXPECT_EQ(parseJitDump(dump).size(), 2U);
}

TEST(JitDumpTest, WhatIsLoadedBehindTheLastSampleIsLeftOut) {
  const std::string records =
      load(0x1000, 0x10, 1, "while", 5000) + load(0x1000, 0x10, 2, "afterwards", 5001);
  EXPECT_EQ(parseJitDump(dumpHeader() + records, 5000).size(), 1U);
  EXPECT_EQ(parseJitDump(dumpHeader() + records).size(), 2U);
  // Times that are no times of the recording.
  EXPECT_EQ(parseJitDump(dumpHeader(1) + records, 5000).size(), 2U);
}

TEST(JitDumpTest, NoOtherFile) { EXPECT_TRUE(parseJitDump("1000 20 name\n").empty()); }

TEST(CodeListTest, MapAndDumpBelowARoot) {
  TempDir root;
  ASSERT_EQ(::system(("mkdir -p " + root.path() + "/tmp " + root.path() + "/app").c_str()), 0);
  root.write("tmp/perf-7.map", "1000 10 one\n");
  root.write("app/jit-7.dump", dumpHeader() + load(0x2000, 8, 2, "second"));
  File file;
  file.kind = File::Kind::PerfMap;
  file.pid = 7;
  file.jitDumps = {"/app/jit-7.dump"};
  Options options;
  options.sysroots = {root.path()};
  Demangler demangler(Demangler::Style::Names);
  const CodeListReply reply = writeCodeList(file, options, demangler, root.file("list"));
  EXPECT_EQ(reply.outcome, Outcome::Named);
  EXPECT_EQ(
      root.read("list"),
      "0000000000001000 t one\n0000000000001010 t [unknown]\n0000000000002000 t second\n0000000000002008 t [unknown]\n");
  file.pid = 8;
  file.jitDumps.clear();
  EXPECT_EQ(writeCodeList(file, options, demangler, root.file("none")).outcome, Outcome::NoPerfMap);
  EXPECT_FALSE(root.has("none"));
}

// A number comes again: the map is of the process before.
TEST(CodeListTest, AMapFromBeforeTheProcessIsNotUsed) {
  TempDir root;
  ASSERT_EQ(::system(("mkdir " + root.path() + "/tmp").c_str()), 0);
  root.write("tmp/perf-7.map", "1000 10 one\n");
  ASSERT_EQ(::system(("touch -d @1000 " + root.path() + "/tmp/perf-7.map").c_str()), 0);
  File file;
  file.kind = File::Kind::PerfMap;
  file.pid = 7;
  Options options;
  options.sysroots = {root.path()};
  Demangler demangler(Demangler::Style::Names);
  file.begin = 1'000'000'000'001;
  EXPECT_EQ(writeCodeList(file, options, demangler, root.file("none")).outcome,
            Outcome::OldPerfMap);
  EXPECT_FALSE(root.has("none"));
  file.begin = 1'000'000'000'000;
  EXPECT_EQ(writeCodeList(file, options, demangler, root.file("list")).outcome, Outcome::Named);
}

}  // namespace
}  // namespace listing
