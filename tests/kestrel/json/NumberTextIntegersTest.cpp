// Fractional numbers of the sizes that time stamps have, against the C library.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/NumberText.h"

namespace {

std::string fixedText(double value, int precision) {
  char text[64];
  const int length = kestrel::formatFixed(value, precision, text, sizeof(text));
  EXPECT_EQ(text[length], 0);
  return {text, static_cast<std::size_t>(length)};
}

std::string trimmedText(double value, int precision) {
  char text[64];
  const int length = kestrel::formatTrimmed(value, precision, text, sizeof(text));
  return {text, static_cast<std::size_t>(length)};
}

void expectAsPrinted(double value, int precision) {
  char text[512];
  std::snprintf(text, sizeof(text), "%.*f", precision, value);
  ASSERT_EQ(fixedText(value, precision), std::string(text).substr(0, 63)) << precision;
}

void expectAsPrinted(double value) {
  for (int precision = 1; precision <= 10; ++precision) {
    expectAsPrinted(value, precision);
    expectAsPrinted(-value, precision);
  }
}

}  // namespace

TEST(NumberTextIntegers, RoundingCarriesOverThePoint) {
  EXPECT_EQ(fixedText(0.9999995000001, 6), "1.000000");
  EXPECT_EQ(fixedText(1.9999996, 6), "2.000000");
  EXPECT_EQ(fixedText(8.96, 1), "9.0");
}

TEST(NumberTextIntegers, RoundingMayTakeOneMoreDigit) {
  EXPECT_EQ(fixedText(9.9999996, 6), "10.000000");
  EXPECT_EQ(fixedText(99.96, 1), "100.0");
  EXPECT_EQ(fixedText(-999.9999999999, 9), "-1000.000000000");
}

TEST(NumberTextIntegers, TiesGoToTheEvenDigit) {
  EXPECT_EQ(fixedText(0.125, 2), "0.12");
  EXPECT_EQ(fixedText(0.375, 2), "0.38");
  EXPECT_EQ(fixedText(2.5625, 3), "2.562");
  EXPECT_EQ(fixedText(0.75, 1), "0.8");
  EXPECT_EQ(fixedText(0.25, 1), "0.2");
  EXPECT_EQ(fixedText(9.9375, 3), "9.938");
  EXPECT_EQ(fixedText(0.95, 1), "0.9");  // a little less than it says
}

TEST(NumberTextIntegers, NegativeZeroAndWhatRoundsToItKeepTheSign) {
  EXPECT_EQ(fixedText(-0.0, 6), "-0.000000");
  EXPECT_EQ(fixedText(-0.0000001, 6), "-0.000000");
  EXPECT_EQ(fixedText(-0.004, 2), "-0.00");
}

TEST(NumberTextIntegers, SmallBuffersCutTheText) {
  for (int capacity = 2; capacity <= 40; ++capacity) {
    char text[64] = {};
    const int length = kestrel::formatFixed(-1234567890.123456789, 9, text, capacity);
    EXPECT_EQ(
        std::string(text),
        std::string("-1234567890.123456717").substr(0, static_cast<std::size_t>(capacity) - 1));
    EXPECT_EQ(static_cast<std::size_t>(length), std::string(text).size());
  }
}

TEST(NumberTextIntegers, TimesAsTheDocumentHasThem) {
  EXPECT_EQ(trimmedText(12.5, 6), "12.5");
  EXPECT_EQ(trimmedText(12, 6), "12");
  EXPECT_EQ(trimmedText(0, 6), "0");
  EXPECT_EQ(trimmedText(-0.0000001, 6), "-0");
  EXPECT_EQ(trimmedText(1e16, 3), "10000000000000000");
  EXPECT_EQ(trimmedText(1.0000001e16, 3), "1.000000e+16");
  EXPECT_EQ(trimmedText(0.25, 0), "0.250000");
}

TEST(NumberTextIntegers, EveryBinaryMagnitudeAsPrinted) {
  std::mt19937_64 random(4);
  for (int exponent = -75; exponent <= 60; ++exponent) {
    expectAsPrinted(std::ldexp(1.0, exponent));
    expectAsPrinted(std::nextafter(std::ldexp(1.0, exponent), 0.0));
    for (int i = 0; i < 40; ++i) {
      expectAsPrinted(std::ldexp(1.0 + static_cast<double>(random() >> 12) * 0x1p-52, exponent));
    }
  }
}

TEST(NumberTextIntegers, TiesAndTheirNeighboursAsPrinted) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 4000; ++i) {
    // An odd number of 2^-k has k digits behind the point, the last a 5.
    const int digits = 1 + static_cast<int>(random() % 10);
    const double tie =
        std::ldexp(static_cast<double>((random() >> (24 + random() % 35)) | 1), -digits);
    for (const double value : {tie, std::nextafter(tie, 0.0), std::nextafter(tie, 1e300)}) {
      expectAsPrinted(value);
    }
  }
}

TEST(NumberTextIntegers, NinesAsPrinted) {
  for (const double whole : {0.0, 8.0, 9.0, 99.0, 1234.0, 99999.0, 4294967295.0}) {
    for (int nines = 1; nines <= 11; ++nines) {
      for (const double last : {0.4, 0.5, 0.6, 0.9}) {
        expectAsPrinted(whole + (1.0 - (1.0 - last) * std::pow(10.0, -nines)));
      }
    }
  }
}
