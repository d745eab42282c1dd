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
  EXPECT_EQ(0u, info.pgoff);
  EXPECT_EQ(0u, info.loadBias);
  EXPECT_EQ(0u, info.refCount);
  EXPECT_EQ("", info.name);
  EXPECT_EQ(nullptr, info.symbolTable);
}

TEST_F(MMapInfoTest, CopyOfARecordTakesRangeOffsetAndName) {
  info.copy(mmapRecord(5, 6, 0x123456789A000, 0x23000, 0x4000, "/usr/lib/libx.so.1"));
  EXPECT_EQ(0x123456789A000u, info.start);
  EXPECT_EQ(0x23000u, info.size);
  EXPECT_EQ(0x4000u, info.pgoff);
  EXPECT_EQ("/usr/lib/libx.so.1", info.name);
  EXPECT_EQ(0x1234567896000u, info.loadBias);
}

TEST_F(MMapInfoTest, SharedLibraryGetsALoadBiasAndAProgramNone) {
  EXPECT_EQ(0x400FF000u, biasAt(0x40100000));
  EXPECT_EQ(0u, biasAt(0x8000));
}

TEST_F(MMapInfoTest, LoadBiasBeginsAtTheSharedLibraryBase) {
  EXPECT_EQ(0u, biasAt(0x3FFFFFFF));
  EXPECT_EQ(0x3FFFF000u, biasAt(0x40000000));
}

TEST_F(MMapInfoTest, MapsInsideTheKernelRangeGetNoLoadBias) {
  EXPECT_EQ(0xBEFFEFFFu, biasAt(0xBEFFFFFF));
  EXPECT_EQ(0u, biasAt(0xBF000000));
  EXPECT_EQ(0u, biasAt(0xCF000000));
  EXPECT_EQ(0xCEFFF001u, biasAt(0xCF000001));
}

TEST_F(MMapInfoTest, RangesOfTheLoadBiasComeFromTheSettings) {
  PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  settings->sharedLibraryBase = 0x10000;
  settings->kernelStartAddress = 0x30000;
  settings->kernelEndAddress = 0x40000;
  EXPECT_EQ(0u, biasAt(0xFFFF));
  EXPECT_EQ(0xF000u, biasAt(0x10000));
  EXPECT_EQ(0x2EFFFu, biasAt(0x2FFFF));
  EXPECT_EQ(0u, biasAt(0x30000));
  EXPECT_EQ(0u, biasAt(0x40000));
  EXPECT_EQ(0x3F001u, biasAt(0x40001));
}

TEST_F(MMapInfoTest, LoadBiasOfAnOffsetBeyondTheStartWrapsAround) {
  EXPECT_EQ(0xFFFFFFFFC0000000u, biasAt(0x40000000, 0x80000000));
}

TEST_F(MMapInfoTest, CopyOfARecordDropsTheOldBiasAndTheSymbolTable) {
  info.loadBias = 0x77;
  info.symbolTable = &table;
  info.copy(mmapRecord(5, 5, 0x8000, 0x2000, 0x1000, "/bin/app"));
  EXPECT_EQ(0u, info.loadBias);
  EXPECT_EQ(nullptr, info.symbolTable);
}

TEST_F(MMapInfoTest, DeletedSuffixIsCutOffTheFileName) {
  EXPECT_EQ("/lib/x.so", nameFrom("/lib/x.so (deleted)"));
  EXPECT_EQ("/lib/x.so", nameFrom("/lib/x.so (deleted) and (deleted)"));
  EXPECT_EQ("", nameFrom(" (deleted)"));
  EXPECT_EQ("/lib/x.so(deleted)", nameFrom("/lib/x.so(deleted)"));
}

TEST_F(MMapInfoTest, FileNameKeepsEveryByte) {
  EXPECT_EQ("/t\xC3\xA4\t\x01", nameFrom("/t\xC3\xA4\t\x01"));
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
  EXPECT_EQ(1u, info.start);
  EXPECT_EQ(2u, info.size);
  EXPECT_EQ(3u, info.pgoff);
  EXPECT_EQ(4u, info.loadBias);
  EXPECT_EQ("/x (deleted)", info.name);  // cut for records only
  EXPECT_EQ(9u, info.refCount);
  EXPECT_EQ(key, info.key);
  EXPECT_EQ(nullptr, info.symbolTable);
  EXPECT_EQ(&table, other.symbolTable);
}

TEST_F(MMapInfoTest, CopyOfARecordKeepsKeyAndUseCount) {
  const uint64_t key = info.key;
  info.refCount = 9;
  info.copy(mmapRecord(5, 5, 0x8000, 0x2000, 0, "/bin/app"));
  EXPECT_EQ(key, info.key);
  EXPECT_EQ(9u, info.refCount);
}

}  // namespace
