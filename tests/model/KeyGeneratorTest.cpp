#include <gtest/gtest.h>

#include "model/KeyGenerator.h"
#include "model/MMapInfo.h"
#include "model/RangedItem.h"

namespace {

const uint64_t COUNTER_AT_START = KeyGenerator::counter;

TEST(KeyGeneratorTest, CounterStartsAtZero) { EXPECT_EQ(0u, COUNTER_AT_START); }

TEST(KeyGeneratorTest, NextGivesTheCounterAndThenRaisesIt) {
  KeyGenerator::counter = 41;
  EXPECT_EQ(41u, KeyGenerator::next());
  EXPECT_EQ(42u, KeyGenerator::counter);
  EXPECT_EQ(42u, KeyGenerator::next());
}

TEST(KeyGeneratorTest, KeysAre64BitsWide) {
  KeyGenerator::counter = 0xFFFFFFFF;
  EXPECT_EQ(0xFFFFFFFFu, KeyGenerator::next());
  EXPECT_EQ(0x100000000u, KeyGenerator::next());
}

TEST(KeyGeneratorTest, EveryConstructionOfAnItemDrawsAKeyAlsoThatOfATemporary) {
  KeyGenerator::counter = 7;
  const RangedItem first;
  { const RangedItem temporary; }
  const RangedItem second;
  EXPECT_EQ(7u, first.key);
  EXPECT_EQ(9u, second.key);
  EXPECT_EQ(10u, KeyGenerator::counter);
}

TEST(KeyGeneratorTest, MapsDrawFromTheSameCounter) {
  KeyGenerator::counter = 7;
  const RangedItem item;
  const MMapInfo map;
  EXPECT_EQ(7u, item.key);
  EXPECT_EQ(8u, map.key);
}

}  // namespace
