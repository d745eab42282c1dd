// Builds small ELF files (gABI, chapters 4 and 5), little-endian.
#pragma once

#include <cstdint>
#include <elf.h>
#include <string>
#include <vector>

#include "tests/unwinding/ByteText.h"

class ElfText {
 public:
  // An EM_* number; 32 or 64 bits.
  ElfText(unsigned machine, bool is64) : machine_(machine), is64_(is64) {}

  ElfText& segment(std::uint32_t type, std::uint64_t offset, std::uint64_t address,
                   std::uint64_t size, std::uint32_t flags = PF_R | PF_X) {
    segments_.push_back({type, flags, offset, address, size});
    return *this;
  }
  // Content at a place of the file, and a section header for it unless the name is empty.
  ElfText& section(const std::string& name, std::uint64_t offset, std::uint64_t address,
                   const std::vector<unsigned char>& bytes, std::uint64_t flags = SHF_ALLOC) {
    sections_.push_back({name, offset, address, flags, bytes});
    return *this;
  }

  std::string string() const {
    std::string file;
    const auto put = [&file](std::uint64_t offset, const std::vector<unsigned char>& bytes) {
      if (file.size() < offset + bytes.size()) {
        file.resize(offset + bytes.size());
      }
      file.replace(offset, bytes.size(), std::string(bytes.begin(), bytes.end()));
    };
    ByteText names;
    names.text("");
    ByteText headers;
    _header(headers, 0, 0, 0, 0, 0, 0);
    std::size_t count = 1;
    for (const Section& each : sections_) {
      put(each.offset, each.bytes);
      if (!each.name.empty()) {
        _header(headers, names.size(), SHT_PROGBITS, each.flags, each.address, each.offset,
                each.bytes.size());
        names.text(each.name);
        ++count;
      }
    }
    const std::size_t nameOffset = file.size();
    const std::size_t ownName = names.size();
    names.text(".shstrtab");
    _header(headers, ownName, SHT_STRTAB, 0, 0, nameOffset, names.size());
    put(nameOffset, names.all());
    const std::size_t headerOffset = (file.size() + 7) / 8 * 8;
    put(headerOffset, headers.all());
    put(0, _start(headerOffset, count + 1).all());
    return file;
  }

 private:
  struct Segment {
    std::uint32_t type;
    std::uint32_t flags;
    std::uint64_t offset;
    std::uint64_t address;
    std::uint64_t size;
  };
  struct Section {
    std::string name;
    std::uint64_t offset;
    std::uint64_t address;
    std::uint64_t flags;
    std::vector<unsigned char> bytes;
  };

  ByteText _start(std::uint64_t sectionHeaders, std::size_t sections) const {
    const unsigned word = is64_ ? 8 : 4;
    const bool named = sections > 2;
    ByteText out;
    out.bytes({0x7f, 'E', 'L', 'F', static_cast<unsigned char>(is64_ ? 2 : 1), 1, 1}).padTo(16);
    out.u16(ET_DYN).u16(machine_).u32(1).number(0, word).number(is64_ ? 64 : 52, word);
    out.number(named ? sectionHeaders : 0, word).u32(0).u16(is64_ ? 64 : 52);
    out.u16(is64_ ? 56 : 32).u16(segments_.size()).u16(is64_ ? 64 : 40);
    out.u16(named ? sections : 0).u16(named ? sections - 1 : 0);
    for (const Segment& each : segments_) {
      out.u32(each.type);
      if (is64_) {
        out.u32(each.flags);
      }
      out.number(each.offset, word).number(each.address, word).number(each.address, word);
      out.number(each.size, word).number(each.size, word);
      if (!is64_) {
        out.u32(each.flags);
      }
      out.number(0x1000, word);
    }
    return out;
  }
  void _header(ByteText& out, std::uint64_t name, std::uint32_t type, std::uint64_t flags,
               std::uint64_t address, std::uint64_t offset, std::uint64_t size) const {
    const unsigned word = is64_ ? 8 : 4;
    out.u32(name).u32(type).number(flags, word).number(address, word).number(offset, word);
    out.number(size, word).u32(0).u32(0).number(1, word).number(0, word);
  }

  unsigned machine_;
  bool is64_;
  std::vector<Segment> segments_;
  std::vector<Section> sections_;
};
