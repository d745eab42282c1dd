// Answers where the symbol list of a file is: a ready-made list, a list kept in the cache
// directory, or a new one made by running the symbol lister. The cache directory holds a list file
// for each listed file and the index "symbolcache.json":
//
//   {"/lib/libc-2.19.so":{"file":"_lib_libc_2.19.so.nm","mtime":1405429210,"size":61170}}
//
// where "mtime" is the listed file's modification time in seconds when the list was made and "size"
// the list's size in bytes; size 0, without "file", is a file known to have no symbols. Lists and
// index are replaced whole, so that several runs may share a directory and a run that dies leaves
// nothing half-made behind. Nothing here is fatal: what goes wrong is logged and gives no list.
// Reached through kestrel::Singleton<SymbolCache>::Instance(). One thread only; the lister's output
// is copied by a selector's thread meanwhile. Log: "SymbolCache".
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "kestrel/json/JSOM.h"

class SymbolCache {
 public:
  // Takes the directory from the settings, makes it if it is missing, and loads its index.
  SymbolCache();
  virtual ~SymbolCache() = default;

  // Uses `listPath` for `sourcePath` (a path or a map's name) instead of running the lister, as
  // long as it exists.
  void setOverride(const std::string& sourcePath, const std::string& listPath) {
    overrides_[sourcePath] = listPath;
  }

  // True: `listPath` names a symbol list to be parsed. False: there is none, and `listPath` is not
  // to be used.
  bool getSampleDataFile(const std::string& sourcePath, std::string& listPath);
  // Appends the name of the list file of `sourcePath` to `name`. Different paths can have one name;
  // that is accepted.
  void generateCacheFileName(const std::string& sourcePath, std::string& name) const;
  // Runs the lister on `sourcePath` and keeps its output in `listPath`. False when the lister could
  // not be run, and an empty list file is left; or when it was ended by a signal or its output did
  // not arrive whole, and no list file is left. The lister's exit status does not matter.
  bool createCacheFile(const std::string& sourcePath, const std::string& listPath);

 private:
  bool _findFrozenList(const std::string& sourcePath, kestrel::JSOM& entry,
                       std::string& listPath) const;
  bool _findListOf(kestrel::JSOM& entry, std::string& listPath) const;
  bool _createList(const std::string& sourcePath, long long modificationTime,
                   std::string& listPath);
  bool _discardList(const std::string& sourcePath, const std::string& listPath,
                    const std::string& reason);
  void _noteEntry(int number);
  void _writeIndex();

  kestrel::JSOM index_;
  std::map<std::string_view, int> entries_;  // of the index, by path: a handle searches them all
  std::string cacheDir_;                     // ends in "/"
  std::string indexPath_;                    // inside it
  std::map<std::string, std::string> overrides_;
};
