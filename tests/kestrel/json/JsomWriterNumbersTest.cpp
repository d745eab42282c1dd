#include <climits>
#include <limits>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"

using kestrel::JsomWriter;

namespace {

std::string text(long double value, int precision) {
  std::ostringstream out;
  JsomWriter writer(&out);
  writer.appendDouble(value, precision);
  return out.str();
}

}  // namespace

TEST(JsomWriterNumbers, ZerosAtTheEndAreTrimmed) {
  EXPECT_EQ(text(2.5, 3), "2.5");
  EXPECT_EQ(text(100, 3), "100");
  EXPECT_EQ(text(0, 3), "0");
  EXPECT_EQ(text(-0.0001, 3), "-0");
  EXPECT_EQ(text(1234.5678, 3), "1234.568");
  EXPECT_EQ(text(0.001, 3), "0.001");
  EXPECT_EQ(text(10, 1), "10");
  EXPECT_EQ(text(-2.5, 9), "-2.5");
  EXPECT_EQ(text(123456.789012345, 9), "123456.789012345");
}

TEST(JsomWriterNumbers, PrecisionZeroGivesSixDigitsUntrimmed) {
  EXPECT_EQ(text(0.25, 0), "0.250000");
  EXPECT_EQ(text(0, 0), "0.000000");
  EXPECT_EQ(text(-3, 0), "-3.000000");
}

TEST(JsomWriterNumbers, From1e16OnButNotAt1e16TheExponentNotationIsUsed) {
  EXPECT_EQ(text(1e16, 3), "10000000000000000");
  EXPECT_EQ(text(-1e16, 3), "-10000000000000000");
  EXPECT_EQ(text(1.0000001e16, 3), "1.000000e+16");
  EXPECT_EQ(text(-1.0000001e16, 3), "-1.000000e+16");
  EXPECT_EQ(text(1.2345e17, 9), "1.234500e+17");
  EXPECT_EQ(text(1.2345e17, 0), "1.234500e+17");
  EXPECT_EQ(text(std::numeric_limits<double>::max(), 3), "1.797693e+308");
}

TEST(JsomWriterNumbers, InfinitiesAndNotANumber) {
  const long double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(text(infinity, 3), "inf");
  EXPECT_EQ(text(-infinity, 0), "-inf");
  for (const int precision : {3, 0, -1, 1000000000}) {
    const std::string nan = text(std::numeric_limits<double>::quiet_NaN(), precision);
    EXPECT_TRUE(nan == "nan" || nan == "-nan") << nan;
  }
}

TEST(JsomWriterNumbers, NegativePrecisionGivesSixDigitsTrimmed) {
  for (const int precision : {-1, -2, -1000000000, INT_MIN}) {
    EXPECT_EQ(text(2.5, precision), "2.5");
    EXPECT_EQ(text(1.0 / 3, precision), "0.333333");
    EXPECT_EQ(text(7, precision), "7");
  }
}

TEST(JsomWriterNumbers, TextOver255BytesIsCutAndTrimmedByTheLengthKept) {
  EXPECT_EQ(text(0.5, 253), "0.5");  // 255 bytes, more than 254
  EXPECT_EQ(text(0.5, 254),
            "0.5" + std::string(252, '0'));  // 256 bytes, cut to 255: not more than 255
  EXPECT_EQ(text(0.5, 300), "0.5" + std::string(252, '0'));
  EXPECT_EQ(text(-12.25, 300), "-12.25" + std::string(249, '0'));
  EXPECT_EQ(text(1234567, 250), "1234567");  // cut, and still longer than 251
}

TEST(JsomWriterNumbers, HugePrecisionIsCheapAndCut) {
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(text(0.5, 1000000000), "0.5" + std::string(252, '0'));
  }
  EXPECT_EQ(text(0.5, INT_MAX - 2), "0.5" + std::string(252, '0'));  // as long as an int can count
}

TEST(JsomWriterNumbers, FailedFormatWritesZero) {
  EXPECT_EQ(text(0.5, INT_MAX - 1), "0");
  EXPECT_EQ(text(-0.5, INT_MAX - 2), "0");
  EXPECT_EQ(text(0.5, INT_MAX), "0");
}
