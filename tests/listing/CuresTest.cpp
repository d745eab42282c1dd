// The packages of files that are stripped, and that the answer is kept while the database stays.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Cures.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

using testing::HasSubstr;
using testing::Not;

class CuresTest : public testing::Test {
 protected:
  CuresTest() : cache(temp.file("cache"), 1 << 20) {
    std::filesystem::create_directories(temp.file("root/var/lib/dpkg/info"));
    options.sysroots = {temp.file("root")};
    install("libone:amd64", "/.\n/usr\n/usr/lib/libone.so.1.2\n");
    install("two", "/.\n/bin\n/bin/two\n/usr/lib/libone.so\n");
  }
  // As the package manager does: another name, then renamed.
  void install(const std::string& package, const std::string& list) {
    const std::string folder = "root/var/lib/dpkg/info/";
    std::filesystem::rename(temp.write(folder + "new", list),
                            temp.file(folder + package + ".list"));
  }
  std::string cureOf(const std::string& name) {
    Cures cures(options);
    cures.prepare({name, "/usr/lib/other.so"}, cache);
    File file;
    file.name = name;
    Result result;
    result.outcome = Outcome::NoSymbols;
    return cures.of(file, result);
  }

  TempDir temp;
  Options options;
  ListCache cache;
};

TEST_F(CuresTest, NamesThePackageThatHasTheFile) {
  EXPECT_THAT(cureOf("/usr/lib/libone.so.1.2"), HasSubstr("package libone-dbgsym of"));
  EXPECT_THAT(cureOf("/lib/libone.so.1.2"), HasSubstr("package libone-dbgsym of"));
  EXPECT_THAT(cureOf("/usr/bin/two"), HasSubstr("package two-dbgsym of"));
  EXPECT_THAT(cureOf("/usr/bin/tw"), Not(HasSubstr("dbgsym")));
}

TEST_F(CuresTest, IsKeptWhileTheDatabaseIsTheSame) {
  const std::string cure = cureOf("/usr/bin/two");
  // In place, which leaves the folder as it was.
  temp.write("root/var/lib/dpkg/info/two.list", "/bin/three\n");
  EXPECT_EQ(cureOf("/usr/bin/two"), cure);
  install("three", "/bin/two\n");
  EXPECT_THAT(cureOf("/usr/bin/two"), HasSubstr("package three-dbgsym of"));
}

TEST_F(CuresTest, WithoutACacheEachRunLooks) {
  cache = ListCache("", 0);
  cureOf("/usr/bin/two");
  temp.write("root/var/lib/dpkg/info/two.list", "/bin/three\n");
  EXPECT_THAT(cureOf("/usr/bin/two"), Not(HasSubstr("dbgsym")));
}

TEST_F(CuresTest, WithoutADatabaseNothingIsKnown) {
  std::filesystem::remove_all(temp.file("root/var"));
  EXPECT_THAT(cureOf("/usr/bin/two"), HasSubstr("Build it without stripping it"));
}

}  // namespace
}  // namespace listing
