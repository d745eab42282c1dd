// Answers that are kept must be those that would be found again: every test asks the stores, too.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "output/AddressResolver.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"
#include "tests/support/TempDir.h"

namespace {

constexpr uint32_t PID = 5;
constexpr uint32_t MANY = 20'000;  // more than there are places for answers

class AddressResolverTest : public testing::Test {
 protected:
  AddressResolverTest() {
    makeStoresAnewIn(temp_.path());
    resolver = std::make_unique<AddressResolver>([this] { ++loads; });
  }

  static MMapStore& maps() { return *kestrel::Singleton<MMapStore>::Instance(); }
  static ThreadInfo* thread(uint32_t pid) {
    return kestrel::Singleton<ThreadStore>::Instance()->getThread(pid, pid);
  }
  MMapInfo* addMap(uint32_t pid, uint64_t start, uint64_t size, const std::string& file = "/x/y") {
    return maps().add(mmapRecord(pid, pid, start, size, 0, file));
  }
  void setList(const std::string& file, const std::string& list) {
    kestrel::Singleton<SymbolCache>::Instance()->setOverride(file, temp_.write("list", list));
  }
  RangedItem* resolve(uint32_t pid, uint64_t address) {
    return resolver->resolve(thread(pid), address);
  }
  // Asks twice: the second answer is one that was kept, if any is.
  void expectMap(const MMapInfo* map, uint32_t pid, uint64_t address) {
    EXPECT_EQ(maps().get(pid, address), map);
    EXPECT_EQ(resolve(pid, address), map);
    EXPECT_EQ(resolve(pid, address), map);
  }

  int loads = 0;
  std::unique_ptr<AddressResolver> resolver;

 private:
  const TempDir temp_;
};

}  // namespace

TEST_F(AddressResolverTest, EveryUseCountsForTheMapAndItsFunction) {
  setList("/bin/app", "00008000 T first\n00008010 T second\n");
  MMapInfo* const map = addMap(PID, 0x8000, 0x1000, "/bin/app");
  for (int use = 0; use < 3; ++use) {
    const RangedItem* const function = resolve(PID, 0x8004);
    EXPECT_EQ(function, map->symbolTable->findFunction("first"));
    EXPECT_EQ(resolve(PID, 0x8800), map);
  }
  EXPECT_EQ(map->refCount, 6U);
  EXPECT_EQ(map->symbolTable->findFunction("first")->refCount, 3U);
  EXPECT_EQ(thread(PID)->refCount, 0U);
}

TEST_F(AddressResolverTest, SaysBeforehandThatAMapIsAskedForItsSymbols) {
  addMap(PID, 0x8000, 0x1000);
  addMap(PID, 0x9000, 0x1000);
  resolve(PID, 0x8000);
  EXPECT_EQ(loads, 1);
  resolve(PID, 0x8001);
  EXPECT_EQ(loads, 1);
  resolve(PID, 0x9000);
  EXPECT_EQ(loads, 2);
}

TEST_F(AddressResolverTest, OneAddressInManyProcesses) {
  std::vector<MMapInfo*> all;
  for (uint32_t pid = 0; pid < MANY; ++pid) {
    all.push_back(addMap(pid, 0x8000, 0x1000));
  }
  for (uint32_t pid = 0; pid < MANY; ++pid) {
    ASSERT_EQ(resolve(pid, 0x8000), all[pid]) << pid;
  }
}

TEST_F(AddressResolverTest, ManyAddressesOfOneProcess) {
  std::vector<MMapInfo*> all;
  for (uint32_t i = 0; i < MANY; ++i) {
    all.push_back(addMap(PID, 0x8000 + i, 1));
  }
  for (uint32_t i = 0; i < MANY; ++i) {
    ASSERT_EQ(resolve(PID, 0x8000 + i), all[i]) << i;
  }
}

// Whatever mixes an address with a process's id must tell them apart.
TEST_F(AddressResolverTest, AddressesThatDifferWhereTheProcessesDo) {
  for (unsigned shift = 0; shift < 64; ++shift) {
    const uint64_t above = 0x1000000000 + (uint64_t{1} << shift);
    const MMapInfo* const one = addMap(100 + shift, above, 1);
    const MMapInfo* const other = addMap(101 + shift, 0x1000000000, 1);
    EXPECT_EQ(resolve(100 + shift, above), one);
    EXPECT_EQ(resolve(101 + shift, 0x1000000000), other);
    EXPECT_EQ(resolve(100 + shift, above), one);
  }
}

TEST_F(AddressResolverTest, MapThatBeginsInsideAnotherTakesItsAddresses) {
  const MMapInfo* const outer = addMap(PID, 0x20000, 0x10000);
  expectMap(outer, PID, 0x28000);
  expectMap(outer, PID, 0x21000);
  const MMapInfo* const inner = addMap(PID, 0x24000, 0x1000);
  expectMap(outer, PID, 0x21000);
  expectMap(inner, PID, 0x24800);
  EXPECT_EQ(maps().get(PID, 0x28000), nullptr);
  EXPECT_NE(resolve(PID, 0x28000), outer);
}

TEST_F(AddressResolverTest, MadeUpMapMayBeginInsideAnother) {
  const MMapInfo* const map = addMap(PID, 0x1F000, 0x8000);  // into the page of 0x20000
  expectMap(map, PID, 0x20800);
  const RangedItem* const madeUp = resolve(PID, 0x28000);
  EXPECT_NE(madeUp, map);
  EXPECT_EQ(resolve(PID, 0x20800), madeUp);
  expectMap(map, PID, 0x1F800);
}

TEST_F(AddressResolverTest, MapsOfOneProcessLeaveTheAnswersOfAnother) {
  const MMapInfo* const map = addMap(PID, 0x20000, 0x10000);
  expectMap(map, PID, 0x28000);
  addMap(PID + 1, 0x24000, 0x1000);
  expectMap(map, PID, 0x28000);
}

// Which of them is found at their start changes with every map that is added, wherever it lies.
TEST_F(AddressResolverTest, MapsThatShareTheirStart) {
  for (int sharing = 0; sharing < 4; ++sharing) {
    addMap(PID, 0x80000, 0x1000);
  }
  const MMapInfo* before = maps().get(PID, 0x80000);
  int changes = 0;
  for (uint64_t i = 0; i < 24; ++i) {
    addMap(PID, (i / 6 % 2 == 0 ? 0x90000 : 0x20000) + 0x100 * i, 0x10);
    const MMapInfo* const found = maps().get(PID, 0x80000);
    changes += found != before ? 1 : 0;
    before = found;
    expectMap(found, PID, 0x80000);
  }
  EXPECT_GT(changes, 1);
}

TEST_F(AddressResolverTest, MadeUpMapOfAThreadIsItsProcesss) {
  ThreadInfo* const worker = kestrel::Singleton<ThreadStore>::Instance()->getThread(PID, PID + 1);
  thread(PID)->name = "app";
  for (int visit = 0; visit < 2; ++visit) {
    const auto* const madeUp = static_cast<MMapInfo*>(resolver->resolve(worker, 0x12345));
    EXPECT_EQ(madeUp->name, "{app-10000}");
    EXPECT_EQ(madeUp->refCount, static_cast<uint32_t>(visit + 1));
    EXPECT_EQ(thread(PID)->refCount, 1U);
  }
}

// It does not hold the address for which it was made.
TEST_F(AddressResolverTest, LastAddressOfTheInterruptVectorsMakesAnotherMapEachTime) {
  const RangedItem* const first = resolve(PID, 0xFFFFFFFF);
  const RangedItem* const second = resolve(PID, 0xFFFFFFFF);
  EXPECT_NE(first, second);
  EXPECT_EQ(first->start, second->start);
}

TEST_F(AddressResolverTest, FixedMapsAreEveryProcesss) {
  EXPECT_EQ(resolve(PID, 0xC0000000), &maps().kernelMap());
  EXPECT_EQ(resolve(PID + 1, 0xC0000000), &maps().kernelMap());
  EXPECT_EQ(resolve(PID, 0xB0000000), maps().get(PID + 1, 0xB0000000));
}

TEST_F(AddressResolverTest, LargestAddressAndProcess) {
  const MMapInfo* const map = addMap(UINT32_MAX, UINT64_MAX - 1, 2);
  expectMap(map, UINT32_MAX, UINT64_MAX);
}

TEST_F(AddressResolverTest, NothingIsKnownAtFirst) {
  EXPECT_EQ(maps().get(0, 0), nullptr);
  EXPECT_EQ(resolve(0, 0)->start, 0U);
}
