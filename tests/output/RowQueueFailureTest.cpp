// What becomes of the rows when their stream fails: nothing waits forever, and what stands is a
// beginning of what should.
#include <ios>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "output/RowQueue.h"
#include "tests/output/PlainRows.h"
#include "tests/output/RowStreams.h"

TEST(RowQueueFailureTest, StreamThatTurnsBadHalfwayHasTheFirstHalf) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  const std::string text = plainText(plains, PRECISION);
  QueuedArray<FullBuffer> array(text.size() / 2);
  array.giveAll(plains);
  array.finish();
  EXPECT_TRUE(array.out.bad());
  EXPECT_TRUE(array.text() == text.substr(0, text.size() / 2));
}

TEST(RowQueueFailureTest, WhoeverWaitsForAStreamGetsItsFailure) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  QueuedArray<TrapBuffer> array;
  array.out.exceptions(std::ios_base::badbit);
  array.buffer.shut();
  Giver giver(array, plains);
  giver.awaitStandstill();
  array.buffer.open();
  EXPECT_EQ(giver.await(), "the buffer was a trap");
  array.destroyQueue();
  EXPECT_EQ(array.text(), "[");
}

// The failure comes while rows are still given: a submit() throws it, and whoever gives rows
// leaves.
TEST(RowQueueFailureTest, FailureReachesWhoeverGivesRows) {
  const std::vector<PlainRow> plains = manyRows(2 * MORE_THAN_ALL_BATCHES);
  const std::string text = plainText(plains, PRECISION);
  QueuedArray<ThrowingBuffer> array(text.size() / 4);
  array.out.exceptions(std::ios_base::badbit);
  EXPECT_EQ(problemOf([&] { array.giveAll(plains); }), "the buffer has had enough");
  array.destroyQueue();
  EXPECT_GE(array.text().size(), text.size() / 4);
  EXPECT_EQ(array.text().back(), ']');
  EXPECT_TRUE(array.text() == text.substr(0, array.text().size()));
}

// Neither finish() nor the destruction writes the rows behind those that are missing.
TEST(RowQueueFailureTest, FailureAfterTheLastRowReachesFinish) {
  const std::vector<PlainRow> plains = manyRows(5 * ROWS_IN_BATCH + 5);
  QueuedArray<ThrowingBuffer> array(1000U);
  array.out.exceptions(std::ios_base::badbit);
  array.buffer.shut();
  array.giveAll(plains);
  array.buffer.open();
  EXPECT_EQ(problemOf([&] { array.finish(); }), "the buffer has had enough");
  array.out.clear();  // as if memory had run out, which leaves a stream as it is
  array.destroyQueue();
  EXPECT_GE(array.text().size(), 1000U);
  EXPECT_EQ(array.text().back(), ']');
  EXPECT_TRUE(array.text() == plainText(plains, PRECISION).substr(0, array.text().size()));
}

TEST(RowQueueFailureTest, FailureOfADestructionIsLost) {
  QueuedArray<ThrowingBuffer> array(1000U);
  array.out.exceptions(std::ios_base::badbit);
  array.buffer.shut();
  array.giveAll(manyRows(5 * ROWS_IN_BATCH));
  array.buffer.open();
  array.destroyQueue();
  EXPECT_GE(array.text().size(), 1000U);
}

TEST(RowQueueFailureTest, StreamThatThrowsWhenItTurnsBadStopsTheRows) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  const std::string text = plainText(plains, PRECISION);
  QueuedArray<FullBuffer> array(text.size() / 3);
  array.out.exceptions(std::ios_base::badbit);
  const auto giveThem = [&] {
    array.giveAll(plains);
    array.finish();
  };
  EXPECT_THROW(giveThem(), std::ios_base::failure);
  array.destroyQueue();
  EXPECT_TRUE(array.text() == text.substr(0, text.size() / 3));
}
