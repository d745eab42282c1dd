// Arrays of numbers that are handed over as text: the bytes of the same values one by one.
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

std::string asArray(int column, bool hasElement, int length) {
  Writer writer(column, hasElement);
  const std::string text = ones(length);
  writer.writer.appendNumberArray(text.data(), static_cast<int>(text.size()));
  return writer.out.str();
}

}  // namespace

TEST(JsomWriterLine, ArrayIsTheSameAsValueByValueAtEveryColumn) {
  for (const int length : {3, 5, 21, 201}) {
    for (int column = BREAK - length - 4; column <= BREAK + 3; ++column) {
      for (const bool hasElement : {false, true}) {
        ASSERT_EQ(asArray(column, hasElement, length), valueByValue(column, hasElement, length))
            << column << " " << length;
      }
    }
  }
}

TEST(JsomWriterLine, ArrayLongerThanALine) {
  for (const int column : {10, BREAK, BREAK + 1, 3 * BREAK}) {
    for (const int length : {BREAK - 1, BREAK + 1, 3 * BREAK - 1}) {
      EXPECT_TRUE(asArray(column, true, length) == valueByValue(column, true, length)) << column;
    }
  }
}

TEST(JsomWriterLine, ArrayIsCountedForTheNextBreak) {
  Writer writer(BREAK - 9);
  const std::string text = ones(9);
  writer.writer.appendNumberArray(text.data(), 9);
  writer.writer.appendInt(7);
  EXPECT_EQ(writer.out.str(), text + ",\n7");
}

TEST(JsomWriterLine, ArrayBehindACountThatHasReachedItsEnd) {
  struct Nowhere : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize length) override { return length; }
    int_type overflow(int_type byte) override { return byte; }
  } nowhere;
  std::ostream out(&nowhere);
  std::ostringstream seen;
  JsomWriter writer(&out);
  writer.startArray();
  writer.appendInt(1);
  const char byte = 0;
  writer.write(&byte, INT_MAX);  // the bytes are not looked at
  out.rdbuf(seen.rdbuf());
  writer.appendNumberArray("[2]", 3);
  EXPECT_EQ(seen.str(), ",\n[2]");
}

TEST(JsomWriterLine, NumbersOfEveryKindInArraysInTheIndentedLayout) {
  std::ostringstream out;
  JsomWriter writer(&out);
  writer.whitespace = true;
  const std::string text = "[1,-2.5,[],[[3e+16,nan]],-inf]";
  writer.appendNumberArray(text.data(), static_cast<int>(text.size()));
  EXPECT_EQ(out.str(), "[\n 1,\n -2.5,\n [\n ],\n [\n  [\n   3e+16,\n   nan\n  ]\n ],\n -inf\n]");
}

TEST(JsomWriterLine, PiecesOfAnArrayCutBetweenAnyTwoValues) {
  const std::string text = "[1,[2,[]],[[3]],4]";
  for (std::size_t cut = 0; cut <= text.size(); ++cut) {
    for (const bool whitespace : {false, true}) {
      std::ostringstream whole;
      std::ostringstream pieces;
      JsomWriter one(&whole);
      JsomWriter other(&pieces);
      one.whitespace = whitespace;
      other.whitespace = whitespace;
      one.appendNumberArray(text.data(), static_cast<int>(text.size()));
      other.appendArrayPiece(text.data(), static_cast<int>(cut));
      other.appendArrayPiece(text.data() + cut, static_cast<int>(text.size() - cut));
      EXPECT_EQ(pieces.str(), whole.str()) << cut;
    }
  }
}
