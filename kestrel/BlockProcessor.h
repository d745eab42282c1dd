// A consumer of a byte stream: whoever reads the data pushes it block by block, and ends with
// processEOF() or processError(). One thread at a time.
#pragma once

namespace kestrel {

class BlockProcessor {
 public:
  virtual ~BlockProcessor() = default;
  // The bytes are borrowed for the call.
  virtual void processBuffer(const char* data, int length) = 0;
  virtual void processEOF() {}
  virtual void processError(const char* /*message*/) {}
  // Makes the object ready for another stream.
  virtual void reset() {}
};

}  // namespace kestrel
