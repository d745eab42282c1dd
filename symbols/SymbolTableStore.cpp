#include "symbols/SymbolTableStore.h"

#include <cerrno>
#include <cstring>

#include "app/PerfSettings.h"
#include "kestrel/FileUtils.h"
#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"
#include "model/DocumentTable.h"
#include "symbols/SymbolCache.h"
#include "symbols/SymbolListProcessor.h"

namespace {

// Maps without a file share one table under this path, which never holds symbols.
const char* const NO_FILE = "";

// A map made up by the converter. Such names are not remembered: there can be one for every few
// bytes of a recording.
bool _standsForNoFile(const std::string& name) { return name.empty() || name.front() == '{'; }

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("SymbolTableStore");
  return *logger;
}

}  // namespace

SymbolTableStore::SymbolTableStore() {
  _log();
  const PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  fileFinder_.setCheckAsGiven(settings->onTargetMode);
  fileFinder_.setSearchPath(settings->symbolFileSeachPath);
  const auto noFile = std::make_shared<const std::string>(NO_FILE);
  locations_[noFile] = noFile;
  noFileTable_ = (tables_[noFile] = std::make_unique<SymbolTable>()).get();
}

SymbolTable* SymbolTableStore::_tableAt(const std::string& located) const {
  const auto found = tables_.find(located);
  return found == tables_.end() ? nullptr : found->second.get();
}

void SymbolTableStore::setLocation(const std::string& name, const std::string& located) {
  _setLocation(std::make_shared<const std::string>(name),
               std::make_shared<const std::string>(located));
}

void SymbolTableStore::_setLocation(const SharedText& name, const SharedText& located) {
  locations_[name] = located;
  hasLocationOfNoFile_ = hasLocationOfNoFile_ || (!name->empty() && _standsForNoFile(*name));
}

SymbolTable* SymbolTableStore::getSymbolTable(MMapInfo* map) {
  if (map->symbolTable != nullptr) {
    return map->symbolTable;
  }
  if (!hasLocationOfNoFile_ && map->name.isOfNoFile()) {
    map->symbolTable = noFileTable_;
    return map->symbolTable;
  }
  const std::string name = map->name;
  const auto known = locations_.find(name);
  if (known != locations_.end()) {
    if (SymbolTable* const table = _tableAt(*known->second)) {
      map->symbolTable = table;
      return table;
    }
  }
  if (_standsForNoFile(name)) {
    map->symbolTable = noFileTable_;
    return map->symbolTable;
  }

  std::string located;
  _locateFile(name, located);
  const SharedText path =
      located == name ? map->name.shared() : std::make_shared<const std::string>(located);
  SymbolTable* table = _tableAt(located);
  if (table == nullptr) {
    table = _fillTable(path);
    _log().debugf("Created mmap(%p) a new symbol table %p for (\"%s\")", static_cast<void*>(map),
                  static_cast<void*>(table), located.c_str());
  } else {
    _setLocation(map->name.shared(), path);
  }
  table->addMap(map);
  map->symbolTable = table;
  return table;
}

void SymbolTableStore::_locateFile(const std::string& name, std::string& located) const {
  const auto known = locations_.find(name);
  if (known != locations_.end()) {
    located = *known->second;
  } else if (_standsForNoFile(name)) {
    located = NO_FILE;
  } else if (!fileFinder_.findFile(name, located)) {
    located = name;
  }
}

SymbolTable* SymbolTableStore::_createSymbolTable(const std::string& located) {
  return _fillTable(std::make_shared<const std::string>(located));
}

SymbolTable* SymbolTableStore::_fillTable(const SharedText& path) {
  const std::string& located = *path;
  std::unique_ptr<SymbolTable>& entry = tables_[path];
  entry = std::make_unique<SymbolTable>();
  SymbolTable* const table = entry.get();
  _setLocation(path, path);
  std::string listPath;
  if (kestrel::Singleton<SymbolCache>::Instance()->getSampleDataFile(located, listPath)) {
    SymbolListProcessor processor(table);
    if (!kestrel::FileUtils::processFile(listPath, processor)) {
      _log().errorf("Error reading symbols from '%s': %s", listPath.c_str(), std::strerror(errno));
    }
    _log().infof("Loaded %u symbols for '%s'", static_cast<unsigned int>(table->items().size()),
                 located.c_str());
  }
  return table;
}

void SymbolTableStore::writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const {
  openDocumentTable(writer, "functions",
                    {{"key", "key for this symbol"},
                     {"name", "name of this symbol"},
                     {"startAddress", "Base address of this function or symbol"},
                     {"sectionSize", "Size of this function or symbol"},
                     {"maps", "array of maps for this sample"}});
  for (const auto& [located, table] : tables_) {
    table->writeLegacyJsonObjectEntries(writer, writeAll);
  }
  closeDocumentTable(writer);
}
