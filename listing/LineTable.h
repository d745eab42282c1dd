// One unit of .debug_line: which source file each address comes from. DWARF 2 to 5, chapter 6.2 of
// the standard. Borrows the sections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "listing/ByteCursor.h"

namespace listing {

class LineTable {
 public:
  // Sections that a table takes texts from.
  struct Texts {
    std::string_view debugStr;
    std::string_view debugLineStr;
  };

  // Takes the next table off the section, whole, so that a broken one does not hide those behind
  // it. Nothing for a table of another version, or if it is broken; `section` is at its end then if
  // nothing can come behind it.
  static std::optional<LineTable> take(ByteCursor& section, const Texts& texts, bool isBigEndian);

  unsigned version() const { return version_; }
  std::size_t fileCount() const { return files_.size(); }
  // Path of a file by its number in the rows, without "." and ".."; `directory` is where the unit
  // was compiled, for tables that do not say (before version 5). Empty for a number of no file.
  std::string pathOf(std::uint64_t number, std::string_view directory) const;

  // Calls sink.row(address, file) for each row and sink.endSequence(address) behind the last of
  // each sequence.
  template <typename Sink>
  void run(Sink& sink) const;

 private:
  struct File {
    std::string_view name;
    std::uint64_t directory = 0;
  };
  struct State {
    std::uint64_t address = 0;
    std::uint64_t file = 1;
  };

  bool _readHeader(ByteCursor& unit, const Texts& texts, bool is64);
  bool _readEntries(ByteCursor& unit, const Texts& texts, bool is64, std::vector<File>& entries);
  void _readOldEntries(ByteCursor& unit);
  template <typename Sink>
  void _runExtended(ByteCursor& program, State& state, Sink& sink) const;

  bool isBigEndian_ = false;
  unsigned version_ = 0;
  std::uint8_t minInstructionLength_ = 1;
  std::uint8_t lineRange_ = 1;
  std::uint8_t opcodeBase_ = 1;
  std::string_view opcodeLengths_;
  std::vector<File> directories_;
  std::vector<File> files_;
  std::string_view program_;
};

template <typename Sink>
void LineTable::run(Sink& sink) const {
  enum : std::uint8_t {
    EXTENDED,
    COPY,
    ADVANCE_PC,
    ADVANCE_LINE,
    SET_FILE,
    CONST_ADD_PC = 8,
    FIXED_ADVANCE_PC
  };
  ByteCursor program(program_, isBigEndian_);
  State state;
  while (!program.isAtEnd()) {
    const std::uint8_t opcode = program.u8();
    if (opcode >= opcodeBase_) {
      state.address += std::uint64_t{static_cast<std::uint8_t>(opcode - opcodeBase_)} / lineRange_ *
                       minInstructionLength_;
      sink.row(state.address, state.file);
      continue;
    }
    switch (opcode) {
      case EXTENDED:
        _runExtended(program, state, sink);
        break;
      case COPY:
        sink.row(state.address, state.file);
        break;
      case ADVANCE_PC:
        state.address += program.unsignedNumber() * minInstructionLength_;
        break;
      case SET_FILE:
        state.file = program.unsignedNumber();
        break;
      case CONST_ADD_PC:
        state.address += std::uint64_t{static_cast<std::uint8_t>(255 - opcodeBase_)} / lineRange_ *
                         minInstructionLength_;
        break;
      case FIXED_ADVANCE_PC:
        state.address += program.number(2);
        break;
      default:
        for (std::uint8_t i = 0; i < static_cast<std::uint8_t>(opcodeLengths_[opcode - 1U]); ++i) {
          program.skipLeb();
        }
    }
  }
}

template <typename Sink>
void LineTable::_runExtended(ByteCursor& program, State& state, Sink& sink) const {
  enum : std::uint8_t { END_SEQUENCE = 1, SET_ADDRESS = 2 };
  const std::uint64_t size = program.unsignedNumber();
  ByteCursor operation(program.take(size), isBigEndian_);
  const std::uint8_t code = operation.u8();
  if (code == END_SEQUENCE) {
    sink.endSequence(state.address);
    state = State();
  } else if (code == SET_ADDRESS) {
    state.address = operation.number(operation.left());
  }
}

}  // namespace listing
