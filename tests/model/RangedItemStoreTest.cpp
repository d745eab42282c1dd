#include <memory>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/RangedItemStore.h"

namespace {

using testing::ElementsAre;

constexpr uint64_t ALL_ONES = 0xFFFFFFFFFFFFFFFF;

class CountedItem : public RangedItem {
 public:
  explicit CountedItem(int* deleted) : deleted_(deleted) {}
  ~CountedItem() override { ++*deleted_; }

 private:
  int* deleted_;
};

class RangedItemStoreTest : public testing::Test {
 protected:
  RangedItem* add(uint64_t start, uint64_t size) {
    auto* item = new RangedItem;
    item->start = start;
    item->size = size;
    return store.addRangedItem(item);
  }
  void addStarts(const std::vector<uint64_t>& starts) {
    for (const uint64_t start : starts) {
      add(start, 1);
    }
  }
  std::vector<uint64_t> starts() const {
    std::vector<uint64_t> all;
    for (const RangedItem* item : store.items()) {
      all.push_back(item->start);
    }
    return all;
  }
  int indexOf(uint64_t address) const { return store._findRangedItemIndex(address); }

  RangedItemStore store{true};
};

TEST_F(RangedItemStoreTest, LookupInAnEmptyStoreYieldsNull) {
  EXPECT_EQ(store.findRangedItem(0), nullptr);
  EXPECT_EQ(store.findRangedItem(0x1000), nullptr);
  EXPECT_EQ(store.findRangedItem(ALL_ONES), nullptr);
  EXPECT_EQ(indexOf(0x1000), -1);
}

TEST_F(RangedItemStoreTest, LookupBelowTheFirstStartYieldsNull) {
  RangedItem* const first = add(0x1000, 0x100);
  EXPECT_EQ(store.findRangedItem(0xFFF), nullptr);
  EXPECT_EQ(indexOf(0xFFF), -1);
  EXPECT_EQ(first, store.findRangedItem(0x1000));
  EXPECT_EQ(indexOf(0x1000), 0);
}

TEST_F(RangedItemStoreTest, LookupBelowTheFirstOfSeveralStartsYieldsNull) {
  addStarts({0x1000, 0x2000, 0x3000, 0x4000});
  EXPECT_EQ(store.findRangedItem(0xFFF), nullptr);
  EXPECT_EQ(indexOf(0xFFF), -1);
}

TEST_F(RangedItemStoreTest, BothEndsOfEachRangeBelongToIt) {
  RangedItem* const first = add(0x1000, 0x100);
  RangedItem* const second = add(0x2000, 0x10);
  EXPECT_EQ(first, store.findRangedItem(0x10FF));
  EXPECT_EQ(store.findRangedItem(0x1100), nullptr);
  EXPECT_EQ(store.findRangedItem(0x1FFF), nullptr);
  EXPECT_EQ(second, store.findRangedItem(0x2000));
  EXPECT_EQ(second, store.findRangedItem(0x200F));
  EXPECT_EQ(store.findRangedItem(0x2010), nullptr);
}

TEST_F(RangedItemStoreTest, ItemOfSizeOneHoldsItsStartOnly) {
  RangedItem* const item = add(0x1000, 1);
  EXPECT_EQ(item, store.findRangedItem(0x1000));
  EXPECT_EQ(store.findRangedItem(0x1001), nullptr);
}

TEST_F(RangedItemStoreTest, ItemOfSizeZeroIsNeverFound) {
  add(0x1000, 0);
  EXPECT_EQ(store.findRangedItem(0xFFF), nullptr);
  EXPECT_EQ(store.findRangedItem(0x1000), nullptr);
  EXPECT_EQ(store.findRangedItem(ALL_ONES), nullptr);
}

TEST_F(RangedItemStoreTest, ItemOfSizeZeroAtStartZeroIsNeverFound) {
  add(0, 0);
  EXPECT_EQ(store.findRangedItem(0), nullptr);
  EXPECT_EQ(store.findRangedItem(1), nullptr);
  EXPECT_EQ(store.findRangedItem(ALL_ONES), nullptr);
}

TEST_F(RangedItemStoreTest, RangeThatEndsAtTheLastAddressHoldsIt) {
  RangedItem* const item = add(0xFFFFFFFFFFFFF000, 0x1000);
  EXPECT_EQ(item, store.findRangedItem(0xFFFFFFFFFFFFF000));
  EXPECT_EQ(item, store.findRangedItem(ALL_ONES));
}

TEST_F(RangedItemStoreTest, RangeThatWrapsAroundHoldsNothing) {
  add(0xFFFFFFFFFFFFF000, 0x1001);
  EXPECT_EQ(store.findRangedItem(0xFFFFFFFFFFFFF000), nullptr);
  EXPECT_EQ(store.findRangedItem(ALL_ONES), nullptr);
  EXPECT_EQ(store.findRangedItem(0), nullptr);
}

TEST_F(RangedItemStoreTest, LargestSizeAtStartZeroLeavesTheLastAddressOut) {
  RangedItem* const item = add(0, ALL_ONES);
  EXPECT_EQ(item, store.findRangedItem(ALL_ONES - 1));
  EXPECT_EQ(store.findRangedItem(ALL_ONES), nullptr);
}

TEST_F(RangedItemStoreTest, LargestSizeAtStartOneReachesTheLastAddress) {
  RangedItem* const item = add(1, ALL_ONES);
  EXPECT_EQ(item, store.findRangedItem(ALL_ONES));
  EXPECT_EQ(store.findRangedItem(0), nullptr);
}

TEST_F(RangedItemStoreTest, AddReturnsTheItemWhetherAppendedOrInserted) {
  RangedItem high;
  high.start = 0x2000;
  RangedItem low;
  low.start = 0x1000;
  RangedItemStore borrowing(false);
  EXPECT_EQ(&high, borrowing.addRangedItem(&high));
  EXPECT_EQ(&low, borrowing.addRangedItem(&low));
  EXPECT_THAT(borrowing.items(), ElementsAre(&low, &high));
}

TEST_F(RangedItemStoreTest, StartsAddedOutOfOrderAreSorted) {
  addStarts({0x3000, 0x1000, 0x2000});
  EXPECT_THAT(starts(), ElementsAre(0x1000, 0x2000, 0x3000));
}

TEST_F(RangedItemStoreTest, StartBelowAllOthersGoesToTheFront) {
  addStarts({0x3000, 0x4000, 0x5000, 0x2000});
  EXPECT_THAT(starts(), ElementsAre(0x2000, 0x3000, 0x4000, 0x5000));
}

TEST_F(RangedItemStoreTest, AddressPastTheFloorItemIsNotFoundInAnEarlierLongerItem) {
  RangedItem* const outer = add(0x1000, 0x1000);
  RangedItem* const inner = add(0x1100, 0x10);
  EXPECT_EQ(outer, store.findRangedItem(0x10FF));
  EXPECT_EQ(inner, store.findRangedItem(0x110F));
  EXPECT_EQ(store.findRangedItem(0x1110), nullptr);
  EXPECT_EQ(store.findRangedItem(0x1FFF), nullptr);
}

TEST_F(RangedItemStoreTest, NextStartEqualToTheAddressIsTheFloor) {
  addStarts({10, 20, 30, 40, 50});
  EXPECT_EQ(indexOf(10), 0);
  EXPECT_EQ(indexOf(20), 1);
  EXPECT_EQ(indexOf(30), 2);
  EXPECT_EQ(indexOf(40), 3);
  EXPECT_EQ(indexOf(50), 4);
}

TEST_F(RangedItemStoreTest, FloorOfAddressesBetweenAndAboveTheStarts) {
  addStarts({10, 20, 30, 40, 50});
  EXPECT_EQ(indexOf(9), -1);
  EXPECT_EQ(indexOf(11), 0);
  EXPECT_EQ(indexOf(19), 0);
  EXPECT_EQ(indexOf(29), 1);
  EXPECT_EQ(indexOf(39), 2);
  EXPECT_EQ(indexOf(41), 3);
  EXPECT_EQ(indexOf(49), 3);
  EXPECT_EQ(indexOf(51), 4);
  EXPECT_EQ(indexOf(ALL_ONES), 4);
}

TEST_F(RangedItemStoreTest, OneItemIsTheFloorOfEveryAddressFromItsStartOn) {
  add(10, 1);
  EXPECT_EQ(indexOf(9), -1);
  EXPECT_EQ(indexOf(10), 0);
  EXPECT_EQ(indexOf(ALL_ONES), 0);
}

// The probes go to high / 2 first and to (low + high) / 2 then; the indexes below are what they
// give by hand.
TEST_F(RangedItemStoreTest, SearchLandsOnTheFirstOfTwoEqualStarts) {
  addStarts({20, 20});
  EXPECT_EQ(indexOf(20), 0);  // probe 0 is equal
  EXPECT_EQ(indexOf(21), 1);  // probe 0 is below, the next is neither above nor equal: low = 1
}

TEST_F(RangedItemStoreTest, SearchLandsOnTheSecondOfThreeEqualStarts) {
  addStarts({20, 20, 20});
  EXPECT_EQ(indexOf(20), 1);
  EXPECT_EQ(indexOf(21), 2);
}

TEST_F(RangedItemStoreTest, SearchLandsOnTheSecondOfFourEqualStarts) {
  addStarts({20, 20, 20, 20});
  EXPECT_EQ(indexOf(20), 1);
  EXPECT_EQ(indexOf(21), 3);
}

TEST_F(RangedItemStoreTest, SearchLandsOnTheThirdOfFiveEqualStarts) {
  addStarts({20, 20, 20, 20, 20});
  EXPECT_EQ(indexOf(20), 2);
  EXPECT_EQ(indexOf(21), 4);
}

TEST_F(RangedItemStoreTest, EqualStartsAfterTheProbeGiveTheFirstOfThem) {
  addStarts({10, 10, 20, 20});
  EXPECT_EQ(indexOf(10), 1);  // probe 1
  EXPECT_EQ(indexOf(15), 1);  // probe 1 is below, the next above
  EXPECT_EQ(indexOf(20), 2);  // probe 1 is below, the next equal
  EXPECT_EQ(indexOf(25), 3);
}

TEST_F(RangedItemStoreTest, EqualStartsBelowTheProbeGiveTheFirstOfTheLowerHalf) {
  addStarts({20, 20, 30, 40, 50});
  EXPECT_EQ(indexOf(20), 0);  // probes 2, then (0 + 1) / 2
  EXPECT_EQ(indexOf(25), 1);  // probes 2, 0, then low meets high
}

TEST_F(RangedItemStoreTest, EqualStartsInTheUpperHalfGiveTheOneThatTheSecondProbeMeets) {
  addStarts({10, 15, 17, 20, 20, 20, 20});
  EXPECT_EQ(indexOf(20), 3);  // probe 3
  addStarts({30});            // eight: probe 3 again, now 7 / 2
  EXPECT_EQ(indexOf(20), 3);
  addStarts({5, 6, 7});  // 5 6 7 10 15 17 20 20 20 20 30: probe 5 is 17, its next is equal
  EXPECT_EQ(indexOf(20), 6);
  addStarts({1, 2, 3});  // fourteen: probes 6 (10), then (7 + 13) / 2 = 10, the second of the four
  EXPECT_EQ(indexOf(20), 10);
}

TEST_F(RangedItemStoreTest, EqualStartAtTheEndIsAppended) {
  RangedItem* const first = add(20, 1);
  RangedItem* const second = add(20, 1);
  RangedItem* const third = add(20, 1);
  EXPECT_THAT(store.items(), ElementsAre(first, second, third));
}

TEST_F(RangedItemStoreTest, EqualStartBeforeTheEndGoesAfterTheItemThatTheSearchFinds) {
  RangedItem* const a = add(20, 1);
  RangedItem* const b = add(30, 1);
  RangedItem* const c = add(20, 1);
  EXPECT_THAT(store.items(), ElementsAre(a, c, b));
  RangedItem* const d = add(20, 1);  // of three, probe 1 is c
  EXPECT_THAT(store.items(), ElementsAre(a, c, d, b));
  RangedItem* const e = add(20, 1);  // of four, probe 1 is c again
  EXPECT_THAT(store.items(), ElementsAre(a, c, e, d, b));
  EXPECT_EQ(e, store.findRangedItem(20));  // of five, probe 2
}

TEST_F(RangedItemStoreTest, FloorSearchGivesTheGreatestStartNotAboveTheAddress) {
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    RangedItemStore owner(true);
    const std::size_t count = random() % 40;
    const uint64_t spread = 1 + random() % 60;  // small ones give many equal starts
    for (std::size_t i = 0; i < count; ++i) {
      auto* item = new RangedItem;
      item->start = 5 + random() % spread;
      item->size = random() % 8;
      owner.addRangedItem(item);
    }
    ASSERT_EQ(count, owner.items().size());
    for (uint64_t address = 0; address < 75; ++address) {
      int last = -1;  // of the items in ascending order
      for (std::size_t i = 0; i < owner.items().size(); ++i) {
        if (i > 0) {
          ASSERT_LE(owner.items()[i - 1]->start, owner.items()[i]->start);
        }
        if (owner.items()[i]->start <= address) {
          last = static_cast<int>(i);
        }
      }
      const int found = owner._findRangedItemIndex(address);
      ASSERT_EQ(last < 0, found < 0) << "round " << round << " address " << address;
      if (last < 0) {
        ASSERT_EQ(owner.findRangedItem(address), nullptr);
        continue;
      }
      RangedItem* const floor = owner.items()[static_cast<std::size_t>(found)];
      ASSERT_EQ(owner.items()[static_cast<std::size_t>(last)]->start, floor->start)
          << "round " << round << " address " << address;
      const bool inside = address - floor->start < floor->size;
      ASSERT_EQ(inside ? floor : nullptr, owner.findRangedItem(address));
    }
  }
}

TEST_F(RangedItemStoreTest, AHundredThousandAppendsAndInsertsStaySorted) {
  for (uint64_t i = 0; i < 100000; ++i) {
    add(i * 16, 16);
  }
  EXPECT_EQ(store.items().size(), 100000u);
  for (uint64_t i = 0; i < 100000; i += 997) {
    EXPECT_EQ(static_cast<int>(i), indexOf(i * 16 + 15));
  }
}

TEST(RangedItemStoreOwnershipTest, OwningStoreDeletesItsItemsThroughTheirDestructor) {
  int deleted = 0;
  {
    RangedItemStore owner(true);
    owner.addRangedItem(new CountedItem(&deleted));
    owner.addRangedItem(new CountedItem(&deleted));
    EXPECT_EQ(deleted, 0);
  }
  EXPECT_EQ(deleted, 2);
}

TEST_F(RangedItemStoreTest, NullItemTakesTheLastPlaceAndIsNeverFound) {
  EXPECT_EQ(store.addRangedItem(nullptr), nullptr);
  EXPECT_EQ(store.items().size(), 1U);
  EXPECT_EQ(store.findRangedItem(0), nullptr);
  EXPECT_EQ(store.findRangedItem(0x1000), nullptr);
  RangedItem* const item = add(0x1000, 0x10);
  EXPECT_EQ(store.findRangedItem(0x1000), item);
  EXPECT_EQ(store.addRangedItem(nullptr), nullptr);
  EXPECT_EQ(store.items().back(), nullptr);
  RangedItem* const last = add(0x2000, 0x10);
  EXPECT_EQ(store.findRangedItem(0x2000), last);
}

TEST(RangedItemStoreOwnershipTest, OwningStorePassesOverNullItems) {
  int deleted = 0;
  {
    RangedItemStore owner(true);
    owner.addRangedItem(nullptr);
    owner.addRangedItem(new CountedItem(&deleted));
    owner.addRangedItem(nullptr);
  }
  EXPECT_EQ(deleted, 1);
}

TEST(RangedItemStoreOwnershipTest, OwningStoreDeletesItemsThatNobodyLookedFor) {
  int deleted = 0;
  {
    RangedItemStore owner(true);
    for (const uint64_t start : {30U, 20U, 10U}) {
      auto* const item = new CountedItem(&deleted);
      item->start = start;
      owner.addRangedItem(item);
    }
  }
  EXPECT_EQ(deleted, 3);
}

TEST(RangedItemStoreOwnershipTest, BorrowingStoreLeavesItsItemsAlive) {
  int deleted = 0;
  const auto item = std::make_unique<CountedItem>(&deleted);
  {
    RangedItemStore borrower(false);
    borrower.addRangedItem(item.get());
  }
  EXPECT_EQ(deleted, 0);
}

}  // namespace
