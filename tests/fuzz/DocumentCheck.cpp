#include "tests/fuzz/DocumentCheck.h"

#include <cstdint>
#include <set>

#include <nlohmann/json.hpp>

#include "tests/fuzz/FuzzTarget.h"

using nlohmann::json;

namespace {

using Keys = std::set<uint64_t>;

// The bytes that names may hold although JSON does not allow them. A line feed is always white
// space: in names it is escaped.
void replaceBytesOfNames(std::string& text) {
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && byte != '\n') || byte >= 0x80) {
      c = '?';
    }
  }
}

json parse(std::string text) {
  replaceBytesOfNames(text);
  json document = json::parse(text, nullptr, false);
  require(!document.is_discarded(), "the document is no JSON");
  return document;
}

const json& rowsOf(const json& document, const char* table) {
  static const json NONE = json::array();
  const auto found = document.find(table);
  return found == document.end() ? NONE : found->at("data");
}

void addKeys(const json& rows, Keys& keys) {
  for (const json& row : rows) {
    require(keys.insert(row.at(0).get<uint64_t>()).second, "two rows have the same key");
  }
}

void requireKey(const Keys& keys, const json& key, const char* promise) {
  require(keys.count(key.get<uint64_t>()) == 1, promise);
}

void checkSamples(const json& rows, const Keys& places, const Keys& threads) {
  for (const json& row : rows) {
    require(row.size() == 8, "a sample has eight columns");
    requireKey(places, row.at(2), "the map of a sample is in its table");
    requireKey(threads, row.at(5), "the thread of a sample is in its table");
    for (const json& caller : row.at(7)) {
      requireKey(places, caller.at(1), "the map of a caller is in its table");
    }
  }
}

}  // namespace

void requireJson(std::string text) { parse(std::move(text)); }

void requireDocument(std::string text) {
  const json document = parse(std::move(text));
  Keys maps;
  Keys functions;
  Keys threads;
  addKeys(rowsOf(document, "libraries"), maps);
  addKeys(rowsOf(document, "functions"), functions);
  addKeys(rowsOf(document, "processes"), threads);
  Keys places = maps;
  for (const uint64_t key : functions) {
    require(places.insert(key).second, "a map and a function have the same key");
  }
  checkSamples(rowsOf(document, "samples"), places, threads);
  for (const json& row : rowsOf(document, "libraries")) {
    if (row.at(1) != 0) {  // the kernel's maps belong to a process that need not be in use
      requireKey(threads, row.at(1), "the process of a map is in its table");
    }
  }
  for (const json& row : rowsOf(document, "functions")) {
    for (const json& map : row.at(4)) {
      requireKey(maps, map, "the map of a function is in its table");
    }
  }
  for (const json& row : rowsOf(document, "files")) {
    for (const json& function : row.at(2)) {
      requireKey(functions, function.at(0), "the function of a file is in its table");
    }
  }
}
