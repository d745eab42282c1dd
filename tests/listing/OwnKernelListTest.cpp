// The running kernel's list between runs: found again only for the same boot, kernel and question.
#include <filesystem>

#include <gtest/gtest.h>

#include "listing/OwnKernelList.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

class OwnKernelListTest : public testing::Test {
 protected:
  OwnKernelListTest() {
    options.cacheDir = temp.file("cache");
    places.kallsyms = temp.write("kallsyms", "ffffffff81000000 T _text\n");
    places.bootId = temp.write("boot_id", "0f5d\n");
    places.notes = temp.write("notes", "id");
    kernel.start = kernel.referenceAddress = 0xffffffff81000000;
    kernel.end = 0xffffffff82000000;
    kernel.referenceName = "_text";
    OwnKernelList(kernel, options, places).keep(temp.write("made", "the list"));
  }
  // What is taken; "none" if nothing is.
  std::string taken() {
    const bool isTaken = OwnKernelList(kernel, options, places).take(temp.file("taken"));
    EXPECT_EQ(isTaken, temp.has("taken"));
    const std::string text = isTaken ? temp.read("taken") : "none";
    std::filesystem::remove(temp.file("taken"));
    return text;
  }

  TempDir temp;
  Options options;
  OwnKernelList::Places places;
  Kernel kernel;
};

TEST_F(OwnKernelListTest, IsTheSameInTheNextRun) {
  EXPECT_EQ(taken(), "the list");
  EXPECT_EQ(taken(), "the list");
  EXPECT_EQ(temp.read("made"), "the list");
}

TEST_F(OwnKernelListTest, WhatIsTakenIsNotTheCallersToChangeForOthers) {
  std::filesystem::remove(temp.file("made"));
  EXPECT_EQ(taken(), "the list");
}

TEST_F(OwnKernelListTest, AnotherBootHasOtherAddresses) {
  temp.write("boot_id", "0f5e\n");
  EXPECT_EQ(taken(), "none");
  temp.write("boot_id", "0f5d\n");
  EXPECT_EQ(taken(), "the list");
}

TEST_F(OwnKernelListTest, AnotherKernelHasOtherSymbols) {
  temp.write("notes", "ie");
  EXPECT_EQ(taken(), "none");
}

TEST_F(OwnKernelListTest, AddressesThatAreHiddenNowStayHidden) {
  temp.write("kallsyms", "0000000000000000 T _text\n");
  EXPECT_EQ(taken(), "none");
}

TEST_F(OwnKernelListTest, EachRecordedKernelIsAnother) {
  Kernel asked = kernel;
  for (std::uint64_t Kernel::*const part :
       {&Kernel::start, &Kernel::end, &Kernel::referenceAddress}) {
    kernel.*part += 0x1000;
    EXPECT_EQ(taken(), "none");
    kernel = asked;
  }
  kernel.referenceName = "_stext";
  EXPECT_EQ(taken(), "none");
  kernel = asked;
  EXPECT_EQ(taken(), "the list");
}

TEST_F(OwnKernelListTest, ASystemThatDoesNotSayItsBootKeepsNothing) {
  places.bootId = temp.file("absent");
  EXPECT_EQ(taken(), "none");
  OwnKernelList(kernel, options, places).keep(temp.write("made", "another list"));
  EXPECT_EQ(taken(), "none");
}

TEST_F(OwnKernelListTest, WithoutACacheNothingIsKept) {
  options.cache = false;
  EXPECT_EQ(taken(), "none");
}

}  // namespace
}  // namespace listing
