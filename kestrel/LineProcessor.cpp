#include "kestrel/LineProcessor.h"

#include <limits>

namespace kestrel {

void LineProcessor::processChar(char c) {
  if (finished_ != 0) {
    return;
  }
  if (pending_ < std::numeric_limits<std::int32_t>::max()) {
    ++pending_;
  }
  if (c == '\n') {
    pending_ = 0;
    ++lineCount_;
    processLine(line_);
    line_.clear();
  } else if (c != '\r') {
    line_.push_back(c);
  }
}

void LineProcessor::processEOF() {
  if (finished_ != 0) {
    return;
  }
  finished_ = 1;
  if (pending_ > 0) {
    pending_ = 0;
    ++lineCount_;
    processLine(line_);
  }
}

void LineProcessor::processError(const char* /*message*/) { finished_ = 1; }

void LineProcessor::reset() {
  finished_ = 0;
  lineCount_ = 0;
  pending_ = 0;
  line_.clear();
}

}  // namespace kestrel
