#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataMmap.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"
#include "tests/support/TableTexts.h"
#include "tests/support/TestAccess.h"

namespace {

constexpr uint64_t ALL_ONES = 0xFFFFFFFFFFFFFFFF;

const std::string KERNEL_ROW = R"([0,0,"kernel",3204448256,268435456])";
const std::string STACK_ROW = R"([1,0,"{stack:b0000000-beffffff}",2952790016,251658239])";

class MMapStoreTest : public testing::Test {
 protected:
  MMapStoreTest() { makeModelAnew(); }

  PerfSettings& settings() { return *kestrel::Singleton<PerfSettings>::Instance(); }
  ThreadStore& threads() { return *kestrel::Singleton<ThreadStore>::Instance(); }
  // Made on first use, after the settings.
  MMapStore& store() {
    if (!store_) {
      store_ = std::make_unique<MMapStore>();
    }
    return *store_;
  }
  MMapInfo* add(uint32_t pid, uint64_t address, uint64_t length, const std::string& file) {
    return store().add(mmapRecord(pid, pid + 100, address, length, 0, file));
  }
  std::string rows(bool writeAll) {
    return jsonObjectText(
        [&](kestrel::JsomWriter& writer) { store().writeLegacyJsonObject(writer, writeAll); });
  }
  static std::string expected(const std::string& rows) { return tableText("libraries", rows); }

 private:
  std::unique_ptr<MMapStore> store_;
};

TEST_F(MMapStoreTest, ConstructionDrawsThreeKeysTheKernelsFirstTheStacksSecondTheThirdUnused) {
  EXPECT_EQ(rows(true), expected(KERNEL_ROW + "," + STACK_ROW));
  EXPECT_EQ(KeyGenerator::counter, 3u);
  EXPECT_EQ(add(5, 0x8000, 0x1000, "/bin/app")->key, 3u);
  EXPECT_EQ(KeyGenerator::counter, 4u);
}

TEST_F(MMapStoreTest, FixedMapsTakeRangesAndNamesFromTheSettings) {
  settings().kernelStartAddress = 0x1000;
  settings().kernelEndAddress = 0x3000;
  settings().kernelMapName = "vmlinux";
  settings().kernelPid = 9;
  settings().stackStartAddress = 0x5000;
  settings().stackEndAddress = 0x5FFF;
  settings().stackMapName = "the stack";
  EXPECT_EQ(rows(true), expected(R"([0,9,"vmlinux",4096,8192],[1,9,"the stack",20480,4095])"));
}

TEST_F(MMapStoreTest, AddedRecordIsFoundInItsProcessOnly) {
  MMapInfo* const map = add(5, 0x8000, 0x1000, "/bin/app");
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(map->start, 0x8000u);
  EXPECT_EQ(map->size, 0x1000u);
  EXPECT_EQ(map->name, "/bin/app");
  EXPECT_EQ(map->refCount, 0u);
  EXPECT_EQ(store().get(5, 0x7FFF), nullptr);
  EXPECT_EQ(map, store().get(5, 0x8000));
  EXPECT_EQ(map, store().get(5, 0x8FFF));
  EXPECT_EQ(store().get(5, 0x9000), nullptr);
  EXPECT_EQ(store().get(6, 0x8000), nullptr);
  EXPECT_EQ(store().get(105, 0x8000), nullptr);  // the record's tid
}

TEST_F(MMapStoreTest, LookupInAProcessWithoutMapsCreatesNothing) {
  EXPECT_EQ(store().get(5, 0x8000), nullptr);
  EXPECT_EQ(KeyGenerator::counter, 3u);
}

TEST_F(MMapStoreTest, AddedInfoIsCopiedWithAKeyOfItsOwn) {
  store();
  MMapInfo info;
  info.start = 0x8000;
  info.size = 0x1000;
  info.pgoff = 3;
  info.loadBias = 4;
  info.refCount = 5;
  info.name = "/bin/app";
  MMapInfo* const map = store().add(5, info);
  EXPECT_EQ(map, store().get(5, 0x8000));
  EXPECT_EQ(info.key, 3u);
  EXPECT_EQ(map->key, 4u);
  EXPECT_EQ(map->pgoff, 3u);
  EXPECT_EQ(map->loadBias, 4u);
  EXPECT_EQ(map->refCount, 0u);
  EXPECT_EQ(map->name, "/bin/app");
}

TEST_F(MMapStoreTest, DeletedSuffixIsCutOffAStoredName) {
  EXPECT_EQ(add(5, 0x8000, 0x1000, "/lib/x.so (deleted)")->name, "/lib/x.so");
}

TEST_F(MMapStoreTest, LibraryGetsALoadBiasAndAProgramNone) {
  EXPECT_EQ(store().add(mmapRecord(5, 5, 0x40100000, 0x1000, 0x1000, "/lib/x.so"))->loadBias,
            0x400FF000u);
  EXPECT_EQ(store().add(mmapRecord(5, 5, 0x8000, 0x1000, 0x1000, "/bin/app"))->loadBias, 0u);
}

TEST_F(MMapStoreTest, KernelRangeIsTheKernelsInEveryProcessEvenWhereItHasAMap) {
  add(5, 0xBF000000, 0x20000000, "/lib/high.so");
  MMapInfo* const kernel = &store().kernelMap();
  EXPECT_EQ(kernel, store().get(5, 0xBF000000));
  EXPECT_EQ(kernel, store().get(5, 0xC0008000));
  EXPECT_EQ(kernel, store().get(77, 0xCF000000));
  EXPECT_EQ(store().get(5, 0xCF000001)->name, "/lib/high.so");
  EXPECT_EQ(store().get(77, 0xCF000001), nullptr);
}

TEST_F(MMapStoreTest, StackRangeIsTheStackMapsInEveryProcessEvenWhereItHasAMap) {
  add(5, 0xA0000000, 0x20000000, "/lib/high.so");
  EXPECT_EQ(store().get(5, 0xAFFFFFFF)->name, "/lib/high.so");
  EXPECT_EQ(store().get(5, 0xB0000000)->name, "{stack:b0000000-beffffff}");
  EXPECT_EQ(store().get(77, 0xBEFFFFFF)->name, "{stack:b0000000-beffffff}");
  EXPECT_EQ(store().get(5, 0xBF000000)->name, "kernel");
  EXPECT_EQ(store().get(77, 0xAFFFFFFF), nullptr);
}

TEST_F(MMapStoreTest, KernelRangeWinsOverAnOverlappingStackRange) {
  settings().stackEndAddress = 0xC0000000;
  EXPECT_EQ(store().get(5, 0xBFFFFFFF)->name, "kernel");
}

TEST_F(MMapStoreTest, KernelRangeOfALookupIsTheSettingsNotTheMaps) {
  store().kernelMap().start = 0x1000;
  store().kernelMap().size = 0x10;
  EXPECT_EQ(store().get(5, 0x1000), nullptr);
  EXPECT_EQ(&store().kernelMap(), store().get(5, 0xC0000000));
  settings().kernelStartAddress = 0x1000;
  settings().kernelEndAddress = 0x2000;
  EXPECT_EQ(&store().kernelMap(), store().get(5, 0x1000));
  EXPECT_EQ(store().get(5, 0xC0000000), nullptr);
}

TEST_F(MMapStoreTest, TwoRecordsForTheSameRangeBothStayAndTheFloorSearchDecides) {
  MMapInfo* const first = add(5, 0x8000, 0x1000, "/bin/first");
  add(5, 0x8000, 0x1000, "/bin/second");
  EXPECT_EQ(first, store().get(5, 0x8000));  // of two equal starts the first probe
  EXPECT_EQ(store().get(5, 0x8001)->name, "/bin/second");
  EXPECT_EQ(rows(true),
            expected(KERNEL_ROW + "," + STACK_ROW +
                     R"(,[3,5,"/bin/first",32768,4096],[4,5,"/bin/second",32768,4096])"));
}

TEST_F(MMapStoreTest, MapOfSizeZeroIsStoredButNeverFound) {
  add(5, 0, 0, "/bin/empty");
  EXPECT_EQ(store().get(5, 0), nullptr);
  EXPECT_EQ(rows(true), expected(KERNEL_ROW + "," + STACK_ROW + R"(,[3,5,"/bin/empty",0,0])"));
}

TEST_F(MMapStoreTest, MadeUpMapOfAMappedAddressIsThatMapAndDrawsNoKey) {
  MMapInfo* const map = add(5, 0x8000, 0x1000, "/bin/app");
  const uint64_t next = KeyGenerator::counter;
  EXPECT_EQ(map, store().getFake(5, 0x8000, "app"));
  EXPECT_EQ(&store().kernelMap(), store().getFake(5, 0xC0000000, "app"));
  EXPECT_EQ(store().getFake(5, 0xB0000000, "app")->name, "{stack:b0000000-beffffff}");
  EXPECT_EQ(next, KeyGenerator::counter);
}

TEST_F(MMapStoreTest, MadeUpMapCoversThe64KPageOfItsAddressAndDrawsTwoKeys) {
  MMapInfo* const madeUp = store().getFake(5, 0x12345, "app");
  ASSERT_NE(madeUp, nullptr);
  EXPECT_EQ(madeUp->name, "{app-10000}");
  EXPECT_EQ(madeUp->start, 0x10000u);
  EXPECT_EQ(madeUp->size, 0x10000u);
  EXPECT_EQ(madeUp->key, 4u);  // 3 was the temporary's
  EXPECT_EQ(KeyGenerator::counter, 5u);
  EXPECT_EQ(madeUp->pgoff, 0u);
  EXPECT_EQ(madeUp->loadBias, 0u);
  EXPECT_EQ(madeUp->refCount, 0u);
  EXPECT_EQ(madeUp->symbolTable, nullptr);
}

TEST_F(MMapStoreTest, LaterAddressesOfAMadeUpMapPageFindIt) {
  MMapInfo* const madeUp = store().getFake(5, 0x12345, "app");
  EXPECT_EQ(madeUp, store().getFake(5, 0x10000, "other"));
  EXPECT_EQ(madeUp, store().getFake(5, 0x1FFFF, "other"));
  EXPECT_EQ(madeUp, store().get(5, 0x1FFFF));
  EXPECT_EQ(KeyGenerator::counter, 5u);
  EXPECT_EQ(store().getFake(5, 0x20000, "app")->name, "{app-20000}");
  EXPECT_EQ(store().getFake(5, 0xFFFF, "app")->name, "{app-0}");
  EXPECT_EQ(store().get(6, 0x12345), nullptr);
}

TEST_F(MMapStoreTest, MadeUpMapOfANamelessProcessIsNamedAfterItsPid) {
  EXPECT_EQ(store().getFake(77, 0x12345, "")->name, "{77-10000}");
  EXPECT_EQ(store().getFake(0xFFFFFFFF, 0x12345, "")->name, "{4294967295-10000}");
  EXPECT_EQ(store().getFake(77, 0xFFFF0F00, "")->name, "{77-interrupt}");
}

TEST_F(MMapStoreTest, MadeUpMapNameHasThePageInLowerCaseHexadecimal) {
  EXPECT_EQ(store().getFake(5, 0xABCDEF123456, "app")->name, "{app-abcdef120000}");
  EXPECT_EQ(store().getFake(5, 0x8000FFFF, "app")->name, "{app-80000000}");
}

TEST_F(MMapStoreTest, NameWithPercentSignsIsTakenAsItIs) {
  EXPECT_EQ(store().getFake(5, 0x12345, "%s%n")->name, "{%s%n-10000}");
}

TEST_F(MMapStoreTest, LongProcessNameIsKeptWhole) {
  const std::string name(5000, 'x');
  EXPECT_EQ(store().getFake(5, 0x12345, name)->name, "{" + name + "-10000}");
}

TEST_F(MMapStoreTest, MadeUpMapsOfOneProcessShareALongName) {
  const std::string name(5000, 'x');
  MMapInfo* const first = store().getFake(5, 0x12345, name);
  MMapInfo* const second = store().getFake(5, 0x22345, name);
  MMapInfo* const interrupt = store().getFake(6, 0xFFFF0F00, name);
  EXPECT_EQ(first->name.shared(), second->name.shared());
  EXPECT_EQ(first->name.shared(), interrupt->name.shared());
  EXPECT_EQ(*first->name.shared(), "{" + name);
  EXPECT_EQ(first->name, "{" + name + "-10000}");
  EXPECT_EQ(second->name, "{" + name + "-20000}");
  EXPECT_EQ(interrupt->name, "{" + name + "-interrupt}");

  MMapInfo* const other = store().getFake(7, 0x12345, name + "y");
  EXPECT_EQ(other->name, "{" + name + "y-10000}");
  EXPECT_NE(first->name.shared(), other->name.shared());
}

// So that a recording with one short name and many addresses costs no more than one with a long
// name.
TEST_F(MMapStoreTest, MadeUpMapsOfOneProcessShareAShortName) {
  MMapInfo* const first = store().getFake(5, 0x12345, "a");
  store().getFake(6, 0x12345, "b");
  MMapInfo* const second = store().getFake(5, 0x22345, "a");
  MMapInfo* const interrupt = store().getFake(5, 0xFFFF0F00, "a");
  EXPECT_EQ(first->name.shared(), second->name.shared());
  EXPECT_EQ(first->name.shared(), interrupt->name.shared());
  EXPECT_EQ(first->name, "{a-10000}");
  EXPECT_EQ(store().get(6, 0x12345)->name, "{b-10000}");
  EXPECT_EQ(second->name, "{a-20000}");
  EXPECT_EQ(interrupt->name, "{a-interrupt}");
}

// The name asked for before is remembered, brace and all.
TEST_F(MMapStoreTest, MadeUpMapsOfNamesThatBeginAlikeAreNamedApart) {
  EXPECT_EQ(store().getFake(5, 0x12345, "app")->name, "{app-10000}");
  EXPECT_EQ(store().getFake(6, 0x12345, "ap")->name, "{ap-10000}");
  EXPECT_EQ(store().getFake(7, 0x12345, "apps")->name, "{apps-10000}");
  EXPECT_EQ(store().getFake(8, 0x12345, "{app")->name, "{{app-10000}");
  EXPECT_EQ(store().getFake(9, 0x12345, "")->name, "{9-10000}");
}

TEST_F(MMapStoreTest, RowsOfMadeUpMapsWithALongNameShowItWhole) {
  const std::string name(100, 'x');
  store().getFake(5, 0x12345, name)->refCount = 1;
  store().getFake(5, 0x22345, name)->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([4,5,"{)" + name + R"(-10000}",65536,65536],[6,5,"{)" + name +
                                  R"(-20000}",131072,65536])"));
}

TEST_F(MMapStoreTest, MadeUpMapPageComesFromTheSettings) {
  settings().fakePageMask = 0xFFFFFFFFFFFFF000;
  settings().fakePageSize = 0x800;
  MMapInfo* const madeUp = store().getFake(5, 0x12345, "app");
  EXPECT_EQ(madeUp->name, "{app-12000}");
  EXPECT_EQ(madeUp->start, 0x12000u);
  EXPECT_EQ(madeUp->size, 0x800u);
}

TEST_F(MMapStoreTest, MadeUpMapAboveTheSharedLibraryBaseHasNoLoadBias) {
  EXPECT_EQ(store().getFake(5, 0x40012345, "app")->loadBias, 0u);
}

TEST_F(MMapStoreTest, MadeUpMapOfThe32BitInterruptVectors) {
  EXPECT_EQ(store().getFake(5, 0xFFFEFFFF, "app")->name, "{app-fffe0000}");
  MMapInfo* const madeUp = store().getFake(5, 0xFFFF0F00, "app");
  EXPECT_EQ(madeUp->name, "{app-interrupt}");
  EXPECT_EQ(madeUp->start, 0xFFFF0000u);
  EXPECT_EQ(madeUp->size, 0xFFFFu);
  EXPECT_EQ(madeUp, store().getFake(5, 0xFFFF0000, "app"));
  EXPECT_EQ(madeUp, store().getFake(5, 0xFFFFFFFE, "app"));
  EXPECT_EQ(store().getFake(5, 0x100000000, "app")->name, "{app-100000000}");
}

TEST_F(MMapStoreTest, MadeUpMapOfThe64BitInterruptVectors) {
  EXPECT_EQ(store().getFake(5, 0xFFFFFFFFFFFEFFFF, "app")->name, "{app-fffffffffffe0000}");
  MMapInfo* const madeUp = store().getFake(5, 0xFFFFFFFFFFFF0000, "app");
  EXPECT_EQ(madeUp->name, "{app-interrupt}");
  EXPECT_EQ(madeUp->start, 0xFFFFFFFFFFFF0000u);
  EXPECT_EQ(madeUp->size, 0xFFFFu);
  EXPECT_EQ(madeUp, store().getFake(5, 0xFFFFFFFFFFFFFFFE, "app"));
}

TEST_F(MMapStoreTest, LastAddressOfThe32BitInterruptVectorsMakesAnotherMadeUpMapEachTime) {
  MMapInfo* const first = store().getFake(5, 0xFFFFFFFF, "app");
  MMapInfo* const second = store().getFake(5, 0xFFFFFFFF, "app");
  MMapInfo* const third = store().getFake(5, 0xFFFFFFFF, "app");
  EXPECT_EQ(first->key, 4u);
  EXPECT_EQ(second->key, 6u);
  EXPECT_EQ(third->key, 8u);
  EXPECT_EQ(third->name, "{app-interrupt}");
  EXPECT_EQ(store().get(5, 0xFFFFFFFF), nullptr);
  const std::string row = R"(,5,"{app-interrupt}",4294901760,65535])";
  EXPECT_EQ(rows(true),
            expected(KERNEL_ROW + "," + STACK_ROW + ",[4" + row + ",[6" + row + ",[8" + row));
}

TEST_F(MMapStoreTest, LastAddressOfThe64BitInterruptVectorsMakesAnotherMadeUpMapEachTime) {
  MMapInfo* const first = store().getFake(5, ALL_ONES, "app");
  MMapInfo* const second = store().getFake(5, ALL_ONES, "app");
  EXPECT_NE(first, second);
  EXPECT_EQ(second->name, "{app-interrupt}");
  EXPECT_EQ(second->start, 0xFFFFFFFFFFFF0000u);
  EXPECT_EQ(second->size, 0xFFFFu);
}

TEST_F(MMapStoreTest, InterruptRangesComeFromTheSettings) {
  settings().interruptStart32 = 0x1000;
  settings().interruptEnd32 = 0x1FFF;
  settings().interruptStart64 = 0x3000;
  settings().interruptEnd64 = 0x3FFF;
  EXPECT_EQ(store().getFake(5, 0x1800, "app")->size, 0xFFFu);
  EXPECT_EQ(store().getFake(5, 0x3800, "app")->start, 0x3000u);
  EXPECT_EQ(store().getFake(5, 0x800, "app")->name, "{app-0}");
}

TEST_F(MMapStoreTest, The64BitInterruptVectorsAreTriedFirst) {
  settings().interruptStart64 = 0xFFFF1000;
  settings().interruptEnd64 = 0xFFFF1FFF;
  EXPECT_EQ(store().getFake(5, 0xFFFF1800, "app")->start, 0xFFFF1000u);
}

TEST_F(MMapStoreTest, TableWithoutMapsInUseHasAnEmptyDataArray) {
  add(5, 0x8000, 0x1000, "/bin/app");
  EXPECT_EQ(rows(false), expected(""));
}

TEST_F(MMapStoreTest, RowsAreKernelStackThenProcessesByPidAndMapsByStart) {
  add(7, 0x9000, 0x1000, "/bin/second");
  add(7, 0x8000, 0x1000, "/bin/seven");
  add(0x80000000, 0x8000, 0x1000, "/bin/last");
  add(5, 0x123456789A000, 0xFFFFFFFFFFFFFFFF, "/bin/five");
  EXPECT_EQ(rows(true), expected(KERNEL_ROW + "," + STACK_ROW +
                                 R"(,[6,5,"/bin/five",320255973498880,18446744073709551615])"
                                 R"(,[4,7,"/bin/seven",32768,4096],[3,7,"/bin/second",36864,4096])"
                                 R"(,[5,2147483648,"/bin/last",32768,4096])"));
}

TEST_F(MMapStoreTest, OnlyMapsInUseAreWrittenUnlessAllAre) {
  add(5, 0x8000, 0x1000, "/bin/app");
  add(5, 0x9000, 0x1000, "/lib/used")->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([4,5,"/lib/used",36864,4096])"));
  store().kernelMap().refCount = 1;
  EXPECT_EQ(rows(false), expected(KERNEL_ROW + R"(,[4,5,"/lib/used",36864,4096])"));
  store().get(5, 0xB0000000)->refCount = 1;
  EXPECT_EQ(rows(false),
            expected(KERNEL_ROW + "," + STACK_ROW + R"(,[4,5,"/lib/used",36864,4096])"));
}

TEST_F(MMapStoreTest, StackMapAloneIsWrittenWhenInUse) {
  store().get(5, 0xB0000000)->refCount = 1;
  EXPECT_EQ(rows(false), expected(STACK_ROW));
}

TEST_F(MMapStoreTest, KernelRowFollowsTheMapThatTheDriverMoved) {
  store().kernelMap().start = 0xC0008000;
  store().kernelMap().size = 0x10;
  store().kernelMap().refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([0,0,"kernel",3221258240,16])"));
}

TEST_F(MMapStoreTest, NamesUnderFourCharactersAreWrittenAsTheBlankName) {
  for (const char* const name : {"", "ab", "abc", "abcd"}) {
    add(5, 0x8000, 0x1000, name)->refCount = 1;
  }
  EXPECT_EQ(rows(false),
            expected(R"([3,5,"*BlankName*",32768,4096],[4,5,"*BlankName*",32768,4096],)"
                     R"([5,5,"*BlankName*",32768,4096],[6,5,"abcd",32768,4096])"));
}

TEST_F(MMapStoreTest, BlankNameComesFromTheSettingsAndStandsForShortFixedNamesToo) {
  settings().blankName = "-";
  settings().kernelMapName = "krn";
  store().kernelMap().refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([0,0,"-",3204448256,268435456])"));
}

TEST_F(MMapStoreTest, NamesAreEscapedInTheDocument) {
  add(5, 0x8000, 0x1000, "/a\"\\\n/b")->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([3,5,"/a\"\\\n/b",32768,4096])"));
}

TEST_F(MMapStoreTest, EveryWrittenRowOfAProcessIsAUseOfTheProcess) {
  add(5, 0x8000, 0x1000, "/bin/app")->refCount = 10;
  add(5, 0x9000, 0x1000, "/lib/used")->refCount = 20;
  add(5, 0xA000, 0x1000, "/lib/unused");
  add(6, 0x8000, 0x1000, "/bin/unused");
  store().kernelMap().refCount = 1;
  store().get(5, 0xB0000000)->refCount = 1;
  threads().getProcess(5)->refCount = 100;
  rows(false);
  EXPECT_EQ(threads().getProcess(5)->refCount, 102u);
  EXPECT_EQ(threads().getProcess(6)->refCount, 0u);
  EXPECT_EQ(threads().getProcess(0)->refCount, 0u);  // fixed maps are nobody's use
  rows(true);
  EXPECT_EQ(threads().getProcess(5)->refCount, 105u);
  EXPECT_EQ(threads().getProcess(6)->refCount, 1u);
  EXPECT_EQ(threads().getProcess(0)->refCount, 0u);
}

TEST_F(MMapStoreTest, RowOfAnUnknownProcessCreatesItNameless) {
  add(5, 0x8000, 0x1000, "/bin/app")->refCount = 1;
  rows(false);
  EXPECT_THAT(jsonObjectText([&](kestrel::JsomWriter& writer) {
                threads().writeLegacyJsonObject(writer, false);
              }),
              testing::EndsWith(R"("data":[[5,5,5,""]]}})"));
}

TEST_F(MMapStoreTest, OneRowIsKeyPidNameStartSize) {
  MMapInfo* const map = add(5, 0x8000, 0x1000, "/bin/app");
  EXPECT_EQ(jsonObjectText([&](kestrel::JsomWriter& writer) {
              writer.appendLabel("row", true);
              store()._writeLegacyJsonObjectForInfo(writer, 0xFFFFFFFF, *map);
            }),
            R"({"row":[3,4294967295,"/bin/app",32768,4096]})");
}

}  // namespace
