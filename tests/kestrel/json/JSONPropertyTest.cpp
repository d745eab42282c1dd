// Random documents from fixed seeds: written, parsed and written again; and against another JSON
// library, on the texts that mean the same to both.
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "kestrel/json/JSONData.h"
#include "tests/support/StreamCapture.h"

using kestrel::JSONData;
using nlohmann::json;

namespace {

constexpr int MAX_NESTING = 6;

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  int below(int limit) { return static_cast<int>(engine_() % static_cast<unsigned>(limit)); }
  bool chance(int percent) { return below(100) < percent; }

 private:
  std::mt19937_64 engine_;  // the same numbers everywhere, other than the standard distributions
};

// Any bytes but 0, which no text can hold.
std::string randomBytes(Random& random) {
  std::string text;
  for (int i = random.below(12); i > 0; --i) {
    text += static_cast<char>(1 + random.below(255));
  }
  return text;
}

// Thousandths, so that no zero is written as "-0", which would be read as the long 0.
double randomThousandths(Random& random) {
  const double value = (1 + random.below(2000000000)) / 1000.0;
  return random.chance(50) ? value : -value;
}

JSONData* randomTree(Random& random, int nesting) {
  auto* const node = new JSONData;
  switch (random.below(nesting == 0 ? 5 : 8)) {
    case 0:
      node->setNull();
      break;
    case 1:
      node->setBoolean(random.chance(50));
      break;
    case 2:
      node->setLong(static_cast<long long>(random.bits()));
      break;
    case 3:
      node->setDouble(randomThousandths(random));
      break;
    case 4:
      node->setString(randomBytes(random));
      break;
    case 5:
    case 6:
      node->setObject();
      for (int i = random.below(5); i > 0; --i) {
        node->setByKey(randomBytes(random), randomTree(random, nesting - 1));
      }
      break;
    default:
      node->setArray();
      for (int i = random.below(5); i > 0; --i) {
        node->setByIndex(node->length(), randomTree(random, nesting - 1));
      }
      break;
  }
  return node;
}

std::string written(const JSONData& node, bool pretty) {
  std::string out;
  node.toJsonString(out, pretty, 6);
  return out;
}

// Writes texts that are JSON to everybody: no comments, exponents or trailing commas, each key
// once, ASCII escapes.
class TextMaker {
 public:
  explicit TextMaker(Random& random) : random_(random) {}

  std::string container() {
    text_.clear();
    _container(MAX_NESTING);
    return text_;
  }

 private:
  void _value(int nesting) {
    _space();
    switch (random_.below(nesting == 0 ? 5 : 7)) {
      case 0:
        text_ += "null";
        break;
      case 1:
        text_ += random_.chance(50) ? "true" : "false";
        break;
      case 2:
        text_ += std::to_string(static_cast<std::int64_t>(random_.bits()) >> random_.below(64));
        break;
      case 3:
        if (random_.chance(30)) {
          text_ += '-';
        }
        text_ +=
            std::to_string(random_.below(1000000)) + "." + std::to_string(random_.below(1000000));
        break;
      case 4:
        _string("");
        break;
      default:
        _container(nesting - 1);
        break;
    }
    _space();
  }

  void _container(int nesting) {
    const bool isObject = random_.chance(50);
    text_ += isObject ? '{' : '[';
    const int count = random_.below(6);
    for (int i = 0; i < count; ++i) {
      if (i > 0) {
        text_ += ',';
      }
      if (isObject) {
        _space();
        _string(std::to_string(i));
        _space();
        text_ += ':';
      }
      _value(nesting);
    }
    if (count == 0) {
      _space();
    }
    text_ += isObject ? '}' : ']';
  }

  void _string(const std::string& start) {
    static const char* const PIECES[] = {"a",
                                         "Z",
                                         " ",
                                         "/",
                                         "{",
                                         ",",
                                         "\\n",
                                         "\\t",
                                         "\\\"",
                                         "\\\\",
                                         "\\/",
                                         "\\b",
                                         "\\f",
                                         "\\r",
                                         "\\u0041",
                                         "\\u007f",
                                         "\\u0009",
                                         "\\u006a",
                                         ":",
                                         "\xc3\xa9",
                                         "\xe2\x82\xac",
                                         "//",
                                         "\xf0\x9f\x98\x80",
                                         "0"};
    text_ += '"' + start;
    for (int i = random_.below(8); i > 0; --i) {
      text_ += PIECES[random_.below(std::size(PIECES))];
    }
    text_ += '"';
  }

  void _space() {
    while (random_.chance(20)) {
      text_ += " \t\n\r"[random_.below(4)];
    }
  }

  Random& random_;
  std::string text_;
};

void expectSame(const json& expected, const JSONData& node) {
  switch (expected.type()) {
    case json::value_t::null:
      ASSERT_EQ(node.type(), JSONData::NULL_VALUE);
      break;
    case json::value_t::boolean:
      ASSERT_EQ(node.type(), JSONData::BOOLEAN);
      ASSERT_EQ(expected.get<bool>(), node.booleanValue());
      break;
    case json::value_t::number_integer:
    case json::value_t::number_unsigned:
      ASSERT_EQ(node.type(), JSONData::LONG);
      ASSERT_EQ(expected.get<std::int64_t>(), node.longValue());
      break;
    case json::value_t::number_float:
      ASSERT_EQ(node.type(), JSONData::DOUBLE);
      // The digits are added one by one, each sum rounded.
      ASSERT_NEAR(expected.get<double>(), node.doubleValue(),
                  1e-14 * std::fabs(expected.get<double>()));
      break;
    case json::value_t::string:
      ASSERT_EQ(node.type(), JSONData::STRING);
      ASSERT_EQ(expected.get<std::string>(), *node.stringValue());
      break;
    case json::value_t::array:
      ASSERT_EQ(node.type(), JSONData::ARRAY);
      ASSERT_EQ(expected.size(), static_cast<std::size_t>(node.length()));
      for (int i = 0; i < node.length(); ++i) {
        expectSame(expected[static_cast<std::size_t>(i)], *node.getByIndex(i));
      }
      break;
    case json::value_t::object:
      ASSERT_EQ(node.type(), JSONData::OBJECT);
      ASSERT_EQ(expected.size(), static_cast<std::size_t>(node.length()));
      for (const auto& [key, value] : expected.items()) {
        const JSONData* const member = node.getByKey(key);
        ASSERT_NE(member, nullptr) << key;
        expectSame(value, *member);
      }
      break;
    default:
      FAIL() << "a type that no text has";
  }
}

}  // namespace

TEST(JSONProperty, WhatIsWrittenParsesToTheSameText) {
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    Random random(seed);
    JSONData* const tree = randomTree(random, MAX_NESTING);
    for (const bool pretty : {false, true}) {
      const std::string text = written(*tree, pretty);
      JSONData fromBuffer;
      ASSERT_TRUE(fromBuffer.setFromJsonStlString(text)) << seed;
      ASSERT_EQ(text, written(fromBuffer, pretty)) << seed;
      JSONData fromStream;
      std::istringstream in(text);
      ASSERT_TRUE(fromStream.setFromStream(in)) << seed;
      ASSERT_EQ(text, written(fromStream, pretty)) << seed;
      JSONData copied;
      copied.copy(fromStream);
      ASSERT_EQ(text, written(copied, pretty)) << seed;
    }
    JSONData::release(tree);
  }
}

TEST(JSONProperty, AnotherLibraryReadsTheSame) {
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    Random random(seed);
    const std::string text = TextMaker(random).container();
    SCOPED_TRACE(text);
    const json expected = json::parse(text);
    JSONData node;
    ASSERT_TRUE(node.setFromJsonStlString(text));
    expectSame(expected, node);
    JSONData fromStream;
    std::istringstream in(text);
    ASSERT_TRUE(fromStream.setFromStream(in));
    expectSame(expected, fromStream);
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(JSONProperty, AnotherLibraryReadsWhatIsWritten) {
  for (unsigned seed = 1; seed <= 1000; ++seed) {
    Random random(seed);
    const std::string text = TextMaker(random).container();
    SCOPED_TRACE(text);
    JSONData node;
    ASSERT_TRUE(node.setFromJsonStlString(text));
    for (const bool pretty : {false, true}) {
      const std::string again = written(node, pretty);

      JSONData reread;
      ASSERT_TRUE(reread.setFromJsonStlString(again));
      expectSame(json::parse(again), reread);
    }
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(JSONProperty, NeitherLibraryTakesATextThatIsCutShort) {
  StderrCapture errors;
  for (unsigned seed = 1; seed <= 300; ++seed) {
    Random random(seed);
    const std::string text = TextMaker(random).container();
    for (std::size_t length = 0; length < text.size(); ++length) {
      const std::string cut = text.substr(0, length);
      ASSERT_FALSE(json::accept(cut)) << cut;
      JSONData node;
      ASSERT_FALSE(node.setFromJsonStlString(cut)) << cut;
      std::istringstream in(cut);
      ASSERT_FALSE(node.setFromStream(in)) << cut;
    }
  }
}

TEST(JSONProperty, NoBytesDoHarm) {
  const std::string alphabet = std::string("{}[]:,\"\\/*ntfu0189aF-+. \n\xff") + '\0';
  const int letters = static_cast<int>(alphabet.size());
  StderrCapture errors;
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    Random random(seed);
    std::string text;
    if (random.chance(50)) {
      text = TextMaker(random).container();
    }
    for (int i = random.below(20); i > 0; --i) {
      const char byte = alphabet[static_cast<std::size_t>(random.below(letters))];
      text.insert(static_cast<std::size_t>(random.below(static_cast<int>(text.size()) + 1)), 1,
                  byte);
    }
    JSONData fromBuffer;
    JSONData fromStream;
    std::istringstream in(text);
    ASSERT_EQ(fromBuffer.setFromJsonStlString(text), fromStream.setFromStream(in)) << text;
    ASSERT_EQ(written(fromBuffer, false), written(fromStream, false)) << text;
  }
}
