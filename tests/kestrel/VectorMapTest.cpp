#include <gtest/gtest.h>

#include "kestrel/VectorMap.h"

namespace {

class Counted {
 public:
  explicit Counted(int& alive) : alive_(alive) { ++alive_; }
  ~Counted() { --alive_; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int& alive_;
};

TEST(VectorMapTest, OwnsItsValues) {
  int alive = 0;
  {
    kestrel::VectorMap<Counted> map;
    Counted* const one = new Counted(alive);
    map.put("one", one);
    map.put("two", new Counted(alive));
    EXPECT_EQ(map.get("one"), one);
    EXPECT_EQ(map.get("three"), nullptr);
    EXPECT_EQ(map.size(), 2u);
    EXPECT_EQ(alive, 2);
  }
  EXPECT_EQ(alive, 0);
}

TEST(VectorMapTest, SamePointerForANameChangesNothing) {
  int alive = 0;
  kestrel::VectorMap<Counted> map;
  Counted* const value = new Counted(alive);
  map.put("name", value);
  map.put("name", value);
  EXPECT_EQ(map.get("name"), value);
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(alive, 1);
}

TEST(VectorMapTest, AnotherValueForANameDestroysTheFirst) {
  int alive = 0;
  kestrel::VectorMap<Counted> map;
  map.put("name", new Counted(alive));
  Counted* const second = new Counted(alive);
  map.put("name", second);
  EXPECT_EQ(map.get("name"), second);
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(alive, 1);
}

TEST(VectorMapTest, EmptySlotTakesAValue) {
  int alive = 0;
  kestrel::VectorMap<Counted> map;
  map.put("name", nullptr);
  EXPECT_EQ(map.get("name"), nullptr);
  EXPECT_EQ(map.size(), 1u);
  Counted* const value = new Counted(alive);
  map.put("name", value);
  EXPECT_EQ(map.get("name"), value);
  EXPECT_EQ(map.size(), 1u);
}

}  // namespace
