#include "listing/SourceFiles.h"

#include <algorithm>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>

#include "listing/ElfFile.h"
#include "listing/LineTable.h"

namespace listing {

namespace {

constexpr std::uint64_t COMPRESSED = 1 << 11;                     // SHF_COMPRESSED
constexpr std::uint64_t MAX_UNPACKED = std::uint64_t{512} << 20;  // of one section
constexpr std::size_t RELEASED_AT_ONCE = std::size_t{8} << 20;    // of .debug_line
constexpr std::uint64_t MAX_INFO = std::uint64_t{128} << 20;  // of .debug_info, where it is packed

std::string_view _section(ElfFile& file, std::string_view name) {
  const ElfFile::Section* section = file.findSection(name);
  return section != nullptr ? file.unpackedContent(*section, MAX_UNPACKED) : std::string_view();
}

// The directory in which a unit was compiled, by the offset of its line table: tables before
// version 5 leave it to the unit's entry in .debug_info. Read with libdw when first asked.
class UnitDirectories {
 public:
  explicit UnitDirectories(ElfFile& file) : file_(file) {}

  std::string_view of(std::size_t tableOffset) {
    if (!isRead_) {
      isRead_ = true;
      _read();
    }
    const auto found = directories_.find(tableOffset);
    return found != directories_.end() ? std::string_view(found->second) : std::string_view();
  }

 private:
  void _read() {
    // libdw unpacks all sections at once; source files are not worth so much.
    const ElfFile::Section* info = file_.findSection(".debug_info");
    if (info == nullptr || ((info->flags & COMPRESSED) != 0 && info->size > MAX_INFO / 4)) {
      return;
    }
    const std::unique_ptr<Dwarf, int (*)(Dwarf*)> dwarf(
        dwarf_begin_elf(file_.handle(), DWARF_C_READ, nullptr), dwarf_end);
    if (!dwarf) {
      return;
    }
    Dwarf_Off offset = 0;
    Dwarf_Off next;
    std::size_t headerSize;
    while (dwarf_nextcu(dwarf.get(), offset, &next, &headerSize, nullptr, nullptr, nullptr) == 0 &&
           next > offset) {
      Dwarf_Die unit;
      if (dwarf_offdie(dwarf.get(), offset + headerSize, &unit) != nullptr) {
        _add(unit);
      }
      offset = next;
    }
  }

  void _add(Dwarf_Die& unit) {
    Dwarf_Attribute attribute;
    Dwarf_Word table;
    if (dwarf_attr(&unit, DW_AT_stmt_list, &attribute) == nullptr ||
        dwarf_formudata(&attribute, &table) != 0) {
      return;
    }
    const char* directory = dwarf_formstring(dwarf_attr(&unit, DW_AT_comp_dir, &attribute));
    if (directory != nullptr) {
      directories_.try_emplace(static_cast<std::size_t>(table), directory);
    }
  }

  ElfFile& file_;
  bool isRead_ = false;
  std::unordered_map<std::size_t, std::string> directories_;
};

}  // namespace

// Gives each function the file of the row that holds its start: what LineTable::run calls. Each
// function is given one once, so that tables that overlap cost no more than their rows.
class SourceFiles::Assignment {
 public:
  Assignment(SourceFiles& owner, const std::vector<std::uint64_t>& starts)
      : owner_(owner), starts_(starts), next_(starts.size() + 1) {
    std::iota(next_.begin(), next_.end(), std::uint32_t{0});
  }

  void begin(const LineTable& table, std::size_t offset, UnitDirectories& directories) {
    table_ = &table;
    offset_ = offset;
    directories_ = &directories;
    known_.assign(table.fileCount(), 0);
    isInside_ = false;
  }

  void row(std::uint64_t address, std::uint64_t file) {
    if (!isInside_) {
      _beginSequence(address);
    } else if (address < address_) {
      isIgnored_ = true;  // addresses of a sequence ascend
    }
    if (!isIgnored_) {
      _give(address, file_);
      if (function_ < starts_.size() && starts_[function_] == address) {
        _give(address + 1, file);
      }
    }
    address_ = address;
    file_ = file;
  }

  void endSequence(std::uint64_t address) {
    if (isInside_ && !isIgnored_ && address >= address_) {
      _give(address, file_);
    }
    isInside_ = false;
  }

 private:
  void _beginSequence(std::uint64_t address) {
    isInside_ = true;
    // Linkers leave the tables of functions that they left out, at address 0, 1 or the highest.
    isIgnored_ = address <= 1;
    const auto first = std::lower_bound(starts_.begin(), starts_.end(), address);
    function_ = _unassigned(static_cast<std::uint32_t>(first - starts_.begin()));
    address_ = address;
  }

  // To all functions that start before the address and have none.
  void _give(std::uint64_t address, std::uint64_t file) {
    while (function_ < starts_.size() && starts_[function_] < address) {
      owner_.files_[function_] = _indexOf(file);
      next_[function_] = function_ + 1;
      function_ = _unassigned(function_ + 1);
    }
  }

  // The first one from there on; halves the way for the next who asks.
  std::uint32_t _unassigned(std::uint32_t function) {
    while (next_[function] != function) {
      next_[function] = next_[next_[function]];
      function = next_[function];
    }
    return function;
  }

  std::uint32_t _indexOf(std::uint64_t file) {
    if (file >= known_.size()) {
      return 0;
    }
    std::uint32_t& index = known_[static_cast<std::size_t>(file)];
    if (index == 0) {
      const std::string_view directory =
          table_->version() < 5 ? directories_->of(offset_) : std::string_view();
      index = owner_._add(table_->pathOf(file, directory));
    }
    return index;
  }

  SourceFiles& owner_;
  const std::vector<std::uint64_t>& starts_;
  std::vector<std::uint32_t>
      next_;  // function that has no file yet, at or behind this one; the last: none
  const LineTable* table_ = nullptr;
  std::size_t offset_ = 0;
  UnitDirectories* directories_ = nullptr;
  std::vector<std::uint32_t> known_;  // index of the name, by number of the file in this table
  bool isInside_ = false;
  bool isIgnored_ = false;
  std::uint32_t function_ = 0;
  std::uint64_t address_ = 0;
  std::uint64_t file_ = 0;
};

void SourceFiles::read(ElfFile& file, const std::vector<std::uint64_t>& starts) {
  files_.assign(starts.size(), 0);
  const std::string_view lines = _section(file, ".debug_line");
  const ElfFile::Section* const sectionHeader = file.findSection(".debug_line");
  if (lines.empty() || starts.empty() || file.isRelocatable()) {
    return;
  }
  const LineTable::Texts texts{_section(file, ".debug_str"), _section(file, ".debug_line_str")};
  UnitDirectories directories(file);
  Assignment assignment(*this, starts);
  ByteCursor section(lines, file.isBigEndian());
  std::size_t released = 0;
  while (!section.isAtEnd() && section.isOk()) {
    const std::size_t offset = section.position();
    const std::optional<LineTable> table = LineTable::take(section, texts, file.isBigEndian());
    if (table) {
      assignment.begin(*table, offset, directories);
      table->run(assignment);
    }
    if (section.position() - released > RELEASED_AT_ONCE) {
      released = section.position();
      file.release(*sectionHeader, released);
    }
  }
  file.release(*sectionHeader);
}

std::uint32_t SourceFiles::_add(std::string path) {
  if (path.empty()) {
    return 0;
  }
  const auto known = indices_.find(path);
  if (known != indices_.end()) {
    return known->second;
  }
  names_.push_back(std::move(path));
  const auto index = static_cast<std::uint32_t>(names_.size());
  indices_.emplace(names_.back(), index);
  return index;
}

std::string_view SourceFiles::fileOf(std::size_t function) const {
  return function < files_.size() && files_[function] > 0
             ? std::string_view(names_[files_[function] - 1])
             : std::string_view();
}

}  // namespace listing
