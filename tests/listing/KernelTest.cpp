#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Kallsyms.h"
#include "listing/Kernel.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* LIST =
    "ffffffff81000000 T _stext\n"
    "ffffffff81000000 T _text\n"
    "ffffffff81000100 t local_one\n"
    "ffffffff81000180 R constant\n"
    "ffffffff81000200 T __sys_two\n"
    "ffffffff81000200 T sys_two\n"
    "ffffffff81001000 T _etext\n"
    "ffffffff81200000 D some_data\n"
    "ffffffffc0000000 t start_of_module\t[one]\n"
    "ffffffffc0000040 t $x\t[one]\n"
    "ffffffffc0000080 t more_of_module\t[one]\n";

class KernelTest : public testing::Test {
 protected:
  KernelTest() {
    options.kallsyms = temp.write("kallsyms", LIST);
    kernel.start = 0xffffffff81000000;
    kernel.end = 0xffffffff81001000;
    kernel.referenceName = "_text";
    kernel.referenceAddress = kernel.start;
  }
  std::string list(const std::string& path) { return temp.read(path.substr(path.rfind('/') + 1)); }

  TempDir temp;
  Options options;
  Kernel kernel;
};

TEST_F(KernelTest, FromTextToItsEnd) {
  const KernelResult result = listKernel(kernel, options, temp.path());
  EXPECT_EQ(result.outcome, Outcome::Named);
  EXPECT_EQ(list(result.list),
            "ffffffff81000000 t _text\n"
            "ffffffff81000100 t local_one\n"
            "ffffffff81000200 t sys_two\n"
            "ffffffff81000fff t [unknown]\n");
}

TEST_F(KernelTest, AtTheAddressesOfTheRecording) {
  kernel.start = kernel.referenceAddress = 0xffffffff9a000000;
  kernel.end = 0xffffffff9a001000;
  const KernelResult result = listKernel(kernel, options, temp.path());
  EXPECT_EQ(list(result.list),
            "ffffffff9a000000 t _text\n"
            "ffffffff9a000100 t local_one\n"
            "ffffffff9a000200 t sys_two\n"
            "ffffffff9a000fff t [unknown]\n");
}

TEST_F(KernelTest, ARecordedRangeOfEverythingIsCutToTheKernel) {
  kernel.start = 0;
  kernel.end = UINT64_MAX;
  const KernelResult result = listKernel(kernel, options, temp.path());
  EXPECT_THAT(list(result.list), StartsWith("ffffffff81000000 t _text\n"));
  EXPECT_THAT(list(result.list), EndsWith("ffffffff81000fff t [unknown]\n"));
}

TEST_F(KernelTest, AnotherNameOfTheFirstAddressKeepsTheOtherBytes) {
  options.kallsyms = temp.write("kallsyms",
                                "ffffffff81000000 T _text\n"
                                "ffffffff81000000 T first_function\n"
                                "ffffffff81000100 T second_function\n");
  EXPECT_EQ(list(listKernel(kernel, options, temp.path()).list),
            "ffffffff81000000 t _text\n"
            "ffffffff81000001 t first_function\n"
            "ffffffff81000100 t second_function\n"
            "ffffffff81000fff t [unknown]\n");
}

TEST_F(KernelTest, ModulesHaveListsOfTheirOwn) {
  kernel.modules.push_back({"[one]", "[one]", 0xffffffffc0000000, 0xffffffffc0001000, {}});
  kernel.modules.push_back({"[two]", "[two]", 0xffffffffc0001000, 0xffffffffc0002000, {}});
  const KernelResult result = listKernel(kernel, options, temp.path());
  ASSERT_EQ(result.moduleLists.size(), 1U);
  EXPECT_EQ(list(result.moduleLists.at("[one]")),
            "ffffffffc0000000 t start_of_module\n"
            "ffffffffc0000080 t more_of_module\n"
            "ffffffffc0001000 t [unknown]\n");
}

TEST_F(KernelTest, BpfProgramsHaveTheirNames) {
  kernel.ksymbols.push_back({0xffffffffc0002000, 0x40, "bpf_prog_6deef7357e7b4530_sd_fw"});
  const KernelResult result = listKernel(kernel, options, temp.path());
  EXPECT_EQ(list(result.moduleLists.at(KernelResult::KSYMBOLS)),
            "ffffffffc0002000 t bpf_prog_6deef7357e7b4530_sd_fw\nffffffffc0002040 t [unknown]\n");
}

TEST_F(KernelTest, ARestrictedListIsToldApart) {
  options.kallsyms = temp.write("kallsyms", "0000000000000000 T _text\n0000000000000000 t f\n");
  const KernelResult result = listKernel(kernel, options, temp.path());
  EXPECT_EQ(result.outcome, Outcome::Restricted);
  EXPECT_THAT(result.cure, HasSubstr("sysctl kernel.kptr_restrict=0"));
  EXPECT_TRUE(result.list.empty());
}

TEST_F(KernelTest, NoListAtAll) {
  options.kallsyms = temp.file("absent");
  EXPECT_EQ(listKernel(kernel, options, temp.path()).outcome, Outcome::NotFound);
}

TEST(KallsymsTest, BrokenLinesAreSkipped) {
  const Kallsyms list =
      Kallsyms::parse("x\n\nffff T\nffff  T f\nffff T \n1000 T good\n2000 Tbad\n");
  ASSERT_EQ(list.entries.size(), 1U);
  EXPECT_EQ(list.entries[0].symbol.name, "good");
}

}  // namespace
}  // namespace listing
