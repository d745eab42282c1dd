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

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "kestrel/LineProcessor.h"

class SourceFileStore;
class SymbolTable;

class SymbolListProcessor : public kestrel::LineProcessor {
 public:
  // Borrows the table to be filled.
  explicit SymbolListProcessor(SymbolTable* table);

  // By blocks: a list can have a million lines.
  void processBuffer(const char* data, int length) override { takeBlock(data, length); }
  // The last symbol listed for an address wins. A source position gives its file only: the line
  // number is always 0.
  void processLine(const std::string& line) override;
  // Each symbol reaches to the next one; the last gets size 1, or is left out at address 0. A final
  // line without line feed is not parsed: listers always end with one.
  void processEOF() override;
  void processError(const char* message) override;

 private:
  struct ListedSymbol {
    uint64_t address;
    std::string_view name;
    std::string_view sourceFile;  // empty: unknown
  };

  void _sortSymbols();
  void _addFunction(const ListedSymbol& symbol, uint64_t size, bool isLast);

  std::deque<ListedSymbol> symbols_;  // as listed until _sortSymbols(); their texts are the table's
  bool isAscending_ = true;           // every address above the one before
  SymbolTable* table_;
  SourceFileStore* sourceFiles_;
};
