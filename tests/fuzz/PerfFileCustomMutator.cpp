// Lets libFuzzer change recordings by their structure. One change in eight is libFuzzer's own, on
// the bytes.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "tests/fuzz/PerfFileMutator.h"

// The names are libFuzzer's.
extern "C" std::size_t LLVMFuzzerMutate(uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed);
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const uint8_t* one, std::size_t oneSize,
                                                 const uint8_t* other, std::size_t otherSize,
                                                 uint8_t* out, std::size_t maxSize, unsigned seed);

namespace {

std::string_view viewOf(const uint8_t* data, std::size_t size) {
  return std::string_view(reinterpret_cast<const char*>(data), size);
}

std::size_t put(const std::string& bytes, uint8_t* out, std::size_t maxSize) {
  const std::size_t size = std::min(bytes.size(), maxSize);
  std::memcpy(out, bytes.data(), size);
  return size;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
  if (seed % 8 == 0) {
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  PerfFileMutator mutator(seed);
  return put(size == 0 ? mutator.generate() : mutator.mutate(viewOf(data, size)), data, maxSize);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const uint8_t* one, std::size_t oneSize,
                                                 const uint8_t* other, std::size_t otherSize,
                                                 uint8_t* out, std::size_t maxSize, unsigned seed) {
  PerfFileMutator mutator(seed);
  return put(mutator.crossOver(viewOf(one, oneSize), viewOf(other, otherSize)), out, maxSize);
}
