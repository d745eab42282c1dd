// Fuzz target: a symbol list, as a lister or the kernel prints it, goes through the line processor
// into a symbol table, and from there into the tables "functions" and "files" of a document. The
// table must hold what an input stream of the standard library reads in the lines.
#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include "kestrel/FileUtils.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolListProcessor.h"
#include "symbols/SymbolTable.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/DocumentCheck.h"
#include "tests/fuzz/FreshProcess.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using Names = std::map<uint64_t, std::string>;  // by address

void addLine(const std::string& line, Names& names) {
  for (const char* const mark : {"$a", "$d", "$t"}) {
    if (line.find(mark) != std::string::npos) {
      return;
    }
  }
  std::istringstream in(line);
  uint64_t address = 0;
  char type = 0;
  std::string name;
  in >> std::hex >> address >> type;
  in.ignore();
  if (std::getline(in, name, '\t') && type != 0 && std::strchr("TtWw", type) != nullptr) {
    names[address] = name;
  }
}

Names expectedNames(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  Names names;
  std::size_t start = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    addLine(text.substr(start, end - start), names);
    start = end + 1;
  }
  if (names.size() == 1 && names.begin()->first == 0) {
    names.clear();  // a last symbol at address 0 is left out
  }
  return names;
}

void requireNames(const Names& expected, const SymbolTable& table) {
  require(expected.size() == table.items().size(), "every text symbol becomes a function");
  std::size_t i = 0;
  for (const auto& [address, name] : expected) {
    const auto* const function = static_cast<const FunctionInfo*>(table.items()[i++]);
    require(function->start == address && function->name == name,
            "a function has the address and the name that were listed last");
  }
}

void checkTable(const SymbolTable& table) {
  const MMapInfo unbiased;
  const FunctionInfo* previous = nullptr;
  for (const RangedItem* const item : table.items()) {
    const auto* const function = static_cast<const FunctionInfo*>(item);
    require(function->size != 0, "a function has a size");
    require(previous == nullptr || previous->start + previous->size <= function->start,
            "functions are in order and do not overlap");
    require(table.getFunction(function->start, &unbiased) == function &&
                table.getFunction(function->start + (function->size - 1), &unbiased) == function,
            "a function is found at its first and its last address");
    previous = function;
  }
  require(table.lastFunction() == previous, "the last function has the highest address");
  require(previous == nullptr || table.findFunction(std::string(previous->name)) != nullptr,
          "a function is found by its name");
}

std::string documentOf(const SymbolTable& table) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.startObject();
  writer.appendLabel("functions", true);
  writer.startObject();
  writer.appendLabel("data", true);
  writer.startArray();
  table.writeLegacyJsonObjectEntries(writer, true);
  writer.endArray();
  writer.endObject();
  kestrel::Singleton<SourceFileStore>::Instance()->writeLegacyJsonObject(writer, true);
  writer.endObject();
  return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  startAfreshForTest();
  const AllocationMeter meter;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream list(text);
  SymbolTable table;
  SymbolListProcessor processor(&table);
  require(kestrel::FileUtils::processStream(list, processor), "a list in memory can be read");
  requireBoundedMemory(meter, size);
  requireNames(expectedNames(text), table);
  checkTable(table);
  for (const RangedItem* const item : table.items()) {
    // As if a sample had hit it, so that its file is in use.
    ++const_cast<FunctionInfo*>(static_cast<const FunctionInfo*>(item))->refCount;
  }
  requireDocument(documentOf(table));
  return 0;
}
