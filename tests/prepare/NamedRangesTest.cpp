#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/ListText.h"
#include "prepare/NamedRanges.h"
#include "tests/support/TempDir.h"

using prepare::NamedRanges;

namespace {

NamedRanges rangesOf(const std::string& text) {
  const TempDir temp;
  temp.write("list", text);
  return NamedRanges(temp.file("list"));
}

}  // namespace

TEST(NamedRangesTest, FromASymbolToTheNextGapThereAreNames) {
  const NamedRanges ranges = rangesOf(
      "0000000000001000 t one\n"
      "0000000000001100 T two\n"
      "0000000000001200 t [unknown]\n"
      "00000000000f0000 W three\n"
      "ffffffffffff0000 t [unknown]\n");
  EXPECT_FALSE(ranges.holds(0xfff));
  EXPECT_TRUE(ranges.holds(0x1000));
  EXPECT_TRUE(ranges.holds(0x11ff));
  EXPECT_FALSE(ranges.holds(0x1200));
  EXPECT_FALSE(ranges.holds(0xeffff));
  EXPECT_TRUE(ranges.holds(0xf0000));
  EXPECT_TRUE(ranges.holds(0xfffffffffffeffff));
  EXPECT_FALSE(ranges.holds(0xffffffffffff0000));
}

TEST(NamedRangesTest, ANameThatBeginsLikeNoneIsOne) {
  EXPECT_TRUE(rangesOf("0000000000001000 t [unknown]s\n").holds(0x1000));
  EXPECT_TRUE(rangesOf("0000000000001000 t [unknown\n").holds(0x1000));
  EXPECT_FALSE(rangesOf("0000000000001000 t [unknown]").holds(0x1000));
  EXPECT_TRUE(rangesOf("0000000000001000 t last line without end").holds(0x1000));
}

TEST(NamedRangesTest, WhatCannotBeReadOrHasNoNamesNamesNothing) {
  EXPECT_FALSE(NamedRanges("/no/such/list").holds(0));
  EXPECT_FALSE(NamedRanges("").holds(0));
  EXPECT_FALSE(rangesOf("").holds(0));
  EXPECT_FALSE(rangesOf("\n\nshort\n0000000000001000 t \n").holds(0x1000));
}

// Lists are read in blocks; wherever those end, every line is understood.
TEST(NamedRangesTest, LinesMayLieAcrossBlocks) {
  constexpr std::size_t BLOCK = 65536;
  const std::string behind =
      "0000000000002000 t [unknown]\n0000000000003000 t three\n0000000000004000 t [unknown]\n";
  for (std::size_t into = 0; into <= behind.size(); ++into) {
    std::string text = "0000000000001000 t ";
    text += std::string(BLOCK - into - text.size() - 1, 'x') + "\n";
    ASSERT_EQ(text.size(), BLOCK - into);
    const NamedRanges ranges = rangesOf(text + behind);
    EXPECT_TRUE(ranges.holds(0x1fff)) << into;
    EXPECT_FALSE(ranges.holds(0x2000)) << into;
    EXPECT_TRUE(ranges.holds(0x3000)) << into;
    EXPECT_FALSE(ranges.holds(0x4000)) << into;
  }
  EXPECT_TRUE(rangesOf("0000000000001000 t " + std::string(3 * BLOCK, 'x')).holds(0x1000));
}
