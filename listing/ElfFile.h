// The symbols that an ELF file carries, read with libelf. For child processes (see ChildPool.h):
// what libelf makes of a hostile file is nothing to have in one's own. Owns what it opened; the
// names that it hands out live as long as it does. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "listing/FileMapping.h"
#include "listing/Symbol.h"

struct Elf;
struct Elf_Scn;

namespace listing {

class RegularFile;

class ElfFile {
 public:
  // A section header, as far as it matters here.
  struct Section {
    std::string_view name;
    std::uint32_t type = 0;
    std::uint64_t flags = 0;
    std::uint64_t address = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    std::uint64_t entrySize = 0;
    std::uint32_t link = 0;
    Elf_Scn* section = nullptr;
  };

  // Null for what is no ELF file. The file need not stay open.
  static std::unique_ptr<ElfFile> open(const RegularFile& file);
  static std::unique_ptr<ElfFile> ofMemory(std::string bytes);
  ~ElfFile();
  ElfFile(const ElfFile&) = delete;
  ElfFile& operator=(const ElfFile&) = delete;

  Elf* handle() const { return elf_; }
  unsigned machine() const { return machine_; }
  bool isRelocatable() const { return isRelocatable_; }
  bool is64() const { return is64_; }
  bool isBigEndian() const { return isBigEndian_; }
  const std::vector<Section>& sections() const { return sections_; }  // index 0 is none
  // Null if there is none, or none of content.
  const Section* findSection(std::string_view name) const;
  // The bytes of a section as they stand in the file, in its byte order; empty if it has none or
  // they are cut off.
  std::string_view content(const Section& section) const;
  // As `content`; what is compressed is unpacked, up to `limit` bytes, else empty.
  std::string_view unpackedContent(const Section& section, std::uint64_t limit);

  // Gives back the memory of a section that was only read; what it hands out stays valid. Large
  // files fit so.
  // `end` bytes of it, or all.
  void release(const Section& section, std::uint64_t end = UINT64_MAX) const;

  bool hasSymbols(std::uint32_t tableType) const;  // SHT_SYMTAB or SHT_DYNSYM
  // Appends the functions, objects and visible labels of a table, in its order: what perf takes
  // from it. A relocatable file's addresses are those in their sections.
  // With `onlyIn`, of the section of that name only.
  void addSymbols(std::uint32_t tableType, std::vector<Symbol>& symbols,
                  std::string_view onlyIn = {});
  // Appends `NAME@plt` for the entries of the procedure linkage tables; `.plt` for what is at the
  // head of the first.
  void addPltEntries(std::vector<Symbol>& symbols);
  // The symbols of an ELF file that the section .gnu_debugdata holds, packed with xz; null if there
  // are none.
  std::unique_ptr<ElfFile> openDebugData() const;

 private:
  friend class PltReader;
  ElfFile() = default;
  bool _read();
  bool _isWanted(const Symbol& symbol, unsigned char type, unsigned char visibility,
                 std::size_t section) const;

  std::unique_ptr<FileMapping> mapping_;
  std::string memory_;
  Elf* elf_ = nullptr;
  unsigned machine_ = 0;
  bool isRelocatable_ = false;
  bool is64_ = false;
  bool isBigEndian_ = false;
  std::vector<Section> sections_;
  std::deque<std::string> names_;  // made here
};

}  // namespace listing
