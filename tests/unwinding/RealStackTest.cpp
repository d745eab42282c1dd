// Real stacks of real programs, for each processor that there is a compiler and an emulator for:
// the chain has to be the one that the program itself noted down while it ran (fixtures/chain.c).
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/TempDir.h"
#include "tests/unwinding/ChainDump.h"
#include "tests/unwinding/MapList.h"
#include "unwinding/Unwinder.h"

using unwinding::End;
using unwinding::FrameFiles;
using unwinding::Unwinder;

namespace {

struct Chain {
  End end;
  std::vector<std::uint64_t> frames;
};

Chain chainOf(const ChainDump& dump, std::size_t most = 127) {
  const TempDir folder;
  const std::string vdso = folder.write("vdso", {dump.vdso.begin(), dump.vdso.end()});
  FrameFiles files([&dump, &vdso](unwinding::FileId file) {
    const std::string& path = dump.files.at(file).path;
    return FrameFiles::Location{path == "[vdso]" ? vdso : path, ""};
  });
  MapList maps;
  for (const auto& each : dump.files) {
    maps.add(each.map);
  }
  Chain chain;
  chain.end = Unwinder(files).unwind(dump.state(), maps, most, chain.frames);
  return chain;
}

class RealStackTest : public testing::TestWithParam<std::string> {
 protected:
  // The dump of one way to run the fixture; skips the test where it could not be made.
  ChainDump dumpOf(const std::string& how) {
    const std::string path = std::string(FIXTURES "/") + GetParam() + "." + how;
    return std::filesystem::exists(path) ? readChainDump(path) : ChainDump();
  }
};

std::uint64_t withoutThumbBit(const ChainDump& dump, std::uint64_t address) {
  return dump.machine == unwinding::Machine::Arm ? address & ~std::uint64_t{1} : address;
}

// The callers one after another from the second frame on.
void expectExactly(const ChainDump& dump, const Chain& chain) {
  ASSERT_GT(chain.frames.size(), dump.callers.size());
  EXPECT_EQ(chain.frames[0], dump.registers.value(traitsOf(dump.machine).pc));
  for (std::size_t i = 0; i < dump.callers.size(); ++i) {
    EXPECT_EQ(chain.frames[i + 1] + 1, withoutThumbBit(dump, dump.callers[i])) << i;
  }
}

// The callers in this order, others among them. A signal handler's is the trampoline's own address.
void expectAmong(const ChainDump& dump, const Chain& chain) {
  std::size_t found = 0;
  for (const std::uint64_t frame : chain.frames) {
    const std::uint64_t wanted =
        found < dump.callers.size() ? withoutThumbBit(dump, dump.callers[found]) : 0;
    if (frame + 1 == wanted || (frame == wanted && wanted == dump.signalReturn)) {
      ++found;
    }
  }
  EXPECT_EQ(found, dump.callers.size());
}

}  // namespace

TEST_P(RealStackTest, Calls) {
  const ChainDump dump = dumpOf("plain");
  ASSERT_GT(dump.callers.size(), 8u);
  const Chain chain = chainOf(dump);
  EXPECT_EQ(chain.end, End::Complete);
  expectExactly(dump, chain);
}

TEST_P(RealStackTest, ThroughTheCLibrary) {
  const ChainDump dump = dumpOf("sort");
  ASSERT_GT(dump.callers.size(), 8u);
  const Chain chain = chainOf(dump);
  EXPECT_EQ(chain.end, End::Complete);
  EXPECT_GT(chain.frames.size(), dump.callers.size() + 1);
  expectAmong(dump, chain);
}

TEST_P(RealStackTest, ThroughASignalHandler) {
  for (const char* const how : {"signal", "siginfo"}) {
    const ChainDump dump = dumpOf(how);
    if (dump.callers.empty()) {
      GTEST_SKIP() << "The emulator's trampoline is in no file.";
    }
    const Chain chain = chainOf(dump);
    EXPECT_EQ(chain.end, End::Complete);
    expectAmong(dump, chain);
  }
}

TEST_P(RealStackTest, AsManyFramesAsWanted) {
  const ChainDump dump = dumpOf("plain");
  for (const std::size_t most : {std::size_t{1}, std::size_t{2}, dump.callers.size()}) {
    const Chain chain = chainOf(dump, most);
    EXPECT_EQ(chain.end, End::MostFrames);
    EXPECT_EQ(chain.frames.size(), most);
  }
}

TEST_P(RealStackTest, AStackCutAnywhereGivesTheBeginningOfTheChain) {
  ChainDump dump = dumpOf("plain");
  const Chain whole = chainOf(dump);
  std::size_t longest = 0;
  for (std::size_t size = 0; size < dump.stack.size() && longest < whole.frames.size();
       size += 24) {
    ChainDump cut = dump;
    cut.stack.resize(size);
    const Chain chain = chainOf(cut);
    ASSERT_LE(chain.frames.size(), whole.frames.size());
    EXPECT_TRUE(std::equal(chain.frames.begin(), chain.frames.end(), whole.frames.begin())) << size;
    EXPECT_GE(chain.frames.size(), longest);
    EXPECT_EQ(chain.end,
              chain.frames.size() == whole.frames.size() ? End::Complete : End::StackTooShort);
    longest = chain.frames.size();
  }
  EXPECT_EQ(longest, whole.frames.size());
}

INSTANTIATE_TEST_SUITE_P(, RealStackTest, testing::ValuesIn([] {
                           std::vector<std::string> names;
                           std::string list = CHAIN_FIXTURES;  // separated by blanks
                           for (std::size_t end = 0; !list.empty(); list.erase(0, end)) {
                             list.erase(0, list.find_first_not_of(' '));
                             end = std::min(list.find(' '), list.size());
                             names.push_back(list.substr(0, end));
                           }
                           return names;
                         }()),
                         [](const auto& name) { return name.param; });
