// How much heap a stretch of code holds at its worst moment. Counts what goes through operator new,
// which this file's companion replaces for the whole program: the containers, strings and streams
// of the program under test, but not what C libraries take from malloc() themselves. One meter at a
// time.
#pragma once

#include <cstddef>

class AllocationMeter {
 public:
  // Counting starts here, from zero.
  AllocationMeter();

  // The most bytes held at once since then, beyond those that were held at the start.
  std::size_t peak() const;
};

// Reports a finding when reading `inputSize` bytes took more than the program promises: a constant
// plus 64 bytes for each byte of input.
inline constexpr std::size_t MEMORY_AT_REST = std::size_t{1024} * 1024;
void requireBoundedMemory(const AllocationMeter& meter, std::size_t inputSize,
                          std::size_t constant = MEMORY_AT_REST);
