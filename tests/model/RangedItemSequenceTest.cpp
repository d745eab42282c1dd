// Held against a plain vector.
#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "model/RangedItemSequence.h"

namespace {

constexpr std::size_t BLOCK = 512;

class RangedItemSequenceTest : public testing::Test {
 protected:
  // In its place among the starts, behind those that are equal.
  void insert(uint64_t start) {
    items_.push_back(std::make_unique<RangedItem>());
    RangedItem* const item = items_.back().get();
    item->start = start;
    const auto at =
        std::upper_bound(plain.begin(), plain.end(), start,
                         [](uint64_t one, const RangedItem* other) { return one < other->start; });
    const auto index = static_cast<std::size_t>(at - plain.begin());
    if (index == plain.size()) {
      sequence.append(start, item);
    } else {
      sequence.insert(sequence.nth(index), start, item);
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
      ASSERT_EQ(sequence.at(i), plain[i]);
      ASSERT_TRUE(sequence.nth(i) == place);
      ASSERT_EQ(sequence.indexOf(place), i);
    }
    ASSERT_TRUE(place == sequence.end());
    ASSERT_THROW(sequence.at(plain.size()), std::out_of_range);
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
    if (above == plain.begin()) {
      ASSERT_TRUE(floor == sequence.end()) << address;
    } else {
      ASSERT_EQ(*floor, *(above - 1)) << address << " among " << plain.size();
      ASSERT_EQ(sequence.indexOf(floor), static_cast<std::size_t>(above - plain.begin()) - 1);
    }
  }

  // Starts that `start` gives by the number of items, looked at around every full block.
  void expectSameWhileGrowing(const std::function<uint64_t(std::size_t)>& start) {
    for (std::size_t size = 0; size < 5 * BLOCK + 3; ++size) {
      insert(start(size));
      const std::size_t beyond = (size + 1) % (BLOCK / 2);
      if (size < 20 || beyond <= 1 || beyond == BLOCK / 2 - 1) {
        expectSame();
        expectFloor(start(size));
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
  EXPECT_THROW(sequence.at(SIZE_MAX), std::out_of_range);
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

TEST_F(RangedItemSequenceTest, StartsAnywhere) {
  std::mt19937_64 random(2);
  for (unsigned i = 0; i < 6000; ++i) {
    insert(10 + random() % 4000 * 3);
    if (i % 193 == 0) {
      expectSame();
      for (uint64_t address = 0; address < 12100; address += 1 + random() % 7) {
        expectFloor(address);
      }
      expectFloor(UINT64_MAX);
    }
  }
}
