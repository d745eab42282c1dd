// Chains over made-up files and stacks: each way a chain goes on, and each way it ends.
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TempDir.h"
#include "tests/unwinding/ElfText.h"
#include "tests/unwinding/FrameSection.h"
#include "tests/unwinding/MapList.h"
#include "unwinding/Unwinder.h"

using testing::ElementsAre;
using unwinding::End;
using unwinding::FrameFiles;
using unwinding::Machine;
using unwinding::NO_FILE;
using unwinding::Unwinder;
using unwinding::UserState;

namespace {

constexpr std::uint64_t BASE = 0x7f0000000000;  // where the file's address 0 is
constexpr std::uint64_t TEXT = 0x1000;          // offset and address of its code
constexpr std::uint64_t STACK = 0x7ffc00001000;
constexpr std::uint64_t CFI = 0x400;

// Functions of 0x100 bytes each from TEXT on.
constexpr std::uint64_t PUSHED = TEXT;              // only the return address is on the stack
constexpr std::uint64_t FRAMED = TEXT + 0x100;      // rbp is saved and points at it
constexpr std::uint64_t OUTERMOST = TEXT + 0x200;   // return address undefined
constexpr std::uint64_t TRAMPOLINE = TEXT + 0x300;  // like PUSHED, but a signal's
constexpr std::uint64_t CALLED_BY_R12 = TEXT + 0x400;
constexpr std::uint64_t UNKNOWN = TEXT + 0x800;  // no call frame information

FrameSection sectionOf() {
  FrameSection section(false, 8);
  FrameSection::Common common;
  common.instructions = {0x0c, 7, 8, 0x90, 1};
  const std::size_t plain = section.common(common);
  common.augmentation = "zS";
  const std::size_t signal = section.common(common);
  section.function(plain, PUSHED, 0x100, {});
  section.function(plain, FRAMED, 0x100, {0x0c, 6, 16, 0x86, 2});
  section.function(plain, OUTERMOST, 0x100, {0x07, 16});
  section.function(signal, TRAMPOLINE, 0x100, {}, true);
  section.function(plain, CALLED_BY_R12, 0x100, {0x0c, 12, 0, 0x83, 2});
  return section;
}

ElfText elfOf(std::vector<unsigned char> code = {}) {
  code.resize(0x1000, 0x90);
  ElfText elf(EM_X86_64, true);
  elf.segment(PT_LOAD, 0, 0, TEXT + 0x1000);
  elf.section(".debug_frame", CFI, 0, sectionOf().bytes(), 0);
  elf.section(".text", TEXT, TEXT, code, SHF_ALLOC | SHF_EXECINSTR);
  return elf;
}

class UnwinderTest : public testing::Test {
 public:
  UnwinderTest() {
    write(elfOf().string());
    maps.add({BASE, BASE + TEXT + 0x1000, 0, 1});
    state.registers.set(7, STACK);
    state.registers.set(6, 0);
    at(PUSHED + 4);
  }

  void write(const std::string& bytes) { path = folder.write("file", bytes); }
  void at(std::uint64_t address) { state.registers.set(16, BASE + address); }
  UnwinderTest& push(std::uint64_t value) {
    stack.u64(value);
    return *this;
  }
  UnwinderTest& pushCaller(std::uint64_t address) { return push(BASE + address); }
  End unwind(std::size_t most = 127) {
    FrameFiles files([this](unwinding::FileId file) {
      return FrameFiles::Location{file == 1 ? path : "", ""};
    });
    Unwinder unwinder(files);
    state.stack = stack.all();
    const End end = unwinder.unwind(state, maps, most, frames);
    lastFile = unwinder.lastFile();
    for (std::uint64_t& each : frames) {
      each -= each >= BASE && each < BASE + 0x100000 ? BASE : 0;
    }
    return end;
  }

  TempDir folder;
  std::string path;
  MapList maps;
  UserState state;
  ByteText stack;
  std::vector<std::uint64_t> frames;
  unwinding::FileId lastFile = 0;
};

}  // namespace

TEST_F(UnwinderTest, CallersAreReducedByOne) {
  pushCaller(PUSHED + 8).pushCaller(OUTERMOST + 8);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, PUSHED + 7, OUTERMOST + 7));
}

TEST_F(UnwinderTest, ACallThatEndsItsFunctionBelongsToIt) {
  pushCaller(FRAMED).pushCaller(OUTERMOST + 8);  // returns to where the next function begins
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, FRAMED - 1, OUTERMOST + 7));
}

TEST_F(UnwinderTest, FollowsSavedRegisters) {
  at(FRAMED + 4);
  state.registers.set(6, STACK + 16);
  push(0).push(0);
  push(STACK + 40).pushCaller(FRAMED + 8);  // at STACK + 16
  push(0);
  push(0).pushCaller(OUTERMOST + 8);  // at STACK + 40
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(FRAMED + 4, FRAMED + 7, OUTERMOST + 7));
}

TEST_F(UnwinderTest, WhatASignalInterruptedIsNotReduced) {
  pushCaller(TRAMPOLINE + 1).pushCaller(PUSHED).pushCaller(OUTERMOST + 8);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, TRAMPOLINE + 1, PUSHED, OUTERMOST + 7));
}

TEST_F(UnwinderTest, ATrampolineKnownByItsCode) {
  std::vector<unsigned char> code(0x900);
  const std::vector<unsigned char> trampoline = {0x48, 0xc7, 0xc0, 0x0f, 0, 0, 0, 0x0f, 0x05};
  std::copy(trampoline.begin(), trampoline.end(), code.begin() + 0x800);
  write(elfOf(code).string());
  pushCaller(UNKNOWN);
  // struct ucontext: flags, link, stack of three words; r8 to r15, rdi rsi rbp rbx rdx rax rcx rsp
  // rip
  for (int i = 0; i < 5 + 15; ++i) {
    push(0);
  }
  push(STACK + 25 * 8).pushCaller(PUSHED);
  push(0).push(0);
  pushCaller(OUTERMOST + 8);  // at STACK + 25 * 8
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, UNKNOWN, PUSHED, OUTERMOST + 7));
}

TEST_F(UnwinderTest, ALinkageTableEntryKnownByItsCode) {
  std::vector<unsigned char> code(0x900, 0x90);
  const std::vector<unsigned char> entry = {0xff, 0x25, 1, 2,    3, 4, 0x68, 5,
                                            0,    0,    0, 0xe9, 0, 0, 0,    0};
  std::copy(entry.begin(), entry.end(), code.begin() + 0x800);
  write(elfOf(code).string());
  for (const unsigned offset : {0u, 6u}) {
    stack = ByteText();
    at(UNKNOWN + offset);
    pushCaller(OUTERMOST + 8);
    EXPECT_EQ(unwind(), End::Complete);
    EXPECT_THAT(frames, ElementsAre(UNKNOWN + offset, OUTERMOST + 7));
  }
  stack = ByteText();
  at(UNKNOWN + 11);  // the number is on the stack
  push(5).pushCaller(OUTERMOST + 8);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(UNKNOWN + 11, OUTERMOST + 7));
}

TEST_F(UnwinderTest, ALinkageTableEntryThatMoldMakes) {
  std::vector<unsigned char> code(0x900, 0x90);
  const std::vector<unsigned char> entry = {0xf3, 0x0f, 0x1e, 0xfa, 0x41, 0xbb,
                                            5,    0,    0,    0,    0xff, 0x25};
  std::copy(entry.begin(), entry.end(), code.begin() + 0x800);
  write(elfOf(code).string());
  pushCaller(OUTERMOST + 8);
  for (const unsigned offset : {0u, 4u, 10u}) {
    at(UNKNOWN + offset);
    EXPECT_EQ(unwind(), End::Complete);
    EXPECT_THAT(frames, ElementsAre(UNKNOWN + offset, OUTERMOST + 7));
  }
}

TEST_F(UnwinderTest, WithoutInformationTheFramePointerIsFollowed) {
  at(UNKNOWN);
  state.registers.set(6, STACK + 8);
  push(1).push(0).pushCaller(OUTERMOST + 8);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(UNKNOWN, OUTERMOST + 7));
}

TEST_F(UnwinderTest, AFramePointerElsewhereIsNotFollowed) {
  at(UNKNOWN);
  push(0).pushCaller(OUTERMOST + 8);
  for (const std::uint64_t value : {STACK - 8, STACK + 0x4008, STACK + 8, std::uint64_t{5}}) {
    state.registers.set(6, value);
    EXPECT_EQ(unwind(), End::NoCallFrameInformation) << value;
    EXPECT_THAT(frames, ElementsAre(UNKNOWN));
  }
}

TEST_F(UnwinderTest, AClearedFramePointerIsTheEnd) {
  at(UNKNOWN);
  EXPECT_EQ(unwind(), End::Complete);
}

TEST_F(UnwinderTest, AReturnAddressOfZeroIsTheEnd) {
  push(0);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4));
}

TEST_F(UnwinderTest, TheStackIsTooShort) {
  EXPECT_EQ(unwind(), End::StackTooShort) << "empty";
  pushCaller(PUSHED + 8);
  EXPECT_EQ(unwind(), End::StackTooShort);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, PUSHED + 7));
  stack.u32(0x12345678);
  EXPECT_EQ(unwind(), End::StackTooShort) << "half a word";
}

TEST_F(UnwinderTest, AsManyFramesAsWanted) {
  pushCaller(PUSHED + 8).pushCaller(PUSHED + 8).pushCaller(OUTERMOST + 8);
  EXPECT_EQ(unwind(1), End::MostFrames);
  EXPECT_EQ(frames.size(), 1u);
  EXPECT_EQ(unwind(3), End::MostFrames);
  EXPECT_EQ(frames.size(), 3u);
  EXPECT_EQ(unwind(4), End::Complete);
}

TEST_F(UnwinderTest, AddressesInNoFile) {
  push(0x1234);
  EXPECT_EQ(unwind(), End::UnknownModule);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, 0x1233));
  EXPECT_EQ(lastFile, NO_FILE);
  maps.add({0x1000, 0x2000, 0, NO_FILE});
  EXPECT_EQ(unwind(), End::UnknownModule);
}

TEST_F(UnwinderTest, AFileThatIsNotThere) {
  maps.add({0x1000, 0x2000, 0, 7});
  push(0x1234);
  EXPECT_EQ(unwind(), End::FileMissing);
  EXPECT_THAT(frames, ElementsAre(PUSHED + 4, 0x1233));
  EXPECT_EQ(lastFile, 7u);
}

TEST_F(UnwinderTest, AFileOfAnotherMachineIsOfNoUse) {
  write(ElfText(EM_AARCH64, true).segment(PT_LOAD, 0, 0, TEXT + 0x1000).string());
  EXPECT_EQ(unwind(), End::FileMissing);
  write("no ELF file");
  EXPECT_EQ(unwind(), End::FileMissing);
}

TEST_F(UnwinderTest, AFrameThatLeadsToItselfIsBroken) {
  at(CALLED_BY_R12);  // CFA = r12, the return address below it
  state.registers.set(12, STACK + 8);
  pushCaller(CALLED_BY_R12 + 1).pushCaller(CALLED_BY_R12 + 1);
  EXPECT_EQ(unwind(), End::Broken);
  EXPECT_EQ(frames.size(), 2u);
}

TEST_F(UnwinderTest, ARegisterThatIsNotKnownIsBroken) {
  at(CALLED_BY_R12);
  EXPECT_EQ(unwind(), End::Broken);
}

TEST_F(UnwinderTest, WhatAnEpilogueHasPoppedIsInItsRegister) {
  at(CALLED_BY_R12);  // CFA = r12, rbx below the return address
  state.registers.set(12, STACK + 8);
  state.registers.set(3, 0x333);
  pushCaller(FRAMED + 8);  // the slot of rbx would be at STACK - 8
  state.registers.set(6, STACK + 8);
  push(0).pushCaller(OUTERMOST + 8);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_EQ(frames.size(), 3u);
}

TEST_F(UnwinderTest, AMapOfThePartBehindTheFirst) {
  maps = MapList();
  maps.add({0x500000, 0x501000, TEXT, 1});
  state.registers.set(16, 0x500004);
  push(0x500208);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x500004, 0x500207));
}

TEST_F(UnwinderTest, AddressesThatAreNotFileOffsets) {
  ElfText elf(EM_X86_64, true);  // as some linkers lay out: the text one page higher
  elf.segment(PT_LOAD, 0, 0, TEXT, PF_R).segment(PT_LOAD, 0x800, TEXT, 0x800);
  elf.section(".debug_frame", CFI, 0, sectionOf().bytes(), 0);
  elf.section(".text", 0x800, TEXT, std::vector<unsigned char>(0x800), SHF_ALLOC);
  write(elf.string());
  maps = MapList();
  maps.add({0x500000, 0x502000, 0, 1});
  state.registers.set(16, 0x500804);
  push(0x500a08);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x500804, 0x500a07));
}

TEST_F(UnwinderTest, OnlyADebugFileHasTheInformation) {
  const std::string stripped = folder.write(
      "stripped", ElfText(EM_X86_64, true).segment(PT_LOAD, 0, 0, TEXT + 0x1000).string());
  FrameFiles files([&](unwinding::FileId) { return FrameFiles::Location{stripped, path}; });
  pushCaller(OUTERMOST + 8);
  state.stack = stack.all();
  EXPECT_EQ(Unwinder(files).unwind(state, maps, 127, frames), End::Complete);
  EXPECT_GT(files.size(), 0u);
}

TEST_F(UnwinderTest, FilesBeyondTheBudgetAreLeftOut) {
  FrameFiles files([this](unwinding::FileId) { return FrameFiles::Location{path, ""}; }, 1);
  EXPECT_NE(files.get(1), nullptr);
  EXPECT_EQ(files.get(2), nullptr);
  EXPECT_NE(files.get(1), nullptr) << "kept";
}

TEST_F(UnwinderTest, ThreadsShareTheFiles) {
  std::atomic<int> located = 0;
  FrameFiles files([&](unwinding::FileId) {
    ++located;
    return FrameFiles::Location{path, ""};
  });
  pushCaller(PUSHED + 8).pushCaller(OUTERMOST + 8);
  state.stack = stack.all();
  std::vector<std::thread> threads;
  std::atomic<int> complete = 0;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      Unwinder unwinder(files);
      std::vector<std::uint64_t> chain;
      for (int round = 0; round < 100; ++round) {
        complete += unwinder.unwind(state, maps, 127, chain) == End::Complete ? 1 : 0;
      }
    });
  }
  for (std::thread& each : threads) {
    each.join();
  }
  EXPECT_EQ(complete, 400);
  EXPECT_EQ(located, 1);
}

TEST_F(UnwinderTest, OneUnwinderForProgramsOfBothSizes) {
  ElfText elf(EM_386, false);
  FrameSection section(false, 4);
  FrameSection::Common common;
  common.dataAlignment = 0x7c;
  common.returnRegister = 8;
  common.instructions = {0x0c, 4, 4, 0x88, 1};
  const std::size_t plain = section.common(common);
  section.function(plain, TEXT, 0x100, {}).function(plain, TEXT + 0x100, 0x100, {0x07, 8});
  elf.segment(PT_LOAD, 0, 0, TEXT + 0x1000).section(".debug_frame", CFI, 0, section.bytes(), 0);
  elf.section(".text", TEXT, TEXT, std::vector<unsigned char>(0x200));
  const std::string small = folder.write("small", elf.string());
  FrameFiles files([&](unwinding::FileId file) {
    return FrameFiles::Location{file == 1 ? path : small, ""};
  });
  maps.add({0x8000000, 0x8002000, 0, 2});
  Unwinder unwinder(files);

  UserState state32;
  state32.machine = Machine::X86;
  state32.registers.set(4, 0xffff0000);
  state32.registers.set(8, 0x8000000 + TEXT + 4);
  const ByteText stack32 = ByteText().u32(0x8000000 + TEXT + 0x108);
  state32.stack = stack32.all();
  EXPECT_EQ(unwinder.unwind(state32, maps, 127, frames), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x8000000 + TEXT + 4, 0x8000000 + TEXT + 0x107));

  pushCaller(OUTERMOST + 8);
  state.stack = stack.all();
  EXPECT_EQ(unwinder.unwind(state, maps, 127, frames), End::Complete);
}

namespace {

// A file of Arm's 64-bit programs: one function with its return address in x30, one outermost.
class Arm64UnwinderTest : public testing::Test {
 protected:
  Arm64UnwinderTest() {
    FrameSection section(false, 8);
    FrameSection::Common common;
    common.returnRegister = 30;
    common.instructions = {0x0c, 31, 0};
    const std::size_t plain = section.common(common);
    section.function(plain, TEXT, 0x100, {});
    section.function(plain, TEXT + 0x100, 0x100, {0x07, 30});
    section.function(plain, TEXT + 0x200, 0x100, {0x2d, 0x0e, 16, 0x9d, 2, 0x9e, 1});
    ElfText elf(EM_AARCH64, true);
    std::vector<unsigned char> code(0x900);
    const std::vector<unsigned char> trampoline = {0x68, 0x11, 0x80, 0xd2, 0x01, 0x00, 0x00, 0xd4};
    std::copy(trampoline.begin(), trampoline.end(), code.begin() + 0x800);
    elf.segment(PT_LOAD, 0, 0, TEXT + 0x1000).section(".debug_frame", CFI, 0, section.bytes(), 0);
    elf.section(".text", TEXT, TEXT, code);
    path = folder.write("file", elf.string());
    maps.add({0x400000, 0x400000 + TEXT + 0x1000, 0, 1});
    state.machine = Machine::Arm64;
    state.registers.set(31, STACK);
    state.registers.set(30, 0x400000 + TEXT + 0x108);
    state.registers.set(32, 0x400000 + TEXT + 4);
  }
  End unwind() {
    FrameFiles files([this](unwinding::FileId) { return FrameFiles::Location{path, ""}; });
    state.stack = stack.all();
    return Unwinder(files).unwind(state, maps, 127, frames);
  }

  TempDir folder;
  std::string path;
  MapList maps;
  UserState state;
  ByteText stack;
  std::vector<std::uint64_t> frames;
};

}  // namespace

TEST_F(Arm64UnwinderTest, AReturnAddressInItsRegister) {
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x401004, 0x401107));
}

TEST_F(Arm64UnwinderTest, AnAuthenticationCodeIsTakenAway) {
  state.registers.set(32, 0x401204);
  stack.u64(0).u64(0x0055000000401108);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x401204, 0x401107));
}

TEST_F(Arm64UnwinderTest, WithoutInformationTheLinkRegisterIsTaken) {
  state.registers.set(32, 0x401700);
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x401700, 0x401107));
}

TEST_F(Arm64UnwinderTest, ATrampolineKnownByItsCode) {
  state.registers.set(30, 0x401800);
  stack.padTo(128 + 176 + 8);  // siginfo, what is before uc_mcontext, the fault address
  for (unsigned number = 0; number < 30; ++number) {
    stack.u64(number);
  }
  stack.u64(0x401108).u64(STACK + 0x300).u64(0x401000);  // x30, sp, pc
  EXPECT_EQ(unwind(), End::Complete);
  EXPECT_THAT(frames, ElementsAre(0x401004, 0x401800, 0x401000, 0x401107));
}
