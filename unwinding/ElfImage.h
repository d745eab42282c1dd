// The parts of an ELF file that unwinding needs, read through libelf. Only regular files are
// opened, never mapped into memory: a file may shrink while it is in use. Little-endian ones of the
// machines of Machine.h only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "unwinding/ByteCursor.h"
#include "unwinding/Machine.h"

namespace unwinding {

class ElfImage {
 public:
  // A part of the file that is loaded, or, where there are no program headers (a file made of code
  // compiled at run time), a section that would be.
  struct Segment {
    std::uint64_t offset = 0;   // in the file
    std::uint64_t address = 0;  // ELF address
    std::uint64_t size = 0;     // bytes of the file
    bool executable = false;
    bool writable = false;
  };
  struct Section {
    std::uint64_t address = 0;
    std::vector<unsigned char> bytes;
  };
  // A section or a piece of a segment larger than this is not read.
  static constexpr std::uint64_t LARGEST_SECTION = 512u << 20;

  // Null when it cannot be opened or is none of those files.
  static std::unique_ptr<ElfImage> open(const std::string& path);
  ~ElfImage();
  ElfImage(const ElfImage&) = delete;
  ElfImage& operator=(const ElfImage&) = delete;

  Machine machine() const { return machine_; }
  const std::vector<Segment>& segments() const { return segments_; }

  // The bytes of a section, unpacked; nothing when there is none, or none in this file.
  std::optional<Section> section(const char* name) const;
  // What begins at the ELF address of the first program header of this type (PT_GNU_EH_FRAME,
  // PT_ARM_EXIDX): for files without section headers.
  std::optional<Section> header(std::uint32_t type) const;
  // From an ELF address to the end of what is loaded there from the file.
  std::optional<Section> restOfSegment(std::uint64_t address) const;

 private:
  struct Handle;
  explicit ElfImage(std::unique_ptr<Handle> handle);

  bool _readHeaders();
  void _readSegments();
  void _readSectionsAsSegments();
  std::optional<Section> _unpack(std::size_t index) const;
  std::optional<Section> _read(std::uint64_t address, std::uint64_t offset,
                               std::uint64_t size) const;

  std::unique_ptr<Handle> handle_;
  Machine machine_ = Machine::X86_64;
  std::vector<Segment> segments_;
};

// Bytes of a regular file from `offset` on, at most `size`.
std::vector<unsigned char> readFile(const std::string& path, std::uint64_t offset,
                                    std::size_t size);

}  // namespace unwinding
