// Writes blocks of bytes to a descriptor on a thread of its own, so that whoever makes the bytes
// does not wait while the system copies them: a sixth of a conversion. One block is written while
// the next is filled. Where the system gives no thread, blocks are written at once.
#pragma once

#include <cstddef>
#include <thread>
#include <vector>

#include "kestrel/Lock.h"

namespace kestrel {

class BackgroundWriter {
 public:
  // Borrows the descriptor. `blockSize` bytes are the largest block.
  BackgroundWriter(int descriptor, std::size_t blockSize);
  BackgroundWriter(const BackgroundWriter&) = delete;
  BackgroundWriter& operator=(const BackgroundWriter&) = delete;
  // Waits until everything is written.
  ~BackgroundWriter();

  // Takes the first `size` bytes of `block`, and gives another block of the same size for it. Waits
  // for the block before. False once a block could not be written; then nothing more is.
  bool write(std::vector<char>& block, std::size_t size);
  // Waits until everything is written. False when anything could not be.
  bool finish();

  // Writes all the bytes now, on the calling thread. False when not all of them could be written.
  static bool writeWhole(int descriptor, const char* bytes, std::size_t size);

 private:
  void _run();
  void _writeBlocks() REQUIRES(lock_);

  int descriptor_;
  Lock lock_;
  std::vector<char> block_;  // the writing thread's while size_ is above 0
  std::size_t size_ GUARDED_BY(lock_) = 0;
  bool isFailed_ GUARDED_BY(lock_) = false;
  bool isEnding_ GUARDED_BY(lock_) = false;
  std::thread thread_;
};

}  // namespace kestrel
