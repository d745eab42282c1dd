#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/QuietStretches.h"

namespace {

using perfevents::QuietStretches;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t SHORTEST = 262144;  // bytes

using Offsets = std::pair<uint64_t, uint64_t>;

// Offset, and whether the record there is quiet.
std::vector<Offsets> stretchesOf(const std::vector<std::pair<uint64_t, bool>>& records) {
  QuietStretches quiet;
  for (const auto& [offset, isQuiet] : records) {
    quiet.add(offset, isQuiet);
  }
  quiet.finish();
  std::vector<Offsets> all;
  for (const QuietStretches::Stretch& stretch : quiet.stretches()) {
    all.emplace_back(stretch.begin, stretch.end);
  }
  return all;
}

}  // namespace

TEST(QuietStretchesTest, WalkWithoutRecordsHasNone) { EXPECT_THAT(stretchesOf({}), IsEmpty()); }

TEST(QuietStretchesTest, ReachesFromTheFirstQuietRecordToTheNextOther) {
  EXPECT_THAT(stretchesOf({{0, false},
                           {100, true},
                           {200, true},
                           {100 + SHORTEST + 50, true},
                           {100 + SHORTEST + 90, false},
                           {100 + SHORTEST + 99, false}}),
              ElementsAre(Offsets(100, 100 + SHORTEST + 90)));
}

TEST(QuietStretchesTest, OneByteTooShort) {
  EXPECT_THAT(stretchesOf({{0, true}, {SHORTEST - 1, false}}), IsEmpty());
  EXPECT_THAT(stretchesOf({{0, true}, {SHORTEST, false}}), ElementsAre(Offsets(0, SHORTEST)));
  EXPECT_THAT(stretchesOf({{8, true}, {SHORTEST, false}}), IsEmpty());
  EXPECT_THAT(stretchesOf({{8, true}, {SHORTEST + 8, false}}),
              ElementsAre(Offsets(8, SHORTEST + 8)));
}

TEST(QuietStretchesTest, LastRecordIsInNone) {
  EXPECT_THAT(stretchesOf({{0, true}, {100, true}, {2 * SHORTEST, true}}),
              ElementsAre(Offsets(0, 2 * SHORTEST)));
  EXPECT_THAT(stretchesOf({{0, true}}), IsEmpty());
  EXPECT_THAT(stretchesOf({{SHORTEST, true}}), IsEmpty());
  EXPECT_THAT(stretchesOf({{0, false}, {5, true}, {SHORTEST + 4, true}}), IsEmpty());
}

TEST(QuietStretchesTest, ShortOnesAreNotAddedUp) {
  EXPECT_THAT(stretchesOf({{0, true},
                           {SHORTEST / 2, false},
                           {SHORTEST / 2 + 8, true},
                           {SHORTEST, false},
                           {3 * SHORTEST, true}}),
              IsEmpty());
}

TEST(QuietStretchesTest, SeveralAreInAscendingOrder) {
  std::vector<std::pair<uint64_t, bool>> records;
  for (uint64_t i = 0; i < 5; ++i) {
    records.emplace_back(2 * i * SHORTEST, true);
    records.emplace_back((2 * i + 1) * SHORTEST + i, false);
  }
  EXPECT_THAT(
      stretchesOf(records),
      ElementsAre(Offsets(0, SHORTEST), Offsets(2 * SHORTEST, 3 * SHORTEST + 1),
                  Offsets(4 * SHORTEST, 5 * SHORTEST + 2), Offsets(6 * SHORTEST, 7 * SHORTEST + 3),
                  Offsets(8 * SHORTEST, 9 * SHORTEST + 4)));
}

TEST(QuietStretchesTest, OffsetsBeyondFourGigabytes) {
  constexpr uint64_t FAR = uint64_t{1} << 40;
  EXPECT_THAT(stretchesOf({{FAR, true}, {3 * FAR, false}}), ElementsAre(Offsets(FAR, 3 * FAR)));
}
