#include "symbols/SymbolListProcessor.h"

#include <cstring>
#include <sstream>

#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolTable.h"

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("SymbolListProcessor");
  return *logger;
}

// Marks of Arm code and data, not symbols. Coarse: a name that holds one of them is dropped too.
bool _holdsMappingSymbol(const std::string& line) {
  for (const char* const mark : {"$a", "$d", "$t"}) {
    if (line.find(mark) != std::string::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace

SymbolListProcessor::SymbolListProcessor(SymbolTable* table)
    : table_(table), sourceFiles_(kestrel::Singleton<SourceFileStore>::Instance()) {
  _log();
}

void SymbolListProcessor::processLine(const std::string& line) {
  uint64_t address = 0;
  SymbolInfo symbol;
  if (!_holdsMappingSymbol(line) && _parseLine(line, address, symbol)) {
    symbols_[address] = std::move(symbol);
  }
}

bool SymbolListProcessor::_parseLine(const std::string& line, uint64_t& address,
                                     SymbolInfo& symbol) {
  std::istringstream in(line);
  char type = 0;
  in >> std::hex >> address >> type;
  in.ignore();  // the blank behind the type
  if (!std::getline(in, symbol.name, '\t') || type == 0 || std::strchr("TtWw", type) == nullptr) {
    return false;
  }
  std::string position;
  if (std::getline(in, position)) {
    const std::size_t colon = position.find(':');
    if (colon != std::string::npos) {
      // The number behind the colon stays unread, and the line number 0: kept so, documents carry
      // it.
      symbol.sourceFile = position.substr(0, colon);
    }
  }
  return true;
}

void SymbolListProcessor::processEOF() {
  for (auto symbol = symbols_.begin(); symbol != symbols_.end(); ++symbol) {
    const auto& [address, info] = *symbol;
    const auto next = std::next(symbol);
    const bool isLast = next == symbols_.end();
    if (isLast && address == 0) {
      continue;
    }
    auto* const function = new FunctionInfo();
    function->start = address;
    function->size = isLast ? 1 : next->first - address;
    function->lineNumber = isLast ? 0 : info.lineNumber;
    function->name = info.name;
    table_->addFunction(function);
    if (!isLast && !info.sourceFile.empty()) {
      sourceFiles_->add(info.sourceFile, function);
    }
  }
}

void SymbolListProcessor::processError(const char* message) {
  _log().errorf("Error parsing symbols: %s", message);
}
