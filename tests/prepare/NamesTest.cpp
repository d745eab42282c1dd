// What a prepared folder says of names: maps and threads as they stand behind the samples, and the
// lists that belong to the maps.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "listing/Vdso.h"
#include "tests/prepare/PrepareCommand.h"
#include "tests/prepare/VdsoRecording.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/TempDir.h"
#include "tests/support/recordings/RecordingFile.h"
#include "tests/unwinding/ElfText.h"

using made::Mode;
using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

namespace {

constexpr std::uint64_t KERNEL_TEXT = 0xffffffff81000000;
constexpr std::uint64_t MODULE = 0xffffffffc0000000;
constexpr std::uint64_t MADE_CODE = 0xffffffffc0100000;
constexpr std::uint32_t EVERY = 0xffffffff;  // the pid of the kernel's maps
constexpr std::uint16_t KSYMBOL = 17;

class NamesTest : public testing::Test {
 protected:
  // Files of the recorded machine are below the folder "root"; its kernel's list is `kallsyms`.
  void prepare(const made::Recording& recording, const std::string& kallsyms = "") {
    std::filesystem::create_directories(temp.file("root/bin"));
    const Ending run =
        prepareWith({"--no-cache", "-q", "--sysroot", temp.file("root"), "--kallsyms",
                     temp.write("kallsyms", kallsyms), "-o", temp.file("prepared"),
                     temp.write("perf.data", made::fileBytes(recording))});
    ASSERT_EQ(run.status, 0) << run.err;
  }

  // All records of the plain recording that begin with the word, in their order.
  std::vector<std::string> written(const std::string& kind) const {
    std::vector<std::string> chosen;
    for (const std::string& line : Walked(temp.read("prepared/perf.data")).lines) {
      if (line.starts_with(kind + " ")) {
        chosen.push_back(line);
      }
    }
    return chosen;
  }

  // The list that the converter will find for a map's name; empty: none.
  std::string listOf(const std::string& name) const {
    const json index = json::parse(temp.read("prepared/symbols/symbolcache.json"));
    const auto entry = index.find(temp.file("prepared/files/") + name);
    return entry == index.end()
               ? ""
               : temp.read("prepared/symbols/" + (*entry)["file"].get<std::string>());
  }

  // Of what has no name: by the file's.
  json reasonFor(const std::string& name) const {
    const json quality = json::parse(temp.read("prepared/quality.json"));
    for (const json& entry : quality["nameless"]) {
      if (entry["name"] == name) {
        return entry;
      }
    }
    return {};
  }

  TempDir temp;
};

made::Recording withKernel() {
  made::Recording recording;
  recording.map({.pid = EVERY,
                 .address = KERNEL_TEXT,
                 .length = 0x200000,
                 .pageOffset = KERNEL_TEXT,
                 .file = "[kernel.kallsyms]_text",
                 .mode = Mode::KERNEL});
  return recording;
}

made::Sample inKernel(std::uint64_t ip, std::uint32_t pid, std::uint64_t time) {
  return {.ip = ip, .pid = pid, .tid = pid, .time = time, .mode = Mode::KERNEL};
}

constexpr char KALLSYMS[] =
    "ffffffff81000000 T _text\n"
    "ffffffff81000000 T _stext\n"
    "ffffffff81000100 T do_work\n"
    "ffffffff81200000 T _etext\n"
    "ffffffffc0000000 t ext4_init\t[ext4]\n"
    "ffffffffc0000080 t ext4_read\t[ext4]\n";

}  // namespace

// perf calls it by its number, as a signed one.
TEST_F(NamesTest, AThreadWithoutANameIsCalledByItsNumber) {
  made::Recording recording;
  recording.sample({.ip = 0x400100, .pid = 10, .tid = 11, .time = 1})
      .sample({.ip = 0x400100, .pid = 10, .tid = EVERY, .time = 2});
  prepare(recording);
  EXPECT_THAT(written("comm"), IsSupersetOf({"comm 10/11 :11", "comm 10/-1 :-1"}));
}

TEST_F(NamesTest, AThreadThatIsNumberedAnewKeepsTheNumberInItsName) {
  made::Recording recording;
  recording.sample({.ip = 0x400100, .pid = 10, .tid = 15, .time = 1})
      .sample({.ip = 0x400100, .pid = 20, .tid = 15, .time = 2});
  prepare(recording);
  EXPECT_THAT(written("comm"), IsSupersetOf({"comm 10/15 :15", "comm 20/-2147483648 :15"}));
}

TEST_F(NamesTest, AProcessIsNamedThoughOnlyItsOtherThreadsWereSampled) {
  made::Recording recording;
  recording.comm({.pid = 10, .tid = 10, .name = "server"})
      .comm({.pid = 10, .tid = 11, .name = "worker"})
      .sample({.ip = 0x400100, .pid = 10, .tid = 11, .time = 1});
  prepare(recording);
  EXPECT_THAT(written("comm"), ElementsAre("comm 10/11 worker", "comm 10/10 server"));
}

TEST_F(NamesTest, AProcessThatWasSampledIsNamedOnce) {
  made::Recording recording;
  recording.comm({.pid = 10, .tid = 10, .name = "server"})
      .sample({.ip = 0x400100, .pid = 10, .tid = 10, .time = 1});
  prepare(recording);
  EXPECT_THAT(written("comm"), ElementsAre("comm 10/10 server"));
}

// As lld links: the code's place in the file is not its address.
TEST_F(NamesTest, AMapBeginsAtItsAddressInTheFile) {
  made::Recording recording;
  recording
      .map({.pid = 10,
            .tid = 10,
            .address = 0x7f0000001000,
            .length = 0x1000,
            .pageOffset = 0x1000,
            .file = "/bin/app"})
      .sample({.ip = 0x7f0000001010, .pid = 10, .tid = 10, .time = 1});
  std::filesystem::create_directories(temp.file("root/bin"));
  temp.write("root/bin/app", ElfText(EM_X86_64, true)
                                 .segment(PT_LOAD, 0x1000, 0x3000, 0x1000)
                                 .section(".text", 0x1000, 0x3000, std::vector<unsigned char>(64))
                                 .string());
  prepare(recording);
  EXPECT_THAT(written("map"), ElementsAre("map 10/10 7f0000001000+1000@3000 /bin/app"));
}

TEST_F(NamesTest, AMapOfAFileThatIsNotThereKeepsItsOffset) {
  made::Recording recording;
  recording
      .map({.pid = 10,
            .tid = 10,
            .address = 0x7f0000001000,
            .length = 0x1000,
            .pageOffset = 0x1000,
            .file = "/bin/gone"})
      .sample({.ip = 0x7f0000001010, .pid = 10, .tid = 10, .time = 1});
  prepare(recording);
  EXPECT_THAT(written("map"), ElementsAre("map 10/10 7f0000001000+1000@1000 /bin/gone"));
  EXPECT_EQ(listOf("/bin/gone"), "");
}

TEST_F(NamesTest, AFileIsOneWhereverItIsMapped) {
  made::Recording recording;
  std::uint64_t time = 0;
  for (const std::uint32_t pid : {10u, 20u}) {
    for (const std::uint64_t start : {0x7f0000000000u, 0x7f0001000000u}) {
      recording
          .map({.pid = pid, .tid = pid, .address = start, .length = 0x1000, .file = "/bin/gone"})
          .sample({.ip = start + 0x10, .pid = pid, .tid = pid, .time = ++time});
    }
  }
  prepare(recording);
  EXPECT_EQ(written("map").size(), 4U);
  EXPECT_EQ(reasonFor("/bin/gone")["samples"], 4);
}

TEST_F(NamesTest, TheKernelHasItsMapAndItsList) {
  made::Recording recording = withKernel();
  recording.sample(inKernel(KERNEL_TEXT + 0x110, 10, 1));
  prepare(recording, KALLSYMS);
  EXPECT_THAT(written("map"), ElementsAre("map -1/0 ffffffff81000000+200000@ffffffff81000000 "
                                          "[kernel.kallsyms]_text kernel"));
  EXPECT_THAT(temp.read("prepared/kallsyms"), HasSubstr("ffffffff81000100 t do_work\n"));
}

// So that the converter, which then takes no address for the kernel's, shows where it was. The map
// reaches 32 MB beyond the text that was recorded, where the kernel's code of its start may be.
TEST_F(NamesTest, AKernelWithoutAListIsAMapOfTheProcessesThatWereInIt) {
  made::Recording recording = withKernel();
  recording.sample(inKernel(KERNEL_TEXT + 0x110, 10, 1))
      .sample({.ip = 0x400100, .pid = 20, .tid = 20, .time = 2});
  prepare(recording, "0000000000000000 T _text\n0000000000000000 T _stext\n");
  EXPECT_FALSE(temp.has("prepared/kallsyms"));
  std::vector<std::string> maps;
  for (const std::string& map : written("map")) {
    if (map.ends_with(" [kernel.kallsyms]")) {
      maps.push_back(map);
    }
  }
  EXPECT_THAT(maps, ElementsAre("map 10/10 ffffffff81000000+2200000@ffffffff81000000 "
                                "[kernel.kallsyms]"));
  EXPECT_EQ(reasonFor("[kernel.kallsyms]")["reason"], "restricted");
}

TEST_F(NamesTest, AKernelThatNoSampleIsInIsNotListed) {
  made::Recording recording = withKernel();
  recording.sample({.ip = 0x400100, .pid = 20, .tid = 20, .time = 2});
  prepare(recording, KALLSYMS);
  EXPECT_FALSE(temp.has("prepared/kallsyms"));
  EXPECT_TRUE(reasonFor("[kernel.kallsyms]").is_null());
}

TEST_F(NamesTest, ModulesThatWereHitHaveMapsAndListsOfTheirOwn) {
  made::Recording recording = withKernel();
  std::uint64_t start = MODULE;
  for (const char* const name : {"ext4", "idle", "newer"}) {
    recording.map({.pid = EVERY,
                   .address = start,
                   .length = 0x1000,
                   .file = std::string("/lib/modules/6.1/kernel/") + name + ".ko",
                   .mode = Mode::KERNEL});
    start += 0x1000;
  }
  recording.sample(inKernel(MODULE + 0x90, 10, 1)).sample(inKernel(MODULE + 0x2010, 10, 2));
  prepare(recording, KALLSYMS);
  const std::vector<std::string> maps = written("map");
  EXPECT_THAT(maps,
              Contains("map -1/0 ffffffffc0000000+1000@0 /lib/modules/6.1/kernel/ext4.ko kernel"));
  EXPECT_THAT(maps, Contains("map 10/10 ffffffffc0000000+1000@ffffffffc0000000 [ext4]"));
  EXPECT_THAT(testing::PrintToString(maps), Not(HasSubstr("idle")));
  EXPECT_EQ(listOf("[ext4]"),
            "ffffffffc0000000 t ext4_init\n"
            "ffffffffc0000080 t ext4_read\n"
            "ffffffffc0001000 t [unknown]\n");
  // The kernel's list does not know it.
  EXPECT_EQ(listOf("[newer]"), "");
  EXPECT_EQ(reasonFor("[newer]")["reason"], "stripped");
  EXPECT_EQ(reasonFor("[newer]")["samples"], 1);
}

// Two programs may have one name; between them is something else.
TEST_F(NamesTest, AProgramThatTheKernelMadeIsOneFunction) {
  made::Recording recording = withKernel();
  for (const std::uint64_t start : {MADE_CODE, MADE_CODE + 0x1000}) {
    recording.record(
        {.type = KSYMBOL,
         .body = made::Fields().u64(start).u32(0x40).u16(1).u16(0).text("bpf_prog_filter"),
         .time = 1});
  }
  recording.sample(inKernel(MADE_CODE + 0x10, 10, 2)).sample(inKernel(MADE_CODE + 0x1010, 10, 3));
  prepare(recording, KALLSYMS);
  EXPECT_EQ(listOf("bpf_prog_filter"),
            "ffffffffc0100000 t bpf_prog_filter\n"
            "ffffffffc0100040 t [unknown]\n"
            "ffffffffc0101000 t bpf_prog_filter\n"
            "ffffffffc0101040 t [unknown]\n");
}

// The image that processes of 64 bits have is not theirs. Without a build id only the recorded
// machine knows it.
TEST_F(NamesTest, TheVdsoOf32BitsOfAnotherMachineHasNoNames) {
  made::Recording recording;
  recording.map({.pid = 10, .tid = 10, .address = 0xf7f00000, .length = 0x2000, .file = "[vdso]"})
      .sample({.ip = 0xf7f00010, .pid = 10, .tid = 10, .time = 1});
  prepare(recording);
  EXPECT_EQ(listOf("[vdso]"), "");
  EXPECT_EQ(reasonFor("[vdso]")["reason"], "not-found");
  EXPECT_THAT(written("map"), ElementsAre("map 10/10 f7f00000+2000@0 [vdso]"));
}

// A recorder that was killed does not tell where it ran: then it is the kernel's place that does.
TEST_F(NamesTest, TheVdsoOfTheMachineWhoseKernelLiesWhereTheRecordedOneDoes) {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::ifstream symbols("/proc/kallsyms");
  for (std::string line; std::getline(symbols, line);) {
    start = line.ends_with(" T _text") ? std::stoull(line, nullptr, 16) : start;
    end = line.ends_with(" _etext") ? std::stoull(line, nullptr, 16) : end;
  }
  if (start == 0 || end <= start) {
    GTEST_SKIP() << "the kernel hides its addresses";
  }
  for (const std::uint64_t moved : {0u, 0x1000u}) {
    made::Recording recording;
    recording
        .map({.pid = EVERY,
              .address = start,
              .length = end + moved - start,
              .pageOffset = start,
              .file = "[kernel.kallsyms]_text",
              .mode = Mode::KERNEL})
        .map({.pid = 20, .tid = 20, .address = 0x7f0000000000, .length = 0x2000, .file = "[vdso]"});
    for (std::uint64_t offset = 0; offset < 0x2000; offset += 16) {
      recording.sample({.ip = 0x7f0000000000 + offset, .pid = 20, .tid = 20, .time = 2});
    }
    prepare(recording);
    EXPECT_EQ(listOf("[vdso]").find("gettimeofday") != std::string::npos, moved == 0) << moved;
  }
}

// __kernel_vsyscall is in that of 32-bit x86 alone.
TEST_F(NamesTest, TheVdsoOf32BitsOfThisMachine) {
  if (listing::ownVdso32().empty()) {
    GTEST_SKIP() << "the kernel does not hand it out";
  }
  prepare(recordingOfBothVdsos());
  std::vector<std::string> lists;
  for (const std::string& map : written("map")) {
    lists.push_back(listOf(map.substr(map.rfind(' ') + 1)));
  }
  EXPECT_THAT(lists,
              ElementsAre(HasSubstr("__kernel_vsyscall"),
                          AllOf(HasSubstr("gettimeofday"), Not(HasSubstr("__kernel_vsyscall")))));
}
