// Turns a symbol list into the functions of a symbol table. The list is what `nm -nCgl
// --format=bsd` prints, or a kernel list such as /proc/kallsyms: a line a symbol,
//
//   0000a3c0 T main<tab>/src/main.c:12
//
// a hexadecimal address, a type letter, a name that may hold blanks, and perhaps a tab and a source
// position. Only text and weak symbols ("TtWw") count; every other line is dropped without a
// message. The bytes are pushed in (LineProcessor); processEOF() makes the functions. Log:
// "SymbolListProcessor".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/LineProcessor.h"

class SourceFileStore;
class SymbolTable;

class SymbolListProcessor : public kestrel::LineProcessor {
 public:
  // Borrows the table to be filled.
  explicit SymbolListProcessor(SymbolTable* table);

  // The last symbol listed for an address wins. A source position gives its file only: the line
  // number is always 0.
  void processLine(const std::string& line) override;
  // Each symbol reaches to the next one; the last gets size 1, or is left out at address 0. A final
  // line without line feed is not parsed: listers always end with one.
  void processEOF() override;
  void processError(const char* message) override;

 private:
  // A symbol that was listed; its texts stand in texts_, the source file behind the name.
  struct ListedSymbol {
    uint64_t address;
    std::size_t textAt;
    std::size_t nameLength;
    std::size_t fileLength;  // 0: unknown
  };

  void _sortSymbols();
  void _addFunction(const ListedSymbol& symbol, uint64_t size, bool isLast);

  std::vector<ListedSymbol> symbols_;  // as listed until _sortSymbols()
  bool isAscending_ = true;            // every address above the one before
  std::string texts_;                  // one allocation for all symbols
  SymbolTable* table_;
  SourceFileStore* sourceFiles_;
};
