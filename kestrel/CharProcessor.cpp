#include "kestrel/CharProcessor.h"

namespace kestrel {

void CharProcessor::processBuffer(const char* data, int length) {
  for (int i = 0; i < length; ++i) {
    processChar(data[i]);
  }
}

}  // namespace kestrel
