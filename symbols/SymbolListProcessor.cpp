#include "symbols/SymbolListProcessor.h"

#include <algorithm>
#include <optional>

#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolLine.h"
#include "symbols/SymbolTable.h"

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("SymbolListProcessor");
  return *logger;
}

}  // namespace

SymbolListProcessor::SymbolListProcessor(SymbolTable* table)
    : table_(table), sourceFiles_(kestrel::Singleton<SourceFileStore>::Instance()) {
  _log();
}

void SymbolListProcessor::processLine(const std::string& line) {
  const std::optional<SymbolLine> symbol = SymbolLine::parse(line);
  if (!symbol) {
    return;
  }
  isAscending_ = isAscending_ && (symbols_.empty() || symbol->address > symbols_.back().address);
  // A list names one file for many symbols in a row.
  std::string_view file = symbols_.empty() ? std::string_view() : symbols_.back().sourceFile;
  if (file != symbol->sourceFile) {
    file = table_->texts().keep(symbol->sourceFile);
  }
  symbols_.push_back({symbol->address, table_->texts().keep(symbol->name), file});
}

// By address, and of each address only the symbol that was listed last.
void SymbolListProcessor::_sortSymbols() {
  if (isAscending_) {
    return;
  }
  std::stable_sort(symbols_.begin(), symbols_.end(),
                   [](const ListedSymbol& one, const ListedSymbol& other) {
                     return one.address < other.address;
                   });
  std::size_t kept = 0;
  for (const ListedSymbol& symbol : symbols_) {
    if (kept > 0 && symbols_[kept - 1].address == symbol.address) {
      --kept;
    }
    symbols_[kept++] = symbol;
  }
  symbols_.resize(kept);
  isAscending_ = true;
}

void SymbolListProcessor::processEOF() {
  _sortSymbols();
  for (std::size_t i = 0; i + 1 < symbols_.size(); ++i) {
    _addFunction(symbols_[i], symbols_[i + 1].address - symbols_[i].address, false);
  }
  if (!symbols_.empty() && symbols_.back().address != 0) {
    _addFunction(symbols_.back(), 1, true);
  }
}

void SymbolListProcessor::_addFunction(const ListedSymbol& symbol, uint64_t size, bool isLast) {
  auto* const function = new FunctionInfo();
  function->start = symbol.address;
  function->size = size;
  function->name = symbol.name;
  table_->addFunction(function);
  if (!isLast && !symbol.sourceFile.empty()) {
    sourceFiles_->add(symbol.sourceFile, function);
  }
}

void SymbolListProcessor::processError(const char* message) {
  _log().errorf("Error parsing symbols: %s", message);
}
