// Held against a plain vector.
#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "model/RangedItemSequence.h"

namespace {

// More than a tree of three levels holds however its nodes are filled: each has up to 32 entries.
constexpr std::size_t FOUR_LEVELS_HALF_FULL = 16 * 16 * 16 * 16;
constexpr std::size_t THREE_LEVELS = 32 * 32 * 4 + 200;

class RangedItemSequenceTest : public testing::Test {
 protected:
  // In its place among the starts, behind those that are equal; every other time by its index.
  void insert(uint64_t start) {
    items_.push_back(std::make_unique<RangedItem>());
    RangedItem* const item = items_.back().get();
    item->start = start;
    const auto at =
        std::upper_bound(plain.begin(), plain.end(), start,
                         [](uint64_t one, const RangedItem* other) { return one < other->start; });
    const auto index = static_cast<std::size_t>(at - plain.begin());
    if (index % 2 == 0) {
      sequence.insert(start, item);
    } else {
      sequence.insert(start, item, index);
    }
    plain.insert(at, item);
  }

  void expectSame() const {
    ASSERT_EQ(sequence.size(), plain.size());
    ASSERT_EQ(sequence.empty(), plain.empty());
    auto place = sequence.begin();
    for (std::size_t i = 0; i < plain.size(); ++i, ++place) {
      ASSERT_EQ(*place, plain[i]) << i << " of " << plain.size();
      ASSERT_EQ(place.start(), plain[i]->start);
      ASSERT_EQ(sequence[i], plain[i]);
      ASSERT_EQ(place.sharesStartBefore(), i > 0 && plain[i - 1]->start == plain[i]->start);
    }
    ASSERT_TRUE(place == sequence.end());
    if (!plain.empty()) {
      ASSERT_EQ(sequence.back(), plain.back());
      ASSERT_EQ(*sequence.last(), plain.back());
      ASSERT_EQ(sequence.lastStart(), plain.back()->start);
    }
  }

  void expectFloor(uint64_t address) const {
    const auto above =
        std::upper_bound(plain.begin(), plain.end(), address,
                         [](uint64_t one, const RangedItem* other) { return one < other->start; });
    const auto floor = sequence.floor(address);
    ASSERT_EQ(sequence.countUpTo(address), static_cast<std::size_t>(above - plain.begin()));
    if (above == plain.begin()) {
      ASSERT_TRUE(floor == sequence.end()) << address;
    } else {
      ASSERT_EQ(*floor, *(above - 1)) << address << " among " << plain.size();
    }
  }

  // Starts that `start` gives by the number of items.
  void expectSameWhileGrowing(const std::function<uint64_t(std::size_t)>& start) {
    for (std::size_t size = 0; size < THREE_LEVELS; ++size) {
      insert(start(size));
      if (size < 130 || size % 97 < 2 || size + 1 == THREE_LEVELS) {
        expectSame();
        expectFloor(start(size));
      }
      if (HasFatalFailure()) {
        return;
      }
    }
  }

  RangedItemSequence sequence;
  std::vector<RangedItem*> plain;

 private:
  std::vector<std::unique_ptr<RangedItem>> items_;
};

}  // namespace

TEST_F(RangedItemSequenceTest, EmptySequenceHasNoItems) {
  expectSame();
  EXPECT_TRUE(sequence.begin() == sequence.end());
  EXPECT_TRUE(sequence.last() == sequence.end());
  expectFloor(0);
  EXPECT_EQ(sequence.countUpTo(UINT64_MAX), 0U);
}

TEST_F(RangedItemSequenceTest, AscendingStarts) {
  expectSameWhileGrowing([](std::size_t size) { return 10 + 3 * size; });
}

TEST_F(RangedItemSequenceTest, DescendingStarts) {
  expectSameWhileGrowing([](std::size_t size) { return 1'000'000 - 3 * size; });
}

TEST_F(RangedItemSequenceTest, StartsFromTheMiddleOutwards) {
  expectSameWhileGrowing(
      [](std::size_t size) { return size % 2 == 0 ? 1'000'000 + size : 1'000'000 - size; });
}

TEST_F(RangedItemSequenceTest, StartsTowardsTheMiddle) {
  expectSameWhileGrowing(
      [](std::size_t size) { return size % 2 == 0 ? 1'000 + size : 1'000'000 - size; });
}

TEST_F(RangedItemSequenceTest, EqualStarts) {
  expectSameWhileGrowing([](std::size_t size) { return size % 3; });
}

// Not held against the vector each time: it would take minutes.
TEST_F(RangedItemSequenceTest, ManyDescendingStarts) {
  std::vector<std::unique_ptr<RangedItem>> items(FOUR_LEVELS_HALF_FULL);
  for (std::size_t i = items.size(); i-- > 0;) {
    items[i] = std::make_unique<RangedItem>();
    sequence.insert(10 * i, items[i].get());
  }
  ASSERT_EQ(sequence.size(), items.size());
  auto place = sequence.begin();
  for (std::size_t i = 0; i < items.size(); ++i, ++place) {
    ASSERT_EQ(*place, items[i].get()) << i;
    ASSERT_EQ(sequence[i], items[i].get());
    ASSERT_EQ(*sequence.floor(10 * i + 9), items[i].get());
    ASSERT_EQ(sequence.countUpTo(10 * i + 9), i + 1);
  }
  ASSERT_TRUE(place == sequence.end());
}

TEST_F(RangedItemSequenceTest, StartsAnywhere) {
  std::mt19937_64 random(2);
  for (unsigned i = 0; i < 6000; ++i) {
    insert(10 + random() % 4000 * 3);
    if (i % 193 == 0 && !HasFatalFailure()) {
      expectSame();
      for (uint64_t address = 0; address < 12100; address += 1 + random() % 7) {
        expectFloor(address);
      }
      expectFloor(UINT64_MAX);
    }
  }
}
