// How the cache runs the lister, and what it does with quick, slow, failing and missing ones.
#include <chrono>
#include <cstdlib>
#include <functional>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/symbols/SymbolCacheFixture.h"

namespace {

using testing::ElementsAre;

class SymbolCacheListerTest : public SymbolCacheFixture {
 protected:
  static double secondsOf(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }
  static LogLine warnOption(const std::string& path) {
    return line("WARN", "Not listing '" + path + "', its name reads as an option");
  }
  LogLine warnOutput(const std::string& path) {
    return line("WARN", "Error creating symbol output file '" + listPath(path) + "'");
  }
  // Asks for a list that is not to be had, and checks that nothing of it stays.
  void expectRefused(const std::string& path) {
    const LogCapture log;
    EXPECT_EQ(ask(path), "none");
    EXPECT_THAT(log.lines("SymbolCache"), ElementsAre(traceAsk(path), warnOption(path)));
    EXPECT_EQ(listerRuns(), 0);
    EXPECT_THAT(cacheFiles(), testing::IsEmpty());
  }
  // The lister's arguments for a file of this name, each in brackets.
  std::string argumentsFor(const std::string& name) {
    setLister("for a in \"$@\"; do printf '[%s]' \"$a\"; done");
    const std::string list = ask(source(name));
    return list == "none" ? list : read(list);
  }
};

TEST_F(SymbolCacheListerTest, CommandIsSplitIntoArgumentsAndTheFileIsTheLast) {
  setLister("for a in \"$@\"; do printf '[%s]' \"$a\"; done");
  settings().symbolListCommand += " -nCgl '--two words' \"\"";
  const std::string path = source("x.so");
  EXPECT_EQ(read(ask(path)), "[-nCgl][--two words][][" + path + "]");
}

TEST_F(SymbolCacheListerTest, ListerIsSearchedOnThePath) {
  setLister("echo found");
  settings().symbolListCommand = "lister.sh";
  const std::string path = temp.path() + ":" + std::getenv("PATH");
  ASSERT_EQ(setenv("PATH", path.c_str(), 1), 0);
  EXPECT_EQ(read(ask(source("x.so"))), "found\n");
}

TEST_F(SymbolCacheListerTest, ListerRunsWithTheEnvironmentAndTheWorkingDirectory) {
  ASSERT_EQ(setenv("LISTER_TEST", "a value", 1), 0);
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  setLister("echo \"$LISTER_TEST\"; pwd -P");
  char working[4096];
  ASSERT_NE(getcwd(working, sizeof working), nullptr);
  EXPECT_EQ(read(ask(source("x.so"))), std::string("a value\n") + working + "\n");
}

TEST_F(SymbolCacheListerTest, NameIsNotReadByAShell) {
  EXPECT_EQ(argumentsFor("$HOME;`x`&*"), "[" + temp.file("$HOME;`x`&*") + "]");
}

TEST_F(SymbolCacheListerTest, NameWithABlankIsSplitAsTheCommandLineIs) {
  EXPECT_EQ(argumentsFor("a b"), "[" + temp.file("a") + "][b]");
}

TEST_F(SymbolCacheListerTest, HyphensAndAtSignsInsideWordsAreNoOptions) {
  EXPECT_EQ(argumentsFor("a-b@c d-@"), "[" + temp.file("a-b@c") + "][d-@]");
}

TEST_F(SymbolCacheListerTest, NameThatBeginsWithAHyphenIsNotListed) {
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  source("-x");
  expectRefused("-x");
}

TEST_F(SymbolCacheListerTest, NameThatIsAHyphenIsNotListed) {
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  source("-");
  expectRefused("-");
}

TEST_F(SymbolCacheListerTest, NameThatBeginsWithAnAtSignIsNotListed) {
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  source("@options");
  expectRefused("@options");
}

TEST_F(SymbolCacheListerTest, NameWithALaterWordThatReadsAsAnOptionIsNotListed) {
  expectRefused(source("a --plugin=x.so"));
}

TEST_F(SymbolCacheListerTest, NameWithALaterWordOfAnAtSignIsNotListed) {
  expectRefused(source("a @x"));
}

TEST_F(SymbolCacheListerTest, TabsSplitWordsToo) { expectRefused(source("a\t-x")); }

TEST_F(SymbolCacheListerTest, LineFeedsSplitNoWords) {
  EXPECT_EQ(argumentsFor("a\n-x"), "[" + temp.file("a\n-x") + "]");
}

TEST_F(SymbolCacheListerTest, QuotedWordThatReadsAsAnOptionIsNotListed) {
  expectRefused(source("a '-x'"));
}

TEST_F(SymbolCacheListerTest, WordThatBeginsWithEmptyQuotesAndReadsAsAnOptionIsNotListed) {
  expectRefused(source("a \"\"-x"));
}

TEST_F(SymbolCacheListerTest, OptionInsideAQuotedWordIsNone) {
  EXPECT_EQ(argumentsFor("'a -x'"), "[" + temp.file("a -x") + "]");
}

TEST_F(SymbolCacheListerTest, BackslashBeforeAHyphenStaysInTheWordAndMakesItNoOption) {
  EXPECT_EQ(argumentsFor("a \\-x"), "[" + temp.file("a") + "][\\-x]");
}

TEST_F(SymbolCacheListerTest, RefusedNameLeavesAnEntryAndItsListAlone) {
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  source("-x");
  const std::string before = "{\"-x\":{\"file\":\"mine.nm\",\"mtime\":5,\"size\":9}}";
  writeIndex(before);
  temp.write("cache/mine.nm", "1000 T f\n");
  EXPECT_EQ(ask("-x"), "none");
  EXPECT_EQ(before, index());
  EXPECT_EQ(temp.read("cache/mine.nm"), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, CachedListOfANameThatReadsAsAnOptionIsServed) {
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  source("-x");
  writeIndex("{\"-x\":{\"file\":\"mine.nm\",\"mtime\":1000000000,\"size\":9}}");
  temp.write("cache/mine.nm", "1000 T f\n");
  EXPECT_EQ(temp.file("cache/mine.nm"), ask("-x"));
}

TEST_F(SymbolCacheListerTest, MissingListerIsAnErrorThatLeavesAnEmptyListAndNoEntry) {
  settings().symbolListCommand = "/nonexistent/lister -n";
  const std::string path = source("x.so");
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_THAT(log.lines("SymbolCache"), ElementsAre(traceAsk(path), traceCreate(path),
                                                    debugCommand(path), errorRunning(path, -5)));
  EXPECT_THAT(cacheFiles(), ElementsAre(listName(path)));
  EXPECT_EQ(read(listPath(path)), "");
}

TEST_F(SymbolCacheListerTest, MissingListerIsTriedAgainForEveryFileAndEveryTime) {
  settings().symbolListCommand = "/nonexistent/lister";
  const std::string path = source("x.so");
  EXPECT_EQ(ask(path), "none");
  setLister("cat \"$1\"");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheListerTest, StatusOfAMissingListerIsAlwaysKnownWhenItIsReported) {
  settings().symbolListCommand = "/nonexistent/lister";
  const std::string path = source("x.so");
  const LogCapture log(*kestrel::LogLevel::LVL_ERROR);
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(ask(path), "none");
    ASSERT_EQ(errorRunning(path, -5), log.lines("SymbolCache").back()) << "run " << i;
  }
}

TEST_F(SymbolCacheListerTest, FailedFileIsNotInTheIndexThatALaterListWrites) {
  settings().symbolListCommand = "/nonexistent/lister";
  ask(source("failed.so"));
  setLister("cat \"$1\"");
  const std::string path = source("x.so");
  ask(path);
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheListerTest, ListerThatIsNoProgramIsAMissingOne) {
  settings().symbolListCommand = temp.write("text", "no program");
  const std::string path = source("x.so");
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(errorRunning(path, -5), log.lines("SymbolCache").back());
}

TEST_F(SymbolCacheListerTest, FailureEmptiesAnOlderListAndKeepsItsEntry) {
  const std::string path = source("x.so");
  ask(path);
  const std::string before = index();
  touch(path, 5);
  settings().symbolListCommand = "/nonexistent/lister";
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(before, index());
  EXPECT_EQ(read(listPath(path)), "");
  EXPECT_THAT(cacheFiles(), ElementsAre(listName(path), "symbolcache.json"));
}

TEST_F(SymbolCacheListerTest, FailedListerWithoutOutputMeansNoSymbols) {
  setLister("exit 3");
  const std::string path = source("x.so");
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(index(), "{" + entry(path, "\"mtime\":1000000000,\"size\":0") + "}");
}

TEST_F(SymbolCacheListerTest, ExitStatusDoesNotMatter) {
  setLister("echo 1000 T f; exit 3");
  const std::string path = source("x.so");
  EXPECT_EQ(read(ask(path)), "1000 T f\n");
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheListerTest, KilledListersOutputIsNoList) {
  setLister("echo 1000 T f; kill -9 $$");
  const std::string path = source("x.so");
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(errorCopying(path, "the lister was ended by a signal"),
            log.lines("SymbolCache").back());
  EXPECT_THAT(cacheFiles(), testing::IsEmpty());
  setLister("cat \"$1\"");
  EXPECT_EQ(read(ask(path)), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, KilledListerTakesAnOlderListAwayAndKeepsItsEntry) {
  const std::string path = source("x.so");
  ask(path);
  const std::string before = index();
  touch(path, 5);
  setLister("echo 2000 T half; kill -9 $$");
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(before, index());
  EXPECT_THAT(cacheFiles(), ElementsAre("symbolcache.json"));
}

// The lister puts a directory where its list is to go.
TEST_F(SymbolCacheListerTest, ListThatCannotTakeItsPlaceIsNotRecorded) {
  const std::string path = source("x.so");
  setLister("cat \"$1\"; mkdir '" + listPath(path) + "'");
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(errorCopying(path, "Is a directory"), log.lines("SymbolCache").back());
  EXPECT_EQ(index(), "");
  setLister("cat \"$1\"");
  EXPECT_EQ(read(ask(path)), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, CreateCacheFileIsFalseForAListThatCannotTakeItsPlace) {
  const std::string path = source("x.so");
  const std::string list = temp.file("elsewhere.nm");
  setLister("mkdir '" + list + "'");
  const LogCapture log;
  EXPECT_FALSE(cache().createCacheFile(path, list));
  EXPECT_EQ(errorCopying(path, "Is a directory"), log.lines("SymbolCache").back());
}

TEST_F(SymbolCacheListerTest, QuickListersAreListedWholeEveryTimeAndAtOnce) {
  setLister("echo 1000 T f");
  for (int i = 0; i < 100; ++i) {
    const std::string path = source("x" + std::to_string(i));
    std::string list;
    EXPECT_LT(secondsOf([&] { list = ask(path); }), 3.0);
    ASSERT_EQ(read(list), "1000 T f\n");
  }
  EXPECT_EQ(listerRuns(), 100);
}

TEST_F(SymbolCacheListerTest, QuickSilentListersEndAtOnce) {
  settings().symbolListCommand = "/bin/true";
  for (int i = 0; i < 100; ++i) {
    const std::string path = source("x" + std::to_string(i));
    EXPECT_LT(secondsOf([&] { EXPECT_EQ(ask(path), "none"); }), 3.0);
  }
}

TEST_F(SymbolCacheListerTest, SlowListerIsWaitedFor) {
  setLister("echo 1000 T first; sleep 1; echo 2000 T second; sleep 1; echo 3000 T third");
  EXPECT_EQ(read(ask(source("x.so"))), "1000 T first\n2000 T second\n3000 T third\n");
}

TEST_F(SymbolCacheListerTest, ListerThatIsSilentForLongerThanTheDrainLimitIsWaitedFor) {
  setLister("sleep 6; echo 1000 T f");
  EXPECT_EQ(read(ask(source("x.so"))), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, ListerThatClosesItsOutputEarlyIsWaitedFor) {
  setLister("echo 1000 T f; exec >&-; sleep 1; echo done > '" + temp.file("done") + "'");
  EXPECT_EQ(read(ask(source("x.so"))), "1000 T f\n");
  EXPECT_TRUE(temp.has("done"));
}

TEST_F(SymbolCacheListerTest, OutputThatNeverEndsAfterTheListerIsNeverIndexed) {
  setLister("echo $$ > '" + temp.file("pid") + "'; sleep 30 & echo $! > '" + temp.file("sleeper") +
            "'; echo 1000 T f");
  const std::string path = source("x.so");
  const LogCapture log;
  const double seconds = secondsOf([&] { EXPECT_EQ(ask(path), "none"); });
  kill(static_cast<pid_t>(std::strtol(temp.read("sleeper").c_str(), nullptr, 10)), SIGKILL);
  EXPECT_GE(seconds, 4.9);
  EXPECT_LT(seconds, 15.0);
  EXPECT_EQ(errorCopying(path, "Connection timed out"), log.lines("SymbolCache").back());
  EXPECT_EQ(index(), "");
  EXPECT_THAT(cacheFiles(), testing::IsEmpty());
}

TEST_F(SymbolCacheListerTest, AMegabyteOnStandardErrorDoesNotBlockTheLister) {
  setLister("head -c 1048576 /dev/zero >&2; echo 1000 T f; head -c 1048576 /dev/zero >&2");
  EXPECT_EQ(read(ask(source("x.so"))), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, StandardErrorIsNotInTheList) {
  setLister("echo 'nm: warning' >&2; echo 1000 T f; echo 'nm: another' >&2");
  EXPECT_EQ(read(ask(source("x.so"))), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, ListerThatReadsItsStandardInputMeetsItsEndAtOnce) {
  setLister("cat; echo 1000 T f");
  EXPECT_EQ(read(ask(source("x.so"))), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, HugeOutputArrivesWhole) {
  constexpr std::size_t BYTES = 200'000'000;
  setLister("head -c " + std::to_string(BYTES) + " /dev/zero | tr '\\0' x; printf end");
  const std::string path = source("x.so");
  const LogCapture log(*kestrel::LogLevel::LVL_INFO);
  const std::string list = ask(path);
  ASSERT_EQ(listPath(path), list);
  EXPECT_EQ(infoCreated(path, BYTES + 3), log.lines("SymbolCache").back());
  std::FILE* const file = std::fopen(list.c_str(), "rb");
  ASSERT_NE(file, nullptr);
  std::size_t others = 0;
  std::size_t total = 0;
  static char block[1 << 16];
  for (std::size_t size; (size = std::fread(block, 1, sizeof block, file)) > 0; total += size) {
    others += size - static_cast<std::size_t>(std::count(block, block + size, 'x'));
  }
  std::fclose(file);
  EXPECT_EQ(total, BYTES + 3);
  EXPECT_EQ(others, 3u);
}

TEST_F(SymbolCacheListerTest, ListNameOf255BytesWorks) {
  const std::string path = source(std::string(252 - temp.path().size() - 1, 'n'));
  ASSERT_EQ(listName(path).size(), 255u);
  EXPECT_EQ(read(ask(path)), "1000 T f\n");
  EXPECT_THAT(cacheFiles(), ElementsAre(listName(path), "symbolcache.json"));
}

TEST_F(SymbolCacheListerTest, ListNameOf256BytesCannotBeOpened) {
  const std::string path = source(std::string(253 - temp.path().size() - 1, 'n'));
  ASSERT_EQ(listName(path).size(), 256u);
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_THAT(log.lines("SymbolCache"),
              ElementsAre(traceAsk(path), traceCreate(path), debugCommand(path), warnOutput(path)));
  EXPECT_EQ(listerRuns(), 0);
  EXPECT_THAT(cacheFiles(), testing::IsEmpty());
}

TEST_F(SymbolCacheListerTest, ListPathThatIsADirectoryCannotBeOpened) {
  const std::string path = source("x.so");
  ASSERT_EQ(mkdir(listPath(path).c_str(), 0777), 0);
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_THAT(log.lines("SymbolCache"),
              ElementsAre(traceAsk(path), traceCreate(path), debugCommand(path), warnOutput(path)));
  EXPECT_EQ(listerRuns(), 0);
  EXPECT_THAT(cacheFiles(), ElementsAre(listName(path)));
}

TEST_F(SymbolCacheListerTest, CacheDirectoryThatIsGoneCannotTakeAList) {
  cache();
  ASSERT_EQ(rmdir(temp.file("cache").c_str()), 0);
  const std::string path = source("x.so");
  const LogCapture log;
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(warnOutput(path), log.lines("SymbolCache").back());
  EXPECT_EQ(listerRuns(), 0);
}

TEST_F(SymbolCacheListerTest, FailureToOpenTheListLeavesTheEntryAlone) {
  const std::string path = source("x.so");
  ask(path);
  const std::string before = index();
  touch(path, 5);
  unlink(listPath(path).c_str());
  ASSERT_EQ(mkdir(listPath(path).c_str(), 0777), 0);
  EXPECT_EQ(ask(path), "none");
  EXPECT_EQ(before, index());
}

TEST_F(SymbolCacheListerTest, CreateCacheFileListsAnyFileToAnyPath) {
  const std::string path = source("x.so");
  const std::string list = temp.file("elsewhere.nm");
  const LogCapture log;
  EXPECT_TRUE(cache().createCacheFile(path, list));
  EXPECT_EQ(read(list), "1000 T f\n");
  EXPECT_THAT(log.lines("SymbolCache"),
              ElementsAre(line("TRACE", "createCacheFile '" + path + "' '" + list + "'"),
                          debugCommand(path)));
  EXPECT_EQ(index(), "");
}

TEST_F(SymbolCacheListerTest, CreateCacheFileCutsAnOlderListToTheNewOutput) {
  const std::string list = temp.write("elsewhere.nm", std::string(100, 'x'));
  EXPECT_TRUE(cache().createCacheFile(source("x.so"), list));
  EXPECT_EQ(read(list), "1000 T f\n");
}

TEST_F(SymbolCacheListerTest, ListIsNotSeenBeforeItIsComplete) {
  const std::string path = source("x.so");
  ask(path);
  touch(path, 5);
  setLister("echo 2000 T new; cat '" + listPath(path) + "' > '" + temp.file("seen") + "'");
  EXPECT_EQ(read(ask(path)), "2000 T new\n");
  EXPECT_EQ(temp.read("seen"), "1000 T f\n");
}

// Runs that share a cache directory: the other run is a process of its own.
class SymbolCacheOtherRunTest : public SymbolCacheListerTest {
 protected:
  // Asks for the list of `path` in another process, and returns once its lister has started.
  pid_t askElsewhere(const std::string& path) {
    const pid_t other = fork();
    if (other == 0) {
      execl(LIST_ONE_FILE, LIST_ONE_FILE, settings().symbolCacheDir.c_str(),
            settings().symbolListCommand.c_str(), path.c_str(), nullptr);
      _exit(127);
    }
    for (int i = 0; i < 1000 && listerRuns() == 0; ++i) {
      usleep(10000);
    }
    EXPECT_EQ(listerRuns(), 1);
    return other;
  }
};

TEST_F(SymbolCacheOtherRunTest, ListOfARunThatDiedIsNeverTakenAndItsTemporaryFileIsRemoved) {
  setLister("echo 1000 T partial; echo $$ > '" + temp.file("lister") + "'; exec sleep 30");
  const std::string path = source("x.so");
  const pid_t other = askElsewhere(path);
  for (int i = 0; i < 1000 && temp.read("lister").empty(); ++i) {
    usleep(10000);
  }
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  kill(static_cast<pid_t>(std::strtol(temp.read("lister").c_str(), nullptr, 10)), SIGKILL);
  EXPECT_EQ(cacheFiles().size(), 1u);
  cache();
  EXPECT_THAT(cacheFiles(), testing::IsEmpty());
  setLister("cat \"$1\"");
  EXPECT_EQ(read(ask(path)), "1000 T f\n");
  EXPECT_EQ(listerRuns(), 2);
}

TEST_F(SymbolCacheOtherRunTest, TemporaryFileOfARunThatGoesOnStays) {
  setLister("sleep 2; cat \"$1\"");
  const std::string path = source("x.so");
  const pid_t other = askElsewhere(path);
  cache();
  EXPECT_EQ(cacheFiles().size(), 1u);
  waitpid(other, nullptr, 0);
  EXPECT_THAT(cacheFiles(), ElementsAre(listName(path), "symbolcache.json"));
  EXPECT_EQ(read(listPath(path)), "1000 T f\n");
}

}  // namespace
