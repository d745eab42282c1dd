// Whole runs with functions and source files: the symbol cache cold, warm, frozen and outdated.
#include <csignal>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/GoldenDocument.h"
#include "tests/app/SymbolRun.h"

namespace {

using testing::ElementsAre;

const char* const BOTH_LISTED = "-x bin/app\n-x lib/libx.so\n";
const char* const CACHE_NAMES = "bin_app.nm lib_libx.so.nm symbolcache.json ";

std::string wholeIndex() { return "{" + appEntry() + "," + libraryEntry() + "}"; }

std::string created(const std::string& name, const std::string& list, std::size_t size) {
  return "INFO [SymbolCache] Created new " + std::to_string(size) + " byte cache file for '" +
         name + "' in '" + list + "'";
}

// A run with a cold cache before the one that a test is about.
void fillCache(const SymbolRun& symbols) {
  symbols.run();
  EXPECT_EQ(symbols.takeListerRuns(), BOTH_LISTED);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
}

}  // namespace

TEST(GoldenSymbolsTest, ColdCache) {
  const SymbolRun symbols;
  const ConversionResult result = symbols.run();
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), BOTH_LISTED);
  EXPECT_EQ(symbols.cacheNames(), CACHE_NAMES);
  EXPECT_EQ(symbols.folder().read("cache/bin_app.nm"), APP_LIST);
  EXPECT_EQ(symbols.folder().read("cache/lib_libx.so.nm"), LIBRARY_LIST);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
  EXPECT_THAT(
      result.linesOf("SymbolCache"),
      ElementsAre("TRACE [SymbolCache] getSampleDataFile kernel",
                  "INFO [SymbolCache] Skipping..., source file does not exist 'kernel'",
                  "TRACE [SymbolCache] getSampleDataFile bin/app",
                  "TRACE [SymbolCache] createCacheFile 'bin/app' 'cache/bin_app.nm'",
                  "DEBUG [SymbolCache] createCacheFile cmd: './lister -x bin/app'",
                  created("bin/app", "cache/bin_app.nm", APP_LIST.size()),
                  "TRACE [SymbolCache] getSampleDataFile lib/libx.so",
                  "TRACE [SymbolCache] createCacheFile 'lib/libx.so' 'cache/lib_libx.so.nm'",
                  "DEBUG [SymbolCache] createCacheFile cmd: './lister -x lib/libx.so'",
                  created("lib/libx.so", "cache/lib_libx.so.nm", LIBRARY_LIST.size())));
  EXPECT_THAT(
      result.linesOf("SymbolTableStore"),
      ElementsAre("DEBUG [SymbolTableStore] Created mmap(#) a new symbol table # for (\"kernel\")",
                  "INFO [SymbolTableStore] Loaded 4 symbols for 'bin/app'",
                  "DEBUG [SymbolTableStore] Created mmap(#) a new symbol table # for (\"bin/app\")",
                  "INFO [SymbolTableStore] Loaded 3 symbols for 'lib/libx.so'",
                  "DEBUG [SymbolTableStore] Created mmap(#) a new symbol table # for "
                  "(\"lib/libx.so\")"));
}

TEST(GoldenSymbolsTest, ColdCacheMessages) {
  const ConversionResult result = SymbolRun().run();
  const std::string reader = "INFO [PerfRecordFileReader] ";
  EXPECT_THAT(result.messages(),
              ElementsAre(testing::_, testing::_, testing::StartsWith(reader), testing::_,
                          testing::StartsWith(reader), testing::_,
                          created("bin/app", "cache/bin_app.nm", APP_LIST.size()),
                          "INFO [SymbolTableStore] Loaded 4 symbols for 'bin/app'",
                          created("lib/libx.so", "cache/lib_libx.so.nm", LIBRARY_LIST.size()),
                          "INFO [SymbolTableStore] Loaded 3 symbols for 'lib/libx.so'",
                          "INFO [main] Conversion completed in # seconds."));
}

TEST(GoldenSymbolsTest, Indented) {
  SymbolRun symbols;
  symbols.conversion().setting("\"whitespace\": true");
  EXPECT_TRUE(matchesGolden("symbols-indented", symbols.run().document));
}

TEST(GoldenSymbolsTest, WarmCacheRunsNoLister) {
  const SymbolRun symbols;
  fillCache(symbols);
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_EQ(symbols.cacheNames(), CACHE_NAMES);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
  EXPECT_THAT(result.linesOf("SymbolCache"),
              ElementsAre("TRACE [SymbolCache] getSampleDataFile kernel",
                          "INFO [SymbolCache] Skipping..., source file does not exist 'kernel'",
                          "TRACE [SymbolCache] getSampleDataFile bin/app",
                          "INFO [SymbolCache] Using already up-to-date cached version of 'bin/app' "
                          "in 'cache/bin_app.nm'",
                          "TRACE [SymbolCache] getSampleDataFile lib/libx.so",
                          "INFO [SymbolCache] Using already up-to-date cached version of "
                          "'lib/libx.so' in 'cache/lib_libx.so.nm'"));
}

TEST(GoldenSymbolsTest, WarmCacheIsBelievedWhateverTheListsSize) {
  const SymbolRun symbols;
  fillCache(symbols);
  symbols.folder().write("cache/lib_libx.so.nm",
                         "00001000 T alpha2\tsrc/z.c:1\n00001080 T beta2\tsrc/z.c:9\n"
                         "00001300 T last\n");
  EXPECT_TRUE(matchesGolden("symbols-changed", symbols.run().document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
}

TEST(GoldenSymbolsTest, ChangedFileIsListedAnew) {
  const SymbolRun symbols;
  fillCache(symbols);
  const std::string list =
      "00001000 T alpha2\tsrc/z.c:1\n00001080 T beta2\tsrc/z.c:9\n00001300 T last\n";
  symbols.addFile("lib/libx.so", list, 1'500'000'000);
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-changed", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "-x lib/libx.so\n");
  EXPECT_EQ(symbols.cacheNames(), CACHE_NAMES);
  EXPECT_EQ(symbols.folder().read("cache/lib_libx.so.nm"), list);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"),
            "{" + appEntry() +
                ",\"lib/libx.so\":{\"file\":\"lib_libx.so.nm\",\"mtime\":1500000000,\"size\":" +
                std::to_string(list.size()) + "}}");
  const LogTexts lines = result.linesOf("SymbolCache");
  EXPECT_EQ(lines.back(), created("lib/libx.so", "cache/lib_libx.so.nm", list.size()));
}

TEST(GoldenSymbolsTest, OlderFileIsListedAnewToo) {
  const SymbolRun symbols;
  fillCache(symbols);
  symbols.touch("bin/app", APP_TIME - 1);
  EXPECT_TRUE(matchesGolden("symbols", symbols.run().document));
  EXPECT_EQ(symbols.takeListerRuns(), "-x bin/app\n");
}

TEST(GoldenSymbolsTest, RemovedListFileIsMadeAgain) {
  const SymbolRun symbols;
  fillCache(symbols);
  EXPECT_EQ(std::remove(symbols.folder().file("cache/lib_libx.so.nm").c_str()), 0);
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "-x lib/libx.so\n");
  EXPECT_EQ(symbols.cacheNames(), CACHE_NAMES);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
}

TEST(GoldenSymbolsTest, FrozenCacheIsUsedAsItStands) {
  SymbolRun symbols;
  fillCache(symbols);
  symbols.touch("bin/app", 1'500'000'000);
  symbols.conversion().setting("\"freezeSymbolCache\": true");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
  EXPECT_THAT(result.linesOf("SymbolCache"),
              ElementsAre("TRACE [SymbolCache] getSampleDataFile kernel",
                          "INFO [SymbolCache] Skipping..., source file does not exist 'kernel'",
                          "TRACE [SymbolCache] getSampleDataFile bin/app",
                          "INFO [SymbolCache] Cache Freeze: Using previously cached version of "
                          "'bin/app' in 'cache/bin_app.nm'",
                          "TRACE [SymbolCache] getSampleDataFile lib/libx.so",
                          "INFO [SymbolCache] Cache Freeze: Using previously cached version of "
                          "'lib/libx.so' in 'cache/lib_libx.so.nm'"));
}

TEST(GoldenSymbolsTest, FrozenColdCacheListsNothing) {
  SymbolRun symbols;
  symbols.conversion().setting("\"freezeSymbolCache\": true");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-none", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_EQ(symbols.cacheNames(), "");
  EXPECT_THAT(result.linesOf("SymbolCache"),
              ElementsAre("TRACE [SymbolCache] getSampleDataFile kernel",
                          "INFO [SymbolCache] Skipping..., source file does not exist 'kernel'",
                          "TRACE [SymbolCache] getSampleDataFile bin/app",
                          "INFO [SymbolCache] Cache Freeze: Skipping... no cached version of "
                          "'bin/app'",
                          "TRACE [SymbolCache] getSampleDataFile lib/libx.so",
                          "INFO [SymbolCache] Cache Freeze: Skipping... no cached version of "
                          "'lib/libx.so'"));
  EXPECT_THAT(
      result.linesOf("SymbolTableStore"),
      ElementsAre("DEBUG [SymbolTableStore] Created mmap(#) a new symbol table # for (\"kernel\")",
                  "DEBUG [SymbolTableStore] Created mmap(#) a new symbol table # for (\"bin/app\")",
                  "DEBUG [SymbolTableStore] Created mmap(#) a new symbol table # for "
                  "(\"lib/libx.so\")"));
}

TEST(GoldenSymbolsTest, FrozenCacheWithoutTheListFileSkipsTheFile) {
  SymbolRun symbols;
  fillCache(symbols);
  EXPECT_EQ(std::remove(symbols.folder().file("cache/lib_libx.so.nm").c_str()), 0);
  symbols.conversion().setting("\"freezeSymbolCache\": true");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_EQ(result.linesOf("SymbolCache").back(),
            "INFO [SymbolCache] Cache Freeze: Skipping... no cached version of 'lib/libx.so'");
}

TEST(GoldenSymbolsTest, MissingFileIsSkippedEvenIfTheIndexKnowsIt) {
  const SymbolRun symbols;
  fillCache(symbols);
  EXPECT_EQ(std::remove(symbols.folder().file("lib/libx.so").c_str()), 0);
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_EQ(result.linesOf("SymbolCache").back(),
            "INFO [SymbolCache] Skipping..., source file does not exist 'lib/libx.so'");
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
}

TEST(GoldenSymbolsTest, FileWithoutSymbolsIsListedOnceUntilItChanges) {
  const SymbolRun symbols;
  symbols.addFile("lib/libx.so", "", LIBRARY_TIME);
  const ConversionResult first = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", first.document));
  EXPECT_EQ(symbols.takeListerRuns(), BOTH_LISTED);
  EXPECT_EQ(symbols.cacheNames(), "bin_app.nm symbolcache.json ");
  const std::string empty =
      "{" + appEntry() + ",\"lib/libx.so\":{\"mtime\":1400000001,\"size\":0}}";
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), empty);
  const std::string none = "INFO [SymbolCache] No symbols found in 'lib/libx.so'";
  EXPECT_THAT(first.linesOf("SymbolCache"),
              testing::Contains(created("lib/libx.so", "cache/lib_libx.so.nm", 0)));
  EXPECT_EQ(first.linesOf("SymbolCache").back(), none);

  const ConversionResult second = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", second.document));
  EXPECT_EQ(symbols.takeListerRuns(), "");
  EXPECT_EQ(second.linesOf("SymbolCache").back(), none);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), empty);

  // A file that is listed again has its list's name last in the entry.
  symbols.addFile("lib/libx.so", LIBRARY_LIST, LIBRARY_TIME + 1);
  EXPECT_TRUE(matchesGolden("symbols", symbols.run().document));
  EXPECT_EQ(symbols.takeListerRuns(), "-x lib/libx.so\n");
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"),
            "{" + appEntry() + ",\"lib/libx.so\":{\"mtime\":1400000002,\"size\":" +
                std::to_string(LIBRARY_LIST.size()) + ",\"file\":\"lib_libx.so.nm\"}}");
}

TEST(GoldenSymbolsTest, FrozenCacheSkipsAFileWithoutSymbols) {
  SymbolRun symbols;
  symbols.addFile("lib/libx.so", "", LIBRARY_TIME);
  symbols.run();
  symbols.conversion().setting("\"freezeSymbolCache\": true");
  const ConversionResult result = symbols.run();
  EXPECT_TRUE(matchesGolden("symbols-program-only", result.document));
  EXPECT_EQ(result.linesOf("SymbolCache").back(),
            "INFO [SymbolCache] Cache Freeze: Skipping... no cached version of 'lib/libx.so'");
}

TEST(GoldenSymbolsTest, MalformedIndexKeepsItsCompleteMembersAndIsRewrittenWhole) {
  const SymbolRun symbols;
  fillCache(symbols);
  symbols.folder().write("cache/symbolcache.json", "{" + appEntry() + ",\"lib/libx.so\":{\"fil");
  const ConversionResult result = symbols.run();
  EXPECT_EQ(result.err,
            "JSONData::setFromJsonString(): syntax error: invalid string for object key\n");
  EXPECT_TRUE(matchesGolden("symbols", result.document));
  EXPECT_EQ(symbols.takeListerRuns(), "-x lib/libx.so\n");
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
}

TEST(GoldenSymbolsTest, IndexThatIsNoObjectIsReplaced) {
  for (const char* index :
       {"[1,2]", "7", "\"text\"", "null", "{\"bin/app\":5,\"lib/libx.so\":[]}"}) {
    const SymbolRun symbols;
    fillCache(symbols);
    symbols.folder().write("cache/symbolcache.json", index);
    const ConversionResult result = symbols.run();
    EXPECT_TRUE(matchesGolden("symbols", result.document)) << index;
    EXPECT_EQ(result.err, "") << index;
    EXPECT_EQ(symbols.takeListerRuns(), BOTH_LISTED) << index;
    EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex()) << index;
  }
}

TEST(GoldenSymbolsTest, RunThatDiesLeavesNothingHalfMade) {
  SymbolRun symbols;
  // The lister ends its parent, with half a list printed.
  symbols.replaceLister("head -n 2 \"$2.list\"\nsleep 0.2\nkill -9 $PPID\n");
  EXPECT_EQ(symbols.conversion().run().status, 1000 + SIGKILL);
  symbols.takeListerRuns();
  EXPECT_FALSE(symbols.folder().has("cache/bin_app.nm"));
  EXPECT_FALSE(symbols.folder().has("cache/symbolcache.json"));
  symbols.replaceLister("exec cat \"$2.list\"\n");
  EXPECT_TRUE(matchesGolden("symbols", symbols.run().document));
  EXPECT_EQ(symbols.takeListerRuns(), BOTH_LISTED);
  EXPECT_EQ(symbols.cacheNames(), CACHE_NAMES);
}

TEST(GoldenSymbolsTest, SeveralRunsAtOnceShareTheCache) {
  const SymbolRun symbols;
  symbols.replaceLister("sleep 0.05\nexec cat \"$2.list\"\n");
  symbols.folder().write("several.conf",
                         "{\"kernelSymbolFile\": \"kernel.syms\", \"symbolCacheDir\": \"cache\"}");
  const std::string program = std::string("\"") + TRACEMILL_WITH_LISTER + "\" './lister -x' ";
  const std::string command = "cd \"" + symbols.folder().path() + "\" && for i in 1 2 3 4; do " +
                              program +
                              "-c several.conf -i recording.perf -o several$i.json >/dev/null & "
                              "done; wait";
  EXPECT_EQ(std::system(command.c_str()), 0);
  for (const char* name : {"several1.json", "several2.json", "several3.json", "several4.json"}) {
    EXPECT_TRUE(matchesGolden("symbols", symbols.folder().read(name))) << name;
  }
  EXPECT_EQ(symbols.cacheNames(), CACHE_NAMES);
  EXPECT_EQ(symbols.folder().read("cache/symbolcache.json"), wholeIndex());
  EXPECT_EQ(symbols.folder().read("cache/lib_libx.so.nm"), LIBRARY_LIST);
}
