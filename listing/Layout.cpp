#include "listing/Layout.h"

#include <algorithm>
#include <cstddef>
#include <elf.h>
#include <string_view>

#include "listing/RegularFile.h"

namespace listing {

namespace {

constexpr std::uint64_t PAGE = 4096;
constexpr std::uint64_t MAX_HEADERS = 1 << 16;  // of one table; more is not looked at
constexpr std::size_t MAX_SEGMENTS = 256;       // there are about ten
constexpr std::uint64_t MAX_NAMES = 1 << 20;    // bytes of the section names that are read
constexpr std::uint64_t MAX_NOTES = 1 << 16;    // bytes of one note section

// One header: numbers at byte offsets, in the byte order of the file; zero beyond its end.
class Header {
 public:
  Header(std::string_view bytes, bool isBigEndian) : bytes_(bytes), isBigEndian_(isBigEndian) {}

  std::uint64_t number(std::size_t at, std::size_t size) const {
    std::uint64_t value = 0;
    if (at + size > bytes_.size()) {
      return 0;
    }
    for (std::size_t i = 0; i < size; ++i) {
      const std::size_t byte = isBigEndian_ ? at + i : at + size - 1 - i;
      value = value << 8 | static_cast<unsigned char>(bytes_[byte]);
    }
    return value;
  }

 private:
  std::string_view bytes_;
  bool isBigEndian_;
};

// Reads the tables of one file. The offsets are those of <elf.h>'s structures.
class LayoutReader {
 public:
  explicit LayoutReader(const RegularFile& file) : file_(file) {}

  std::optional<Layout> read() {
    char bytes[sizeof(Elf64_Ehdr)] = {};
    if (!file_.read(0, bytes, sizeof(Elf32_Ehdr)) ||
        std::string_view(bytes, SELFMAG) != std::string_view(ELFMAG, SELFMAG)) {
      return std::nullopt;
    }
    is64_ = bytes[EI_CLASS] == ELFCLASS64;
    isBigEndian_ = bytes[EI_DATA] == ELFDATA2MSB;
    if ((!is64_ && bytes[EI_CLASS] != ELFCLASS32) ||
        (!isBigEndian_ && bytes[EI_DATA] != ELFDATA2LSB) ||
        !file_.read(0, bytes, is64_ ? sizeof(Elf64_Ehdr) : sizeof(Elf32_Ehdr))) {
      return std::nullopt;
    }
    const Header header(std::string_view(bytes, sizeof(bytes)), isBigEndian_);
    const std::uint64_t type = header.number(offsetof(Elf64_Ehdr, e_type), 2);
    layout_.isExecutable = type == ET_EXEC;
    layout_.isRelocatable = type == ET_REL;
    layout_.machine = static_cast<unsigned>(header.number(offsetof(Elf64_Ehdr, e_machine), 2));
    _readSections(header);
    _readSegments(header);
    if (layout_.segments.empty() && !layout_.isRelocatable) {
      layout_.segments = sections_;
    }
    return layout_;
  }

 private:
  std::string _table(std::uint64_t offset, std::uint64_t count, std::uint64_t entrySize) const {
    if (offset >= file_.size() || entrySize == 0 || count == 0) {
      return {};
    }
    const std::uint64_t room = (file_.size() - offset) / entrySize;
    std::string bytes(std::min({count, MAX_HEADERS, room}) * entrySize, '\0');
    return file_.read(offset, bytes.data(), bytes.size()) ? bytes : std::string();
  }

  void _readNotes(std::uint64_t offset, std::uint64_t size) {
    if (layout_.buildId.empty()) {
      const std::string notes = _bytes(offset, std::min(size, MAX_NOTES));
      layout_.buildId = findBuildId(notes, isBigEndian_).value_or(BuildId());
    }
  }

  // Note sections first: a separate debug file has them, and segments that are not there.
  void _readSections(const Header& header) {
    const std::uint64_t offset = is64_ ? header.number(offsetof(Elf64_Ehdr, e_shoff), 8)
                                       : header.number(offsetof(Elf32_Ehdr, e_shoff), 4);
    const std::uint64_t size = header.number(
        is64_ ? offsetof(Elf64_Ehdr, e_shentsize) : offsetof(Elf32_Ehdr, e_shentsize), 2);
    std::uint64_t count =
        header.number(is64_ ? offsetof(Elf64_Ehdr, e_shnum) : offsetof(Elf32_Ehdr, e_shnum), 2);
    if (size < (is64_ ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr))) {
      return;
    }
    const std::string first = _table(offset, 1, size);
    const Header zero(first, isBigEndian_);
    if (count == 0) {
      count = is64_ ? zero.number(offsetof(Elf64_Shdr, sh_size), 8)
                    : zero.number(offsetof(Elf32_Shdr, sh_size), 4);
    }
    segmentCount_ =
        zero.number(is64_ ? offsetof(Elf64_Shdr, sh_info) : offsetof(Elf32_Shdr, sh_info), 4);
    std::uint64_t nameIndex = header.number(
        is64_ ? offsetof(Elf64_Ehdr, e_shstrndx) : offsetof(Elf32_Ehdr, e_shstrndx), 2);
    if (nameIndex == SHN_XINDEX) {
      nameIndex =
          zero.number(is64_ ? offsetof(Elf64_Shdr, sh_link) : offsetof(Elf32_Shdr, sh_link), 4);
    }
    const std::string table = _table(offset, count, size);
    const auto sectionAt = [&table, size, this](std::size_t at) {
      return Header(std::string_view(table).substr(at, size), isBigEndian_);
    };
    std::string names;
    if (nameIndex < table.size() / size) {
      const Segment section = _rangeOf(sectionAt(nameIndex * size));
      names = _bytes(section.offset, std::min(section.fileSize, MAX_NAMES));
    }
    for (std::size_t at = 0; at < table.size(); at += size) {
      _readSection(sectionAt(at), names);
    }
  }

  std::string _bytes(std::uint64_t offset, std::uint64_t size) const {
    if (offset >= file_.size()) {
      return {};
    }
    std::string bytes(std::min(size, file_.size() - offset), '\0');
    return file_.read(offset, bytes.data(), bytes.size()) ? bytes : std::string();
  }

  // Offset, address and size of a section.
  Segment _rangeOf(const Header& header) const {
    Segment range;
    if (is64_) {
      range.offset = header.number(offsetof(Elf64_Shdr, sh_offset), 8);
      range.address = header.number(offsetof(Elf64_Shdr, sh_addr), 8);
      range.fileSize = header.number(offsetof(Elf64_Shdr, sh_size), 8);
    } else {
      range.offset = header.number(offsetof(Elf32_Shdr, sh_offset), 4);
      range.address = header.number(offsetof(Elf32_Shdr, sh_addr), 4);
      range.fileSize = header.number(offsetof(Elf32_Shdr, sh_size), 4);
    }
    range.memorySize = range.fileSize;
    return range;
  }

  void _readSection(const Header& header, const std::string& names) {
    Segment section = _rangeOf(header);
    const std::uint64_t flags = is64_ ? header.number(offsetof(Elf64_Shdr, sh_flags), 8)
                                      : header.number(offsetof(Elf32_Shdr, sh_flags), 4);
    section.executable = (flags & SHF_EXECINSTR) != 0;
    const std::uint64_t type = header.number(offsetof(Elf64_Shdr, sh_type), 4);
    if (type == SHT_NOTE) {
      _readNotes(section.offset, section.fileSize);
    } else if (type == SHT_SYMTAB) {
      layout_.hasSymbolTable |= section.fileSize > (is64_ ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym));
    } else if (type == SHT_PROGBITS && (flags & SHF_ALLOC) != 0) {
      if (sections_.size() < MAX_SEGMENTS) {
        sections_.push_back(section);
      }
    } else if (type == SHT_PROGBITS) {
      const std::uint64_t at = header.number(offsetof(Elf64_Shdr, sh_name), 4);
      if (at < names.size() && std::string_view(names.c_str() + at) == ".gnu_debuglink") {
        _readDebugLink(section.offset, section.fileSize);
      }
    }
  }

  // A name, a zero byte, zeros up to a multiple of four, the checksum.
  void _readDebugLink(std::uint64_t offset, std::uint64_t size) {
    constexpr std::uint64_t MAX_LINK = 4096 + 8;
    const std::string bytes = _bytes(offset, std::min(size, MAX_LINK));
    const std::size_t end = bytes.find('\0');
    if (end != std::string::npos) {
      layout_.debugLink = bytes.substr(0, end);
      layout_.debugLinkChecksum = static_cast<std::uint32_t>(
          Header(bytes, isBigEndian_).number((end + 4) & ~std::size_t{3}, 4));
    }
  }

  void _readSegments(const Header& header) {
    const std::uint64_t offset = is64_ ? header.number(offsetof(Elf64_Ehdr, e_phoff), 8)
                                       : header.number(offsetof(Elf32_Ehdr, e_phoff), 4);
    const std::uint64_t size = header.number(
        is64_ ? offsetof(Elf64_Ehdr, e_phentsize) : offsetof(Elf32_Ehdr, e_phentsize), 2);
    std::uint64_t count =
        header.number(is64_ ? offsetof(Elf64_Ehdr, e_phnum) : offsetof(Elf32_Ehdr, e_phnum), 2);
    if (count == PN_XNUM) {
      count = segmentCount_;
    }
    if (size < (is64_ ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr))) {
      return;
    }
    const std::string table = _table(offset, count, size);
    for (std::size_t at = 0; at < table.size(); at += size) {
      _readSegment(Header(std::string_view(table).substr(at, size), isBigEndian_));
    }
  }

  void _readSegment(const Header& header) {
    Segment segment;
    std::uint64_t flags;
    if (is64_) {
      segment.offset = header.number(offsetof(Elf64_Phdr, p_offset), 8);
      segment.address = header.number(offsetof(Elf64_Phdr, p_vaddr), 8);
      segment.fileSize = header.number(offsetof(Elf64_Phdr, p_filesz), 8);
      segment.memorySize = header.number(offsetof(Elf64_Phdr, p_memsz), 8);
      flags = header.number(offsetof(Elf64_Phdr, p_flags), 4);
    } else {
      segment.offset = header.number(offsetof(Elf32_Phdr, p_offset), 4);
      segment.address = header.number(offsetof(Elf32_Phdr, p_vaddr), 4);
      segment.fileSize = header.number(offsetof(Elf32_Phdr, p_filesz), 4);
      segment.memorySize = header.number(offsetof(Elf32_Phdr, p_memsz), 4);
      flags = header.number(offsetof(Elf32_Phdr, p_flags), 4);
    }
    segment.executable = (flags & PF_X) != 0;
    const std::uint64_t type = header.number(offsetof(Elf64_Phdr, p_type), 4);
    if (type == PT_LOAD && layout_.segments.size() < MAX_SEGMENTS) {
      layout_.segments.push_back(segment);
    } else if (type == PT_NOTE) {
      _readNotes(segment.offset, segment.fileSize);
    }
  }

  const RegularFile& file_;
  Layout layout_;
  std::vector<Segment>
      sections_;  // for files that have no segments: code that perf took from a jitdump
  bool is64_ = false;
  bool isBigEndian_ = false;
  std::uint64_t segmentCount_ = 0;  // where the file header has no room for it
};

}  // namespace

std::optional<std::uint64_t> Layout::addressOfOffset(std::uint64_t offset) const {
  const Segment* found = nullptr;
  bool isFoundInside = false;
  for (const Segment& segment : segments) {
    const std::uint64_t first = segment.offset & ~(PAGE - 1);
    const std::uint64_t pageEnd = segment.fileSize + (segment.offset - first) + PAGE - 1;
    if (segment.fileSize == 0 || offset < first || offset - first >= (pageEnd & ~(PAGE - 1))) {
      continue;
    }
    const bool isInside = offset >= segment.offset && offset - segment.offset < segment.fileSize;
    // Better: executable, then what really holds the offset and not only the page around it.
    if (found == nullptr ||
        std::pair(segment.executable, isInside) > std::pair(found->executable, isFoundInside)) {
      found = &segment;
      isFoundInside = isInside;
    }
  }
  if (found == nullptr) {
    return std::nullopt;
  }
  return offset - found->offset + found->address;
}

bool Layout::holdsCode(std::uint64_t address) const {
  return segments.empty() ||
         std::any_of(segments.begin(), segments.end(), [address](const Segment& segment) {
           return segment.executable && address >= segment.address &&
                  address - segment.address < std::max(segment.memorySize, segment.fileSize);
         });
}

std::optional<Layout> readLayout(const RegularFile& file) { return LayoutReader(file).read(); }

std::optional<Layout> readLayout(const std::string& path) {
  const std::optional<RegularFile> file = RegularFile::open(path);
  return file ? readLayout(*file) : std::nullopt;
}

}  // namespace listing
