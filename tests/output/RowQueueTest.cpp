// Rows that are written by the batch and in the background: the bytes of rows written one by one.
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "output/RowQueue.h"
#include "tests/output/PlainRows.h"
#include "tests/output/RowStreams.h"

namespace {

std::string written(const std::vector<PlainRow>& plains, bool whitespace = false) {
  QueuedArray array;
  array.writer.whitespace = whitespace;
  array.giveAll(plains);
  array.finish();
  return array.whole();
}

std::size_t listThreads() {
  const std::filesystem::directory_iterator all("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// A thread that was waited for is listed for another moment; a thread sanitizer adds one of its own
// to the first.
std::size_t countThreads() {
  [[maybe_unused]] static const bool isAnyStarted = (std::thread([] {}).join(), true);
  std::size_t count = 0;
  for (int same = 0; same < 5;) {
    const std::size_t now = listThreads();
    same = now == count ? same + 1 : 0;
    count = now;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return count;
}

// No thread gets the stack that it asks for.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    pthread_getattr_default_np(&usual_);
    pthread_attr_t greedy;
    pthread_getattr_default_np(&greedy);
    pthread_attr_setstacksize(&greedy, SIZE_MAX / 16 * 15);
    EXPECT_EQ(pthread_setattr_default_np(&greedy), 0);
    pthread_attr_destroy(&greedy);
  }
  ~NoMoreThreads() {
    pthread_setattr_default_np(&usual_);
    pthread_attr_destroy(&usual_);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
  pthread_attr_t usual_{};
};

}  // namespace

TEST(RowQueueTest, NoRowsAreNoText) { EXPECT_EQ(written({}), "[]"); }

TEST(RowQueueTest, FewRows) {
  const std::vector<PlainRow> plains = {
      {.row = {.sample = {.time = 1.25, .ip = 32784, .tid = 6, .cpu = 3}, .key = 9, .number = 1}},
      {.row = {.sample = {.ip = 1, .tid = 5}, .key = 2, .number = 2}, .callers = {{3, 4}, {5, 6}}}};
  EXPECT_EQ(written(plains), "[[1,32784,9,1.25,3,6,6,[]],[2,1,2,0,0,5,5,[[3,4],[5,6]]]]");
}

TEST(RowQueueTest, MoreRowsThanAllBatchesHold) {
  std::vector<PlainRow> plains = manyRows(3 * MORE_THAN_ALL_BATCHES);
  for (const std::size_t at : {std::size_t{0}, std::size_t{20'000}, plains.size() - 1}) {
    plains[at] = plainRow(static_cast<uint32_t>(at), 7000);
  }
  EXPECT_TRUE(written(plains) == plainText(plains, PRECISION));
}

TEST(RowQueueTest, EveryRowWithThousandsOfCallers) {
  std::vector<PlainRow> plains;
  for (uint32_t number = 1; number <= 3 * BATCHES; ++number) {
    plains.push_back(plainRow(number, number % 5 == 0 ? 0 : 5000));
  }
  EXPECT_TRUE(written(plains) == plainText(plains, PRECISION));
}

TEST(RowQueueTest, NumbersOfRowsAroundWholeBatches) {
  for (const uint32_t batches : {1U, 3U, 4U, 5U}) {
    for (const uint32_t count :
         {batches * ROWS_IN_BATCH - 1, batches * ROWS_IN_BATCH, batches * ROWS_IN_BATCH + 1}) {
      const std::vector<PlainRow> plains = manyRows(count);
      EXPECT_TRUE(written(plains) == plainText(plains, PRECISION)) << count;
    }
  }
}

TEST(RowQueueTest, IndentedRows) {
  const std::vector<PlainRow> plains = manyRows(3 * ROWS_IN_BATCH);
  EXPECT_TRUE(written(plains, true) == plainText(plains, PRECISION, true));
}

TEST(RowQueueTest, DestructionWritesWhatIsLeft) {
  for (const uint32_t count : {1U, ROWS_IN_BATCH - 1, ROWS_IN_BATCH, 6 * ROWS_IN_BATCH + 1}) {
    const std::vector<PlainRow> plains = manyRows(count);
    QueuedArray array;
    array.giveAll(plains);
    array.destroyQueue();
    EXPECT_TRUE(array.whole() == plainText(plains, PRECISION)) << count;
  }
}

// As when finding one of its callers throws.
TEST(RowQueueTest, CallersOfARowThatNeverCameAreNotWritten) {
  const std::vector<PlainRow> plains = manyRows(3 * ROWS_IN_BATCH + 1);
  QueuedArray array;
  array.giveAll(plains);
  array.queue->batch(array.writer).callers.push_back({1, 2});
  array.destroyQueue();
  EXPECT_TRUE(array.whole() == plainText(plains, PRECISION));
}

TEST(RowQueueTest, FinishingWithoutRowsOrTwiceDoesNothing) {
  QueuedArray array;
  array.finish();
  array.giveAll(manyRows(2 * ROWS_IN_BATCH));
  array.finish();
  const std::string text = array.text();
  array.finish();
  EXPECT_EQ(array.text(), text);
}

TEST(RowQueueTest, TakesFurtherRowsAfterFinishing) {
  QueuedArray array;
  std::vector<PlainRow> all;
  for (const uint32_t count : {5 * ROWS_IN_BATCH, 3U, MORE_THAN_ALL_BATCHES, ROWS_IN_BATCH}) {
    const auto first = static_cast<uint32_t>(all.size() + 1);
    const std::vector<PlainRow> plains = manyRows(count, first);
    array.giveAll(plains);
    array.finish();
    all.insert(all.end(), plains.begin(), plains.end());
    ASSERT_TRUE(array.text() + "]" == plainText(all, PRECISION)) << all.size();
  }
}

// What is written between two uses stands there.
TEST(RowQueueTest, WriterIsFreeAfterFinishing) {
  QueuedArray array;
  array.give(PlainRow());
  array.finish();
  array.writer.appendNull();
  array.give(PlainRow());
  array.finish();
  EXPECT_EQ(array.whole(), "[[0,0,0,0,0,0,0,[]],null,[0,0,0,0,0,0,0,[]]]");
}

TEST(RowQueueTest, FewRowsStartNoThread) {
  const std::size_t before = countThreads();
  QueuedArray array;
  array.giveAll(manyRows(ROWS_IN_BATCH - 1));
  EXPECT_EQ(countThreads(), before);
  EXPECT_EQ(array.text(), "[");
  array.finish();
  EXPECT_EQ(countThreads(), before);
}

TEST(RowQueueTest, OneBatchOfRowsStartsAThreadThatEndsWithThem) {
  const std::size_t before = countThreads();
  QueuedArray array;
  for (int use = 0; use < 3; ++use) {
    array.giveAll(manyRows(ROWS_IN_BATCH));
    EXPECT_EQ(countThreads(), before + 1);
    array.giveAll(manyRows(5 * ROWS_IN_BATCH));
    EXPECT_EQ(countThreads(), before + 1);
    array.finish();
    EXPECT_EQ(countThreads(), before);
  }
}

TEST(RowQueueTest, OneBatchOfCallersStartsAThread) {
  const std::size_t before = countThreads();
  QueuedArray array;
  array.give(plainRow(1, CALLERS_IN_BATCH - 1));
  EXPECT_EQ(countThreads(), before);
  array.give(plainRow(2, 1));
  EXPECT_EQ(countThreads(), before + 1);
  array.destroyQueue();
  EXPECT_EQ(countThreads(), before);
}

// The background has written the first batch, and waits.
TEST(RowQueueTest, RowsThatComeAfterAPauseAreWrittenInEachUse) {
  QueuedArray array;
  std::vector<PlainRow> all;
  for (int use = 0; use < 3; ++use) {
    for (const uint32_t count : {ROWS_IN_BATCH, (BATCHES + 8) * ROWS_IN_BATCH}) {
      const auto first = static_cast<uint32_t>(all.size() + 1);
      const std::vector<PlainRow> plains = manyRows(count, first);
      array.giveAll(plains);
      all.insert(all.end(), plains.begin(), plains.end());
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    array.finish();
  }
  EXPECT_TRUE(array.whole() == plainText(all, PRECISION));
}

TEST(RowQueueTest, SlowStreamGetsEveryRow) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  QueuedArray<SlowBuffer> array;
  array.giveAll(plains);
  array.finish();
  EXPECT_TRUE(array.whole() == plainText(plains, PRECISION));
}

// However many rows there are, the memory they take is that of twelve batches.
TEST(RowQueueTest, WhoeverGivesRowsWaitsForAStreamThatStandsStill) {
  const std::vector<PlainRow> plains = manyRows(MORE_THAN_ALL_BATCHES);
  QueuedArray<GateBuffer> array;
  array.buffer.shut();
  Giver giver(array, plains);
  const std::size_t given = giver.awaitStandstill();
  EXPECT_LT(given, BATCHES * ROWS_IN_BATCH);
  EXPECT_GE(given, (BATCHES - 1) * ROWS_IN_BATCH);
  array.buffer.open();
  EXPECT_EQ(giver.await(), "");
  EXPECT_TRUE(array.whole() == plainText(plains, PRECISION));
}

TEST(RowQueueTest, DestructionWaitsForAStreamThatStandsStill) {
  const std::vector<PlainRow> plains = manyRows(5 * ROWS_IN_BATCH + 3);
  QueuedArray<GateBuffer> array;
  array.buffer.shut();
  array.giveAll(plains);
  std::thread opener([&array] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    array.buffer.open();
  });
  array.destroyQueue();
  opener.join();
  EXPECT_TRUE(array.whole() == plainText(plains, PRECISION));
}

TEST(RowQueueTest, WithoutAThreadEveryRowIsWrittenAllTheSame) {
  const std::vector<PlainRow> plains = manyRows(5 * ROWS_IN_BATCH + 1);
  const std::size_t before = countThreads();
  const NoMoreThreads refused;
  QueuedArray array;
  array.giveAll(plains);
  EXPECT_EQ(countThreads(), before);
  EXPECT_FALSE(array.text() == "[");  // as if it were at once, a batch at a time
  array.finish();
  EXPECT_TRUE(array.whole() == plainText(plains, PRECISION));
}

// The system may have a thread again later.
TEST(RowQueueTest, ThreadIsAskedForAgainAfterARefusal) {
  const std::vector<PlainRow> plains = manyRows(9 * ROWS_IN_BATCH);
  const std::size_t before = countThreads();
  QueuedArray array;
  for (const PlainRow& plain : plains) {
    if (plain.row.number < 2 * ROWS_IN_BATCH) {
      const NoMoreThreads refused;
      array.give(plain);
    } else {
      array.give(plain);
    }
  }
  EXPECT_EQ(countThreads(), before + 1);
  array.finish();
  EXPECT_TRUE(array.whole() == plainText(plains, PRECISION));
}
