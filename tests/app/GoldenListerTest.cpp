// Whole runs with listers that fail, files that must not be listed, and files found elsewhere.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Lines at WARN and ERROR of the symbol cache.
LogTexts complaintsOf(const ConversionResult& result) {
  return linesOf(result.complaints(), "SymbolCache");
}

PerfFileBuilder sysrootRecording() {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "a1").comm(20, 20, "b2").comm(30, 30, "c3");
  recording.mmap(10, 10, 0x40000000, 0x3000, 0, "/lib/libx.so");
  recording.mmap(20, 20, 0x50000000, 0x3000, 0, "/lib/libx.so");
  recording.mmap(30, 30, 0x60000000, 0x3000, 0, "/lib/libx.so");
  recording.mmap(10, 10, 0x8000, 0x1000, 0, "/bin/missing");
  recording.sample(at(SECOND + 0 * EIGHTH, 0x40001010, 10, 10));
  recording.sample(at(SECOND + 1 * EIGHTH, 0x50001100, 20, 20));
  recording.sample(at(SECOND + 2 * EIGHTH, 0x60001010, 30, 30));
  recording.sample(at(SECOND + 3 * EIGHTH, 0x8010, 10, 10));
  return recording;
}

// One process that maps this one file, with a sample at its start.
PerfFileBuilder mappingOf(const std::string& name) {
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.mmap(1, 1, 0x8000, 0x1000, 0, name).sample(at(SECOND, 0x8000, 1, 1));
  return recording;
}

}  // namespace

TEST(GoldenListerTest, MissingListerLeavesEmptyListsAndNoIndex) {
  SymbolRun symbols;
  symbols.conversion().lister("./nowhere -x");
  for (int run = 0; run < 2; ++run) {
    const ConversionResult result = symbols.run();
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(matchesGolden("symbols-none", result.document));
    EXPECT_THAT(
        complaintsOf(result),
        ElementsAre("ERROR [SymbolCache] Error running symbols command './nowhere -x bin/app' "
                    "exit status=-5",
                    "ERROR [SymbolCache] Error running symbols command './nowhere -x lib/libx.so' "
                    "exit status=-5"));
    EXPECT_EQ(symbols.cacheNames(), "bin_app.nm lib_libx.so.nm ");
    EXPECT_EQ(symbols.folder().read("cache/bin_app.nm"), "");
  }
  // With a lister again the empty lists are not taken for good.
  symbols.conversion().lister("./lister -x");
  EXPECT_TRUE(matchesGolden("symbols", symbols.run().document));
}

TEST(GoldenListerTest, ListerThatIsNoProgram) {
  SymbolRun symbols;
  symbols.conversion().lister("./recording.perf");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_THAT(complaintsOf(result), testing::Each(HasSubstr("exit status=-5")));
}

TEST(GoldenListerTest, ExitStatusOfTheListerDoesNotMatter) {
  const SymbolRun symbols;
  symbols.replaceLister("cat \"$2.list\"\nexit 3\n");
  const ConversionResult failed = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols", failed.document));
  EXPECT_THAT(failed.complaints(), IsEmpty());
}

TEST(GoldenListerTest, KilledListerGivesFilesWithoutSymbolsUntilTheNextRun) {
  const SymbolRun symbols;
  symbols.replaceLister("cat \"$2.list\"\nkill -9 $$\n");
  EXPECT_TRUE(matchesGolden("symbols-none", symbols.run().document));
  EXPECT_EQ(symbols.cacheNames(), "");
  symbols.replaceLister("exec cat \"$2.list\"\n");
  EXPECT_TRUE(matchesGolden("symbols", symbols.run().document));
}

TEST(GoldenListerTest, ListerWithoutOutputGivesFilesWithoutSymbols) {
  const SymbolRun symbols;
  symbols.replaceLister("exit 1\n");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_EQ(symbols.cacheNames(), "symbolcache.json ");
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"),
            "{\"bin/app\":{\"mtime\":1400000000,\"size\":0},"
            "\"lib/libx.so\":{\"mtime\":1400000001,\"size\":0}}");
}

TEST(GoldenListerTest, WhatTheListerSaysOnStandardErrorIsDropped) {
  const SymbolRun symbols;
  symbols.replaceLister(
      "head -c 1000000 /dev/zero | tr '\\0' x >&2\n"
      "cat \"$2.list\"\n");
  const ConversionResult result = symbols.run();
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(matchesGolden("symbols", result.document));
}

TEST(GoldenListerTest, ListerGetsNoOtherDescriptors) {
  const SymbolRun symbols;
  symbols.replaceLister("cat \"$2.list\"\nls /proc/self/fd >descriptors.txt\n");
  symbols.run();
  // 0, 1, 2 and the one that ls reads the directory with.
  EXPECT_EQ(symbols.folder().read("descriptors.txt"), "0\n1\n2\n3\n");
}

TEST(GoldenListerTest, GarbageIsNoSymbols) {
  const SymbolRun symbols;
  std::string garbage;
  for (unsigned i = 0; i < 100'000; ++i) {
    garbage += static_cast<char>(i * i / 7);
  }
  symbols.folder().write("garbage", garbage + "\n");
  symbols.replaceLister("exec cat garbage\n");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_THAT(result.linesOf("SymbolTableStore"),
              Contains("INFO [SymbolTableStore] Loaded 0 symbols for 'bin/app'"));
}

TEST(GoldenListerTest, NamesThatReadAsOptionsAreNotListed) {
  for (const char* name :
       {"-evil.so", "@evil.so", "lib/a b -c.so", "lib/a @c.so", "lib/a \"-c\".so"}) {
    SymbolRun symbols(mappingOf(name));
    symbols.addFile(name, APP_LIST, APP_TIME);
    const ConversionResult result = symbols.run();
    EXPECT_THAT(complaintsOf(result), ElementsAre(std::string("WARN [SymbolCache] Not listing '") +
                                                  name + "', its name reads as an option"));
    EXPECT_EQ(result.sampleRows(), "[1,32768,3,0,0,1,1,[]]");
    EXPECT_EQ(symbols.takeListerRuns(), "") << name;
    EXPECT_EQ(symbols.cacheNames(), "") << name;
  }
}

TEST(GoldenListerTest, DashesAndAtSignsInsideWordsAreListed) {
  for (const char* name : {"lib/-x.so", "lib/a-b@c.so"}) {
    SymbolRun symbols(mappingOf(name));
    symbols.addFile(name, APP_LIST, APP_TIME);
    EXPECT_EQ(symbols.run().sampleRows(), "[1,32768,4,0,0,1,1,[]]") << name;
    EXPECT_EQ(symbols.takeListerRuns(), std::string("-x ") + name + "\n");
  }
}

TEST(GoldenListerTest, NameThatReadsAsAnOptionIsUsedFromTheCacheAllTheSame) {
  SymbolRun symbols(mappingOf("-evil.so"));
  symbols.addFile("-evil.so", APP_LIST, APP_TIME);
  std::filesystem::create_directory(symbols.folder().file("cache"));
  symbols.folder().write("cache/some.nm", APP_LIST);
  symbols.folder().write("cache/symbolcache.json",
                         "{\"-evil.so\":{\"file\":\"some.nm\",\"mtime\":1400000000,\"size\":7}}");
  const ConversionResult result = symbols.run();
  EXPECT_THAT(result.complaints(), IsEmpty());
  EXPECT_EQ(result.sampleRows(), "[1,32768,4,0,0,1,1,[]]");
}

TEST(GoldenListerTest, ListFileThatCannotBeOpened) {
  const SymbolRun symbols;
  std::filesystem::create_directories(symbols.folder().file("cache/lib_libx.so.nm/full"));
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", result.document));
  EXPECT_THAT(complaintsOf(result), ElementsAre("WARN [SymbolCache] Error creating symbol output "
                                                "file 'cache/lib_libx.so.nm'"));
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), "{" + appEntry() + "}");
  EXPECT_EQ(symbols.cacheNames(), "bin_app.nm lib_libx.so.nm symbolcache.json ");
}

TEST(GoldenListerTest, SysrootIsSearchedInOrder) {
  SymbolRun symbols(sysrootRecording());
  symbols.conversion().setting(
      "\"onTargetMode\": false, \"symbolFileSeachPath\": \"nowhere:sysroot:elsewhere\"");
  std::filesystem::create_directories(symbols.folder().file("sysroot/lib"));
  symbols.addFile("sysroot/lib/libx.so", LIBRARY_LIST, LIBRARY_TIME);
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-sysroot", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "-x sysroot//lib/libx.so\n");
  EXPECT_EQ(symbols.cacheNames(), "symbolcache.json sysroot__lib_libx.so.nm ");
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"),
            "{\"sysroot//lib/libx.so\":{\"file\":\"sysroot__lib_libx.so.nm\","
            "\"mtime\":1400000001,\"size\":" +
                std::to_string(LIBRARY_LIST.size()) + "}}");
  EXPECT_THAT(
      result.linesOf("SymbolCache"),
      testing::IsSupersetOf(
          {"INFO [SymbolCache] Created new " + std::to_string(LIBRARY_LIST.size()) +
               " byte cache file for 'sysroot//lib/libx.so' in 'cache/sysroot__lib_libx.so.nm'",
           std::string("INFO [SymbolCache] Skipping..., source file does not exist "
                       "'/bin/missing'")}));
}

TEST(GoldenListerTest, OnTargetModeDecidesWhichOfTwoFilesIsListed) {
  for (const bool onTarget : {true, false}) {
    SymbolRun symbols;
    symbols.conversion().setting("\"symbolFileSeachPath\": \"sysroot\"");
    symbols.conversion().setting(std::string("\"onTargetMode\": ") + (onTarget ? "true" : "false"));
    std::filesystem::create_directories(symbols.folder().file("sysroot/lib"));
    symbols.addFile("sysroot/lib/libx.so",
                    "00001000 T alpha2\tsrc/z.c:1\n00001080 T beta2\tsrc/z.c:9\n"
                    "00001300 T last\n",
                    LIBRARY_TIME);
    const ConversionResult result = symbols.run();
    EXPECT_EQ(symbols.takeListerRuns(),
              onTarget ? "-x bin/app\n-x lib/libx.so\n" : "-x bin/app\n-x sysroot/lib/libx.so\n");
    if (onTarget) {
      EXPECT_TRUE(matchesGolden("symbols", result.document));
    } else {
      EXPECT_THAT(result.document, HasSubstr("\"alpha2\",4096,128,"));
      EXPECT_THAT(result.document, Not(HasSubstr("\"alpha\"")));
    }
  }
}

TEST(GoldenListerTest, KernelFunctionsAndSourceFiles) {
  PerfFileBuilder recording = recordingOf(WITH_CALLCHAIN);
  recording.comm(10, 10, "app").mmap(10, 10, 0x8000, 0x1000, 0, "bin/app");
  recording.sample(
      withChain(at(SECOND, 0xC0008110, 10, 10), {CONTEXT_KERNEL, 0x8110, 0xC0008010, 0x40000010}));
  SymbolRun symbols(recording);
  symbols.folder().write("kernel.syms",
                         "c0008000 T _text\n"
                         "c0008100 T do_work\tkernel/work.c:7\n"
                         "c0008200 T last\n");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-kernel", result.document));
  EXPECT_THAT(result.messages(),
              Contains("INFO [main] Loaded kernel symbols.  size:3 range:c0008000-c0008201 from "
                       "kernel.syms"));
  EXPECT_EQ(symbols.takeListerRuns(), "-x bin/app\n");
}

TEST(GoldenListerTest, NamesOfOneFileShareItsTable) {
  // Under its own name, and under one that has to be located first: both are maps of the table. A
  // name that has been located before adds none.
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.mmap(1, 1, 0x40000000, 0x3000, 0, "sysroot/one.so");
  recording.mmap(1, 1, 0x50000000, 0x3000, 0, "one.so");
  recording.mmap(1, 1, 0x60000000, 0x3000, 0, "one.so");
  recording.sample(at(SECOND, 0x40001000, 1, 1)).sample(at(SECOND, 0x50001000, 1, 1));
  recording.sample(at(SECOND, 0x60001000, 1, 1));
  SymbolRun symbols(recording);
  symbols.conversion().setting("\"symbolFileSeachPath\": \"sysroot\"");
  std::filesystem::create_directory(symbols.folder().file("sysroot"));
  symbols.addFile("sysroot/one.so", LIBRARY_LIST, LIBRARY_TIME);
  EXPECT_THAT(symbols.run().document, HasSubstr("\"data\":[[6,\"alpha\",4096,256,[3,4]]]"));
  EXPECT_EQ(symbols.takeListerRuns(), "-x sysroot/one.so\n");
}

TEST(GoldenListerTest, MissingKernelListLetsAFileOfTheKernelsNameBeListed) {
  const SymbolRun symbols(mappingOf("/nowhere/app"));
  symbols.addFile("kernel", "c0008000 T _text\nc0008100 T do_work\n", APP_TIME);
  const ConversionResult result = symbols.run();
  EXPECT_THAT(result.messages(),
              Contains("INFO [main] Loaded kernel symbols.  size:2 range:c0008000-c0008101 from "
                       "kernel.syms"));
  EXPECT_EQ(symbols.takeListerRuns(), "-x kernel\n");
  EXPECT_EQ(symbols.cacheNames(), "kernel.nm symbolcache.json ");
}

TEST(GoldenListerTest, KernelListWinsEvenIfTheCacheIsFrozen) {
  SymbolRun symbols(mappingOf("/nowhere/app"));
  symbols.addFile("kernel", "c0008000 T _text\n", APP_TIME);
  symbols.folder().write("kernel.syms", "c0009000 T _text\n");
  symbols.conversion().setting("\"freezeSymbolCache\": true");
  EXPECT_THAT(symbols.run().messages(),
              testing::IsSupersetOf(
                  {"INFO [SymbolCache] Using override for 'kernel' in 'kernel.syms'",
                   "INFO [main] Loaded kernel symbols.  size:1 range:c0009000-c0009001 from "
                   "kernel.syms"}));
  EXPECT_EQ(symbols.takeListerRuns(), "");
}

TEST(GoldenListerTest, TheKernelIsNeverLookedForOnTheSearchPath) {
  SymbolRun symbols(mappingOf("/nowhere/app"));
  std::filesystem::create_directory(symbols.folder().file("sysroot"));
  symbols.addFile("sysroot/kernel", "c0008000 T _text\n", APP_TIME);
  symbols.folder().write("kernel.syms", "c0009000 T _text\n");
  symbols.conversion().setting("\"onTargetMode\": false, \"symbolFileSeachPath\": \"sysroot\"");
  EXPECT_THAT(symbols.run().messages(),
              Contains("INFO [main] Loaded kernel symbols.  size:1 range:c0009000-c0009001 from "
                       "kernel.syms"));
  EXPECT_EQ(symbols.takeListerRuns(), "");
}
