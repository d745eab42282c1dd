// Records that explain no address are counted, whatever is in them, and change nothing else.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/Abi.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/Encodings.h"
#include "tests/support/recordings/RecordingFile.h"

using testing::ElementsAre;

namespace {

// Numbers of the kernel's enum perf_event_type, and of perf's own.
constexpr std::uint32_t LOST = 2;
constexpr std::uint32_t READ = 8;
constexpr std::uint32_t AUX = 11;
constexpr std::uint32_t ITRACE_START = 12;
constexpr std::uint32_t LOST_SAMPLES = 13;
constexpr std::uint32_t SWITCH = 14;
constexpr std::uint32_t SWITCH_CPU_WIDE = 15;
constexpr std::uint32_t NAMESPACES = 16;
constexpr std::uint32_t BPF_EVENT = 18;
constexpr std::uint32_t CGROUP = 19;
constexpr std::uint32_t TEXT_POKE = 20;
constexpr std::uint32_t AUX_OUTPUT_HW_ID = 21;
constexpr std::uint32_t OF_A_LATER_KERNEL = 40;
constexpr std::uint32_t THREAD_MAP = 73;
constexpr std::uint32_t OF_A_LATER_PERF = 200;

made::Recording without() {
  made::Recording recording;
  recording.map({.pid = 10, .tid = 10, .address = 0x8000, .length = 0x1000, .file = "/bin/app"})
      .sample({.ip = 0x8010, .pid = 10, .tid = 10, .time = 1000})
      .sample({.ip = 0x8020, .pid = 10, .tid = 10, .time = 3000});
  return recording;
}

made::Record other(std::uint32_t type, made::Fields body) {
  return made::Other{.type = type, .body = std::move(body), .time = 2000, .pid = 10, .tid = 10};
}

// Between the two samples of without().
made::Recording with(const std::vector<made::Record>& records) {
  made::Recording recording = without();
  recording.records.insert(recording.records.begin() + 2, records.begin(), records.end());
  return recording;
}

}  // namespace

TEST(CountedRecordsTest, EachIsCountedAndNoneIsBroken) {
  const std::vector<made::Record> records = {
      other(LOST, made::Fields().u64(100).u64(7)),
      other(READ, made::Fields().u32(10).u32(10).u64(5)),
      other(AUX, made::Fields().u64(0).u64(64).u64(1)),
      other(ITRACE_START, made::Fields().u32(10).u32(10)),
      other(LOST_SAMPLES, made::Fields().u64(5)),
      other(SWITCH, made::Fields()),
      other(SWITCH_CPU_WIDE, made::Fields().u32(10).u32(10)),
      other(NAMESPACES, made::Fields().u32(10).u32(10).u64(1).u64(3).u64(4)),
      other(BPF_EVENT, made::Fields().u16(1).u16(0).u32(9).u64(0x1122334455667788)),
      other(CGROUP, made::Fields().u64(1).text("/user.slice")),
      other(TEXT_POKE,
            made::Fields().u64(0xffffffff81000010).u16(1).u16(1).bytes("\x90\xcc").zeros(2)),
      other(AUX_OUTPUT_HW_ID, made::Fields().u64(3)),
      other(OF_A_LATER_KERNEL, made::Fields().zeros(24)),
      other(THREAD_MAP, made::Fields().u64(1).u64(10).zeros(16)),
      other(OF_A_LATER_PERF, made::Fields().zeros(8))};
  const Walked plain(made::fileBytes(without()));
  for (const auto& [name, encoding] : made::allEncodings()) {
    const Walked walked(made::fileBytes(with(records), encoding));
    EXPECT_EQ(plain.lines, walked.lines) << name;
    EXPECT_EQ(walked.counts.brokenRecords, 0u) << name;
    EXPECT_TRUE(walked.counts.damages.empty()) << name;
    EXPECT_EQ(walked.counts.lostRecords, 7u) << name;
    EXPECT_EQ(walked.counts.lostSamples, 5u) << name;
    for (const std::uint32_t type :
         {LOST, READ, AUX, ITRACE_START, LOST_SAMPLES, SWITCH, SWITCH_CPU_WIDE, NAMESPACES,
          BPF_EVENT, CGROUP, TEXT_POKE, AUX_OUTPUT_HW_ID, OF_A_LATER_KERNEL, THREAD_MAP,
          OF_A_LATER_PERF}) {
      EXPECT_EQ(walked.counts.recordsOfType[type], 1u) << name << ", type " << type;
    }
  }
}

// Nothing in them is looked at.
TEST(CountedRecordsTest, WithoutTheirFieldsTheyAreCountedAsWell) {
  for (const std::uint32_t type : {AUX, ITRACE_START, SWITCH_CPU_WIDE, NAMESPACES, BPF_EVENT,
                                   CGROUP, TEXT_POKE, AUX_OUTPUT_HW_ID}) {
    const Walked walked(made::fileBytes(with({other(type, made::Fields())})));
    EXPECT_EQ(walked.counts.recordsOfType[9], 2u);
    EXPECT_EQ(walked.counts.recordsOfType[type], 1u);
    EXPECT_EQ(walked.counts.brokenRecords, 0u);
  }
}
