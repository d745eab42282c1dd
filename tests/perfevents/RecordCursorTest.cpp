#include <string>

#include <gtest/gtest.h>

#include "perfevents/RecordCursor.h"
#include "tests/support/BodyView.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::RecordCursor;

TEST(RecordCursorTest, TakesNumbersInOrder) {
  const BodyView body(Body().u8(1).u16(0x0203).u32(0x04050607).u64(0x08090A0B0C0D0E0F));
  RecordCursor in(body);
  EXPECT_EQ(in.take<uint8_t>(), 1);
  EXPECT_EQ(in.take<uint16_t>(), 0x0203);
  EXPECT_EQ(in.take<uint32_t>(), 0x04050607U);
  EXPECT_EQ(in.take<uint64_t>(), 0x08090A0B0C0D0E0FU);
  EXPECT_TRUE(in.ok());
}

TEST(RecordCursorTest, ReadsOnlyTheUsedBytesOfAView) {
  const std::string bytes(16, '\x01');
  const BodyView body(bytes);
  kestrel::ByteBufferViewport view(body);
  view.size(7);
  RecordCursor in(view);
  EXPECT_EQ(in.take<uint64_t>(), 0U);
  EXPECT_FALSE(in.ok());
}

TEST(RecordCursorTest, ExactlyTheRestIsReadAndOneByteLessIsNot) {
  const BodyView eight(Body().u64(5));
  RecordCursor whole(eight);
  EXPECT_EQ(whole.take<uint64_t>(), 5U);
  EXPECT_TRUE(whole.ok());

  RecordCursor shorter(eight.data(), 7);
  EXPECT_EQ(shorter.take<uint64_t>(), 0U);
  EXPECT_FALSE(shorter.ok());
}

TEST(RecordCursorTest, AfterTheFirstReadPastTheEndEverythingIsZero) {
  const BodyView body(Body().u32(1).u32(2));
  RecordCursor in(body);
  EXPECT_EQ(in.take<uint32_t>(), 1U);
  EXPECT_EQ(in.take<uint64_t>(), 0U);
  EXPECT_FALSE(in.ok());
  EXPECT_EQ(in.take<uint32_t>(), 0U) << "although four bytes are left";
  EXPECT_EQ(in.take<uint8_t>(), 0U);
  EXPECT_EQ(in.takeString(), "");
  EXPECT_FALSE(in.ok());
}

TEST(RecordCursorTest, NothingToRead) {
  RecordCursor in{kestrel::ByteBufferViewport()};
  EXPECT_TRUE(in.ok());
  EXPECT_EQ(in.takeString(), "");
  EXPECT_TRUE(in.ok());
  in.skip(0);
  EXPECT_TRUE(in.ok());
  EXPECT_EQ(in.take<uint8_t>(), 0U);
  EXPECT_FALSE(in.ok());
}

TEST(RecordCursorTest, StringEndsAtTheFirstNulAndConsumesEverything) {
  const BodyView body(std::string("ab\0cd\0", 6));
  RecordCursor in(body);
  EXPECT_EQ(in.takeString(), "ab");
  EXPECT_TRUE(in.ok());
}

TEST(RecordCursorTest, StringWithoutANulIsTheWholeRest) {
  const BodyView body(Body().u32(7).bytes("abc"));
  RecordCursor in(body);
  in.take<uint32_t>();
  EXPECT_EQ(in.takeString(), "abc");
  EXPECT_TRUE(in.ok());
}

TEST(RecordCursorTest, StringThatStartsWithANulIsEmpty) {
  const BodyView body(std::string("\0abc", 4));
  RecordCursor in(body);
  EXPECT_EQ(in.takeString(), "");
  EXPECT_TRUE(in.ok());
}

TEST(RecordCursorTest, SkipsUpToTheEndAndNoFurther) {
  const BodyView body(Body().u32(1).u32(2));
  RecordCursor in(body);
  in.skip(4);
  EXPECT_EQ(in.take<uint32_t>(), 2U);
  RecordCursor toTheEnd(body);
  toTheEnd.skip(8);
  EXPECT_TRUE(toTheEnd.ok());
  RecordCursor tooFar(body);
  tooFar.skip(9);
  EXPECT_FALSE(tooFar.ok());
  RecordCursor wayTooFar(body);
  wayTooFar.take<uint32_t>();
  wayTooFar.skip(SIZE_MAX);
  EXPECT_FALSE(wayTooFar.ok());
  EXPECT_EQ(wayTooFar.take<uint32_t>(), 0U);
}

TEST(RecordCursorTest, NumberAtAPlaceOfABuffer) {
  const BodyView body(Body().u64(1).u16(0xABCD));
  EXPECT_EQ(RecordCursor::at<uint64_t>(body, 0), 1U);
  EXPECT_EQ(RecordCursor::at<uint16_t>(body, 8), 0xABCD);
  EXPECT_EQ(RecordCursor::at<uint16_t>(body, 9), 0U);
  EXPECT_EQ(RecordCursor::at<uint16_t>(body, 10), 0U);
  EXPECT_EQ(RecordCursor::at<uint16_t>(body, SIZE_MAX), 0U);
}

}  // namespace
