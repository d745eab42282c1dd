#include "symbols/SourceFileStore.h"

#include <algorithm>

#include "kestrel/json/JsomWriter.h"
#include "model/DocumentTable.h"
#include "symbols/FunctionInfo.h"

void SourceFileStore::add(std::string_view file, FunctionInfo* function) {
  if (latest_ == nullptr || latest_->name != file) {
    latest_ = &_fileOf(file);
  }
  latest_->functions.push_back(function);
}

SourceFileStore::File& SourceFileStore::_fileOf(std::string_view name) {
  const auto known = byName_.find(name);
  if (known != byName_.end()) {
    return *known->second;
  }
  File& file = files_.emplace_back(File{std::string(name), {}});
  byName_.emplace(file.name, &file);
  return file;
}

bool SourceFileStore::_functionsHaveReferences(const std::vector<FunctionInfo*>& functions) const {
  return std::any_of(functions.begin(), functions.end(),
                     [](const FunctionInfo* function) { return function->refCount != 0; });
}

std::vector<const SourceFileStore::File*> SourceFileStore::_referencedFiles() const {
  std::vector<const File*> files;
  for (const File& file : files_) {
    if (!file.name.empty() && _functionsHaveReferences(file.functions)) {
      files.push_back(&file);
    }
  }
  std::sort(files.begin(), files.end(),
            [](const File* one, const File* other) { return one->name < other->name; });
  return files;
}

void SourceFileStore::writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const {
  // "key" and "name" speak of symbols although the rows are files: kept word for word.
  openDocumentTable(writer, "files",
                    {{"key", "key for this symbol"},
                     {"name", "name of this symbol"},
                     {"symbols.ref", "ref to symbol using this file"},
                     {"symbols.linenum", "ref to line number"}});
  unsigned int key = 0;
  for (const File* const file : _referencedFiles()) {
    writer.startArray();
    writer.appendUnsignedInt(++key);
    writer.appendString(file->name, false);
    writer.startArray();
    for (const FunctionInfo* const function : file->functions) {
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
