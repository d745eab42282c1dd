#include <limits>
#include <optional>
#include <type_traits>

#include <gtest/gtest.h>

#include "kestrel/TimeConverter.h"

namespace {

using kestrel::TimeConverter;

// What nextTimestamp says about one time stamp. The time starts out as a value that no test
// expects.
struct Answer {
  Answer(TimeConverter& converter, double dataTime)
      : inside(converter.nextTimestamp(dataTime, clockTime)) {}

  // The time if it is inside, or outside, of the window; else nothing.
  std::optional<double> insideAt() const {
    return inside ? std::optional(clockTime) : std::nullopt;
  }
  std::optional<double> outsideAt() const {
    return inside ? std::nullopt : std::optional(clockTime);
  }

  double clockTime = -12345.0;
  bool inside;
};

TimeConverter converterOf(double clockStart, double duration, double skew = 1.0,
                          double offset = 0.0, double base = 0.0) {
  TimeConverter converter;
  converter.setup(clockStart, duration, skew, offset, base);
  return converter;
}

TEST(TimeConverterTest, OnlyTheDestructorIsVirtual) {
  EXPECT_TRUE(std::has_virtual_destructor_v<TimeConverter>);
}

TEST(TimeConverterTest, WithoutAStartTheFirstSampleInFileOrderDefinesTimeZero) {
  TimeConverter converter = converterOf(0.0, 0.0);
  EXPECT_EQ(Answer(converter, 50.0).insideAt(), 0.0);
  EXPECT_EQ(Answer(converter, 52.5).insideAt(), 2.5);
}

TEST(TimeConverterTest, WithoutAStartALaterSampleWithAnEarlierTimeIsRejected) {
  TimeConverter converter = converterOf(0.0, 0.0);
  EXPECT_TRUE(Answer(converter, 50.0).inside);
  EXPECT_EQ(Answer(converter, 49.5).outsideAt(), -0.5);
  EXPECT_TRUE(Answer(converter, 50.0).inside);
}

TEST(TimeConverterTest, StartZeroBehavesAsIfNotGivenWhateverTheDuration) {
  TimeConverter converter = converterOf(0.0, 5.0);
  EXPECT_TRUE(Answer(converter, 50.0).inside);
  EXPECT_EQ(Answer(converter, 1000.0).insideAt(), 950.0);
}

TEST(TimeConverterTest, WithoutAStartTheConversionConstantsStillApply) {
  TimeConverter converter = converterOf(0.0, 0.0, 2.0, 3.0, 1.0);
  EXPECT_EQ(Answer(converter, 50.0).clockTime, 0.0);
  EXPECT_EQ(Answer(converter, 51.5).insideAt(), 3.0);
}

TEST(TimeConverterTest, WindowOfFiveSecondsAtHundred) {
  TimeConverter converter = converterOf(100.0, 5.0);
  EXPECT_EQ(Answer(converter, 100.0).insideAt(), 0.0);
  EXPECT_DOUBLE_EQ(Answer(converter, 104.999).insideAt().value(), 104.999 - 100.0);
  EXPECT_EQ(Answer(converter, 105.0).outsideAt(), 5.0);
  EXPECT_DOUBLE_EQ(Answer(converter, 99.9).outsideAt().value(), 99.9 - 100.0);
}

TEST(TimeConverterTest, RejectedFirstSampleDoesNotMoveTheWindow) {
  TimeConverter converter = converterOf(100.0, 5.0);
  EXPECT_FALSE(Answer(converter, 10.0).inside);
  EXPECT_FALSE(Answer(converter, 99.0).inside);
  EXPECT_EQ(Answer(converter, 101.0).clockTime, 1.0);
}

TEST(TimeConverterTest, StartWithoutADurationLeavesTheEndOpen) {
  TimeConverter converter = converterOf(100.0, 0.0);
  EXPECT_FALSE(Answer(converter, 99.999).inside);
  EXPECT_TRUE(Answer(converter, 100.0).inside);
  EXPECT_TRUE(Answer(converter, 1e12).inside);
}

TEST(TimeConverterTest, NegativeDurationLeavesTheEndOpen) {
  TimeConverter converter = converterOf(100.0, -1.0);
  EXPECT_FALSE(Answer(converter, 99.0).inside);
  EXPECT_TRUE(Answer(converter, 1e12).inside);
}

TEST(TimeConverterTest, SkewOffsetAndBaseConvertWindowAndTimes) {
  // The window starts at data time 1 + (10 - 2) / 2 = 5.
  TimeConverter converter = converterOf(10.0, 0.0, 2.0, 2.0, 1.0);
  EXPECT_FALSE(Answer(converter, 4.999).inside);
  EXPECT_EQ(Answer(converter, 5.0).insideAt(), 0.0);
  EXPECT_EQ(Answer(converter, 6.0).insideAt(), 2.0);
}

TEST(TimeConverterTest, WindowEndIsConvertedToo) {
  // Clock times 10 to 14 are data times 5 to 7.
  TimeConverter converter = converterOf(10.0, 4.0, 2.0, 2.0, 1.0);
  EXPECT_TRUE(Answer(converter, 6.999).inside);
  EXPECT_FALSE(Answer(converter, 7.0).inside);
}

TEST(TimeConverterTest, NegativeClockStartIsAStart) {
  TimeConverter converter = converterOf(-10.0, 5.0);
  EXPECT_FALSE(Answer(converter, -11.0).inside);
  EXPECT_TRUE(Answer(converter, -10.0).inside);
  EXPECT_FALSE(Answer(converter, -5.0).inside);
}

TEST(TimeConverterTest, NotANumberIsOutsideEveryWindow) {
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  TimeConverter window = converterOf(100.0, 5.0);
  EXPECT_FALSE(Answer(window, notANumber).inside);
  TimeConverter openEnd = converterOf(100.0, 0.0);
  EXPECT_FALSE(Answer(openEnd, notANumber).inside);
  TimeConverter noWindow = converterOf(0.0, 0.0);
  EXPECT_FALSE(Answer(noWindow, notANumber).inside);
}

TEST(TimeConverterTest, InfiniteTimeIsInsideAnOpenWindowOnly) {
  const double infinite = std::numeric_limits<double>::infinity();
  TimeConverter window = converterOf(100.0, 5.0);
  EXPECT_FALSE(Answer(window, infinite).inside);
  TimeConverter openEnd = converterOf(100.0, 0.0);
  EXPECT_TRUE(Answer(openEnd, infinite).inside);
  EXPECT_FALSE(Answer(openEnd, -infinite).inside);
}

// 0 stands for "not known yet", also when it is the result of the conversion.
TEST(TimeConverterTest, WindowWhoseStartIsDataTimeZeroOpensAtTheFirstSample) {
  TimeConverter converter = converterOf(10.0, 5.0, 1.0, 10.0);
  EXPECT_EQ(Answer(converter, 2.0).insideAt(), 0.0);
  EXPECT_FALSE(Answer(converter, 1.0).inside);
  EXPECT_EQ(Answer(converter, 4.0).clockTime, 2.0);
  EXPECT_FALSE(Answer(converter, 5.0).inside);
}

TEST(TimeConverterTest, WindowWhoseEndIsDataTimeZeroIsOpen) {
  TimeConverter converter = converterOf(5.0, 5.0, 1.0, 10.0);
  EXPECT_FALSE(Answer(converter, -5.5).inside);
  EXPECT_TRUE(Answer(converter, -5.0).inside);
  EXPECT_TRUE(Answer(converter, 100.0).inside);
}

TEST(TimeConverterTest, SampleAtDataTimeZeroLeavesTheStartOpen) {
  TimeConverter converter = converterOf(0.0, 0.0);
  EXPECT_TRUE(Answer(converter, 0.0).inside);
  EXPECT_EQ(Answer(converter, 5.0).insideAt(), 0.0);
  EXPECT_FALSE(Answer(converter, 4.0).inside);
}

TEST(TimeConverterTest, SetupForgetsTheWindowBefore) {
  TimeConverter converter = converterOf(100.0, 5.0);
  converter.setup(0.0, 0.0, 1.0, 0.0, 0.0);
  EXPECT_EQ(Answer(converter, 7.0).insideAt(), 0.0);
  EXPECT_TRUE(Answer(converter, 1000.0).inside);
  converter.setup(50.0, 0.0, 1.0, 0.0, 0.0);
  EXPECT_FALSE(Answer(converter, 49.0).inside);
  EXPECT_EQ(Answer(converter, 1000.0).clockTime, 950.0);
}

TEST(TimeConverterTest, ZeroSkewGivesWhatTheArithmeticGives) {
  TimeConverter converter = converterOf(10.0, 0.0, 0.0);  // the start is infinite
  EXPECT_FALSE(Answer(converter, 1e300).inside);
  EXPECT_EQ(Answer(converter, 5.0).clockTime, -10.0);
}

TEST(TimeConverterTest, BeforeSetupEverythingIsZero) {
  TimeConverter converter;
  EXPECT_EQ(Answer(converter, 5.0).insideAt(), 0.0);
  EXPECT_EQ(Answer(converter, 9.0).clockTime, 0.0);
}

}  // namespace
