#include "tests/fuzz/AllocationMeter.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <sanitizer/asan_interface.h>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

namespace {

constexpr std::size_t BYTES_PER_INPUT_BYTE = 64;

std::atomic<long long> heldBytes{0};
std::atomic<long long> peakBytes{0};

void count(long long bytes) {
  const long long held = heldBytes.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  if (held > peakBytes.load(std::memory_order_relaxed)) {
    peakBytes.store(held, std::memory_order_relaxed);
  }
}

// Large blocks are kept for the next input: a sanitizer's allocator gets each from the system and
// gives it back, which would take a third of the time. Whoever touches one meanwhile is found out
// all the same.
constexpr std::size_t SMALLEST_KEPT = 96 * 1024;
std::array<std::atomic<void*>, 8> keptBlocks{};

bool keepBlock(void* block, std::size_t size) {
  if (size < SMALLEST_KEPT) {
    return false;
  }
  ASAN_POISON_MEMORY_REGION(block, size);
  for (std::atomic<void*>& kept : keptBlocks) {
    void* none = nullptr;
    if (kept.compare_exchange_strong(none, block)) {
      return true;
    }
  }
  ASAN_UNPOISON_MEMORY_REGION(block, size);
  return false;
}

// Null when there is none of this size.
void* takeKeptBlock(std::size_t size) {
  if (size < SMALLEST_KEPT) {
    return nullptr;
  }
  for (std::atomic<void*>& kept : keptBlocks) {
    void* const block = kept.exchange(nullptr);
    if (block == nullptr) {
      continue;
    }
    const std::size_t itsSize = malloc_usable_size(block);
    if (itsSize >= size && itsSize - size < 4096) {
      ASAN_UNPOISON_MEMORY_REGION(block, size);
      return block;
    }
    void* none = nullptr;
    if (!kept.compare_exchange_strong(none, block)) {
      ASAN_UNPOISON_MEMORY_REGION(block, itsSize);
      std::free(block);
    }
  }
  return nullptr;
}

}  // namespace

// All forms but the aligned ones, also those that the standard library would send through these: a
// sanitizer's own forms would take their place.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  void* block = takeKeptBlock(size);
  if (block == nullptr) {
    block = std::malloc(size == 0 ? 1 : size);
  }
  if (block != nullptr) {
    count(static_cast<long long>(malloc_usable_size(block)));
  }
  return block;
}

void* operator new(std::size_t size) {
  void* const block = operator new(size, std::nothrow);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new[](std::size_t size, const std::nothrow_t& none) noexcept {
  return operator new(size, none);
}

void operator delete(void* block) noexcept {
  if (block == nullptr) {
    return;
  }
  const std::size_t size = malloc_usable_size(block);
  count(-static_cast<long long>(size));
  if (!keepBlock(block, size)) {
    std::free(block);
  }
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { operator delete(block); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { operator delete(block); }

AllocationMeter::AllocationMeter() {
  heldBytes = 0;
  peakBytes = 0;
}

std::size_t AllocationMeter::peak() const { return static_cast<std::size_t>(peakBytes.load()); }

void requireBoundedMemory(const AllocationMeter& meter, std::size_t inputSize,
                          std::size_t constant) {
  const std::size_t peak = meter.peak();
  if (peak > constant + BYTES_PER_INPUT_BYTE * inputSize) {
    reportFinding(std::to_string(peak) + " bytes of memory for an input of " +
                  std::to_string(inputSize));
  }
}
