// The lister that users have, on small programs and libraries compiled for these tests.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolCache.h"
#include "symbols/SymbolTableStore.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class RealListerTest : public testing::Test {
 protected:
  RealListerTest() {
    makeStoresAnew();
    PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
    settings->symbolCacheDir = temp.file("cache");
    settings->symbolListCommand = LISTER " -nCgl --format=bsd";
  }

  SymbolTable* tableOf(const std::string& fixture) {
    map.name = FIXTURES "/" + fixture;
    return kestrel::Singleton<SymbolTableStore>::Instance()->getSymbolTable(&map);
  }
  // The "files" table if every function had been hit.
  static std::string filesOf(SymbolTable* table) {
    for (RangedItem* item : table->items()) {
      dynamic_cast<FunctionInfo&>(*item).refCount = 1;
    }
    return jsonObjectText([](kestrel::JsomWriter& writer) {
      kestrel::Singleton<SourceFileStore>::Instance()->writeLegacyJsonObject(writer, false);
    });
  }

  TempDir temp;
  MMapInfo map;
};

TEST_F(RealListerTest, CProgram) {
  SymbolTable* const table = tableOf("c_plain");
  FunctionInfo* const hot = table->findFunction("hot_function");
  FunctionInfo* const cold = table->findFunction("cold_function");
  ASSERT_NE(hot, nullptr);
  ASSERT_NE(cold, nullptr);
  ASSERT_NE(table->findFunction("main"), nullptr);
  EXPECT_EQ(table->findFunction("helper"), nullptr);       // local: not listed
  EXPECT_EQ(table->findFunction("hot_counter"), nullptr);  // data
  EXPECT_EQ(hot->start + hot->size, cold->start);
  EXPECT_EQ(hot, table->getFunction(hot->start + 1, &map));
  EXPECT_EQ(cold, table->getFunction(cold->start, &map));
  EXPECT_THAT(filesOf(table), Not(HasSubstr("hot.c")));
}

TEST_F(RealListerTest, CProgramWithDebugInformationHasItsSourceFile) {
  SymbolTable* const table = tableOf("c_debug");
  const FunctionInfo* const hot = table->findFunction("hot_function");
  ASSERT_NE(hot, nullptr);
  const std::string files = filesOf(table);
  EXPECT_THAT(files, HasSubstr("\"/fixtures/hot.c\",[["));
  EXPECT_THAT(files, HasSubstr("[" + std::to_string(hot->key) + ",0]"));  // lines are always 0
}

TEST_F(RealListerTest, CxxNamesAreDemangled) {
  for (const char* const fixture : {"cxx_plain", "cxx_debug"}) {
    SymbolTable* const table = tableOf(fixture);
    EXPECT_NE(table->findFunction("work::Engine::turn(int, char const*)"), nullptr) << fixture;
    EXPECT_NE(table->findFunction("int work::twice<int>(int)"), nullptr) << fixture;  // weak
    EXPECT_NE(table->findFunction("main"), nullptr) << fixture;
    map.symbolTable = nullptr;
  }
}

TEST_F(RealListerTest, CxxProgramWithDebugInformationHasItsSourceFile) {
  EXPECT_THAT(filesOf(tableOf("cxx_debug")), HasSubstr("\"/fixtures/hot.cpp\",[["));
}

TEST_F(RealListerTest, SharedLibraryIsFoundBehindItsLoadBias) {
  SymbolTable* const table = tableOf("libshared.so");
  FunctionInfo* const hot = table->findFunction("hot_function");
  ASSERT_NE(hot, nullptr);
  map.loadBias = 0x40100000;
  EXPECT_EQ(hot, table->getFunction(0x40100000 + hot->start, &map));
  EXPECT_EQ(table->findFunction("helper"), nullptr);
}

TEST_F(RealListerTest, StaticProgram) {
  SymbolTable* const table = tableOf("c_static");
  EXPECT_NE(table->findFunction("hot_function"), nullptr);
  EXPECT_NE(table->findFunction("main"), nullptr);
  EXPECT_GT(table->items().size(), 100u);
}

TEST_F(RealListerTest, StrippedFilesHaveNoSymbolsAndNoList) {
  const LogCapture log;
  for (const char* const fixture : {"c_stripped", "libstripped.so"}) {
    const std::string path = FIXTURES "/" + std::string(fixture);
    EXPECT_TRUE(tableOf(fixture)->items().empty()) << fixture;
    EXPECT_TRUE(log.has("INFO", "SymbolCache", "No symbols found in '" + path + "'"));
    map.symbolTable = nullptr;
  }
  EXPECT_THAT(temp.read("cache/symbolcache.json"), HasSubstr("\"size\":0"));
  EXPECT_THAT(temp.read("cache/symbolcache.json"), Not(HasSubstr("\"file\"")));
}

TEST_F(RealListerTest, FileThatIsNoProgramHasNoSymbols) {
  map.name = temp.write("text", "no program\n");
  SymbolTable* const table = kestrel::Singleton<SymbolTableStore>::Instance()->getSymbolTable(&map);
  EXPECT_TRUE(table->items().empty());
}

TEST_F(RealListerTest, DefaultCommandIsTheOneUsedHereWithTheSystemsLister) {
  EXPECT_EQ(PerfSettings().symbolListCommand, "/usr/bin/nm -nCgl --format=bsd");
}

}  // namespace
