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
  EXPECT_EQ("2.5", text(2.5, 3));
  EXPECT_EQ("100", text(100, 3));
  EXPECT_EQ("0", text(0, 3));
  EXPECT_EQ("-0", text(-0.0001, 3));
  EXPECT_EQ("1234.568", text(1234.5678, 3));
  EXPECT_EQ("0.001", text(0.001, 3));
  EXPECT_EQ("10", text(10, 1));
  EXPECT_EQ("-2.5", text(-2.5, 9));
  EXPECT_EQ("123456.789012345", text(123456.789012345, 9));
}

TEST(JsomWriterNumbers, PrecisionZeroGivesSixDigitsUntrimmed) {
  EXPECT_EQ("0.250000", text(0.25, 0));
  EXPECT_EQ("0.000000", text(0, 0));
  EXPECT_EQ("-3.000000", text(-3, 0));
}

TEST(JsomWriterNumbers, From1e16OnButNotAt1e16TheExponentNotationIsUsed) {
  EXPECT_EQ("10000000000000000", text(1e16, 3));
  EXPECT_EQ("-10000000000000000", text(-1e16, 3));
  EXPECT_EQ("1.000000e+16", text(1.0000001e16, 3));
  EXPECT_EQ("-1.000000e+16", text(-1.0000001e16, 3));
  EXPECT_EQ("1.234500e+17", text(1.2345e17, 9));
  EXPECT_EQ("1.234500e+17", text(1.2345e17, 0));
  EXPECT_EQ("1.797693e+308", text(std::numeric_limits<double>::max(), 3));
}

TEST(JsomWriterNumbers, InfinitiesAndNotANumber) {
  const long double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ("inf", text(infinity, 3));
  EXPECT_EQ("-inf", text(-infinity, 0));
  for (const int precision : {3, 0, -1, 1000000000}) {
    const std::string nan = text(std::numeric_limits<double>::quiet_NaN(), precision);
    EXPECT_TRUE(nan == "nan" || nan == "-nan") << nan;
  }
}

TEST(JsomWriterNumbers, NegativePrecisionGivesSixDigitsTrimmed) {
  for (const int precision : {-1, -2, -1000000000, INT_MIN}) {
    EXPECT_EQ("2.5", text(2.5, precision));
    EXPECT_EQ("0.333333", text(1.0 / 3, precision));
    EXPECT_EQ("7", text(7, precision));
  }
}

TEST(JsomWriterNumbers, TextOver255BytesIsCutAndTrimmedByTheLengthKept) {
  EXPECT_EQ("0.5", text(0.5, 253));  // 255 bytes, more than 254
  EXPECT_EQ("0.5" + std::string(252, '0'),
            text(0.5, 254));  // 256 bytes, cut to 255: not more than 255
  EXPECT_EQ("0.5" + std::string(252, '0'), text(0.5, 300));
  EXPECT_EQ("-12.25" + std::string(249, '0'), text(-12.25, 300));
  EXPECT_EQ("1234567", text(1234567, 250));  // cut, and still longer than 251
}

TEST(JsomWriterNumbers, HugePrecisionIsCheapAndCut) {
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ("0.5" + std::string(252, '0'), text(0.5, 1000000000));
  }
  EXPECT_EQ("0.5" + std::string(252, '0'), text(0.5, INT_MAX - 2));  // as long as an int can count
}

TEST(JsomWriterNumbers, FailedFormatWritesZero) {
  EXPECT_EQ("0", text(0.5, INT_MAX - 1));
  EXPECT_EQ("0", text(-0.5, INT_MAX - 2));
  EXPECT_EQ("0", text(0.5, INT_MAX));
}
