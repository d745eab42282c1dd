// That perf reads the same out of every form of a recording. Skipped where perf is not installed.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TempDir.h"
#include "tests/support/recordings/RecordingFile.h"

using made::ByteOrder;
using made::Compression;
using made::Encoding;
using made::Form;
using made::Identification;
using made::Magic;
using made::Maps;
using made::Recording;
using made::SampleBit;

namespace {

std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string output;
  char buffer[4096];
  for (std::size_t count = 0; (count = fread(buffer, 1, sizeof buffer, pipe.get())) > 0;) {
    output.append(buffer, count);
  }
  return output;
}

std::string perfScript(const std::string& path) {
  return outputOf("perf script --ns -F comm,pid,tid,cpu,time,event,ip,sym,dso -f -i '" + path +
                  "' 2>&1");
}

// A program whose name and libraries change while it runs, with samples in all of them. Offsets in
// the files are the addresses: perf prints either of them, depending on its version.
Recording history(std::size_t events) {
  Recording recording;
  recording.events[0].sampleType |= SampleBit::CALLCHAIN;
  if (events > 1) {
    recording.events.push_back(recording.events[0]);
    recording.events[1].name = "task-clock";
    recording.events[1].config = 1;
  }
  recording.comm({.pid = 10, .tid = 10, .name = "shell"});
  recording.map({.pid = 10,
                 .tid = 10,
                 .address = 0x10000,
                 .length = 0x4000,
                 .pageOffset = 0x10000,
                 .file = "/bin/shell",
                 .buildId = "abcdefghijklmnopqrst"});
  const auto sample = [&](uint32_t pid, uint32_t tid, uint64_t time, uint64_t ip,
                          std::size_t event) {
    recording.sample({.ip = ip,
                      .pid = pid,
                      .tid = tid,
                      .time = time,
                      .cpu = pid % 2,
                      .chain = {made::CONTEXT_USER, ip, 0x10008},
                      .event = event});
  };
  sample(10, 10, 1'000'000'100, 0x10010, 0);
  recording.fork({.pid = 11, .parentPid = 10, .tid = 11, .parentTid = 10, .time = 1'000'000'200});
  sample(11, 11, 1'000'000'300, 0x10020, events - 1);
  recording.finishedRound();
  recording.comm({.pid = 11, .tid = 11, .name = "worker", .time = 1'000'000'400, .isExec = true});
  recording.map({.pid = 11,
                 .tid = 11,
                 .address = 0x10000,
                 .length = 0x2000,
                 .pageOffset = 0x10000,
                 .file = "/bin/worker",
                 .time = 1'000'000'500});
  sample(11, 11, 1'000'000'600, 0x10030, 0);
  recording.fork({.pid = 11, .parentPid = 11, .tid = 12, .parentTid = 11, .time = 1'000'000'700});
  sample(11, 12, 1'000'000'800, 0x10040, events - 1);
  recording.finishedRound();
  recording.exit({.pid = 11, .parentPid = 10, .tid = 11, .parentTid = 10, .time = 1'000'000'900});
  sample(10, 10, 1'000'001'000, 0x10050, 0);
  recording.finishedRound();
  return recording;
}

const char* const EXPECTED =
    "shell 10/10 [000] 1.000000100: cpu-clock: 10010 [unknown] (/bin/shell) 10008 [unknown] (/bin/shell) "
    "shell 11/11 [001] 1.000000300: cpu-clock: 10020 [unknown] (/bin/shell) 10008 [unknown] (/bin/shell) "
    "worker 11/11 [001] 1.000000600: cpu-clock: 10030 [unknown] (/bin/worker) 10008 [unknown] (/bin/worker) "
    "worker 11/12 [001] 1.000000800: cpu-clock: 10040 [unknown] (/bin/worker) 10008 [unknown] (/bin/worker) "
    "shell 10/10 [000] 1.000001000: cpu-clock: 10050 [unknown] (/bin/shell) 10008 [unknown] (/bin/shell) ";

// With single blanks between the words, and without the modifiers that perf adds to the name of an
// event which it makes up itself.
std::string words(const std::string& text) {
  std::string words;
  std::string word;
  for (const char c : text + " ") {
    if (c != ' ' && c != '\n' && c != '\t') {
      word += c;
    } else if (!word.empty()) {
      words += (word == "cpu-clock:HG:" ? "cpu-clock:" : word) + " ";
      word.clear();
    }
  }
  return words;
}

class PerfScriptTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (outputOf("perf --version 2>&1").find("perf version") == std::string::npos) {
      GTEST_SKIP() << "perf is not installed";
    }
    // Neither this user's settings nor a cache of files.
    setenv("HOME", folder_.path().c_str(), 1);
    setenv("LC_ALL", "C", 1);
  }

  void expectHistory(const Encoding& encoding, const char* what) {
    const std::string path = folder_.write("perf.data", made::fileBytes(history(1), encoding));
    EXPECT_EQ(words(perfScript(path)), EXPECTED) << what;
  }

  TempDir folder_;
};

}  // namespace

TEST_F(PerfScriptTest, ReadsFiles) {
  expectHistory({}, "as perf 6.1 writes it");
  expectHistory({.identification = Identification::ID}, "ID");
  expectHistory({.identification = Identification::IDENTIFIER}, "IDENTIFIER");
  expectHistory({.maps = Maps::MMAP}, "MMAP");
  expectHistory({.maps = Maps::MMAP2_BUILD_ID}, "MMAP2 with build ids");
  expectHistory({.attributesLast = true}, "attributes last");
  expectHistory({.attributePadding = 16}, "entries with room");
  expectHistory({.hasEventTypes = true}, "event types");
}

TEST_F(PerfScriptTest, ReadsAttributesOfEverySize) {
  for (std::size_t size = 64; size <= 128; size += 8) {
    expectHistory({.attributeSize = size}, std::to_string(size).c_str());
  }
  expectHistory({.attributeSize = 64, .hasAttributeSize = false}, "size 0");
}

TEST_F(PerfScriptTest, ReadsOldMagics) {
  expectHistory({.magic = Magic::PERFFILE, .attributeSize = 64}, "PERFFILE");
  expectHistory({.form = Form::SHORT_HEADER,
                 .magic = Magic::PERFFILE,
                 .attributeSize = 64,
                 .maps = Maps::MMAP,
                 .hasEventTypes = true},
                "the oldest");
}

TEST_F(PerfScriptTest, ReadsForeignOrder) {
  expectHistory({.order = ByteOrder::BIG}, "file");
  expectHistory({.order = ByteOrder::BIG, .identification = Identification::ID}, "ID");
  expectHistory({.order = ByteOrder::BIG, .identification = Identification::IDENTIFIER},
                "IDENTIFIER");
  expectHistory({.order = ByteOrder::BIG, .maps = Maps::MMAP}, "MMAP");
  // Not pipes: perf 6.1 turns their pairs of 32-bit numbers as one number.
}

TEST_F(PerfScriptTest, ReadsPipes) {
  expectHistory({.form = Form::PIPE}, "pipe");
  expectHistory({.form = Form::PIPE, .identification = Identification::ID}, "ID");
  expectHistory({.form = Form::PIPE, .identification = Identification::IDENTIFIER}, "IDENTIFIER");
}

TEST_F(PerfScriptTest, ReadsCompressedRecords) {
  expectHistory({.compression = Compression::COMPRESSED}, "file");
  expectHistory({.compression = Compression::COMPRESSED, .pushBytes = 20}, "split often");
  expectHistory({.form = Form::PIPE, .compression = Compression::COMPRESSED}, "pipe");
}

TEST_F(PerfScriptTest, ReadsFolders) {
  const std::string path = folder_.file("recording");
  ASSERT_EQ(std::system(("mkdir '" + path + "'").c_str()), 0);
  for (const auto& [name, bytes] : made::folderFiles(history(1))) {
    folder_.write("recording/" + name, bytes);
  }
  EXPECT_EQ(words(perfScript(path)), EXPECTED);
}

TEST_F(PerfScriptTest, ReadsEachSamplesEvent) {
  for (const Identification kind : {Identification::ID, Identification::IDENTIFIER}) {
    for (const Form form : {Form::FILE, Form::PIPE}) {
      for (const ByteOrder order : {ByteOrder::LITTLE, ByteOrder::BIG}) {
        if (form == Form::PIPE && order == ByteOrder::BIG) {
          continue;  // as above
        }
        const std::string output = perfScript(folder_.write(
            "perf.data",
            made::fileBytes(history(2), {.form = form, .order = order, .identification = kind})));
        std::size_t taskClocks = 0;
        for (std::size_t at = 0; (at = output.find(" task-clock:", at)) != std::string::npos;
             ++at) {
          ++taskClocks;
        }
        EXPECT_EQ(taskClocks, 2u) << output;
      }
    }
  }
}
