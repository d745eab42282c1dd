#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "model/ThreadStore.h"
#include "perfevents/PerfEventDataComm.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"
#include "tests/support/TableTexts.h"

namespace {

class ThreadStoreTest : public testing::Test {
 protected:
  ThreadStoreTest() { makeModelAnew(); }

  static std::string expected(const std::string& rows) { return tableText("processes", rows); }
  void addComm(uint32_t pid, uint32_t tid, const std::string& name) {
    store().add(commRecord(pid, tid, name));
  }
  std::string nameAfterComm(const std::string& name) {
    addComm(500, 500, name);
    return store().getThread(500, 500)->name;
  }
  std::string rows(bool writeAll) {
    return jsonObjectText(
        [&](kestrel::JsomWriter& writer) { store().writeLegacyJsonObject(writer, writeAll); });
  }
  ThreadStore& store() {
    if (!store_) {
      store_ = std::make_unique<ThreadStore>();
    }
    return *store_;
  }

 private:
  std::unique_ptr<ThreadStore> store_;
};

TEST_F(ThreadStoreTest, FreshStoreHoldsKernelAndInit) {
  EXPECT_EQ(rows(true), expected(R"([0,0,0,"kernel"],[1,1,1,"*init*"])"));
  EXPECT_EQ(store().getProcess(0)->name, "kernel");
  EXPECT_EQ(store().getProcess(1)->name, "*init*");
  EXPECT_EQ(store().getProcess(0)->refCount, 0u);
}

TEST_F(ThreadStoreTest, NothingReferencedWritesAnEmptyDataArray) {
  addComm(5, 5, "app");
  EXPECT_EQ(rows(false), expected(""));
}

TEST_F(ThreadStoreTest, KernelAndInitTakeTheirIdsAndNamesFromTheSettings) {
  PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  settings->kernelPid = 7;
  settings->kernelProcessName = "vmlinux";
  settings->initPid = 3;
  settings->initProcessName = "first";
  EXPECT_EQ(rows(true), expected(R"([3,3,3,"first"],[7,7,7,"vmlinux"])"));
}

TEST_F(ThreadStoreTest, OnlyReferencedEntriesAreWrittenUnlessAllAre) {
  addComm(5, 5, "app");
  addComm(5, 6, "worker");
  store().getThread(5, 6)->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([6,5,6,"worker"])"));
  EXPECT_EQ(rows(true),
            expected(R"([0,0,0,"kernel"],[1,1,1,"*init*"],[5,5,5,"app"],[6,5,6,"worker"])"));
}

TEST_F(ThreadStoreTest, ReferencedKernelAndInitAreWritten) {
  store().getProcess(0)->refCount = 2;
  store().getProcess(1)->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([0,0,0,"kernel"],[1,1,1,"*init*"])"));
}

TEST_F(ThreadStoreTest, RowsAscendByTidAsUnsignedNumbers) {
  addComm(1, 0xFFFFFFFF, "last");
  addComm(0xFFFFFFFE, 0x80000000, "middle");
  addComm(9, 2, "first");
  for (const unsigned tid : {2u, 0x80000000u, 0xFFFFFFFFu}) {
    store().getThread(0, tid)->refCount = 1;
  }
  EXPECT_EQ(rows(false), expected(R"([2,9,2,"first"],[2147483648,4294967294,2147483648,"middle"],)"
                                  R"([4294967295,1,4294967295,"last"])"));
}

TEST_F(ThreadStoreTest, NamesAreEscapedInTheDocument) {
  addComm(5, 5, "a\"b\\c");
  store().getProcess(5)->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([5,5,5,"a\"b\\c"])"));
}

TEST_F(ThreadStoreTest, CommCreatesAnEntryWithoutReferences) {
  addComm(5, 7, "app");
  const ThreadInfo* const thread = store().getThread(5, 7);
  EXPECT_EQ(thread->pid, 5u);
  EXPECT_EQ(thread->tid, 7u);
  EXPECT_EQ(thread->name, "app");
  EXPECT_EQ(thread->refCount, 0u);
}

TEST_F(ThreadStoreTest, DeletedSuffixIsCutOffANewName) {
  EXPECT_EQ(nameAfterComm("app (deleted)"), "app");
}

TEST_F(ThreadStoreTest, DeletedSuffixIsCutOffARename) {
  addComm(5, 5, "app");
  addComm(5, 5, "other (deleted)");
  EXPECT_EQ(store().getProcess(5)->name, "other");
}

TEST_F(ThreadStoreTest, NameIsCutAtTheFirstDeletedMarkWithAllThatFollows) {
  EXPECT_EQ(nameAfterComm("app (deleted) more (deleted) x"), "app");
}

TEST_F(ThreadStoreTest, NameThatIsOnlyTheDeletedMarkBecomesEmpty) {
  EXPECT_EQ(nameAfterComm(" (deleted)"), "");
}

TEST_F(ThreadStoreTest, PartOfTheDeletedMarkStays) {
  EXPECT_EQ(nameAfterComm("app (deleted"), "app (deleted");
  EXPECT_EQ(nameAfterComm("app(deleted)"), "app(deleted)");
  EXPECT_EQ(nameAfterComm("app (Deleted)"), "app (Deleted)");
}

TEST_F(ThreadStoreTest, SecondCommRenamesTheThreadButKeepsItsFirstPid) {
  addComm(5, 7, "first");
  store().getThread(5, 7)->refCount = 3;
  addComm(9, 7, "second");
  const ThreadInfo* const thread = store().getThread(9, 7);
  EXPECT_EQ(thread->pid, 5u);
  EXPECT_EQ(thread->name, "second");
  EXPECT_EQ(thread->refCount, 3u);
}

TEST_F(ThreadStoreTest, CommNamesAThreadThatALookupCreated) {
  ThreadInfo* const thread = store().getThread(5, 7);
  addComm(9, 7, "late");
  EXPECT_EQ(thread->name, "late");
  EXPECT_EQ(thread->pid, 5u);
}

TEST_F(ThreadStoreTest, CommRenamesTheKernelsEntry) {
  addComm(0, 0, "swapper");
  EXPECT_EQ(store().getProcess(0)->name, "swapper");
}

TEST_F(ThreadStoreTest, LookupOfAnUnknownThreadCreatesANamelessOneThatKeepsItsPid) {
  ThreadInfo* const thread = store().getThread(5, 7);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(thread->pid, 5u);
  EXPECT_EQ(thread->tid, 7u);
  EXPECT_EQ(thread->name, "");
  EXPECT_EQ(thread->refCount, 0u);
  EXPECT_EQ(thread, store().getThread(9, 7));
  EXPECT_EQ(thread->pid, 5u);
}

TEST_F(ThreadStoreTest, ProcessIsTheThreadWhoseTidIsThePid) {
  EXPECT_EQ(store().getThread(12, 12), store().getProcess(12));
  EXPECT_EQ(store().getProcess(12)->pid, 12u);
  EXPECT_EQ(store().getProcess(12)->tid, 12u);
}

TEST_F(ThreadStoreTest, ProcessOfATidThatBelongsToAnotherPidIsThatThread) {
  ThreadInfo* const thread = store().getThread(5, 7);
  EXPECT_EQ(thread, store().getProcess(7));
}

TEST_F(ThreadStoreTest, EntriesStayWhereTheyAreWhileTheStoreGrows) {
  ThreadInfo* const thread = store().getThread(5, 7);
  for (unsigned tid = 100; tid < 10000; ++tid) {
    store().getThread(5, tid);
  }
  EXPECT_EQ(thread, store().getThread(5, 7));
}

TEST_F(ThreadStoreTest, NamelessReferencedThreadIsWrittenWithAnEmptyName) {
  store().getThread(5, 7)->refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([7,5,7,""])"));
}

}  // namespace
