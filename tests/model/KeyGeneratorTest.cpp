#include <gtest/gtest.h>

#include "model/KeyGenerator.h"
#include "model/MMapInfo.h"
#include "model/RangedItem.h"

namespace {

const uint64_t COUNTER_AT_START = KeyGenerator::counter;

TEST(KeyGeneratorTest, CounterStartsAtZero) { EXPECT_EQ(COUNTER_AT_START, 0u); }

TEST(KeyGeneratorTest, NextGivesTheCounterAndThenRaisesIt) {
  KeyGenerator::counter = 41;
  EXPECT_EQ(KeyGenerator::next(), 41u);
  EXPECT_EQ(KeyGenerator::counter, 42u);
  EXPECT_EQ(KeyGenerator::next(), 42u);
}

TEST(KeyGeneratorTest, KeysAre64BitsWide) {
  KeyGenerator::counter = 0xFFFFFFFF;
  EXPECT_EQ(KeyGenerator::next(), 0xFFFFFFFFu);
  EXPECT_EQ(KeyGenerator::next(), 0x100000000u);
}

TEST(KeyGeneratorTest, EveryConstructionOfAnItemDrawsAKeyAlsoThatOfATemporary) {
  KeyGenerator::counter = 7;
  const RangedItem first;
  { const RangedItem temporary; }
  const RangedItem second;
  EXPECT_EQ(first.key, 7u);
  EXPECT_EQ(second.key, 9u);
  EXPECT_EQ(KeyGenerator::counter, 10u);
}

TEST(KeyGeneratorTest, MapsDrawFromTheSameCounter) {
  KeyGenerator::counter = 7;
  const RangedItem item;
  const MMapInfo map;
  EXPECT_EQ(item.key, 7u);
  EXPECT_EQ(map.key, 8u);
}

}  // namespace
