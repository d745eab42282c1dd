#include <functional>
#include <ios>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "tests/support/StreamCapture.h"

using kestrel::JsomWriter;

namespace {

using Calls = std::function<void(JsomWriter&)>;

// What the calls write, without the brackets that end() would add.
std::string written(const Calls& calls, bool whitespace = false) {
  std::ostringstream out;
  JsomWriter writer(&out);
  writer.whitespace = whitespace;
  calls(writer);
  return out.str();
}

std::string indented(const Calls& calls) { return written(calls, true); }

// What the calls print on standard error; they must write nothing on top of `before`.
std::string misuse(const std::string& before, const Calls& prepare, const Calls& wrong) {
  std::ostringstream out;
  JsomWriter writer(&out);
  prepare(writer);
  EXPECT_EQ(before, out.str());
  StderrCapture errors;
  wrong(writer);
  EXPECT_EQ(before, out.str());
  return errors.stop();
}

void nothing(JsomWriter&) {}
void openObject(JsomWriter& writer) { writer.startObject(); }
void openArray(JsomWriter& writer) { writer.startArray(); }

}  // namespace

TEST(JsomWriter, WhitespaceIsOffAtFirst) {
  std::ostringstream out;
  EXPECT_FALSE(JsomWriter(&out).whitespace);
}

TEST(JsomWriter, CompactLayoutHasNoSpacesAndNoLineFeedsIndentedLayoutOneSpaceALevel) {
  const Calls calls = [](JsomWriter& writer) {
    writer.startObject();
    writer.appendLabel("a", true);
    writer.startArray();
    writer.appendInt(1);
    writer.appendInt(2);
    writer.endArray();
    writer.appendLabel("b", true);
    writer.startObject();
    writer.endObject();
    writer.endObject();
  };
  EXPECT_EQ(written(calls), R"({"a":[1,2],"b":{}})");
  EXPECT_EQ(indented(calls),
            "{\n"
            " \"a\": [\n"
            "  1,\n"
            "  2\n"
            " ],\n"
            " \"b\": {\n"
            " }\n"
            "}");
}

TEST(JsomWriter, TopLevelValuesFollowEachOtherWithoutSeparator) {
  const Calls calls = [](JsomWriter& writer) {
    writer.appendInt(1);
    writer.appendNull();
    writer.startArray();
    writer.endArray();
    writer.appendBoolean(true);
  };
  EXPECT_EQ(written(calls), "1null[]true");
  EXPECT_EQ(indented(calls), "1null[\n]true");
}

TEST(JsomWriter, EmptyContainersStandOnTwoLinesWhenIndented) {
  EXPECT_EQ(indented([](JsomWriter& writer) {
              writer.startArray();
              writer.startObject();
              writer.endObject();
              writer.startArray();
              writer.endArray();
              writer.endArray();
            }),
            "[\n {\n },\n [\n ]\n]");
}

TEST(JsomWriter, ScalarValues) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startArray();
              writer.appendNull();
              writer.appendBoolean(true);
              writer.appendBoolean(false);
              writer.appendInt(-1);
              writer.appendUnsignedInt(4294967295U);
              writer.appendLong(-9223372036854775807LL - 1);
              writer.appendUnsignedLong(18446744073709551615ULL);
              writer.endArray();
            }),
            "[null,true,false,-1,4294967295,-9223372036854775808,18446744073709551615]");
}

TEST(JsomWriter, JsonValueIsWrittenVerbatim) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startArray();
              writer.appendJsonValue("{\"x\" : 1} and more", 9);
              writer.appendJsonValue("2", 1);
              writer.endArray();
            }),
            "[{\"x\" : 1},2]");
}

TEST(JsomWriter, SevenBytesAreEscaped) {
  EXPECT_EQ(written([](JsomWriter& writer) { writer.appendString("\b\t\n\f\r\"\\", 7, false); }),
            R"("\b\t\n\f\r\"\\")");
}

TEST(JsomWriter, OtherControlBytesTheSlashAndHighBytesStayAsTheyAre) {
  const std::string text("\x01/\x7f\xc3\xa9\xff\0\x1f", 8);
  EXPECT_EQ(written([&](JsomWriter& writer) { writer.appendString(text, false); }),
            "\"" + text + "\"");
}

TEST(JsomWriter, RunsBetweenEscapesAreKept) {
  EXPECT_EQ(
      written([](JsomWriter& writer) { writer.appendString(std::string("ab\ncd\\e"), false); }),
      R"("ab\ncd\\e")");
}

TEST(JsomWriter, RawStringsAndLabelsAreNotEscaped) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startObject();
              writer.appendLabel("a\tb", true);
              writer.appendString(std::string("c\\d"), true);
            }),
            "{\"a\tb\":\"c\\d\"");
}

TEST(JsomWriter, LabelsAreEscapedUnlessRaw) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startObject();
              writer.appendLabel("a\tb", false);
              writer.appendInt(1);
              writer.appendLabel("c\"more", 2, false);
              writer.appendInt(2);
            }),
            R"({"a\tb":1,"c\"":2)");
}

TEST(JsomWriter, NullStringIsWrittenAsNullWithoutQuotes) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startArray();
              writer.appendString(nullptr, 5, false);
              writer.appendString(nullptr, 5, true);
              writer.endArray();
            }),
            "[null,null]");
}

TEST(JsomWriter, NullLabelIsWrittenAsNullAndColon) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startObject();
              writer.appendLabel(nullptr, 3, true);
              writer.appendInt(1);
              writer.appendLabel(nullptr, false);
              writer.appendInt(2);
            }),
            "{null:1,null:2");
}

TEST(JsomWriter, EmptyAndNegativeLengthsGiveTwoQuotes) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startArray();
              writer.appendString("abc", 0, false);
              writer.appendString("abc", -1, false);
              writer.appendString("abc", -1, true);
              writer.appendString(std::string(), false);
              writer.endArray();
            }),
            R"(["","","",""])");
}

TEST(JsomWriter, NegativeLengthsOfRawOutputWriteNothing) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.write("abc", -3);
              writer.write(nullptr, 3);
              writer.appendJsonValue("abc", -1);
            }),
            "");
}

TEST(JsomWriter, RawOutputGoesStraightThrough) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startObject();
              writer.write("xyz", 3);
              writer.writeChar('!');
            }),
            "{xyz!");
}

TEST(JsomWriter, ValueWithoutLabelPrintsItsOperationName) {
  const struct {
    Calls wrong;
    const char* name;
  } cases[] = {
      {[](JsomWriter& writer) { writer.appendNull(); }, "appendNull"},
      {[](JsomWriter& writer) { writer.appendBoolean(true); }, "appendBoolean"},
      {[](JsomWriter& writer) { writer.appendString("a", 1, true); }, "appendString"},
      {[](JsomWriter& writer) { writer.appendString(std::string("a"), false); }, "appendString"},
      {[](JsomWriter& writer) { writer.appendLong(1); }, "appendLong"},
      {[](JsomWriter& writer) { writer.appendUnsignedLong(1); }, "appendUnsignedLong"},
      {[](JsomWriter& writer) { writer.appendInt(1); }, "appendInt"},
      {[](JsomWriter& writer) { writer.appendUnsignedInt(1); }, "appendUnsignedInt"},
      {[](JsomWriter& writer) { writer.appendJsonValue("1", 1); }, "appendJsonValue"},
      {[](JsomWriter& writer) { writer.appendDouble(1, 1); }, "appendDouble"},
      {[](JsomWriter& writer) { writer.startObject(); }, "startObject"},
      {[](JsomWriter& writer) { writer.startArray(); }, "startArray"},
  };
  for (const auto& test : cases) {
    const std::string text =
        std::string("ERROR: JsonWriter::") + test.name + "() Invalid sequence. state: ";
    EXPECT_EQ(text + "{\n", misuse("{", openObject, test.wrong));
    const Calls withMember = [](JsomWriter& writer) {
      writer.startObject();
      writer.appendLabel("a", true);
      writer.appendInt(1);
    };
    EXPECT_EQ(text + "}\n", misuse("{\"a\":1", withMember, test.wrong));
  }
}

TEST(JsomWriter, AfterAValueWithoutLabelTheDocumentGoesOnAsIfNothingHappened) {
  StderrCapture errors;
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startObject();
              writer.appendInt(7);
              writer.appendLabel("a", true);
              writer.appendInt(1);
              writer.startArray();
              writer.endObject();
            }),
            R"({"a":1})");
}

TEST(JsomWriter, LabelOutsideAnObjectIsRefused) {
  const std::string text = "ERROR: JsonWriter::appendLabel() No current object on stack. state: ";
  const Calls label = [](JsomWriter& writer) { writer.appendLabel("a", true); };
  const Calls sizedLabel = [](JsomWriter& writer) { writer.appendLabel("a", 1, true); };
  EXPECT_EQ(text + std::string("\0\n", 2), misuse("", nothing, label));
  EXPECT_EQ(text + "[\n", misuse("[", openArray, sizedLabel));
  EXPECT_EQ(text + ":\n", misuse(
                              "{\"a\":",
                              [&](JsomWriter& writer) {
                                writer.startObject();
                                writer.appendLabel("a", true);
                              },
                              label));
}

TEST(JsomWriter, EndObjectAtTheTopLevelPrintsAZeroByteAsState) {
  EXPECT_EQ(
      misuse("", nothing, [](JsomWriter& writer) { writer.endObject(); }),
      std::string("ERROR: JsonWriter::endObject() No current object on stack. state: \0\n", 68));
}

TEST(JsomWriter, EndObjectIsRefusedInArraysAndAfterALabel) {
  const std::string text = "ERROR: JsonWriter::endObject() No current object on stack. state: ";
  const Calls close = [](JsomWriter& writer) { writer.endObject(); };
  EXPECT_EQ(text + "[\n", misuse("[", openArray, close));
  EXPECT_EQ(text + "]\n", misuse(
                              "[1",
                              [](JsomWriter& writer) {
                                writer.startArray();
                                writer.appendInt(1);
                              },
                              close));
  EXPECT_EQ(text + ":\n", misuse(
                              "{\"a\":",
                              [](JsomWriter& writer) {
                                writer.startObject();
                                writer.appendLabel("a", true);
                              },
                              close));
}

TEST(JsomWriter, EndArrayIsRefusedOutsideArrays) {
  const std::string text = "ERROR: JsonWriter::endArray() No current array on stack. state: ";
  const Calls close = [](JsomWriter& writer) { writer.endArray(); };
  EXPECT_EQ(text + std::string("\0\n", 2), misuse("", nothing, close));
  EXPECT_EQ(text + "{\n", misuse("{", openObject, close));
  EXPECT_EQ(text + "}\n", misuse(
                              "{\"a\":1",
                              [](JsomWriter& writer) {
                                writer.startObject();
                                writer.appendLabel("a", true);
                                writer.appendInt(1);
                              },
                              close));
}

TEST(JsomWriter, EndGivesAPendingLabelNullAndClosesEverything) {
  const Calls calls = [](JsomWriter& writer) {
    writer.startObject();
    writer.appendLabel("a", true);
    writer.startArray();
    writer.appendInt(1);
    writer.startObject();
    writer.appendLabel("b", true);
    writer.end();
  };
  EXPECT_EQ(written(calls), R"({"a":[1,{"b":null}]})");
  EXPECT_EQ(indented(calls), "{\n \"a\": [\n  1,\n  {\n   \"b\": null\n  }\n ]\n}");
}

TEST(JsomWriter, EndAtTheTopLevelWritesNothing) {
  EXPECT_EQ(written([](JsomWriter& writer) { writer.end(); }), "");
}

TEST(JsomWriter, CanBeUsedAgainAfterEnd) {
  EXPECT_EQ(written([](JsomWriter& writer) {
              writer.startArray();
              writer.end();
              writer.startArray();
              writer.appendInt(2);
              writer.end();
            }),
            "[][2]");
}

TEST(JsomWriter, DestructorClosesWhatIsOpen) {
  std::ostringstream out;
  {
    JsomWriter writer(&out);
    writer.startObject();
    writer.appendLabel("a", true);
    writer.startArray();
  }
  EXPECT_EQ(out.str(), R"({"a":[]})");
}

TEST(JsomWriter, DestructorIsVirtual) {
  struct Derived : JsomWriter {
    using JsomWriter::JsomWriter;
  };
  std::ostringstream out;
  std::unique_ptr<JsomWriter> writer = std::make_unique<Derived>(&out);
  writer->startArray();
  writer.reset();
  EXPECT_EQ(out.str(), "[]");
}

TEST(JsomWriter, EndFlushesTheStream) {
  struct CountingBuffer : std::stringbuf {
    int sync() override {
      ++flushes;
      return 0;
    }
    int flushes = 0;
  } buffer;
  std::ostream out(&buffer);
  JsomWriter writer(&out);
  writer.appendInt(1);
  EXPECT_EQ(buffer.flushes, 0);
  writer.flush();
  EXPECT_EQ(buffer.flushes, 1);
  writer.end();
  EXPECT_EQ(buffer.flushes, 2);
}

TEST(JsomWriter, EveryValueReachesTheStreamAtOnce) {
  std::ostringstream out;
  JsomWriter writer(&out);
  writer.startArray();
  EXPECT_EQ(out.str(), "[");
  writer.appendInt(1);
  EXPECT_EQ(out.str(), "[1");
  writer.appendString(std::string("x"), false);
  EXPECT_EQ(out.str(), "[1,\"x\"");
}

TEST(JsomWriter, AFailedStreamDoesNoHarm) {
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  JsomWriter writer(&out);
  writer.startObject();
  writer.appendLabel("a", true);
  writer.appendDouble(1.5, 3);
  writer.end();
  EXPECT_FALSE(out);
  EXPECT_EQ(out.str(), "");
}

TEST(JsomWriter, DestructionOverAThrowingStreamDoesNotThrow) {
  struct FullBuffer : std::streambuf {};  // takes nothing
  FullBuffer full;
  std::ostream out(&full);
  out.exceptions(std::ios::badbit);
  {
    JsomWriter writer(&out);
    EXPECT_THROW(writer.startArray(), std::ios_base::failure);
  }
  EXPECT_TRUE(out.bad());
}

TEST(JsomWriter, AnExceptionOfTheStreamsBufferBecomesBadbit) {
  struct Trap : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize) override { throw 1; }
    int_type overflow(int_type) override { throw 1; }
    int sync() override { throw 1; }
  };
  const auto write = [](void (*call)(JsomWriter&)) {
    Trap trap;
    std::ostream out(&trap);
    JsomWriter writer(&out);
    EXPECT_NO_THROW(call(writer));
    EXPECT_TRUE(out.bad());
  };
  write([](JsomWriter& writer) { writer.startArray(); });
  write([](JsomWriter& writer) { writer.appendInt(1); });
  write([](JsomWriter& writer) { writer.appendString("text", 4, false); });
  write([](JsomWriter& writer) { writer.writeChar('c'); });
  write([](JsomWriter& writer) { writer.write("text", 4); });
  write([](JsomWriter& writer) { writer.flush(); });
}

TEST(JsomWriter, AtADepthOf47TheIndentationIs47SpacesAndAt48AlsoAZeroByte) {
  std::ostringstream out;
  JsomWriter writer(&out);
  writer.whitespace = true;
  for (int i = 0; i < 47; ++i) {
    writer.startArray();
  }
  out.str("");
  writer.appendInt(1);
  EXPECT_EQ(out.str(), "\n" + std::string(47, ' ') + "1");

  out.str("");
  writer.startArray();
  EXPECT_EQ(out.str(), ",\n" + std::string(47, ' ') + "[");
  out.str("");
  writer.appendInt(1);
  EXPECT_EQ(out.str(), "\n" + std::string(47, ' ') + std::string(1, '\0') + "1");

  writer.startArray();
  out.str("");
  writer.appendInt(1);
  EXPECT_EQ(out.str(), "\n" + std::string(47, ' ') + std::string(1, '\0') + "1");
}
