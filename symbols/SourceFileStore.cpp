#include "symbols/SourceFileStore.h"

#include <algorithm>

#include "kestrel/json/JsomWriter.h"
#include "model/DocumentTable.h"
#include "symbols/FunctionInfo.h"

void SourceFileStore::add(std::string_view file, FunctionInfo* function) {
  if (runs_.empty() || runs_.back().file != file) {
    runs_.push_back({std::string(file), {}});
  }
  runs_.back().functions.push_back(function);
}

bool SourceFileStore::_functionsHaveReferences(const std::vector<FunctionInfo*>& functions) const {
  return std::any_of(functions.begin(), functions.end(),
                     [](const FunctionInfo* function) { return function->refCount != 0; });
}

// In the order of their names, those of one file in the order in which they came. Without `all`
// only those with a function in use.
std::vector<const SourceFileStore::Run*> SourceFileStore::_runsByFile(bool all) const {
  std::vector<const Run*> runs;
  for (const Run& run : runs_) {
    if (!run.file.empty() && (all || _functionsHaveReferences(run.functions))) {
      runs.push_back(&run);
    }
  }
  std::stable_sort(runs.begin(), runs.end(),
                   [](const Run* one, const Run* other) { return one->file < other->file; });
  return runs;
}

void SourceFileStore::_writeFunctions(kestrel::JsomWriter& writer,
                                      const std::vector<FunctionInfo*>& functions, bool writeAll) {
  for (const FunctionInfo* const function : functions) {
    if (writeAll || function->refCount != 0) {
      writer.startArray();
      writer.appendUnsignedLong(function->key);
      writer.appendUnsignedInt(function->lineNumber);
      writer.endArray();
    }
  }
}

void SourceFileStore::writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const {
  // "key" and "name" speak of symbols although the rows are files: kept word for word.
  openDocumentTable(writer, "files",
                    {{"key", "key for this symbol"},
                     {"name", "name of this symbol"},
                     {"symbols.ref", "ref to symbol using this file"},
                     {"symbols.linenum", "ref to line number"}});
  unsigned int key = 0;
  const std::vector<const Run*> runs = _runsByFile(writeAll);
  for (auto first = runs.begin(); first != runs.end();) {
    const auto last = std::find_if(first, runs.end(),
                                   [&](const Run* run) { return run->file != (*first)->file; });
    if (std::any_of(first, last,
                    [&](const Run* run) { return _functionsHaveReferences(run->functions); })) {
      writer.startArray();
      writer.appendUnsignedInt(++key);
      writer.appendString((*first)->file, false);
      writer.startArray();
      for (; first != last; ++first) {
        _writeFunctions(writer, (*first)->functions, writeAll);
      }
      writer.endArray();
      writer.endArray();
    }
    first = last;
  }
  closeDocumentTable(writer);
}
