// MMAP, MMAP2, COMM, FORK, EXIT, KSYMBOL, LOST, THROTTLE: each as the kernel writes it.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/SideRecords.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/RecordEncoder.h"
#include "tests/support/recordings/RecordingFile.h"

using made::Encoding;
using made::Fields;
using made::Maps;
using made::Mode;
using testing::ElementsAre;

namespace {

std::vector<std::string> linesOf(const made::Recording& recording, const Encoding& encoding = {}) {
  return Walked(made::fileBytes(recording, encoding)).lines;
}

}  // namespace

TEST(SideRecordsTest, BothFormsOfMmap2AndTheOldOne) {
  made::Recording recording;
  recording.map({.pid = 4,
                 .tid = 5,
                 .address = 0x7000,
                 .length = 0x2000,
                 .pageOffset = 0x1000,
                 .file = "/lib/libc.so",
                 .time = 3,
                 .buildId = "\x01\xab\x7f"});
  const std::string expected = "map 4/5 7000+2000@1000 /lib/libc.so";
  for (const made::ByteOrder order : {made::ByteOrder::LITTLE, made::ByteOrder::BIG}) {
    EXPECT_THAT(linesOf(recording, {.order = order, .maps = Maps::MMAP}), ElementsAre(expected));
    EXPECT_THAT(linesOf(recording, {.order = order}), ElementsAre(expected));
    EXPECT_THAT(linesOf(recording, {.order = order, .maps = Maps::MMAP2_BUILD_ID}),
                ElementsAre(expected + " id 01ab7f"));
  }
}

TEST(SideRecordsTest, FlagsOfMmap2AreItsOwn) {
  for (const auto& [order, made] :
       {std::pair(recordings::ByteOrder::NATIVE, made::ByteOrder::LITTLE),
        std::pair(recordings::ByteOrder::FOREIGN, made::ByteOrder::BIG)}) {
    made::Recording recording;
    const Encoding encoding{.order = made, .hasSampleIdAll = false};
    const made::RecordEncoder encoder(recording, encoding);
    const std::string bytes = encoder.bytes(made::Map{.file = "x", .flags = 0x40002});
    const recordings::Record record{10, 2, asBytes(bytes)};
    const auto map = recordings::MapRecord::decode(record, record.body(), order);
    ASSERT_TRUE(map);
    EXPECT_EQ(map->flags, 0x40002u);
  }
}

TEST(SideRecordsTest, MapsOfTheKernelAndOfData) {
  made::Recording recording;
  recording
      .map({.pid = 0xffffffff,
            .address = 0xffffffff81000000,
            .length = 0x1000000,
            .pageOffset = 0xffffffff81000000,
            .file = "[kernel.kallsyms]_text",
            .mode = Mode::KERNEL})
      .map({.pid = 4, .tid = 4, .address = 0x1000, .length = 16, .file = "/x", .isData = true});
  EXPECT_THAT(
      linesOf(recording),
      ElementsAre(
          "map -1/0 ffffffff81000000+1000000@ffffffff81000000 [kernel.kallsyms]_text kernel",
          "map 4/4 1000+10@0 /x data"));
}

TEST(SideRecordsTest, NamesEndAtTheirNulOrAtTheTrailer) {
  made::Recording recording;
  // A name that fills its field: what follows is the trailer.
  recording.record({.type = 3, .body = Fields().u32(6).u32(7).bytes("12345678"), .time = 9});
  recording.comm({.pid = 6, .tid = 7, .name = "", .time = 10, .isExec = true});
  EXPECT_THAT(linesOf(recording), ElementsAre("comm 6/7 12345678", "comm 6/7  exec"));
}

// perf writes its own COMM with 16 bytes of name and zeros for the trailer.
TEST(SideRecordsTest, ForksMadeByPerfAreMarked) {
  made::Recording recording;
  recording.record(
      {.type = 7, .body = Fields().u32(20).u32(1).u32(20).u32(1).u64(0), .misc = 1 << 13});
  recording.fork({.pid = 21, .parentPid = 20, .tid = 21, .parentTid = 20, .time = 5});
  EXPECT_THAT(linesOf(recording), ElementsAre("fork 20/20 of 1/1 by perf", "fork 21/21 of 20/20"));
}

TEST(SideRecordsTest, KsymbolsComeAndGo) {
  made::Recording recording;
  const auto symbol = [](uint16_t flags) {
    return Fields().u64(0xffffffffc0001000).u32(0x44).u16(1).u16(flags).text("bpf_prog_1");
  };
  recording.record({.type = 17, .body = symbol(0), .time = 4});
  recording.record({.type = 17, .body = symbol(1), .time = 5});
  for (const made::ByteOrder order : {made::ByteOrder::LITTLE, made::ByteOrder::BIG}) {
    EXPECT_THAT(linesOf(recording, {.order = order}),
                ElementsAre("ksymbol ffffffffc0001000+44 bpf_prog_1",
                            "ksymbol ffffffffc0001000+44 bpf_prog_1 removed"));
  }
}

TEST(SideRecordsTest, LossesAndThrottlesAreSummedUp) {
  made::Recording recording;
  recording.record({.type = 2, .body = Fields().u64(100).u64(7), .time = 1})
      .record({.type = 2, .body = Fields().u64(100).u64(5), .time = 2})
      .record({.type = 13, .body = Fields().u64(3), .time = 3})
      .record({.type = 5, .body = Fields().u64(1000).u64(100).u64(1), .time = 4})
      .record({.type = 5, .body = Fields().u64(1500).u64(100).u64(2), .time = 5})
      .record({.type = 6, .body = Fields().u64(1800).u64(100).u64(1), .time = 6})
      .record({.type = 6, .body = Fields().u64(1600).u64(100).u64(2), .time = 7})
      .record({.type = 6, .body = Fields().u64(1700).u64(100).u64(2), .time = 8});
  for (const made::ByteOrder order : {made::ByteOrder::LITTLE, made::ByteOrder::BIG}) {
    const Walked walked(made::fileBytes(recording, {.order = order}));
    EXPECT_EQ(walked.counts.lostRecords, 12u);
    EXPECT_EQ(walked.counts.lostSamples, 3u);
    EXPECT_EQ(walked.counts.throttles, 2u);
    EXPECT_EQ(walked.counts.throttledNanoseconds, 900u);
    EXPECT_EQ(walked.counts.recordsOfType[2], 2u);
  }
}

// Types that nobody needs, known or not, of the kernel or of perf.
TEST(SideRecordsTest, OtherTypesAreCountedOnly) {
  made::Recording recording;
  recording.sample({.ip = 1, .pid = 1, .tid = 1, .time = 1});
  for (const uint32_t type : {8u, 11u, 12u, 14u, 15u, 16u, 18u, 19u, 20u, 21u, 22u, 40u, 63u}) {
    recording.record({.type = type, .body = Fields().u64(1).u64(2), .time = 2});
  }
  for (const uint32_t type : {65u, 69u, 70u, 72u, 73u, 74u, 79u, 82u, 90u, 5000u}) {
    recording.record({.type = type, .body = Fields().u64(1)});
  }
  recording.sample({.ip = 2, .pid = 1, .tid = 1, .time = 3});
  const Walked walked(made::fileBytes(recording));
  EXPECT_THAT(walked.lines, ElementsAre("sample 0 1 1/1 t1 cpu0", "sample 0 2 1/1 t3 cpu0"));
  EXPECT_EQ(walked.counts.recordsOfType[22], 1u);
  EXPECT_EQ(walked.counts.recordsOfType[255], 1u);
  EXPECT_TRUE(walked.counts.damages.empty());
}

TEST(SideRecordsTest, TooShortOnesAreCountedAsBroken) {
  made::Recording recording;
  for (const uint32_t type : {1u, 3u, 4u, 7u, 10u, 17u, 5u}) {
    recording.record({.type = type, .body = Fields().u32(1)});
  }
  const Walked walked(made::fileBytes(recording, {.hasSampleIdAll = false}));
  EXPECT_THAT(walked.lines, ElementsAre());
  EXPECT_EQ(walked.counts.brokenRecords, 7u);
}
