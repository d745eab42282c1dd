// The kernel's own files, assembled and linked here: vmlinux, and modules as they are installed.
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Kernel.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

// For any processor: functions are made of zeros.
class KernelFilesTest : public testing::Test {
 protected:
  KernelFilesTest() {
    options.sysroots = {temp.path()};
    options.perfBuildIdDir = temp.file("perf");
    kernel.start = kernel.referenceAddress = 0x80000000;
    kernel.end = 0x80001000;
    kernel.referenceName = "_text";
  }
  void run(const std::string& command) {
    const std::string line = "cd '" + temp.path() + "' && " + command;
    ASSERT_EQ(std::system(line.c_str()), 0) << command;
  }
  void assemble(const std::string& source, const std::string& object) {
    temp.write("source.s", source);
    run("as -o '" + object + "' source.s");
  }
  std::string list(const std::string& path) { return temp.read(path.substr(path.rfind('/') + 1)); }

  TempDir temp;
  Options options;
  Kernel kernel;
};

// What is written in assembly has no sizes: each function reaches to the next.
TEST_F(KernelFilesTest, AVmlinuxWithoutSizes) {
  assemble(
      ".globl _text, middle, _etext\n_text:\n.skip 16\nlocal_function:\n.skip 16\nmiddle:\n.skip 32\n_etext:\n"
      ".data\nvariable:\n.skip 8\n",
      "vmlinux.o");
  run("ld -e 0 -Ttext=0x80000000 -o vmlinux vmlinux.o 2>/dev/null");
  options.vmlinux = temp.file("vmlinux");
  const KernelResult result = listKernel(kernel, options, temp.path());
  EXPECT_EQ(result.outcome, Outcome::Named) << result.cure;
  EXPECT_THAT(list(result.list), testing::StartsWith("0000000080000000 t _text\n"
                                                     "0000000080000010 t local_function\n"
                                                     "0000000080000020 t middle\n"));
  EXPECT_THAT(list(result.list), testing::Not(testing::HasSubstr("variable")));
}

// Another kernel's addresses are those of the recording after it is moved there.
TEST_F(KernelFilesTest, AVmlinuxOfAKernelThatWasMoved) {
  assemble(".globl _text\n_text:\n.skip 16\nother:\n.skip 16\n.globl _etext\n_etext:\n.skip 4\n",
           "vmlinux.o");
  run("ld -e 0 -Ttext=0x80000000 -o vmlinux vmlinux.o 2>/dev/null");
  options.vmlinux = temp.file("vmlinux");
  kernel.start = kernel.referenceAddress = 0x9a000000;
  kernel.end = 0x9a001000;
  EXPECT_THAT(list(listKernel(kernel, options, temp.path()).list),
              testing::StartsWith("000000009a000000 t _text\n000000009a000010 t other\n"));
}

// A module that the kernel's list does not have: its functions are those of its file's .text.
TEST_F(KernelFilesTest, AModuleFromItsFile) {
  options.kallsyms = temp.write("kallsyms", "80000000 T _text\n80000100 T f\n80001000 T _etext\n");
  assemble(
      ".text\n.skip 8\nfirst:\n.skip 24\n.size first, 16\n.type first, %function\n"
      "second:\n.skip 16\n.type second, %function\n.size second, 16\n"
      ".section .init.text,\"ax\",%progbits\nat_start:\n.skip 8\n.type at_start, %function\n",
      "one.ko");
  const std::uint64_t start = 0x90000000;
  for (const char* packing : {"cp one.ko packed.ko", "xz -kc one.ko > packed.ko",
                              "gzip -c one.ko > packed.ko", "zstd -qc one.ko > packed.ko"}) {
    run(packing);
    kernel.modules = {{"[one]", "/packed.ko", start, start + 0x1000, {}}};
    const KernelResult result = listKernel(kernel, options, temp.path());
    ASSERT_EQ(result.moduleLists.size(), 1U) << packing;
    EXPECT_EQ(list(result.moduleLists.at("[one]")),
              "0000000090000008 t first\n0000000090000018 t [unknown]\n"
              "0000000090000020 t second\n0000000090000030 t [unknown]\n")
        << packing;
  }
}

TEST_F(KernelFilesTest, AModuleOfAnotherBuildIsNotUsed) {
  options.kallsyms = temp.write("kallsyms", "80000000 T _text\n80000100 T f\n80001000 T _etext\n");
  assemble(
      ".text\nfirst:\n.skip 16\n.type first, %function\n.size first, 16\n"
      ".section .note.gnu.build-id,\"a\",%note\n.long 4, 4, 3\n.asciz \"GNU\"\n.byte 1, 2, 3, 4\n",
      "one.ko");
  kernel.modules = {{"[one]", "/one.ko", 0x90000000, 0x90001000, {1, 2, 3, 4}}};
  EXPECT_EQ(listKernel(kernel, options, temp.path()).moduleLists.size(), 1U);
  kernel.modules[0].buildId = {1, 2, 3, 5};
  EXPECT_TRUE(listKernel(kernel, options, temp.path()).moduleLists.empty());
}

}  // namespace
}  // namespace listing
