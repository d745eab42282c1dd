#include <string>

#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "model/MMapInfo.h"
#include "perfevents/PerfEventDataMmap.h"
#include "tests/support/EventRecords.h"
#include "tests/support/TestAccess.h"

class SymbolTable {};  // only its address is used here

namespace {

class MMapInfoTest : public testing::Test {
 protected:
  MMapInfoTest() { kestrel::TestAccess::reset<PerfSettings>(); }

  uint64_t biasAt(uint64_t start, uint64_t pageOffset = 0x1000) {
    info.copy(mmapRecord(5, 5, start, 0x2000, pageOffset, "/lib/x.so"));
    return info.loadBias;
  }
  std::string nameFrom(const std::string& file) {
    info.copy(mmapRecord(5, 5, 0x8000, 0x2000, 0, file));
    return info.name;
  }

  MMapInfo info;
  SymbolTable table;
};

TEST_F(MMapInfoTest, FreshMapIsEmpty) {
  EXPECT_EQ(info.pgoff, 0u);
  EXPECT_EQ(info.loadBias, 0u);
  EXPECT_EQ(info.refCount, 0u);
  EXPECT_EQ(info.name, "");
  EXPECT_EQ(info.symbolTable, nullptr);
}

TEST_F(MMapInfoTest, CopyOfARecordTakesRangeOffsetAndName) {
  info.copy(mmapRecord(5, 6, 0x123456789A000, 0x23000, 0x4000, "/usr/lib/libx.so.1"));
  EXPECT_EQ(info.start, 0x123456789A000u);
  EXPECT_EQ(info.size, 0x23000u);
  EXPECT_EQ(info.pgoff, 0x4000u);
  EXPECT_EQ(info.name, "/usr/lib/libx.so.1");
  EXPECT_EQ(info.loadBias, 0x1234567896000u);
}

TEST_F(MMapInfoTest, SharedLibraryGetsALoadBiasAndAProgramNone) {
  EXPECT_EQ(biasAt(0x40100000), 0x400FF000u);
  EXPECT_EQ(biasAt(0x8000), 0u);
}

TEST_F(MMapInfoTest, LoadBiasBeginsAtTheSharedLibraryBase) {
  EXPECT_EQ(biasAt(0x3FFFFFFF), 0u);
  EXPECT_EQ(biasAt(0x40000000), 0x3FFFF000u);
}

TEST_F(MMapInfoTest, MapsInsideTheKernelRangeGetNoLoadBias) {
  EXPECT_EQ(biasAt(0xBEFFFFFF), 0xBEFFEFFFu);
  EXPECT_EQ(biasAt(0xBF000000), 0u);
  EXPECT_EQ(biasAt(0xCF000000), 0u);
  EXPECT_EQ(biasAt(0xCF000001), 0xCEFFF001u);
}

TEST_F(MMapInfoTest, RangesOfTheLoadBiasComeFromTheSettings) {
  PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  settings->sharedLibraryBase = 0x10000;
  settings->kernelStartAddress = 0x30000;
  settings->kernelEndAddress = 0x40000;
  EXPECT_EQ(biasAt(0xFFFF), 0u);
  EXPECT_EQ(biasAt(0x10000), 0xF000u);
  EXPECT_EQ(biasAt(0x2FFFF), 0x2EFFFu);
  EXPECT_EQ(biasAt(0x30000), 0u);
  EXPECT_EQ(biasAt(0x40000), 0u);
  EXPECT_EQ(biasAt(0x40001), 0x3F001u);
}

TEST_F(MMapInfoTest, LoadBiasOfAnOffsetBeyondTheStartWrapsAround) {
  EXPECT_EQ(biasAt(0x40000000, 0x80000000), 0xFFFFFFFFC0000000u);
}

TEST_F(MMapInfoTest, CopyOfARecordDropsTheOldBiasAndTheSymbolTable) {
  info.loadBias = 0x77;
  info.symbolTable = &table;
  info.copy(mmapRecord(5, 5, 0x8000, 0x2000, 0x1000, "/bin/app"));
  EXPECT_EQ(info.loadBias, 0u);
  EXPECT_EQ(info.symbolTable, nullptr);
}

TEST_F(MMapInfoTest, DeletedSuffixIsCutOffTheFileName) {
  EXPECT_EQ(nameFrom("/lib/x.so (deleted)"), "/lib/x.so");
  EXPECT_EQ(nameFrom("/lib/x.so (deleted) and (deleted)"), "/lib/x.so");
  EXPECT_EQ(nameFrom(" (deleted)"), "");
  EXPECT_EQ(nameFrom("/lib/x.so(deleted)"), "/lib/x.so(deleted)");
}

TEST_F(MMapInfoTest, FileNameKeepsEveryByte) {
  EXPECT_EQ(nameFrom("/t\xC3\xA4\t\x01"), "/t\xC3\xA4\t\x01");
}

TEST_F(MMapInfoTest, CopyOfAMapTakesAllButKeyUseCountAndSymbolTable) {
  MMapInfo other;
  other.start = 1;
  other.size = 2;
  other.pgoff = 3;
  other.loadBias = 4;
  other.refCount = 5;
  other.name = "/x (deleted)";
  other.symbolTable = &table;
  const uint64_t key = info.key;
  ASSERT_NE(key, other.key);
  info.refCount = 9;
  info.symbolTable = &table;
  info.copy(other);
  EXPECT_EQ(info.start, 1u);
  EXPECT_EQ(info.size, 2u);
  EXPECT_EQ(info.pgoff, 3u);
  EXPECT_EQ(info.loadBias, 4u);
  EXPECT_EQ(info.name, "/x (deleted)");  // cut for records only
  EXPECT_EQ(info.refCount, 9u);
  EXPECT_EQ(key, info.key);
  EXPECT_EQ(info.symbolTable, nullptr);
  EXPECT_EQ(&table, other.symbolTable);
}

TEST_F(MMapInfoTest, CopyOfARecordKeepsKeyAndUseCount) {
  const uint64_t key = info.key;
  info.refCount = 9;
  info.copy(mmapRecord(5, 5, 0x8000, 0x2000, 0, "/bin/app"));
  EXPECT_EQ(key, info.key);
  EXPECT_EQ(info.refCount, 9u);
}

}  // namespace
