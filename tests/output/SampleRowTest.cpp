// Rows as one text against rows written value by value: the bytes must be the same wherever the
// forced line breaks fall.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "output/SampleRow.h"
#include "tests/output/PlainRows.h"

namespace {

constexpr int BREAK_COLUMN = 24576;
constexpr int PRECISION = 6;

// An array of rows, of which `column` bytes are counted before; `behindAnother`: it is not the
// array's first element.
struct Layout {
  int column = 1;
  bool behindAnother = false;
  bool whitespace = false;
};

void open(kestrel::JsomWriter& writer, const Layout& layout) {
  writer.whitespace = layout.whitespace;
  writer.startArray();
  int column = 1;
  if (layout.behindAnother) {
    writer.appendUnsignedInt(7);
    column += 1;
  }
  const std::string blanks(static_cast<std::size_t>(std::max(0, layout.column - column)), ' ');
  writer.write(blanks.data(), static_cast<int>(blanks.size()));
}

std::string plainly(const std::vector<PlainRow>& rows, const Layout& layout, int precision) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  open(writer, layout);
  for (const PlainRow& plain : rows) {
    writePlainly(writer, plain, precision);
  }
  writer.appendUnsignedInt(8);  // has a line break before it if the column is what it should be
  writer.end();
  return out.str();
}

void write(SampleRowText& text, kestrel::JsomWriter& writer, const std::vector<PlainRow>& rows) {
  for (const PlainRow& plain : rows) {
    text.startRow(plain.row);
    for (const SampleRow::Caller& caller : plain.callers) {
      text.addCaller(caller);
    }
    text.endRow(writer);
  }
}

std::string asText(const std::vector<PlainRow>& rows, const Layout& layout = {},
                   int precision = PRECISION) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  open(writer, layout);
  SampleRowText text(precision);
  write(text, writer, rows);
  writer.appendUnsignedInt(8);
  writer.end();
  return out.str();
}

PlainRow longestRow(std::size_t callers) {
  PlainRow plain;
  plain.row.number = UINT32_MAX;
  plain.row.key = UINT64_MAX;
  plain.row.sample.ip = UINT64_MAX;
  plain.row.sample.time = -9'999'999'999'999'998.0;  // the last before the exponent notation
  plain.row.sample.cpu = UINT32_MAX;
  plain.row.sample.tid = UINT32_MAX;
  plain.callers.assign(callers, {UINT64_MAX, UINT64_MAX});
  return plain;
}

// At every column from `first` on.
void expectSameAtColumns(const std::vector<PlainRow>& rows, int first, int last, int step = 1) {
  for (int column = first; column <= last; column += step) {
    for (const bool behindAnother : {false, true}) {
      const Layout layout{.column = column, .behindAnother = behindAnother};
      ASSERT_TRUE(plainly(rows, layout, PRECISION) == asText(rows, layout))
          << "column " << column << (behindAnother ? " behind another" : "");
    }
  }
}

unsigned breaksIn(const std::string& text) {
  return static_cast<unsigned>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

TEST(SampleRowTextTest, RowsWithoutAndWithCallers) {
  const std::vector<PlainRow> rows = {
      {.row = {.sample = {.time = 1.25, .ip = 0x8010, .tid = 6, .cpu = 3}, .key = 9, .number = 1}},
      {.row = {.sample = {.tid = 5}, .number = 2}, .callers = {{1, 2}}},
      {.row = {.sample = {.time = -2.5, .ip = UINT64_MAX, .tid = 4294967295},
               .key = 4,
               .number = 3},
       .callers = {{32784, 6}, {UINT64_MAX, UINT64_MAX}, {0, 0}}}};
  EXPECT_EQ(asText(rows),
            "[[1,32784,9,1.25,3,6,6,[]],"
            "[2,0,0,0,0,5,5,[[1,2]]],"
            "[3,18446744073709551615,4,-2.5,0,4294967295,4294967295,"
            "[[32784,6],[18446744073709551615,18446744073709551615],[0,0]]],8]");
}

TEST(SampleRowTextTest, NoRowsAreNoText) { EXPECT_EQ(asText({}), "[8]"); }

// What is written after the row shows how far the line has come.
TEST(SampleRowTextTest, RowWithoutCallersAtEveryColumnNearTheLineBreak) {
  expectSameAtColumns({plainRow(1, 0)}, BREAK_COLUMN - 500, BREAK_COLUMN + 2);
}

TEST(SampleRowTextTest, RowWithOneCallerAtEveryColumnNearTheLineBreak) {
  expectSameAtColumns({plainRow(2, 1)}, BREAK_COLUMN - 500, BREAK_COLUMN + 2);
}

TEST(SampleRowTextTest, RowWithManyCallersAtColumnsNearTheLineBreak) {
  expectSameAtColumns({plainRow(3, 40)}, BREAK_COLUMN - 2300, BREAK_COLUMN + 2, 7);
}

TEST(SampleRowTextTest, LongestRowAtEveryColumnNearTheLineBreak) {
  expectSameAtColumns({longestRow(1)}, BREAK_COLUMN - 500, BREAK_COLUMN + 2);
}

TEST(SampleRowTextTest, RowsOneAfterTheOtherNearTheLineBreak) {
  expectSameAtColumns({plainRow(4, 0), plainRow(5, 3), plainRow(6, 1), plainRow(7, 0)},
                      BREAK_COLUMN - 700, BREAK_COLUMN + 2);
}

TEST(SampleRowTextTest, RowsFarBehindTheLineBreakBeginANewLineOnce) {
  for (const int column : {BREAK_COLUMN, BREAK_COLUMN + 1, 3 * BREAK_COLUMN}) {
    const std::vector<PlainRow> rows = {plainRow(1, 2), plainRow(2, 2)};
    const Layout layout{.column = column};
    const std::string text = asText(rows, layout);
    EXPECT_EQ(breaksIn(text), 1U) << column;
    EXPECT_EQ(text, plainly(rows, layout, PRECISION)) << column;
  }
}

// From 549 callers of the longest numbers on, not even a line of its own certainly holds the row;
// with 600 none does.
TEST(SampleRowTextTest, RowsThatFillALineAndMore) {
  for (const std::size_t callers : {540U, 548U, 549U, 550U, 600U, 2000U}) {
    const std::vector<PlainRow> rows = {plainRow(1, 1), longestRow(callers), longestRow(callers),
                                        plainRow(2, callers)};
    for (const int column : {1, 2, 27, 28, 29, 100, BREAK_COLUMN - 1, BREAK_COLUMN}) {
      const Layout layout{.column = column};
      const std::string text = asText(rows, layout);
      ASSERT_TRUE(text == plainly(rows, layout, PRECISION)) << callers << " at " << column;
      EXPECT_GT(breaksIn(text), 0U);
    }
  }
}

TEST(SampleRowTextTest, ManyLines) {
  std::vector<PlainRow> rows;
  for (uint32_t number = 1; number <= 6000; ++number) {
    rows.push_back(plainRow(number, number % 11 == 0 ? number % 70 : number % 3));
  }
  const std::string text = asText(rows);
  EXPECT_GT(breaksIn(text), 10U);
  EXPECT_TRUE(text == plainly(rows, {}, PRECISION));
}

TEST(SampleRowTextTest, TimesOfEveryKindAndPrecision) {
  constexpr double INFINITE = std::numeric_limits<double>::infinity();
  const double times[] = {0.0,
                          -0.0,
                          0.1,
                          1.25,
                          -1e-7,
                          0.9999999999,
                          1234567890.123456789,
                          9'999'999'999'999'998.0,
                          1e16,
                          10'000'000'000'000'002.0,
                          -1e17,
                          1e300,
                          std::numeric_limits<double>::max(),
                          -std::numeric_limits<double>::max(),
                          std::numeric_limits<double>::denorm_min(),
                          INFINITE,
                          -INFINITE,
                          std::nan("")};
  for (const int precision : {-1, 0, 1, 3, 6, 9, 15, 32, 33, 254, 255, 256, 300, 5000, INT_MAX}) {
    std::vector<PlainRow> rows;
    for (const double time : times) {
      rows.push_back(plainRow(3, 1));
      rows.back().row.sample.time = time;
    }
    ASSERT_EQ(asText(rows, {}, precision), plainly(rows, {}, precision)) << precision;
  }
}

TEST(SampleRowTextTest, TimeOf255BytesNearTheLineBreak) {
  PlainRow plain = plainRow(1, 1);
  plain.row.sample.time = -1.0 / 3;
  for (int column = BREAK_COLUMN - 460; column <= BREAK_COLUMN; ++column) {
    const Layout layout{.column = column};
    ASSERT_EQ(asText({plain}, layout, 1000), plainly({plain}, layout, 1000)) << column;
  }
}

TEST(SampleRowTextTest, HugeTimeInOneRow) {
  PlainRow plain;
  plain.row.sample.time = 2e16;
  EXPECT_EQ(asText({plain}), "[[0,0,0,2.000000e+16,0,0,0,[]],8]");
}

TEST(SampleRowTextTest, IndentedLayoutHasEveryValueOnALineOfItsOwn) {
  const std::vector<PlainRow> rows = {
      {.row = {.sample = {.time = 1.25, .ip = 2, .tid = 6, .cpu = 3}, .key = 9, .number = 1},
       .callers = {{4, 5}}}};
  EXPECT_EQ(asText(rows, {.whitespace = true}),
            "[\n [\n  1,\n  2,\n  9,\n  1.25,\n  3,\n  6,\n  6,\n  [\n   [\n    4,\n    5\n   ]\n"
            "  ]\n ],\n 8\n]");
}

TEST(SampleRowTextTest, IndentedLayoutNearTheLineBreak) {
  const std::vector<PlainRow> rows = {plainRow(1, 2), plainRow(2, 0)};
  for (int column = BREAK_COLUMN - 120; column <= BREAK_COLUMN + 2; ++column) {
    for (const bool behindAnother : {false, true}) {
      const Layout layout{.column = column, .behindAnother = behindAnother, .whitespace = true};
      ASSERT_EQ(asText(rows, layout), plainly(rows, layout, PRECISION)) << column;
    }
  }
}

// As where something is logged in between.
TEST(SampleRowTextTest, RowWhoseBeginningIsWrittenBeforeItsEnd) {
  for (const int column : {1, BREAK_COLUMN - 60, BREAK_COLUMN - 20}) {
    for (const std::size_t given : {0U, 1U, 4U, 5U}) {
      const std::vector<PlainRow> rows = {plainRow(9, 5), plainRow(10, 1)};
      std::ostringstream out;
      kestrel::JsomWriter writer(&out);
      open(writer, {.column = column});
      SampleRowText text(PRECISION);
      text.startRow(rows[0].row);
      for (std::size_t i = 0; i < 5; ++i) {
        if (i == given) {
          text.writeBeginning(writer);
          const std::string sofar = out.str();
          text.writeBeginning(writer);
          EXPECT_EQ(out.str(), sofar);
        }
        text.addCaller(rows[0].callers[i]);
      }
      if (given == 5) {
        text.writeBeginning(writer);
      }
      text.endRow(writer);
      text.writeBeginning(writer);  // nothing
      write(text, writer, {rows[1]});
      writer.appendUnsignedInt(8);
      writer.end();
      EXPECT_EQ(out.str(), plainly(rows, {.column = column}, PRECISION)) << given;
    }
  }
}

TEST(SampleRowTextTest, RowThatWasNeverEndedIsDropped) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  SampleRowText text(PRECISION);
  text.startRow(plainRow(1, 0).row);
  text.addCaller({1, 2});
  write(text, writer, {plainRow(2, 1)});
  writer.endArray();
  EXPECT_EQ(out.str(), plainText({plainRow(2, 1)}, PRECISION));
}
