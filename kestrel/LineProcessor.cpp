#include "kestrel/LineProcessor.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace kestrel {

namespace {

// The first such byte, or the end. Faster than std::find.
const char* _find(const char* begin, const char* end, char byte) {
  const void* const found = std::memchr(begin, byte, static_cast<std::size_t>(end - begin));
  return found == nullptr ? end : static_cast<const char*>(found);
}

}  // namespace

void LineProcessor::processChar(char c) {
  if (finished_ != 0) {
    return;
  }
  if (c == '\n') {
    _endLine();
  } else {
    _take(&c, &c + 1);
  }
}

void LineProcessor::takeBlock(const char* data, int length) {
  const char* const end = data + std::max(length, 0);
  while (data != end && finished_ == 0) {
    const char* const lineEnd = _find(data, end, '\n');
    _take(data, lineEnd);
    data = lineEnd;
    if (data != end) {
      ++data;
      _endLine();
    }
  }
}

// Bytes of the current line.
void LineProcessor::_take(const char* begin, const char* end) {
  constexpr std::ptrdiff_t MOST = std::numeric_limits<std::int32_t>::max();
  pending_ += static_cast<std::int32_t>(std::min(end - begin, MOST - pending_));
  while (begin != end) {
    const char* const dropped = _find(begin, end, '\r');
    line_.append(begin, dropped);
    begin = dropped == end ? end : dropped + 1;
  }
}

void LineProcessor::_endLine() {
  pending_ = 0;
  ++lineCount_;
  processLine(line_);
  line_.clear();
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
