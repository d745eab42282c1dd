// The call frame information of one section, .eh_frame or .debug_frame, indexed by address.
//
// Sources: DWARF 5, section 6.4; Linux Standard Base Core, "Exception Frames", for .eh_frame; the
// Arm 64-bit DWARF supplement for signed return addresses. The section may hold anything: what is
// not understood is skipped, work and memory are in proportion to its size.
//
// It is our own reader, and not libdw's, because that one trusts the section: a register number of
// 2^26 makes it allocate a gigabyte, an instruction cut off at the end is read past it.
//
// Not changed after construction: any number of threads may ask.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "unwinding/ByteCursor.h"
#include "unwinding/FrameRule.h"

namespace unwinding {

class CallFrameTable {
 public:
  enum class Form { EhFrame, DebugFrame };
  // Is this ELF address code? What a linker left of functions that it dropped says no.
  using IsCode = std::function<bool(std::uint64_t address)>;

  // `address` is the section's ELF address, which matters for .eh_frame only.
  CallFrameTable(Machine machine, Form form, std::vector<unsigned char> section,
                 std::uint64_t address, const IsCode& isCode);
  CallFrameTable(const CallFrameTable&) = delete;
  CallFrameTable& operator=(const CallFrameTable&) = delete;

  // The rule at an ELF address. False when no entry covers it, or when the entry is broken.
  bool find(std::uint64_t address, FrameRule& rule) const;

  Machine machine() const { return machine_; }
  Bytes section() const { return section_; }
  std::size_t entries() const { return index_.size(); }
  // Memory held, bytes.
  std::size_t size() const { return section_.size() + index_.size() * sizeof(Entry); }
  // First address of every entry, ascending; for tests.
  std::vector<std::uint64_t> starts() const;

 private:
  struct Entry {
    std::uint64_t start;
    std::uint32_t size;    // bytes of code; longer functions are cut
    std::uint32_t offset;  // of the entry in the section
  };
  // What an entry has in common with others ("CIE").
  struct Common {
    std::uint64_t offset = 0;
    bool valid = false;
    bool sized = false;  // entries say how long their augmentation data is
    bool signal = false;
    std::uint8_t pointerEncoding = 0;
    std::uint8_t returnRegister = 0;
    std::uint64_t codeAlignment = 1;
    std::int64_t dataAlignment = 1;
    Bytes instructions;
  };
  struct Header {
    bool common = false;
    std::uint64_t commonOffset = 0;  // of an entry that is not
    std::size_t body = 0;            // offset behind the header
    std::size_t end = 0;
  };
  struct Function {
    std::uint64_t start = 0;
    std::uint64_t size = 0;
    Bytes instructions;
  };

  void _index(const IsCode& isCode);
  bool _readHeader(std::size_t offset, Header& header) const;
  std::size_t _skipZeroWords(std::size_t offset) const;
  Common _readCommon(std::uint64_t offset) const;
  bool _readAugmentation(std::string_view letters, ByteCursor& in, Common& common) const;
  bool _readFunction(const Header& header, const Common& common, Function& function) const;
  std::uint64_t _takePointer(ByteCursor& in, std::uint8_t encoding) const;

  Machine machine_;
  Form form_;
  unsigned wordSize_;
  std::vector<unsigned char> section_;
  std::uint64_t address_;
  std::vector<Entry> index_;
};

}  // namespace unwinding
