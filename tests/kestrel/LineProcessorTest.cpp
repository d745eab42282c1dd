#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/LineProcessor.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Lines : public kestrel::LineProcessor {
 public:
  void processLine(const std::string& line) override {
    lines.push_back(line);
    numbers.push_back(getLineCount());
  }
  void push(const std::string& text) { processBuffer(text.data(), static_cast<int>(text.size())); }

  std::vector<std::string> lines;
  std::vector<unsigned int> numbers;
};

// Sees every byte before the lines do.
class Bytes : public Lines {
 public:
  void processChar(char c) override {
    bytes += c;
    LineProcessor::processChar(c);
  }
  std::string bytes;
};

// Hands blocks out byte by byte, as a filter would that has its own idea of a block.
class ByteByByte : public Lines {
 public:
  void processBuffer(const char* data, int length) override {
    for (int i = 0; i < length; ++i) {
      processChar(data[i]);
    }
  }
};

TEST(LineProcessorTest, EveryByteOfABlockReachesAnOverriddenProcessChar) {
  Bytes processor;
  processor.push("a\r\nb\n");
  EXPECT_EQ(processor.bytes, "a\r\nb\n");
  EXPECT_THAT(processor.lines, ElementsAre("a", "b"));
}

TEST(LineProcessorTest, ABlockOperationMayHandOutBytes) {
  ByteByByte processor;
  processor.push("a\r\nb");
  processor.processEOF();
  EXPECT_THAT(processor.lines, ElementsAre("a", "b"));
}

TEST(LineProcessorTest, CarriageReturnBeforeLineFeedIsDroppedAndTheLastLineNeedsNoLineFeed) {
  Lines processor;
  processor.push("a\r\nb");
  EXPECT_THAT(processor.lines, ElementsAre("a"));
  processor.processEOF();
  EXPECT_THAT(processor.lines, ElementsAre("a", "b"));
  EXPECT_THAT(processor.numbers, ElementsAre(1u, 2u));
}

TEST(LineProcessorTest, LoneCarriageReturnAtTheEndDeliversOneMoreEmptyLine) {
  Lines processor;
  processor.push("a\n\r");
  processor.processEOF();
  EXPECT_THAT(processor.lines, ElementsAre("a", ""));
}

TEST(LineProcessorTest, CarriageReturnInsideALineIsDropped) {
  Lines processor;
  processor.push("a\rb\n");
  EXPECT_THAT(processor.lines, ElementsAre("ab"));
}

TEST(LineProcessorTest, EmptyStreamDeliversNothing) {
  Lines processor;
  processor.processEOF();
  EXPECT_THAT(processor.lines, IsEmpty());
}

TEST(LineProcessorTest, StreamThatEndsWithALineFeedDeliversNoExtraLine) {
  Lines processor;
  processor.push("a\nb\n");
  processor.processEOF();
  EXPECT_THAT(processor.lines, ElementsAre("a", "b"));
}

TEST(LineProcessorTest, SecondEndOfDataDoesNothing) {
  Lines processor;
  processor.push("a");
  processor.processEOF();
  processor.processEOF();
  processor.push("b\n");
  processor.processEOF();
  EXPECT_THAT(processor.lines, ElementsAre("a"));
}

TEST(LineProcessorTest, AfterAnErrorEverythingIsIgnoredUntilReset) {
  Lines processor;
  processor.push("cut");
  processor.processError("broken");
  processor.push(" off\n");
  processor.processEOF();
  EXPECT_THAT(processor.lines, IsEmpty());

  processor.reset();
  processor.push("new\n");
  EXPECT_THAT(processor.lines, ElementsAre("new"));
  EXPECT_THAT(processor.numbers, ElementsAre(1u));
}

TEST(LineProcessorTest, ResetForgetsTheUnfinishedLineAndItsPendingCharacters) {
  Lines processor;
  processor.push("x\nhalf");
  processor.reset();
  processor.processEOF();
  EXPECT_THAT(processor.lines, ElementsAre("x"));
  processor.reset();
  processor.push("y\n");
  EXPECT_THAT(processor.lines, ElementsAre("x", "y"));
  EXPECT_THAT(processor.numbers, ElementsAre(1u, 1u));  // the count starts again
}

TEST(LineProcessorTest, TwoLineFeedsInARowDeliverAnEmptyLine) {
  Lines processor;
  processor.push("a\n\nb\n");
  EXPECT_THAT(processor.lines, ElementsAre("a", "", "b"));
}

TEST(LineProcessorTest, LinesMayBeSplitAnywhereAcrossBuffers) {
  Lines processor;
  for (const char* piece : {"fi", "rst\r", "\nsec", "ond", "\n"}) {
    processor.push(piece);
  }
  EXPECT_THAT(processor.lines, ElementsAre("first", "second"));
}

TEST(LineProcessorTest, ALineOfAMegabyteAndAnyByteIsDeliveredWhole) {
  Lines processor;
  const std::string line = std::string(1 << 20, 'x') + std::string("\0\xff\x80", 3);
  processor.push(line + "\n");
  EXPECT_THAT(processor.lines, ElementsAre(line));
}

TEST(LineProcessorTest, BufferLengthOfZeroOrLessDoesNothing) {
  Lines processor;
  processor.processBuffer("abc\n", 0);
  processor.processBuffer("abc\n", -1);
  processor.processBuffer(nullptr, 0);
  processor.processEOF();
  EXPECT_THAT(processor.lines, IsEmpty());
}

class Chars : public kestrel::CharProcessor {
 public:
  void processChar(char c) override { text.push_back(c); }
  std::string text;
};

TEST(CharProcessorTest, HandsOverEachByteInOrder) {
  Chars processor;
  processor.processBuffer("abc", 2);
  processor.processBuffer("d\0e", 3);
  EXPECT_EQ(processor.text, std::string("abd\0e", 5));
}

TEST(CharProcessorTest, EndErrorAndResetDoNothingByThemselves) {
  Chars processor;
  processor.processEOF();
  processor.processError("ignored");
  processor.reset();
  processor.processBuffer("a", 1);
  EXPECT_EQ(processor.text, "a");
}

}  // namespace
