#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/DocumentPieces.h"
#include "report/DocumentReader.h"
#include "report/DocumentTables.h"
#include "report/ReportError.h"

namespace report {

namespace {

using testing::HasSubstr;

constexpr char TABLES[] = R"tables(
  "libraries":{"descriptions":{},"data":[[1,0,"kernel",9,1],[2,5,"/bin/app",4096,1]]},
  "functions":{"descriptions":{},"data":[[7,"run(int)",1,2,[2]]]},
  "processes":{"descriptions":{},"data":[[5,5,5,"app"]]},
  "files":{"descriptions":{},"data":[[1,"/src/a.cpp",[[7,0]]]]}})tables";

std::unique_ptr<std::FILE, int (*)(std::FILE*)> fileOf(const std::string& text) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
  std::fwrite(text.data(), 1, text.size(), file.get());
  std::rewind(file.get());
  return file;
}

std::string documentOf(const std::string& rows) {
  return R"({"samples":{"descriptions":{"key":"]}\"{["},"data":[)" + rows + "]}," + TABLES;
}

Profile read(const std::string& text) { return readDocument(*fileOf(text), "FILE"); }

std::string problemOf(const std::string& text) {
  try {
    read(text);
    return "none";
  } catch (const ReportError& problem) {
    return problem.what();
  }
}

}  // namespace

TEST(DocumentPiecesTest, ARow) {
  const Profile profile = read(documentOf("[1,100,7,1.5,3,5,5,[[100,7],[200,2]]]"));
  ASSERT_EQ(profile.samples.size(), 1U);
  EXPECT_EQ(profile.samples.times[0], 1500000000);
  EXPECT_EQ(profile.samples.cpus[0], 3U);
  EXPECT_EQ(profile.timeDigits, 1U);
  // The address itself begins the chain; it counts once.
  EXPECT_EQ(profile.stacks.size(), 3U);
  const uint32_t leaf = profile.samples.stacks[0];
  EXPECT_EQ(profile.frames[profile.stacks.frame(leaf)].name, "run(int)");
  EXPECT_EQ(profile.frames[profile.stacks.frame(profile.stacks.parent(leaf))].name, "[app]");
  EXPECT_EQ(profile.files[profile.frames[profile.stacks.frame(leaf)].file], "/src/a.cpp");
}

TEST(DocumentPiecesTest, AMarkerIsNoCall) {
  // PERF_CONTEXT_USER, between the address and its caller; and in front of the address.
  const Profile between =
      read(documentOf("[1,100,7,1,3,5,5,[[100,7],[18446744073709551104,1],[200,2]]]"));
  EXPECT_EQ(between.stacks.size(), 3U);
  const Profile before = read(documentOf("[1,100,7,1,3,5,5,[[18446744073709551104,1],[100,7]]]"));
  EXPECT_EQ(before.stacks.size(), 2U);
}

// Rows are cut wherever a piece of a mebibyte ends; a row of a few bytes more each time tries them
// all.
TEST(DocumentPiecesTest, RowsAreWholeWhereverAPieceEnds) {
  const std::string row = "[1,100,7,1,3,5,5,[[100,7],[200,2]]]";
  std::string rows;
  std::size_t count = 0;
  while (rows.size() < (1 << 20) + 100) {
    rows += (count++ == 0 ? "" : ",") + row;
  }
  for (std::size_t shift = 0; shift < row.size(); shift += 5) {
    ASSERT_EQ(read(documentOf(std::string(shift, ' ') + rows)).samples.size(), count) << shift;
  }
}

TEST(DocumentPiecesTest, BlanksAndLineFeedsBetweenValues) {
  const Profile profile = read(
      "{ \"samples\" :\n{ \"descriptions\" : { \"a\" : \"b\" , \"c\" : \"d\" } , \"data\" : [\n[ 1 , 100 , 7 , 1 , 3 , 5 , 5 , [ ] ]\n,\n[2,100,7,2,3,5,5,[]] ]\n}\n,\n" +
      std::string(TABLES));
  EXPECT_EQ(profile.samples.size(), 2U);
}

TEST(DocumentPiecesTest, NoSamples) { EXPECT_EQ(read(documentOf("")).samples.size(), 0U); }

TEST(DocumentPiecesTest, BlanksBetweenTheBracketsWhereAPieceEnds) {
  const std::string row = "[1,100,7,1.5,3,5,5,[[100,7] ,\n[200,2] ] ]";
  std::string rows = row;
  std::size_t count = 1;
  for (; rows.size() < (3 << 20); ++count) {
    rows += "\n ,\n" + row;
  }
  EXPECT_EQ(read(documentOf(rows)).samples.size(), count);
}

// Two pieces: what stands between two rows is looked at where one of them ends, too.
TEST(DocumentPiecesTest, WhatIsNoRowBetweenTwoPieces) {
  const std::string row = "[1,100,7,1.5,3,5,5,[[100,7]]]";
  std::string rows = row;
  while (rows.size() < (1 << 20)) {
    rows += "," + row;
  }
  for (const char* between : {"", ",,", ",7,", " x "}) {
    std::string whole = rows;
    for (int i = 0; i < 4; ++i) {
      whole += between + row;
    }
    EXPECT_NE(problemOf(documentOf(whole)), "none") << between;
  }
}

TEST(DocumentPiecesTest, TimesThatAreNoNumbersStandAtTheEnd) {
  const Profile profile =
      read(documentOf("[1,100,7,nan,3,5,5,[]],[2,100,7,-inf,3,5,5,[]],[3,100,2,4.25,3,5,5,[]]"));
  EXPECT_EQ(profile.timelessCount, 2U);
  EXPECT_EQ(profile.samples.times[0], 4250000000);
  EXPECT_EQ(profile.samples.times[2], 4250000000);
  EXPECT_EQ(profile.frames[profile.stacks.frame(profile.samples.stacks[0])].name, "[app]");
}

TEST(DocumentPiecesTest, WhatIsWrongIsSaid) {
  const std::string whole = documentOf("[1,100,7,1,3,5,5,[]]");
  EXPECT_EQ(problemOf(whole), "none");
  EXPECT_THAT(problemOf(""),
              HasSubstr("FILE is no whole document of tracemill: it ends too early"));
  EXPECT_THAT(problemOf("[1]"), HasSubstr("there is no '{' at its beginning"));
  EXPECT_THAT(problemOf("{\"libraries\":1}"), HasSubstr("\"samples\" is not its first table"));
  EXPECT_THAT(problemOf(whole.substr(0, 70)), HasSubstr("it ends within \"samples\""));
  EXPECT_THAT(problemOf(documentOf("[1,2]")), HasSubstr("a row of \"samples\" is too short"));
  EXPECT_THAT(problemOf(documentOf("[1,100,\"x\",1,3,5,5,[]]")),
              HasSubstr("does not have the requested type. Convert"));
  EXPECT_THAT(problemOf(whole + whole), HasSubstr("Did -a append"));
  EXPECT_THAT(problemOf("{\"samples\":{\"data\":[]},\"files\":{\"data\":[]}}"),
              HasSubstr("the table \"libraries\" is missing"));
}

TEST(DocumentPiecesTest, EveryCutOfADocumentIsFoundOut) {
  const std::string whole = documentOf("[1,100,7,1.5,3,5,5,[[100,7],[200,2]]]");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_NE(problemOf(whole.substr(0, length)), "none") << length;
  }
}

TEST(DocumentTablesTest, SecondsAreExactToTheNanosecond) {
  const auto nanoseconds = [](std::string_view text) {
    uint32_t digits = 0;
    return parseSeconds(text, digits);
  };
  EXPECT_EQ(nanoseconds("0"), 0);
  EXPECT_EQ(nanoseconds("12"), 12000000000);
  EXPECT_EQ(nanoseconds("123456789.987654321"), 123456789987654321);
  EXPECT_EQ(nanoseconds("0.0000000019"), 1) << "digits beyond are cut off";
  EXPECT_EQ(nanoseconds("-1.5"), -1500000000);
  for (const char* none : {"", "-", "nan", "-nan", "inf", "1e5", "1.2.3", "99999999999", "x"}) {
    EXPECT_EQ(nanoseconds(none), ProfileBuilder::NO_TIME) << none;
  }
}

}  // namespace report
