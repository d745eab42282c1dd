// Indexes that are malformed or hold something else than expected.
#include <ctime>

#include "tests/support/StreamCapture.h"
#include "tests/symbols/SymbolCacheFixture.h"

namespace {

using testing::ElementsAre;

using SymbolCacheIndexTest = SymbolCacheFixture;

TEST_F(SymbolCacheIndexTest, EntryThatIsNoObjectCountsAsAbsent) {
  for (const char* const value : {"null", "true", "5", "1.5", "\"text\"", "[1,2]"}) {
    const std::string path = source("x.so");
    writeIndex("{\"" + path + "\":" + value + "}");
    restart();
    EXPECT_THAT(logOf(path, listPath(path)), ElementsAre(traceAsk(path), traceCreate(path),
                                                         debugCommand(path), infoCreated(path, 9)))
        << value;
    EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}") << value;
  }
}

TEST_F(SymbolCacheIndexTest, MembersOfWrongTypesCountAsTheirDefaults) {
  const std::string path = source("x.so", "1000 T f\n", 0);
  writeIndex("{" + entry(path, "\"file\":\"mine.nm\",\"mtime\":[],\"size\":null") + "}");
  const std::string list = temp.write("cache/mine.nm", "");
  EXPECT_EQ(list, ask(path));  // time 0, size -1
  writeIndex("{" + entry(path, "\"file\":{},\"mtime\":0,\"size\":9") + "}");
  restart();
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheIndexTest, MalformedIndexPrintsTheMessageKeepsWholeMembersAndIsRewrittenWhole) {
  const std::string path = source("x.so");
  writeIndex("{\"/lib/a\":{\"file\":\"a.nm\",\"mtime\":1,\"size\":2},\"/lib/b\":{\"file\":?");
  StderrCapture errors;
  cache();
  EXPECT_EQ(errors.stop(), "JSONData::setFromJsonString(): syntax error: missing value\n");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(index(), "{\"/lib/a\":{\"file\":\"a.nm\",\"mtime\":1,\"size\":2}," +
                         wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheIndexTest, MalformedIndexStillServesItsWholeMembers) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"mine.nm\",\"mtime\":1000000000,\"size\":9") + ",5");
  const std::string list = temp.write("cache/mine.nm", "");
  StderrCapture errors;
  EXPECT_EQ(list, ask(path));
  EXPECT_EQ(errors.stop(),
            "JSONData::setFromJsonString(): syntax error: object key must be a string\n");
  EXPECT_EQ(listerRuns(), 0);
}

TEST_F(SymbolCacheIndexTest, EmptyIndexFileIsAnEmptyIndex) {
  writeIndex("");
  const std::string path = source("x.so");
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}");
}

TEST_F(SymbolCacheIndexTest, IndexThatIsNoObjectIsReplacedByOne) {
  for (const char* const text : {"[1,2]", "5", "\"x\"", "null", "true"}) {
    const std::string path = source("x.so");
    writeIndex(text);
    restart();
    EXPECT_EQ(listPath(path), ask(path)) << text;
    EXPECT_EQ(index(), "{" + wholeEntry(path, 1000000000, 9) + "}") << text;
  }
}

TEST_F(SymbolCacheIndexTest, LaterDuplicateOfAMemberCounts) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"one.nm\",\"mtime\":1000000000") + "," +
             entry(path, "\"file\":\"two.nm\",\"mtime\":1000000000") + "}");
  temp.write("cache/one.nm", "");
  temp.write("cache/two.nm", "");
  EXPECT_EQ(temp.file("cache/two.nm"), ask(path));
}

TEST_F(SymbolCacheIndexTest, NamesAreEscapedInTheIndex) {
  const std::string path = source("a\"b\\c.so");
  setLister("echo 1000 T f");
  ask(path);
  EXPECT_EQ(index(), "{\"" + temp.file("a\\\"b\\\\c.so") + "\":{\"file\":\"" + listName(path) +
                         "\",\"mtime\":1000000000,\"size\":9}}");
  restart();
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 1);
}

TEST_F(SymbolCacheIndexTest, CollidingNamesShareOneListFile) {
  const std::string first = source("a-b", "1000 T first\n");
  const std::string second = source("a_b", "1000 T second_one\n");
  const std::string list = ask(first);
  EXPECT_EQ(list, ask(second));
  EXPECT_EQ(read(listPath(first)), "1000 T second_one\n");
  EXPECT_EQ(index(), "{" + wholeEntry(first, 1000000000, 13) + "," +
                         wholeEntry(second, 1000000000, 18) + "}");
}

TEST_F(SymbolCacheIndexTest, ListThatIsAPipeIsNotServed) {
  const std::string path = source("x.so");
  writeIndex("{" + entry(path, "\"file\":\"pipe.nm\",\"mtime\":1000000000,\"size\":9") + "}");
  ASSERT_EQ(mkfifo(temp.file("cache/pipe.nm").c_str(), 0666), 0);
  settings().freezeSymbolCache = true;
  EXPECT_EQ(ask(path), "none");
  settings().freezeSymbolCache = false;
  EXPECT_EQ(listPath(path), ask(path));
  EXPECT_EQ(listerRuns(), 1);
}

// Quadratic cost would be 64 times as much.
TEST_F(SymbolCacheIndexTest, LookUpsDoNotGrowWithTheNumberOfEntries) {
  const std::string file = source("x.so");
  const std::string name = file.substr(temp.path().size() + 1);
  const LogCapture quiet(*kestrel::LogLevel::LVL_ERROR);
  const auto secondsFor = [&](unsigned entries) {
    std::vector<std::string> paths;
    std::string text;
    for (unsigned i = 0; i < entries; ++i) {
      std::string path = temp.path();
      for (unsigned bit = 0; bit < 14; ++bit) {  // other names of the same file
        path += (i >> bit & 1U) != 0 ? "/." : "//";
      }
      paths.push_back(path + "/" + name);
      text += (i == 0 ? "{" : ",") + entry(paths.back(), "\"mtime\":1000000000,\"size\":0");
    }
    writeIndex(text + "}");
    restart();
    const std::clock_t before = std::clock();
    for (const std::string& path : paths) {
      EXPECT_EQ(ask(path), "none");
    }
    return static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
  };
  const double few = secondsFor(2000);
  EXPECT_LT(secondsFor(16000), 25 * few);
  EXPECT_EQ(listerRuns(), 0);
}

}  // namespace
