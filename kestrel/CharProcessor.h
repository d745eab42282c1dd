// A BlockProcessor that takes its stream byte by byte.
#pragma once

#include "kestrel/BlockProcessor.h"

namespace kestrel {

class CharProcessor : public BlockProcessor {
 public:
  // A length of 0 or less does nothing.
  void processBuffer(const char* data, int length) override;
  virtual void processChar(char c) = 0;
};

}  // namespace kestrel
