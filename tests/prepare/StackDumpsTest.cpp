// Chains from registers and pieces of stack: what is taken of a sample, how each ends, and in which
// file.
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/StackDumps.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/unwinding/ElfText.h"

using prepare::StackDump;
using prepare::StackDumps;
using recordings::AddressSpace;
using recordings::MappedFile;
using recordings::MappedFiles;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using unwinding::End;
using Location = unwinding::FrameFiles::Location;

namespace {

constexpr std::uint64_t CODE = 0x7f0000000000;
constexpr std::uint64_t STACK = 0x7ffc00000000;
// perf's numbers of the registers that a chain begins with.
constexpr std::uint64_t X86_BP_SP_IP = 0x1c0;
constexpr std::uint64_t ARM_SP_PC = 0xa000;
constexpr std::uint64_t ARM64_SP_PC = 0x180000000;

std::string number(std::uint64_t value) {
  std::string bytes;
  for (int i = 0; i < 8; ++i) {
    bytes += static_cast<char>(value >> (8 * i));
  }
  return bytes;
}

// Nothing is mapped in it until a test does so.
class StackDumpsTest : public testing::Test {
 protected:
  const MappedFile& add(std::uint64_t start, MappedFile::Kind kind, const std::string& name) {
    const MappedFile& file = files.get(kind, name, {});
    maps.add({start, start + 0x1000, 0, &file});
    return file;
  }

  // Of x86-64 unless told; `values` is one for each bit of `mask`.
  StackDump dumpOf(std::vector<std::uint64_t> values, const std::string& stack = "") const {
    StackDump dump;
    dump.maps = maps;
    dump.abi = 2;
    dump.registers = std::move(values);
    dump.stack.assign(stack.begin(), stack.end());
    return dump;
  }

  void unwind(StackDump& dump, const std::string& architecture = "x86_64",
              std::uint64_t mask = X86_BP_SP_IP, std::size_t mostFrames = 127) {
    StackDumps dumps(architecture, mask, mostFrames, files,
                     [this](const MappedFile& file) { return places[file.name]; });
    dumps.unwind({&dump});
    endsByFile = dumps.endsByFile();
  }

  MappedFiles files;
  AddressSpace maps;
  std::map<std::string, Location> places;  // where mapped files are; of others: nowhere
  std::map<std::pair<End, unwinding::FileId>, std::uint64_t> endsByFile;
};

// A file with code and without a word about frames: chains follow the frame pointer.
std::string codeAlone() {
  return ElfText(EM_X86_64, true)
      .segment(PT_LOAD, 0, 0, 0x1000)
      .section(".text", 0x100, 0x100, std::vector<unsigned char>(0x100, 0x90))
      .string();
}

}  // namespace

TEST_F(StackDumpsTest, WhatIsTakenOfASampleIsACopy) {
  std::string registers = number(1) + number(0x7f0000000123);
  std::string stack = "stack";
  recordings::Sample sample;
  sample.userAbi = 2;
  sample.userRegisters = asBytes(registers);
  sample.userStack = asBytes(stack);
  const MappedFile& file = add(CODE, MappedFile::Kind::FILE, "/bin/app");
  const StackDump dump = StackDumps::take(sample, maps);
  registers.assign(registers.size(), 'x');
  stack.assign(stack.size(), 'x');
  maps.clear();
  EXPECT_EQ(dump.abi, 2U);
  EXPECT_THAT(dump.registers, ElementsAre(1U, 0x7f0000000123U));
  EXPECT_EQ(std::string(dump.stack.begin(), dump.stack.end()), "stack");
  ASSERT_NE(dump.maps.find(CODE), nullptr);
  EXPECT_EQ(&file, dump.maps.find(CODE)->file);
}

TEST_F(StackDumpsTest, RegistersAreInTheOrderOfTheRecording) {
  const std::string registers = {0, 0, 0, 0, 0, 0, 1, 2};
  recordings::Sample sample;
  sample.userRegisters = asBytes(registers);
  sample.order = recordings::ByteOrder::FOREIGN;
  EXPECT_THAT(StackDumps::take(sample, maps).registers, ElementsAre(0x102U));
}

TEST_F(StackDumpsTest, APieceOfARegisterIsNone) {
  const std::string registers = number(1) + "seven..";
  recordings::Sample sample;
  sample.userRegisters = asBytes(registers);
  EXPECT_THAT(StackDumps::take(sample, maps).registers, ElementsAre(1U));
}

// A kernel thread has none, whatever its values say.
TEST_F(StackDumpsTest, WithoutRegistersThereIsNoChain) {
  StackDump dump = dumpOf({0, STACK, CODE});
  dump.abi = 0;
  dump.frames = {1, 2, 3};  // of another try
  dump.lastFile = 3;
  unwind(dump);
  EXPECT_EQ(dump.end, End::Broken);
  EXPECT_EQ(dump.lastFile, unwinding::NO_FILE);
  EXPECT_THAT(dump.frames, IsEmpty());
}

TEST_F(StackDumpsTest, FewerValuesThanRegistersAreNoChain) {
  StackDump dump = dumpOf({0, STACK});
  unwind(dump);
  EXPECT_EQ(dump.end, End::Broken);
  EXPECT_THAT(dump.frames, IsEmpty());
}

TEST_F(StackDumpsTest, AnAddressInNoMapIsTheLast) {
  StackDump dump = dumpOf({0, STACK, CODE});
  unwind(dump);
  EXPECT_EQ(dump.end, End::UnknownModule);
  EXPECT_THAT(dump.frames, ElementsAre(CODE));
  EXPECT_EQ(dump.lastFile, unwinding::NO_FILE);
}

// Whatever the map is called, no file is asked for.
TEST_F(StackDumpsTest, CodeInNoFileIsTheLast) {
  for (const MappedFile::Kind kind :
       {MappedFile::Kind::PERF_MAP, MappedFile::Kind::VDSO_32, MappedFile::Kind::KERNEL_CODE}) {
    add(CODE, kind, "code");
    places["code"].path = "/no/such/file";
    StackDump dump = dumpOf({0, STACK, CODE + 0x10});
    unwind(dump);
    EXPECT_EQ(dump.end, End::UnknownModule);
    EXPECT_EQ(dump.lastFile, unwinding::NO_FILE);
  }
}

TEST_F(StackDumpsTest, AFileThatIsNotThereIsTold) {
  add(CODE, MappedFile::Kind::FILE, "/bin/other");
  const MappedFile& gone = add(CODE + 0x1000, MappedFile::Kind::FILE, "/bin/gone");
  places["/bin/gone"].path = "/no/such/file";
  StackDump dump = dumpOf({0, STACK, CODE + 0x1010});
  unwind(dump);
  EXPECT_EQ(dump.end, End::FileMissing);
  EXPECT_EQ(gone.index, dump.lastFile);
  EXPECT_THAT(endsByFile, ElementsAre(testing::Pair(std::pair(End::FileMissing, gone.index), 1U)));
}

TEST_F(StackDumpsTest, TheVdsoIsAFile) {
  const MappedFile& vdso = add(CODE, MappedFile::Kind::VDSO, "[vdso]");
  StackDump dump = dumpOf({0, STACK, CODE + 0x10});
  unwind(dump);
  EXPECT_EQ(dump.end, End::FileMissing);
  EXPECT_EQ(vdso.index, dump.lastFile);
}

// Two frames lie in the stack: each a frame pointer and a return address, of which a chain has the
// address before.
TEST_F(StackDumpsTest, AChainThroughAFile) {
  const TempDir temp;
  add(CODE, MappedFile::Kind::FILE, "/bin/app");
  places["/bin/app"].path = temp.write("app", codeAlone());
  const std::string stack =
      number(STACK + 16) + number(CODE + 0x130) + number(STACK + 32) + number(CODE + 0x140);
  StackDump dump = dumpOf({STACK, STACK, CODE + 0x120}, stack);
  unwind(dump);
  EXPECT_THAT(dump.frames, ElementsAre(CODE + 0x120, CODE + 0x12f, CODE + 0x13f));
  unwind(dump, "x86_64", X86_BP_SP_IP, 2);
  EXPECT_EQ(dump.end, End::MostFrames);
  EXPECT_THAT(dump.frames, ElementsAre(CODE + 0x120, CODE + 0x12f));
}

// The mask numbers a machine's own registers: with those of another there is no program counter.
TEST_F(StackDumpsTest, TheArchitectureSaysWhatTheRegistersAre) {
  const std::map<std::string, std::uint64_t> masks = {
      {"x86_64", X86_BP_SP_IP}, {"i386", X86_BP_SP_IP}, {"i686", X86_BP_SP_IP},
      {"armv7l", ARM_SP_PC},    {"armv8l", ARM_SP_PC},  {"arm", ARM_SP_PC},
      {"aarch64", ARM64_SP_PC}, {"arm64", ARM64_SP_PC}};
  for (const auto& [architecture, own] : masks) {
    for (const std::uint64_t mask : {X86_BP_SP_IP, ARM_SP_PC, ARM64_SP_PC}) {
      std::vector<std::uint64_t> values = {0x1000, 0x8000};
      if (mask == X86_BP_SP_IP) {
        values.insert(values.begin(), 0);
      }
      StackDump dump = dumpOf(values);
      dump.abi = architecture == "x86_64" || own == ARM64_SP_PC ? 2 : 1;
      unwind(dump, architecture, mask);
      EXPECT_EQ(mask == own ? End::UnknownModule : End::Broken, dump.end) << architecture << mask;
      EXPECT_EQ(mask == own ? 1U : 0U, dump.frames.size()) << architecture << mask;
    }
  }
}

TEST_F(StackDumpsTest, EachOfManyHasItsOwnChainAndIsCounted) {
  add(CODE, MappedFile::Kind::FILE, "/bin/gone");
  std::vector<StackDump> dumps;
  std::vector<StackDump*> pointers;
  for (std::uint64_t i = 0; i < 1000; ++i) {
    dumps.push_back(dumpOf({0, STACK, (i % 4 == 0 ? 2 * CODE : CODE) + i}));
  }
  for (StackDump& dump : dumps) {
    pointers.push_back(&dump);
  }
  StackDumps all("x86_64", X86_BP_SP_IP, 127, files, [](const MappedFile&) { return Location(); });
  all.unwind(pointers);
  for (std::uint64_t i = 0; i < 1000; ++i) {
    EXPECT_THAT(dumps[i].frames, ElementsAre((i % 4 == 0 ? 2 * CODE : CODE) + i));
  }
  EXPECT_EQ(all.ends()[static_cast<std::size_t>(End::UnknownModule)], 250U);
  EXPECT_EQ(all.ends()[static_cast<std::size_t>(End::FileMissing)], 750U);
  all.unwind({pointers[0]});  // counts go on from batch to batch
  all.unwind({});
  EXPECT_THAT(
      all.endsByFile(),
      UnorderedElementsAre(testing::Pair(std::pair(End::UnknownModule, unwinding::NO_FILE), 251U),
                           testing::Pair(std::pair(End::FileMissing, files.all()[0].index), 750U)));
}
