// Writes the symbol list of one ELF file. For child processes (see ChildPool.h).
#pragma once

#include <string>

#include "listing/File.h"

namespace listing {

class Demangler;

struct ElfListTask {
  std::string file;  // that runs
  std::string
      symbols;  // that has the symbol table: the same, or a separate debug file; empty: none does
  bool lines = false;  // also the source files of functions
};

struct ElfListReply {
  Outcome outcome = Outcome::Failed;  // Named, NoSymbols, NotElf or Failed
  std::string symbolsFrom;            // as in Result
};

// Writes the list to `path`, which does not exist yet; with NoSymbols, too, if there are PLT
// entries. Addresses are those of the ELF file (st_value). Only what lies in executable segments is
// listed.
ElfListReply writeElfList(const ElfListTask& task, Demangler& demangler, const std::string& path);

}  // namespace listing
