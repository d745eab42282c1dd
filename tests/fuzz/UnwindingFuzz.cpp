// Fuzz target: call frame information and a stack, both of them anybody's, give a chain. It has to
// end, to stay as it is when it is asked for again, and to begin with the program counter; opening
// the file may take memory in proportion to its size only.
//
// Input: a byte for machine (bits 0, 1) and what comes next (bits 2, 3: .eh_frame, .debug_frame,
// Arm's exception tables, a whole ELF file); where the program counter is (two bytes); the size of
// that (two bytes) and its bytes; for the exception tables the same again; the stack.
#include <algorithm>
#include <elf.h>
#include <vector>

#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryFile.h"
#include "tests/unwinding/ElfText.h"
#include "tests/unwinding/MapList.h"
#include "unwinding/Unwinder.h"

using namespace unwinding;

namespace {

constexpr std::uint64_t BASE = 0x400000;  // of the program
constexpr std::uint64_t CODE = 0x10000;   // ELF address of the first byte of the file
constexpr std::uint64_t CODE_SIZE = 0x10000;
constexpr std::uint64_t TABLES = CODE + CODE_SIZE;
constexpr std::uint64_t TABLES_OFFSET = 0x400;
constexpr std::uint64_t STACK = 0x7f000000;
constexpr std::size_t MOST_FRAMES = 127;

class InputReader {
 public:
  InputReader(const uint8_t* data, std::size_t size) : in_(Bytes(data, size)) {}
  unsigned number(unsigned size) {
    return static_cast<unsigned>(in_.takeUnsigned(std::min<unsigned>(size, left())));
  }
  std::vector<unsigned char> sized() {
    const unsigned size = number(2);
    return rest(size);
  }
  std::vector<unsigned char> rest(unsigned most = ~0u) {
    const Bytes bytes = in_.takeBytes(std::min(most, left()));
    return {bytes.begin(), bytes.end()};
  }

 private:
  unsigned left() const { return static_cast<unsigned>(in_.left()); }
  ByteCursor in_;
};

unsigned elfMachineOf(Machine machine) {
  switch (machine) {
    case Machine::X86_64:
      return EM_X86_64;
    case Machine::X86:
      return EM_386;
    case Machine::Arm:
      return EM_ARM;
    case Machine::Arm64:
      break;
  }
  return EM_AARCH64;
}

std::string fileOf(Machine machine, unsigned form, InputReader& in) {
  const std::vector<unsigned char> first = in.sized();
  if (form == 3) {
    return {first.begin(), first.end()};
  }
  ElfText elf(elfMachineOf(machine), traitsOf(machine).wordSize == 8);
  elf.segment(PT_LOAD, 0, CODE, CODE_SIZE);
  if (form == 2) {
    const std::vector<unsigned char> extra = in.sized();
    elf.section(".ARM.exidx", TABLES_OFFSET, TABLES, first);
    elf.section(".ARM.extab", TABLES_OFFSET + first.size(), TABLES + first.size(), extra);
  } else {
    elf.section(form == 0 ? ".eh_frame" : ".debug_frame", TABLES_OFFSET, TABLES, first,
                form == 0 ? SHF_ALLOC : 0);
  }
  return elf.string();
}

void checkChain(const UserState& state, const MapLookup& maps, const std::string& path) {
  FrameFiles files([&path](FileId) { return FrameFiles::Location{path, ""}; });
  Unwinder unwinder(files);
  std::vector<std::uint64_t> frames;
  const End end = unwinder.unwind(state, maps, MOST_FRAMES, frames);
  require(!frames.empty() && frames.size() <= MOST_FRAMES, "a chain has 1 to 127 frames");
  require(frames[0] == state.registers.value(traitsOf(state.machine).pc),
          "a chain begins with the program counter");
  require(end != End::MostFrames || frames.size() == MOST_FRAMES,
          "a chain that was cut has all the frames asked for");
  std::vector<std::uint64_t> again;
  require(unwinder.unwind(state, maps, MOST_FRAMES, again) == end && again == frames,
          "a chain stays as it is");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static MemoryFile file;
  InputReader in(data, size);
  const unsigned kind = in.number(1);
  UserState state;
  state.machine = static_cast<Machine>(kind & 3);
  const MachineTraits& traits = traitsOf(state.machine);
  for (unsigned number = 0; number < traits.registers; ++number) {
    state.registers.set(number, STACK + 8 * number);
  }
  state.registers.set(traits.stackPointer, STACK);
  state.registers.set(traits.pc, BASE + in.number(2));
  file.write(fileOf(state.machine, kind >> 2 & 3, in));
  const std::vector<unsigned char> stack = in.rest();
  state.stack = stack;
  {
    const AllocationMeter meter;
    const auto frames = FileFrames::open(file.path(), "");
    requireBoundedMemory(meter, size);
  }
  MapList maps;
  maps.add({BASE, BASE + CODE_SIZE, 0, 1});
  checkChain(state, maps, file.path());
  return 0;
}
