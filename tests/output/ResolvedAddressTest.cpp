#include <gtest/gtest.h>

#include "output/ResolvedAddress.h"

namespace {

constexpr uint32_t PID = 7;
constexpr uint32_t GENERATION = 3;

class AddressCacheTest : public testing::Test {
 protected:
  // As whoever found an answer does.
  void keep(uint32_t pid, uint64_t address, MMapInfo* itsMap) {
    ResolvedAddress& place = cache.place(pid, address);
    place.set(pid, address, itsMap, nullptr);
    place.generation = GENERATION;
  }
  // An address whose answer has the same place.
  uint64_t rivalOf(uint32_t pid, uint64_t address) {
    uint64_t rival = address + 1;
    while (&cache.place(pid, rival) != &cache.place(pid, address)) {
      ++rival;
    }
    return rival;
  }

  AddressCache cache;
  MMapInfo map;
  MMapInfo other;
};

}  // namespace

TEST(ResolvedAddressTest, ItemIsTheMap) {
  MMapInfo map;
  ResolvedAddress answer;
  answer.set(1, 0x8000, &map, nullptr);
  EXPECT_EQ(answer.pid, 1U);
  EXPECT_EQ(answer.address, 0x8000U);
  EXPECT_EQ(answer.item(), &map);
}

TEST(ResolvedAddressTest, ItemIsTheFunctionIfThereIsOne) {
  MMapInfo map;
  FunctionInfo function;
  ResolvedAddress answer;
  answer.set(1, 0, &map, &function);
  EXPECT_EQ(answer.item(), &function);
}

TEST(ResolvedAddressTest, UseOfAFunctionIsAUseOfItsMapToo) {
  MMapInfo map;
  FunctionInfo function;
  ResolvedAddress answer;
  answer.set(1, 1, &map, &function);
  answer.countUse();
  answer.countUse();
  answer.set(1, 1, &map, nullptr);
  answer.countUse();
  EXPECT_EQ(map.refCount, 3U);
  EXPECT_EQ(function.refCount, 2U);
}

TEST_F(AddressCacheTest, KnowsNothingAtFirst) {
  EXPECT_EQ(cache.find(0, 0, 0), nullptr);
  EXPECT_EQ(cache.find(PID, 0x8000, GENERATION), nullptr);
}

TEST_F(AddressCacheTest, FindsWhatWasKept) {
  keep(PID, 0x8000, &map);
  const ResolvedAddress* const answer = cache.find(PID, 0x8000, GENERATION);
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->map, &map);
}

TEST_F(AddressCacheTest, AnswersOfAnotherGenerationAreNone) {
  keep(PID, 0x8000, &map);
  EXPECT_EQ(cache.find(PID, 0x8000, GENERATION - 1), nullptr);
  EXPECT_EQ(cache.find(PID, 0x8000, GENERATION + 1), nullptr);
}

TEST_F(AddressCacheTest, AnswersOfAnotherAddressInTheSamePlaceAreNone) {
  const uint64_t rival = rivalOf(PID, 0x8000);
  keep(PID, 0x8000, &map);
  EXPECT_EQ(cache.find(PID, rival, GENERATION), nullptr);
  keep(PID, rival, &other);
  EXPECT_EQ(cache.find(PID, 0x8000, GENERATION), nullptr);
  ASSERT_NE(cache.find(PID, rival, GENERATION), nullptr);
  EXPECT_EQ(cache.find(PID, rival, GENERATION)->map, &other);
}

// The hash adds the process's id to the address's upper bits.
TEST_F(AddressCacheTest, AnswersOfAnotherProcessInTheSamePlaceAreNone) {
  const uint64_t address = 0x8000;
  const uint64_t above = address + (uint64_t{1} << 40);
  ASSERT_EQ(&cache.place(PID, above), &cache.place(PID + 1, address));
  keep(PID, above, &map);
  EXPECT_EQ(cache.find(PID + 1, address, GENERATION), nullptr);
  EXPECT_EQ(cache.find(PID, address, GENERATION), nullptr);
  EXPECT_EQ(cache.find(PID + 1, above, GENERATION), nullptr);
  EXPECT_NE(cache.find(PID, above, GENERATION), nullptr);
}

TEST_F(AddressCacheTest, LargestAddressAndProcessHaveAPlace) {
  keep(UINT32_MAX, UINT64_MAX, &map);
  EXPECT_NE(cache.find(UINT32_MAX, UINT64_MAX, GENERATION), nullptr);
}
