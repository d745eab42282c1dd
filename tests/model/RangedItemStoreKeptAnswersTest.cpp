// What RangedItemStore promises to those who keep its answers.
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "model/RangedItemStore.h"

namespace {

constexpr uint64_t ADDRESSES = 200;  // few, so that items meet in every way

struct Kept {
  RangedItem* item;
  uint32_t generation;
};

RangedItem* add(RangedItemStore& store, uint64_t start, uint64_t size) {
  auto* const item = new RangedItem();
  item->start = start;
  item->size = size;
  return store.addRangedItem(item);
}

bool isShared(const RangedItemStore& store, const RangedItem* item) {
  int sharing = 0;
  for (const RangedItem* const other : store.items()) {
    sharing += other->start == item->start ? 1 : 0;
  }
  return sharing > 1;
}

}  // namespace

TEST(RangedItemStoreKeptAnswersTest, AnswersOfTheSameGenerationAreStillTheAnswers) {
  unsigned stillKept = 0;
  unsigned outdated = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    RangedItemStore store(true);
    std::map<uint64_t, Kept> kept;
    for (int round = 0; round < 60; ++round) {
      add(store, random() % ADDRESSES, random() % (seed % 2 == 0 ? 8 : 90));
      for (uint64_t address = 0; address < ADDRESSES; ++address) {
        RangedItem* const answer = store.findRangedItem(address);
        const auto known = kept.find(address);
        if (known != kept.end() && known->second.generation == store.generation()) {
          ASSERT_EQ(known->second.item, answer) << "seed " << seed << " address " << address;
          ++stillKept;
        } else if (known != kept.end()) {
          outdated += known->second.item != answer ? 1U : 0U;
        }
        if (answer != nullptr && !answer->sharesStart && random() % 4 == 0) {
          kept[address] = {answer, store.generation()};
        }
      }
    }
  }
  EXPECT_GT(stillKept, 1000U);
  EXPECT_GT(outdated, 1000U);
}

TEST(RangedItemStoreKeptAnswersTest, ItemsKnowWhetherTheyShareTheirStart) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::mt19937 random(seed);
    RangedItemStore store(true);
    for (int round = 0; round < 40; ++round) {
      add(store, random() % 60, 1);
      for (const RangedItem* const item : store.items()) {
        ASSERT_EQ(item->sharesStart, isShared(store, item));
      }
    }
  }
}

// Two of 100, the first found; one more below moves the search's probes to the second.
TEST(RangedItemStoreKeptAnswersTest, AnItemBeforeEqualStartsMayChangeTheAnswerSoTheyAreMarked) {
  RangedItemStore store(true);
  RangedItem* const first = add(store, 100, 10);
  RangedItem* const second = add(store, 100, 10);
  EXPECT_EQ(store.findRangedItem(100), first);
  EXPECT_TRUE(first->sharesStart);
  EXPECT_TRUE(second->sharesStart);
  add(store, 50, 1);
  EXPECT_EQ(store.findRangedItem(100), first);
  add(store, 40, 1);
  EXPECT_EQ(store.findRangedItem(100), first);
  add(store, 300, 1);
  add(store, 400, 1);
  add(store, 500, 1);
  EXPECT_EQ(store.findRangedItem(100), second);
}

TEST(RangedItemStoreKeptAnswersTest, ItemsThatBeginInNoOtherLeaveTheGenerationAlone) {
  RangedItemStore store(true);
  add(store, 100, 10);
  add(store, 110, 10);  // right behind
  add(store, 50, 50);   // right before
  add(store, 20, 200);  // around all of them, but below
  EXPECT_EQ(store.generation(), 0U);
  add(store, 109, 1);
  EXPECT_EQ(store.generation(), 1U);
  add(store, 300, 0);
  add(store, 300, 0);
  EXPECT_EQ(store.generation(), 2U);
}

TEST(RangedItemStoreKeptAnswersTest, SoleItemIsTheAnswerOfEveryAddress) {
  unsigned found = 0;
  for (unsigned seed = 0; seed < 40; ++seed) {
    std::mt19937 random(seed);
    RangedItemStore store(true);
    for (int round = 0; round < 12; ++round) {
      add(store, random() % ADDRESSES, random() % 60);
      for (int look = 0; look < 60; ++look) {
        const uint64_t first = random() % ADDRESSES;
        const uint64_t last = first + random() % 16;
        const uint64_t asked = first + random() % (last - first + 1);
        bool isSole = false;
        const RangedItem* const item = store.findRangedItem(asked, first, last, isSole);
        ASSERT_EQ(item, store.findRangedItem(asked));
        for (uint64_t address = first; isSole && address <= last; ++address) {
          ASSERT_EQ(store.findRangedItem(address), item) << "seed " << seed << " at " << address;
        }
        found += isSole ? 1U : 0U;
      }
    }
  }
  EXPECT_GT(found, 1000U);
}

TEST(RangedItemStoreKeptAnswersTest, SoleItemReachesFromItsFirstToItsLastAddress) {
  RangedItemStore store(true);
  RangedItem* const item = add(store, 100, 50);
  const auto isSole = [&](uint64_t first, uint64_t last) {
    bool is = true;
    EXPECT_EQ(store.findRangedItem(120, first, last, is), item);
    return is;
  };
  EXPECT_TRUE(isSole(100, 149));
  EXPECT_FALSE(isSole(100, 150));
  EXPECT_FALSE(isSole(99, 149));
  add(store, 140, 0);  // holds nothing, and hides what it begins in
  EXPECT_TRUE(isSole(100, 139));
  EXPECT_FALSE(isSole(100, 140));
  add(store, 100, 50);
  bool is = true;
  EXPECT_NE(store.findRangedItem(120, 110, 130, is), nullptr);
  EXPECT_FALSE(is);
}

TEST(RangedItemStoreKeptAnswersTest, NothingIsNoSoleItem) {
  RangedItemStore store(true);
  bool isSole = true;
  EXPECT_EQ(store.findRangedItem(5, 0, 9, isSole), nullptr);
  EXPECT_FALSE(isSole);
  add(store, 7, 1);
  isSole = true;
  EXPECT_EQ(store.findRangedItem(9, 0, 9, isSole), nullptr);
  EXPECT_FALSE(isSole);
}
