// Real ELF files, compiled from fixtures/ and changed with objcopy.
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Listing.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Key;
using testing::Not;
using testing::Pair;

class ListFilesTest : public testing::Test {
 protected:
  ListFilesTest() {
    options.sysroots = {temp.path()};
    options.perfBuildIdDir = temp.file("perf");
    options.cacheDir = temp.file("cache");
    options.jobs = 1;
    ::unsetenv("DEBUGINFOD_URLS");
    run("mkdir -p $T/bin $T/work $T/usr/lib/debug");
    file.name = "/bin/program";
  }

  // In a shell; $T is the folder, $F that of the fixtures.
  void run(const std::string& command) {
    const std::string line = "T='" + temp.path() + "' F='" FIXTURES "'; " + command;
    ASSERT_EQ(std::system(line.c_str()), 0) << command;
  }
  Result list() { return listFiles({file}, options, temp.file("work"), {}).front(); }

  // Name and source file.
  std::map<std::string, std::string> functionsOf(const Result& result) const {
    std::map<std::string, std::string> functions;
    std::istringstream lines(temp.read("work/0.list"));
    for (std::string line; std::getline(lines, line) && !result.list.empty();) {
      const std::size_t tab = line.find('\t');
      functions[line.substr(19, tab - 19)] = tab == std::string::npos ? "" : line.substr(tab + 1);
    }
    return functions;
  }

  TempDir temp;
  Options options;
  File file;
};

TEST_F(ListFilesTest, FunctionsOfAProgram) {
  run("cp $F/functions $T/bin/program");
  const Result result = list();
  EXPECT_EQ(result.outcome, Outcome::Named);
  EXPECT_EQ(result.file, temp.file("bin/program"));
  EXPECT_EQ(result.symbolsFrom, result.file);
  const auto functions = functionsOf(result);
  EXPECT_THAT(functions, Contains(Pair("static_function", "/fixtures/functions.c:0")));
  EXPECT_THAT(functions, Contains(Key("indirect_function")));
  EXPECT_THAT(functions, Contains(Key("rand@plt")));
  EXPECT_THAT(functions, Contains(Key("main")));
}

TEST_F(ListFilesTest, OfAliasesTheGlobalOneOfTheLongerName) {
  run("cp $F/functions $T/bin/program");
  const auto functions = functionsOf(list());
  EXPECT_THAT(functions, Contains(Key("global_function")));
  EXPECT_THAT(functions, Not(Contains(Key("global_alias"))));
  EXPECT_THAT(functions, Not(Contains(Key("weak_alias_of_global"))));
}

TEST_F(ListFilesTest, NoLinesNoSourceFiles) {
  run("cp $F/functions $T/bin/program");
  options.lines = false;
  EXPECT_THAT(functionsOf(list()), Contains(Pair("static_function", "")));
}

TEST_F(ListFilesTest, OldLineTables) {
  run("cp $F/functions_dwarf4 $T/bin/program");
  EXPECT_THAT(functionsOf(list()), Contains(Pair("static_function", "/fixtures/functions.c:0")));
}

TEST_F(ListFilesTest, PackedLineTables) {
  run("objcopy --compress-debug-sections $F/functions $T/bin/program");
  EXPECT_THAT(functionsOf(list()), Contains(Pair("static_function", "/fixtures/functions.c:0")));
}

TEST_F(ListFilesTest, NamesAreDemangledAsPerfDoes) {
  run("cp $F/names $T/bin/program");
  auto functions = functionsOf(list());
  EXPECT_THAT(functions, Contains(Key("outer::Class::member")));
  EXPECT_THAT(functions, Contains(Key("outer::templated<double>")));
  options.parameters = true;
  EXPECT_THAT(functionsOf(list()), Contains(Key("outer::Class::member(int)")));
  options.demangle = false;
  EXPECT_THAT(functionsOf(list()), Contains(Key("_ZN5outer5Class6memberEi")));
}

TEST_F(ListFilesTest, StrippedOnesHaveWhatTheyExport) {
  run("strip -o $T/bin/program $F/functions");
  const Result result = list();
  EXPECT_EQ(result.symbolsFrom, ".dynsym");
  EXPECT_THAT(result.cure, HasSubstr(hexText(result.layout.buildId)));
  EXPECT_THAT(functionsOf(result), Contains(Key("rand@plt")));
  EXPECT_THAT(functionsOf(result), Not(Contains(Key("static_function"))));
}

// Some linkers have symbols for the entries, which perf shows.
TEST_F(ListFilesTest, ASymbolOfAPltEntryIsItsName) {
  run("cp $F/functions $T/bin/program");
  const auto before = functionsOf(list());
  run("a=$(grep -m1 @plt $T/work/0.list | cut -c1-16) && "
      "p=$(grep -m1 ' [.]plt$' $T/work/0.list | cut -c1-16) && "
      "objcopy --add-symbol 'own$plt'=.plt:$((0x$a-0x$p)),function,local $F/functions $T/bin/program");
  const auto after = functionsOf(list());
  EXPECT_THAT(after, Contains(Key("own$plt")));
  EXPECT_EQ(after.size(), before.size());
}

// fixtures/arm_functions, made of arm_functions.c by arm-linux-gnueabihf-gcc -shared -nostdlib
// -fPIC -O1 -fno-unwind-tables -Wl,--build-id=sha1,-z,max-page-size=4096; names and addresses as nm
// and objdump -d print them. The lowest bit, which tells Thumb, and $a, $d and $t are left out.
TEST_F(ListFilesTest, ArmAndThumbFunctionsAndPltEntries) {
  run("cp " SOURCES "/arm_functions $T/bin/program");
  const Result result = list();
  EXPECT_EQ(result.outcome, Outcome::Named);
  EXPECT_EQ(temp.read("work/0.list"),
            "00000000000001d4 t .plt\n"
            "00000000000001e8 t second_import@plt\n"
            "00000000000001f4 t first_import@plt\n"
            "0000000000000200 t arm_static\n"
            "0000000000000210 t thumb_static\n"
            "000000000000021c t arm_global\n"
            "000000000000022c t thumb_global\n"
            "0000000000000242 t [unknown]\n");
}

// Functions with sizes, and bytes between them that belong to none.
TEST_F(ListFilesTest, GapsHaveNoName) {
  temp.write(
      "gap.s",
      ".globl first, second\n.text\n.skip 8\nfirst:\n.skip 16\n.size first, 16\n.type first, %function\n"
      ".skip 48\nsecond:\n.skip 8\n.size second, 8\n.type second, %function\n.skip 8\n");
  run("cd $T && as -o gap.o gap.s && ld -e 0 -Ttext=0x10000 -o bin/program gap.o");
  list();
  EXPECT_EQ(temp.read("work/0.list"),
            "0000000000010008 t first\n0000000000010018 t [unknown]\n"
            "0000000000010048 t second\n0000000000010050 t [unknown]\n");
}

TEST_F(ListFilesTest, ADebugFileBesideIt) {
  run("cd $T/bin && objcopy --only-keep-debug $F/functions program.debug && strip -o program $F/functions && "
      "objcopy --add-gnu-debuglink=program.debug program");
  Result result = list();
  EXPECT_EQ(result.symbolsFrom, temp.file("bin/program.debug"));
  EXPECT_THAT(functionsOf(result), Contains(Pair("static_function", "/fixtures/functions.c:0")));
  for (const char* directory : {"bin/.debug", "usr/lib/debug/bin"}) {
    run("cd $T && mkdir -p " + std::string(directory) + " && mv $(find . -name program.debug) " +
        directory + "/program.debug");
    EXPECT_EQ(list().symbolsFrom, temp.file(std::string(directory) + "/program.debug"));
  }
}

TEST_F(ListFilesTest, ADebugFileByItsBuildId) {
  run("strip -o $T/bin/program $F/functions");
  const std::string id = hexText(list().layout.buildId);
  const std::string name =
      "usr/lib/debug/.build-id/" + id.substr(0, 2) + '/' + id.substr(2) + ".debug";
  run("mkdir -p $(dirname $T/" + name + ") && objcopy --only-keep-debug $F/functions $T/" + name);
  EXPECT_EQ(list().symbolsFrom, temp.file(name));
  run("mkdir $T/given && mv $T/usr/lib/debug/.build-id $T/given");
  options.debugDirs = {temp.file("given")};
  EXPECT_THAT(list().symbolsFrom, EndsWith(id.substr(2) + ".debug"));
}

TEST_F(ListFilesTest, ADebugFileOfAnotherBuildIsNotTaken) {
  run("cd $T/bin && objcopy --only-keep-debug $F/names program.debug && strip -o program $F/functions && "
      "objcopy --add-gnu-debuglink=program.debug program");
  EXPECT_EQ(list().symbolsFrom, ".dynsym");
}

TEST_F(ListFilesTest, WithoutBuildIdsTheChecksumDecides) {
  run("cd $T/bin && objcopy -R .note.gnu.build-id --only-keep-debug $F/functions program.debug && "
      "strip -R .note.gnu.build-id -o program $F/functions && objcopy --add-gnu-debuglink=program.debug program");
  EXPECT_EQ(list().symbolsFrom, temp.file("bin/program.debug"));
  run("printf x >>$T/bin/program.debug");
  EXPECT_EQ(list().symbolsFrom, ".dynsym");
}

TEST_F(ListFilesTest, SymbolsPackedInTheFile) {
  run("cd $T/bin && objcopy -S --keep-symbol=static_function $F/functions mini && xz mini && strip -o program $F/functions && "
      "objcopy --add-section .gnu_debugdata=mini.xz program");
  const Result result = list();
  EXPECT_EQ(result.symbolsFrom, ".gnu_debugdata");
  EXPECT_THAT(functionsOf(result), Contains(Key("static_function")));
}

TEST_F(ListFilesTest, AFileOfAnotherBuildIdIsNotUsed) {
  run("cp $F/functions $T/bin/program");
  file.buildId = {1, 2, 3};
  const Result result = list();
  EXPECT_EQ(result.outcome, Outcome::BuildIdDiffers);
  EXPECT_FALSE(result.foundBuildId.empty());
  EXPECT_EQ(result.list, "");
}

TEST_F(ListFilesTest, PerfsCopyOfAFileThatIsGone) {
  run("cp $F/functions $T/bin/program");
  file.buildId = list().layout.buildId;
  const std::string id = hexText(file.buildId);
  const std::string directory = temp.file("perf/.build-id/" + id.substr(0, 2) + '/' + id.substr(2));
  run("mkdir -p " + directory + " && mv $T/bin/program " + directory + "/elf");
  EXPECT_EQ(list().file, directory + "/elf");
}

TEST_F(ListFilesTest, ListsAreKeptBetweenRuns) {
  run("cp $F/functions $T/bin/program");
  const auto first = functionsOf(list());
  run("test $(ls $T/cache/lists/*.list | wc -l) = 1 && sed -i s/static_function/from_the_cache/ $T/cache/lists/*.list");
  EXPECT_THAT(functionsOf(list()), Contains(Key("from_the_cache")));
  options.cache = false;
  EXPECT_EQ(functionsOf(list()), first);
}

TEST_F(ListFilesTest, WhatIsNoRegularFileIsNotOpened) {
  run("mkfifo $T/bin/program");  // would wait for a writer
  EXPECT_EQ(list().outcome, Outcome::NotFound);
  run("rm $T/bin/program && mkdir $T/bin/program");
  EXPECT_EQ(list().outcome, Outcome::NotFound);
}

TEST_F(ListFilesTest, LinksAndDotsDoNotLeaveTheRoot) {
  run("cp $F/functions $T/outside && mkdir $T/root && ln -s /inside $T/root/link && cp $F/names $T/root/inside");
  options.sysroots = {temp.file("root")};
  file.name = "/../outside";
  EXPECT_EQ(list().outcome, Outcome::NotFound);
  file.name = "/link";
  EXPECT_EQ(list().file, temp.file("root/inside"));
}

TEST_F(ListFilesTest, WhatIsNoElfFile) {
  temp.write("bin/program", "#!/bin/sh\n");
  EXPECT_EQ(list().outcome, Outcome::NotElf);
}

TEST_F(ListFilesTest, CutFilesHarmNobody) {
  run("cp $F/functions $T/whole");
  const std::string whole = temp.read("whole");
  for (std::size_t size = 0; size < whole.size(); size += 97) {
    temp.write("bin/program", whole.substr(0, size));
    const Outcome outcome = list().outcome;
    EXPECT_TRUE(size >= 64 || outcome == Outcome::NotElf) << size;
  }
}

TEST_F(ListFilesTest, ResultsAreInTheOrderOfTheFiles) {
  run("cp $F/functions $T/bin/program && cp $F/names $T/bin/names");
  std::vector<File> files(3);
  files[0].name = "/bin/absent";
  files[1].name = "/bin/program";
  files[2].name = "/bin/names";
  files[2].samples = 100;
  std::size_t last = 0;
  const std::vector<Result> results =
      listFiles(files, options, temp.file("work"), [&last](std::size_t done, std::size_t all) {
        EXPECT_EQ(all, 3U);
        last = done;
      });
  EXPECT_EQ(last, 3U);
  EXPECT_EQ(results[0].outcome, Outcome::NotFound);
  EXPECT_EQ(results[1].file, temp.file("bin/program"));
  EXPECT_EQ(results[2].file, temp.file("bin/names"));
}

TEST_F(ListFilesTest, OffsetsInAFileAreAddressesOfIt) {
  const Layout layout{{{0, 0, 0x5f0, 0x5f0, false}, {0x5f0, 0x15f0, 0x200, 0x200, true}},
                      false,
                      false,
                      62,
                      {},
                      false,
                      "",
                      0};
  EXPECT_EQ(layout.addressOfOffset(0x600), 0x1600U);
  EXPECT_EQ(layout.addressOfOffset(0x100),
            0x1100U);  // its page is mapped for the executable segment, too
  EXPECT_EQ(layout.addressOfOffset(0x2000), std::nullopt);
}

}  // namespace
}  // namespace listing
