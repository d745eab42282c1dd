// The source files that symbol lists name, each with its functions. Reached through
// kestrel::Singleton<SourceFileStore>::Instance(). One thread only.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
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
  using Files = std::map<std::string, std::vector<FunctionInfo*>, std::less<>>;

  Files files_;
  Files::iterator latest_ = files_.end();  // a list names one file for many functions in a row
};
