// Assembles a byte stream into lines. A line ends at a line feed; carriage returns are dropped
// wherever they stand; there is no limit on a line's length.
#pragma once

#include <cstdint>
#include <string>

#include "kestrel/CharProcessor.h"

namespace kestrel {

class LineProcessor : public CharProcessor {
 public:
  void processChar(char c) override;
  // Both end the stream: what comes later is ignored until reset(). A last line without line feed
  // is delivered by processEOF() and lost with processError(), which does nothing with the message.
  void processEOF() override;
  void processError(const char* message) override;
  void reset() override;
  // The line without its line feed, borrowed for the call.
  virtual void processLine(const std::string& line) = 0;

 protected:
  // Lines delivered so far; while processLine runs, the number of its line, from 1.
  std::uint32_t getLineCount() const { return lineCount_; }
  // As processChar() for each byte, without a call for each: for the processBuffer() of subclasses
  // that take long texts and do not override processChar().
  void takeBlock(const char* data, int length);

 private:
  void _take(const char* begin, const char* end);
  void _endLine();

  std::uint32_t finished_ = 0;  // 1 once the stream has ended
  std::uint32_t lineCount_ = 0;
  // Characters since the last line feed, dropped carriage returns included: a lone one at the end
  // of the data makes one more, empty line. Sticks at its maximum.
  std::int32_t pending_ = 0;
  std::string line_;
};

}  // namespace kestrel
