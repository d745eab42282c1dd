#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "model/Pooled.h"

namespace {

class Base {
 public:
  virtual ~Base() = default;
};

// With the pool as its second base, like a map.
class Thing : public Base, public Pooled<Thing> {
 public:
  explicit Thing(uint64_t itsNumber) : number(itsNumber) {}
  uint64_t number;
};

// Larger than what the pool has places for.
class LargeThing : public Thing {
 public:
  using Thing::Thing;
  uint64_t more[20] = {};
};

}  // namespace

TEST(PooledTest, ManyObjectsKeepTheirValues) {
  std::vector<std::unique_ptr<Thing>> things;
  std::set<const Thing*> places;
  for (uint64_t number = 0; number < 100'000; ++number) {
    things.push_back(std::make_unique<Thing>(number));
    places.insert(things.back().get());
  }
  EXPECT_EQ(places.size(), things.size());
  for (uint64_t number = 0; number < things.size(); ++number) {
    ASSERT_EQ(things[number]->number, number);
  }
}

TEST(PooledTest, ObjectsThatComeAndGoKeepTheirValues) {
  std::mt19937 random(5);
  std::vector<std::unique_ptr<Thing>> things(500);
  std::vector<uint64_t> numbers(things.size());
  for (unsigned i = 0; i < 50'000; ++i) {
    const std::size_t at = random() % things.size();
    if (things[at] != nullptr) {
      ASSERT_EQ(things[at]->number, numbers[at]);
    }
    numbers[at] = i;
    things[at] = random() % 3 == 0 ? nullptr : std::make_unique<Thing>(i);
  }
}

// The size that the deletion sees is that of the whole object.
TEST(PooledTest, ObjectsOfADerivedClassMayBeDeletedByTheirBase) {
  for (int i = 0; i < 100; ++i) {
    std::unique_ptr<Base> large = std::make_unique<LargeThing>(1);
    const std::unique_ptr<Thing> before = std::make_unique<Thing>(2);
    large.reset();
    const std::unique_ptr<Base> large2 = std::make_unique<LargeThing>(3);
    const std::unique_ptr<Thing> behind = std::make_unique<Thing>(4);
    EXPECT_EQ(before->number, 2U);
    EXPECT_EQ(behind->number, 4U);
  }
}

#ifndef TRACEMILL_NO_POOLS
TEST(PooledTest, WhatWasFreedServesTheNextObject) {
  const Thing* freed = nullptr;
  {
    const auto thing = std::make_unique<Thing>(1);
    freed = thing.get();
  }
  const auto next = std::make_unique<Thing>(2);
  EXPECT_EQ(next.get(), freed);
}

// A recording costs the same twice.
TEST(PooledTest, NoFurtherPlacesAreTakenForAsManyObjects) {
  std::set<const Thing*> places;
  for (int round = 0; round < 3; ++round) {
    std::vector<std::unique_ptr<Thing>> things;
    for (uint64_t number = 0; number < 1000; ++number) {
      things.push_back(std::make_unique<Thing>(number));
      places.insert(things.back().get());
    }
  }
  EXPECT_EQ(places.size(), 1000U);
}
#endif
