// Whether finished text may be handed over as one value: what holdsOnLine() says.
#include <climits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"

using kestrel::JsomWriter;

namespace {

constexpr int BREAK = 24576;

// A writer inside an array, with so many bytes counted on its line.
class Writer {
 public:
  explicit Writer(int column, bool hasElement = false) {
    writer.startArray();
    if (hasElement) {
      writer.appendInt(1);
    }
    fill(column - (hasElement ? 2 : 1));
    out.str("");
  }

  void fill(int bytes) {
    const std::string blanks(static_cast<std::size_t>(bytes), ' ');
    writer.write(blanks.data(), bytes);
  }

  std::ostringstream out;
  JsomWriter writer{&out};
};

// The array [1,1,...] of so many bytes: an odd number.
std::string ones(int length) {
  std::string text = "[1";
  while (static_cast<int>(text.size()) < length - 1) {
    text += ",1";
  }
  return text + "]";
}

std::string valueByValue(int column, bool hasElement, int length) {
  Writer writer(column, hasElement);
  writer.writer.startArray();
  for (int i = 0; i < length / 2; ++i) {
    writer.writer.appendInt(1);
  }
  writer.writer.endArray();
  return writer.out.str();
}

std::string atOnce(int column, bool hasElement, int length) {
  Writer writer(column, hasElement);
  const std::string text = ones(length);
  writer.writer.appendJsonValue(text.data(), static_cast<int>(text.size()));
  return writer.out.str();
}

}  // namespace

TEST(JsomWriterLine, HoldsWhatEndsAtTheBreak) {
  const Writer first(BREAK - 1000);
  EXPECT_TRUE(first.writer.holdsOnLine(1000));
  EXPECT_FALSE(first.writer.holdsOnLine(1001));
}

TEST(JsomWriterLine, TheCommaBeforeAnotherElementCounts) {
  const Writer later(BREAK - 1000, true);
  EXPECT_TRUE(later.writer.holdsOnLine(999));
  EXPECT_FALSE(later.writer.holdsOnLine(1000));
}

TEST(JsomWriterLine, BehindTheBreakAWholeLineIsFree) {
  for (const int column : {BREAK, BREAK + 1, 3 * BREAK}) {
    const Writer first(column);
    EXPECT_TRUE(first.writer.holdsOnLine(BREAK));
    EXPECT_FALSE(first.writer.holdsOnLine(BREAK + 1));
  }
  const Writer later(BREAK - 1, true);  // the comma reaches the break
  EXPECT_TRUE(later.writer.holdsOnLine(BREAK));
}

TEST(JsomWriterLine, NeverInTheIndentedLayout) {
  Writer indented(10);
  indented.writer.whitespace = true;
  EXPECT_FALSE(indented.writer.holdsOnLine(1));
}

TEST(JsomWriterLine, WhatHoldsIsTheSameAtOnceAsValueByValue) {
  unsigned held = 0;
  for (const int length : {3, 5, 21, 201}) {
    for (int column = BREAK - length - 4; column <= BREAK + 3; ++column) {
      for (const bool hasElement : {false, true}) {
        if (Writer(column, hasElement).writer.holdsOnLine(length)) {
          ++held;
          ASSERT_EQ(valueByValue(column, hasElement, length), atOnce(column, hasElement, length))
              << column << " " << length;
        }
      }
    }
  }
  EXPECT_GT(held, 40U);
}

TEST(JsomWriterLine, TextHandedOverIsCountedForTheNextBreak) {
  Writer writer(BREAK - 9);
  const std::string text = ones(9);
  writer.writer.appendJsonValue(text.data(), 9);
  writer.writer.appendInt(7);
  EXPECT_EQ(writer.out.str(), text + ",\n7");
}

TEST(JsomWriterLine, TheNextLineHoldsWhatFitsItOnceTheCountHasReachedItsEnd) {
  struct Nowhere : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize length) override { return length; }
    int_type overflow(int_type byte) override { return byte; }
  } nowhere;
  std::ostream out(&nowhere);
  JsomWriter writer(&out);
  writer.startArray();
  writer.appendInt(1);
  const char byte = 0;
  writer.write(&byte, INT_MAX);  // the bytes are not looked at
  EXPECT_TRUE(writer.holdsOnLine(BREAK));
  EXPECT_FALSE(writer.holdsOnLine(BREAK + 1));
}
