// Histories of processes, and what is mapped at their end, worked out by hand from how the kernel
// treats address spaces.
#include <cstdio>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/Processes.h"

using recordings::CommRecord;
using recordings::KsymbolRecord;
using recordings::MappedFile;
using recordings::Mapping;
using recordings::MapRecord;
using recordings::Processes;
using recordings::TaskRecord;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint16_t USER = 2;
constexpr uint16_t KERNEL = 1;
constexpr uint16_t DATA = 1 << 13;

class History {
 public:
  History& map(uint32_t pid, uint64_t start, uint64_t length, const std::string& name,
               uint64_t offset = 0, uint16_t misc = USER, uint32_t flags = 2) {
    MapRecord record;
    record.misc = misc;
    record.pid = record.tid = pid;
    record.start = start;
    record.length = length;
    record.pageOffset = offset;
    record.name = name;
    record.flags = flags;
    processes.onMap(record);
    return *this;
  }
  History& comm(uint32_t pid, uint32_t tid, const std::string& name, bool isExec = false) {
    processes.onComm({pid, tid, name, isExec});
    return *this;
  }
  History& fork(uint32_t pid, uint32_t tid, uint32_t parent, uint32_t parentTid,
                bool byPerf = false) {
    processes.onFork({pid, parent, tid, parentTid, byPerf});
    return *this;
  }
  History& exit(uint32_t pid, uint32_t tid) {
    processes.onExit({pid, pid, tid, tid, false});
    return *this;
  }
  History& ksymbol(uint64_t start, uint32_t length, const std::string& name, bool removed) {
    processes.onKsymbol({start, length, removed, name});
    return *this;
  }

  std::vector<std::string> maps(uint32_t pid) { return _maps(processes.process(pid).maps); }
  std::vector<std::string> kernel() { return _maps(processes.kernelCode().maps); }

  Processes processes;

 private:
  static std::vector<std::string> _maps(const recordings::AddressSpace& maps) {
    std::vector<std::string> lines;
    maps.forEach([&](const Mapping& map) {
      char text[200];
      std::snprintf(text, sizeof text, "%llx-%llx@%llx ",
                    static_cast<unsigned long long>(map.start),
                    static_cast<unsigned long long>(map.end),
                    static_cast<unsigned long long>(map.fileOffset));
      lines.push_back(text + map.file->name);
    });
    return lines;
  }
};

}  // namespace

TEST(ProcessesTest, AForkCopiesTheParentsMaps) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/a").comm(10, 10, "a").fork(20, 20, 10, 10);
  history.map(10, 0x5000, 0x1000, "/lib/parent").map(20, 0x6000, 0x1000, "/lib/child");
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/a", "5000-6000@0 /lib/parent"));
  EXPECT_THAT(history.maps(20), ElementsAre("1000-2000@0 /bin/a", "6000-7000@0 /lib/child"));
  EXPECT_EQ(history.processes.nameOf(20), "a");
}

TEST(ProcessesTest, ANewProgramDropsTheOldOnesMaps) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/shell").fork(20, 20, 10, 10);
  history.comm(20, 20, "tool", true).map(20, 0x8000, 0x1000, "/bin/tool");
  EXPECT_THAT(history.maps(20), ElementsAre("8000-9000@0 /bin/tool"));
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/shell"));
}

TEST(ProcessesTest, AnotherNameAloneChangesNoMaps) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/a").comm(10, 10, "renamed");
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/a"));
  EXPECT_EQ(history.processes.nameOf(10), "renamed");
}

// dlclose leaves no record; what is opened next may come to lie over it.
TEST(ProcessesTest, ANewMapCutsTheOldOne) {
  History history;
  history.map(10, 0x10000, 0x4000, "/lib/one", 0x1000).map(10, 0x12000, 0x1000, "/lib/two");
  EXPECT_THAT(history.maps(10), ElementsAre("10000-12000@1000 /lib/one", "12000-13000@0 /lib/two",
                                            "13000-14000@4000 /lib/one"));
}

TEST(ProcessesTest, DataOverCodeTakesItAway) {
  History history;
  history.map(10, 0x10000, 0x3000, "/lib/one").map(10, 0x11000, 0x1000, "/x", 0, USER | DATA);
  EXPECT_THAT(history.maps(10), ElementsAre("10000-11000@0 /lib/one", "12000-13000@2000 /lib/one"));
}

TEST(ProcessesTest, ThreadsShareTheMapsAndTakeTheParentsName) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/a").comm(10, 10, "a").fork(10, 11, 10, 10);
  history.comm(10, 11, "worker").fork(10, 12, 10, 11).exit(10, 11);
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/a"));
  EXPECT_EQ(history.processes.nameOf(12), "worker");
  EXPECT_EQ(history.processes.nameOf(10), "a");
}

TEST(ProcessesTest, SamplesMayFollowTheEndOfAProcess) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/a").comm(10, 10, "a").exit(10, 10);
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/a"));
  EXPECT_EQ(history.processes.nameOf(10), "a");
}

TEST(ProcessesTest, APidThatComesAgainIsAnotherProcess) {
  History history;
  history.comm(10, 10, "old").map(10, 0x1000, 0x1000, "/bin/old").exit(10, 10);
  history.comm(30, 30, "parent").map(30, 0x3000, 0x1000, "/bin/parent").fork(10, 10, 30, 30);
  EXPECT_THAT(history.maps(10), ElementsAre("3000-4000@0 /bin/parent"));
  EXPECT_EQ(history.processes.nameOf(10), "parent");
}

// What perf tells of living processes: their maps follow, the parent's are none of theirs.
TEST(ProcessesTest, AForkMadeByPerfCopiesNothing) {
  History history;
  history.map(1, 0x1000, 0x1000, "/sbin/init").fork(20, 20, 1, 1, true);
  EXPECT_THAT(history.maps(20), IsEmpty());
}

// As whoever follows a recording does.
std::vector<uint32_t> forgetAll(History& history) {
  std::vector<uint32_t> forgotten;
  for (uint32_t pid = 50000; !history.processes.hasLongGone(); ++pid) {
    history.fork(pid, pid, 1, 1).exit(pid, pid);
  }
  history.processes.forgetLongGone([&](uint32_t tid) {
    if (tid < 50000) {
      forgotten.push_back(tid);
    }
  });
  return forgotten;
}

TEST(ProcessesTest, LongGoneProcessesAreForgottenAndLivingOnesAreNot) {
  History history;
  history.map(1, 0x1000, 0x1000, "/sbin/init").comm(1, 1, "init");
  const uint32_t last = 100 + 2 * Processes::GONE_KEPT - 1;
  for (uint32_t pid = 100; pid <= last; ++pid) {
    EXPECT_FALSE(history.processes.hasLongGone());
    history.fork(pid, pid, 1, 1).exit(pid, pid);
  }
  ASSERT_TRUE(history.processes.hasLongGone());
  std::vector<uint32_t> forgotten;
  history.processes.forgetLongGone([&](uint32_t tid) {
    EXPECT_EQ(history.processes.nameOf(tid), "init");
    forgotten.push_back(tid);
  });
  EXPECT_FALSE(history.processes.hasLongGone());
  ASSERT_EQ(forgotten.size(), Processes::GONE_KEPT);
  EXPECT_EQ(forgotten.front(), 100u);
  EXPECT_EQ(history.processes.nameOf(100), "");
  EXPECT_THAT(history.maps(100), IsEmpty());
  EXPECT_THAT(history.maps(last), ElementsAre("1000-2000@0 /sbin/init"));
  EXPECT_EQ(history.processes.nameOf(last), "init");
  EXPECT_THAT(history.maps(1), ElementsAre("1000-2000@0 /sbin/init"));
}

TEST(ProcessesTest, ThreadsThatHaveEndedAreForgottenAndTheirProcessIsNot) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/a").comm(10, 10, "a").fork(10, 11, 10, 10).exit(10, 11);
  EXPECT_THAT(forgetAll(history), ElementsAre(11));
  EXPECT_EQ(history.processes.nameOf(11), "");
  EXPECT_EQ(history.processes.nameOf(10), "a");
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/a"));
}

// main() may call pthread_exit() and leave the work to others.
TEST(ProcessesTest, AProcessLivesAsLongAsItsLastThread) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/a").fork(10, 11, 10, 10).exit(10, 10);
  EXPECT_THAT(forgetAll(history), IsEmpty());
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/a"));
  history.exit(10, 11);
  forgetAll(history);  // those that ended before
  EXPECT_THAT(forgetAll(history), ElementsAre(11, 10));
  EXPECT_THAT(history.maps(10), IsEmpty());
}

TEST(ProcessesTest, APidThatHasComeAgainIsNotForgotten) {
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/old").exit(10, 10);
  history.map(30, 0x3000, 0x1000, "/bin/new").comm(30, 30, "new").fork(10, 10, 30, 30);
  EXPECT_THAT(forgetAll(history), IsEmpty());
  EXPECT_THAT(history.maps(10), ElementsAre("3000-4000@0 /bin/new"));
  EXPECT_EQ(history.processes.nameOf(10), "new");
}

// Pids of a guest are not this machine's.
TEST(ProcessesTest, MapsOfGuestsProcessesAreNobodysHere) {
  constexpr uint16_t GUEST_USER = 5;
  History history;
  history.map(10, 0x1000, 0x1000, "/bin/host")
      .map(10, 0x1000, 0x1000, "/bin/guest", 0, GUEST_USER)
      .map(10, 0x5000, 0x1000, "/lib/guest", 0, GUEST_USER);
  EXPECT_THAT(history.maps(10), ElementsAre("1000-2000@0 /bin/host"));
}

TEST(ProcessesTest, MapsWithoutAFile) {
  History history;
  history.map(10, 0x1000, 0x1000, "//anon", 0x1000)
      .map(10, 0x3000, 0x1000, "[vdso]", 0x3000)
      .map(10, 0x5000, 0x1000, "[heap]", 0)
      .map(10, 0x7000, 0x1000, "/data/huge", 0, USER, 0x40002)
      .map(10, 0x9000, 0x1000, "/memfd:jit (deleted)", 0x100)
      .map(10, 0xb000, 0x1000, "/dev/zero (deleted)", 0);
  EXPECT_THAT(history.maps(10),
              ElementsAre("1000-2000@1000 /tmp/perf-10.map", "3000-4000@0 [vdso]",
                          "5000-6000@5000 /tmp/perf-10.map", "7000-8000@7000 /tmp/perf-10.map",
                          "9000-a000@100 /memfd:jit (deleted)", "b000-c000@b000 /tmp/perf-10.map"));
  EXPECT_EQ(history.processes.process(10).maps.find(0x1000)->file->kind,
            MappedFile::Kind::PERF_MAP);
  EXPECT_EQ(history.processes.process(10).maps.find(0x1000)->file->pid, 10u);
}

TEST(ProcessesTest, MapsThatRunOverTheEndOfAllAddressesEndThere) {
  History history;
  history.map(10, 0xfffffffffffff000, 0xffffffff, "/x");
  EXPECT_THAT(history.maps(10), ElementsAre("fffffffffffff000-ffffffffffffffff@0 /x"));
}

TEST(ProcessesTest, ModulesAreTheKernelsSideOfAllProcesses) {
  History history;
  history.map(0xffffffff, 0xffffffffc0000000, 0x1000, "/lib/modules/6.1/kernel/fs/ext4-x.ko.xz", 0,
              KERNEL);
  history.map(0xffffffff, 0xffffffffc0002000, 0x1000, "[kvm]", 0, KERNEL);
  EXPECT_THAT(history.kernel(),
              ElementsAre("ffffffffc0000000-ffffffffc0001000@ffffffffc0000000 [ext4_x]",
                          "ffffffffc0002000-ffffffffc0003000@ffffffffc0002000 [kvm]"));
  EXPECT_THAT(history.maps(0xffffffff), IsEmpty());
}

TEST(ProcessesTest, TheKernelsOwnMapNamesItsReference) {
  struct Case {
    const char* map;
    const char* symbol;
  };
  for (const Case& each :
       {Case{"[kernel.kallsyms]_text", "_text"}, Case{"[kernel.kallsyms]_stext", "_stext"},
        Case{"[kernel.kallsyms._text]", "_text"}}) {
    History history;
    history.map(0xffffffff, 0xffffffff81000000, 0x1000000, each.map, 0xffffffff81000040, KERNEL);
    const recordings::KernelImage& kernel = history.processes.kernel();
    EXPECT_EQ(kernel.start, 0xffffffff81000000);
    EXPECT_EQ(kernel.end, 0xffffffff82000000);
    EXPECT_EQ(kernel.referenceAddress, 0xffffffff81000040);
    EXPECT_EQ(each.symbol, kernel.referenceName);
    EXPECT_THAT(history.kernel(), IsEmpty());
  }
}

// perf 3.4 writes the kernel's map from 0, or up to the last address: it is not over the processes.
TEST(ProcessesTest, AnAssumedKernelGivesWayToTheRecordedOne) {
  recordings::KernelImage assumed;
  assumed.start = 0xffffffff90000000;
  assumed.end = 0xffffffff91000000;
  History history;
  history.processes.assumeKernel(assumed);
  const recordings::KernelImage& kernel = history.processes.kernel();
  EXPECT_TRUE(kernel.isAssumed);
  EXPECT_EQ(kernel.farthestEnd, 0xffffffff93000000);  // 32 MiB behind its text
  history.map(0xffffffff, 0xffffffff81000000, 0x800000, "[kernel.kallsyms]_text",
              0xffffffff81000000, KERNEL);
  EXPECT_FALSE(kernel.isAssumed);
  EXPECT_EQ(kernel.start, 0xffffffff81000000);
  EXPECT_EQ(kernel.end, 0xffffffff81800000);
}

TEST(ProcessesTest, AKernelFromZeroBeginsWithItsReference) {
  const auto startOf = [](uint64_t length, uint64_t reference) {
    History history;
    history.map(0xffffffff, 0, length, "[kernel.kallsyms]_text", reference, KERNEL);
    return history.processes.kernel().start;
  };
  EXPECT_EQ(startOf(~uint64_t{0}, 0xffffffff81000000), 0xffffffff81000000);
  EXPECT_EQ(startOf(0xffffffff, 0xc0008000), 0xc0008000);
  EXPECT_EQ(uint64_t{1} << 63, startOf(~uint64_t{0}, 0));
  EXPECT_EQ(startOf(0xffffffff, 0), 0xc0000000);
}

TEST(ProcessesTest, AGuestsKernelIsNotThisOne) {
  History history;
  history.map(0xffffffff, 0xffffffff81000000, 0x1000, "[kernel.kallsyms]_text", 1, KERNEL);
  history.map(500, 0xffffffff91000000, 0x1000, "[guest.kernel.kallsyms.500]_text", 2, 4);
  EXPECT_EQ(history.processes.kernel().start, 0xffffffff81000000);
  history.map(0xffffffff, 0xffffffffc0000000, 0x2000, "[host]", 0, KERNEL);
  history.map(500, 0xffffffffc0001000, 0x2000, "[guest]", 0, 4);
  EXPECT_THAT(history.kernel(),
              ElementsAre("ffffffffc0000000-ffffffffc0002000@ffffffffc0000000 [host]"));
}

TEST(ProcessesTest, KsymbolsAreLoadedAndUnloaded) {
  History history;
  history.ksymbol(0xffffffffc0001000, 0x100, "bpf_prog_1", false);
  EXPECT_THAT(history.kernel(),
              ElementsAre("ffffffffc0001000-ffffffffc0001100@ffffffffc0001000 bpf_prog_1"));
  history.ksymbol(0xffffffffc0001000, 0x100, "bpf_prog_1", true);
  EXPECT_THAT(history.kernel(), IsEmpty());
  history.ksymbol(0xffffffffc0001000, 0x80, "bpf_prog_2", false);
  EXPECT_THAT(history.kernel(),
              ElementsAre("ffffffffc0001000-ffffffffc0001080@ffffffffc0001000 bpf_prog_2"));
  history.ksymbol(0xffffffffffffff00, 0x200, "past the end", false);
  EXPECT_EQ(history.kernel().size(), 1u);
}

TEST(ProcessesTest, FilesAreKnownByNameAndBuildId) {
  Processes processes;
  auto& files = processes.files();
  const MappedFile& one = files.get(MappedFile::Kind::FILE, "/a", {1});
  EXPECT_EQ(&one, &files.get(MappedFile::Kind::FILE, "/a", {1}));
  EXPECT_NE(&one, &files.get(MappedFile::Kind::FILE, "/a", {2}));
  EXPECT_EQ(files.all().size(), 2u);
}

TEST(ProcessesTest, EveryChangeHasAVersionOfItsOwn) {
  History history;
  const uint64_t first = history.processes.process(10).version;
  history.map(10, 0x1000, 0x1000, "/a");
  const uint64_t second = history.processes.process(10).version;
  history.comm(10, 10, "a");
  EXPECT_EQ(second, history.processes.process(10).version);
  EXPECT_NE(first, second);
  history.comm(10, 10, "b", true);
  EXPECT_NE(second, history.processes.process(10).version);
}
