// An item that is added for an address that was not found just before, as maps are made up for
// sampled addresses: it comes to where it would come without the question.
#include <algorithm>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/RangedItemStore.h"

namespace {

using testing::ElementsAre;

// The plainest store: each new item is placed behind every start that is not above its own.
class PlainStore {
 public:
  void add(RangedItem* item) {
    const auto isAbove = [item](const RangedItem* other) { return other->start > item->start; };
    items_.insert(std::find_if(items_.begin(), items_.end(), isAbove), item);
  }
  std::vector<uint64_t> starts() const {
    std::vector<uint64_t> all;
    for (const RangedItem* const item : items_) {
      all.push_back(item->start);
    }
    return all;
  }
  // Whether the last start not above the address belongs to one item, and that holds the address.
  const RangedItem* soleFloorOf(uint64_t address) const {
    const auto isAbove = [address](const RangedItem* other) { return other->start > address; };
    const auto behind = std::find_if(items_.begin(), items_.end(), isAbove);
    if (behind == items_.begin()) {
      return nullptr;
    }
    const RangedItem* const floor = *(behind - 1);
    const bool isHeld =
        floor->size > 0 && address >= floor->start && address - floor->start < floor->size;
    return isHeld ? floor : nullptr;
  }
  bool sharesStart(const RangedItem* item) const {
    const auto hasItsStart = [item](const RangedItem* other) {
      return other->start == item->start;
    };
    return std::count_if(items_.begin(), items_.end(), hasItsStart) > 1;
  }

 private:
  std::vector<RangedItem*> items_;
};

class RangedItemStoreAddAfterMissTest : public testing::Test {
 protected:
  RangedItem* add(uint64_t start, uint64_t size = 0x10) {
    auto* const item = new RangedItem;
    item->start = start;
    item->size = size;
    return store.addRangedItem(item);
  }
  void addAll(const std::vector<uint64_t>& starts) {
    for (const uint64_t start : starts) {
      add(start);
    }
  }
  void miss(uint64_t address) { ASSERT_EQ(store.findRangedItem(address), nullptr); }
  std::vector<uint64_t> starts() const {
    std::vector<uint64_t> all;
    for (const RangedItem* const item : store.items()) {
      all.push_back(item->start);
    }
    return all;
  }

  RangedItemStore store{true};
};

}  // namespace

TEST_F(RangedItemStoreAddAfterMissTest, AtTheAddressItself) {
  addAll({0x100, 0x300, 0x500});
  miss(0x200);
  RangedItem* const item = add(0x200);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x200, 0x300, 0x500));
  EXPECT_EQ(store.findRangedItem(0x200), item);
}

TEST_F(RangedItemStoreAddAfterMissTest, BetweenTheFloorAndTheAddress) {
  addAll({0x100, 0x300, 0x500});
  miss(0x2F8);
  RangedItem* const item = add(0x2F0);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x2F0, 0x300, 0x500));
  EXPECT_EQ(store.findRangedItem(0x2F8), item);
}

TEST_F(RangedItemStoreAddAfterMissTest, BelowTheFloor) {
  addAll({0x100, 0x200, 0x300, 0x500});
  miss(0x280);
  add(0x180);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x180, 0x200, 0x300, 0x500));
}

TEST_F(RangedItemStoreAddAfterMissTest, WithTheStartOfTheFloor) {
  addAll({0x100, 0x200, 0x300, 0x500});
  miss(0x280);
  RangedItem* const item = add(0x200, 0x100);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x200, 0x200, 0x300, 0x500));
  EXPECT_TRUE(item->sharesStart);
}

TEST_F(RangedItemStoreAddAfterMissTest, WhereTheFloorSharesItsStart) {
  addAll({0x100, 0x200, 0x200, 0x200, 0x400, 0x500});
  miss(0x380);
  RangedItem* const item = add(0x380);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x200, 0x200, 0x200, 0x380, 0x400, 0x500));
  EXPECT_EQ(store.findRangedItem(0x38F), item);
  EXPECT_FALSE(item->sharesStart);
}

TEST_F(RangedItemStoreAddAfterMissTest, AboveTheAddressAndTheNextStart) {
  addAll({0x100, 0x300, 0x500});
  miss(0x200);
  add(0x400);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x300, 0x400, 0x500));
}

TEST_F(RangedItemStoreAddAfterMissTest, BelowEveryStart) {
  addAll({0x100, 0x300});
  miss(0x20);
  add(0x20);
  EXPECT_THAT(starts(), ElementsAre(0x20, 0x100, 0x300));
}

TEST_F(RangedItemStoreAddAfterMissTest, IntoAnEmptyStore) {
  miss(0x20);
  add(0x20);
  EXPECT_THAT(starts(), ElementsAre(0x20));
}

TEST_F(RangedItemStoreAddAfterMissTest, AfterAnotherMiss) {
  addAll({0x100, 0x300, 0x500});
  miss(0x200);
  miss(0x400);
  add(0x200);
  add(0x400);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x200, 0x300, 0x400, 0x500));
}

TEST_F(RangedItemStoreAddAfterMissTest, AfterAnotherAddBeforeAndBehindIt) {
  addAll({0x100, 0x300, 0x500});
  miss(0x400);
  add(0x50);
  add(0x400);
  EXPECT_THAT(starts(), ElementsAre(0x50, 0x100, 0x300, 0x400, 0x500));
  miss(0x200);
  add(0x180);
  add(0x200);
  add(0x190);
  EXPECT_THAT(starts(), ElementsAre(0x50, 0x100, 0x180, 0x190, 0x200, 0x300, 0x400, 0x500));
}

TEST_F(RangedItemStoreAddAfterMissTest, AfterAnAnswerInBetween) {
  RangedItem* const first = add(0x100);
  addAll({0x300, 0x500});
  miss(0x200);
  EXPECT_EQ(store.findRangedItem(0x108), first);
  add(0x200);
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x200, 0x300, 0x500));
}

// As with the last address of the interrupt vectors.
TEST_F(RangedItemStoreAddAfterMissTest, AgainAndAgainWithAnItemThatDoesNotHoldTheAddress) {
  addAll({0x100, 0x300, 0x900});
  for (int i = 0; i < 3; ++i) {
    miss(0x500);
    add(0x400, 0x100);
  }
  EXPECT_THAT(starts(), ElementsAre(0x100, 0x300, 0x400, 0x400, 0x400, 0x900));
}

TEST_F(RangedItemStoreAddAfterMissTest, TheLastAddress) {
  addAll({0x100, 0x300});
  miss(UINT64_MAX);
  RangedItem* const item = add(UINT64_MAX - 0xF);
  EXPECT_EQ(store.findRangedItem(UINT64_MAX), item);
}

// Where starts are equal, which of them is found is what RangedItemStoreTest is about.
TEST_F(RangedItemStoreAddAfterMissTest, RandomQuestionsAndItems) {
  unsigned misses = 0;
  unsigned answers = 0;
  for (unsigned seed = 0; seed < 30; ++seed) {
    std::mt19937 random(seed);
    RangedItemStore owner(true);
    PlainStore plain;
    const unsigned places = seed % 3 == 0 ? 60 : 5000;
    for (int round = 0; round < 160; ++round) {
      const uint64_t address = random() % places;
      const RangedItem* const expected = plain.soleFloorOf(address);
      const RangedItem* const found = owner.findRangedItem(address);
      if (expected == nullptr || !plain.sharesStart(expected)) {
        const bool isFloorShared = found != nullptr && plain.sharesStart(found);
        ASSERT_TRUE(found == expected || isFloorShared) << seed << " at " << address;
      }
      (found == nullptr ? misses : answers) += 1;
      if (found == nullptr || random() % 4 == 0) {
        auto* const item = new RangedItem;
        item->start = random() % 3 == 0 ? random() % places : address & ~uint64_t{random() % 16};
        item->size = random() % 12;
        owner.addRangedItem(item);
        plain.add(item);
        const std::vector<uint64_t> expectedStarts = plain.starts();
        ASSERT_EQ(owner.items().size(), expectedStarts.size());
        std::size_t i = 0;
        for (const RangedItem* const each : owner.items()) {
          ASSERT_EQ(each->start, expectedStarts[i++]) << seed << " round " << round;
          ASSERT_EQ(each->sharesStart, plain.sharesStart(each)) << seed << " round " << round;
        }
      }
    }
  }
  EXPECT_GT(misses, 1000U);
  EXPECT_GT(answers, 1000U);
}
