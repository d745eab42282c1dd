// The source files that symbol lists name, each with its functions. Reached through
// kestrel::Singleton<SourceFileStore>::Instance(). One thread only.
#pragma once

#include <deque>
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
  // Functions of one file that were added one after the other.
  struct Run {
    std::string file;
    std::vector<FunctionInfo*> functions;
  };

  std::vector<const Run*> _runsByFile(bool all) const;
  static void _writeFunctions(kestrel::JsomWriter& writer,
                              const std::vector<FunctionInfo*>& functions, bool writeAll);

  // Ordered, and those of one file joined, only when they are written: a list names thousands of
  // files, each for many functions in a row, and few have a function in use.
  std::deque<Run> runs_;
};
