// A recording, and the plain recording that it becomes: read back, with what its maps say.
#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Preparation.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/Encodings.h"
#include "tests/support/recordings/RecordingFile.h"

using made::CONTEXT_KERNEL;
using made::CONTEXT_USER;
using made::Mode;
using made::SampleBit;
using prepare::Piece;
using prepare::PlainRecording;
using prepare::Preparation;
using recordings::TimeOrder;
using testing::ElementsAre;

namespace {

constexpr std::uint64_t KERNEL_TEXT = 0xffffffff81000000;

// The samples of a plain recording, written without names.
class Prepared {
 public:
  explicit Prepared(const std::string& bytes, bool keepUnknown = false,
                    std::vector<bool> wantedEvents = {true},
                    const std::optional<recordings::KernelImage>& kernel = std::nullopt)
      : bytes_(bytes) {
    source_ = std::make_unique<recordings::Recording>(
        std::make_unique<recordings::MemoryInput>(asBytes(bytes_)));
    const recordings::SampleLayout& layout = source_->layout(0);
    PlainRecording output(folder_.file("plain"), source_->events()[0].attribute,
                          {layout.hasTime(), layout.hasCpu(), layout.hasChain()});
    Preparation::Settings settings;
    wantedEvents.resize(source_->events().size());
    settings.wantedEvents = wantedEvents;
    settings.keepUnknown = keepUnknown;
    settings.assumedKernel = [kernel] { return kernel; };
    settings.scratchDirectory = folder_.path();
    settings.mustBeHigh = [](const recordings::Mapping&) { return false; };
    settings.progress = [](std::uint64_t, std::uint64_t) {};
    preparation = std::make_unique<Preparation>(*source_, output, settings);
    EXPECT_TRUE(source_->walk(*preparation, TimeOrder::Trust::ROUNDS, folder_.path(), walk));
    preparation->finish();
    output.finish({});
    plain = folder_.read("plain");
    lines = Walked(plain).lines;
  }

  const prepare::PreparationCounts& counts() const { return preparation->counts(); }
  // What the converter will find at an address of a process.
  std::string fileAt(std::uint32_t pid, std::uint64_t address) const {
    std::string name = "nothing";
    forEachPiece(pid, [&](std::uint64_t written, const Piece& piece) {
      if (address >= written && address - written < piece.high - piece.low) {
        name = piece.file->name;
      }
    });
    return name;
  }
  template <typename Visit>
  void forEachPiece(std::uint32_t pid, Visit visit) const {
    preparation->plainProcesses().forEach([&](std::uint32_t its, const auto& process) {
      if (its == pid) {
        process.placement.forEach(visit);
      }
    });
  }
  // "pid 10 app", as the converter will see the thread.
  std::string thread(std::uint32_t tid) const {
    std::string text = "nobody";
    preparation->threads().forEach([&](std::uint32_t its, const auto& thread) {
      if (its == tid) {
        text = "pid " + std::to_string(thread.pid) + " " + thread.name;
      }
    });
    return text;
  }

  std::unique_ptr<Preparation> preparation;
  recordings::WalkCounts walk;
  std::string plain;
  std::vector<std::string> lines;

 private:
  std::string bytes_;
  TempDir folder_;
  std::unique_ptr<recordings::Recording> source_;
};

made::Recording withChains() {
  made::Recording recording;
  recording.events[0].sampleType |= SampleBit::CALLCHAIN;
  recording.comm({.pid = 10, .tid = 10, .name = "app"})
      .map({.pid = 0xffffffff,
            .address = KERNEL_TEXT,
            .length = 0x1000000,
            .pageOffset = KERNEL_TEXT,
            .file = "[kernel.kallsyms]_text",
            .mode = Mode::KERNEL})
      .map({.pid = 10, .tid = 10, .address = 0x400000, .length = 0x9000, .file = "/bin/app"});
  return recording;
}

}  // namespace

TEST(PreparationTest, TheSampledAddressComesFirstAndMarksAreLeftOut) {
  made::Recording recording = withChains();
  recording
      .sample({.ip = 0x400100,
               .pid = 10,
               .tid = 10,
               .time = 1,
               .chain = {CONTEXT_USER, 0x400100, 0x400200, 0x400300}})
      .sample({.ip = KERNEL_TEXT + 0x10,
               .pid = 10,
               .tid = 10,
               .time = 2,
               .mode = Mode::KERNEL,
               .chain = {CONTEXT_KERNEL, KERNEL_TEXT + 0x10, KERNEL_TEXT + 0x20, CONTEXT_USER,
                         0x400100, 0x400200}})
      .sample({.ip = 0x400100, .pid = 10, .tid = 10, .time = 3, .chain = {}});
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_THAT(prepared.lines,
              ElementsAre("sample 0 400100 10/10 t1 cpu0 [400100 400200 400300]",
                          "sample 0 ffffffff81000010 10/10 t2 cpu0 [ffffffff81000010 "
                          "ffffffff81000020 400100 400200]",
                          "sample 0 400100 10/10 t3 cpu0 [400100]"));
  EXPECT_EQ(prepared.counts().longestChain, 4u);
  EXPECT_EQ(prepared.counts().kernelSamples.all, 1u);
  EXPECT_EQ(prepared.counts().kernelSamples.mapped, 1u);
  EXPECT_EQ(prepared.counts().userSamples.mapped, 2u);
  EXPECT_EQ(prepared.counts().kernelCallers.all, 1u);
  EXPECT_EQ(prepared.counts().userCallers.all, 4u);
}

TEST(PreparationTest, CallersInNoMapAreLeftOutAndCounted) {
  made::Recording recording = withChains();
  recording.sample({.ip = 0x400100,
                    .pid = 10,
                    .tid = 10,
                    .time = 1,
                    .chain = {CONTEXT_USER, 0x400100, 0x12345, 0x400200, 0xdeadbeef000}});
  const std::string bytes = made::fileBytes(recording);
  const Prepared without(bytes);
  EXPECT_THAT(without.lines, ElementsAre("sample 0 400100 10/10 t1 cpu0 [400100 400200]"));
  EXPECT_EQ(without.counts().userCallers.all, 3u);
  EXPECT_EQ(without.counts().userCallers.mapped, 1u);
  EXPECT_THAT(Prepared(bytes, true).lines,
              ElementsAre("sample 0 400100 10/10 t1 cpu0 [400100 12345 400200 deadbeef000]"));
}

// --call-graph lbr: where the newest call went to, then where each came from; in user mode the
// first is where the sample is.
TEST(PreparationTest, BranchStacksReplaceTheUsersPartOfTheChain) {
  made::Recording recording = withChains();
  recording.events[0].sampleType |= SampleBit::BRANCH_STACK;
  recording.events[0].branchSampleType = 1 << 11;
  const std::vector<made::Branch> branches = {{0x400200, 0x400110, 0}, {0x400300, 0x400210, 0}};
  recording
      .sample({.ip = 0x400120,
               .pid = 10,
               .tid = 10,
               .time = 1,
               .chain = {CONTEXT_USER, 0x400120, 0x400999},
               .branches = branches})
      .sample({.ip = KERNEL_TEXT + 0x10,
               .pid = 10,
               .tid = 10,
               .time = 2,
               .mode = Mode::KERNEL,
               .chain = {CONTEXT_KERNEL, KERNEL_TEXT + 0x10, CONTEXT_USER, 0x400999},
               .branches = branches});
  EXPECT_THAT(Prepared(made::fileBytes(recording)).lines,
              ElementsAre("sample 0 400120 10/10 t1 cpu0 [400120 400200 400300]",
                          "sample 0 ffffffff81000010 10/10 t2 cpu0 [ffffffff81000010 400110 "
                          "400200 400300]"));
}

// Each event says for itself whether its branches are calls.
TEST(PreparationTest, BranchesOfAnEventThatSampledJumpsAreNoChain) {
  made::Recording recording = withChains();
  recording.events.emplace_back();
  for (made::Event& event : recording.events) {
    event.sampleType |= SampleBit::CALLCHAIN | SampleBit::BRANCH_STACK;
  }
  recording.events[0].branchSampleType = 1 << 11;  // calls
  recording.events[1].branchSampleType = 1 << 3;   // any
  for (const std::size_t event : {0u, 1u}) {
    recording.sample({.ip = 0x400120,
                      .pid = 10,
                      .tid = 10,
                      .time = event + 1,
                      .chain = {CONTEXT_USER, 0x400120, 0x400999},
                      .event = event,
                      .branches = {{0x400200, 0x400110, 0}}});
  }
  const std::string bytes =
      made::fileBytes(recording, {.identification = made::Identification::IDENTIFIER});
  EXPECT_THAT(Prepared(bytes, false, {true, true}).lines,
              ElementsAre("sample 0 400120 10/10 t1 cpu0 [400120 400200]",
                          "sample 0 400120 10/10 t2 cpu0 [400120 400999]"));
}

// The converter knows one process of each tid.
TEST(PreparationTest, ATidOfSeveralProcessesIsAnotherOneInEach) {
  constexpr std::uint32_t GONE = 0xffffffff;
  made::Recording recording;
  recording.map({.pid = 10, .tid = 10, .address = 0x400000, .length = 0x9000, .file = "/bin/a"})
      .map({.pid = 20, .tid = 20, .address = 0x400000, .length = 0x9000, .file = "/bin/b"})
      .sample({.ip = 0x400100, .pid = 10, .tid = GONE, .time = 1})
      .sample({.ip = 0x400200, .pid = 20, .tid = GONE, .time = 2})
      .sample({.ip = 0x400300, .pid = 10, .tid = GONE, .time = 3})
      .comm({.pid = 10, .tid = 15, .name = "first", .time = 4})
      .sample({.ip = 0x400400, .pid = 10, .tid = 15, .time = 5})
      .comm({.pid = 20, .tid = 15, .name = "second", .time = 6})
      .sample({.ip = 0x400500, .pid = 20, .tid = 15, .time = 7})
      .sample({.ip = 0x400500, .pid = 20, .tid = 15, .time = 8});
  const Prepared prepared(made::fileBytes(recording));
  const auto substitute = [](std::uint32_t number) {
    return std::to_string(static_cast<std::int32_t>(0x80000000 + number));
  };
  EXPECT_THAT(prepared.lines,
              ElementsAre("sample 0 400100 10/-1 t1 cpu0",
                          "sample 0 400200 20/" + substitute(0) + " t2 cpu0",
                          "sample 0 400300 10/-1 t3 cpu0", "sample 0 400400 10/15 t5 cpu0",
                          "sample 0 400500 20/" + substitute(1) + " t7 cpu0",
                          "sample 0 400500 20/" + substitute(1) + " t8 cpu0"));
  EXPECT_EQ(prepared.counts().renumberedSamples, 3u);
  EXPECT_EQ(prepared.thread(15), "pid 10 first");
  EXPECT_EQ(prepared.thread(0x80000001), "pid 20 second");
  EXPECT_EQ(prepared.fileAt(20, 0x400200), "/bin/b");
  EXPECT_EQ(prepared.counts().userSamples.mapped, 6u);
}

// Its own threads have names of its own: no other process may give them one.
TEST(PreparationTest, TheConvertersOwnTidsOfOtherProcessesAreOthers) {
  made::Recording recording;
  recording.comm({.pid = 7, .tid = 0, .name = "other"})
      .sample({.ip = 0x400100, .pid = 7, .tid = 0, .time = 1})
      .sample({.ip = 0x400100, .pid = 1, .tid = 1, .time = 2});
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_EQ(prepared.thread(0), "nobody");
  EXPECT_EQ(prepared.thread(0x80000000), "pid 7 other");
  EXPECT_EQ(prepared.thread(1), "pid 1 ");
}

// Far more processes than are kept in memory, and a pid that comes again when it is long gone.
TEST(PreparationTest, ProcessesThatAreLongGoneAreWrittenAllTheSame) {
  made::Recording recording;
  recording.comm({.pid = 1, .tid = 1, .name = "init"})
      .map({.pid = 1, .tid = 1, .address = 0x400000, .length = 0x1000, .file = "/sbin/init"});
  std::uint64_t time = 0;
  const auto live = [&](std::uint32_t pid, const std::string& name, std::uint64_t ip) {
    const made::Task task{.pid = pid, .parentPid = 1, .tid = pid, .parentTid = 1, .time = ++time};
    recording.fork(task)
        .comm({.pid = pid, .tid = pid, .name = name, .time = ++time, .isExec = true})
        .map({.pid = pid,
              .tid = pid,
              .address = 0x400000,
              .length = 0x1000,
              .file = "/bin/" + name,
              .time = ++time})
        .sample({.ip = ip, .pid = pid, .tid = pid, .time = ++time});
    recording.exit({.pid = pid, .parentPid = 1, .tid = pid, .parentTid = 1, .time = ++time});
  };
  constexpr std::uint32_t LAST = 20 + 3 * recordings::Processes::GONE_KEPT;
  for (std::uint32_t pid = 20; pid < LAST; ++pid) {
    live(pid, "tool" + std::to_string(pid % 3), 0x400100);
  }
  live(20, "again", 0x400100);
  live(21, "again", 0x400900);
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_LT(prepared.preparation->plainProcesses().countInHand(),
            2 * recordings::Processes::GONE_KEPT + 10);
  EXPECT_LT(prepared.preparation->threads().countInHand(),
            2 * recordings::Processes::GONE_KEPT + 10);
  EXPECT_EQ(prepared.fileAt(20, 0x400100), "/bin/tool2");
  EXPECT_EQ(prepared.fileAt(21, 0x400100), "/bin/tool0");
  EXPECT_EQ(prepared.fileAt(21, 0x400900), "/bin/again");
  EXPECT_EQ(prepared.fileAt(22, 0x400100), "/bin/tool1");
  EXPECT_EQ(prepared.thread(20), "pid 20 again");
  EXPECT_EQ(prepared.thread(22), "pid 22 tool1");
  EXPECT_EQ(prepared.counts().movedSamples, 1u);
  EXPECT_EQ(prepared.counts().samplesUnderOtherNames, 2u);
  EXPECT_EQ(prepared.counts().userSamples.all, prepared.counts().userSamples.mapped);
  std::size_t processes = 0;
  prepared.preparation->plainProcesses().forEach(
      [&](std::uint32_t, const prepare::PlainProcess&) { ++processes; });
  EXPECT_EQ(processes, LAST - 20);
}

TEST(PreparationTest, OneProgramAfterAnotherAtOneAddressAreTakenApart) {
  made::Recording recording;
  recording.comm({.pid = 10, .tid = 10, .name = "shell"})
      .map({.pid = 10, .tid = 10, .address = 0x400000, .length = 0x1000, .file = "/bin/shell"})
      .sample({.ip = 0x400100, .pid = 10, .tid = 10, .time = 1})
      .comm({.pid = 10, .tid = 10, .name = "tool", .time = 2, .isExec = true})
      .map({.pid = 10,
            .tid = 10,
            .address = 0x400000,
            .length = 0x1000,
            .file = "/bin/tool",
            .time = 3})
      .sample({.ip = 0x400100, .pid = 10, .tid = 10, .time = 4})
      .sample({.ip = 0x400108, .pid = 10, .tid = 10, .time = 5});
  const Prepared prepared(made::fileBytes(recording));
  const Walked plain(prepared.plain);
  ASSERT_EQ(prepared.lines.size(), 3u);
  EXPECT_EQ(prepared.lines[0].substr(0, 29), "sample 0 400100 10/10 t1 cpu0");
  EXPECT_EQ(prepared.fileAt(10, 0x400100), "/bin/shell");
  EXPECT_EQ(prepared.counts().movedSamples, 2u);
  const std::uint64_t moved = std::stoull(prepared.lines[1].substr(9), nullptr, 16);
  EXPECT_EQ(prepared.fileAt(10, moved), "/bin/tool");
  EXPECT_EQ(moved + 8, std::stoull(prepared.lines[2].substr(9), nullptr, 16));
  // Names: the last one holds, and how many samples ran under another is known.
  EXPECT_EQ(prepared.thread(10), "pid 10 tool");
  EXPECT_EQ(prepared.counts().samplesUnderOtherNames, 1u);
}

TEST(PreparationTest, ForkedWorkersHaveTheirParentsMapsAndName) {
  made::Recording recording;
  recording.comm({.pid = 10, .tid = 10, .name = "server"})
      .map({.pid = 10, .tid = 10, .address = 0x400000, .length = 0x1000, .file = "/bin/server"})
      .fork({.pid = 20, .parentPid = 10, .tid = 20, .parentTid = 10, .time = 1})
      .sample({.ip = 0x400100, .pid = 20, .tid = 20, .time = 2})
      .fork({.pid = 20, .parentPid = 20, .tid = 21, .parentTid = 20, .time = 3})
      .sample({.ip = 0x400200, .pid = 20, .tid = 21, .time = 4});
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_EQ(prepared.counts().movedSamples, 0u);
  EXPECT_EQ(prepared.counts().userSamples.mapped, 2u);
  EXPECT_EQ(prepared.fileAt(20, 0x400100), "/bin/server");
  EXPECT_EQ(prepared.thread(20), "pid 20 server");
  EXPECT_EQ(prepared.thread(21), "pid 20 server");
}

// What no map holds is shown in stretches of 64 KiB, which keep clear of what is known.
TEST(PreparationTest, UnknownStretchesLieBesideEachOtherAndBesideMaps) {
  made::Recording recording;
  recording.map({.pid = 10, .tid = 10, .address = 0x48000, .length = 0x1000, .file = "/bin/app"});
  std::uint64_t time = 0;
  for (const std::uint64_t ip : {0x48800ull, 0x47fffull, 0x49000ull, 0x4ffffull, 0x50000ull,
                                 0x5ffffull, 0x60000ull, 0x10ull, 0xfffffffffffffffeull}) {
    recording.sample({.ip = ip, .pid = 10, .tid = 10, .time = ++time});
  }
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_EQ(prepared.counts().movedSamples, 0u);
  EXPECT_EQ(prepared.counts().userSamples.mapped, 1u);
  EXPECT_EQ(prepared.fileAt(10, 0x48800), "/bin/app");
  for (const std::uint64_t ip : {0x47fffull, 0x49000ull, 0x4ffffull, 0x50000ull, 0x5ffffull,
                                 0x60000ull, 0x10ull, 0xfffffffffffffffeull}) {
    EXPECT_EQ(prepared.fileAt(10, ip), "[unknown]") << std::hex << ip;
  }
  std::uint64_t end = 0;
  prepared.forEachPiece(10, [&](std::uint64_t written, const Piece& piece) {
    EXPECT_LE(end, written);
    EXPECT_LT(piece.low, piece.high);
    end = written + (piece.high - piece.low);
  });
}

TEST(PreparationTest, ModulesAndMadeKernelCodeAreFoundOutsideTheKernel) {
  made::Recording recording = withChains();
  recording
      .map({.pid = 0xffffffff,
            .address = 0xffffffffc0000000,
            .length = 0x1000,
            .file = "/lib/modules/6.1/kernel/fs/ext4.ko",
            .mode = Mode::KERNEL})
      .record({.type = 17,
               .body = made::Fields().u64(0xffffffffc0100000).u32(0x40).u16(1).u16(0).text("bpf_1"),
               .time = 1})
      .sample({.ip = 0xffffffffc0000100, .pid = 10, .tid = 10, .time = 2, .mode = Mode::KERNEL})
      .sample({.ip = 0xffffffffc0100010, .pid = 10, .tid = 10, .time = 3, .mode = Mode::KERNEL});
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_EQ(prepared.counts().kernelSamples.mapped, 2u);
  EXPECT_EQ(prepared.fileAt(10, 0xffffffffc0000100), "[ext4]");
  EXPECT_EQ(prepared.fileAt(10, 0xffffffffc0100010), "bpf_1");
}

// perf may not see where the kernel is, and then records no map of it.
TEST(PreparationTest, AKernelThatWasNotRecordedMayBeAssumed) {
  made::Recording recording;
  recording.map({.pid = 10, .tid = 10, .address = 0x400000, .length = 0x9000, .file = "/bin/app"})
      .sample({.ip = KERNEL_TEXT + 0x10, .pid = 10, .tid = 10, .time = 1, .mode = Mode::KERNEL})
      .sample({.ip = KERNEL_TEXT - 0x10, .pid = 10, .tid = 10, .time = 2, .mode = Mode::KERNEL});
  const std::string bytes = made::fileBytes(recording);
  EXPECT_EQ(Prepared(bytes).counts().kernelSamples.mapped, 0u);
  recordings::KernelImage kernel;
  kernel.start = KERNEL_TEXT;
  kernel.end = KERNEL_TEXT + 0x1000000;
  const Prepared assumed(bytes, false, {true}, kernel);
  EXPECT_EQ(assumed.counts().kernelSamples.all, 2u);
  EXPECT_EQ(assumed.counts().kernelSamples.mapped, 1u);
}

// A user address is looked up in the process, whatever the kernel has there, and the other way.
TEST(PreparationTest, ModesAreLookedUpInTheirOwnMaps) {
  made::Recording recording = withChains();
  recording.sample({.ip = 0x400100, .pid = 10, .tid = 10, .time = 1, .mode = Mode::KERNEL})
      .sample({.ip = 0x400100, .pid = 10, .tid = 10, .time = 2, .mode = Mode::UNKNOWN});
  const Prepared prepared(made::fileBytes(recording));
  EXPECT_EQ(prepared.counts().kernelSamples.mapped, 0u);
  EXPECT_EQ(prepared.counts().userSamples.mapped, 1u);
}

// More pages than are remembered at a time, so that what was touched of each comes in pieces.
TEST(PreparationTest, WhatSamplesAndCallersTouchIsKnown) {
  constexpr std::uint64_t START = 0x400000;
  constexpr std::uint64_t LENGTH = 0x4000000;
  made::Recording recording = withChains();
  recording.map({.pid = 11, .tid = 11, .address = START, .length = LENGTH, .file = "/bin/large"});
  std::set<std::uint64_t> granules;
  std::uint64_t address = START;
  const auto next = [&] {
    address = START + (address * 1103515245 + 12345) % LENGTH;
    granules.insert((address - START) / 64 * 64);
    return address;
  };
  for (std::uint64_t i = 1; i <= 10'000; ++i) {
    const std::uint64_t sampled = next();
    recording.sample({.ip = sampled,
                      .pid = 11,
                      .tid = 11,
                      .time = i,
                      .chain = {CONTEXT_USER, sampled, next(), next(), 0x12}});
  }
  const Prepared prepared(made::fileBytes(recording));
  const auto touched = prepared.preparation->touchedCode().granules();
  ASSERT_EQ(touched.size(), 1u);
  EXPECT_EQ(touched.begin()->second, std::vector<std::uint64_t>(granules.begin(), granules.end()));
}

TEST(PreparationTest, OneContentInEveryEncodingGivesTheSameBytes) {
  made::Recording recording;
  recording.events[0].sampleType |= SampleBit::CALLCHAIN;
  recording.comm({.pid = 10, .tid = 10, .name = "app"})
      .map({.pid = 10, .tid = 10, .address = 0x400000, .length = 0x1000, .file = "/bin/app"})
      .sample({.ip = 0x400100,
               .pid = 10,
               .tid = 10,
               .time = 100,
               .chain = {CONTEXT_USER, 0x400100, 0x400200}})
      .fork({.pid = 12, .parentPid = 10, .tid = 12, .parentTid = 10, .time = 110})
      .finishedRound()
      .sample({.ip = 0x400300, .pid = 12, .tid = 12, .time = 120, .cpu = 1})
      .exit({.pid = 12, .parentPid = 10, .tid = 12, .parentTid = 10, .time = 130})
      .sample({.ip = 0x990000, .pid = 10, .tid = 10, .time = 140})
      .finishedRound();
  const std::string expected = Prepared(made::fileBytes(recording)).plain;
  ASSERT_EQ(Walked(expected).lines.size(), 3u);
  for (const auto& [name, encoding] : made::allEncodings()) {
    EXPECT_EQ(Prepared(made::fileBytes(recording, encoding)).plain, expected) << name;
  }
}
