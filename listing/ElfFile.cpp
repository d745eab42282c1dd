#include "listing/ElfFile.h"

#include <algorithm>
#include <cstring>
#include <gelf.h>
#include <libelf.h>
#include <utility>

#include "listing/PltReader.h"
#include "listing/RegularFile.h"
#include "listing/Unpacking.h"

namespace listing {

namespace {

constexpr std::size_t MAX_SECTIONS = 1 << 20;
constexpr std::size_t MAX_DEBUG_DATA = std::size_t{256} << 20;  // unpacked

// "$a", "$d", "$t", "$x", alone or with a suffix behind a dot: where code and data begin, no
// functions.
bool _isMappingSymbol(std::string_view name) {
  return name.size() >= 2 && name[0] == '$' &&
         std::string_view("adtx").find(name[1]) != std::string_view::npos &&
         (name.size() == 2 || name[2] == '.');
}

bool _hasMappingSymbols(unsigned machine) {
  return machine == EM_ARM || machine == EM_AARCH64 || machine == EM_RISCV;
}

std::string_view _textAt(const Elf_Data* strings, std::size_t at) {
  if (strings == nullptr || strings->d_buf == nullptr || at >= strings->d_size) {
    return {};
  }
  const char* text = static_cast<const char*>(strings->d_buf) + at;
  return {text, ::strnlen(text, strings->d_size - at)};
}

}  // namespace

std::unique_ptr<ElfFile> ElfFile::open(const RegularFile& file) {
  elf_version(EV_CURRENT);
  std::unique_ptr<ElfFile> elf(new ElfFile);
  elf->mapping_ = std::make_unique<FileMapping>(file);
  elf->elf_ = elf_memory(elf->mapping_->bytes(), elf->mapping_->size());
  return elf->_read() ? std::move(elf) : nullptr;
}

std::unique_ptr<ElfFile> ElfFile::ofMemory(std::string bytes) {
  elf_version(EV_CURRENT);
  std::unique_ptr<ElfFile> elf(new ElfFile);
  elf->memory_ = std::move(bytes);
  elf->elf_ = elf_memory(elf->memory_.data(), elf->memory_.size());
  return elf->_read() ? std::move(elf) : nullptr;
}

ElfFile::~ElfFile() { elf_end(elf_); }

bool ElfFile::_read() {
  GElf_Ehdr header;
  std::size_t count = 0;
  std::size_t names = 0;
  if (elf_ == nullptr || elf_kind(elf_) != ELF_K_ELF || gelf_getehdr(elf_, &header) == nullptr) {
    return false;
  }
  machine_ = header.e_machine;
  isRelocatable_ = header.e_type == ET_REL;
  is64_ = header.e_ident[EI_CLASS] == ELFCLASS64;
  isBigEndian_ = header.e_ident[EI_DATA] == ELFDATA2MSB;
  if (elf_getshdrnum(elf_, &count) != 0 || elf_getshdrstrndx(elf_, &names) != 0) {
    return true;  // no sections
  }
  Elf_Scn* nameSection = elf_getscn(elf_, names);
  const Elf_Data* nameData = nameSection != nullptr ? elf_rawdata(nameSection, nullptr) : nullptr;
  sections_.resize(std::min(count, MAX_SECTIONS));
  for (std::size_t i = 0; i < sections_.size(); ++i) {
    Elf_Scn* section = elf_getscn(elf_, i);
    GElf_Shdr shdr;
    if (section != nullptr && gelf_getshdr(section, &shdr) != nullptr) {
      sections_[i] = {_textAt(nameData, shdr.sh_name),
                      shdr.sh_type,
                      shdr.sh_flags,
                      shdr.sh_addr,
                      shdr.sh_offset,
                      shdr.sh_size,
                      shdr.sh_entsize,
                      shdr.sh_link,
                      section};
    }
  }
  return true;
}

const ElfFile::Section* ElfFile::findSection(std::string_view name) const {
  const auto found =
      std::find_if(sections_.begin(), sections_.end(), [name](const Section& section) {
        return section.name == name && section.type != SHT_NOBITS && section.section != nullptr;
      });
  return found == sections_.end() ? nullptr : &*found;
}

std::string_view ElfFile::content(const Section& section) const {
  if (section.type == SHT_NOBITS || section.section == nullptr) {
    return {};
  }
  const Elf_Data* data = elf_rawdata(section.section, nullptr);
  if (data == nullptr || data->d_buf == nullptr) {
    return {};
  }
  return {static_cast<const char*>(data->d_buf), data->d_size};
}

std::string_view ElfFile::unpackedContent(const Section& section, std::uint64_t limit) {
  if ((section.flags & SHF_COMPRESSED) == 0) {
    return content(section);
  }
  GElf_Chdr header;
  if (gelf_getchdr(section.section, &header) == nullptr || header.ch_size > limit ||
      elf_compress(section.section, 0, 0) < 0) {
    return {};
  }
  return content(section);
}

void ElfFile::release(const Section& section, std::uint64_t end) const {
  if (mapping_ && section.type != SHT_NOBITS && (section.flags & SHF_COMPRESSED) == 0) {
    mapping_->release(section.offset, std::min(section.size, end));
  }
}

bool ElfFile::hasSymbols(std::uint32_t tableType) const {
  return std::any_of(sections_.begin(), sections_.end(), [tableType](const Section& section) {
    return section.type == tableType && section.entrySize > 0 && section.size > section.entrySize;
  });
}

bool ElfFile::_isWanted(const Symbol& symbol, unsigned char type, unsigned char visibility,
                        std::size_t section) const {
  const bool isFunction = type == STT_FUNC || type == STT_GNU_IFUNC;
  if (symbol.name.empty() || section == SHN_UNDEF || section >= sections_.size() ||
      (!isFunction && type != STT_OBJECT && !symbol.isLabel) ||
      (sections_[section].flags & SHF_ALLOC) == 0) {
    return false;
  }
  if (_hasMappingSymbols(machine_) && _isMappingSymbol(symbol.name)) {
    return false;
  }
  const std::string_view name = sections_[section].name;
  return !symbol.isLabel || (visibility != STV_HIDDEN && visibility != STV_INTERNAL &&
                             (name.find("text") != std::string_view::npos ||
                              name.find("data") != std::string_view::npos));
}

void ElfFile::addSymbols(std::uint32_t tableType, std::vector<Symbol>& symbols,
                         std::string_view onlyIn) {
  const auto table =
      std::find_if(sections_.begin(), sections_.end(),
                   [tableType](const Section& section) { return section.type == tableType; });
  if (table == sections_.end() || table->link >= sections_.size()) {
    return;
  }
  Elf_Data* entries = elf_getdata(table->section, nullptr);
  Elf_Scn* stringSection = sections_[table->link].section;
  const Elf_Data* strings =
      stringSection != nullptr ? elf_getdata(stringSection, nullptr) : nullptr;
  if (entries == nullptr || strings == nullptr) {
    return;
  }
  // Sections beyond 65,279 stand in a table of their own.
  const auto tableIndex = static_cast<std::uint32_t>(table - sections_.begin());
  const auto moreIndices =
      std::find_if(sections_.begin(), sections_.end(), [tableIndex](const Section& section) {
        return section.type == SHT_SYMTAB_SHNDX && section.link == tableIndex;
      });
  Elf_Data* more =
      moreIndices == sections_.end() ? nullptr : elf_getdata(moreIndices->section, nullptr);

  const std::size_t size = gelf_fsize(elf_, ELF_T_SYM, 1, EV_CURRENT);
  const std::size_t count = size > 0 ? entries->d_size / size : 0;
  symbols.reserve(symbols.size() + count);
  for (std::size_t i = 1; i < count; ++i) {
    GElf_Sym entry;
    Elf32_Word section = 0;
    if (gelf_getsymshndx(entries, more, static_cast<int>(i), &entry, &section) == nullptr) {
      break;
    }
    if (entry.st_shndx != SHN_XINDEX) {
      section = entry.st_shndx >= SHN_LORESERVE ? Elf32_Word{SHN_UNDEF} : entry.st_shndx;
    }
    const unsigned char type = GELF_ST_TYPE(entry.st_info);
    Symbol symbol{entry.st_value,
                  0,
                  _textAt(strings, entry.st_name),
                  GELF_ST_BIND(entry.st_info) == STB_WEAK,
                  GELF_ST_BIND(entry.st_info) == STB_GLOBAL,
                  type == STT_NOTYPE};
    if (!_isWanted(symbol, type, GELF_ST_VISIBILITY(entry.st_other), section) ||
        (!onlyIn.empty() && sections_[section].name != onlyIn)) {
      continue;
    }
    if (machine_ == EM_ARM && type == STT_FUNC) {
      symbol.start &= ~std::uint64_t{1};  // set for Thumb code
    }
    symbol.end = symbol.start + std::min(entry.st_size, UINT64_MAX - symbol.start);
    symbols.push_back(symbol);
  }
  release(*table);
  release(sections_[table->link]);
}

void ElfFile::addPltEntries(std::vector<Symbol>& symbols) { PltReader(*this).addEntries(symbols); }

std::unique_ptr<ElfFile> ElfFile::openDebugData() const {
  const Section* section = findSection(".gnu_debugdata");
  if (section == nullptr) {
    return nullptr;
  }
  std::optional<std::string> bytes = unpackXz(content(*section), MAX_DEBUG_DATA);
  return bytes ? ofMemory(std::move(*bytes)) : nullptr;
}

}  // namespace listing
