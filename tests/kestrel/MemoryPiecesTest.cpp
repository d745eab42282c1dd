#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/MemoryPieces.h"

namespace {

using kestrel::MemoryPieces;

constexpr unsigned HUGE_PAGE = 2 * 1024 * 1024;

struct Taken {
  char* begin;
  std::size_t bytes;
  char fill;
};

Taken fill(MemoryPieces& memory, std::size_t bytes, unsigned number) {
  const Taken taken{memory.take(bytes), bytes, static_cast<char>(number * 7 + 1)};
  std::memset(taken.begin, taken.fill, bytes);
  return taken;
}

// That nothing was given out twice.
void expectUntouched(const std::vector<Taken>& all) {
  for (std::size_t i = 0; i < all.size(); ++i) {
    const std::string expected(all[i].bytes, all[i].fill);
    ASSERT_EQ(std::memcmp(all[i].begin, expected.data(), expected.size()), 0) << i;
  }
}

}  // namespace

TEST(MemoryPiecesTest, BytesStandBehindTheOnesBefore) {
  MemoryPieces memory;
  char* const first = memory.take(24);
  EXPECT_EQ(memory.take(8), first + 24);
  EXPECT_EQ(memory.take(1), first + 32);
  EXPECT_EQ(memory.take(1), first + 33);
}

TEST(MemoryPiecesTest, NoBytesTakeNoRoom) {
  MemoryPieces memory;
  memory.take(0);
  char* const first = memory.take(8);
  memory.take(0);
  EXPECT_EQ(memory.take(8), first + 8);
}

TEST(MemoryPiecesTest, FirstPieceIsFilledToItsLastByte) {
  constexpr std::size_t PIECE = 4096;
  MemoryPieces memory;
  char* const first = memory.take(PIECE - 8);
  EXPECT_EQ(memory.take(8), first + PIECE - 8);
  std::vector<Taken> all{{first, 0, 0}};
  std::memset(first, 1, PIECE);
  all.push_back(fill(memory, 8, 5));
  EXPECT_TRUE(all[1].begin + 8 <= first || all[1].begin >= first + PIECE);
}

TEST(MemoryPiecesTest, WhatFitsNoPieceGetsOneOfItsOwn) {
  MemoryPieces memory;
  std::vector<Taken> all;
  unsigned number = 0;
  for (const unsigned bytes : {5000U, 1U, 3'000'000U, 2U, HUGE_PAGE, 3U, HUGE_PAGE - 1}) {
    all.push_back(fill(memory, bytes, ++number));
  }
  expectUntouched(all);
}

TEST(MemoryPiecesTest, RandomSizesUpToManyMegabytes) {
  std::mt19937 random(3);
  MemoryPieces memory;
  std::vector<Taken> all;
  std::size_t sum = 0;
  for (unsigned number = 0; sum < 12 * 1024 * 1024; ++number) {
    all.push_back(fill(memory, random() % 100 == 0 ? random() % 50000 : random() % 300, number));
    sum += all.back().bytes;
  }
  expectUntouched(all);
}

TEST(MemoryPiecesTest, PlacesAreAlignedWhereAllSizesAre) {
  constexpr std::size_t ALIGNMENT = alignof(std::max_align_t);
  MemoryPieces memory;
  for (std::size_t i = 1; i < 60000; ++i) {
    const auto place = reinterpret_cast<std::uintptr_t>(memory.take(ALIGNMENT * (1 + i % 5)));
    ASSERT_EQ(place % ALIGNMENT, 0U) << i;
  }
}
