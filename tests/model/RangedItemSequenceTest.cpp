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

constexpr std::size_t RING = 256;

class RangedItemSequenceTest : public testing::Test {
 protected:
  void insert(std::size_t index, uint64_t start) {
    items_.push_back(std::make_unique<RangedItem>());
    RangedItem* const item = items_.back().get();
    item->start = start;
    sequence.insert(index, item);
    plain.insert(plain.begin() + static_cast<std::ptrdiff_t>(index), item);
  }

  void expectSame() const {
    ASSERT_EQ(sequence.size(), plain.size());
    ASSERT_EQ(sequence.empty(), plain.empty());
    for (std::size_t i = 0; i < plain.size(); ++i) {
      ASSERT_EQ(sequence[i], plain[i]) << i << " of " << plain.size();
      ASSERT_EQ(sequence.at(i), plain[i]);
      ASSERT_EQ(sequence.startAt(i), plain[i]->start);
    }
    ASSERT_TRUE(std::equal(sequence.begin(), sequence.end(), plain.begin(), plain.end()));
    if (!plain.empty()) {
      ASSERT_EQ(sequence.back(), plain.back());
    }
  }

  // Items in places that `place` chooses by the number of items, looked at around every full ring.
  void expectSameWhileGrowing(const std::function<std::size_t(std::size_t)>& place) {
    for (std::size_t size = 0; size < 5 * RING + 3; ++size) {
      insert(place(size), size);
      const std::size_t beyond = (size + 1) % RING;
      if (size < 20 || beyond <= 2 || beyond >= RING - 2) {
        expectSame();
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
  EXPECT_THROW(sequence.at(0), std::out_of_range);
}

TEST_F(RangedItemSequenceTest, IndexPastTheEndIsRefused) {
  for (std::size_t i = 0; i < RING; ++i) {
    insert(i, i);
    EXPECT_THROW(sequence.at(i + 1), std::out_of_range);
  }
  EXPECT_THROW(sequence.at(SIZE_MAX), std::out_of_range);
}

TEST_F(RangedItemSequenceTest, InsertionsAtTheEnd) {
  expectSameWhileGrowing([](std::size_t size) { return size; });
}

TEST_F(RangedItemSequenceTest, InsertionsAtTheFront) {
  expectSameWhileGrowing([](std::size_t) { return 0; });
}

TEST_F(RangedItemSequenceTest, InsertionsInTheMiddle) {
  expectSameWhileGrowing([](std::size_t size) { return size / 2; });
}

TEST_F(RangedItemSequenceTest, InsertionsBehindTheFirstAndBeforeTheLast) {
  expectSameWhileGrowing([](std::size_t size) {
    return size < 2 ? 0 : size % 2 == 0 ? 1 : size - 1;
  });
}

TEST_F(RangedItemSequenceTest, InsertionsAtBothSidesOfEveryRingsBorder) {
  for (std::size_t size = 0; size < 4 * RING; ++size) {
    insert(size % 3 == 0 ? 0 : size, size);
  }
  for (std::size_t border = 0; border < sequence.size(); border += 50) {
    for (const std::size_t place : {border, border + 1}) {
      insert(place, place);
    }
    expectSame();
  }
}

TEST_F(RangedItemSequenceTest, InsertionsAnywhere) {
  std::mt19937 random(1);
  for (unsigned i = 0; i < 4000; ++i) {
    const std::size_t size = sequence.size();
    const std::size_t places[] = {0, size, size / 2, random() % (size + 1), random() % (size + 1)};
    insert(places[random() % 5], i);
    if (i % 97 == 0) {
      expectSame();
    }
  }
  expectSame();
}

TEST_F(RangedItemSequenceTest, FloorIndexAmongEveryNumberOfItemsOfARing) {
  for (uint64_t count = 1; count <= RING; ++count) {
    insert(count - 1, 10 * count);
    for (uint64_t i = 0; i < count; ++i) {
      ASSERT_EQ(sequence.floorIndex(10 * (i + 1)), i) << count;
      ASSERT_EQ(sequence.floorIndex(10 * (i + 1) + 9), i) << count;
    }
    ASSERT_EQ(sequence.floorIndex(UINT64_MAX), count - 1);
  }
}

// The walk looks ahead, but not past the end.
TEST_F(RangedItemSequenceTest, WalkThroughEveryNumberOfItems) {
  for (std::size_t count = 0; count <= 40; ++count) {
    std::size_t index = 0;
    for (auto at = sequence.begin(); at != sequence.end(); ++index) {
      ASSERT_EQ(*(index % 2 == 0 ? at++ : at), plain[index]) << count;
      if (index % 2 == 1) {
        ++at;
      }
    }
    ASSERT_EQ(index, count);
    insert(count, count);
  }
}

TEST_F(RangedItemSequenceTest, FloorIndexIsThatOfTheLastStartNotAboveTheAddress) {
  std::mt19937_64 random(2);
  for (unsigned i = 0; i < 3000; ++i) {
    const uint64_t start = 10 + random() % 4000 * 3;
    const auto at =
        std::upper_bound(plain.begin(), plain.end(), start,
                         [](uint64_t one, const RangedItem* other) { return one < other->start; });
    insert(static_cast<std::size_t>(at - plain.begin()), start);
    if (i % 83 != 0 && i % RING > 1) {
      continue;
    }
    for (uint64_t address = plain.front()->start; address < 12100; address += 1 + random() % 7) {
      const auto above = std::upper_bound(
          plain.begin(), plain.end(), address,
          [](uint64_t one, const RangedItem* other) { return one < other->start; });
      ASSERT_EQ(sequence.floorIndex(address), static_cast<std::size_t>(above - plain.begin()) - 1)
          << address << " among " << plain.size();
    }
    ASSERT_EQ(sequence.floorIndex(UINT64_MAX), plain.size() - 1);
  }
}
