// Turns the registers and the piece of stack of a sample (perf record --call-graph dwarf) into a
// chain of addresses, innermost first.
//
// Addresses are such as symbols are looked up with, as perf prints them: the interrupted program
// counter as it is; of a caller, one less than the return address (on Arm with the Thumb bit
// cleared), so that it lies inside the call; of a signal's trampoline, its own first address; and
// of what the signal interrupted, the program counter as it was. perf with libunwind prints that
// last one reduced by 1, which in a function's first instruction names the function before it.
//
// Rules come from .eh_frame, .debug_frame and, for Arm, .ARM.exidx. Where a file says nothing:
// trampolines and linkage table entries by their code; then on x86 the frame pointer, if it points
// into the next 16 KiB of the stack; on Arm the link register, for the innermost frame only. The
// same as libunwind's guesses. The Arm tables say nothing of a function's first and last
// instructions: where they lead out of all files, the link register is taken.
//
// Stack and files may hold anything: a chain ends at the latest with its `mostFrames`th frame, and
// each takes bounded work.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "unwinding/FrameFiles.h"
#include "unwinding/FrameRule.h"
#include "unwinding/Machine.h"
#include "unwinding/Map.h"
#include "unwinding/Memory.h"

namespace unwinding {

// Why a chain has no further frame.
enum class End : std::uint8_t {
  Complete,       // the last one is the outermost
  MostFrames,     // as many as were asked for
  StackTooShort,  // the next one lies above the recorded piece of stack
  UnknownModule,  // the last address lies in no map, or in one of no file
  FileMissing,    // it lies in a file that is not there, or cannot be read
  NoCallFrameInformation,
  Broken,  // the rules need registers or memory that are not there, or lead nowhere
};

// One for each thread. What it learns of addresses it keeps, in at most 6 MB.
class Unwinder {
 public:
  // `files` has to outlive it.
  explicit Unwinder(FrameFiles& files);

  // Replaces `frames`, at most `mostFrames` of them, at least 1.
  End unwind(const UserState& state, const MapLookup& maps, std::size_t mostFrames,
             std::vector<std::uint64_t>& frames);

  // The file that the last address of the last chain lies in; NO_FILE: none.
  FileId lastFile() const { return lastFile_; }

 private:
  // The recorded stack, then files.
  class SampleMemory : public Memory {
   public:
    explicit SampleMemory(Unwinder& owner) : owner_(owner) {}
    void begin(const UserState& state);
    std::optional<std::uint64_t> read(std::uint64_t address, unsigned size) override;
    bool missedStack() const { return missedStack_; }

   private:
    std::optional<std::uint64_t> _readFile(std::uint64_t address, unsigned size);

    Unwinder& owner_;
    Bytes stack_;
    std::uint64_t stackStart_ = 0;
    unsigned fileReads_ = 0;
    bool missedStack_ = false;  // something above the stack was asked for and is in no map
  };

  struct Frame {
    std::uint64_t pc = 0;
    bool isReturnAddress = false;
    bool innermost = true;
    std::uint64_t loadBias = 0;
    Registers registers;
  };
  struct CachedRule {
    FileId file = NO_FILE;
    bool isReturnAddress = false;
    std::uint64_t offset = 0;
    FrameRule rule;
  };

  const FileFrames* _file(FileId file);
  const FrameRule& _rule(const FileFrames& file, FileId id, std::uint64_t offset,
                         bool isReturnAddress);
  // The frame becomes its caller's; or why it does not.
  std::optional<End> _step(const FrameRule& rule, Frame& frame);
  bool _stepByRule(const FrameRule& rule, Frame& frame);
  bool _stepByContext(const FrameRule& rule, Frame& frame);
  std::optional<End> _stepByExceptionCode(const FrameRule& rule, Frame& frame);
  std::optional<End> _stepByGuess(Frame& frame);
  bool _stepByFramePointer(Frame& frame);
  bool _stepByLinkRegister(Frame& frame);
  bool _apply(const FrameRule& rule, const RegisterRule& each, std::uint64_t cfa,
              const Frame& frame, Registers& caller);
  std::optional<std::uint64_t> _cfa(const FrameRule& rule, const Frame& frame);
  std::uint64_t _truncated(std::uint64_t value) const;

  FrameFiles& files_;
  const MapLookup* maps_ = nullptr;  // of the current chain
  SampleMemory memory_;
  Machine machine_ = Machine::X86_64;
  MachineTraits traits_;
  std::unordered_map<FileId, const FileFrames*> opened_;
  std::size_t foundRules_ = 0;     // since `rules_` has its size
  std::vector<CachedRule> rules_;  // by a hash of file and offset; the latest stays
  FileId lastFile_ = NO_FILE;
};

}  // namespace unwinding
