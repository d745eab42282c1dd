#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "recordings/RecordPool.h"
#include "tests/recordings/WalkLog.h"

using recordings::RecordPool;

TEST(RecordPoolTest, FewRecordsTakeLittle) {
  RecordPool pool;
  EXPECT_EQ(pool.usedBytes(), 0u);
  const unsigned char* const copy = pool.copy(asBytes("12345678"));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(copy) % 8, 0u);
  EXPECT_LE(pool.usedBytes(), 8192u);
  pool.free(copy);
}

TEST(RecordPoolTest, TheLargestRecordFitsFirst) {
  RecordPool pool;
  const std::string largest(RecordPool::LARGEST_RECORD, 'x');
  const unsigned char* const copy = pool.copy(asBytes(largest));
  EXPECT_EQ(std::memcmp(copy, largest.data(), largest.size()), 0);
  pool.free(copy);
}

// Records go in about the order in which they came; what is freed is used again.
TEST(RecordPoolTest, AnyRecordsComeAndGoWithoutMoreThanTheyNeed) {
  RecordPool pool;
  std::mt19937 random(3);
  std::deque<std::pair<const unsigned char*, std::string>> held;
  std::size_t most = 0;
  std::size_t bytes = 0;
  for (int i = 0; i < 50000; ++i) {
    const std::string record(random() % (i % 100 == 0 ? 65536 : 200), static_cast<char>(i));
    held.emplace_back(pool.copy(asBytes(record)), record);
    bytes += record.size();
    while (held.size() > 2000 + random() % 100) {
      const std::size_t which = random() % 10;
      const auto& [copy, text] = held[which];
      ASSERT_EQ(std::memcmp(copy, text.data(), text.size()), 0);
      bytes -= text.size();
      pool.free(copy);
      held.erase(held.begin() + static_cast<std::ptrdiff_t>(which));
    }
    most = std::max(most, bytes);
    ASSERT_GE(pool.usedBytes(), bytes);
    ASSERT_LE(pool.usedBytes(), 2 * most + 2 * 1024 * 1024);
  }
  for (const auto& [copy, text] : held) {
    ASSERT_EQ(std::memcmp(copy, text.data(), text.size()), 0);
    pool.free(copy);
  }
}
