#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "kestrel/json/JSONData.h"
#include "kestrel/json/JsonEscapes.h"
#include "kestrel/json/NumberText.h"

namespace kestrel {

namespace {

constexpr int NUMBER_BYTES = 64;
constexpr long long WIDEST_INDENTATION = 50;
constexpr int STREAM_PRECISION = 6;

void _appendLine(std::string& out, long long spaces) {
  out += '\n';
  out.append(static_cast<std::size_t>(std::clamp(spaces, 0LL, WIDEST_INDENTATION)), ' ');
}

void _appendLong(std::string& out, long long value) {
  char digits[NUMBER_BYTES];
  out.append(digits, std::to_chars(digits, digits + NUMBER_BYTES, value).ptr);
}

void _appendDouble(std::string& out, double value, int precision) {
  char digits[NUMBER_BYTES];
  const int length = formatFixed(value, precision, digits, NUMBER_BYTES);
  out.append(digits, static_cast<std::size_t>(trimZeros(digits, length, precision)));
}

}  // namespace

void JSONData::toJsonString(std::string& out, bool pretty, int precision) const {
  out.clear();
  appendJsonString(out, pretty, precision, 0);
}

void JSONData::appendJsonString(std::string& out, bool pretty, int precision, int depth) const {
  struct OpenContainer {
    const JSONData* node;
    int next;  // the child to write next
  };
  std::vector<OpenContainer> open;
  const auto startLine = [&] {
    if (pretty) {
      _appendLine(out, depth + static_cast<long long>(open.size()));
    }
  };
  const JSONData* node = this;
  for (;;) {
    if (node->type_ == OBJECT || node->type_ == ARRAY) {
      out += node->type_ == OBJECT ? '{' : '[';
      open.push_back({node, 0});
    } else if (node->type_ == STRING) {
      quoteJsonString(*node->content_.text, out);
    } else {
      node->appendStringValue(out, precision);
    }
    while (!open.empty() && open.back().next == open.back().node->length()) {
      const char bracket = open.back().node->type_ == OBJECT ? '}' : ']';
      open.pop_back();
      startLine();
      out += bracket;
    }
    if (open.empty()) {
      return;
    }
    OpenContainer& container = open.back();
    if (container.next > 0) {
      out += ',';
    }
    startLine();
    if (container.node->type_ == OBJECT) {
      quoteJsonString(*container.node->getKeyAtIndex(container.next), out);
      out += pretty ? ": " : ":";
    }
    node = container.node->getByIndex(container.next++);
  }
}

void JSONData::appendStringValue(std::string& out, int precision) const {
  switch (type_) {
    case NULL_VALUE:
      out += "null";
      break;
    case BOOLEAN:
      out += booleanValue() ? "true" : "false";
      break;
    case STRING:
      out += *content_.text;
      break;
    case LONG:
      _appendLong(out, content_.number);
      break;
    case DOUBLE:
      _appendDouble(out, content_.real, precision);
      break;
    default:
      break;
  }
}

void JSONData::quoteJsonString(const std::string& s, std::string& out) {
  out += '"';
  for (const char byte : s) {
    const char letter = jsonEscapeLetter(byte);
    if (letter == 0) {
      out += byte;
    } else {
      out += '\\';
      out += letter;
    }
  }
  out += '"';
}

void JSONData::appendStream(std::ostream& out) const {
  std::string text;
  appendJsonString(text, false, STREAM_PRECISION, 0);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace kestrel
