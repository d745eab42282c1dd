#include "listing/PltReader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gelf.h>
#include <libelf.h>
#include <string>

#include "listing/Demangler.h"
#include "listing/SymbolRanges.h"

namespace listing {

namespace {

bool _isX86(unsigned machine) { return machine == EM_X86_64 || machine == EM_386; }

struct EntrySizes {
  std::uint64_t header;
  std::uint64_t entry;
};

// Source: the psABI of each processor, as linkers follow it.
EntrySizes _sizesOf(unsigned machine, std::uint64_t entrySize) {
  switch (machine) {
    case EM_ARM:
      return {20, 12};
    case EM_AARCH64:
    case EM_LOONGARCH:
    case EM_RISCV:
      return {32, 16};
    case EM_SPARC:
      return {48, 12};
    case EM_SPARCV9:
      return {128, 32};
    default:
      return {entrySize, entrySize};
  }
}

std::uint32_t _word(std::string_view bytes, std::size_t at) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    word |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
  }
  return word;
}

}  // namespace

std::vector<PltReader::Relocation> PltReader::_relocationsOf(std::string_view name) const {
  std::vector<Relocation> relocations;
  const ElfFile::Section* section = file_.findSection(name);
  if (section == nullptr || (section->type != SHT_RELA && section->type != SHT_REL)) {
    return relocations;
  }
  Elf_Data* data = elf_getdata(section->section, nullptr);
  const bool hasAddend = section->type == SHT_RELA;
  const std::size_t size =
      gelf_fsize(file_.handle(), hasAddend ? ELF_T_RELA : ELF_T_REL, 1, EV_CURRENT);
  const std::size_t count = data != nullptr && size > 0 ? data->d_size / size : 0;
  relocations.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    GElf_Rela rela{};
    GElf_Rel rel{};
    if (hasAddend ? gelf_getrela(data, static_cast<int>(i), &rela) == nullptr
                  : gelf_getrel(data, static_cast<int>(i), &rel) == nullptr) {
      break;
    }
    const std::uint64_t info = hasAddend ? rela.r_info : rel.r_info;
    relocations.push_back({hasAddend ? rela.r_offset : rel.r_offset,
                           static_cast<std::uint64_t>(rela.r_addend), GELF_R_SYM(info)});
  }
  return relocations;
}

// The symbol of the relocation; for a function that is chosen when the program starts (IFUNC),
// which has none, that of the chooser, else its address, as perf does since 6.3.
std::string_view PltReader::_nameOf(const Relocation& relocation) {
  if (relocation.symbol != 0) {
    const auto table =
        std::find_if(file_.sections_.begin(), file_.sections_.end(),
                     [](const ElfFile::Section& section) { return section.type == SHT_DYNSYM; });
    if (table == file_.sections_.end() || table->link >= file_.sections_.size()) {
      return {};
    }
    Elf_Data* data = elf_getdata(table->section, nullptr);
    GElf_Sym symbol;
    if (data == nullptr || relocation.symbol > INT32_MAX ||
        gelf_getsym(data, static_cast<int>(relocation.symbol), &symbol) == nullptr) {
      return {};
    }
    const char* name = elf_strptr(file_.handle(), table->link, symbol.st_name);
    return name != nullptr ? name : std::string_view();
  }
  if (!hasFunctions_) {
    hasFunctions_ = true;
    std::vector<Symbol> symbols;
    file_.addSymbols(SHT_SYMTAB, symbols);
    file_.addSymbols(SHT_DYNSYM, symbols);
    Demangler plain(Demangler::Style::Off);
    completeSizes(symbols);
    chooseAliases(symbols, plain);
    for (const Symbol& symbol : symbols) {
      functions_.try_emplace(symbol.start, symbol.name);
    }
  }
  const auto function = functions_.find(relocation.addend);
  if (function != functions_.end()) {
    return function->second;
  }
  char text[32];
  std::snprintf(text, sizeof(text), "*ABS*+0x%llx",
                static_cast<unsigned long long>(relocation.addend));
  return file_.names_.emplace_back(text);
}

void PltReader::_add(std::uint64_t start, std::uint64_t size, std::string_view name, bool isEntry,
                     std::vector<Symbol>& symbols) {
  symbols.push_back({start, start + size, name, false, true, false, isEntry});
}

void PltReader::_addByOrder(const ElfFile::Section& plt, std::vector<Symbol>& symbols) {
  std::vector<Relocation> relocations = _relocationsOf(".rela.plt");
  if (relocations.empty()) {
    relocations = _relocationsOf(".rel.plt");
  }
  EntrySizes sizes = _sizesOf(file_.machine(), plt.entrySize);
  if (sizes.entry == 0 || plt.size <= sizes.header) {
    return;
  }
  // Longer entries than usual (branch protection, far slots) fill the section just so.
  const std::uint64_t room = plt.size - sizes.header;
  if (!relocations.empty() && room % relocations.size() == 0 &&
      room / relocations.size() > sizes.entry && room / relocations.size() <= 2 * sizes.entry) {
    sizes.entry = room / relocations.size();
  }
  _add(plt.address, sizes.header, ".plt", false, symbols);
  std::uint64_t offset = sizes.header;
  for (const Relocation& relocation : relocations) {
    if (offset + sizes.entry > plt.size) {
      break;
    }
    _add(plt.address + offset, sizes.entry, _nameOf(relocation), true, symbols);
    offset += sizes.entry;
  }
}

// The slot that the jump of an entry goes through, 0 if it has none: `jmp *slot` with the slot
// relative to the next instruction (64 bits), absolute, or relative to the table of slots in %ebx
// (32 bits).
std::uint64_t PltReader::_slotOf(std::string_view entry, std::uint64_t address) const {
  for (std::size_t at = 0; at + 6 <= entry.size(); ++at) {
    if (entry[at] != '\xFF' || (entry[at + 1] != '\x25' && entry[at + 1] != '\xA3')) {
      continue;
    }
    const std::uint32_t word = _word(entry, at + 2);
    if (entry[at + 1] == '\x25') {
      return file_.machine() == EM_386
                 ? word
                 : address + at + 6 + static_cast<std::uint64_t>(static_cast<std::int32_t>(word));
    }
    const ElfFile::Section* table = file_.findSection(".got.plt");
    table = table != nullptr ? table : file_.findSection(".got");
    return table != nullptr ? (table->address + word) & UINT32_MAX : 0;
  }
  return 0;
}

void PltReader::_addBySlots(const ElfFile::Section& plt, std::vector<Symbol>& symbols) {
  const std::string_view code = file_.content(plt);
  const std::uint64_t size = plt.entrySize == 8 || plt.entrySize == 16 ? plt.entrySize : 16;
  for (std::uint64_t offset = 0; offset + size <= code.size(); offset += size) {
    const std::uint64_t start = plt.address + offset;
    const auto slot = bySlot_.find(_slotOf(code.substr(offset, size), start));
    if (slot != bySlot_.end()) {
      _add(start, size, _nameOf(slot->second), true, symbols);
    } else if (offset == 0 && plt.name == ".plt") {
      _add(start, size, ".plt", false, symbols);
    }
  }
}

void PltReader::addEntries(std::vector<Symbol>& symbols) {
  if (file_.isRelocatable()) {
    return;
  }
  const ElfFile::Section* plt = file_.findSection(".plt");
  if (!_isX86(file_.machine())) {
    if (plt != nullptr) {
      _addByOrder(*plt, symbols);
    }
    return;
  }
  for (const char* name : {".rela.plt", ".rel.plt", ".rela.dyn", ".rel.dyn"}) {
    const bool isOfData = std::string_view(name).ends_with(".dyn");
    for (const Relocation& relocation : _relocationsOf(name)) {
      if (relocation.symbol != 0 || !isOfData) {
        bySlot_.try_emplace(relocation.slot, relocation);
      }
    }
  }
  for (const char* name : {".plt", ".plt.sec", ".plt.got"}) {
    const ElfFile::Section* section = file_.findSection(name);
    if (section != nullptr) {
      _addBySlots(*section, symbols);
    }
  }
}

}  // namespace listing
