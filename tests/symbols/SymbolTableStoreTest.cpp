#include <cstdio>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

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
#include "tests/support/TableTexts.h"
#include "tests/support/TempDir.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Ready-made lists stand in for the lister, which never runs here.
class SymbolTableStoreTest : public testing::Test {
 protected:
  SymbolTableStoreTest() {
    makeStoresAnewIn(temp.path());
    settings().onTargetMode = true;
    mkdir(temp.file("root").c_str(), 0777);
    mkdir(temp.file("root/lib").c_str(), 0777);
  }

  PerfSettings& settings() { return *kestrel::Singleton<PerfSettings>::Instance(); }
  // Made on first use, after the settings.
  SymbolTableStore& store() {
    if (!store_) {
      store_ = std::make_unique<SymbolTableStore>();
    }
    return *store_;
  }
  MMapInfo& map(const std::string& name) {
    maps_.push_back(std::make_unique<MMapInfo>());
    maps_.back()->name = name;
    return *maps_.back();
  }
  SymbolTable* tableOf(const std::string& name) { return store().getSymbolTable(&map(name)); }
  void setList(const std::string& located, const std::string& list) {
    const std::string path = temp.write("list" + std::to_string(++lists_), list);
    kestrel::Singleton<SymbolCache>::Instance()->setOverride(located, path);
  }
  std::string locate(const std::string& name) {
    std::string located = "what was there";
    store()._locateFile(name, located);
    return located;
  }
  std::string rows(bool writeAll) {
    return jsonObjectText(
        [&](kestrel::JsomWriter& writer) { store().writeLegacyJsonObject(writer, writeAll); });
  }
  static std::string expected(const std::string& rows) { return tableText("functions", rows); }

  TempDir temp;

 private:
  int lists_ = 0;
  std::vector<std::unique_ptr<MMapInfo>> maps_;
  std::unique_ptr<SymbolTableStore> store_;
};

static_assert(std::has_virtual_destructor_v<SymbolTableStore>);

TEST_F(SymbolTableStoreTest, MapsOfOneLibraryInTwoProcessesShareATableThatIsListedOnce) {
  const LogCapture log;
  setList("/lib/x.so", "1000 T f\n");
  MMapInfo& first = map("/lib/x.so");
  MMapInfo& second = map("/lib/x.so");
  SymbolTable* const table = store().getSymbolTable(&first);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table, store().getSymbolTable(&second));
  EXPECT_EQ(table, first.symbolTable);
  EXPECT_EQ(table, second.symbolTable);
  EXPECT_EQ(log.messages("SymbolCache", "TRACE").size(), 1u);
  EXPECT_EQ(log.messages("SymbolTableStore", "INFO").size(), 1u);
}

TEST_F(SymbolTableStoreTest, MapThatHasATableKeepsItWhateverItsName) {
  SymbolTable own;
  MMapInfo& mine = map("/lib/x.so");
  mine.symbolTable = &own;
  EXPECT_EQ(&own, store().getSymbolTable(&mine));
  MMapInfo& blank = map("");
  blank.symbolTable = &own;
  EXPECT_EQ(&own, store().getSymbolTable(&blank));
}

TEST_F(SymbolTableStoreTest, EmptyNameGetsTheBlankTable) {
  const LogCapture log;
  MMapInfo& nameless = map("");
  SymbolTable* const blank = store().getSymbolTable(&nameless);
  ASSERT_NE(blank, nullptr);
  EXPECT_EQ(blank->getFunction(0, &nameless), nullptr);
  EXPECT_EQ(blank, nameless.symbolTable);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SymbolTableStoreTest, NameThatBeginsWithABraceGetsTheBlankTable) {
  const LogCapture log;
  MMapInfo& stack = map("{stack:b0000000-beffffff}");
  SymbolTable* const blank = store().getSymbolTable(&stack);
  EXPECT_EQ(tableOf(""), blank);
  EXPECT_EQ(blank, stack.symbolTable);
  EXPECT_EQ(blank->getFunction(0xB0000000, &stack), nullptr);
  EXPECT_EQ(blank, tableOf("{stack:b0000000-beffffff}"));
  EXPECT_EQ(blank, tableOf("{app-10000}"));
  EXPECT_EQ(blank, tableOf("{"));
  EXPECT_EQ(locate("{app-10000}"), "");
  EXPECT_EQ(locate("{never seen}"), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SymbolTableStoreTest, BraceFurtherOnInANameIsNothingSpecial) {
  EXPECT_NE(tableOf(""), tableOf("/tmp/{x}"));
}

TEST_F(SymbolTableStoreTest, MapsWithoutFileAreNoUsersOfTheBlankTable) {
  MMapInfo& nameless = map("");
  nameless.refCount = 1;
  MMapInfo& stack = map("{stack}");
  stack.refCount = 1;
  store().getSymbolTable(&nameless);
  store().getSymbolTable(&stack);
  auto* function = new FunctionInfo;  // would show the users
  function->refCount = 1;
  function->name = "main";
  tableOf("")->addFunction(function);
  EXPECT_EQ(rows(true), expected(R"([2,"main",0,0,[]])"));
}

TEST_F(SymbolTableStoreTest, LocatedFileIsTheKnownLocationFirst) {
  temp.write("root/lib/x.so", "");
  store().setLocation("lib/x.so", "/elsewhere");
  EXPECT_EQ(locate("lib/x.so"), "/elsewhere");
}

TEST_F(SymbolTableStoreTest, LocatedFileIsTheOneOnTheSearchPath) {
  temp.write("root/lib/x.so", "");
  EXPECT_EQ(temp.file("root/lib/x.so"), locate("lib/x.so"));
  EXPECT_EQ(temp.file("root//lib/x.so"), locate("/lib/x.so"));
}

TEST_F(SymbolTableStoreTest, LocatedFileIsTheNameItselfWhenNothingIsFound) {
  EXPECT_EQ(locate("/lib/not-here.so"), "/lib/not-here.so");
  EXPECT_EQ(locate("[vdso]"), "[vdso]");
}

TEST_F(SymbolTableStoreTest, LocatingWritesNoLocationDown) {
  EXPECT_EQ(locate("/lib/x.so"), "/lib/x.so");
  temp.write("root/lib/x.so", "");
  EXPECT_EQ(temp.file("root//lib/x.so"), locate("/lib/x.so"));
}

TEST_F(SymbolTableStoreTest, OnTheTargetTheNameIsTriedAsItStands) {
  const std::string file = temp.write("x.so", "");
  EXPECT_EQ(file, locate(file));
}

TEST_F(SymbolTableStoreTest, OffTheTargetOnlyTheSearchPathIsTried) {
  settings().onTargetMode = false;
  settings().symbolFileSeachPath = temp.path();
  const std::string file = temp.write("x.so", "");
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  EXPECT_EQ(temp.file("x.so"), locate("x.so"));
  settings().onTargetMode = true;  // copied at construction
  EXPECT_EQ(temp.file("x.so"), locate("x.so"));
}

TEST_F(SymbolTableStoreTest, OnTheTargetTheNameAsItStandsWinsOverTheSearchPath) {
  temp.write("root/x.so", "");
  temp.write("x.so", "");
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  EXPECT_EQ(locate("x.so"), "x.so");
}

TEST_F(SymbolTableStoreTest, SearchPathIsReadAtConstructionAndMayHaveSeveralDirectories) {
  settings().symbolFileSeachPath = temp.file("nothing") + ":" + temp.file("root");
  temp.write("root/lib/x.so", "");
  EXPECT_EQ(temp.file("root//lib/x.so"), locate("/lib/x.so"));
  settings().symbolFileSeachPath = "/nowhere";
  EXPECT_EQ(temp.file("root//lib/x.so"), locate("/lib/x.so"));
}

TEST_F(SymbolTableStoreTest, NewTableIsFilledFromTheListAndReported) {
  const LogCapture log;
  setList("/lib/x.so", "1000 T first\n2000 T second\n3000 D data\n");
  MMapInfo& mapped = map("/lib/x.so");
  SymbolTable* const table = store().getSymbolTable(&mapped);
  EXPECT_EQ(table->items().size(), 2u);
  EXPECT_EQ(table->findFunction("first"), table->getFunction(0x1FFF, &mapped));
  char created[200];
  std::snprintf(created, sizeof created,
                "Created mmap(%p) a new symbol table %p for (\"/lib/x.so\")",
                static_cast<void*>(&mapped), static_cast<void*>(table));
  EXPECT_THAT(log.lines("SymbolTableStore"),
              ElementsAre(LogLine{"INFO", "SymbolTableStore", "Loaded 2 symbols for '/lib/x.so'"},
                          LogLine{"DEBUG", "SymbolTableStore", created}));
}

TEST_F(SymbolTableStoreTest, ListWithoutSymbolsIsReportedToo) {
  const LogCapture log;
  setList("/lib/x.so", "");
  EXPECT_THAT(tableOf("/lib/x.so")->items(), IsEmpty());
  EXPECT_THAT(log.messages("SymbolTableStore", "INFO"),
              ElementsAre("Loaded 0 symbols for '/lib/x.so'"));
}

TEST_F(SymbolTableStoreTest, FileWithoutListGivesAnEmptyTableThatIsKept) {
  const LogCapture log;
  SymbolTable* const table = tableOf("/lib/x.so");
  ASSERT_NE(table, nullptr);
  EXPECT_THAT(table->items(), IsEmpty());
  EXPECT_THAT(log.messages("SymbolTableStore", "INFO"), IsEmpty());
  EXPECT_EQ(log.messages("SymbolTableStore", "DEBUG").size(), 1u);
  setList("/lib/x.so", "1000 T f\n");  // too late
  EXPECT_EQ(table, tableOf("/lib/x.so"));
  EXPECT_THAT(table->items(), IsEmpty());
  EXPECT_EQ(log.messages("SymbolCache", "TRACE").size(), 1u);
}

TEST_F(SymbolTableStoreTest, NameThatTheSearchPathResolvesToAnotherPathSharesItsTable) {
  const std::string located = temp.file("root//lib/x.so");
  temp.write("root/lib/x.so", "");
  setList(located, "1000 T f\n");
  SymbolTable* const table = tableOf(located);
  EXPECT_EQ(table->items().size(), 1u);
  EXPECT_EQ(table, tableOf("/lib/x.so"));
  EXPECT_EQ(located, locate("/lib/x.so"));
}

TEST_F(SymbolTableStoreTest, UsersAreTheFirstMapOnlyWhenTheNameIsItsLocation) {
  setList("/lib/x.so", "1000 T main\n");
  for (int i = 0; i < 3; ++i) {
    MMapInfo& mapped = map("/lib/x.so");  // keys 0, then 2 and 3
    mapped.refCount = 1;
    store().getSymbolTable(&mapped)->findFunction("main")->refCount = 1;
  }
  EXPECT_EQ(rows(false), expected(R"([1,"main",4096,1,[0]])"));
  EXPECT_EQ(rows(true), expected(R"([1,"main",4096,1,[0]])"));
}

TEST_F(SymbolTableStoreTest, UsersAreTheFirstTwoMapsWhenTheNameHadToBeLocated) {
  temp.write("root/lib/x.so", "");
  setList(temp.file("root//lib/x.so"), "1000 T main\n");
  for (int i = 0; i < 4; ++i) {
    MMapInfo& mapped = map("/lib/x.so");  // keys 0, then 2 to 4
    mapped.refCount = 1;
    store().getSymbolTable(&mapped)->findFunction("main")->refCount = 1;
  }
  EXPECT_EQ(rows(false), expected(R"([1,"main",4096,1,[0,2]])"));
}

TEST_F(SymbolTableStoreTest, MapThatIsAskedForAgainIsOneUser) {
  setList("/lib/x.so", "1000 T main\n");
  MMapInfo& mapped = map("/lib/x.so");
  store().getSymbolTable(&mapped);
  mapped.symbolTable = nullptr;
  store().getSymbolTable(&mapped)->findFunction("main")->refCount = 1;
  mapped.refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([1,"main",4096,1,[0]])"));
}

TEST_F(SymbolTableStoreTest, KnownLocationWithoutATableYetIsListedUnderItsPath) {
  setList("kernel", "c0008000 T stext\nc0009000 T end\n");
  store().setLocation("kernel", "kernel");
  MMapInfo& kernel = map("kernel");
  kernel.refCount = 1;
  SymbolTable* const table = store().getSymbolTable(&kernel);
  EXPECT_EQ(table->items().size(), 2u);
  table->findFunction("stext")->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([1,"stext",3221258240,4096,[0]])"));
}

TEST_F(SymbolTableStoreTest, KnownLocationOfAnExistingTableGivesThatTable) {
  SymbolTable* const table = tableOf("/lib/x.so");
  store().setLocation("alias", "/lib/x.so");
  EXPECT_EQ(table, tableOf("alias"));
}

TEST_F(SymbolTableStoreTest, KnownLocationOfANameThatBeginsWithABraceCounts) {
  SymbolTable* const table = tableOf("/lib/x.so");
  EXPECT_NE(table, tableOf("{alias}"));
  store().setLocation("{alias}", "/lib/x.so");
  EXPECT_EQ(table, tableOf("{alias}"));
}

TEST_F(SymbolTableStoreTest, CreatedTableIsRegisteredWithItsPathAsItsLocation) {
  temp.write("root/lib/x.so", "");
  setList("lib/x.so", "1000 T f\n");
  SymbolTable* const table = store()._createSymbolTable("lib/x.so");
  EXPECT_EQ(table->items().size(), 1u);
  EXPECT_EQ(locate("lib/x.so"), "lib/x.so");  // not the search path's
  EXPECT_EQ(table, tableOf("lib/x.so"));
}

TEST_F(SymbolTableStoreTest, CreatedTableReplacesAnEarlierOneOfItsPath) {
  tableOf("/lib/x.so");
  setList("/lib/x.so", "1000 T f\n");
  SymbolTable* const table = store()._createSymbolTable("/lib/x.so");
  EXPECT_EQ(table, tableOf("/lib/x.so"));
  EXPECT_EQ(table->items().size(), 1u);
}

TEST_F(SymbolTableStoreTest, TableWithoutFunctionsHasDescriptionsAndAnEmptyDataArray) {
  EXPECT_EQ(rows(false), expected(""));
  EXPECT_EQ(rows(true), expected(""));
}

TEST_F(SymbolTableStoreTest, RowsAreInTheByteOrderOfThePaths) {
  setList("/lib/b", "1000 T of_b\n");
  setList("/lib/B", "1000 T of_B\n");
  setList("/lib/\xC3\xA4", "1000 T of_ae\n");
  setList("/lib/a", "1000 T of_a\n2000 T of_a2\n");
  for (const char* const name : {"/lib/b", "/lib/\xC3\xA4", "", "/lib/B", "{stack}", "/lib/a"}) {
    tableOf(name);
  }
  // keys: a map's, then those of its table's functions
  EXPECT_EQ(rows(true),
            expected(R"([6,"of_B",4096,1,[5]],[9,"of_a",4096,4096,[8]],[10,"of_a2",8192,1,[8]],)"
                     R"([1,"of_b",4096,1,[0]],[3,"of_ae",4096,1,[2]])"));
  EXPECT_EQ(rows(false), expected(""));
}

TEST_F(SymbolTableStoreTest, OnlyHitFunctionsAndUsedMapsAreWrittenUnlessAllAre) {
  setList("/lib/x.so", "1000 T first\n2000 T second\n");
  MMapInfo& mapped = map("/lib/x.so");
  store().getSymbolTable(&mapped)->findFunction("second")->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([2,"second",8192,1,[]])"));
  mapped.refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([2,"second",8192,1,[0]])"));
  EXPECT_EQ(rows(true), expected(R"([1,"first",4096,4096,[0]],[2,"second",8192,1,[0]])"));
}

}  // namespace
