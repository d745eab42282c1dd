// The grammar of JSON texts, once for every source of bytes (see TextSource.h). Beyond JSON it
// takes comments and a comma before a closing bracket; it has no exponents, and \u yields one byte.
// Errors print one line on standard error under the given operation name; only the first one is
// told.
//
// Open containers are kept on a stack of its own, so that depth costs no thread stack.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/json/JSONData.h"
#include "kestrel/json/NumberGrammar.h"

namespace kestrel {

template <typename Source>
class JSONDataParser {
 public:
  JSONDataParser(Source& in, const char* operation) : in_(in), operation_(operation) {}

  // Parses one value into the node and leaves the source behind it. On failure what was complete
  // stays in the node.
  bool parse(JSONData& root);

 private:
  enum class Token {
    END_OF_TEXT,  // also within a comment
    BAD,
    NULL_VALUE,
    BOOLEAN,
    STRING,
    NUMBER,
    OBJECT_START,
    OBJECT_END,
    ARRAY_START,
    ARRAY_END,
    COMMA,
    COLON
  };
  // How a step inside a container went on.
  enum class Step { FAILED, OPEN, CLOSED };

  struct ReleaseNode {
    void operator()(JSONData* node) const { JSONData::release(node); }
  };
  // A container whose closing bracket was not read yet. An item joins its container only when it is
  // complete and followed by a comma or the closing bracket; until then it is held here, and
  // dropped with this if parsing fails.
  struct OpenContainer {
    JSONData* node;  // the root, or the item of the container outside this one
    std::unique_ptr<JSONData, ReleaseNode> item;
    std::string key;  // of the item, in an object
  };

  Token fetchNextType();
  bool _skipComment(Token& failure);
  bool _parseValue(JSONData& node);
  bool _openContainer(JSONData& node, JSONData::Type type);
  Step _beginItem();
  Step _beginMember();
  Step _beginElement();
  Step _finishItem();
  void _appendItem();
  bool _parseWord(const char* word);
  bool parseJsonString(std::string& text);
  bool _parseEscape(std::string& text);
  bool _parseHexByte(std::string& text);
  bool parseJsonNumberIntoSelf(JSONData& node);
  bool _fail(const char* message);
  Step _failStep(const char* message);

  Source& in_;
  const char* operation_;
  std::vector<OpenContainer> open_;  // outermost first
};

template <typename Source>
bool JSONDataParser<Source>::parse(JSONData& root) {
  JSONData* place = &root;
  for (;;) {
    const std::size_t depth = open_.size();
    if (!_parseValue(*place)) {
      return false;
    }
    bool complete = open_.size() == depth;  // otherwise a container was opened
    for (;;) {
      if (complete && open_.empty()) {
        return true;
      }
      Step step = complete ? _finishItem() : Step::OPEN;
      if (step == Step::OPEN) {
        step = _beginItem();
      }
      if (step == Step::FAILED) {
        return false;
      }
      if (step == Step::OPEN) {
        break;
      }
      open_.pop_back();
      complete = true;
    }
    place = open_.back().item.get();
  }
}

// Tells what comes next without taking it; only white space and comments before it are taken.
template <typename Source>
typename JSONDataParser<Source>::Token JSONDataParser<Source>::fetchNextType() {
  for (;;) {
    const char byte = in_.peek();
    switch (byte) {
      case '\t':
      case '\n':
      case '\r':
      case ' ':
        in_.next();
        continue;
      case '/': {
        Token failure;
        if (!_skipComment(failure)) {
          return failure;
        }
        continue;
      }
      case '"':
        return Token::STRING;
      case 't':
      case 'f':
        return Token::BOOLEAN;
      case 'n':
        return Token::NULL_VALUE;
      case '{':
        return Token::OBJECT_START;
      case '}':
        return Token::OBJECT_END;
      case '[':
        return Token::ARRAY_START;
      case ']':
        return Token::ARRAY_END;
      case ',':
        return Token::COMMA;
      case ':':
        return Token::COLON;
      case 0:
        return Token::END_OF_TEXT;
      default:
        if (byte == '-' || byte == '+' || (byte >= '0' && byte <= '9')) {
          return Token::NUMBER;
        }
        return Token::BAD;
    }
  }
}

template <typename Source>
bool JSONDataParser<Source>::_skipComment(Token& failure) {
  in_.next();
  const char kind = in_.peek();
  if (kind != '/' && kind != '*') {
    failure = Token::BAD;
    return false;
  }
  in_.next();
  for (;;) {
    const char byte = in_.peek();
    if (byte == 0) {
      failure = Token::END_OF_TEXT;
      return false;
    }
    in_.next();
    if (kind == '/' && byte == '\n') {
      return true;
    }
    if (kind == '*' && byte == '*' && in_.peek() == '/') {
      in_.next();
      return true;
    }
  }
}

// Parses a scalar whole; of a container only the opening bracket, which puts it on the stack.
template <typename Source>
bool JSONDataParser<Source>::_parseValue(JSONData& node) {
  switch (fetchNextType()) {
    case Token::END_OF_TEXT:
      return false;  // without a message
    case Token::NULL_VALUE:
      if (!_parseWord("null")) {
        return _fail("syntax error: invalid null value");
      }
      node.setNull();
      return true;
    case Token::BOOLEAN: {
      const bool value = in_.peek() == 't';
      if (!_parseWord(value ? "true" : "false")) {
        return _fail("syntax error: invalid boolean value");
      }
      node.setBoolean(value);
      return true;
    }
    case Token::STRING:
      node.setType(JSONData::STRING);
      return parseJsonString(*node.content_.text) || _fail("syntax error: invalid string");
    case Token::NUMBER:
      return parseJsonNumberIntoSelf(node) || _fail("syntax error: invalid number");
    case Token::OBJECT_START:
      return _openContainer(node, JSONData::OBJECT);
    case Token::ARRAY_START:
      return _openContainer(node, JSONData::ARRAY);
    default:
      return _fail("syntax error: missing value");
  }
}

template <typename Source>
bool JSONDataParser<Source>::_openContainer(JSONData& node, JSONData::Type type) {
  if (open_.size() >= JSONData::MAX_DEPTH) {
    return _fail("syntax error: nested too deeply");
  }
  node.setType(type);
  in_.next();
  open_.push_back({&node, nullptr, {}});
  return true;
}

template <typename Source>
typename JSONDataParser<Source>::Step JSONDataParser<Source>::_beginItem() {
  const Step step =
      open_.back().node->type() == JSONData::OBJECT ? _beginMember() : _beginElement();
  if (step != Step::OPEN) {
    return step;
  }
  open_.back().item.reset(new JSONData);
  open_.back().item->retain();
  return step;
}

template <typename Source>
typename JSONDataParser<Source>::Step JSONDataParser<Source>::_beginMember() {
  switch (fetchNextType()) {
    case Token::OBJECT_END:
      in_.next();
      return Step::CLOSED;
    case Token::END_OF_TEXT:
    case Token::BAD:
    case Token::ARRAY_END:
      return _failStep("syntax error: object not closed");
    case Token::STRING:
      break;
    default:
      return _failStep("syntax error: object key must be a string");
  }
  if (!parseJsonString(open_.back().key)) {
    return _failStep("syntax error: invalid string for object key");
  }
  if (fetchNextType() != Token::COLON) {
    return _failStep("syntax error: object colon expected");
  }
  in_.next();
  return Step::OPEN;
}

template <typename Source>
typename JSONDataParser<Source>::Step JSONDataParser<Source>::_beginElement() {
  switch (fetchNextType()) {
    case Token::ARRAY_END:
      in_.next();
      return Step::CLOSED;
    case Token::END_OF_TEXT:
    case Token::BAD:
    case Token::OBJECT_END:
      return _failStep("syntax error: array not closed");
    default:
      return Step::OPEN;
  }
}

// After a complete item: takes the comma or the closing bracket and adds the item to its container.
template <typename Source>
typename JSONDataParser<Source>::Step JSONDataParser<Source>::_finishItem() {
  const bool inObject = open_.back().node->type() == JSONData::OBJECT;
  const Token token = fetchNextType();
  const bool closed = token == (inObject ? Token::OBJECT_END : Token::ARRAY_END);
  if (!closed && token != Token::COMMA) {
    return _failStep(inObject ? "syntax error: object comma or end expected"
                              : "syntax error: array comma or end expected");
  }
  in_.next();
  _appendItem();
  return closed ? Step::CLOSED : Step::OPEN;
}

// Always at the end, without a look for the same key: the last one hides the others.
template <typename Source>
void JSONDataParser<Source>::_appendItem() {
  OpenContainer& container = open_.back();
  JSONData& node = *container.node;
  if (node.type() == JSONData::OBJECT) {
    node._appendMember(std::move(container.key), container.item.get());
  } else {
    node.content_.elements->push_back(container.item.get());
  }
  container.item.release();  // its one reference is the container's now
}

template <typename Source>
bool JSONDataParser<Source>::_parseWord(const char* word) {
  for (; *word != 0; ++word) {
    if (in_.peek() != *word) {
      return false;
    }
    in_.next();
  }
  return true;
}

template <typename Source>
bool JSONDataParser<Source>::parseJsonString(std::string& text) {
  text.clear();
  if (in_.peek() != '"') {
    return false;
  }
  in_.next();
  for (;;) {
    const char byte = in_.peek();
    if (byte == 0) {
      return false;
    }
    in_.next();
    if (byte == '"') {
      return true;
    }
    if (byte != '\\') {
      text += byte;
    } else if (!_parseEscape(text)) {
      return false;
    }
  }
}

template <typename Source>
bool JSONDataParser<Source>::_parseEscape(std::string& text) {
  const char letter = in_.peek();
  if (letter == 0) {
    return false;
  }
  in_.next();
  switch (letter) {
    case 'b':
      text += '\b';
      return true;
    case 'f':
      text += '\f';
      return true;
    case 'n':
      text += '\n';
      return true;
    case 'r':
      text += '\r';
      return true;
    case 't':
      text += '\t';
      return true;
    case '"':
    case '\\':
    case '/':
      text += letter;
      return true;
    case 'u':
      return _parseHexByte(text);
    default:
      text += '\\';
      text += letter;
      return true;
  }
}

// Four hexadecimal digits, of which the last two give one byte. Capital digits count 5 to 10.
// kept: files written for this parser rely on it
template <typename Source>
bool JSONDataParser<Source>::_parseHexByte(std::string& text) {
  int value = 0;
  for (int i = 0; i < 4; ++i) {
    const char digit = in_.peek();
    int worth;
    if (digit >= '0' && digit <= '9') {
      worth = digit - '0';
    } else if (digit >= 'a' && digit <= 'f') {
      worth = digit - 'a' + 10;
    } else if (digit >= 'A' && digit <= 'F') {
      worth = digit - 60;
    } else {
      return false;
    }
    in_.next();
    if (i >= 2) {
      value = value * 16 + worth;
    }
  }
  text += static_cast<char>(static_cast<unsigned char>(value));
  return true;
}

template <typename Source>
bool JSONDataParser<Source>::parseJsonNumberIntoSelf(JSONData& node) {
  JsonNumber number;
  if (!parseJsonNumber(in_, number)) {
    return false;
  }
  if (number.hasPoint) {
    node.setDouble(number.asDouble());
  } else {
    node.setLong(number.asLong());
  }
  return true;
}

template <typename Source>
bool JSONDataParser<Source>::_fail(const char* message) {
  std::fprintf(stderr, "JSONData::%s: %s\n", operation_, message);
  return false;
}

template <typename Source>
typename JSONDataParser<Source>::Step JSONDataParser<Source>::_failStep(const char* message) {
  _fail(message);
  return Step::FAILED;
}

}  // namespace kestrel
