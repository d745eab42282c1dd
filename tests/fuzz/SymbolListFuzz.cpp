// Fuzz target: a symbol list, as a lister or the kernel prints it, goes through the line processor
// into a symbol table, and from there into the tables "functions" and "files" of a document.
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
  require(previous == nullptr || table.findFunction(previous->name) != nullptr,
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
  std::istringstream list(std::string(reinterpret_cast<const char*>(data), size));
  SymbolTable table;
  SymbolListProcessor processor(&table);
  require(kestrel::FileUtils::processStream(list, processor), "a list in memory can be read");
  requireBoundedMemory(meter, size);
  checkTable(table);
  for (const RangedItem* const item : table.items()) {
    // As if a sample had hit it, so that its file is in use.
    ++const_cast<FunctionInfo*>(static_cast<const FunctionInfo*>(item))->refCount;
  }
  requireDocument(documentOf(table));
  return 0;
}
