#include "tests/fuzz/JsonRoundTrip.h"

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "tests/fuzz/DocumentCheck.h"
#include "tests/fuzz/FuzzTarget.h"

using kestrel::JSOM;

namespace {

constexpr int DIGITS = 6;
constexpr double ROUNDING = 1e-6;         // what DIGITS fraction digits can be off by
constexpr double PARSE_ROUNDING = 1e-14;  // and what each digit that is read adds, of the number
constexpr double LARGEST_PRINTED = 1e15;  // far below where the digits before the point wrap

bool hasZeroByte(const std::string& text) { return text.find('\0') != std::string::npos; }

double numberOf(const JSOM& value) { return static_cast<double>(value.doubleValue(0)); }

bool isScalarPrintable(const JSOM& value) {
  if (value.isString()) {
    return !hasZeroByte(value.stringValue(JSOM::EMPTY_STRING));
  }
  if (value.isNumber()) {
    return std::fabs(numberOf(value)) < LARGEST_PRINTED;  // false for what is not a number, too
  }
  return value.isNull() || value.isBoolean();
}

bool isPrintable(const JSOM& tree) {
  std::vector<JSOM> open = {tree};
  while (!open.empty()) {
    JSOM value = open.back();
    open.pop_back();
    if (!value.isObject() && !value.isArray()) {
      if (!isScalarPrintable(value)) {
        return false;
      }
      continue;
    }
    for (int i = 0; i < value.size(); ++i) {
      if (value.isObject() && hasZeroByte(*value.key(i))) {
        return false;
      }
      open.push_back(value[i]);
    }
  }
  return true;
}

void requireSameScalar(const JSOM& one, const JSOM& other) {
  if (one.isNumber()) {
    const double number = numberOf(one);
    require(other.isNumber() && std::fabs(number - numberOf(other)) <=
                                    ROUNDING + PARSE_ROUNDING * std::fabs(number),
            "a number is parsed as it was written");
    return;
  }
  require(one.isNull() == other.isNull() && one.isBoolean() == other.isBoolean() &&
              one.isString() == other.isString(),
          "a value is parsed with the type that it had");
  if (one.isBoolean()) {
    require(one.booleanValue(false) == other.booleanValue(true), "a boolean keeps its value");
  } else if (one.isString()) {
    require(one.stringValue(JSOM::EMPTY_STRING) == other.stringValue(JSOM::EMPTY_STRING),
            "a string is parsed as it was written");
  }
}

void requireSame(const JSOM& tree, const JSOM& parsed) {
  std::vector<std::pair<JSOM, JSOM>> open;
  open.emplace_back(tree, parsed);
  while (!open.empty()) {
    std::pair<JSOM, JSOM> values(open.back());
    open.pop_back();
    auto& [one, other] = values;
    require(one.isObject() == other.isObject() && one.isArray() == other.isArray() &&
                one.size() == other.size(),
            "a container is parsed as it was written");
    if (!one.isObject() && !one.isArray()) {
      requireSameScalar(one, other);
    }
    for (int i = 0; i < one.size(); ++i) {
      require(!one.isObject() || *one.key(i) == *other.key(i), "a key is parsed as it was written");
      open.emplace_back(one[i], other[i]);
    }
  }
}

}  // namespace

void requireRoundTrip(const JSOM& tree) {
  if (!isPrintable(tree)) {
    return;
  }
  std::string compact;
  std::string indented;
  tree.toCompactString(compact, DIGITS);
  tree.toString(indented, DIGITS);
  for (const std::string& text : {compact, indented}) {
    requireJson(text);
    JSOM parsed;
    require(!parsed.fromString(text).isError(), "what was written can be parsed");
    requireSame(tree, parsed);
  }
}
