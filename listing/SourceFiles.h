// The source file in which each function begins, from the line tables of an ELF file (.debug_line,
// DWARF 2 to 5, chapter 6.2 of the standard). The tables are run through once and no row is kept,
// so time goes with their size and memory with the number of functions: libdw would make objects of
// all rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace listing {

class ElfFile;

class SourceFiles {
 public:
  // For child processes, as ElfFile. `starts` ascend; equal ones get the same file. Where several
  // rows hold an address, the first one of the first table has it.
  void read(ElfFile& file, const std::vector<std::uint64_t>& starts);

  // Of the function at that index; empty: not known. Absolute where the tables say enough, without
  // "." and "..".
  std::string_view fileOf(std::size_t function) const;

 private:
  class Assignment;
  std::uint32_t _add(std::string path);  // index in names_ and 1; 0 for an empty one

  std::vector<std::uint32_t> files_;  // by function: index in names_ and 1; 0: not known
  std::deque<std::string> names_;
  std::unordered_map<std::string_view, std::uint32_t> indices_;
};

}  // namespace listing
