#include "report/QualityFacts.h"

#include <simdjson.h>

namespace report {

namespace {

// The first member of the name, at any depth.
bool findText(const simdjson::dom::element& element, std::string_view name, std::string& text) {
  simdjson::dom::object object;
  if (element.get_object().get(object) != simdjson::SUCCESS) {
    return false;
  }
  std::string_view found;
  if (object.at_key(name).get_string().get(found) == simdjson::SUCCESS) {
    text = found;
    return true;
  }
  for (const auto member : object) {
    if (findText(member.value, name, text)) {
      return true;
    }
  }
  return false;
}

std::string textOf(const std::string& json, std::string_view name) {
  simdjson::dom::parser parser;
  simdjson::dom::element root;
  std::string text;
  if (parser.parse(json).get(root) == simdjson::SUCCESS) {
    findText(root, name, text);
  }
  return text;
}

}  // namespace

std::string hostOf(const std::string& qualityJson) { return textOf(qualityJson, "host"); }

std::string commandLineOf(const std::string& qualityJson) {
  return textOf(qualityJson, "commandLine");
}

}  // namespace report
