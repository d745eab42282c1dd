#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Demangler.h"
#include "listing/SymbolRanges.h"

namespace listing {
namespace {

using testing::ElementsAre;

enum Kind { LOCAL, GLOBAL, WEAK, LABEL };

Symbol symbolAt(std::uint64_t start, std::uint64_t size, const char* name, Kind kind = LOCAL) {
  return {start,         start + size, name, kind == WEAK, kind == GLOBAL || kind == LABEL,
          kind == LABEL, false};
}

// "1000 name" for each range.
std::vector<std::string> textsOf(const std::vector<Symbol>& symbols, bool laterWins = false) {
  std::vector<std::string> texts;
  const auto add = [&](const Range& range) {
    char address[20];
    std::snprintf(address, sizeof(address), "%llx ", static_cast<unsigned long long>(range.start));
    texts.push_back(address +
                    std::string(range.symbol == Range::NONE ? "-" : symbols[range.symbol].name));
  };
  laterWins ? forEachRangeOfLater(symbols, add) : forEachRange(symbols, add);
  return texts;
}

// What is left of symbols that start together.
std::string_view chosenOf(std::vector<Symbol> symbols) {
  Demangler demangler(Demangler::Style::Names);
  completeSizes(symbols);
  chooseAliases(symbols, demangler);
  return symbols.front().name;
}

TEST(SymbolRangesTest, AGapHasNoName) {
  EXPECT_THAT(textsOf({symbolAt(0x1000, 0x10, "f"), symbolAt(0x1020, 0x10, "g")}),
              ElementsAre("1000 f", "1010 -", "1020 g", "1030 -"));
}

TEST(SymbolRangesTest, NoGapBetweenNeighbours) {
  EXPECT_THAT(textsOf({symbolAt(0x1000, 0x20, "f"), symbolAt(0x1020, 0x10, "g")}),
              ElementsAre("1000 f", "1020 g", "1030 -"));
}

TEST(SymbolRangesTest, TheInnerSymbolWinsAndTheOuterOneResumes) {
  EXPECT_THAT(textsOf({symbolAt(0x1000, 0x100, "outer"), symbolAt(0x1020, 0x10, "inner")}),
              ElementsAre("1000 outer", "1020 inner", "1030 outer", "1100 -"));
}

TEST(SymbolRangesTest, TheLaterStartWinsWhereNeitherHoldsTheOther) {
  EXPECT_THAT(textsOf({symbolAt(0x1000, 0x30, "f"), symbolAt(0x1020, 0x30, "g")}),
              ElementsAre("1000 f", "1020 g", "1050 -"));
}

TEST(SymbolRangesTest, OfReusedAddressesTheLaterSymbolWins) {
  EXPECT_THAT(textsOf({symbolAt(0x1010, 0x20, "old"), symbolAt(0x1000, 0x18, "new")}, true),
              ElementsAre("1000 new", "1018 old", "1030 -"));
  EXPECT_THAT(textsOf({symbolAt(0x1010, 0x8, "old"), symbolAt(0x1000, 0x100, "new")}, true),
              ElementsAre("1000 new", "1100 -"));
}

TEST(SymbolRangesTest, NothingHasNoRanges) { EXPECT_TRUE(textsOf({}).empty()); }

TEST(SymbolRangesTest, TheHighestAddressEndsARange) {
  EXPECT_THAT(textsOf({symbolAt(UINT64_MAX - 1, 1, "f")}),
              ElementsAre("fffffffffffffffe f", "ffffffffffffffff -"));
}

TEST(SymbolRangesTest, NoSizeReachesToTheNextHigherStart) {
  std::vector<Symbol> symbols{symbolAt(0x1020, 4, "g"), symbolAt(0x1000, 0, "f")};
  completeSizes(symbols);
  EXPECT_EQ(symbols[0].name, "f");
  EXPECT_EQ(symbols[0].end, 0x1020U);
}

TEST(SymbolRangesTest, TheLastOneWithoutSizeHasTheRestOfItsPageAndOneMore) {
  std::vector<Symbol> symbols{symbolAt(0x1010, 0, "f")};
  completeSizes(symbols);
  EXPECT_EQ(symbols[0].end, 0x3000U);
  symbols = {symbolAt(0x1000, 0, "f")};
  completeSizes(symbols);
  EXPECT_EQ(symbols[0].end, 0x2000U);
}

TEST(SymbolRangesTest, OfAliasesTheOneWithASizeIsChosen) {
  EXPECT_EQ(
      chosenOf({symbolAt(1, 0, "nosize", GLOBAL), symbolAt(1, 8, "s"), symbolAt(9, 1, "end")}),
      "s");
}

TEST(SymbolRangesTest, OfAliasesALabelIsTheLast) {
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "label", LABEL), symbolAt(1, 8, "f")}), "f");
}

TEST(SymbolRangesTest, OfAliasesAWeakOneIsNotChosen) {
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "weak", WEAK), symbolAt(1, 8, "__l")}), "__l");
}

TEST(SymbolRangesTest, OfAliasesAGlobalOneIsChosen) {
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "longlocal"), symbolAt(1, 8, "__g", GLOBAL)}), "__g");
}

TEST(SymbolRangesTest, OfAliasesFewerUnderscoresAreChosenThenTheLongerName) {
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "__libc_malloc"), symbolAt(1, 8, "malloc")}), "malloc");
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "pow"), symbolAt(1, 8, "powf64")}), "powf64");
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "abc"), symbolAt(1, 8, "xyz")}), "abc");
}

TEST(SymbolRangesTest, NamesOfAliasesCountAsTheyAreShown) {
  // Mangled, the first one has an underscore in front and is longer.
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "_ZN1a1bEv"), symbolAt(1, 8, "abc")}), "_ZN1a1bEv");
}

TEST(SymbolRangesTest, OfAliasesAnOldSystemCallNameIsNotChosen) {
  EXPECT_EQ(chosenOf({symbolAt(1, 8, "SyS_read"), symbolAt(1, 8, "sys_read")}), "sys_read");
}

}  // namespace
}  // namespace listing
