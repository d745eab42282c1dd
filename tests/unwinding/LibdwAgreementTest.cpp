// Every address of every function of real files has the rule that elfutils' libdw reads there. The
// fixture is what the compiler makes of a program with the C library in it, its assembler included.
#include <cstdlib>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <fcntl.h>
#include <map>
#include <memory>
#include <unistd.h>

#include <gtest/gtest.h>

#include "unwinding/CallFrameTable.h"
#include "unwinding/ElfImage.h"

using unwinding::CallFrameTable;
using unwinding::ElfImage;
using unwinding::FrameRule;
using unwinding::RegisterRule;
using Kind = RegisterRule::Kind;

namespace {

class LibdwFile {
 public:
  LibdwFile(const std::string& path, bool ehFrame) : descriptor_(open(path.c_str(), O_RDONLY)) {
    elf_version(EV_CURRENT);
    elf_ = elf_begin(descriptor_, ELF_C_READ, nullptr);
    if (ehFrame) {
      own_ = dwarf_getcfi_elf(elf_);
    } else {
      dwarf_ = dwarf_begin_elf(elf_, DWARF_C_READ, nullptr);
    }
  }
  ~LibdwFile() {
    if (own_ != nullptr) {
      dwarf_cfi_end(own_);
    }
    dwarf_end(dwarf_);
    elf_end(elf_);
    close(descriptor_);
  }
  Dwarf_CFI* cfi() { return own_ != nullptr ? own_ : dwarf_getcfi(dwarf_); }

 private:
  int descriptor_;
  Elf* elf_ = nullptr;
  Dwarf* dwarf_ = nullptr;
  Dwarf_CFI* own_ = nullptr;
};

constexpr int STACK_POINTER = 7;  // x86-64

using Frame = std::unique_ptr<Dwarf_Frame, decltype(&std::free)>;

Frame frameAt(Dwarf_CFI* cfi, std::uint64_t address) {
  Dwarf_Frame* frame = nullptr;
  return Frame(dwarf_cfi_addrframe(cfi, address, &frame) == 0 ? frame : nullptr, &std::free);
}

void expectSameCfa(Dwarf_Frame* frame, const FrameRule& rule) {
  Dwarf_Op* operations = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(dwarf_frame_cfa(frame, &operations, &count), 0);
  if (rule.cfaIsExpression) {
    EXPECT_TRUE(count > 1 || operations[0].atom != DW_OP_bregx);
    return;
  }
  ASSERT_EQ(count, 1u);
  EXPECT_EQ(operations[0].atom, DW_OP_bregx);
  EXPECT_EQ(operations[0].number, rule.cfaRegister);
  EXPECT_EQ(static_cast<std::int64_t>(operations[0].number2), rule.cfaValue);
}

// Where one register is: the rule for it, or nothing for "as it is".
void expectSameRegister(Dwarf_Frame* frame, const RegisterRule* rule, int number) {
  Dwarf_Op space[3];
  Dwarf_Op* operations = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(dwarf_frame_register(frame, number, space, &operations, &count), 0);
  if (rule == nullptr) {  // as it is; libdw tells registers apart that a call may change
    const bool isCfa = count == 2 && operations[0].atom == DW_OP_call_frame_cfa &&
                       operations[1].atom == DW_OP_stack_value;
    EXPECT_TRUE(count == 0 || (isCfa && number == STACK_POINTER));
    return;
  }
  switch (rule->kind) {
    case Kind::Undefined:
      EXPECT_TRUE(count == 0 && operations == space);
      break;
    case Kind::Offset:
    case Kind::ValueOffset: {
      ASSERT_GE(count, 1u);
      EXPECT_EQ(operations[0].atom, DW_OP_call_frame_cfa);
      const bool plus = count > 1 && operations[1].atom == DW_OP_plus_uconst;
      EXPECT_EQ(plus ? static_cast<std::int64_t>(operations[1].number) : 0, rule->value);
      EXPECT_EQ(operations[count - 1].atom == DW_OP_stack_value, rule->kind == Kind::ValueOffset);
      break;
    }
    case Kind::Register:
      ASSERT_EQ(count, 1u);
      EXPECT_EQ(operations[0].atom, DW_OP_regx);
      EXPECT_EQ(static_cast<int>(operations[0].number), rule->value);
      break;
    case Kind::Expression:
    case Kind::ValueExpression:
      EXPECT_GE(count, 1u);
      break;
  }
}

void expectSameRule(Dwarf_Frame* frame, const FrameRule& rule, unsigned registers) {
  bool signal = false;
  EXPECT_EQ(dwarf_frame_info(frame, nullptr, nullptr, &signal), rule.returnRegister);
  EXPECT_EQ(signal, rule.signal);
  expectSameCfa(frame, rule);
  std::map<unsigned, const RegisterRule*> rules;
  for (unsigned i = 0; i < rule.count; ++i) {
    rules[rule.registers[i].number] = &rule.registers[i];
  }
  for (unsigned number = 0; number < registers; ++number) {
    expectSameRegister(frame, rules[number], static_cast<int>(number));
  }
}

void expectAgreement(const std::string& path, bool ehFrame, std::size_t leastFunctions) {
  const std::unique_ptr<ElfImage> image = ElfImage::open(path);
  ASSERT_NE(image, nullptr) << path;
  auto section = image->section(ehFrame ? ".eh_frame" : ".debug_frame");
  ASSERT_TRUE(section) << path;
  const CallFrameTable table(
      image->machine(), ehFrame ? CallFrameTable::Form::EhFrame : CallFrameTable::Form::DebugFrame,
      std::move(section->bytes), section->address,
      [](std::uint64_t address) { return address > 0; });
  LibdwFile judge(path, ehFrame);
  ASSERT_NE(judge.cfi(), nullptr);
  EXPECT_GE(table.entries(), leastFunctions);
  for (const std::uint64_t start : table.starts()) {
    std::uint64_t address = start;
    FrameRule rule;
    while (table.find(address, rule) && !testing::Test::HasFailure()) {
      SCOPED_TRACE(testing::Message() << std::hex << address);
      const Frame frame = frameAt(judge.cfi(), address);
      ASSERT_NE(frame, nullptr);
      expectSameRule(frame.get(), rule, unwinding::traitsOf(image->machine()).registers);
      Dwarf_Addr end = 0;  // of the addresses with this rule
      dwarf_frame_info(frame.get(), nullptr, &end, nullptr);
      FrameRule last;
      EXPECT_TRUE(table.find(end - 1, last));
      EXPECT_EQ(last.cfaValue, rule.cfaValue);
      EXPECT_EQ(last.count, rule.count);
      address = end > address ? end : address + 1;
    }
  }
}

}  // namespace

TEST(LibdwAgreementTest, EhFrame) { expectAgreement(FIXTURES "/chain_static", true, 1000); }
TEST(LibdwAgreementTest, DebugFrame) { expectAgreement(FIXTURES "/chain_debug_frame", false, 5); }
TEST(LibdwAgreementTest, PackedDebugFrame) {
  const std::unique_ptr<ElfImage> plain = ElfImage::open(FIXTURES "/chain_debug_frame");
  const std::unique_ptr<ElfImage> packed = ElfImage::open(FIXTURES "/chain_debug_frame_packed");
  ASSERT_TRUE(plain && packed);
  ASSERT_TRUE(plain->section(".debug_frame") && packed->section(".debug_frame"));
  EXPECT_EQ(plain->section(".debug_frame")->bytes, packed->section(".debug_frame")->bytes);
}
