// The functions of one file, by address, and the maps through which they are reached. One table
// serves every map of the file; the symbol table store owns it. One thread only.
#pragma once

#include <set>
#include <string>

#include "model/MMapInfo.h"
#include "model/RangedItemStore.h"
#include "symbols/FunctionInfo.h"
#include "symbols/TextArena.h"

namespace kestrel {
class JsomWriter;
}

class SymbolTable : public RangedItemStore {
 public:
  SymbolTable() : RangedItemStore(true) {}

  // Takes ownership.
  void addFunction(FunctionInfo* function) { addRangedItem(function); }
  // The memory of the functions' names.
  TextArena& texts() { return texts_; }
  // The function at the run-time address `address` of `map`, or null.
  FunctionInfo* getFunction(unsigned long long address, const MMapInfo* map) const;
  // The first function of that name in address order, or null. A linear scan.
  FunctionInfo* findFunction(const std::string& name) const;
  // The function of the highest address; null for an empty table.
  const FunctionInfo* lastFunction() const;

  // Remembers a map that uses this table. Borrowed: maps outlive the tables.
  void addMap(const MMapInfo* map) { maps_.insert(map); }

  // Writes a row for each function into the array that the writer has open; only functions in use,
  // and of the maps only those in use, unless `writeAll`. The list of maps is the table's: every
  // row of one table carries the same.
  void writeLegacyJsonObjectEntries(kestrel::JsomWriter& writer, bool writeAll) const;

 private:
  struct ByKey {
    bool operator()(const MMapInfo* one, const MMapInfo* other) const {
      return one->key < other->key;
    }
  };

  std::set<const MMapInfo*, ByKey> maps_;  // by key, so that documents are the same everywhere
  TextArena texts_;
};
