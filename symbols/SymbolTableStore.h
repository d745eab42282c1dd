// Finds the functions behind a memory map: locates the map's file, makes the file's symbol table on
// first use and hands the same table to every later map of the file. Owns all symbol tables of a
// run. Reached through kestrel::Singleton<SymbolTableStore>::Instance(). One thread only. Log:
// "SymbolTableStore".
#pragma once

#include <map>
#include <memory>
#include <string>

#include "kestrel/FileFinder.h"
#include "model/MapName.h"
#include "symbols/SymbolTable.h"

namespace kestrel {
class JsomWriter;
}

class SymbolTableStore {
 public:
  // Takes search path and on-target mode from the settings.
  SymbolTableStore();
  virtual ~SymbolTableStore() = default;
  SymbolTableStore(const SymbolTableStore&) = delete;
  SymbolTableStore& operator=(const SymbolTableStore&) = delete;

  // The table of the map's file; an empty one when there is no file, no list, or no symbol. Never
  // null. The maps that a table lists as its users are the one that caused its making and those
  // whose names had to be located first, not those whose name was known already: kept so, documents
  // carry the list.
  SymbolTable* getSymbolTable(MMapInfo* map);

  // Names that are known to stand for a path, without a look at the disk. The driver enters the
  // kernel's.
  void setLocation(const std::string& name, const std::string& located);

  // Writes the "functions" member into the writer's open object, tables in the order of their
  // paths; only functions in use unless `writeAll`.
  void writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const;

  // Where the file `name` is: a known location, else what the search path yields, else the name
  // itself. Empty for the name of a made-up map.
  void _locateFile(const std::string& name, std::string& located) const;
  // Registers a new table under `located` and fills it from the symbol cache's list, if there is
  // one.
  SymbolTable* _createSymbolTable(const std::string& located);

 private:
  using SharedText = MapName::SharedText;

  SymbolTable* _tableAt(const std::string& located) const;
  void _setLocation(const SharedText& name, const SharedText& located);
  SymbolTable* _fillTable(const SharedText& located);

  kestrel::FileFinder fileFinder_;
  // Texts are shared with the maps: names may be long and many.
  std::map<SharedText, std::unique_ptr<SymbolTable>, MapName::ByText> tables_;  // key: located path
  std::map<SharedText, SharedText, MapName::ByText> locations_;  // map file name to located path
  SymbolTable* noFileTable_;          // among tables_: made-up maps have no symbols
  bool hasLocationOfNoFile_ = false;  // a name among them reads as a made-up map's
};
