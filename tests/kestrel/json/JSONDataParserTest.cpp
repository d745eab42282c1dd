// The grammar, for both forms of the parser: every test runs over a buffer and over a stream.
#include <cmath>
#include <ostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSONData.h"
#include "kestrel/json/JSONDataParser.h"
#include "tests/support/StreamCapture.h"

using kestrel::JSONData;

namespace {

enum class Form { BUFFER, STREAM };

std::string nameOf(Form form) { return form == Form::BUFFER ? "Buffer" : "Stream"; }
void PrintTo(Form form, std::ostream* out) {
  *out << nameOf(form);
}  // for GoogleTest, in its style

class JSONDataParser : public testing::TestWithParam<Form> {
 protected:
  // Parses into node_ and keeps what was left in rest_ and what was printed in errors_.
  bool parse(const std::string& text) {
    StderrCapture errors;
    bool parsed;
    if (GetParam() == Form::BUFFER) {
      const char* p = text.c_str();
      parsed = node_.setFromJsonString(p);
      rest_ = p;
    } else {
      std::istringstream in(text);
      parsed = node_.setFromStream(in);
      in.clear();
      std::ostringstream rest;
      rest << in.rdbuf();
      rest_ = rest.str();
    }
    errors_ = errors.stop();
    return parsed;
  }

  // What a text that parses without a word becomes when it is written again.
  std::string parsed(const std::string& text) {
    node_.reset();
    EXPECT_TRUE(parse(text)) << text;
    EXPECT_EQ(errors_, "") << text;
    return written();
  }

  std::string written() const {
    std::string out;
    node_.toJsonString(out, false, 6);
    return out;
  }

  // The message that a text fails with; empty if it fails silently.
  std::string failure(const std::string& text) {
    node_.reset();
    EXPECT_FALSE(parse(text)) << text;
    if (errors_.empty()) {
      return "";
    }
    const std::string start = GetParam() == Form::BUFFER ? "JSONData::setFromJsonString(): "
                                                         : "JSONData::setFromStream(): ";
    EXPECT_EQ(start, errors_.substr(0, start.size()));
    EXPECT_EQ(errors_.back(), '\n');
    return errors_.substr(start.size(), errors_.size() - start.size() - 1);
  }

  double parsedDouble(const std::string& text) {
    parsed(text);
    EXPECT_EQ(node_.type(), JSONData::DOUBLE) << text;
    return node_.doubleValue();
  }

  std::string parsedString(const std::string& text) {
    parsed(text);
    EXPECT_EQ(node_.type(), JSONData::STRING) << text;
    return node_.stringValue() == nullptr ? "" : *node_.stringValue();
  }

  JSONData node_;
  std::string rest_;
  std::string errors_;
};

INSTANTIATE_TEST_SUITE_P(Forms, JSONDataParser, testing::Values(Form::BUFFER, Form::STREAM),
                         [](const testing::TestParamInfo<Form>& form) {
                           return nameOf(form.param);
                         });

}  // namespace

TEST_P(JSONDataParser, CommentsAndWhiteSpaceBeforeTheValue) {
  parsed("  // c\n /* x */ 42");
  EXPECT_EQ(node_.type(), JSONData::LONG);
  EXPECT_EQ(node_.longValue(), 42);
  EXPECT_EQ(parsed("\t\r\n 1"), "1");
}

TEST_P(JSONDataParser, CommentsEverywhereBetweenTokens) {
  EXPECT_EQ(parsed("/**/{/*a*/\"a\"//b\n:/***/[1/*,*/,//]\n2/*/*/]\n,\"b\":3// end\n}// not read"),
            R"({"a":[1,2],"b":3})");
}

TEST_P(JSONDataParser, TextWithinACommentFailsSilently) {
  EXPECT_EQ(failure("// only a comment"), "");
  EXPECT_EQ(failure("/* not closed"), "");
  EXPECT_EQ(failure("/* not closed *"), "");
  EXPECT_EQ(failure("/*/"), "");
}

TEST_P(JSONDataParser, EndOfTextFailsSilently) {
  EXPECT_EQ(failure(""), "");
  EXPECT_EQ(failure(" \n\t"), "");
  EXPECT_EQ(failure("// comment\n"), "");
  EXPECT_EQ(failure("{\"a\":"), "");
  EXPECT_EQ(failure("{\"a\": // comment"), "");
  EXPECT_EQ(node_.longValue(), 0);
}

TEST_P(JSONDataParser, SlashThatStartsNoCommentIsAnError) {
  EXPECT_EQ(failure("/x 1"), "syntax error: missing value");
  EXPECT_EQ(failure("/"), "syntax error: missing value");
  EXPECT_EQ(failure("[/x"), "syntax error: array not closed");
}

TEST_P(JSONDataParser, MissingValue) {
  for (const char* text : {",", ":", "]", "}", "x", "\v1", "\xef\xbb\xbf{}", "=", "[,1]",
                           "[:", "[1,,2]", "{\"a\":,}", "{\"a\":}", "{\"a\":]", "{\"a\"::1}"}) {
    EXPECT_EQ(failure(text), "syntax error: missing value") << text;
  }
}

TEST_P(JSONDataParser, Null) {
  EXPECT_EQ(parsed("null"), "null");
  EXPECT_EQ(node_.type(), JSONData::NULL_VALUE);
  for (const char* text : {"n", "nul", "nULL", "nil", "nul l"}) {
    EXPECT_EQ(failure(text), "syntax error: invalid null value") << text;
  }
}

TEST_P(JSONDataParser, Booleans) {
  EXPECT_EQ(parsed("true"), "true");
  EXPECT_EQ(parsed("false"), "false");
  for (const char* text : {"t", "tru", "tRUE", "f", "fals", "falsy", "trfalse"}) {
    EXPECT_EQ(failure(text), "syntax error: invalid boolean value") << text;
  }
}

TEST_P(JSONDataParser, TextAfterTheValueIsLeft) {
  EXPECT_EQ(parsed("truex"), "true");
  EXPECT_EQ(rest_, "x");
  EXPECT_EQ(parsed("nullnull"), "null");
  EXPECT_EQ(rest_, "null");
  EXPECT_EQ(parsed(" false "), "false");
  EXPECT_EQ(rest_, " ");
  EXPECT_EQ(parsed("[1]]"), "[1]");
  EXPECT_EQ(rest_, "]");
  EXPECT_EQ(parsed("1e5"), "1");
  EXPECT_EQ(rest_, "e5");
  EXPECT_EQ(parsed("\"a\"\"b\""), "\"a\"");
  EXPECT_EQ(rest_, "\"b\"");
  EXPECT_EQ(parsed("12"), "12");
  EXPECT_EQ(rest_, "");
}

TEST_P(JSONDataParser, Longs) {
  const auto parsedLong = [this](const std::string& text) {
    parsed(text);
    EXPECT_EQ(node_.type(), JSONData::LONG) << text;
    return node_.longValue();
  };
  EXPECT_EQ(parsedLong("-0"), 0);
  EXPECT_EQ(parsedLong("007"), 7);
  EXPECT_EQ(parsedLong("-12"), -12);
  EXPECT_EQ(parsedLong("9223372036854775807"), 9223372036854775807LL);
  EXPECT_EQ(parsedLong("9223372036854775808"), -9223372036854775807LL - 1);
  EXPECT_EQ(parsedLong("-9223372036854775808"), -9223372036854775807LL - 1);
  EXPECT_EQ(parsedLong("-9223372036854775809"), 9223372036854775807LL);
  EXPECT_EQ(parsedLong("18446744073709551615"), -1);
  EXPECT_EQ(parsedLong("-18446744073709551615"), 1);
  EXPECT_EQ(parsedLong("18446744073709551616"), 0);
  EXPECT_EQ(parsedLong("18446744073709551621"), 5);
}

TEST_P(JSONDataParser, Doubles) {
  EXPECT_EQ(parsedDouble("1.50"), 1.5);
  EXPECT_EQ(parsedDouble("5."), 5.0);
  EXPECT_EQ(parsedDouble("-0.25"), -0.25);
  EXPECT_TRUE(std::signbit(parsedDouble("-0.0")));
  EXPECT_EQ(parsedDouble("0.000"), 0.0);
  EXPECT_EQ(parsedDouble("12.345"), 12.0 + 3 / 10.0 + 4 / 100.0 + 5 / 1000.0);
  EXPECT_EQ(parsedDouble("18446744073709551615.0"), 18446744073709551615.0);
  EXPECT_EQ(parsedDouble("18446744073709551617."), 1.0);  // wraps
}

TEST_P(JSONDataParser, ThePowerOfTenOfAFractionDigitWraps) {
  // 10^20 is 7766279631452241920 in 64 bits.
  EXPECT_EQ(parsedDouble("0." + std::string(19, '0') + "1"), 1 / 7766279631452241920.0);
  // 10^63 is 2^63 in 64 bits, 10^64 and all further ones are 0.
  EXPECT_EQ(parsedDouble("0." + std::string(62, '0') + "1"), 1 / 9223372036854775808.0);
  EXPECT_EQ(parsedDouble("0." + std::string(63, '0') + "1"), HUGE_VAL);
  EXPECT_EQ(parsedDouble("-0." + std::string(99, '0') + "1"), -HUGE_VAL);
  EXPECT_EQ(parsedDouble("1." + std::string(200, '0')), 1.0);
}

TEST_P(JSONDataParser, InvalidNumbers) {
  for (const char* text : {"+1", "+", "-", "--1", "-+1", "-x", "-.5"}) {
    EXPECT_EQ(failure(text), "syntax error: invalid number") << text;
  }
  EXPECT_EQ(failure(".5"), "syntax error: missing value");
}

TEST_P(JSONDataParser, NumbersHaveNoExponent) {
  EXPECT_EQ(failure("[1e5]"), "syntax error: array comma or end expected");
  EXPECT_EQ(failure("[1.5E5]"), "syntax error: array comma or end expected");
}

TEST_P(JSONDataParser, Strings) {
  EXPECT_EQ(parsedString(R"("")"), "");
  EXPECT_EQ(parsedString(R"("abc")"), "abc");
  EXPECT_EQ(parsedString(R"("\b\f\n\r\t\"\\\/")"), "\b\f\n\r\t\"\\/");
  EXPECT_EQ(parsedString(R"("// no /* comment")"), "// no /* comment");
}

TEST_P(JSONDataParser, ControlAndHighBytesAreTakenAsTheyAre) {
  EXPECT_EQ(parsedString("\"a\nb\x01\x7f\xc3\xa9\xff\""), "a\nb\x01\x7f\xc3\xa9\xff");
}

TEST_P(JSONDataParser, BackslashBeforeAnyOtherByteIsKept) {
  EXPECT_EQ(parsedString("\"\\x\\'\\U0041\\\xff\""), "\\x\\'\\U0041\\\xff");
}

TEST_P(JSONDataParser, HexEscapesGiveOneByteOfTheLastTwoDigits) {
  EXPECT_EQ(parsedString(R"("\u0041")"), "A");
  EXPECT_EQ(parsedString(R"("\u0141")"), "A");
  EXPECT_EQ(parsedString(R"("\ufF41")"), "A");
  EXPECT_EQ(parsedString(R"("\u00e9")"), "\xe9");
  EXPECT_EQ(parsedString(R"("x\u00411y")"), "xA1y");
  EXPECT_EQ(parsedString(R"("\u0000")"), std::string(1, '\0'));
  EXPECT_EQ(parsedString(R"("\u00ff")"), "\xff");
}

TEST_P(JSONDataParser, CapitalHexDigitsCount5To10) {
  EXPECT_EQ(parsedString(R"("\u00E9")"), "\x99");
  EXPECT_EQ(parsedString(R"("\u00AB")"), "\x56");
  EXPECT_EQ(parsedString(R"("\u00FF")"), "\xaa");
  EXPECT_EQ(parsedString(R"("\u00CD")"), "\x78");
}

TEST_P(JSONDataParser, InvalidStrings) {
  for (const char* text : {R"(")", R"("abc)", R"("\)", R"("\")", R"("\u)", R"("\u00)", R"("\u004")",
                           R"("\u00g1")", R"("\ug041")", R"("\u0 41")", "\"\\u00\xff\xff\""}) {
    EXPECT_EQ(failure(text), "syntax error: invalid string") << text;
  }
}

TEST_P(JSONDataParser, AZeroByteEndsTheText) {
  EXPECT_EQ(parsed(std::string("1\0 2", 4)), "1");
  EXPECT_EQ(failure(std::string("[1\0]", 4)), "syntax error: array comma or end expected");
  EXPECT_EQ(failure(std::string("\"a\0b\"", 5)), "syntax error: invalid string");
  EXPECT_EQ(failure(std::string("\"a\\\0b\"", 6)), "syntax error: invalid string");
  EXPECT_EQ(failure(std::string("\0[1]", 4)), "");
  EXPECT_EQ(failure(std::string("// \0\n1", 6)), "");
}

TEST_P(JSONDataParser, Objects) {
  EXPECT_EQ(parsed("{}"), "{}");
  EXPECT_EQ(parsed(" { } "), "{}");
  EXPECT_EQ(parsed(R"( { "b" : 1 , "a" : { "" : [ ] } } )"), R"({"b":1,"a":{"":[]}})");
  EXPECT_EQ(node_.getByIndex(0)->refCount(), 1);
  EXPECT_EQ(parsed(R"({"k\n\u0041":1})"), R"({"k\nA":1})");
}

TEST_P(JSONDataParser, TrailingCommasAreAccepted) {
  EXPECT_EQ(parsed("[1,2,]"), "[1,2]");
  EXPECT_EQ(node_.length(), 2);
  EXPECT_EQ(parsed(R"({"a":1,})"), R"({"a":1})");
  EXPECT_EQ(parsed("[[1,],]"), "[[1]]");
}

TEST_P(JSONDataParser, EqualKeysAreAllKept) {
  EXPECT_EQ(parsed(R"({"a":1,"a":2})"), R"({"a":1,"a":2})");
  EXPECT_EQ(node_.getByKey("a")->longValue(), 2);
}

TEST_P(JSONDataParser, ObjectNotClosed) {
  for (const char* text : {"{", "{ // x", "{]", "{a:1}", "{\"a\":1,", "{\"a\":1,]", "{\"a\":1,/"}) {
    EXPECT_EQ(failure(text), "syntax error: object not closed") << text;
  }
}

TEST_P(JSONDataParser, ObjectKeyMustBeAString) {
  for (const char* text :
       {"{1:2}", "{null:1}", "{true:1}", "{[", "{{", "{,", "{:1}", "{\"a\":1,,"}) {
    EXPECT_EQ(failure(text), "syntax error: object key must be a string") << text;
  }
}

TEST_P(JSONDataParser, InvalidStringForObjectKey) {
  EXPECT_EQ(failure("{\"a"), "syntax error: invalid string for object key");
  EXPECT_EQ(failure(R"({"\u00x0":1})"), "syntax error: invalid string for object key");
}

TEST_P(JSONDataParser, ObjectColonExpected) {
  for (const char* text : {R"({"a")", R"({"a",)", R"({"a" 1})", R"({"a"})", R"({"a"x)"}) {
    EXPECT_EQ(failure(text), "syntax error: object colon expected") << text;
  }
}

TEST_P(JSONDataParser, ObjectCommaOrEndExpected) {
  for (const char* text : {R"({"a":1)", R"({"a":1])", R"({"a":1 "b":2})", R"({"a":1:)",
                           R"({"a":1 x)", R"({"a":1/)", R"({"a":1{)"}) {
    EXPECT_EQ(failure(text), "syntax error: object comma or end expected") << text;
  }
}

TEST_P(JSONDataParser, ArrayNotClosed) {
  for (const char* text : {"[", "[ /* */", "[}", "[x", "[1,", "[1,}", "[1,x", "[/"}) {
    EXPECT_EQ(failure(text), "syntax error: array not closed") << text;
  }
}

TEST_P(JSONDataParser, ArrayCommaOrEndExpected) {
  for (const char* text : {"[1", "[1}", "[1 2]", "[1:", "[1x", "[[]", "[truex]"}) {
    EXPECT_EQ(failure(text), "syntax error: array comma or end expected") << text;
  }
}

TEST_P(JSONDataParser, OnlyTheFirstErrorIsPrinted) {
  EXPECT_EQ(failure(R"({"a":[{"b":[+]}]})"), "syntax error: invalid number");
}

TEST_P(JSONDataParser, OnAnErrorWhatWasCompleteStays) {
  failure(R"({"a":1,"b":[2],"c":[3,x]})");
  EXPECT_EQ(written(), R"({"a":1,"b":[2]})");
  failure("[1,[2,3,x],4]");
  EXPECT_EQ(written(), "[1]");
  failure("[1,2");
  EXPECT_EQ(written(), "[1]");  // the 2 was not followed by a comma
  failure(R"({"a":1,"b":2)");
  EXPECT_EQ(written(), R"({"a":1})");
}

TEST_P(JSONDataParser, FailureBeforeAValueLeavesTheNodeAsItWas) {
  node_.setLong(5);
  EXPECT_FALSE(parse("x"));
  EXPECT_EQ(written(), "5");
  EXPECT_FALSE(parse(""));
  EXPECT_FALSE(parse("nul"));
  EXPECT_FALSE(parse("tru"));
  EXPECT_FALSE(parse("+"));
  EXPECT_EQ(written(), "5");
}

TEST_P(JSONDataParser, ParsingIntoAContainerOfTheSameTypeAppends) {
  parsed(R"({"a":1})");
  EXPECT_TRUE(parse(R"({"b":2,"a":3})"));
  EXPECT_EQ(written(), R"({"a":1,"b":2,"a":3})");
  EXPECT_TRUE(parse("[1]"));
  EXPECT_EQ(written(), "[1]");
  EXPECT_TRUE(parse("[2,[3]]"));
  EXPECT_EQ(written(), "[1,2,[3]]");
  EXPECT_TRUE(parse("\"x\""));
  EXPECT_TRUE(parse("\"y\""));
  EXPECT_EQ(written(), "\"y\"");
}

TEST_P(JSONDataParser, DeepestTextParsesAndADeeperOneFails) {
  const auto arrays = [](int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') +
           std::string(static_cast<std::size_t>(depth), ']');
  };
  EXPECT_EQ(arrays(10000), parsed(arrays(10000)));
  EXPECT_EQ(failure(arrays(10001)), "syntax error: nested too deeply");
  EXPECT_EQ(written(), "[]");

  std::string objects;
  for (int i = 0; i < 10000; ++i) {
    objects += "{\"a\":";
  }
  EXPECT_EQ(failure(objects + "{"), "syntax error: nested too deeply");
  EXPECT_EQ(failure(objects + "[]"), "syntax error: nested too deeply");
  EXPECT_EQ(objects + "1" + std::string(10000, '}'),
            parsed(objects + "1" + std::string(10000, '}')));
}

TEST_P(JSONDataParser, DepthCountsOpenContainersOnly) {
  std::string text = "[";
  for (int i = 0; i < 20000; ++i) {
    text += i == 0 ? "[]" : ",[]";
  }
  EXPECT_EQ(text + "]", parsed(text + "]"));
}

TEST(JSONDataParserForms, NullPointerFailsSilently) {
  JSONData node;
  const char* p = nullptr;
  StderrCapture errors;
  EXPECT_FALSE(node.setFromJsonString(p));
  EXPECT_EQ(errors.stop(), "");
}

TEST(JSONDataParserForms, StlStringIsParsedUpToItsFirstZeroByte) {
  JSONData node;
  EXPECT_TRUE(node.setFromJsonStlString(std::string("[1] \0 x", 7)));
  EXPECT_EQ(node.length(), 1);
  StderrCapture errors;
  EXPECT_FALSE(node.setFromJsonStlString(std::string("[1\0]", 4)));
  EXPECT_EQ(errors.stop(),
            "JSONData::setFromJsonString(): syntax error: array comma or end expected\n");
}

TEST(JSONDataParserForms, StlStringMayBeTheNodesOwn) {
  JSONData node;
  node.setString(R"(["a text that is too long for a short buffer"])");
  EXPECT_TRUE(node.setFromJsonStlString(*node.stringValue()));
  EXPECT_EQ(*node.getByIndex(0)->stringValue(), "a text that is too long for a short buffer");
}

TEST(JSONDataParserForms, StreamStaysUsableBehindTheValue) {
  std::istringstream in("[1] {\"a\":2} 3");
  JSONData node;
  EXPECT_TRUE(node.setFromStream(in));
  EXPECT_EQ(node.length(), 1);
  EXPECT_TRUE(node.setFromStream(in));
  EXPECT_EQ(node.getByKey("a")->longValue(), 2);
  EXPECT_TRUE(node.setFromStream(in));
  EXPECT_EQ(node.longValue(), 3);
  EXPECT_FALSE(in.fail());
  StderrCapture errors;
  EXPECT_FALSE(node.setFromStream(in));
  EXPECT_EQ(errors.stop(), "");
}

TEST(JSONDataParserForms, StreamThatCannotBeReadFailsSilently) {
  std::istream in(nullptr);
  JSONData node;
  StderrCapture errors;
  EXPECT_FALSE(node.setFromStream(in));
  EXPECT_EQ(errors.stop(), "");
}
