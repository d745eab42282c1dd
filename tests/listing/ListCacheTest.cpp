#include <sys/stat.h>
#include <sys/time.h>

#include <gtest/gtest.h>

#include "listing/ListCache.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

class ListCacheTest : public testing::Test {
 protected:
  std::string textOf(const std::string& path) {
    return temp.read(path.substr(temp.path().size() + 1));
  }
  std::string keep(ListCache& cache, const std::string& source, const std::string& list) {
    const std::string path = cache.temporaryPath();
    temp.write(path.substr(temp.path().size() + 1), list);
    return cache.store(source, {Outcome::Named, "/usr/lib/debug/x", path});
  }

  TempDir temp;
};

TEST_F(ListCacheTest, WhatIsKeptIsFoundByAnotherRun) {
  ListCache cache(temp.path(), 1000);
  EXPECT_FALSE(cache.find("one"));
  keep(cache, "one", "list of one");
  const auto entry = ListCache(temp.path(), 1000).find("one");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->outcome, Outcome::Named);
  EXPECT_EQ(entry->symbolsFrom, "/usr/lib/debug/x");
  EXPECT_EQ(textOf(entry->list), "list of one");
  EXPECT_FALSE(cache.find("two"));
}

TEST_F(ListCacheTest, ThatThereIsNothingIsKept) {
  ListCache cache(temp.path(), 1000);
  EXPECT_EQ(cache.store("one", {Outcome::NoSymbols, ".dynsym", ""}), "");
  const auto entry = cache.find("one");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->outcome, Outcome::NoSymbols);
  EXPECT_EQ(entry->list, "");
}

TEST_F(ListCacheTest, ASourceWithLineEndsIsItself) {
  ListCache cache(temp.path(), 1000);
  keep(cache, "a\nb 1 list", "text");
  EXPECT_TRUE(cache.find("a\nb 1 list"));
  EXPECT_FALSE(cache.find("a\nb"));
}

TEST_F(ListCacheTest, AnEntryWithoutItsListIsNone) {
  ListCache cache(temp.path(), 1000);
  const std::string list = keep(cache, "one", "text");
  std::remove(list.c_str());
  EXPECT_FALSE(cache.find("one"));
}

TEST_F(ListCacheTest, ATornEntryIsNone) {
  ListCache cache(temp.path(), 1000);
  const std::string list = keep(cache, "one", "text");
  const std::string info =
      list.substr(temp.path().size() + 1, list.size() - temp.path().size() - 6) + ".info";
  const std::string whole = temp.read(info);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    temp.write(info, whole.substr(0, size));
    EXPECT_FALSE(cache.find("one")) << size;
  }
  temp.write(info, whole);
  EXPECT_TRUE(cache.find("one"));
}

TEST_F(ListCacheTest, TheLeastRecentlyUsedGo) {
  ListCache cache(temp.path(), 3000);
  for (const char* name : {"one", "two", "tri"}) {
    const std::string list = keep(cache, name, std::string(1200, 'x'));
    const std::string info = list.substr(0, list.size() - 5) + ".info";
    const timeval old[2] = {{1000, 0}, {1000, 0}};
    ::utimes(info.c_str(), old);
  }
  EXPECT_TRUE(cache.find("one"));  // used now
  cache.trim();
  EXPECT_TRUE(cache.find("one"));
  EXPECT_NE(cache.find("two").has_value(), cache.find("tri").has_value());
}

TEST_F(ListCacheTest, NoDirectoryKeepsNothing) {
  ListCache cache("", 1000);
  EXPECT_EQ(cache.temporaryPath(), "");
  EXPECT_FALSE(cache.find("one"));
  cache.trim();
}

TEST_F(ListCacheTest, FilesOfRunsThatDiedGoAfterAnHour) {
  ListCache cache(temp.path(), 1000);
  temp.write("lists/new-1-0", "old");
  temp.write("lists/new-2-0", "being written");
  const timeval old[2] = {{1000, 0}, {1000, 0}};
  ::utimes(temp.file("lists/new-1-0").c_str(), old);
  cache.trim();
  EXPECT_FALSE(temp.has("lists/new-1-0"));
  EXPECT_TRUE(temp.has("lists/new-2-0"));
}

}  // namespace
}  // namespace listing
