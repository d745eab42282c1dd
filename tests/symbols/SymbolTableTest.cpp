#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "symbols/SymbolTable.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"

namespace {

constexpr uint64_t ALL_ONES = 0xFFFFFFFFFFFFFFFF;

class SymbolTableTest : public testing::Test {
 protected:
  SymbolTableTest() { makeModelAnew(); }

  FunctionInfo* add(uint64_t start, uint64_t size, std::string_view name, uint32_t refCount = 0) {
    auto* function = new FunctionInfo;
    function->start = start;
    function->size = size;
    function->name = name;
    function->refCount = refCount;
    table.addFunction(function);
    return function;
  }
  std::string rows(bool writeAll) {
    return jsonObjectText([&](kestrel::JsomWriter& writer) {
      writer.appendLabel("rows", true);
      writer.startArray();
      table.writeLegacyJsonObjectEntries(writer, writeAll);
      writer.endArray();
    });
  }

  SymbolTable table;
};

TEST(FunctionInfoTest, FreshFunctionDrawsAKeyAndHasNoUses) {
  KeyGenerator::counter = 17;
  const FunctionInfo function;
  EXPECT_EQ(function.key, 17u);
  EXPECT_EQ(function.refCount, 0u);
  EXPECT_EQ(function.lineNumber, 0u);
  EXPECT_EQ(function.name, "");
}

TEST(FunctionInfoTest, CopyTakesRangeLineAndNameButNeitherKeyNorUseCount) {
  FunctionInfo from;
  from.start = 1;
  from.size = 2;
  from.lineNumber = 3;
  from.refCount = 4;
  from.name = "main";
  FunctionInfo to;
  to.refCount = 9;
  const uint64_t key = to.key;
  to.copy(from);
  EXPECT_EQ(to.start, 1u);
  EXPECT_EQ(to.size, 2u);
  EXPECT_EQ(to.lineNumber, 3u);
  EXPECT_EQ(to.name, "main");
  EXPECT_EQ(to.refCount, 9u);
  EXPECT_EQ(key, to.key);
}

TEST_F(SymbolTableTest, AddressBelowTheFirstSymbolYieldsNull) {
  const MMapInfo map;
  FunctionInfo* const first = add(0x1000, 0x10, "first");
  EXPECT_EQ(table.getFunction(0xFFF, &map), nullptr);
  EXPECT_EQ(first, table.getFunction(0x1000, &map));
}

TEST_F(SymbolTableTest, AddressInAGapYieldsNull) {
  const MMapInfo map;
  FunctionInfo* const first = add(0x1000, 0x10, "first");
  FunctionInfo* const second = add(0x2000, 0x10, "second");
  EXPECT_EQ(first, table.getFunction(0x100F, &map));
  EXPECT_EQ(table.getFunction(0x1010, &map), nullptr);
  EXPECT_EQ(table.getFunction(0x1FFF, &map), nullptr);
  EXPECT_EQ(second, table.getFunction(0x2000, &map));
}

TEST_F(SymbolTableTest, EmptyTableYieldsNull) {
  const MMapInfo map;
  EXPECT_EQ(table.getFunction(0, &map), nullptr);
  EXPECT_EQ(table.getFunction(0x1000, &map), nullptr);
  EXPECT_EQ(table.lastFunction(), nullptr);
  EXPECT_EQ(table.findFunction(""), nullptr);
}

TEST_F(SymbolTableTest, LastSymbolOfSizeOneIsFoundAtItsExactAddressOnly) {
  const MMapInfo map;
  FunctionInfo* const last = add(0x1000, 1, "last");
  EXPECT_EQ(last, table.getFunction(0x1000, &map));
  EXPECT_EQ(table.getFunction(0x1001, &map), nullptr);
}

TEST_F(SymbolTableTest, SymbolBaseOfTheMapIsSubtracted) {
  MMapInfo map;
  map.start = 0x40100000;
  map.size = 0x1000;
  map.loadBias = 0x400FF000;
  FunctionInfo* const function = add(0x1010, 0x10, "f");
  EXPECT_EQ(table.getFunction(0x4010000F, &map), nullptr);
  EXPECT_EQ(function, table.getFunction(0x40100010, &map));
  EXPECT_EQ(function, table.getFunction(0x4010001F, &map));
  EXPECT_EQ(table.getFunction(0x40100020, &map), nullptr);
}

TEST_F(SymbolTableTest, SubtractionOfTheSymbolBaseWrapsAround) {
  MMapInfo map;
  map.loadBias = 0x2000;
  FunctionInfo* const high = add(0xFFFFFFFFFFFFF000, 0x1000, "high");
  EXPECT_EQ(high, table.getFunction(0x1000, &map));
  map.loadBias = 0xFFFFFFFFFFFFFFF0;
  FunctionInfo* const low = add(0x20, 0x10, "low");
  EXPECT_EQ(low, table.getFunction(0x10, &map));
}

TEST_F(SymbolTableTest, AddressNeedNotLieInsideTheMapAndItsLowBitStays) {
  MMapInfo map;
  map.start = 0x8000;
  map.size = 0x1000;
  FunctionInfo* const even = add(0x1000, 1, "even");
  FunctionInfo* const odd = add(0x1001, 1, "odd");
  EXPECT_EQ(even, table.getFunction(0x1000, &map));
  EXPECT_EQ(odd, table.getFunction(0x1001, &map));
}

TEST_F(SymbolTableTest, LookupCountsNoUse) {
  const MMapInfo map;
  FunctionInfo* const function = add(0x1000, 0x10, "f");
  table.getFunction(0x1000, &map);
  EXPECT_EQ(function->refCount, 0u);
}

TEST_F(SymbolTableTest, FunctionIsFoundByItsExactName) {
  add(0x3000, 1, "main2");
  FunctionInfo* const function = add(0x1000, 1, "main");
  add(0x2000, 1, "mai");
  EXPECT_EQ(function, table.findFunction("main"));
  EXPECT_EQ(table.findFunction("Main"), nullptr);
  EXPECT_EQ(table.findFunction("main3"), nullptr);
  EXPECT_EQ(table.findFunction("ma"), nullptr);
  EXPECT_EQ(table.findFunction(std::string("main\0", 5)), nullptr);
}

TEST_F(SymbolTableTest, FirstInAddressOrderOfSeveralOfOneNameIsFound) {
  add(0x3000, 1, "f");
  FunctionInfo* const lowest = add(0x1000, 1, "f");
  add(0x2000, 1, "f");
  EXPECT_EQ(lowest, table.findFunction("f"));
}

TEST_F(SymbolTableTest, LastFunctionIsThatOfTheHighestAddress) {
  FunctionInfo* const high = add(0x3000, 1, "high");
  add(0x1000, 1, "low");
  EXPECT_EQ(high, table.lastFunction());
}

TEST_F(SymbolTableTest, TableOwnsItsFunctions) {
  struct Counted : FunctionInfo {
    explicit Counted(int* counter) : deleted(counter) {}
    ~Counted() override { ++*deleted; }
    int* deleted;
  };
  int deleted = 0;
  {
    SymbolTable owner;
    owner.addFunction(new Counted(&deleted));
    owner.addFunction(new Counted(&deleted));
  }
  EXPECT_EQ(deleted, 2);
}

TEST_F(SymbolTableTest, TableWithoutHitsWritesNoRows) {
  add(0x1000, 0x10, "first");
  add(0x2000, 0x10, "second");
  EXPECT_EQ(rows(false), R"({"rows":[]})");
}

TEST_F(SymbolTableTest, OnlyHitFunctionsAreWrittenUnlessAllAre) {
  add(0x2000, 0x20, "second", 1);
  add(0x1000, 0x10, "first");
  EXPECT_EQ(rows(false), R"({"rows":[[0,"second",8192,32,[]]]})");
  EXPECT_EQ(rows(true), R"({"rows":[[1,"first",4096,16,[]],[0,"second",8192,32,[]]]})");
}

TEST_F(SymbolTableTest, KeyStartAndSizeAreUnsigned64BitNumbers) {
  KeyGenerator::counter = ALL_ONES;
  add(ALL_ONES - 1, ALL_ONES, "high", 1);
  EXPECT_EQ(
      rows(false),
      R"({"rows":[[18446744073709551615,"high",18446744073709551614,18446744073709551615,[]]]})");
}

TEST_F(SymbolTableTest, NamesOfUpToTwoCharactersAreWrittenAsTheBlankName) {
  add(1, 1, "", 1);
  add(2, 1, "a", 1);
  add(3, 1, "ab", 1);
  add(4, 1, "abc", 1);
  EXPECT_EQ(rows(false), R"({"rows":[[0,"*BlankName*",1,1,[]],[1,"*BlankName*",2,1,[]],)"
                         R"([2,"*BlankName*",3,1,[]],[3,"abc",4,1,[]]]})");
}

TEST_F(SymbolTableTest, BlankNameComesFromTheSettings) {
  kestrel::Singleton<PerfSettings>::Instance()->blankName = "?";
  add(1, 1, "ab", 1);
  EXPECT_EQ(rows(false), R"({"rows":[[0,"?",1,1,[]]]})");
}

TEST_F(SymbolTableTest, NamesAreEscaped) {
  add(1, 1, "operator\"\"_x", 1);
  EXPECT_EQ(rows(false), R"({"rows":[[0,"operator\"\"_x",1,1,[]]]})");
}

TEST_F(SymbolTableTest, EveryRowCarriesTheKeysOfAllUsingMapsByAscendingKey) {
  MMapInfo maps[3];  // keys 0 to 2
  for (const int i : {2, 0, 1, 0}) {
    maps[i].refCount = 1;
    table.addMap(&maps[i]);
  }
  add(0x1000, 1, "first", 1);
  add(0x2000, 1, "second", 1);
  EXPECT_EQ(rows(false), R"({"rows":[[3,"first",4096,1,[0,1,2]],[4,"second",8192,1,[0,1,2]]]})");
}

TEST_F(SymbolTableTest, OnlyMapsInUseAreListedUnlessAllAre) {
  MMapInfo maps[3];
  for (const MMapInfo& map : maps) {
    table.addMap(&map);
  }
  maps[1].refCount = 1;
  add(0x1000, 1, "main", 1);
  EXPECT_EQ(rows(false), R"({"rows":[[3,"main",4096,1,[1]]]})");
  EXPECT_EQ(rows(true), R"({"rows":[[3,"main",4096,1,[0,1,2]]]})");
}

}  // namespace
