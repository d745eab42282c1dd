#include <csignal>
#include <map>
#include <unistd.h>

#include <gtest/gtest.h>

#include "listing/ChildPool.h"

namespace listing {
namespace {

using namespace std::chrono_literals;

std::map<std::size_t, std::optional<std::string>> resultsOf(ChildPool pool, std::size_t count,
                                                            const ChildPool::Work& work) {
  std::map<std::size_t, std::optional<std::string>> results;
  pool.run(count, work, [&results](std::size_t piece, std::optional<std::string> reply) {
    EXPECT_TRUE(results.try_emplace(piece, std::move(reply)).second) << "twice: " << piece;
  });
  return results;
}

TEST(ChildPoolTest, EveryPieceIsDoneOnce) {
  const auto results =
      resultsOf(ChildPool(3, 60s), 100, [](std::size_t piece) { return std::to_string(piece); });
  ASSERT_EQ(results.size(), 100U);
  for (const auto& [piece, reply] : results) {
    EXPECT_EQ(reply, std::to_string(piece));
  }
}

TEST(ChildPoolTest, ACrashCostsOnePiece) {
  const auto results = resultsOf(ChildPool(2, 60s), 9, [](std::size_t piece) {
    if (piece % 3 == 0) {
      ::raise(SIGKILL);
    }
    return std::string("done");
  });
  ASSERT_EQ(results.size(), 9U);
  for (const auto& [piece, reply] : results) {
    EXPECT_EQ(reply.has_value(), piece % 3 != 0) << piece;
  }
}

TEST(ChildPoolTest, AHangCostsOnePiece) {
  const auto results = resultsOf(ChildPool(2, 200ms), 3, [](std::size_t piece) {
    if (piece == 1) {
      ::pause();
    }
    return std::string("done");
  });
  EXPECT_TRUE(results.at(0).has_value());
  EXPECT_FALSE(results.at(1).has_value());
  EXPECT_TRUE(results.at(2).has_value());
}

TEST(ChildPoolTest, AnExceptionCostsOnePiece) {
  const auto results = resultsOf(ChildPool(1, 60s), 2, [](std::size_t piece) -> std::string {
    if (piece == 0) {
      throw std::bad_alloc();
    }
    return "done";
  });
  EXPECT_FALSE(results.at(0).has_value());
  EXPECT_TRUE(results.at(1).has_value());
}

TEST(ChildPoolTest, LongRepliesArriveWhole) {
  const std::string text(300'000, 'x');
  const auto results = resultsOf(ChildPool(2, 60s), 3, [&text](std::size_t) { return text; });
  EXPECT_EQ(results.at(2), text);
}

TEST(ChildPoolTest, NothingToDo) { EXPECT_TRUE(resultsOf(ChildPool(2, 1s), 0, {}).empty()); }

}  // namespace
}  // namespace listing
