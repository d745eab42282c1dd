// The typed reads of a handle, and the expansion of environment variables.
#include <cstdlib>
#include <deque>
#include <initializer_list>
#include <string>
#include <string_view>

#include "kestrel/json/JSOM.h"
#include "kestrel/json/NumberGrammar.h"
#include "kestrel/json/TextSource.h"

namespace kestrel {

namespace {

// Whether the whole text is one number.
bool _readNumber(const std::string& text, JsonNumber& number) {
  const char* p = text.c_str();
  BufferSource in(p);
  return parseJsonNumber(in, number) && p == text.data() + text.size();
}

// Without a locale, so that a text means the same everywhere.
bool _equalsIgnoringCase(std::string_view text, std::string_view lowerCase) {
  if (text.size() != lowerCase.size()) {
    return false;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char byte = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] + 32) : text[i];
    if (byte != lowerCase[i]) {
      return false;
    }
  }
  return true;
}

bool _isOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (_equalsIgnoringCase(text, word)) {
      return true;
    }
  }
  return false;
}

// Null if there is none of that name. A name that cannot be one is not looked up: what follows a
// zero byte would be left out, and a '=' would be taken for the end of a shorter name.
const char* _environmentValue(const std::string& name) {
  if (name.empty() || name.find('\0') != std::string::npos || name.find('=') != std::string::npos) {
    return nullptr;
  }
  return std::getenv(name.c_str());
}

// The text with its references replaced; false if there was none to replace.
bool _expandReferences(const std::string& text, std::string& result) {
  bool changed = false;
  std::size_t at = 0;
  for (;;) {
    const std::size_t start = text.find("${", at);
    const std::size_t end = start == std::string::npos ? start : text.find('}', start + 2);
    if (end == std::string::npos) {
      break;
    }
    result.append(text, at, start - at);
    const std::string name = text.substr(start + 2, end - start - 2);
    if (const char* const value = _environmentValue(name)) {
      result += value;
      changed = true;
    } else {
      result.append(text, start, end + 1 - start);
    }
    at = end + 1;
  }
  result.append(text, at);
  return changed;
}

}  // namespace

long long JSOM::longValue(long long def) const {
  const JSONData* const node = _convertToNumber(JSONData::LONG);
  return node == nullptr ? def : node->longValue();
}

long double JSOM::doubleValue(long double def) const {
  const JSONData* const node = _convertToNumber(JSONData::DOUBLE);
  return node == nullptr ? def : node->doubleValue();
}

// The node, after a text that reads as such a number has become one; null for other texts and
// types.
JSONData* JSOM::_convertToNumber(JSONData::Type type) const {
  JSONData* const node = _node();
  if (node == nullptr) {
    return nullptr;
  }
  switch (node->type()) {
    case JSONData::LONG:
    case JSONData::DOUBLE:
    case JSONData::BOOLEAN:
      return node;
    case JSONData::STRING: {
      JsonNumber number;
      if (!_readNumber(*node->stringValue(), number) ||
          (type == JSONData::LONG && number.hasPoint)) {
        return nullptr;
      }
      if (type == JSONData::LONG) {
        node->setLong(number.asLong());
      } else {
        node->setDouble(number.asDouble());
      }
      return node;
    }
    default:
      return nullptr;
  }
}

bool JSOM::booleanValue(bool def) const {
  JSONData* const node = _node();
  if (node == nullptr) {
    return def;
  }
  switch (node->type()) {
    case JSONData::BOOLEAN:
      return node->booleanValue();
    case JSONData::LONG:
      return node->longValue() != 0;
    case JSONData::DOUBLE:
      return node->doubleValue() != 0;
    case JSONData::STRING: {
      // kept: "false" and "no" are not among them, and configurations rely on their default there
      const bool isTrue = _isOneOf(*node->stringValue(), {"true", "yes", "on", "t", "y", "1"});
      if (!isTrue && !_isOneOf(*node->stringValue(), {"off", "f", "n", "0"})) {
        return def;
      }
      node->setBoolean(isTrue);
      return isTrue;
    }
    default:
      return def;
  }
}

const std::string& JSOM::stringValue(const std::string& def) const {
  const std::string* const text = _convertToText();
  return text == nullptr ? def : *text;
}

const char* JSOM::stringValuePtr(const char* def) const {
  const std::string* const text = _convertToText();
  return text == nullptr ? def : text->c_str();
}

// The node's text, after a boolean or number has become its own; null for other types.
const std::string* JSOM::_convertToText() const {
  JSONData* const node = _node();
  if (node == nullptr) {
    return nullptr;
  }
  switch (node->type()) {
    case JSONData::BOOLEAN:
    case JSONData::LONG:
    case JSONData::DOUBLE: {
      std::string text;
      node->appendStringValue(text, defaultPrecision);
      node->setString(text);
      break;
    }
    default:
      break;
  }
  return node->stringValue();
}

void JSOM::expandValues() { _expandValues(*this); }

void JSOM::_expandValues(JSOM& h) {
  struct OpenContainer {
    JSOM handle;
    int next;  // the child to visit next
  };
  std::deque<OpenContainer> open;  // a stack: trees may be deeper than the thread's
  const auto visit = [&open](JSOM& value) {
    if (value.isArray() || value.isObject()) {
      open.push_back({value, 0});
    } else if (value.isString()) {
      _expandString(value);
    }
  };
  visit(h);
  while (!open.empty()) {
    OpenContainer& container = open.back();
    if (container.next < container.handle.size()) {
      JSOM child = container.handle[container.next++];
      visit(child);
    } else {
      open.pop_back();
    }
  }
}

void JSOM::_expandString(JSOM& h) {
  std::string result;
  if (_expandReferences(h.stringValue(EMPTY_STRING), result)) {
    h.setString(result);
  }
}

}  // namespace kestrel
