// The tables of the document as texts: their names and the descriptions of their columns.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

// A column's name and its description.
using TableColumns = std::vector<std::pair<std::string, std::string>>;

inline const TableColumns& columnsOf(const std::string& table) {
  static const std::string dbKey =
      "db key for this process element used in other structs as a reference";
  static const std::map<std::string, TableColumns> tables = {
      {"samples",
       {{"key", "key or reference for this sample"},
        {"ip", "Location of sample, program counter"},
        {"mapkey", "reference to map entry"},
        {"time", "time stamp of the sample"},
        {"cpu", "which core the sample was taken on"},
        {"pidkey", "reference to the process element"},
        {"tid", "tid for this sample"},
        {"bt.ip", "backtrace program counter"},
        {"bt.mapkey", "backtrace map key"}}},
      {"libraries",
       {{"key", dbKey},
        {"pidkey", "key or reference to the process"},
        {"name", "name of the library or function"},
        {"startAddress", "start address of this memory map"},
        {"sectionSize", "length of the memory map"}}},
      {"functions",
       {{"key", "key for this symbol"},
        {"name", "name of this symbol"},
        {"startAddress", "Base address of this function or symbol"},
        {"sectionSize", "Size of this function or symbol"},
        {"maps", "array of maps for this sample"}}},
      {"processes",
       {{"key", dbKey},
        {"pid", "The process id associated with this name"},
        {"tid", "The thread id"},
        {"name", "Name of the process with the pid and tid"}}},
      {"files",
       {{"key", "key for this symbol"},
        {"name", "name of this symbol"},
        {"symbols.ref", "ref to symbol using this file"},
        {"symbols.linenum", "ref to line number"}}}};
  return tables.at(table);
}

// An object with this table alone.
inline std::string tableText(const std::string& table, const std::string& rows) {
  std::string text = "{\"" + table + "\":{\"descriptions\":{";
  for (const auto& [column, description] : columnsOf(table)) {
    text += "\"" + column + "\":\"" + description + "\",";
  }
  text.back() = '}';
  return text + ",\"data\":[" + rows + "]}}";
}
