#include <gtest/gtest.h>

#include "tests/support/recordings/Fields.h"

using made::ByteOrder;
using made::Fields;
using namespace std::string_literals;

TEST(FieldsTest, NumbersAreTurnedByTheirWidth) {
  Fields fields;
  fields.u8(0x01).u16(0x0203).u32(0x04050607).u64(0x08090a0b0c0d0e0f);
  EXPECT_EQ(fields.size(), 15u);
  EXPECT_EQ(fields.in(ByteOrder::LITTLE),
            "\x01\x03\x02\x07\x06\x05\x04\x0f\x0e\x0d\x0c\x0b\x0a\x09\x08"s);
  EXPECT_EQ(fields.in(ByteOrder::BIG),
            "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f"s);
}

TEST(FieldsTest, TextHasANulAndIsFilled) {
  EXPECT_EQ(Fields().text("1234567").in(ByteOrder::BIG), "1234567\0"s);
  EXPECT_EQ(Fields().text("12345678").in(ByteOrder::BIG), "12345678\0\0\0\0\0\0\0\0"s);
  EXPECT_EQ(Fields().textOfSize("abcde", 4).in(ByteOrder::LITTLE), "abc\0"s);
}

TEST(FieldsTest, BitFieldsBeginAtTheHighEndOfEachByteOnBigEndianProcessors) {
  // sample_id_all is bit 18: bit 2 of byte 2; seen from the other end it is bit 5.
  EXPECT_EQ(Fields().bitFlags(1 << 18).in(ByteOrder::LITTLE), "\0\0\x04\0\0\0\0\0"s);
  EXPECT_EQ(Fields().bitFlags(1 << 18).in(ByteOrder::BIG), "\0\0\x20\0\0\0\0\0"s);
}

TEST(FieldsTest, BranchFlagsAreMirroredFieldByField) {
  // predicted, 5 cycles: bits 1 and 4 to 19. Mirrored: bit 62, and 5 at 64 - 4 - 16 = 44.
  const uint64_t word = 0x2 | 5 << 4;
  EXPECT_EQ(Fields().branchFlags(word).in(ByteOrder::LITTLE), "\x52\0\0\0\0\0\0\0"s);
  EXPECT_EQ(Fields().branchFlags(word).in(ByteOrder::BIG), "\x40\0\x50\0\0\0\0\0"s);
}
