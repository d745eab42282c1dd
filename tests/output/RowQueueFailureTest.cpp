// What becomes of the rows when their stream fails: nothing waits forever, and what stands is a
// beginning of what should.
#include <ios>
#include <ostream>
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
  FullBuffer buffer(text.size() / 2);
  std::ostream out(&buffer);
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  RowQueue rows(PRECISION);
  giveAll(rows, writer, plains);
  rows.finish();
  EXPECT_TRUE(out.bad());
  EXPECT_TRUE(buffer.text() == text.substr(0, text.size() / 2));
}

TEST(RowQueueFailureTest, WhoeverWaitsForAStreamGetsItsFailure) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  TrapBuffer buffer;
  std::ostream out(&buffer);
  out.exceptions(std::ios_base::badbit);
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  buffer.shut();
  {
    RowQueue rows(PRECISION);
    Giver giver(rows, writer, plains);
    giver.awaitStandstill();
    buffer.open();
    EXPECT_EQ(giver.await(), "the buffer was a trap");
  }
  EXPECT_EQ(buffer.text(), "[");
}

// The failure comes while rows are still given: a submit() throws it, and whoever gives rows
// leaves.
TEST(RowQueueFailureTest, FailureReachesWhoeverGivesRows) {
  const std::vector<PlainRow> plains = manyRows(2 * MORE_THAN_ALL_BATCHES);
  const std::string text = plainText(plains, PRECISION);
  ThrowingBuffer buffer(text.size() / 4);
  std::ostream out(&buffer);
  out.exceptions(std::ios_base::badbit);
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  {
    RowQueue rows(PRECISION);
    EXPECT_EQ(problemOf([&] { giveAll(rows, writer, plains); }), "the buffer has had enough");
  }
  EXPECT_GE(buffer.text().size(), text.size() / 4);
  EXPECT_EQ(buffer.text().back(), ']');
  EXPECT_TRUE(buffer.text() == text.substr(0, buffer.text().size()));
}

// Neither finish() nor the destruction writes the rows behind those that are missing.
TEST(RowQueueFailureTest, FailureAfterTheLastRowReachesFinish) {
  const std::vector<PlainRow> plains = manyRows(5 * ROWS_IN_BATCH + 5);
  ThrowingBuffer buffer(1000);
  std::ostream out(&buffer);
  out.exceptions(std::ios_base::badbit);
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  buffer.shut();
  {
    RowQueue rows(PRECISION);
    giveAll(rows, writer, plains);
    buffer.open();
    EXPECT_EQ(problemOf([&] { rows.finish(); }), "the buffer has had enough");
  }
  EXPECT_GE(buffer.text().size(), 1000U);
  EXPECT_EQ(buffer.text().back(), ']');
  EXPECT_TRUE(buffer.text() == plainText(plains, PRECISION).substr(0, buffer.text().size()));
}

TEST(RowQueueFailureTest, FailureOfADestructionIsLost) {
  ThrowingBuffer buffer(1000);
  std::ostream out(&buffer);
  out.exceptions(std::ios_base::badbit);
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  buffer.shut();
  {
    RowQueue rows(PRECISION);
    giveAll(rows, writer, manyRows(5 * ROWS_IN_BATCH));
    buffer.open();
  }
  EXPECT_GE(buffer.text().size(), 1000U);
}

TEST(RowQueueFailureTest, StreamThatThrowsWhenItTurnsBadStopsTheRows) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  const std::string text = plainText(plains, PRECISION);
  FullBuffer buffer(text.size() / 3);
  std::ostream out(&buffer);
  out.exceptions(std::ios_base::badbit);
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  {
    RowQueue rows(PRECISION);
    const auto giveThem = [&] {
      giveAll(rows, writer, plains);
      rows.finish();
    };
    EXPECT_THROW(giveThem(), std::ios_base::failure);
  }
  EXPECT_TRUE(buffer.text() == text.substr(0, text.size() / 3));
}
