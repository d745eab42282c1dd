// Which list the cache answers with, in which order it looks, and what it keeps.
#include <fcntl.h>
#include <unistd.h>

#include "symbols/SymbolCache.h"
#include "tests/support/StreamCapture.h"
#include "tests/symbols/SymbolCacheFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SymbolCacheTest : public SymbolCacheFixture {
 protected:
  static LogLine infoOverride(const std::string& path, const std::string& list) {
    return line("INFO", "Using override for '" + path + "' in '" + list + "'");
  }
  static LogLine infoNoSource(const std::string& path) {
    return line("INFO", "Skipping..., source file does not exist '" + path + "'");
  }
  static LogLine infoFrozen(const std::string& path, const std::string& list) {
    return line("INFO", "Cache Freeze: Using previously cached version of '" + path + "' in '" +
                            list + "'");
  }
  static LogLine infoFrozenNone(const std::string& path) {
    return line("INFO", "Cache Freeze: Skipping... no cached version of '" + path + "'");
  }
};

// Names of list files

TEST_F(SymbolCacheTest, ListNameKeepsLettersDigitsAndFullStops) {
  EXPECT_EQ(listName("/lib/libc-2.19.so"), "_lib_libc_2.19.so.nm");
  EXPECT_EQ(listName("azAZ09._-+ ~@/"), "azAZ09._______.nm");
  EXPECT_EQ(listName(""), ".nm");
}

TEST_F(SymbolCacheTest, EveryOtherByteOfAListNameIsAnUnderscore) {
  for (int byte = 1; byte < 256; ++byte) {
    const bool kept = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                      (byte >= 'a' && byte <= 'z') || byte == '.';
    const char character = static_cast<char>(byte);
    EXPECT_EQ(listName(std::string(1, character)), std::string(1, kept ? character : '_') + ".nm");
  }
}

TEST_F(SymbolCacheTest, ListNameIsAppended) {
  std::string name = "before/";
  cache().generateCacheFileName("/a", name);
  EXPECT_EQ(name, "before/_a.nm");
}

TEST_F(SymbolCacheTest, DifferentPathsMayShareAListName) {
  EXPECT_EQ(listName("/a-b"), listName("/a_b"));
}

// Construction

TEST_F(SymbolCacheTest, ConstructionMakesTheCacheDirectoryWithItsParentsButNoIndex) {
  settings().symbolCacheDir = temp.file("deep/er/cache");
  cache();
  EXPECT_TRUE(temp.has("deep/er/cache"));
  EXPECT_FALSE(temp.has("deep/er/cache/symbolcache.json"));
}

TEST_F(SymbolCacheTest, RelativeCacheDirectory) {
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  settings().symbolCacheDir = "./cache";
  const std::string path = source("x.so");
  EXPECT_EQ(ask(path), "./cache/" + listName(path));
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheTest, ConstructionWithoutIndexPrintsNothing) {
  const StderrCapture errors;
  cache();
  EXPECT_EQ(errors.text(), "");
}

TEST_F(SymbolCacheTest, CacheDirectoryThatIsAFileIsNotFatal) {
  temp.write("cache", "in the way");
  const std::string path = source("x.so");
  EXPECT_THAT(
      logOf(path, "none"),
      ElementsAre(traceAsk(path), traceCreate(path), debugCommand(path),
                  line("WARN", "Error creating symbol output file '" + listPath(path) + "'")));
  EXPECT_EQ(temp.read("cache"), "in the way");
}

// A new list

TEST_F(SymbolCacheTest, NewListIsTheListersOutputUnchanged) {
  const std::string bytes("1000 T f\r\n\0\xFF no line feed", 26);
  const std::string path = source("x.so", bytes);
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(bytes, read(listPath(path)));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, NewListIsReportedStepByStep) {
  const std::string path = source("x.so");
  EXPECT_THAT(logOf(path, listPath(path)), ElementsAre(traceAsk(path), traceCreate(path),
                                                       debugCommand(path), infoCreated(path, 9)));
}

TEST_F(SymbolCacheTest, NewListMakesAnEntryOfFileTimeAndSize) {
  const std::string path = source("x.so", "1000 T f\n2000 T g\n", 1405429210);
  ask(path);
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1405429210, 18) + "}");
}

TEST_F(SymbolCacheTest, IndexIsWrittenAfterEveryNewListInTheOrderOfTheFirstLists) {
  const std::string second = source("b.so", "1000 T f\n", 2);
  const std::string first = source("a.so", "1000 T ff\n", 3);
  ask(second);
  EXPECT_EQ(index(), "{" + wholeEntry(second, 2, 9) + "}");
  ask(first);
  EXPECT_EQ(index(), "{" + wholeEntry(second, 2, 9) + "," + wholeEntry(first, 3, 10) + "}");
  touch(second, 4);
  ask(second);
  EXPECT_EQ(index(), "{" + wholeEntry(second, 4, 9) + "," + wholeEntry(first, 3, 10) + "}");
}

TEST_F(SymbolCacheTest, TimesBefore1970AndAfter2038) {
  const std::string old = source("old.so", "1000 T f\n", -86400);
  const std::string young = source("young.so", "1000 T f\n", 5000000000);
  ask(old);
  ask(young);
  EXPECT_EQ(index(),
            "{" + wholeEntry(old, -86400, 9) + "," + wholeEntry(young, 5000000000, 9) + "}");
  restart();
  EXPECT_THAT(logOf(old, listPath(old)),
              ElementsAre(traceAsk(old), infoUpToDate(old, listPath(old))));
  EXPECT_THAT(logOf(young, listPath(young)),
              ElementsAre(traceAsk(young), infoUpToDate(young, listPath(young))));
}

TEST_F(SymbolCacheTest, OtherEntriesOfTheIndexStayAsTheyAre) {
  writeIndex("{\"/lib/a\":{\"file\":\"a.nm\",\"mtime\":1,\"size\":2,\"extra\":[1,null]},\"b\":3}");
  const std::string path = source("x.so");
  ask(path);
  EXPECT_EQ(index(),
            "{\"/lib/a\":{\"file\":\"a.nm\",\"mtime\":1,\"size\":2,\"extra\":[1,null]},\"b\":3," +
                wholeEntry(path, 1000000000, 9) + "}");
}

// The up-to-date test

TEST_F(SymbolCacheTest, UnchangedSourceIsServedWithoutTheLister) {
  const std::string path = source("x.so");
  ask(path);
  EXPECT_THAT(logOf(path, listPath(path)),
              ElementsAre(traceAsk(path), infoUpToDate(path, listPath(path))));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, UnchangedSourceIsServedInALaterRunToo) {
  const std::string path = source("x.so");
  ask(path);
  const std::string before = index();
  restart();
  EXPECT_THAT(logOf(path, listPath(path)),
              ElementsAre(traceAsk(path), infoUpToDate(path, listPath(path))));
  EXPECT_EQ(listerRuns(), 1);
  EXPECT_EQ(before, index());
}

TEST_F(SymbolCacheTest, ChangedTimeGetsANewListAndARewrittenEntry) {
  const std::string path = source("x.so");
  ask(path);
  source("x.so", "1000 T longer\n", 1000000001);
  EXPECT_THAT(logOf(path, listPath(path)), ElementsAre(traceAsk(path), traceCreate(path),
                                                       debugCommand(path), infoCreated(path, 14)));
  EXPECT_EQ(read(listPath(path)), "1000 T longer\n");
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000001, 14) + "}");
  EXPECT_EQ(listerRuns(), 2);
}

TEST_F(SymbolCacheTest, OlderTimeIsAChangeToo) {
  const std::string path = source("x.so");
  ask(path);
  touch(path, 999999999);
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 2);
}

TEST_F(SymbolCacheTest, OnlyWholeSecondsCount) {
  const std::string path = source("x.so");
  ask(path);
  timespec times[2] = {};
  times[0].tv_sec = times[1].tv_sec = 1000000000;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, ChangedBytesOfTheSameTimeAreNotNoticed) {
  const std::string path = source("x.so");
  ask(path);
  source("x.so", "2000 T other\n");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(read(listPath(path)), "1000 T f\n");
}

TEST_F(SymbolCacheTest, RecordedSizeIsNotComparedWithTheList) {
  const std::string path = source("x.so");
  ask(path);
  temp.write("cache/" + listName(path), "something else\n");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, ListDeletedByHandIsMadeAgain) {
  const std::string path = source("x.so");
  ask(path);
  unlink(listPath(path).c_str());
  EXPECT_THAT(logOf(path, listPath(path)), ElementsAre(traceAsk(path), traceCreate(path),
                                                       debugCommand(path), infoCreated(path, 9)));
  EXPECT_EQ(read(listPath(path)), "1000 T f\n");
}

TEST_F(SymbolCacheTest, ListNameOfTheEntryIsUsedWhateverItIs) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"mtime\":1000000000,\"size\":9,\"file\":\"mine.nm\"") + "}");
  temp.write("cache/mine.nm", "1000 T mine\n");
  const std::string list = temp.file("cache/mine.nm");
  EXPECT_THAT(logOf(path, list), ElementsAre(traceAsk(path), infoUpToDate(path, list)));
  EXPECT_EQ(listerRuns(), 0);
}

TEST_F(SymbolCacheTest, EntryWithoutSizeIsUpToDate) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"mtime\":1000000000,\"file\":\"mine.nm\"") + "}");
  temp.write("cache/mine.nm", "");
  EXPECT_EQ(temp.file("cache/mine.nm"), ask(path));
}

TEST_F(SymbolCacheTest, EntryWithoutTimeStandsForTimeZero) {
  const std::string path = source("x.so", "1000 T f\n", 0);
  writeIndex("{" + entry(path, "\"file\":\"mine.nm\"") + "}");
  temp.write("cache/mine.nm", "");
  EXPECT_EQ(temp.file("cache/mine.nm"), ask(path));
  touch(path, 1);
  EXPECT_EQ(listPath(path), ask(path));
}

TEST_F(SymbolCacheTest, EntryWithoutListNameIsListedAgain) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"mtime\":1000000000,\"size\":5") + "}");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, EntryWithAnEmptyListNameIsListedAgain) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"\",\"mtime\":1000000000,\"size\":5") + "}");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

// Files without symbols

TEST_F(SymbolCacheTest, SourceWithoutSymbolsLeavesAnEntryAndNoList) {
  const std::string path = source("x.so", "");
  EXPECT_THAT(logOf(path, "none"),
              ElementsAre(traceAsk(path), traceCreate(path), debugCommand(path),
                          infoCreated(path, 0), infoNoSymbols(path)));
  EXPECT_EQ(index(), "{" + entry(path, "\"mtime\":1000000000,\"size\":0") + "}");
  EXPECT_THAT(cacheFiles(), ElementsAre("symbolcache.json"));
}

TEST_F(SymbolCacheTest, SourceKnownToHaveNoSymbolsIsNotListedAgain) {
  const std::string path = source("x.so", "");
  ask(path);
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoNoSymbols(path)));
  restart();
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoNoSymbols(path)));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, SizeZeroCountsMoreThanAListThatExists) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"mine.nm\",\"mtime\":1000000000,\"size\":0") + "}");
  temp.write("cache/mine.nm", "1000 T f\n");
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoNoSymbols(path)));
}

TEST_F(SymbolCacheTest, EntryThatIsListedAgainAfterSizeZeroGetsItsFileLast) {
  const std::string path = source("x.so", "");
  ask(path);
  source("x.so", "1000 T f\n", 1000000001);
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(index(),
            "{" +
                entry(path, "\"mtime\":1000000001,\"size\":9,\"file\":\"" + listName(path) + "\"") +
                "}");
}

TEST_F(SymbolCacheTest, SourceThatLosesItsSymbolsLosesFileAndList) {
  const std::string path = source("x.so");
  ask(path);
  source("x.so", "", 1000000001);
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(index(), "{" + entry(path, "\"mtime\":1000000001,\"size\":0") + "}");
  EXPECT_THAT(cacheFiles(), ElementsAre("symbolcache.json"));
}

// Overrides

TEST_F(SymbolCacheTest, OverrideWinsOverACachedList) {
  const std::string path = source("x.so");
  ask(path);
  const std::string list = temp.write("mine", "1000 T f\n");
  cache().setOverride(path, list);
  EXPECT_THAT(logOf(path, list), ElementsAre(traceAsk(path), infoOverride(path, list)));
}

TEST_F(SymbolCacheTest, OverrideWinsInFreezeModeAndWithoutSourceFile) {
  settings().freezeSymbolCache = true;
  const std::string list = temp.write("mine", "");
  cache().setOverride("kernel", list);
  EXPECT_THAT(logOf("kernel", list), ElementsAre(traceAsk("kernel"), infoOverride("kernel", list)));
}

TEST_F(SymbolCacheTest, OverrideWinsOverANameThatReadsAsAnOption) {
  const std::string list = temp.write("mine", "");
  cache().setOverride("-x", list);
  EXPECT_THAT(logOf("-x", list), ElementsAre(traceAsk("-x"), infoOverride("-x", list)));
}

TEST_F(SymbolCacheTest, OverrideWhoseListIsMissingIsIgnored) {
  const std::string path = source("x.so");
  cache().setOverride(path, temp.file("missing"));
  cache().setOverride("kernel", temp.file("missing"));
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_THAT(logOf("kernel", "none"), ElementsAre(traceAsk("kernel"), infoNoSource("kernel")));
}

TEST_F(SymbolCacheTest, OverrideIsForItsExactNameAndCanBeReplaced) {
  const std::string first = temp.write("first", "");
  const std::string second = temp.write("second", "");
  cache().setOverride("kernel", first);
  EXPECT_EQ(ask("kernel2"), "none");
  EXPECT_EQ(first, ask("kernel"));
  cache().setOverride("kernel", second);
  EXPECT_EQ(second, ask("kernel"));
}

// Missing source files

TEST_F(SymbolCacheTest, MissingSourceIsSkippedEvenIfTheIndexHasItsEntry) {
  const std::string path = source("x.so");
  ask(path);
  const std::string before = index();
  unlink(path.c_str());
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoNoSource(path)));
  EXPECT_EQ(before, index());
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, MissingSourceIsSkippedInFreezeModeToo) {
  const std::string path = source("x.so");
  ask(path);
  unlink(path.c_str());
  settings().freezeSymbolCache = true;
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoNoSource(path)));
}

TEST_F(SymbolCacheTest, MissingSourceLeavesNoEntry) {
  const std::string path = source("x.so");
  ask(temp.file("missing"));
  EXPECT_FALSE(temp.has("cache/symbolcache.json"));
  ask(path);
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheTest, DanglingLinkIsAMissingSource) {
  ASSERT_EQ(symlink("nowhere", temp.file("link").c_str()), 0);
  EXPECT_THAT(logOf(temp.file("link"), "none"),
              ElementsAre(traceAsk(temp.file("link")), infoNoSource(temp.file("link"))));
}

TEST_F(SymbolCacheTest, FailureEmptiesTheListPathWhenTheSourceIsMissing) {
  std::string list = "what was there";
  EXPECT_FALSE(cache().getSampleDataFile("/nonexistent", list));
  EXPECT_EQ(list, "");
}

// Freeze mode

TEST_F(SymbolCacheTest, FrozenCacheServesAListWhateverTheSourcesTime) {
  const std::string path = source("x.so");
  ask(path);
  touch(path, 5);
  settings().freezeSymbolCache = true;
  EXPECT_THAT(logOf(path, listPath(path)),
              ElementsAre(traceAsk(path), infoFrozen(path, listPath(path))));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsASourceWithoutEntry) {
  settings().freezeSymbolCache = true;
  const std::string path = source("x.so");
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoFrozenNone(path)));
  EXPECT_EQ(listerRuns(), 0);
  EXPECT_THAT(cacheFiles(), IsEmpty());
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsASourceWhoseListWasDeleted) {
  const std::string path = source("x.so");
  ask(path);
  unlink(listPath(path).c_str());
  settings().freezeSymbolCache = true;
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoFrozenNone(path)));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsASourceKnownToHaveNoSymbols) {
  const std::string path = source("x.so", "");
  ask(path);
  settings().freezeSymbolCache = true;
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoFrozenNone(path)));
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsSizeZeroEvenIfAListExists) {
  settings().freezeSymbolCache = true;
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"mine.nm\",\"mtime\":1000000000,\"size\":0") + "}");
  temp.write("cache/mine.nm", "1000 T f\n");
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoFrozenNone(path)));
}

TEST_F(SymbolCacheTest, FrozenCacheServesAnEntryOfAFileNameAlone) {
  settings().freezeSymbolCache = true;
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"mine.nm\"") + "}");
  const std::string list = temp.write("cache/mine.nm", "");
  EXPECT_THAT(logOf(path, list), ElementsAre(traceAsk(path), infoFrozen(path, list)));
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsAnEntryWithoutFileName) {
  settings().freezeSymbolCache = true;
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"mtime\":1000000000,\"size\":9") + "}");
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoFrozenNone(path)));
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsAnEntryThatIsNoObject) {
  settings().freezeSymbolCache = true;
  const std::string path = source("x.so");
  writeIndex("{\"" + path + "\":[\"mine.nm\"]}");
  EXPECT_THAT(logOf(path, "none"), ElementsAre(traceAsk(path), infoFrozenNone(path)));
}

TEST_F(SymbolCacheTest, FrozenCacheSkipsANameThatReadsAsAnOptionLikeAnyOther) {
  settings().freezeSymbolCache = true;
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  source("-x");
  EXPECT_THAT(logOf("-x", "none"), ElementsAre(traceAsk("-x"), infoFrozenNone("-x")));
}

}  // namespace
