// How much memory a run may take.
#pragma once

#include <cstddef>

#include <gtest/gtest.h>

#include "tests/app/ProgramRun.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(TRACEMILL_EMULATED)
inline constexpr bool IS_MEMORY_MEASURABLE = false;  // most of it is not the program's own
#else
inline constexpr bool IS_MEMORY_MEASURABLE = true;
#endif

// The program without a recording, and the part of the test's process that a fork takes along.
inline constexpr std::size_t MOST_MEMORY_AT_REST = std::size_t{32} << 20;
// Bytes of memory for each byte that a file holds.
inline constexpr std::size_t MOST_MEMORY_PER_BYTE = 64;

inline void expectPeakMemoryWithin(const ProgramResult& result, std::size_t fileSize) {
  if (IS_MEMORY_MEASURABLE) {
    EXPECT_LT(result.peakMemory, MOST_MEMORY_AT_REST + MOST_MEMORY_PER_BYTE * fileSize);
  }
}
