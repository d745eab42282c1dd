#include <vector>

#include <gtest/gtest.h>

#include "output/SampleRow.h"

namespace {

constexpr std::size_t MOST_ROWS = 1024;
constexpr std::size_t MOST_CALLERS = 4096;

void addRow(SampleRowBatch& batch, uint32_t number, std::size_t mostCallers, std::size_t callers) {
  batch.begin(mostCallers).number = number;
  for (std::size_t i = 0; i < callers; ++i) {
    batch.addCaller({number, i});
  }
  batch.end();
}

}  // namespace

TEST(SampleRowBatchTest, IsEmptyAtFirst) {
  const SampleRowBatch batch;
  EXPECT_TRUE(batch.isEmpty());
  EXPECT_FALSE(batch.isFull());
  EXPECT_FALSE(batch.hasRowInHand());
  EXPECT_EQ(batch.rows().size(), 0U);
}

TEST(SampleRowBatchTest, RowInHandCountsForNothing) {
  SampleRowBatch batch;
  batch.begin(2).number = 1;
  batch.addCaller({1, 2});
  EXPECT_TRUE(batch.hasRowInHand());
  EXPECT_TRUE(batch.isEmpty());
  EXPECT_EQ(batch.rows().size(), 0U);
  batch.end();
  EXPECT_FALSE(batch.hasRowInHand());
  EXPECT_FALSE(batch.isEmpty());
  ASSERT_EQ(batch.rows().size(), 1U);
  EXPECT_EQ(batch.rows()[0].callers, 1U);
}

TEST(SampleRowBatchTest, ClearingDropsTheRowInHand) {
  SampleRowBatch batch;
  addRow(batch, 1, 1, 1);
  batch.begin(2).number = 2;
  batch.addCaller({1, 2});
  batch.clear();
  EXPECT_FALSE(batch.hasRowInHand());
  addRow(batch, 3, 1, 1);
  ASSERT_EQ(batch.rows().size(), 1U);
  EXPECT_EQ(batch.rows()[0].number, 3U);
  EXPECT_EQ(batch.rows()[0].callers, 1U);
  EXPECT_EQ(batch.callers()[0].address, 3U);
}

TEST(SampleRowBatchTest, CallersOfAllRowsStandOneAfterTheOther) {
  SampleRowBatch batch;
  addRow(batch, 1, 2, 2);
  addRow(batch, 2, 0, 0);
  addRow(batch, 3, 5, 1);  // announced five
  addRow(batch, 4, 3, 3);
  ASSERT_EQ(batch.rows().size(), 4U);
  EXPECT_EQ(batch.rows()[0].callers, 2U);
  EXPECT_EQ(batch.rows()[1].callers, 0U);
  EXPECT_EQ(batch.rows()[2].callers, 1U);
  EXPECT_EQ(batch.rows()[3].callers, 3U);
  const std::vector<std::pair<uint64_t, uint64_t>> expected = {{1, 0}, {1, 1}, {3, 0},
                                                               {4, 0}, {4, 1}, {4, 2}};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(batch.callers()[i].address, expected[i].first) << i;
    EXPECT_EQ(batch.callers()[i].key, expected[i].second) << i;
  }
}

TEST(SampleRowBatchTest, IsFullWith1024Rows) {
  SampleRowBatch batch;
  for (uint32_t number = 1; number < MOST_ROWS; ++number) {
    addRow(batch, number, 0, 0);
  }
  EXPECT_FALSE(batch.isFull());
  addRow(batch, MOST_ROWS, 0, 0);
  EXPECT_TRUE(batch.isFull());
}

TEST(SampleRowBatchTest, IsFullWith4096Callers) {
  SampleRowBatch batch;
  addRow(batch, 1, MOST_CALLERS, MOST_CALLERS - 1);
  EXPECT_FALSE(batch.isFull());
  addRow(batch, 2, 1, 1);
  EXPECT_TRUE(batch.isFull());
}

TEST(SampleRowBatchTest, CallersThatWereOnlyAnnouncedDoNotFillIt) {
  SampleRowBatch batch;
  addRow(batch, 1, 10 * MOST_CALLERS, 1);
  addRow(batch, 2, 10 * MOST_CALLERS, 1);
  EXPECT_FALSE(batch.isFull());
}

TEST(SampleRowBatchTest, OneRowMayHaveMoreCallersThanABatch) {
  SampleRowBatch batch;
  addRow(batch, 1, 3, 3);
  addRow(batch, 2, 3 * MOST_CALLERS, 3 * MOST_CALLERS);
  EXPECT_TRUE(batch.isFull());
  EXPECT_EQ(batch.rows()[1].callers, 3 * MOST_CALLERS);
  EXPECT_EQ(batch.callers()[2].key, 2U);
  EXPECT_EQ(batch.callers()[2 + 3 * MOST_CALLERS].key, 3 * MOST_CALLERS - 1);
}

TEST(SampleRowBatchTest, IsEmptyAndUsableAfterClearing) {
  SampleRowBatch batch;
  addRow(batch, 1, MOST_CALLERS, MOST_CALLERS);
  batch.clear();
  EXPECT_TRUE(batch.isEmpty());
  EXPECT_FALSE(batch.isFull());
  addRow(batch, 7, 2, 2);
  ASSERT_EQ(batch.rows().size(), 1U);
  EXPECT_EQ(batch.rows()[0].number, 7U);
  EXPECT_EQ(batch.rows()[0].callers, 2U);
  EXPECT_EQ(batch.callers()[1].address, 7U);
}
