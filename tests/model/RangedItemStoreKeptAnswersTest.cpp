// Items of chance against the plainest store there is, and what RangedItemStore promises to those
// who keep its answers.
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "model/RangedItemStore.h"
#include "tests/app/PlainStores.h"

namespace {

struct Kept {
  RangedItem* item;
  uint32_t generation;
};

struct RandomStore {
  uint64_t addresses;
  uint64_t largest;
  uint64_t items;
};

void PrintTo(const RandomStore& store, std::ostream* out) {
  *out << store.items << " in " << store.addresses;
}

class RandomStoreTest : public testing::TestWithParam<RandomStore> {
 protected:
  void add(uint64_t start, uint64_t size) {
    auto* const item = new RangedItem();
    item->start = start;
    item->size = size;
    store_.addRangedItem(item);
    auto twin = std::make_unique<PlainItem>();
    twin->start = start;
    twin->size = size;
    twin->key = item->key;
    plain_.add(std::move(twin));
  }

  void expectSameItems() const {
    ASSERT_EQ(store_.items().size(), plain_.items.size());
    std::size_t i = 0;
    for (const RangedItem* const item : store_.items()) {
      ASSERT_EQ(item->key, plain_.items[i]->key) << i;
      const bool isShared =
          (i > 0 && plain_.items[i - 1]->start == item->start) ||
          (i + 1 < plain_.items.size() && plain_.items[i + 1]->start == item->start);
      ASSERT_EQ(store_.isSharedStart(item->start), isShared);
      ++i;
    }
  }

  void expectSameAnswer(uint64_t address) {
    RangedItem* const found = store_.findRangedItem(address);
    const PlainItem* const expected = plain_.find(address);
    ASSERT_EQ(found == nullptr, expected == nullptr) << address;
    if (expected != nullptr) {
      ASSERT_EQ(found->key, expected->key) << address;
    }
    const auto known = kept_.find(address);
    if (known != kept_.end() && known->second.generation == store_.generation()) {
      ASSERT_EQ(known->second.item, found) << address;
      ++stillKept;
    } else if (known != kept_.end() && known->second.item != found) {
      ++outdated;
    }
    if (found != nullptr && !store_.isSharedStart(found->start)) {
      kept_[address] = {found, store_.generation()};
    }
  }

  unsigned stillKept = 0;
  unsigned outdated = 0;

 private:
  RangedItemStore store_{true};
  PlainStore<PlainItem> plain_;
  std::map<uint64_t, Kept> kept_;
};

}  // namespace

TEST_P(RandomStoreTest, AnswersLikeThePlainestStoreAndKeepsItsPromise) {
  const auto [addresses, largest, items] = GetParam();
  std::mt19937_64 random(addresses);
  for (uint64_t i = 0; i < items; ++i) {
    add(random() % addresses, random() % largest);
    for (int look = 0; look < 20; ++look) {
      expectSameAnswer(random() % (addresses + 20));
    }
    if (i % 100 == 0 || i + 1 == items) {
      expectSameItems();
    }
    if (HasFatalFailure()) {
      return;
    }
  }
  EXPECT_GT(stillKept, 50U);
  EXPECT_GT(outdated, 10U);
}

INSTANTIATE_TEST_SUITE_P(Shapes, RandomStoreTest,
                         testing::Values(RandomStore{60, 8, 400}, RandomStore{200, 8, 1500},
                                         RandomStore{300, 90, 3000}, RandomStore{5000, 12, 3000},
                                         RandomStore{4000, 4000, 2000}),
                         [](const auto& one) { return std::to_string(one.index); });

// Looks that come seldom: what has gathered since is sorted, or inserted one by one.
TEST(RangedItemStoreKeptAnswersTest, ItemsThatWaitForALookAreWhereTheyWouldBeWithoutWaiting) {
  std::mt19937_64 random(3);
  for (unsigned round = 0; round < 400; ++round) {
    RangedItemStore store(true);
    PlainStore<PlainItem> plain;
    // Wide ones have no equal starts.
    const uint64_t addresses = round % 2 == 0 ? 100 : 1'000'000'000;
    RangedItem* kept = nullptr;
    uint64_t keptAddress = 0;
    uint32_t generation = 0;
    for (unsigned look = 0; look < 6; ++look) {
      for (uint64_t i = random() % 150; i > 0; --i) {
        auto* const item = new RangedItem();
        item->start = random() % addresses;
        item->size = random() % (addresses / 20);
        auto twin = std::make_unique<PlainItem>();
        twin->start = item->start;
        twin->size = item->size;
        twin->key = item->key;
        store.addRangedItem(item);
        plain.add(std::move(twin));
      }
      if (kept != nullptr && generation == store.generation()) {
        ASSERT_EQ(store.findRangedItem(keptAddress), kept);
      }
      for (unsigned i = 0; i < 20; ++i) {
        const uint64_t address = random() % addresses;
        RangedItem* const found = store.findRangedItem(address);
        const PlainItem* const expected = plain.find(address);
        ASSERT_EQ(found == nullptr, expected == nullptr);
        if (found != nullptr) {
          ASSERT_EQ(found->key, expected->key);
          kept = store.isSharedStart(found->start) ? nullptr : found;
          keptAddress = address;
          generation = store.generation();
        }
      }
      ASSERT_EQ(store.items().size(), plain.items.size());
      auto item = store.items().begin();
      for (const auto& expected : plain.items) {
        ASSERT_EQ((*item)->key, expected->key);
        ++item;
      }
    }
  }
}

TEST(RangedItemStoreKeptAnswersTest, ItemsThatBeginInNoOtherLeaveTheGenerationAlone) {
  RangedItemStore store(true);
  const auto add = [&store](uint64_t start, uint64_t size) {
    auto* const item = new RangedItem();
    item->start = start;
    item->size = size;
    store.addRangedItem(item);
  };
  add(100, 10);
  add(110, 10);  // right behind
  add(50, 50);   // right before
  add(20, 200);  // around all of them, but below
  EXPECT_EQ(store.generation(), 0U);
  add(109, 1);
  EXPECT_EQ(store.generation(), 1U);
  add(300, 0);
  add(300, 0);
  EXPECT_EQ(store.generation(), 2U);
}
