// A consumer of a byte stream. Whoever reads the stream pushes it in, block by block, and then
// calls processEOF() or, when it could not be read, processError(). One thread at a time.
#pragma once

namespace kestrel {

class BlockProcessor {
 public:
  virtual ~BlockProcessor() = default;
  // The bytes are borrowed for the call.
  virtual void processBuffer(const char* data, int length) = 0;
  virtual void processEOF() {}
  virtual void processError(const char* /*message*/) {}
  // Called before another stream; the base class keeps nothing of the one before.
  virtual void reset() {}
};

}  // namespace kestrel
