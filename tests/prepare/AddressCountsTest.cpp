#include <map>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/AddressCounts.h"

namespace {

using Counted = std::map<std::pair<std::uint32_t, std::uint64_t>, std::uint32_t>;

Counted countedBy(const prepare::AddressCounts& counts) {
  Counted all;
  counts.forEach([&all](std::uint32_t file, std::uint64_t address, std::uint32_t count) {
    EXPECT_TRUE(all.emplace(std::pair(file, address), count).second);
  });
  return all;
}

}  // namespace

TEST(AddressCountsTest, EachAddressOfEachFileIsCounted) {
  prepare::AddressCounts counts;
  Counted expected;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    const std::uint32_t file = i % 3;
    const std::uint64_t address = i % 7 * 0x1000;
    counts.add(file, address);
    ++expected[{file, address}];
  }
  counts.finish();
  EXPECT_EQ(countedBy(counts), expected);
}

TEST(AddressCountsTest, NothingIsLostOfAFew) {
  for (std::uint32_t number = 0; number < 20; ++number) {
    prepare::AddressCounts counts;
    for (std::uint32_t i = 0; i < number; ++i) {
      counts.add(0, 0);
    }
    counts.finish();
    EXPECT_EQ(countedBy(counts), number == 0 ? Counted() : (Counted{{{0, 0}, number}}));
  }
}

TEST(AddressCountsTest, WhatDoesNotFitIsLeftOut) {
  prepare::AddressCounts counts;
  for (std::uint64_t i = 0; i < 600'000; ++i) {
    counts.add(1, i * 16);
  }
  counts.finish();
  const Counted counted = countedBy(counts);
  EXPECT_GT(counted.size(), 200'000u);
  EXPECT_LE(counted.size(), 262'144u);
}
