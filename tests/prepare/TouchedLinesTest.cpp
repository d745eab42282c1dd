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

TEST(TouchedCodeTest, GranulesOfEachFileAscend) {
  TouchedCode code;
  code.add(1, 0x1234567);
  code.add(0, 0x100);
  code.add(1, 0x40);
  code.add(1, 0x7f);
  code.add(1, UINT64_MAX);
  const auto granules = code.granules();
  ASSERT_EQ(granules.size(), 2u);
  EXPECT_THAT(granules.at(0), testing::ElementsAre(0x100));
  EXPECT_THAT(granules.at(1), testing::ElementsAre(0x40, 0x1234540, UINT64_MAX - 0x3f));
  EXPECT_FALSE(code.isEverything());
}

TEST(TouchedCodeTest, PastItsMemoryEverythingIsTouched) {
  TouchedCode code;
  for (std::uint64_t i = 0; i < 100'000; ++i) {
    code.add(0, i << 20);
  }
  EXPECT_TRUE(code.isEverything());
}
