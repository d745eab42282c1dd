#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventDataMmap.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"
#include "tests/support/TestAccess.h"

namespace {

constexpr uint64_t ALL_ONES = 0xFFFFFFFFFFFFFFFF;

const std::string BEFORE_ROWS =
    R"({"libraries":{"descriptions":{)"
    R"("key":"db key for this process element used in other structs as a reference",)"
    R"("pidkey":"key or reference to the process",)"
    R"("name":"name of the library or function",)"
    R"("startAddress":"start address of this memory map",)"
    R"("sectionSize":"length of the memory map"},"data":[)";
const std::string AFTER_ROWS = "]}}";
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
  static std::string table(const std::string& data) { return BEFORE_ROWS + data + AFTER_ROWS; }

 private:
  std::unique_ptr<MMapStore> store_;
};

TEST_F(MMapStoreTest, ConstructionDrawsThreeKeysTheKernelsFirstTheStacksSecondTheThirdUnused) {
  EXPECT_EQ(table(KERNEL_ROW + "," + STACK_ROW), rows(true));
  EXPECT_EQ(3u, KeyGenerator::counter);
  EXPECT_EQ(3u, add(5, 0x8000, 0x1000, "/bin/app")->key);
  EXPECT_EQ(4u, KeyGenerator::counter);
}

TEST_F(MMapStoreTest, FixedMapsTakeRangesAndNamesFromTheSettings) {
  settings().kernelStartAddress = 0x1000;
  settings().kernelEndAddress = 0x3000;
  settings().kernelMapName = "vmlinux";
  settings().kernelPid = 9;
  settings().stackStartAddress = 0x5000;
  settings().stackEndAddress = 0x5FFF;
  settings().stackMapName = "the stack";
  EXPECT_EQ(table(R"([0,9,"vmlinux",4096,8192],[1,9,"the stack",20480,4095])"), rows(true));
}

TEST_F(MMapStoreTest, AddedRecordIsFoundInItsProcessOnly) {
  MMapInfo* const map = add(5, 0x8000, 0x1000, "/bin/app");
  ASSERT_NE(nullptr, map);
  EXPECT_EQ(0x8000u, map->start);
  EXPECT_EQ(0x1000u, map->size);
  EXPECT_EQ("/bin/app", map->name);
  EXPECT_EQ(0u, map->refCount);
  EXPECT_EQ(nullptr, store().get(5, 0x7FFF));
  EXPECT_EQ(map, store().get(5, 0x8000));
  EXPECT_EQ(map, store().get(5, 0x8FFF));
  EXPECT_EQ(nullptr, store().get(5, 0x9000));
  EXPECT_EQ(nullptr, store().get(6, 0x8000));
  EXPECT_EQ(nullptr, store().get(105, 0x8000));  // the record's tid
}

TEST_F(MMapStoreTest, LookupInAProcessWithoutMapsCreatesNothing) {
  EXPECT_EQ(nullptr, store().get(5, 0x8000));
  EXPECT_EQ(3u, KeyGenerator::counter);
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
  EXPECT_EQ(3u, info.key);
  EXPECT_EQ(4u, map->key);
  EXPECT_EQ(3u, map->pgoff);
  EXPECT_EQ(4u, map->loadBias);
  EXPECT_EQ(0u, map->refCount);
  EXPECT_EQ("/bin/app", map->name);
}

TEST_F(MMapStoreTest, DeletedSuffixIsCutOffAStoredName) {
  EXPECT_EQ("/lib/x.so", add(5, 0x8000, 0x1000, "/lib/x.so (deleted)")->name);
}

TEST_F(MMapStoreTest, LibraryGetsALoadBiasAndAProgramNone) {
  EXPECT_EQ(0x400FF000u,
            store().add(mmapRecord(5, 5, 0x40100000, 0x1000, 0x1000, "/lib/x.so"))->loadBias);
  EXPECT_EQ(0u, store().add(mmapRecord(5, 5, 0x8000, 0x1000, 0x1000, "/bin/app"))->loadBias);
}

TEST_F(MMapStoreTest, KernelRangeIsTheKernelsInEveryProcessEvenWhereItHasAMap) {
  add(5, 0xBF000000, 0x20000000, "/lib/high.so");
  MMapInfo* const kernel = &store().kernelMap();
  EXPECT_EQ(kernel, store().get(5, 0xBF000000));
  EXPECT_EQ(kernel, store().get(5, 0xC0008000));
  EXPECT_EQ(kernel, store().get(77, 0xCF000000));
  EXPECT_EQ("/lib/high.so", store().get(5, 0xCF000001)->name);
  EXPECT_EQ(nullptr, store().get(77, 0xCF000001));
}

TEST_F(MMapStoreTest, StackRangeIsTheStackMapsInEveryProcessEvenWhereItHasAMap) {
  add(5, 0xA0000000, 0x20000000, "/lib/high.so");
  EXPECT_EQ("/lib/high.so", store().get(5, 0xAFFFFFFF)->name);
  EXPECT_EQ("{stack:b0000000-beffffff}", store().get(5, 0xB0000000)->name);
  EXPECT_EQ("{stack:b0000000-beffffff}", store().get(77, 0xBEFFFFFF)->name);
  EXPECT_EQ("kernel", store().get(5, 0xBF000000)->name);
  EXPECT_EQ(nullptr, store().get(77, 0xAFFFFFFF));
}

TEST_F(MMapStoreTest, KernelRangeWinsOverAnOverlappingStackRange) {
  settings().stackEndAddress = 0xC0000000;
  EXPECT_EQ("kernel", store().get(5, 0xBFFFFFFF)->name);
}

TEST_F(MMapStoreTest, KernelRangeOfALookupIsTheSettingsNotTheMaps) {
  store().kernelMap().start = 0x1000;
  store().kernelMap().size = 0x10;
  EXPECT_EQ(nullptr, store().get(5, 0x1000));
  EXPECT_EQ(&store().kernelMap(), store().get(5, 0xC0000000));
  settings().kernelStartAddress = 0x1000;
  settings().kernelEndAddress = 0x2000;
  EXPECT_EQ(&store().kernelMap(), store().get(5, 0x1000));
  EXPECT_EQ(nullptr, store().get(5, 0xC0000000));
}

TEST_F(MMapStoreTest, TwoRecordsForTheSameRangeBothStayAndTheFloorSearchDecides) {
  MMapInfo* const first = add(5, 0x8000, 0x1000, "/bin/first");
  add(5, 0x8000, 0x1000, "/bin/second");
  EXPECT_EQ(first, store().get(5, 0x8000));  // of two equal starts the first probe
  EXPECT_EQ("/bin/second", store().get(5, 0x8001)->name);
  EXPECT_EQ(table(KERNEL_ROW + "," + STACK_ROW +
                  R"(,[3,5,"/bin/first",32768,4096],[4,5,"/bin/second",32768,4096])"),
            rows(true));
}

TEST_F(MMapStoreTest, MapOfSizeZeroIsStoredButNeverFound) {
  add(5, 0, 0, "/bin/empty");
  EXPECT_EQ(nullptr, store().get(5, 0));
  EXPECT_EQ(table(KERNEL_ROW + "," + STACK_ROW + R"(,[3,5,"/bin/empty",0,0])"), rows(true));
}

TEST_F(MMapStoreTest, FakeOfAMappedAddressIsThatMapAndDrawsNoKey) {
  MMapInfo* const map = add(5, 0x8000, 0x1000, "/bin/app");
  const uint64_t next = KeyGenerator::counter;
  EXPECT_EQ(map, store().getFake(5, 0x8000, "app"));
  EXPECT_EQ(&store().kernelMap(), store().getFake(5, 0xC0000000, "app"));
  EXPECT_EQ("{stack:b0000000-beffffff}", store().getFake(5, 0xB0000000, "app")->name);
  EXPECT_EQ(next, KeyGenerator::counter);
}

TEST_F(MMapStoreTest, FakeCoversThe64KPageOfItsAddressAndDrawsTwoKeys) {
  MMapInfo* const fake = store().getFake(5, 0x12345, "app");
  ASSERT_NE(nullptr, fake);
  EXPECT_EQ("{app-10000}", fake->name);
  EXPECT_EQ(0x10000u, fake->start);
  EXPECT_EQ(0x10000u, fake->size);
  EXPECT_EQ(4u, fake->key);  // 3 was the temporary's
  EXPECT_EQ(5u, KeyGenerator::counter);
  EXPECT_EQ(0u, fake->pgoff);
  EXPECT_EQ(0u, fake->loadBias);
  EXPECT_EQ(0u, fake->refCount);
  EXPECT_EQ(nullptr, fake->symbolTable);
}

TEST_F(MMapStoreTest, LaterAddressesOfAFakePageFindIt) {
  MMapInfo* const fake = store().getFake(5, 0x12345, "app");
  EXPECT_EQ(fake, store().getFake(5, 0x10000, "other"));
  EXPECT_EQ(fake, store().getFake(5, 0x1FFFF, "other"));
  EXPECT_EQ(fake, store().get(5, 0x1FFFF));
  EXPECT_EQ(5u, KeyGenerator::counter);
  EXPECT_EQ("{app-20000}", store().getFake(5, 0x20000, "app")->name);
  EXPECT_EQ("{app-0}", store().getFake(5, 0xFFFF, "app")->name);
  EXPECT_EQ(nullptr, store().get(6, 0x12345));
}

TEST_F(MMapStoreTest, FakeOfANamelessProcessIsNamedAfterItsPid) {
  EXPECT_EQ("{77-10000}", store().getFake(77, 0x12345, "")->name);
  EXPECT_EQ("{4294967295-10000}", store().getFake(0xFFFFFFFF, 0x12345, "")->name);
  EXPECT_EQ("{77-interrupt}", store().getFake(77, 0xFFFF0F00, "")->name);
}

TEST_F(MMapStoreTest, FakeNameHasThePageInLowerCaseHexadecimal) {
  EXPECT_EQ("{app-abcdef120000}", store().getFake(5, 0xABCDEF123456, "app")->name);
  EXPECT_EQ("{app-80000000}", store().getFake(5, 0x8000FFFF, "app")->name);
}

TEST_F(MMapStoreTest, NameWithPercentSignsIsTakenAsItIs) {
  EXPECT_EQ("{%s%n-10000}", store().getFake(5, 0x12345, "%s%n")->name);
}

TEST_F(MMapStoreTest, LongProcessNameIsKeptWhole) {
  const std::string name(5000, 'x');
  EXPECT_EQ("{" + name + "-10000}", store().getFake(5, 0x12345, name)->name);
}

TEST_F(MMapStoreTest, FakesOfOneProcessShareALongName) {
  const std::string name(5000, 'x');
  MMapInfo* const first = store().getFake(5, 0x12345, name);
  MMapInfo* const second = store().getFake(5, 0x22345, name);
  MMapInfo* const interrupt = store().getFake(6, 0xFFFF0F00, name);
  EXPECT_EQ(first->name.shared(), second->name.shared());
  EXPECT_EQ(first->name.shared(), interrupt->name.shared());
  EXPECT_EQ("{" + name, *first->name.shared());
  EXPECT_EQ("{" + name + "-10000}", first->name);
  EXPECT_EQ("{" + name + "-20000}", second->name);
  EXPECT_EQ("{" + name + "-interrupt}", interrupt->name);

  MMapInfo* const other = store().getFake(7, 0x12345, name + "y");
  EXPECT_EQ("{" + name + "y-10000}", other->name);
  EXPECT_NE(first->name.shared(), other->name.shared());
}

// So that a recording with one short name and many addresses costs no more than one with a long
// name.
TEST_F(MMapStoreTest, FakesOfOneProcessShareAShortName) {
  MMapInfo* const first = store().getFake(5, 0x12345, "a");
  store().getFake(6, 0x12345, "b");
  MMapInfo* const second = store().getFake(5, 0x22345, "a");
  MMapInfo* const interrupt = store().getFake(5, 0xFFFF0F00, "a");
  EXPECT_EQ(first->name.shared(), second->name.shared());
  EXPECT_EQ(first->name.shared(), interrupt->name.shared());
  EXPECT_EQ("{a-10000}", first->name);
  EXPECT_EQ("{b-10000}", store().get(6, 0x12345)->name);
  EXPECT_EQ("{a-20000}", second->name);
  EXPECT_EQ("{a-interrupt}", interrupt->name);
}

// The name asked for before is remembered, brace and all.
TEST_F(MMapStoreTest, FakesOfNamesThatBeginAlikeAreNamedApart) {
  EXPECT_EQ("{app-10000}", store().getFake(5, 0x12345, "app")->name);
  EXPECT_EQ("{ap-10000}", store().getFake(6, 0x12345, "ap")->name);
  EXPECT_EQ("{apps-10000}", store().getFake(7, 0x12345, "apps")->name);
  EXPECT_EQ("{{app-10000}", store().getFake(8, 0x12345, "{app")->name);
  EXPECT_EQ("{9-10000}", store().getFake(9, 0x12345, "")->name);
}

TEST_F(MMapStoreTest, RowsOfFakesWithALongNameShowItWhole) {
  const std::string name(100, 'x');
  store().getFake(5, 0x12345, name)->refCount = 1;
  store().getFake(5, 0x22345, name)->refCount = 1;
  EXPECT_EQ(table(R"([4,5,"{)" + name + R"(-10000}",65536,65536],[6,5,"{)" + name +
                  R"(-20000}",131072,65536])"),
            rows(false));
}

TEST_F(MMapStoreTest, FakePageComesFromTheSettings) {
  settings().fakePageMask = 0xFFFFFFFFFFFFF000;
  settings().fakePageSize = 0x800;
  MMapInfo* const fake = store().getFake(5, 0x12345, "app");
  EXPECT_EQ("{app-12000}", fake->name);
  EXPECT_EQ(0x12000u, fake->start);
  EXPECT_EQ(0x800u, fake->size);
}

TEST_F(MMapStoreTest, FakeAboveTheSharedLibraryBaseHasNoLoadBias) {
  EXPECT_EQ(0u, store().getFake(5, 0x40012345, "app")->loadBias);
}

TEST_F(MMapStoreTest, FakeOfThe32BitInterruptVectors) {
  EXPECT_EQ("{app-fffe0000}", store().getFake(5, 0xFFFEFFFF, "app")->name);
  MMapInfo* const fake = store().getFake(5, 0xFFFF0F00, "app");
  EXPECT_EQ("{app-interrupt}", fake->name);
  EXPECT_EQ(0xFFFF0000u, fake->start);
  EXPECT_EQ(0xFFFFu, fake->size);
  EXPECT_EQ(fake, store().getFake(5, 0xFFFF0000, "app"));
  EXPECT_EQ(fake, store().getFake(5, 0xFFFFFFFE, "app"));
  EXPECT_EQ("{app-100000000}", store().getFake(5, 0x100000000, "app")->name);
}

TEST_F(MMapStoreTest, FakeOfThe64BitInterruptVectors) {
  EXPECT_EQ("{app-fffffffffffe0000}", store().getFake(5, 0xFFFFFFFFFFFEFFFF, "app")->name);
  MMapInfo* const fake = store().getFake(5, 0xFFFFFFFFFFFF0000, "app");
  EXPECT_EQ("{app-interrupt}", fake->name);
  EXPECT_EQ(0xFFFFFFFFFFFF0000u, fake->start);
  EXPECT_EQ(0xFFFFu, fake->size);
  EXPECT_EQ(fake, store().getFake(5, 0xFFFFFFFFFFFFFFFE, "app"));
}

TEST_F(MMapStoreTest, LastAddressOfThe32BitInterruptVectorsMakesAnotherFakeEachTime) {
  MMapInfo* const first = store().getFake(5, 0xFFFFFFFF, "app");
  MMapInfo* const second = store().getFake(5, 0xFFFFFFFF, "app");
  MMapInfo* const third = store().getFake(5, 0xFFFFFFFF, "app");
  EXPECT_EQ(4u, first->key);
  EXPECT_EQ(6u, second->key);
  EXPECT_EQ(8u, third->key);
  EXPECT_EQ("{app-interrupt}", third->name);
  EXPECT_EQ(nullptr, store().get(5, 0xFFFFFFFF));
  const std::string row = R"(,5,"{app-interrupt}",4294901760,65535])";
  EXPECT_EQ(table(KERNEL_ROW + "," + STACK_ROW + ",[4" + row + ",[6" + row + ",[8" + row),
            rows(true));
}

TEST_F(MMapStoreTest, LastAddressOfThe64BitInterruptVectorsMakesAnotherFakeEachTime) {
  MMapInfo* const first = store().getFake(5, ALL_ONES, "app");
  MMapInfo* const second = store().getFake(5, ALL_ONES, "app");
  EXPECT_NE(first, second);
  EXPECT_EQ("{app-interrupt}", second->name);
  EXPECT_EQ(0xFFFFFFFFFFFF0000u, second->start);
  EXPECT_EQ(0xFFFFu, second->size);
}

TEST_F(MMapStoreTest, InterruptRangesComeFromTheSettings) {
  settings().interruptStart32 = 0x1000;
  settings().interruptEnd32 = 0x1FFF;
  settings().interruptStart64 = 0x3000;
  settings().interruptEnd64 = 0x3FFF;
  EXPECT_EQ(0xFFFu, store().getFake(5, 0x1800, "app")->size);
  EXPECT_EQ(0x3000u, store().getFake(5, 0x3800, "app")->start);
  EXPECT_EQ("{app-0}", store().getFake(5, 0x800, "app")->name);
}

TEST_F(MMapStoreTest, The64BitInterruptVectorsAreTriedFirst) {
  settings().interruptStart64 = 0xFFFF1000;
  settings().interruptEnd64 = 0xFFFF1FFF;
  EXPECT_EQ(0xFFFF1000u, store().getFake(5, 0xFFFF1800, "app")->start);
}

TEST_F(MMapStoreTest, TableWithoutMapsInUseHasAnEmptyDataArray) {
  add(5, 0x8000, 0x1000, "/bin/app");
  EXPECT_EQ(table(""), rows(false));
}

TEST_F(MMapStoreTest, RowsAreKernelStackThenProcessesByPidAndMapsByStart) {
  add(7, 0x9000, 0x1000, "/bin/second");
  add(7, 0x8000, 0x1000, "/bin/seven");
  add(0x80000000, 0x8000, 0x1000, "/bin/last");
  add(5, 0x123456789A000, 0xFFFFFFFFFFFFFFFF, "/bin/five");
  EXPECT_EQ(table(KERNEL_ROW + "," + STACK_ROW +
                  R"(,[6,5,"/bin/five",320255973498880,18446744073709551615])"
                  R"(,[4,7,"/bin/seven",32768,4096],[3,7,"/bin/second",36864,4096])"
                  R"(,[5,2147483648,"/bin/last",32768,4096])"),
            rows(true));
}

TEST_F(MMapStoreTest, OnlyMapsInUseAreWrittenUnlessAllAre) {
  add(5, 0x8000, 0x1000, "/bin/app");
  add(5, 0x9000, 0x1000, "/lib/used")->refCount = 1;
  EXPECT_EQ(table(R"([4,5,"/lib/used",36864,4096])"), rows(false));
  store().kernelMap().refCount = 1;
  EXPECT_EQ(table(KERNEL_ROW + R"(,[4,5,"/lib/used",36864,4096])"), rows(false));
  store().get(5, 0xB0000000)->refCount = 1;
  EXPECT_EQ(table(KERNEL_ROW + "," + STACK_ROW + R"(,[4,5,"/lib/used",36864,4096])"), rows(false));
}

TEST_F(MMapStoreTest, StackMapAloneIsWrittenWhenInUse) {
  store().get(5, 0xB0000000)->refCount = 1;
  EXPECT_EQ(table(STACK_ROW), rows(false));
}

TEST_F(MMapStoreTest, KernelRowFollowsTheMapThatTheDriverMoved) {
  store().kernelMap().start = 0xC0008000;
  store().kernelMap().size = 0x10;
  store().kernelMap().refCount = 1;
  EXPECT_EQ(table(R"([0,0,"kernel",3221258240,16])"), rows(false));
}

TEST_F(MMapStoreTest, NamesUnderFourCharactersAreWrittenAsTheBlankName) {
  for (const char* const name : {"", "ab", "abc", "abcd"}) {
    add(5, 0x8000, 0x1000, name)->refCount = 1;
  }
  EXPECT_EQ(table(R"([3,5,"*BlankName*",32768,4096],[4,5,"*BlankName*",32768,4096],)"
                  R"([5,5,"*BlankName*",32768,4096],[6,5,"abcd",32768,4096])"),
            rows(false));
}

TEST_F(MMapStoreTest, BlankNameComesFromTheSettingsAndStandsForShortFixedNamesToo) {
  settings().blankName = "-";
  settings().kernelMapName = "krn";
  store().kernelMap().refCount = 1;
  EXPECT_EQ(table(R"([0,0,"-",3204448256,268435456])"), rows(false));
}

TEST_F(MMapStoreTest, NamesAreEscapedInTheDocument) {
  add(5, 0x8000, 0x1000, "/a\"\\\n/b")->refCount = 1;
  EXPECT_EQ(table(R"([3,5,"/a\"\\\n/b",32768,4096])"), rows(false));
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
  EXPECT_EQ(102u, threads().getProcess(5)->refCount);
  EXPECT_EQ(0u, threads().getProcess(6)->refCount);
  EXPECT_EQ(0u, threads().getProcess(0)->refCount);  // fixed maps are nobody's use
  rows(true);
  EXPECT_EQ(105u, threads().getProcess(5)->refCount);
  EXPECT_EQ(1u, threads().getProcess(6)->refCount);
  EXPECT_EQ(0u, threads().getProcess(0)->refCount);
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
  EXPECT_EQ(R"({"row":[3,4294967295,"/bin/app",32768,4096]})",
            jsonObjectText([&](kestrel::JsomWriter& writer) {
              writer.appendLabel("row", true);
              store()._writeLegacyJsonObjectForInfo(writer, 0xFFFFFFFF, *map);
            }));
}

}  // namespace
