#include <string>

#include <gtest/gtest.h>

#include "prepare/AssumedKernel.h"
#include "tests/support/TempDir.h"

using prepare::assumedKernel;
using prepare::kernelOfList;

namespace {

constexpr char LIST[] =
    "0000000000000000 A fixed_percpu_data\n"
    "ffffffff81000000 T _stext\n"
    "ffffffff81000000 T _text\n"
    "ffffffff81000040 T secondary_startup_64\n"
    "ffffffff82001812 T _etext\n"
    "ffffffffc0000000 t fuse_init\t[fuse]\n";

}  // namespace

TEST(AssumedKernelTest, ReachesFromTheTextToItsEnd) {
  const TempDir temp;
  const auto kernel = kernelOfList(temp.write("list", LIST));
  ASSERT_TRUE(kernel);
  EXPECT_EQ(kernel->start, 0xffffffff81000000);
  EXPECT_EQ(kernel->end, 0xffffffff82001812);
  EXPECT_EQ(kernel->referenceName, "_text");
  EXPECT_EQ(kernel->referenceAddress, 0xffffffff81000000);
}

TEST(AssumedKernelTest, OldListsHaveOneOfTheNames) {
  const TempDir temp;
  const auto kernel = kernelOfList(temp.write("list", "c0008000 T _stext\nc0500000 A _etext\n"));
  ASSERT_TRUE(kernel);
  EXPECT_EQ(kernel->start, 0xc0008000);
  EXPECT_EQ(kernel->referenceName, "_stext");
}

TEST(AssumedKernelTest, HiddenAddressesAreNone) {
  const TempDir temp;
  EXPECT_FALSE(
      kernelOfList(temp.write("list", "0000000000000000 T _text\n0000000000000000 T _etext\n")));
  EXPECT_FALSE(kernelOfList(temp.write("list", "ffffffff81000000 T _text\n")));
  EXPECT_FALSE(kernelOfList(temp.write("list", "")));
  EXPECT_FALSE(kernelOfList("/no/such/list"));
}

TEST(AssumedKernelTest, AListThatIsGivenIsTheRecordedKernels) {
  const TempDir temp;
  const std::string list = temp.write("list", LIST);
  EXPECT_TRUE(assumedKernel("perf.data", list, false));
  EXPECT_FALSE(assumedKernel("perf.data", "", false));  // another machine's: nobody knows
}
