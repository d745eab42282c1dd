#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "recordings/SampleLayout.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/RecordEncoder.h"

using made::SampleBit;
using recordings::Attribute;
using recordings::ByteOrder;
using recordings::Record;
using recordings::Sample;
using recordings::SampleLayout;

namespace {

constexpr uint64_t ALL_BITS = (uint64_t{1} << 25) - 1;

// Every field that a sample can have.
made::Sample fullSample() {
  return {.ip = 1,
          .pid = 2,
          .tid = 3,
          .time = 4,
          .cpu = 7,
          .period = 8,
          .chain = {10, 11},
          .moreMisc = 1 << 14,
          .address = 5,
          .streamId = 6,
          .read = {9},
          .raw = "rawr",
          .branchIndex = 12,
          .branches = {{13, 14, 15}},
          .branchCounters = {},
          .regsUser = {2, {17, 18}},
          .stack = "stack---",
          .stackUsed = 5,
          .weight = 19,
          .dataSource = 20,
          .transaction = 21,
          .regsIntr = {1, {22}},
          .physicalAddress = 23,
          .cgroup = 24,
          .dataPageSize = 25,
          .codePageSize = 26,
          .aux = "auxiliar"};
}

made::Event fullEvent(uint64_t sampleType) {
  return {.sampleType = sampleType,
          .branchSampleType = 1 << 17,
          .regsUser = 0b101,
          .stackUser = 8,
          .regsIntr = 0b10};
}

// An event and one sample of it, as a record and as what the reader makes of it.
class Decoded {
 public:
  Decoded(const made::Event& event, const made::Sample& made,
          made::ByteOrder order = made::ByteOrder::LITTLE) {
    made::Recording recording;
    recording.events = {event};
    const made::Encoding encoding{.order = order};
    const made::RecordEncoder encoder(recording, encoding);
    const ByteOrder read =
        order == made::ByteOrder::LITTLE ? ByteOrder::NATIVE : ByteOrder::FOREIGN;
    bytes_ = encoder.bytes(made);
    attribute_ = encoder.attribute(event);
    record = {9, static_cast<uint16_t>(2 | made.moreMisc), asBytes(bytes_)};
    layout = std::make_unique<SampleLayout>(Attribute::decode(asBytes(attribute_), read), read);
    isWhole = layout->decode(record, sample);
  }

  Record record;
  std::unique_ptr<SampleLayout> layout;
  Sample sample;
  bool isWhole = false;

  // Whether it is refused, cut after so many bytes.
  bool isRefusedAfter(std::size_t size) const {
    Record cut = record;
    cut.bytes = cut.bytes.first(size);
    Sample ignored;
    return !layout->decode(cut, ignored);
  }
  std::size_t size() const { return bytes_.size(); }

 private:
  std::string bytes_;
  std::string attribute_;
};

void expectFull(const Decoded& decoded) {
  ASSERT_TRUE(decoded.isWhole);
  const Sample& sample = decoded.sample;
  EXPECT_EQ(sample.ip, 1u);
  EXPECT_EQ(sample.pid, 2u);
  EXPECT_EQ(sample.tid, 3u);
  EXPECT_EQ(sample.time, 4u);
  EXPECT_EQ(sample.cpu, 7u);
  EXPECT_EQ((1u << 14) | 2, sample.misc);
  ASSERT_EQ(sample.chainLength(), 2u);
  EXPECT_EQ(sample.chainWord(0), 10u);
  EXPECT_EQ(sample.chainWord(1), 11u);
  EXPECT_EQ(sample.userAbi, 2u);
  EXPECT_EQ(sample.userRegisters.size(), 16u);
  EXPECT_EQ(recordings::numberAt<uint64_t>(sample.userRegisters.data(), sample.order), 17u);
  EXPECT_EQ(std::string(sample.userStack.begin(), sample.userStack.end()), "stack");
  ASSERT_EQ(sample.branches.size(), 24u);
  EXPECT_EQ(recordings::numberAt<uint64_t>(sample.branches.data(), sample.order), 13u);
  EXPECT_EQ(recordings::numberAt<uint64_t>(sample.branches.data() + 8, sample.order), 14u);
}

}  // namespace

TEST(SampleLayoutTest, EveryFieldAtOnceInBothOrders) {
  expectFull(Decoded(fullEvent(ALL_BITS), fullSample()));
  expectFull(Decoded(fullEvent(ALL_BITS), fullSample(), made::ByteOrder::BIG));
}

// Leaving out any one field moves the others, and changes none of them.
TEST(SampleLayoutTest, EachBitMovesWhatStandsBehindItsField) {
  for (unsigned bit = 0; bit < 25; ++bit) {
    SCOPED_TRACE("without bit " + std::to_string(bit));
    const uint64_t type = ALL_BITS & ~(uint64_t{1} << bit);
    const Decoded decoded(fullEvent(type), fullSample());
    ASSERT_TRUE(decoded.isWhole);
    const Sample& sample = decoded.sample;
    EXPECT_EQ(type & SampleBit::IP ? 1u : 0u, sample.ip);
    EXPECT_EQ(type & SampleBit::TID ? 3u : 0u, sample.tid);
    EXPECT_EQ(type & SampleBit::TIME ? 4u : 0u, sample.time);
    EXPECT_EQ(type & SampleBit::CPU ? 7u : 0u, sample.cpu);
    EXPECT_EQ(type & SampleBit::CALLCHAIN ? 2u : 0u, sample.chainLength());
    EXPECT_EQ(type & SampleBit::BRANCH_STACK ? 24u : 0u, sample.branches.size());
    EXPECT_EQ(type & SampleBit::REGS_USER ? 2u : 0u, sample.userAbi);
    EXPECT_EQ(type & SampleBit::STACK_USER ? "stack" : "",
              std::string(sample.userStack.begin(), sample.userStack.end()));
    EXPECT_EQ(type & SampleBit::TIME ? 4u : 0u, decoded.layout->timeOfSample(decoded.record));
    EXPECT_EQ(decoded.layout->idOfSample(decoded.record).value_or(0), 100u);  // ID, IDENTIFIER
  }
}

TEST(SampleLayoutTest, EachBitAlone) {
  for (unsigned bit = 0; bit < 25; ++bit) {
    const Decoded decoded(fullEvent(uint64_t{1} << bit), fullSample());
    EXPECT_TRUE(decoded.isWhole) << bit;
  }
}

TEST(SampleLayoutTest, WithoutAnIdThereIsNone) {
  const Decoded decoded(fullEvent(SampleBit::IP | SampleBit::TID | SampleBit::TIME), fullSample());
  EXPECT_FALSE(decoded.layout->idOfSample(decoded.record));
  EXPECT_FALSE(decoded.layout->hasId());
  EXPECT_TRUE(decoded.layout->hasTime());
  EXPECT_FALSE(decoded.layout->hasCpu());
}

TEST(SampleLayoutTest, CountersTakeAsManyWordsAsTheirFormatSays) {
  struct Case {
    uint64_t format;
    std::vector<uint64_t> words;
  };
  // value, [enabled], [running], [id], [lost]; in groups: nr, [enabled], [running], and of each
  // value, [id], [lost].
  const std::vector<Case> cases = {
      {0, {5}},
      {1, {5, 6}},
      {1 | 2, {5, 6, 7}},
      {4, {5, 6}},
      {1 | 2 | 4 | 16, {5, 6, 7, 8, 9}},
      {8, {2, 5, 6}},
      {8 | 1, {2, 9, 5, 6}},
      {8 | 4, {2, 5, 1, 6, 2}},
      {8 | 1 | 2 | 4 | 16, {2, 9, 9, 5, 1, 0, 6, 2, 0}},
      {8 | 4, {0}},
  };
  for (const Case& each : cases) {
    made::Event event{.sampleType = SampleBit::IP | SampleBit::READ | SampleBit::CALLCHAIN,
                      .readFormat = each.format};
    const Decoded decoded(event, {.ip = 1, .chain = {10}, .read = each.words});
    ASSERT_TRUE(decoded.isWhole) << each.format;
    ASSERT_EQ(decoded.sample.chainLength(), 1u) << each.format;
    EXPECT_EQ(decoded.sample.chainWord(0), 10u) << each.format;
  }
}

TEST(SampleLayoutTest, AnEmptyBranchStackHasNoIndex) {
  made::Event event = fullEvent(SampleBit::BRANCH_STACK | SampleBit::REGS_USER);
  const Decoded decoded(event, {.regsUser = {2, {17, 18}}});
  ASSERT_TRUE(decoded.isWhole);
  EXPECT_EQ(decoded.sample.branches.size(), 0u);
  EXPECT_EQ(decoded.sample.userAbi, 2u);
}

// Bit 19 of branch_sample_type: a word of counters for each entry, behind all of them.
TEST(SampleLayoutTest, BranchCountersStandInFrontOfTheRegisters) {
  made::Event event = fullEvent(SampleBit::BRANCH_STACK | SampleBit::REGS_USER);
  event.branchSampleType = 1 << 19;
  const Decoded decoded(
      event,
      {.branches = {{1, 2, 3}, {4, 5, 6}}, .branchCounters = {8, 9}, .regsUser = {2, {17, 18}}});
  ASSERT_TRUE(decoded.isWhole);
  EXPECT_EQ(decoded.sample.branches.size(), 48u);
  EXPECT_EQ(decoded.sample.userAbi, 2u);
  EXPECT_EQ(recordings::numberAt<uint64_t>(decoded.sample.userRegisters.data(), ByteOrder::NATIVE),
            17u);
}

// Threads of the kernel have no user registers and no stack: abi 0, size 0, no dyn_size.
TEST(SampleLayoutTest, WithoutAUserSideThereAreNoRegistersAndNoStack) {
  const Decoded decoded(fullEvent(SampleBit::REGS_USER | SampleBit::STACK_USER), {});
  ASSERT_TRUE(decoded.isWhole);
  EXPECT_TRUE(decoded.layout->hasStackDump());
  EXPECT_EQ(decoded.sample.userAbi, 0u);
  EXPECT_EQ(decoded.sample.userRegisters.size(), 0u);
  EXPECT_EQ(decoded.sample.userStack.size(), 0u);
}

TEST(SampleLayoutTest, MoreStackInUseThanWasCopiedIsWhatWasCopied) {
  const Decoded decoded(fullEvent(SampleBit::REGS_USER | SampleBit::STACK_USER),
                        {.regsUser = {2, {1, 2}}, .stack = "12345678", .stackUsed = 9});
  ASSERT_TRUE(decoded.isWhole);
  EXPECT_EQ(decoded.sample.userStack.size(), 8u);
}

// Cut anywhere up to the last field that matters, the sample is broken, and nothing is read behind.
TEST(SampleLayoutTest, ACutSampleIsBroken) {
  constexpr uint64_t TYPE = SampleBit::IDENTIFIER | SampleBit::IP | SampleBit::TID |
                            SampleBit::TIME | SampleBit::READ | SampleBit::CALLCHAIN |
                            SampleBit::RAW | SampleBit::BRANCH_STACK | SampleBit::REGS_USER |
                            SampleBit::STACK_USER;
  const Decoded decoded(fullEvent(TYPE), fullSample());
  ASSERT_TRUE(decoded.isWhole);
  for (std::size_t size = 8; size < decoded.size(); ++size) {
    EXPECT_TRUE(decoded.isRefusedAfter(size)) << size;
  }
}

// Counts whose size in bytes overflows 64 bits.
TEST(SampleLayoutTest, HugeCountsAreRefused) {
  for (const uint64_t count :
       {uint64_t{3}, uint64_t{1} << 61, (uint64_t{1} << 61) + 1, ~uint64_t{0}}) {
    for (const uint64_t bit :
         {SampleBit::CALLCHAIN, SampleBit::BRANCH_STACK, SampleBit::STACK_USER, SampleBit::READ}) {
      made::Fields body;
      body.u64(1).u64(count).u64(1).u64(2);
      made::Recording recording;
      recording.events = {{.sampleType = SampleBit::IP | bit, .readFormat = made::ReadBit::GROUP}};
      const made::Encoding encoding;
      const made::RecordEncoder encoder(recording, encoding);
      const std::string bytes = encoder.plainBytes(9, 2, body);
      const std::string attribute = encoder.attribute(recording.events[0]);
      const SampleLayout layout(Attribute::decode(asBytes(attribute), ByteOrder::NATIVE),
                                ByteOrder::NATIVE);
      Sample sample;
      const bool isRead = layout.decode({9, 2, asBytes(bytes)}, sample);
      // STACK_USER alone is nobody's: only registers and stack together are looked at.
      EXPECT_TRUE(!isRead || bit == SampleBit::STACK_USER) << bit << " " << count;
    }
  }
}

TEST(SampleLayoutTest, TrailersAreReadFromTheEnd) {
  for (const made::ByteOrder order : {made::ByteOrder::LITTLE, made::ByteOrder::BIG}) {
    made::Recording recording;
    recording.events[0].sampleType |= SampleBit::STREAM_ID;
    const made::Encoding encoding{.order = order,
                                  .identification = made::Identification::IDENTIFIER};
    const made::RecordEncoder encoder(recording, encoding);
    const std::string bytes = encoder.bytes(
        made::Comm{.pid = 8, .tid = 9, .name = "a name of its own", .time = 77, .cpu = 1});
    const std::string attribute = encoder.attribute(recording.events[0]);
    const ByteOrder read =
        order == made::ByteOrder::LITTLE ? ByteOrder::NATIVE : ByteOrder::FOREIGN;
    const SampleLayout layout(Attribute::decode(asBytes(attribute), read), read);
    const Record record{3, 0, asBytes(bytes)};
    EXPECT_EQ(layout.trailerOf(record).pid, 8u);
    EXPECT_EQ(layout.trailerOf(record).tid, 9u);
    EXPECT_EQ(layout.trailerOf(record).time, 77u);
    EXPECT_EQ(layout.timeOfOther(record), 77u);
    // pid, tid, and 24 bytes of name; behind it TID, TIME, STREAM_ID, CPU, IDENTIFIER
    EXPECT_EQ(layout.bodyOf(record).size(), 32u);
    const Record cut{3, 0, asBytes(bytes).first(40)};
    EXPECT_EQ(layout.trailerOf(cut).time, 0u);
  }
}
