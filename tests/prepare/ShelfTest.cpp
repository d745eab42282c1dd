#include <map>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Shelf.h"
#include "recordings/RecordingError.h"
#include "tests/support/TempDir.h"

using prepare::Shelf;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ShelfTest, WhatIsPutThereCanBeTakenOnce) {
  const TempDir temp;
  Shelf shelf(temp.path());
  shelf.put(7, "seven");
  shelf.put(0, "");
  shelf.put(0xffffffff, std::string("a\0b", 3));
  EXPECT_THAT(shelf.numbers(), ElementsAre(0u, 7u, 0xffffffffu));
  EXPECT_EQ(shelf.read(7), "seven");
  EXPECT_EQ(shelf.take(7), "seven");
  EXPECT_FALSE(shelf.take(7));
  EXPECT_FALSE(shelf.holds(7));
  EXPECT_EQ(shelf.take(0), "");
  EXPECT_EQ(shelf.take(0xffffffff), std::string("a\0b", 3));
  EXPECT_FALSE(shelf.holds(1));
  EXPECT_THAT(shelf.numbers(), IsEmpty());
}

TEST(ShelfTest, AnEmptyOneHoldsNothingAndNeedsNoFile) {
  Shelf shelf("/no/such/folder");
  EXPECT_FALSE(shelf.holds(0));
  EXPECT_FALSE(shelf.take(0));
  EXPECT_THAT(shelf.numbers(), IsEmpty());
  EXPECT_THROW(shelf.put(1, "x"), recordings::RecordingError);
}

// Against a plain map; texts from nothing to more than is read ahead at once.
TEST(ShelfTest, AnyTextsComeAndGo) {
  const TempDir temp;
  Shelf shelf(temp.path());
  std::map<std::uint32_t, std::string> expected;
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    const auto number =
        static_cast<std::uint32_t>(random() % 3000 * (random() % 2 == 0 ? 1 : 0x10001));
    const auto known = expected.find(number);
    ASSERT_EQ(known != expected.end(), shelf.holds(number));
    if (known == expected.end()) {
      const std::string text(random() % (i % 1000 == 0 ? 300000 : 50), static_cast<char>(i));
      shelf.put(number, text);
      expected[number] = text;
    } else if (random() % 2 == 0) {
      ASSERT_EQ(known->second, shelf.read(number));
    } else {
      ASSERT_EQ(known->second, shelf.take(number));
      expected.erase(known);
    }
  }
  std::vector<std::uint32_t> numbers;
  for (const auto& [number, text] : expected) {
    numbers.push_back(number);
    ASSERT_EQ(text, shelf.read(number));
  }
  EXPECT_EQ(numbers, shelf.numbers());
}
