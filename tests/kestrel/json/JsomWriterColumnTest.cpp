// Where the writer breaks lines: before the first value that finds 24576 or more counted bytes on
// its line.
#include <climits>
#include <functional>
#include <sstream>
#include <streambuf>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"

using kestrel::JsomWriter;

namespace {

using Calls = std::function<void(JsomWriter&)>;

constexpr std::size_t BREAK = 24576;

std::string written(const Calls& calls, bool whitespace = false) {
  std::ostringstream out;
  JsomWriter writer(&out);
  writer.whitespace = whitespace;
  calls(writer);
  return out.str();
}

std::string letters(std::size_t count) { return std::string(count, 'x'); }

// What a value writes after the calls have written something. In the compact layout, at the top
// level.
std::string nextValueAfter(const Calls& calls) {
  std::ostringstream out;
  JsomWriter writer(&out);
  calls(writer);
  out.str("");
  writer.appendInt(7);
  return out.str();
}

// One byte less than what is missing brings no break about.
void expectCount(std::size_t expected, const Calls& calls) {
  for (const std::size_t missing : {BREAK - expected - 1, BREAK - expected}) {
    const std::string value = nextValueAfter([&](JsomWriter& writer) {
      calls(writer);
      const std::string rest = letters(missing);
      writer.write(rest.data(), static_cast<int>(rest.size()));
    });
    EXPECT_EQ(missing == BREAK - expected ? "\n7" : "7", value);
  }
}

}  // namespace

TEST(JsomWriterColumn, NoBreakAt24575) {
  // [ + " + text + " + , are counted before the second element.
  const std::string text = letters(BREAK - 1 - 4);
  EXPECT_EQ(written([&](JsomWriter& writer) {
              writer.startArray();
              writer.appendString(text, false);
              writer.appendInt(2);
            }),
            "[\"" + text + "\",2");
}

TEST(JsomWriterColumn, BreakAt24576StandsBetweenCommaAndValue) {
  const std::string text = letters(BREAK - 4);
  EXPECT_EQ(written([&](JsomWriter& writer) {
              writer.startArray();
              writer.appendString(text, false);
              writer.appendInt(2);
              writer.appendInt(3);
            }),
            "[\"" + text + "\",\n2,3");
}

TEST(JsomWriterColumn, NeverBeforeALabelOrAClosingBracket) {
  const std::string text = letters(30000);
  EXPECT_EQ(written([&](JsomWriter& writer) {
              writer.startObject();
              writer.appendLabel("a", true);
              writer.appendString(text, false);
              writer.appendLabel("b", true);
              writer.startArray();
              writer.appendString(text, false);
              writer.endArray();
              writer.endObject();
            }),
            "{\"a\":\"" + text + "\",\"b\":\n[\"" + text + "\"]}");
}

TEST(JsomWriterColumn, EveryValueOperationBreaks) {
  const struct {
    Calls value;
    const char* text;
  } cases[] = {
      {[](JsomWriter& writer) { writer.appendNull(); }, "null"},
      {[](JsomWriter& writer) { writer.appendBoolean(true); }, "true"},
      {[](JsomWriter& writer) { writer.appendString("a", 1, true); }, "\"a\""},
      {[](JsomWriter& writer) { writer.appendString(std::string("a"), false); }, "\"a\""},
      {[](JsomWriter& writer) { writer.appendLong(1); }, "1"},
      {[](JsomWriter& writer) { writer.appendUnsignedLong(1); }, "1"},
      {[](JsomWriter& writer) { writer.appendInt(1); }, "1"},
      {[](JsomWriter& writer) { writer.appendUnsignedInt(1); }, "1"},
      {[](JsomWriter& writer) { writer.appendJsonValue("1", 1); }, "1"},
      {[](JsomWriter& writer) { writer.appendDouble(1, 1); }, "1"},
      {[](JsomWriter& writer) { writer.startObject(); }, "{"},
      {[](JsomWriter& writer) { writer.startArray(); }, "["},
  };
  for (const auto& test : cases) {
    const std::string text = letters(BREAK);
    EXPECT_EQ(text + "\n" + test.text, written([&](JsomWriter& writer) {
                writer.write(text.data(), static_cast<int>(text.size()));
                test.value(writer);
              }));
  }
}

TEST(JsomWriterColumn, NullOfEndBreaksToo) {
  const std::string label = letters(BREAK);
  EXPECT_EQ(written([&](JsomWriter& writer) {
              writer.startObject();
              writer.appendLabel(label.c_str(), true);
              writer.end();
            }),
            "{\"" + label + "\":\nnull}");
}

TEST(JsomWriterColumn, CountsOfValues) {
  expectCount(4, [](JsomWriter& writer) { writer.appendNull(); });
  expectCount(4, [](JsomWriter& writer) { writer.appendBoolean(true); });
  expectCount(5, [](JsomWriter& writer) { writer.appendBoolean(false); });
  expectCount(3, [](JsomWriter& writer) { writer.appendInt(-12); });
  expectCount(10, [](JsomWriter& writer) { writer.appendUnsignedInt(4294967295U); });
  expectCount(20, [](JsomWriter& writer) { writer.appendUnsignedLong(18446744073709551615ULL); });
  expectCount(3, [](JsomWriter& writer) { writer.appendDouble(2.5, 3); });
  expectCount(6, [](JsomWriter& writer) { writer.appendJsonValue("[1, 2]", 6); });
  expectCount(1, [](JsomWriter& writer) { writer.writeChar('x'); });
  expectCount(2, [](JsomWriter& writer) {
    writer.startArray();
    writer.endArray();
  });
  expectCount(8, [](JsomWriter& writer) {  // {"ab":1}
    writer.startObject();
    writer.appendLabel("ab", true);
    writer.appendInt(1);
    writer.endObject();
  });
}

TEST(JsomWriterColumn, CountsOfStrings) {
  const auto expectStringCount = [](std::size_t expected, const std::string& text, bool raw) {
    SCOPED_TRACE(text);
    expectCount(expected, [&](JsomWriter& writer) { writer.appendString(text, raw); });
  };
  expectStringCount(2, "", false);
  expectStringCount(5, "abc", false);
  expectStringCount(5, "a\nc", true);
  expectStringCount(3, "\n", false);            // an escape counts one byte
  expectStringCount(3, "abcdef\n", false);      // the run before an escape counts nothing,
  expectStringCount(7, "abcdef\nghij", false);  // only the one after the last escape counts
  expectStringCount(5, "ab\ncd\te", false);
  expectStringCount(4, "\n\n", false);
  expectCount(4, [](JsomWriter& writer) { writer.appendString(nullptr, 9, false); });
}

TEST(JsomWriterColumn, LongRunBeforeAnEscapeBringsNoBreak) {
  const std::string text = letters(30000) + "\n";
  EXPECT_EQ(nextValueAfter([&](JsomWriter& writer) { writer.appendString(text, false); }), "7");
  const std::string turned = "\n" + letters(30000);
  EXPECT_EQ(nextValueAfter([&](JsomWriter& writer) { writer.appendString(turned, false); }), "\n7");
}

TEST(JsomWriterColumn, IndentationIsAddedToTheCount) {
  // After k elements 4 * k bytes are counted: comma, line feed, space and digit each, bracket
  // instead of a comma first.
  std::string expected = "[";
  for (int i = 0; i < 6150; ++i) {
    if (i > 0) {
      expected += ',';
    }
    expected += i == 6144 ? "\n \n7" : "\n 7";
  }
  EXPECT_EQ(written(
                [](JsomWriter& writer) {
                  writer.startArray();
                  for (int i = 0; i < 6150; ++i) {
                    writer.appendInt(7);
                  }
                },
                true),
            expected);
}

TEST(JsomWriterColumn, InTheIndentedLayoutTheBreakFollowsTheSpaceAfterTheLabel) {
  const std::string label = letters(BREAK);
  EXPECT_EQ(written(
                [&](JsomWriter& writer) {
                  writer.startObject();
                  writer.appendLabel(label.c_str(), true);
                  writer.appendInt(1);
                },
                true),
            "{\n \"" + label + "\": \n1");
}

TEST(JsomWriterColumn, TheSpaceAfterTheLabelIsCounted) {
  // { + line feed and space + quotes and label + : + space
  for (const std::size_t missing : {1U, 0U}) {
    const std::string label = letters(BREAK - 7 - missing);
    EXPECT_EQ(written(
                  [&](JsomWriter& writer) {
                    writer.startObject();
                    writer.appendLabel(label.c_str(), true);
                    writer.appendInt(1);
                  },
                  true),
              "{\n \"" + label + "\": " + (missing == 0 ? "\n1" : "1"));
  }
}

TEST(JsomWriterColumn, ReturnToTheTopLevelStartsALineOnlyInTheIndentedLayout) {
  const std::string text = letters(30000);
  const Calls calls = [&](JsomWriter& writer) {
    writer.startArray();
    writer.appendString(text, false);
    writer.endArray();
    writer.appendInt(7);
  };
  EXPECT_EQ(written(calls), "[\"" + text + "\"]\n7");
  EXPECT_EQ(written(calls, true), "[\n \"" + text + "\"\n]7");
}

TEST(JsomWriterColumn, CountStopsAtItsLimit) {
  // Takes whatever it is given without looking at it.
  struct Sink : std::streambuf {
    std::streamsize xsputn(const char* bytes, std::streamsize length) override {
      if (length < 1000) {
        text.append(bytes, static_cast<std::size_t>(length));
      }
      return length;
    }
    std::string text;
  } sink;
  std::ostream out(&sink);
  JsomWriter writer(&out);
  writer.write("", INT_MAX);
  writer.write("", INT_MAX);
  writer.appendInt(7);
  writer.appendInt(8);
  EXPECT_EQ(sink.text, "\n78");
}
