// Names for the entries of an ELF file's procedure linkage tables, which no symbol table has:
// `NAME@plt`. On x86 each entry is looked at for the slot of the global offset table that it jumps
// through, and the relocation of that slot has the symbol (.plt, .plt.sec, .plt.got). Elsewhere the
// entries of .plt are in the order of its relocations.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "listing/ElfFile.h"

namespace listing {

class PltReader {
 public:
  explicit PltReader(ElfFile& file) : file_(file) {}
  // Appends entries to `symbols`; its names are those of the symbols, mangled.
  void addEntries(std::vector<Symbol>& symbols);

 private:
  struct Relocation {
    std::uint64_t slot = 0;  // address that is to be filled in
    std::uint64_t addend = 0;
    std::size_t symbol = 0;  // index in .dynsym; 0: none
  };
  std::vector<Relocation> _relocationsOf(std::string_view section) const;
  std::string_view _nameOf(const Relocation& relocation);
  void _addByOrder(const ElfFile::Section& plt, std::vector<Symbol>& symbols);
  void _addBySlots(const ElfFile::Section& plt, std::vector<Symbol>& symbols);
  std::uint64_t _slotOf(std::string_view entry, std::uint64_t address) const;
  void _add(std::uint64_t start, std::uint64_t size, std::string_view name, bool isEntry,
            std::vector<Symbol>& symbols);

  ElfFile& file_;
  std::unordered_map<std::uint64_t, Relocation> bySlot_;
  std::unordered_map<std::uint64_t, std::string_view>
      functions_;  // of .symtab or .dynsym, by address: for what has no symbol
  bool hasFunctions_ = false;
};

}  // namespace listing
