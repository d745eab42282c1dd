// Where the bytes of an ELF file lie when it runs: its program headers, read without libelf, so
// that hostile files are safe to ask in this very process. Source of the format: System V ABI,
// chapters 4 and 5.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "listing/BuildId.h"

namespace listing {

class RegularFile;

// A PT_LOAD program header. [offset, offset + fileSize) of the file lies at [address, address +
// fileSize).
struct Segment {
  std::uint64_t offset = 0;
  std::uint64_t address = 0;
  std::uint64_t fileSize = 0;
  std::uint64_t memorySize = 0;
  bool executable = false;
};

// Program headers of the running file: they turn file offsets of a mapping into addresses of the
// ELF file. (Those of a separate debug file have false offsets.)
struct Layout {
  std::vector<Segment> segments;
  bool isExecutable = false;   // ET_EXEC: runs at the addresses in the file
  bool isRelocatable = false;  // ET_REL: objects and kernel modules; no segments
  unsigned machine = 0;        // e_machine
  BuildId buildId;
  bool hasSymbolTable = false;  // .symtab, of content
  std::string
      debugLink;  // file name in .gnu_debuglink: where its symbols were moved to; may be empty
  std::uint32_t debugLinkChecksum = 0;  // CRC-32 of that file

  // The address (as st_value) of a file offset: of the segment that holds it, an executable one
  // first; of a segment whose last page is mapped behind its end where none does. Nothing where
  // there is no segment.
  std::optional<std::uint64_t> addressOfOffset(std::uint64_t offset) const;
  // Whether code may lie at an address: in an executable segment, or anywhere where there are no
  // segments.
  bool holdsCode(std::uint64_t address) const;
};

// Nothing for a file that cannot be opened (see RegularFile) or is no ELF file. Reads headers and
// notes only.
std::optional<Layout> readLayout(const std::string& path);
std::optional<Layout> readLayout(const RegularFile& file);

}  // namespace listing
