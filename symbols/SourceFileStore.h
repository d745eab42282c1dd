// The source files that symbol lists name, each with its functions. Reached through
// kestrel::Singleton<SourceFileStore>::Instance(). One thread only.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel {
class JsomWriter;
}
class FunctionInfo;

class SourceFileStore {
 public:
  // Appends to the file's functions, without a look at duplicates. The function is borrowed: its
  // symbol table keeps it.
  void add(std::string_view file, FunctionInfo* function);

  // Writes the "files" member into the writer's open object: files with a function in use,
  // `writeAll` or not, numbered from 1 in the order of their names; of their functions only those
  // in use unless `writeAll`.
  void writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const;

  bool _functionsHaveReferences(const std::vector<FunctionInfo*>& functions) const;

 private:
  struct File {
    std::string name;
    std::vector<FunctionInfo*> functions;
  };

  File& _fileOf(std::string_view name);
  std::vector<const File*> _referencedFiles() const;  // by name

  // Ordered when they are written only: a list names thousands of files, and few have a function in
  // use.
  std::deque<File> files_;
  std::unordered_map<std::string_view, File*> byName_;
  File* latest_ = nullptr;  // a list names one file for many functions in a row
};
