#include <string>
#include <vector>
#include <zstd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/RecordStream.h"
#include "tests/recordings/WalkLog.h"
#include "tests/support/recordings/Fields.h"

using made::Fields;
using recordings::ByteOrder;
using recordings::Damage;
using recordings::MemoryInput;
using recordings::Record;
using recordings::RecordStream;
using testing::ElementsAre;

namespace {

struct Section {
  std::vector<std::string> records;  // type and size
  std::string bytes;                 // of all of them, behind each other
  Damage damage;
};

Section read(const std::string& bytes, ByteOrder order = ByteOrder::NATIVE,
             RecordStream::Form form = RecordStream::Form::FILE, std::size_t claimed = 0) {
  const MemoryInput input(asBytes(bytes));
  RecordStream stream(input, 0, claimed == 0 ? bytes.size() : claimed, order, form);
  Section section;
  for (Record record; stream.next(record);) {
    section.records.push_back(std::to_string(record.type) + ":" +
                              std::to_string(record.bytes.size()));
    section.bytes.append(record.bytes.begin(), record.bytes.end());
  }
  section.damage = stream.damage();
  return section;
}

Fields record(uint32_t type, const Fields& body) {
  return Fields().u32(type).u16(0).u16(static_cast<uint16_t>(8 + body.size())).append(body);
}

std::string little(const Fields& fields) { return fields.in(made::ByteOrder::LITTLE); }

// Bytes that zstd cannot make smaller.
std::string noise(std::size_t size, uint64_t seed = 1) {
  std::string bytes;
  uint64_t state = seed;
  while (bytes.size() < size) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    bytes += static_cast<char>(state >> 56);
  }
  return bytes;
}

// One stream for all pushes, flushed after each.
class Packer {
 public:
  Packer() : stream_(ZSTD_createCStream()) {}
  ~Packer() { ZSTD_freeCStream(stream_); }
  std::string push(const std::string& bytes) {
    std::string packed(ZSTD_compressBound(bytes.size()) + 1000, '\0');
    ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
    ZSTD_outBuffer out{packed.data(), packed.size(), 0};
    EXPECT_EQ(ZSTD_compressStream2(stream_, &out, &in, ZSTD_e_flush), 0u);
    packed.resize(out.pos);
    return packed;
  }

 private:
  ZSTD_CStream* stream_;
};

// A record of type 83 as the header says, whatever the body holds.
std::string packed2(uint64_t dataSize, std::size_t size, const std::string& body) {
  return little(Fields().u32(83).u16(0).u16(static_cast<uint16_t>(size)).u64(dataSize).bytes(body));
}

}  // namespace

TEST(RecordStreamTest, HardwareTracesStandBehindTheirRecord) {
  const std::string bytes =
      little(record(71, Fields().u64(24).zeros(32)).zeros(24).append(record(68, {})));
  EXPECT_THAT(read(bytes).records, ElementsAre("71:48", "68:8"));
  EXPECT_FALSE(read(bytes).damage);
  const std::string foreign = record(71, Fields().u64(24).zeros(32))
                                  .zeros(24)
                                  .append(record(68, {}))
                                  .in(made::ByteOrder::BIG);
  EXPECT_THAT(read(foreign, ByteOrder::FOREIGN).records, ElementsAre("71:48", "68:8"));
}

TEST(RecordStreamTest, LargeTracesArePassedOverWithoutReadingThem) {
  const std::size_t size = 3'000'000;
  const std::string bytes =
      little(record(68, {}).append(record(71, Fields().u64(size).zeros(32)))) +
      std::string(size, '\x99') + little(record(70, Fields().u64(1)));
  EXPECT_THAT(read(bytes).records, ElementsAre("68:8", "71:48", "70:16"));
}

TEST(RecordStreamTest, ATraceThatEndsWithTheFileIsDamaged) {
  for (const uint64_t claimed : {uint64_t{25}, uint64_t{1} << 63, ~uint64_t{0}}) {
    const Section section =
        read(little(record(68, {}).append(record(71, Fields().u64(claimed).zeros(32))).zeros(24)));
    EXPECT_THAT(section.records, ElementsAre("68:8")) << claimed;
    EXPECT_TRUE(section.damage) << claimed;
    EXPECT_EQ(section.damage.lostBytes, 24u) << claimed;
  }
}

// The formats of tracepoints stand behind the record of a pipe; in a file they are elsewhere.
TEST(RecordStreamTest, TracingDataOfAPipeIsPassedOver) {
  const std::string bytes =
      little(record(66, Fields().u32(13).u32(0)).zeros(16).append(record(68, {})));
  EXPECT_THAT(read(bytes, ByteOrder::NATIVE, RecordStream::Form::PIPE).records,
              ElementsAre("66:16", "68:8"));
}

TEST(RecordStreamTest, SizesNeedNotBeMultiplesOfEight) {
  const std::string bytes = little(record(80, Fields().bytes("12345"))
                                       .append(record(67, Fields().bytes("x")))
                                       .append(record(68, {})));
  EXPECT_THAT(read(bytes).records, ElementsAre("80:13", "67:9", "68:8"));
}

TEST(RecordStreamTest, ALargeRecordAcrossTheEndOfTheBuffer) {
  const std::size_t most = 65535;
  std::string bytes;
  for (int i = 0; i < 40; ++i) {
    bytes += little(record(99, Fields().bytes(noise(most - 8 - static_cast<std::size_t>(i)))));
  }
  const Section section = read(bytes);
  EXPECT_EQ(section.records.size(), 40u);
  EXPECT_EQ(bytes, section.bytes);
}

TEST(RecordStreamTest, ARecordOfSizeZeroEndsTheStream) {
  const Section section = read(little(record(68, {}).zeros(100)));
  EXPECT_THAT(section.records, ElementsAre("68:8"));
  EXPECT_EQ(section.damage.offset, 8u);
  EXPECT_EQ(section.damage.lostBytes, 100u);
  EXPECT_EQ(section.damage.what, "a record is shorter than its own header");
}

TEST(RecordStreamTest, ARecordPastTheEndEndsTheStream) {
  const std::string whole = little(record(68, {}).append(record(70, Fields().u64(1).u64(2))));
  for (std::size_t size = 9; size < whole.size(); ++size) {
    const Section section = read(whole.substr(0, size));
    EXPECT_THAT(section.records, ElementsAre("68:8")) << size;
    EXPECT_EQ(section.damage.offset, 8u) << size;
    EXPECT_EQ(size - 8, section.damage.lostBytes) << size;
  }
  EXPECT_FALSE(read(whole).damage);
}

TEST(RecordStreamTest, AFileThatIsShorterThanItsHeaderSaysIsDamaged) {
  const std::string bytes = little(record(68, {}));
  const Section section = read(bytes, ByteOrder::NATIVE, RecordStream::Form::FILE, 1000);
  EXPECT_THAT(section.records, ElementsAre("68:8"));
  EXPECT_TRUE(section.damage);
  EXPECT_EQ(section.damage.offset, 8u);
}

TEST(RecordStreamTest, PackedRecordsMayBeginInOneAndEndInAnother) {
  const std::string inner = little(record(70, Fields().bytes(noise(2000))).append(record(68, {})));
  Packer packer;
  std::string bytes;
  for (std::size_t at = 0; at < inner.size(); at += 300) {
    bytes += little(record(81, Fields().bytes(packer.push(inner.substr(at, 300)))));
  }
  bytes += little(record(82, {}));
  const Section section = read(bytes);
  EXPECT_THAT(section.records, ElementsAre("70:2008", "68:8", "82:8"));
  EXPECT_EQ(inner, section.bytes.substr(0, inner.size()));
}

// A little that becomes a lot: more than any buffer holds.
TEST(RecordStreamTest, OnePackedRecordMayHoldMillionsOfBytes) {
  std::string inner;
  for (int i = 0; i < 200; ++i) {
    inner += little(record(70, Fields().zeros(60000)));
  }
  Packer packer;
  const std::string packed = packer.push(inner);
  ASSERT_LT(packed.size(), 60000u);
  const Section section = read(little(record(81, Fields().bytes(packed))));
  EXPECT_EQ(section.records.size(), 200u);
  EXPECT_EQ(inner.size(), section.bytes.size());
}

TEST(RecordStreamTest, BytesThatAreNoZstdStreamEndIt) {
  const Section section =
      read(little(record(68, {}).append(record(81, Fields().bytes("nonsense"))).zeros(50)));
  EXPECT_THAT(section.records, ElementsAre("68:8"));
  EXPECT_EQ(section.damage.what, "compressed records cannot be unpacked");
}

TEST(RecordStreamTest, APackedRecordOfSizeZeroEndsIt) {
  Packer packer;
  const std::string packed = packer.push(little(record(68, {}).zeros(16)));
  const Section section = read(little(record(81, Fields().bytes(packed))));
  EXPECT_THAT(section.records, ElementsAre("68:8"));
  EXPECT_TRUE(section.damage);
}

// data_size of COMPRESSED2, the four ways in which perf has written it.
TEST(RecordStreamTest, Compressed2WithItsDataSizeIsPadded) {
  Packer packer;
  std::string bytes;
  for (const std::size_t size : {8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u}) {
    const std::string packed = packer.push(little(record(70, Fields().bytes(noise(size)))));
    const std::size_t padding = (8 - packed.size() % 8) % 8;
    bytes +=
        packed2(packed.size(), 16 + packed.size() + padding, packed + std::string(padding, '\0'));
  }
  bytes += little(record(68, {}));
  const Section section = read(bytes);
  EXPECT_THAT(section.records, ElementsAre("70:16", "70:17", "70:18", "70:19", "70:20", "70:21",
                                           "70:22", "70:23", "70:24", "68:8"));
  EXPECT_FALSE(section.damage);
}

TEST(RecordStreamTest, Compressed2WithAnUnsetDataSizeGoesToItsEnd) {
  for (const uint64_t unset :
       {uint64_t{0}, uint64_t{1}, uint64_t{0xdeadbeef00000000}, ~uint64_t{0}, ~uint64_t{0} - 6}) {
    Packer packer;
    const std::string packed = packer.push(little(record(70, Fields().bytes("1234567"))));
    const Section section =
        read(packed2(unset, 16 + packed.size(), packed) + little(record(68, {})));
    EXPECT_THAT(section.records, ElementsAre("70:15", "68:8")) << unset;
  }
}

TEST(RecordStreamTest, Compressed2WithoutAnyBytes) {
  for (const uint64_t size : {uint64_t{0}, uint64_t{5}, ~uint64_t{0}, ~uint64_t{0} - 6}) {
    const Section section = read(packed2(size, 16, "") + little(record(68, {})));
    EXPECT_THAT(section.records, ElementsAre("68:8")) << size;
  }
  const std::string tooShort = little(record(83, Fields().u32(1)).append(record(68, {})));
  EXPECT_THAT(read(tooShort).records, ElementsAre("68:8"));
}

// 16 + n rounded up does not fit into 16 bits, but 16 + n does: one record, without padding.
TEST(RecordStreamTest, Compressed2WhoseSizeWrappedToZero) {
  Packer packer;
  std::string packed;
  std::string inner;
  for (std::size_t body = 65400; packed.size() < 65513 || packed.size() > 65519; ++body) {
    ASSERT_LT(body, 65528u);
    Packer fresh;
    inner = little(record(70, Fields().bytes(noise(body))));
    packed = fresh.push(inner);
  }
  const Section section = read(packed2(packed.size(), 0, packed) + little(record(68, {})));
  ASSERT_EQ(section.records.size(), 2u) << section.damage.what;
  EXPECT_EQ(inner, section.bytes.substr(0, inner.size()));
}

// A push of several records: the first has the size of all modulo 2^16 and is 65535 bytes long, the
// others have exact sizes, and no data_size.
TEST(RecordStreamTest, Compressed2OfSeveralRecords) {
  std::string inner;
  for (uint64_t i = 0; i < 3; ++i) {
    inner += little(record(70, Fields().bytes(noise(50000 + i, i + 1))));
  }
  Packer packer;
  const std::string packed = packer.push(inner);
  ASSERT_GT(packed.size(), 140000u);
  const std::size_t most = 65535 - 16;
  std::string bytes;
  for (std::size_t at = 0; at < packed.size(); at += most) {
    const std::string part = packed.substr(at, most);
    bytes += at == 0 ? packed2(packed.size(), (16 + packed.size() + 7) & ~std::size_t{7}, part)
                     : packed2(0x5555555555555555, 16 + part.size(), part);
  }
  const Section section = read(bytes + little(record(68, {})));
  EXPECT_THAT(section.records, ElementsAre("70:50008", "70:50009", "70:50010", "68:8"));
  EXPECT_EQ(inner, section.bytes.substr(0, inner.size()));
  EXPECT_FALSE(section.damage);
}
