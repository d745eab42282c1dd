#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "output/SampleWriter.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"
#include "tests/support/TableTexts.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestAccess.h"

namespace {

constexpr uint64_t ALL_ONES = 0xFFFFFFFFFFFFFFFF;

// No file of this machine is looked at: mapped files are searched in an empty folder, and symbol
// lists are the test's own.
class SampleWriterTest : public testing::Test {
 protected:
  SampleWriterTest() { makeStoresAnewIn(temp.path()); }

  PerfSettings& settings() { return *kestrel::Singleton<PerfSettings>::Instance(); }
  ThreadStore& threads() { return *kestrel::Singleton<ThreadStore>::Instance(); }
  MMapStore& maps() { return *kestrel::Singleton<MMapStore>::Instance(); }
  // Made on first use, after the settings.
  SampleWriter& samples() {
    if (!samples_) {
      samples_ = std::make_unique<SampleWriter>();
    }
    return *samples_;
  }

  MMapInfo* addMap(uint32_t pid, uint64_t address, uint64_t length, const std::string& file) {
    return maps().add(mmapRecord(pid, pid, address, length, 0, file));
  }
  void addComm(uint32_t pid, uint32_t tid, const std::string& name) {
    threads().add(commRecord(pid, tid, name));
  }
  void setList(const std::string& file, const std::string& list) {
    kestrel::Singleton<SymbolCache>::Instance()->setOverride(file, temp.write("list", list));
  }
  static SampleInfo sample(uint32_t pid, uint32_t tid, uint64_t ip) {
    SampleInfo info;
    info.time = 1.25;
    info.ip = ip;
    info.pid = pid;
    info.tid = tid;
    info.cpu = 3;
    return info;
  }
  // The document of these samples, whole.
  std::string table(const std::vector<SampleInfo>& infos) {
    return jsonObjectText([&](kestrel::JsomWriter& writer) {
      samples().writeHeader(writer);
      for (const SampleInfo& info : infos) {
        samples().writeSample(writer, info);
      }
      samples().writeFooter(writer);
    });
  }
  static std::string expected(const std::string& rows) { return tableText("samples", rows); }

  TempDir temp;

 private:
  std::unique_ptr<SampleWriter> samples_;
};

TEST_F(SampleWriterTest, WithoutSamplesTheTableHasDescriptionsAndAnEmptyDataArray) {
  EXPECT_EQ(table({}), expected(""));
}

TEST_F(SampleWriterTest, IndentedHeaderAndFooter) {
  const std::string text = jsonObjectText(
      [&](kestrel::JsomWriter& writer) {
        samples().writeHeader(writer);
        samples().writeFooter(writer);
      },
      true);
  EXPECT_THAT(text, testing::StartsWith("{\n \"samples\": {\n  \"descriptions\": {\n   \"key\": "));
  EXPECT_THAT(text, testing::EndsWith("\"backtrace map key\"\n  },\n  \"data\": [\n  ]\n }\n}"));
}

TEST_F(SampleWriterTest, RowOfASampleInAMapWithoutSymbolsRefersToTheMap) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  EXPECT_EQ(table({sample(5, 6, 0x8010)}), expected("[1,32784,3,1.25,3,6,6,[]]"));
}

TEST_F(SampleWriterTest, RowOfASampleInAFunctionRefersToTheFunction) {
  setList("/bin/app", "00008000 T first\n00008010 T second\n00008020 T third\n");
  addMap(5, 0x8000, 0x1000, "/bin/app");
  // keys: 0 to 2 fixed, 3 the map, 4 to 6 the functions
  EXPECT_EQ(table({sample(5, 5, 0x800F), sample(5, 5, 0x8010), sample(5, 5, 0x8020),
                   sample(5, 5, 0x8021)}),
            expected("[1,32783,4,1.25,3,5,5,[]],[2,32784,5,1.25,3,5,5,[]],"
                     "[3,32800,6,1.25,3,5,5,[]],[4,32801,3,1.25,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, FunctionsOfASharedLibraryAreFoundBehindTheSymbolBase) {
  setList("/lib/x.so", "00001010 T first\n00001020 T second\n");
  maps().add(mmapRecord(5, 5, 0x40100000, 0x1000, 0x1000, "/lib/x.so"));
  EXPECT_EQ(table({sample(5, 5, 0x40100010), sample(5, 5, 0x4010000F)}),
            expected("[1,1074790416,4,1.25,3,5,5,[]],[2,1074790415,3,1.25,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, SampleKeysAreOrdinals) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  EXPECT_EQ(table({sample(5, 5, 0x8000), sample(5, 5, 0x8001), sample(5, 5, 0x8000)}),
            expected("[1,32768,3,1.25,3,5,5,[]],[2,32769,3,1.25,3,5,5,[]],"
                     "[3,32768,3,1.25,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, SampleKeysGoOnWithTheWriterAndBeginAnewWithAnother) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  table({sample(5, 5, 0x8000)});
  EXPECT_EQ(table({sample(5, 5, 0x8000)}), expected("[2,32768,3,1.25,3,5,5,[]]"));
  const SampleWriter another;
  EXPECT_EQ(jsonObjectText([&](kestrel::JsomWriter& writer) {
              writer.appendLabel("rows", true);
              writer.startArray();
              another.writeSample(writer, sample(5, 5, 0x8000));
              writer.endArray();
            }),
            R"({"rows":[[1,32768,3,1.25,3,5,5,[]]]})");
}

TEST_F(SampleWriterTest, BacktraceIsPairsOfAddressAndKey) {
  setList("/bin/app", "00008000 T first\n00008010 T second\n00008020 T third\n");
  addMap(5, 0x8000, 0x1000, "/bin/app");
  SampleInfo info = sample(5, 5, 0x8000);
  info.backtrace = {0x8011, 0x8FFF, 0xC0000000, 0xB0000000};
  EXPECT_EQ(table({info}), expected("[1,32768,4,1.25,3,5,5,"
                                    "[[32785,5],[36863,3],[3221225472,0],[2952790016,1]]]"));
}

TEST_F(SampleWriterTest, NumbersAreWrittenUnsigned) {
  SampleInfo info = sample(0xFFFFFFFF, 0xFFFFFFFE, ALL_ONES - 1);
  info.cpu = 0xFFFFFFFD;
  info.backtrace = {ALL_ONES - 1};
  EXPECT_EQ(table({info}),
            expected("[1,18446744073709551614,4,1.25,4294967293,4294967294,4294967294,"
                     "[[18446744073709551614,4]]]"));
}

TEST_F(SampleWriterTest, TimeHasSixDigitsAtMostByDefault) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  SampleInfo info = sample(5, 5, 0x8000);
  info.time = 12.3456789;
  EXPECT_EQ(table({info}), expected("[1,32768,3,12.345679,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, TimeHasTheDigitsOfTheSettings) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  settings().timePrecision = 2;
  SampleInfo info = sample(5, 5, 0x8000);
  info.time = 12.3456789;
  EXPECT_EQ(table({info}), expected("[1,32768,3,12.35,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, TimePrecisionZeroWritesSixDigitsUntrimmed) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  settings().timePrecision = 0;
  EXPECT_EQ(table({sample(5, 5, 0x8000)}), expected("[1,32768,3,1.250000,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, NegativeTimeIsWrittenAsItIs) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  SampleInfo info = sample(5, 5, 0x8000);
  info.time = -1.5;
  EXPECT_EQ(table({info}), expected("[1,32768,3,-1.5,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, BothThreadColumnsHoldTheTid) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  addComm(5, 5, "app");
  addComm(5, 6, "worker");
  EXPECT_EQ(table({sample(5, 6, 0x8000)}), expected("[1,32768,3,1.25,3,6,6,[]]"));
}

TEST_F(SampleWriterTest, EachSampleIsAUseOfItsThreadNotOfTheProcess) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  table({sample(5, 6, 0x8000), sample(5, 6, 0x8000)});
  EXPECT_EQ(threads().getThread(5, 6)->refCount, 2u);
  EXPECT_EQ(threads().getProcess(5)->refCount, 0u);
}

TEST_F(SampleWriterTest, EachAddressIsAUseOfItsMapAndFunction) {
  setList("/bin/app", "00008000 T first\n00008010 T second\n00008020 T third\n");
  MMapInfo* const map = addMap(5, 0x8000, 0x1000, "/bin/app");
  SampleInfo info = sample(5, 5, 0x8000);
  info.backtrace = {0x8011, 0x8012, 0x8FFF, 0xC0000000, 0xB0000000};
  table({info});
  EXPECT_EQ(map->refCount, 4u);
  EXPECT_EQ(maps().kernelMap().refCount, 1u);
  EXPECT_EQ(maps().get(5, 0xB0000000)->refCount, 1u);
  const SymbolTable* const symbols = map->symbolTable;
  ASSERT_NE(symbols, nullptr);
  EXPECT_EQ(symbols->findFunction("first")->refCount, 1u);
  EXPECT_EQ(symbols->findFunction("second")->refCount, 2u);
  EXPECT_EQ(symbols->findFunction("third")->refCount, 0u);
}

TEST_F(SampleWriterTest, ThreadNeverAnnouncedIsCreatedNamelessAndInUse) {
  addMap(5, 0x8000, 0x1000, "/bin/app");
  table({sample(5, 7, 0x8000)});
  EXPECT_THAT(jsonObjectText([&](kestrel::JsomWriter& writer) {
                threads().writeLegacyJsonObject(writer, false);
              }),
              testing::EndsWith(R"("data":[[7,5,7,""]]}})"));
}

TEST_F(SampleWriterTest, UnmappedAddressOfAProcessMakesAFakeMapNamedAfterIt) {
  addComm(5, 5, "app");
  EXPECT_EQ(table({sample(5, 5, 0x12345), sample(5, 5, 0x10000)}),
            expected("[1,74565,4,1.25,3,5,5,[]],[2,65536,4,1.25,3,5,5,[]]"));
  const MMapInfo* const fake = maps().get(5, 0x12345);
  ASSERT_NE(fake, nullptr);
  EXPECT_EQ(fake->name, "{app-10000}");
  EXPECT_EQ(fake->refCount, 2u);
  EXPECT_EQ(threads().getProcess(5)->refCount, 2u);
}

TEST_F(SampleWriterTest, UnmappedAddressOfAThreadMakesAFakeMapOfItsProcessAndUsesTheProcess) {
  addComm(5, 5, "app");
  addComm(5, 6, "worker");
  SampleInfo info = sample(5, 6, 0x12345);
  info.backtrace = {0x22345};
  EXPECT_EQ(table({info}), expected("[1,74565,4,1.25,3,6,6,[[140101,6]]]"));
  EXPECT_EQ(maps().get(5, 0x12345)->name, "{app-10000}");
  EXPECT_EQ(maps().get(5, 0x22345)->name, "{app-20000}");
  EXPECT_EQ(threads().getThread(5, 6)->refCount, 1u);
  EXPECT_EQ(threads().getProcess(5)->refCount, 2u);
}

TEST_F(SampleWriterTest, FakeMapFoundLaterIsNoFurtherUseOfTheProcess) {
  addComm(5, 5, "app");
  addComm(5, 6, "worker");
  table({sample(5, 6, 0x12345), sample(5, 6, 0x12346)});
  EXPECT_EQ(threads().getProcess(5)->refCount, 1u);
  EXPECT_EQ(maps().get(5, 0x12345)->refCount, 2u);
}

TEST_F(SampleWriterTest, FakeMapOfANamelessProcessIsNamedAfterItsPid) {
  table({sample(77, 78, 0x12345)});
  EXPECT_EQ(maps().get(77, 0x12345)->name, "{77-10000}");
  EXPECT_EQ(threads().getProcess(77)->refCount, 1u);
}

TEST_F(SampleWriterTest, MapsAreLookedUpUnderThePidThatTheThreadIsKnownBy) {
  addComm(5, 7, "worker");
  MMapInfo* const map = addMap(5, 0x8000, 0x1000, "/bin/app");
  addMap(9, 0x8000, 0x1000, "/bin/other");
  EXPECT_EQ(table({sample(9, 7, 0x8000)}), expected("[1,32768,3,1.25,3,7,7,[]]"));
  EXPECT_EQ(map->refCount, 1u);
}

TEST_F(SampleWriterTest, FakeMapBelongsToThePidThatTheThreadIsKnownBy) {
  addComm(5, 5, "app");
  addComm(5, 7, "worker");
  table({sample(9, 7, 0x12345)});
  EXPECT_EQ(maps().get(5, 0x12345)->name, "{app-10000}");
  EXPECT_EQ(maps().get(9, 0x12345), nullptr);
}

TEST_F(SampleWriterTest, FakeMapBelongsToThePidOfTheEntryThatTheProcessIsKnownBy) {
  addComm(5, 5, "app");
  addComm(5, 7, "worker");
  table({sample(7, 8, 0x12345)});  // the entry of tid 7 has pid 5
  EXPECT_EQ(maps().get(5, 0x12345)->name, "{worker-10000}");
  EXPECT_EQ(maps().get(7, 0x12345), nullptr);
  EXPECT_EQ(threads().getThread(5, 7)->refCount, 1u);
}

TEST_F(SampleWriterTest, LastAddressOfTheInterruptVectorsMakesAnotherFakeMapEachTime) {
  EXPECT_EQ(table({sample(5, 5, 0xFFFFFFFF), sample(5, 5, 0xFFFFFFFF)}),
            expected("[1,4294967295,4,1.25,3,5,5,[]],[2,4294967295,6,1.25,3,5,5,[]]"));
}

TEST_F(SampleWriterTest, MemMapOfAFunctionsAddressIsTheFunction) {
  setList("/bin/app", "00008000 T first\n00008010 T second\n");
  MMapInfo* const map = addMap(5, 0x8000, 0x1000, "/bin/app");
  ThreadInfo* const thread = threads().getThread(5, 6);
  const RangedItem* const item = samples()._getMemMap(thread, 0x8004);
  EXPECT_EQ(map->symbolTable->findFunction("first"), item);
  EXPECT_EQ(map, samples()._getMemMap(thread, 0x8800));
  EXPECT_EQ(map->refCount, 2u);
  EXPECT_EQ(thread->refCount, 0u);
}

TEST_F(SampleWriterTest, KernelAddressResolvesThroughTheKernelsList) {
  setList("kernel", "c0008000 T stext\nc0008100 t do_one\t[mod]\nc0008200 T end\n");
  kestrel::Singleton<SymbolTableStore>::Instance()->setLocation("kernel", "kernel");
  EXPECT_EQ(table({sample(5, 5, 0xC0008104)}), expected("[1,3221258500,4,1.25,3,5,5,[]]"));
  EXPECT_EQ(maps().kernelMap().refCount, 1u);
}

}  // namespace
