#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/TouchedCode.h"
#include "prepare/TouchedLines.h"
#include "tests/support/TempDir.h"

using prepare::TouchedCode;
using Ranges = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

namespace {

constexpr char ONE[] = "0000000000001000 t one\n";
constexpr char TWO[] = "0000000000001100 T two\tsome.c:0\n";
constexpr char GAP[] = "0000000000001200 t [unknown]\n";
constexpr char THREE[] = "00000000000f0000 W three\n";
constexpr char END[] = "ffffffffffff0000 t [unknown]\n";

std::string listText() { return std::string(ONE) + TWO + GAP + THREE + END; }

std::string kept(const std::string& text, const Ranges& ranges) {
  const TempDir temp;
  temp.write("list", text);
  prepare::keepTouchedLines(temp.file("list"), ranges);
  return temp.read("list");
}

}  // namespace

TEST(TouchedLinesTest, ASymbolStaysWithTheLineWhereItEnds) {
  EXPECT_EQ(kept(listText(), {{0x1010, 0x1020}}), std::string(ONE) + TWO);
  EXPECT_EQ(kept(listText(), {{0x1100, 0x1100}}), std::string(TWO) + GAP);
  EXPECT_EQ(kept(listText(), {{0x11ff, 0x11ff}}), std::string(TWO) + GAP);
  EXPECT_EQ(kept(listText(), {{0x1200, 0xeffff}}), std::string(GAP) + THREE);
}

TEST(TouchedLinesTest, ARangeTouchesEverySymbolThatItReaches) {
  EXPECT_EQ(kept(listText(), {{0x10ff, 0x1100}}), std::string(ONE) + TWO + GAP);
  EXPECT_EQ(kept(listText(), {{0, UINT64_MAX}}), listText());
}

TEST(TouchedLinesTest, WhatLiesBelowTheFirstSymbolTouchesNone) {
  EXPECT_EQ(kept(listText(), {{0, 0xfff}}), "");
}

TEST(TouchedLinesTest, TheLastLineReachesToTheEnd) {
  EXPECT_EQ(kept(listText(), {{UINT64_MAX, UINT64_MAX}}), END);
}

TEST(TouchedLinesTest, ASymbolAtZero) {
  EXPECT_EQ(kept(std::string("0000000000000000 t zero\n") + ONE, {{0, 0}}),
            std::string("0000000000000000 t zero\n") + ONE);
}

TEST(TouchedLinesTest, RangesThatOverlap) {
  EXPECT_EQ(kept(listText(), {{0x1000, 0x103f}, {0x1001, 0x1040}, {0xf0000, 0xf003f}}),
            std::string(ONE) + TWO + THREE + END);
}

TEST(TouchedLinesTest, LinesAcrossBlocksOfTheFile) {
  std::string text;
  std::string wanted;
  for (unsigned i = 0; i < 30'000; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%016x t function_%u\n", 0x1000 + 0x100 * i, i);
    text += line;
    wanted += i == 12'345 || i == 12'346 || i == 29'999 ? line : "";
  }
  EXPECT_EQ(
      kept(text, {{0x1000 + 0x100 * 12'345, 0x1000 + 0x100 * 12'345}, {0x10000000, 0x10000000}}),
      wanted);
}

TEST(TouchedLinesTest, AListWithAnotherLinkIsShortenedHereOnly) {
  const TempDir temp;
  temp.write("kept", listText());
  std::filesystem::create_hard_link(temp.file("kept"), temp.file("list"));
  prepare::keepTouchedLines(temp.file("list"), {{0x1000, 0x1000}});
  EXPECT_EQ(temp.read("list"), std::string(ONE) + TWO);
  EXPECT_EQ(temp.read("kept"), listText());
}

TEST(TouchedLinesTest, NothingIsMadeOfAListThatIsNotThere) {
  const TempDir temp;
  prepare::keepTouchedLines(temp.file("list"), {{0x1000, 0x1000}});
  EXPECT_TRUE(std::filesystem::is_empty(temp.path()));
}

// Lists are passed over in steps; wherever ranges lie, it is as if each line had been looked at.
TEST(TouchedLinesTest, EverySymbolOfALongListMayBeTheNextOne) {
  std::vector<std::string> lines;
  std::string text;
  for (unsigned i = 0; i < 200; ++i) {
    char line[400];
    std::snprintf(line, sizeof line, "%016x t f%0*u\n", 0x1000 + 0x100 * i, 1 + i * 7 % 300, i);
    lines.emplace_back(line);
    text += line;
  }
  for (unsigned first = 0; first < 200; ++first) {
    for (const unsigned step : {1u, 2u, 5u, 30u}) {
      Ranges ranges;
      std::vector<bool> wanted(202);
      for (unsigned i = first; i < 200; i += step * 3) {
        ranges.emplace_back(0x1000 + 0x100 * i + 0x40, 0x1000 + 0x100 * i + 0x7f);
        wanted[i] = wanted[i + 1] = true;
      }
      std::string expected;
      for (unsigned i = 0; i < 200; ++i) {
        expected += wanted[i] ? lines[i] : "";
      }
      ASSERT_EQ(kept(text, ranges), expected) << first << " " << step;
    }
  }
}

// The steps end in front of the symbol where a range begins, though it ends in the next one.
TEST(TouchedLinesTest, ARangeBehindManyLinesMayReachIntoTheNextSymbol) {
  std::vector<std::string> lines;
  std::string text;
  for (unsigned i = 0; i < 200; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%016x t function_%u\n", 0x1000 + 0x100 * i, i);
    lines.emplace_back(line);
    text += line;
  }
  for (unsigned i = 0; i + 2 < 200; ++i) {
    const std::uint64_t first = 0x1000 + 0x100 * i + 0xe0;
    ASSERT_EQ(kept(text, {{first, first + 0x3f}}), lines[i] + lines[i + 1] + lines[i + 2]) << i;
  }
}

TEST(TouchedLinesTest, ALineMayBeLongerThanABlock) {
  const std::string name(300'000, 'x');
  const std::string text =
      std::string(ONE) + "0000000000001100 T " + name + "\n" + GAP + THREE + END;
  EXPECT_EQ(kept(text, {{0x1150, 0x1150}}), "0000000000001100 T " + name + "\n" + GAP);
  EXPECT_EQ(kept(text, {{0xf0000, 0xf0000}}), std::string(THREE) + END);
}

TEST(TouchedCodeTest, GranulesOfEachFileAscend) {
  TouchedCode code;
  code.add(1, 0x1234000, 1u << 21);
  code.add(0, 0, 1u << 4);
  code.add(1, 0, 1u << 1);
  code.add(1, 0, 1u << 1);
  code.add(1, UINT64_MAX - 0xfff, std::uint64_t{1} << 63);
  const auto granules = code.granules();
  ASSERT_EQ(granules.size(), 2u);
  EXPECT_THAT(granules.at(0), testing::ElementsAre(0x100));
  EXPECT_THAT(granules.at(1), testing::ElementsAre(0x40, 0x1234540, UINT64_MAX - 0x3f));
  EXPECT_FALSE(code.isEverything());
}

TEST(TouchedCodeTest, ABitIsOfTheGranuleThatHoldsTheAddress) {
  EXPECT_EQ(TouchedCode::bitOf(0x7000, 0x7000), 1u);
  EXPECT_EQ(TouchedCode::bitOf(0x703f, 0x7000), 1u);
  EXPECT_EQ(TouchedCode::bitOf(0x7040, 0x7000), 2u);
  EXPECT_EQ(TouchedCode::bitOf(0x7fff, 0x7000), std::uint64_t{1} << 63);
}

// Wherever a stretch begins, the bytes of its granules are all touched.
TEST(TouchedCodeTest, StretchesThatBeginAnywhere) {
  for (const std::uint64_t begin : {0x40u, 0xfc0u, 0x1u, 0x3fu, 0x41u, 0xfffu, 0x3ffffu}) {
    for (const unsigned bit : {0u, 1u, 62u, 63u}) {
      TouchedCode code;
      code.add(0, begin, std::uint64_t{1} << bit);
      const std::uint64_t first = begin + bit * 64;
      std::vector<std::uint64_t> expected{first & ~std::uint64_t{63}};
      if (first % 64 != 0) {
        expected.push_back(expected.front() + 64);
      }
      EXPECT_EQ(code.granules().at(0), expected) << begin << " " << bit;
    }
  }
}

TEST(TouchedCodeTest, PastItsMemoryEverythingIsTouched) {
  TouchedCode code;
  for (std::uint64_t i = 0; i < 100'000; ++i) {
    code.add(0, i << 20, 1);
  }
  EXPECT_TRUE(code.isEverything());
}
