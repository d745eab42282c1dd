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
  EXPECT_EQ(0xffffffff81000000, kernel->start);
  EXPECT_EQ(0xffffffff82001812, kernel->end);
  EXPECT_EQ("_text", kernel->referenceName);
  EXPECT_EQ(0xffffffff81000000, kernel->referenceAddress);
}

TEST(AssumedKernelTest, OldListsHaveOneOfTheNames) {
  const TempDir temp;
  const auto kernel = kernelOfList(temp.write("list", "c0008000 T _stext\nc0500000 A _etext\n"));
  ASSERT_TRUE(kernel);
  EXPECT_EQ(0xc0008000, kernel->start);
  EXPECT_EQ("_stext", kernel->referenceName);
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
