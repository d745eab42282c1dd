#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/RecordingError.h"
#include "recordings/TimeOrder.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"

using recordings::TimedRecord;
using recordings::TimeOrder;
using testing::ElementsAre;

namespace {

class Sorted {
 public:
  explicit Sorted(TimeOrder::Trust trust, const std::string& scratch = "/tmp")
      : order_(trust, scratch, [this](const TimedRecord& record) {
          lines.push_back(std::to_string(record.time) + " " +
                          std::string(record.bytes, record.bytes + record.size));
        }) {}
  bool add(uint64_t time, const std::string& text) { return order_.add(time, 0, asBytes(text)); }
  TimeOrder& order() { return order_; }

  std::vector<std::string> lines;

 private:
  TimeOrder order_;
};

}  // namespace

// What pass n+2 reads is not older than the newest of pass n: a mark delivers what was there up to
// the newest of the mark before.
TEST(TimeOrderTest, AMarkDeliversUpToTheNewestOfTheMarkBefore) {
  Sorted sorted(TimeOrder::Trust::ROUNDS);
  EXPECT_TRUE(sorted.add(30, "a"));
  EXPECT_TRUE(sorted.add(10, "b"));
  sorted.order().finishRound();
  EXPECT_THAT(sorted.lines, ElementsAre());
  EXPECT_TRUE(sorted.add(20, "c"));
  EXPECT_TRUE(sorted.add(40, "d"));
  sorted.order().finishRound();
  EXPECT_THAT(sorted.lines, ElementsAre("10 b", "20 c", "30 a"));
  EXPECT_TRUE(sorted.add(35, "e"));
  sorted.order().finish();
  EXPECT_THAT(sorted.lines, ElementsAre("10 b", "20 c", "30 a", "35 e", "40 d"));
}

TEST(TimeOrderTest, ARecordThatComesTooLateBreaksThePromise) {
  Sorted sorted(TimeOrder::Trust::ROUNDS);
  sorted.add(30, "a");
  sorted.order().finishRound();
  sorted.order().finishRound();
  EXPECT_TRUE(sorted.add(30, "equal"));
  EXPECT_FALSE(sorted.add(29, "late"));
}

TEST(TimeOrderTest, WithoutTrustMarksMeanNothing) {
  Sorted sorted(TimeOrder::Trust::NOTHING);
  sorted.add(30, "a");
  sorted.order().finishRound();
  sorted.order().finishRound();
  EXPECT_THAT(sorted.lines, ElementsAre());
  EXPECT_TRUE(sorted.add(29, "late"));
  sorted.order().finish();
  EXPECT_THAT(sorted.lines, ElementsAre("29 late", "30 a"));
}

TEST(TimeOrderTest, EqualTimesKeepTheirOrder) {
  Sorted sorted(TimeOrder::Trust::ROUNDS);
  for (const char* const text : {"a", "b"}) {
    sorted.add(7, text);
    sorted.add(5, text);
    sorted.order().finishRound();
  }
  sorted.add(7, "c");
  sorted.order().finish();
  EXPECT_THAT(sorted.lines, ElementsAre("5 a", "5 b", "7 a", "7 b", "7 c"));
}

TEST(TimeOrderTest, TheLargestTimesAreOrdered) {
  Sorted sorted(TimeOrder::Trust::NOTHING);
  sorted.add(~uint64_t{0} - 1, "b");
  sorted.add(1, "a");
  sorted.order().finish();
  EXPECT_THAT(sorted.lines, ElementsAre("1 a", std::to_string(~uint64_t{0} - 1) + " b"));
}

// Four times more than is held in memory; with and without marks, equal times among them.
TEST(TimeOrderTest, MoreThanMemoryHoldsIsSortedThroughAFile) {
  for (const TimeOrder::Trust trust : {TimeOrder::Trust::NOTHING, TimeOrder::Trust::ROUNDS}) {
    const TempDir scratch;
    Sorted sorted(trust, scratch.path());
    std::vector<std::pair<uint64_t, std::string>> expected;
    const std::size_t records = 4 * TimeOrder::MEMORY_LIMIT / 2000;
    uint64_t state = 1;
    for (std::size_t i = 0; i < records; ++i) {
      state = state * 6364136223846793005u + 1442695040888963407u;
      // In two late rounds of half the records each nothing is older than the promise allows.
      const uint64_t time = 1000 + (state >> 40) % 5000;
      const std::string text = std::to_string(i) + std::string(1960, '.');
      ASSERT_TRUE(sorted.add(time, text));
      expected.emplace_back(time, text);
      if (i == records / 2) {
        sorted.order().finishRound();
      }
    }
    EXPECT_FALSE(sorted.lines.size() > 0);
    sorted.order().finish();
    std::stable_sort(expected.begin(), expected.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    ASSERT_EQ(expected.size(), sorted.lines.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      ASSERT_EQ(std::to_string(expected[i].first) + " " + expected[i].second, sorted.lines[i]);
    }
    // Nothing is left, and nothing had a name there.
    EXPECT_FALSE(
        scratch.has("."
                    "sorting"));
  }
}

TEST(TimeOrderTest, AFolderThatCannotBeWrittenIsAnError) {
  Sorted sorted(TimeOrder::Trust::NOTHING, "/nowhere/at/all");
  const std::string text(60000, '.');
  EXPECT_THROW(
      {
        for (int i = 0; i < 1000; ++i) {
          sorted.add(1, text);
        }
      },
      recordings::RecordingError);
}
