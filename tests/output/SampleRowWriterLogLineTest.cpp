// What stands where when something is logged while a row is made.
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "output/SampleRowWriter.h"
#include "tests/output/PlainRows.h"
#include "tests/output/RowStreams.h"

namespace {

using Mode = SampleRowWriter::Mode;

// A row that has nothing but its number.
PlainRow rowOf(uint32_t number) {
  PlainRow plain;
  plain.row.number = number;
  return plain;
}

}  // namespace

TEST(SampleRowWriterLogLineTest, WhatWasGivenOfARowStandsBeforeTheLine) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  SampleRowWriter rows(Mode::AtOnce, PRECISION);
  give(rows, writer, rowOf(1));
  rows.begin(writer, 3) = {.number = 2, .cpu = 3, .tid = 6, .time = 1.25, .place = {10, 11}};
  rows.addCaller({20, 21});
  rows.expectLogLine();
  EXPECT_EQ(out.str(), "[[1,0,0,0,0,0,0,[]],[2,10,11,1.25,3,6,6,[[20,21]");
  rows.expectLogLine();
  rows.addCaller({30, 31});
  rows.expectLogLine();
  EXPECT_EQ(out.str(), "[[1,0,0,0,0,0,0,[]],[2,10,11,1.25,3,6,6,[[20,21],[30,31]");
  rows.addCaller({40, 41});
  rows.end();
  PlainRow third = rowOf(3);
  third.callers = {{50, 51}};
  give(rows, writer, third);
  rows.finish();
  writer.endArray();
  EXPECT_EQ(out.str(),
            "[[1,0,0,0,0,0,0,[]],[2,10,11,1.25,3,6,6,[[20,21],[30,31],[40,41]]],"
            "[3,0,0,0,0,0,0,[[50,51]]]]");
}

TEST(SampleRowWriterLogLineTest, RowWithoutCallersSoFar) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  SampleRowWriter rows(Mode::AtOnce, PRECISION);
  rows.begin(writer, 1).number = 1;
  rows.expectLogLine();
  EXPECT_EQ(out.str(), "[[1,0,0,0,0,0,0,[");
  rows.end();
  EXPECT_EQ(out.str(), "[[1,0,0,0,0,0,0,[]]");
}

TEST(SampleRowWriterLogLineTest, WithoutARowInHandNothingIsWritten) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  SampleRowWriter rows(Mode::AtOnce, PRECISION);
  rows.expectLogLine();
  EXPECT_EQ(out.str(), "");
  writer.startArray();
  give(rows, writer, {});
  rows.expectLogLine();
  EXPECT_EQ(out.str(), "[[0,0,0,0,0,0,0,[]]");
}

TEST(SampleRowWriterLogLineTest, NothingIsWrittenForItInTheBackground) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.startArray();
  SampleRowWriter rows(Mode::InBackground, PRECISION);
  rows.expectLogLine();
  rows.begin(writer, 2).number = 1;
  rows.expectLogLine();
  rows.addCaller({2, 3});
  rows.expectLogLine();
  EXPECT_EQ(out.str(), "[");
  rows.addCaller({4, 5});
  rows.end();
  rows.finish();
  EXPECT_EQ(out.str(), "[[1,0,0,0,0,0,0,[[2,3],[4,5]]]");
}

TEST(SampleRowWriterLogLineTest, LinesAmongManyRowsChangeNoneOfThem) {
  const std::vector<PlainRow> plains = manyRows(6 * ROWS_IN_BATCH);
  for (const Mode mode : {Mode::AtOnce, Mode::InBackground}) {
    std::ostringstream out;
    kestrel::JsomWriter writer(&out);
    writer.startArray();
    SampleRowWriter rows(mode, PRECISION);
    for (const PlainRow& plain : plains) {
      rows.begin(writer, plain.callers.size()) = plain.row;
      for (const SampleRow::Place& caller : plain.callers) {
        if (plain.row.number % 3 == 0) {
          rows.expectLogLine();
        }
        rows.addCaller(caller);
      }
      rows.end();
    }
    rows.finish();
    writer.endArray();
    EXPECT_TRUE(out.str() == plainText(plains, PRECISION));
  }
}
