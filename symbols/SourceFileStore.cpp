#include "symbols/SourceFileStore.h"

#include <algorithm>

#include "kestrel/json/JsomWriter.h"
#include "model/DocumentTable.h"
#include "symbols/FunctionInfo.h"

void SourceFileStore::add(std::string_view file, FunctionInfo* function) {
  if (latest_ == files_.end() || latest_->first != file) {
    latest_ = files_.find(file);
    if (latest_ == files_.end()) {
      latest_ = files_.emplace(file, std::vector<FunctionInfo*>()).first;
    }
  }
  latest_->second.push_back(function);
}

bool SourceFileStore::_functionsHaveReferences(const std::vector<FunctionInfo*>& functions) const {
  return std::any_of(functions.begin(), functions.end(),
                     [](const FunctionInfo* function) { return function->refCount != 0; });
}

void SourceFileStore::writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const {
  // "key" and "name" speak of symbols although the rows are files: kept word for word.
  openDocumentTable(writer, "files",
                    {{"key", "key for this symbol"},
                     {"name", "name of this symbol"},
                     {"symbols.ref", "ref to symbol using this file"},
                     {"symbols.linenum", "ref to line number"}});
  unsigned int key = 0;
  for (const auto& [name, functions] : files_) {
    if (!_functionsHaveReferences(functions) || name.empty()) {
      continue;
    }
    writer.startArray();
    writer.appendUnsignedInt(++key);
    writer.appendString(name, false);
    writer.startArray();
    for (const FunctionInfo* const function : functions) {
      if (writeAll || function->refCount != 0) {
        writer.startArray();
        writer.appendUnsignedLong(function->key);
        writer.appendUnsignedInt(function->lineNumber);
        writer.endArray();
      }
    }
    writer.endArray();
    writer.endArray();
  }
  closeDocumentTable(writer);
}
