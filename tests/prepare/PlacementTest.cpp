#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Placement.h"

using prepare::Piece;
using prepare::Placement;
using prepare::PlacementRules;
using recordings::MappedFile;
using recordings::Mapping;
using testing::ElementsAre;

namespace {

const MappedFile A{"a", MappedFile::Kind::FILE, {}, 0, {}, 0};
const MappedFile B{"b", MappedFile::Kind::FILE, {}, 0, {}, 1};
const MappedFile C{"c", MappedFile::Kind::FILE, {}, 0, {}, 2};

class PlacementTest : public testing::Test {
 protected:
  // As a sample does: where the address stands now.
  std::uint64_t hit(const Mapping& mapping, std::uint64_t address) {
    Piece& piece = placement_.place(mapping, address, rules_);
    piece.hit(address);
    EXPECT_EQ(mapping.file, piece.file);
    EXPECT_TRUE(piece.holds(address));
    return address + piece.shift;
  }
  std::vector<std::string> pieces() const {
    std::vector<std::string> lines;
    placement_.forEach([&](std::uint64_t written, const Piece& piece) {
      char text[100];
      std::snprintf(text, sizeof text, "%s %llx-%llx", piece.file->name.c_str(),
                    static_cast<unsigned long long>(written),
                    static_cast<unsigned long long>(written + piece.high - piece.low));
      lines.push_back(text);
    });
    return lines;
  }
  void expectApart() const {
    std::uint64_t end = 0;
    placement_.forEach([&](std::uint64_t written, const Piece& piece) {
      EXPECT_GE(written, end);
      EXPECT_LT(piece.low, piece.high);
      end = written + (piece.high - piece.low);
    });
  }

  PlacementRules rules_;
  Placement placement_;
};

}  // namespace

TEST_F(PlacementTest, WhatIsAloneKeepsItsAddress) {
  EXPECT_EQ(hit({0x401000, 0x403000, 0x1000, &A}, 0x401100), 0x401100u);
  EXPECT_EQ(hit({0x401000, 0x403000, 0x1000, &A}, 0x402fff), 0x402fffu);
  EXPECT_THAT(pieces(), ElementsAre("a 401000-403000"));
}

TEST_F(PlacementTest, OfTwoThingsAtOneAddressTheSecondMoves) {
  const Mapping first{0x401000, 0x403000, 0x1000, &A};
  const Mapping second{0x401000, 0x402000, 0x1000, &B};
  EXPECT_EQ(hit(first, 0x401100), 0x401100u);
  const std::uint64_t moved = hit(second, 0x401100);
  EXPECT_NE(moved, 0x401100u);
  EXPECT_EQ(moved % 0x10000, 0x1100u);             // the digits that people compare
  EXPECT_EQ(moved + 0x20, hit(second, 0x401120));  // its neighbours go with it
  EXPECT_EQ(hit(first, 0x401100), 0x401100u);
  EXPECT_EQ(pieces().size(), 2u);
  expectApart();
}

// Only the pages of what was hit in both are in doubt.
TEST_F(PlacementTest, OtherPagesOfWhatHasMovedStayWhereTheyAreFree) {
  const Mapping first{0x400000, 0x500000, 0, &A};
  const Mapping second{0x400000, 0x500000, 0, &B};
  hit(first, 0x410100);
  hit(first, 0x412100);
  EXPECT_NE(hit(second, 0x411000), 0x411000u);
  EXPECT_NE(hit(second, 0x410008), 0x410008u);  // the same page as a hit of the other
  EXPECT_EQ(hit(second, 0x420000), 0x420000u);
  EXPECT_EQ(hit(second, 0x40f000), 0x40f000u);
  EXPECT_EQ(hit(second, 0x4fffff), 0x4fffffu);
  EXPECT_NE(hit(second, 0x411fff), 0x411fffu);
  expectApart();
}

TEST_F(PlacementTest, WhatMovedInTwoStepsDoesNotOverlap) {
  const Mapping first{0x400000, 0x500000, 0, &A};
  const Mapping second{0x400000, 0x500000, 0, &B};
  hit(first, 0x410100);
  const std::uint64_t one = hit(second, 0x410100);
  hit(first, 0x412100);
  const std::uint64_t two = hit(second, 0x412100);
  EXPECT_NE(two, 0x412100u);
  EXPECT_EQ(one, hit(second, 0x410100));
  EXPECT_EQ(two, hit(second, 0x412100));
  EXPECT_EQ(pieces().size(), 3u);
  expectApart();
}

TEST_F(PlacementTest, AfterWritingDownEverythingStandsWhereItStood) {
  recordings::MappedFiles files;
  const MappedFile& one = files.get(MappedFile::Kind::FILE, "one", {});
  const MappedFile& two = files.get(MappedFile::Kind::FILE, "two", {});
  const Mapping first{0x401000, 0x403000, 0x1000, &one};
  const Mapping second{0x401000, 0x402000, 0x1000, &two};
  const Mapping unknown{0x700000, 0x710000, 0x700000, &Placement::unknownFile()};
  hit(first, 0x401100);
  const std::uint64_t moved = hit(second, 0x401100);
  hit(unknown, 0x700123);
  placement_.place(first, 0x401100, rules_).samples = 7;
  placement_.place(second, 0x401100, rules_).callers = 9;
  const std::vector<std::string> before = pieces();

  prepare::ShelfWriter writer;
  placement_.save(writer);
  const std::string text = writer.take();
  placement_ = Placement();
  prepare::ShelfReader reader(text);
  placement_.restore(reader, files);

  EXPECT_EQ(before, pieces());
  EXPECT_EQ(moved, hit(second, 0x401100));
  EXPECT_EQ(hit(first, 0x401100), 0x401100u);
  EXPECT_EQ(hit(unknown, 0x700124), 0x700124u);
  EXPECT_EQ(placement_.place(first, 0x401100, rules_).samples, 7u);
  EXPECT_EQ(placement_.place(second, 0x401100, rules_).callers, 9u);
  EXPECT_EQ(before.size(), pieces().size());
  // The next one that moves does not land on what moved before.
  hit({0x401000, 0x402000, 0x1000, &C}, 0x401100);
  expectApart();
}

TEST_F(PlacementTest, TheSameFileAtAnotherOffsetIsAnotherThing) {
  hit({0x401000, 0x403000, 0x1000, &A}, 0x401100);
  EXPECT_NE(hit({0x401000, 0x403000, 0x5000, &A}, 0x401100), 0x401100u);
  expectApart();
}

TEST_F(PlacementTest, APieceGivesWayAsFarAsNothingHitIt) {
  hit({0x401000, 0x409000, 0, &A}, 0x403000);
  EXPECT_EQ(hit({0x405000, 0x408000, 0, &B}, 0x406000), 0x406000u);  // behind its last hit
  EXPECT_EQ(hit({0x401800, 0x402800, 0, &C}, 0x402000), 0x402000u);  // in front of its first
  EXPECT_EQ(hit({0x401000, 0x409000, 0, &A}, 0x403000), 0x403000u);
  EXPECT_EQ(hit({0x401000, 0x409000, 0, &A}, 0x408800), 0x408800u);  // its part behind the other
  expectApart();
}

TEST_F(PlacementTest, BetweenTwoHitsNothingGivesWay) {
  hit({0x401000, 0x409000, 0, &A}, 0x402000);
  hit({0x401000, 0x409000, 0, &A}, 0x408000);
  EXPECT_NE(hit({0x405000, 0x406000, 0, &B}, 0x405000), 0x405000u);
  expectApart();
}

TEST_F(PlacementTest, ReservedRangesStayFree) {
  rules_.reserved = {{0xB0000000, 0xBEFFFFFF}, {0xffffffff81000000, 0xffffffff81ffffff}};
  const Mapping over{0xAF000000, 0xC0000000, 0, &A};
  EXPECT_EQ(hit(over, 0xAF000100), 0xAF000100u);
  EXPECT_EQ(hit(over, 0xAFFFFFFF), 0xAFFFFFFFu);
  EXPECT_EQ(hit(over, 0xBF000000), 0xBF000000u);
  for (const std::uint64_t inside : {0xB0000000u, 0xBEFFFFFFu}) {
    const std::uint64_t moved = hit(over, inside);
    EXPECT_TRUE(moved < 0xB0000000 || moved > 0xBEFFFFFF) << inside;
  }
  const Mapping high{0xffffffff80000000, ~uint64_t{0}, 0, &B};
  EXPECT_EQ(hit(high, 0xffffffff82000000), 0xffffffff82000000);
  EXPECT_NE(hit(high, 0xffffffff81000000), 0xffffffff81000000);
  expectApart();
  placement_.forEach([&](std::uint64_t written, const Piece& piece) {
    for (const auto& range : rules_.reserved) {
      EXPECT_TRUE(written + (piece.high - piece.low) <= range.first || written > range.last);
    }
  });
}

// The converter takes addresses of low maps for those of the file: right for programs that are
// linked there, wrong for others.
TEST_F(PlacementTest, LowMapsThatWouldBeMisreadMove) {
  rules_.mustBeHigh = [](const Mapping& mapping) { return mapping.file == &A; };
  EXPECT_LE(PlacementRules::HIGH_ADDRESS, hit({0x10000, 0x20000, 0, &A}, 0x10100));
  EXPECT_EQ(hit({0x30000, 0x40000, 0, &B}, 0x30100), 0x30100u);
  EXPECT_EQ(hit({0x40000000, 0x40010000, 0, &A}, 0x40000100), 0x40000100u);
}

TEST_F(PlacementTest, AddressZeroIsNoSampleAndMoves) {
  EXPECT_NE(hit({0, 0x1000, 0, &A}, 0), 0u);
  expectApart();
}

TEST_F(PlacementTest, TheHighestAddressesHavePlaces) {
  hit({~uint64_t{0} - 0xffff, ~uint64_t{0}, 0, &A}, ~uint64_t{0} - 1);
  hit({~uint64_t{0} - 0xffff, ~uint64_t{0}, 0, &B}, ~uint64_t{0} - 1);
  hit({0, ~uint64_t{0}, 0, &C}, 5);
  hit({0, ~uint64_t{0}, 0, &C}, ~uint64_t{0} - 1);
  expectApart();
}

// A map from the lowest address to the highest: nothing is free beside it at once.
TEST_F(PlacementTest, AMapOverEverythingLeavesRoomForTheOthersAndEndsSoon) {
  const Mapping all{0x1000, ~uint64_t{0}, 0, &A};
  hit(all, 0x2000);
  hit(all, 0xf000000000000000);
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t i = 0; i < 100; ++i) {
    hit({0x5000 + i, 0x6000 + i, 0, &B}, 0x5800);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  expectApart();
}

// Kernels of perf 3.4 begin at 0 or end with the last address.
TEST_F(PlacementTest, ARangeOverEverythingIsNoEndlessSearch) {
  rules_.reserved = {{0xB0000000, 0xBEFFFFFF}, {0, ~uint64_t{0} - 1}};
  hit({0x401000, 0x403000, 0, &A}, 0x401100);
  hit({0x401000, 0x403000, 0, &B}, 0x401100);
  expectApart();
}

TEST_F(PlacementTest, AnyHitsAreTakenApart) {
  rules_.reserved = {{0x4000, 0x4fff}};
  const MappedFile* const files[] = {&A, &B, &C};
  std::uint64_t state = 3;
  const auto next = [&state](std::uint64_t below) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return (state >> 33) % below;
  };
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t start = 0x1000 * next(12);
    const std::uint64_t end = start + 0x1000 * (1 + next(4));
    hit({start, end, 0x1000 * next(3), files[next(3)]}, start + next(end - start));
  }
  expectApart();
}
