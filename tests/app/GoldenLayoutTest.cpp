// Where the forced line feeds of long documents stand, in both layouts.
#include <array>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/app/Conversion.h"
#include "tests/app/ExpectedDocument.h"
#include "tests/app/GoldenDocument.h"
#include "tests/app/Recordings.h"

namespace {

constexpr uint64_t WIDE_MAP = uint64_t{1} << 40;

// A number of eighths as the document writes seconds.
std::string seconds(unsigned eighths) {
  static const std::array<const char*, 8> fractions = {"",   ".125", ".25", ".375",
                                                       ".5", ".625", ".75", ".875"};
  return std::to_string(eighths / 8) + fractions[eighths % 8];
}

// The addresses of the first sample, of its place and of its caller: their digits move all that
// follows.
struct First {
  uint64_t ip;
  uint64_t caller;
};

// `rows` samples in one wide map.
PerfFileBuilder longRecording(unsigned rows, First first) {
  PerfFileBuilder recording = recordingOf(WITH_CALLCHAIN);
  recording.comm(10, 10, "app").mmap(10, 10, 0, WIDE_MAP, 0, "/nowhere/wide");
  recording.sample(withChain(at(SECOND, first.ip, 10, 10), {first.ip, first.caller}));
  for (unsigned i = 1; i < rows; ++i) {
    recording.sample(withChain(at(SECOND + i * EIGHTH, 1000 + i, 10, 10), {1000 + i, 2000 + i}));
  }
  return recording;
}

ExpectedDocument longDocument(unsigned rows, First first, bool indented) {
  ExpectedDocument document(indented);
  document.open('{').openTable("samples");
  for (unsigned i = 0; i < rows; ++i) {
    document.open('[').value(i + 1).value(i == 0 ? first.ip : 1000 + i).value(3);
    document.value(seconds(i)).value(0ULL).value(10).value(10).open('[').open('[');
    document.value(i == 0 ? first.caller : 2000 + i).value(3);
    document.close(']').close(']').close(']');
  }
  document.closeTable().openTable("libraries");
  document.open('[').value(3).value(10).quoted("/nowhere/wide").value(0ULL).value(WIDE_MAP);
  document.close(']').closeTable().openTable("functions").closeTable().openTable("processes");
  document.open('[').value(10).value(10).value(10).quoted("app").close(']').closeTable();
  document.openTable("files").closeTable().close('}');
  return document;
}

void expectLongDocument(unsigned rows, First first, bool indented) {
  Conversion conversion(longRecording(rows, first));
  conversion.setting(indented ? "\"whitespace\": true" : "\"whitespace\": false");
  const ConversionResult result = conversion.run();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(sameDocument(longDocument(rows, first, indented).text(), result.document))
      << "first addresses " << first.ip << " and " << first.caller;
}

// Documents each a digit longer than the one before: in some of them a value stands behind byte
// 24576 exactly. Returns how many.
unsigned expectBreaksAround(unsigned rows, bool indented) {
  unsigned exact = 0;
  First first{1, 1};
  while (first.caller < WIDE_MAP / 10) {
    expectLongDocument(rows, first, indented);
    exact += longDocument(rows, first, indented).exactBreaks();
    uint64_t& longer = first.ip < WIDE_MAP / 10 ? first.ip : first.caller;
    longer *= 10;
  }
  return exact;
}

}  // namespace

TEST(GoldenLayoutTest, CompactDocumentsBreakBeforeTheValueAfter24576Bytes) {
  EXPECT_EQ(longDocument(800, {1, 1}, false).breaks(), 1U);
  EXPECT_GT(expectBreaksAround(800, false), 0U);
}

TEST(GoldenLayoutTest, IndentedDocumentsBreakToo) {
  EXPECT_EQ(longDocument(300, {1, 1}, true).breaks(), 1U);
  EXPECT_GT(expectBreaksAround(300, true), 0U);
}

TEST(GoldenLayoutTest, LongDocumentsBreakAgainAndAgain) {
  EXPECT_GE(longDocument(20000, {1, 1}, false).breaks(), 30U);
  expectLongDocument(20000, {1, 1}, false);
  expectLongDocument(20000, {1, 1}, true);
}

TEST(GoldenLayoutTest, EscapedNamesCountLessThanTheirBytes) {
  constexpr unsigned MAPS = 2000;
  PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
  recording.comm(10, 10, "app");
  ExpectedDocument document(false);
  document.open('{').openTable("samples");
  for (unsigned i = 0; i < MAPS; ++i) {
    const uint64_t start = 0x10000 + 0x1000 * i;
    recording.mmap(10, 10, start, 0x1000, 0, "/a\"" + std::to_string(i) + "\"xy");
    document.open('[').value(i + 1).value(start).value(3 + i).value(seconds(i)).value(0ULL);
    document.value(10).value(10).open('[').close(']').close(']');
  }
  for (unsigned i = 0; i < MAPS; ++i) {
    recording.sample(at(SECOND + i * EIGHTH, 0x10000 + 0x1000 * i, 10, 10));
  }
  document.closeTable().openTable("libraries");
  for (unsigned i = 0; i < MAPS; ++i) {
    // Counted: two quotes, one for each escape, and the "xy" behind the last of them.
    document.open('[').value(3 + i).value(10);
    document.quoted("/a\\\"" + std::to_string(i) + "\\\"xy", 2 + 2 + 2);
    document.value(0x10000 + 0x1000 * i).value(0x1000).close(']');
  }
  document.closeTable().openTable("functions").closeTable().openTable("processes");
  document.open('[').value(10).value(10).value(10).quoted("app").close(']').closeTable();
  document.openTable("files").closeTable().close('}');

  const ConversionResult result = Conversion(recording).run();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(sameDocument(document.text(), result.document));
}
