#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/NumberText.h"

namespace {

std::string fixedText(long double value, int precision, int capacity) {
  std::vector<char> buffer(static_cast<std::size_t>(capacity) + 1, '#');
  const int length = kestrel::formatFixed(value, precision, buffer.data(), capacity);
  EXPECT_EQ(buffer.back(), '#');
  EXPECT_EQ(static_cast<std::size_t>(length), std::strlen(buffer.data()));
  return buffer.data();
}

// The same by the C library, with room for everything.
std::string printed(long double value, int precision, int capacity) {
  std::vector<char> buffer(12000);
  std::snprintf(buffer.data(), buffer.size(), "%.*Lf", precision, value);
  return std::string(buffer.data()).substr(0, static_cast<std::size_t>(capacity) - 1);
}

double randomDouble(std::mt19937_64& random) {
  for (;;) {
    const std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (std::isfinite(value)) {
      return value;
    }
  }
}

}  // namespace

TEST(NumberText, FixedTextIsWhatPrintfGives) {
  std::mt19937_64 random(20240611);
  for (int i = 0; i < 20000; ++i) {
    const int precision = static_cast<int>(random() % 45) - 2;
    const double everyday = std::ldexp(static_cast<double>(static_cast<std::int64_t>(random())),
                                       -static_cast<int>(random() % 90));
    for (const double value : {everyday, randomDouble(random)}) {
      for (const int capacity : {64, 256}) {
        ASSERT_EQ(printed(value, precision, capacity), fixedText(value, precision, capacity))
            << value << " " << precision;
      }
    }
  }
}

TEST(NumberText, ValuesWiderThanADoubleAreNotNarrowed) {
  const long double third = 1.0L / 3;
  for (const int precision : {3, 17, 25, 31}) {
    EXPECT_EQ(printed(third, precision, 256), fixedText(third, precision, 256));
  }
}

TEST(NumberText, TiesAreRoundedToEven) {
  EXPECT_EQ(fixedText(0.5, 0, 64), "0");
  EXPECT_EQ(fixedText(1.5, 0, 64), "2");
  EXPECT_EQ(fixedText(2.5, 0, 64), "2");
  EXPECT_EQ(fixedText(0.125, 2, 64), "0.12");
  EXPECT_EQ(fixedText(0.375, 2, 64), "0.38");
}

TEST(NumberText, DigitsBeyondTheBufferChangeNothingInIt) {
  std::mt19937_64 random(7);
  const double smallest = std::numeric_limits<double>::denorm_min();
  for (const int precision : {62, 63, 254, 255, 1073, 1074, 1075, 5000, 10000}) {
    for (int i = 0; i < 30; ++i) {
      const double value = i == 0 ? smallest : randomDouble(random);
      ASSERT_EQ(printed(value, precision, 64), fixedText(value, precision, 64)) << value;
      ASSERT_EQ(printed(value, precision, 256), fixedText(value, precision, 256)) << value;
    }
  }
}

TEST(NumberText, DigitsBeyondTheBufferAreNotRoundedIntoIt) {
  // About one in a thousand has 999 behind the last digit kept, and more digits after that.
  std::mt19937_64 random(11);
  for (int i = 0; i < 20000; ++i) {
    const double value = std::ldexp(static_cast<double>(random() >> 11), -250);
    ASSERT_EQ(printed(value, 1000, 64), fixedText(value, 1000, 64));
  }
}

TEST(NumberText, TextIsKeptUpToTheBufferOnly) {
  EXPECT_EQ(fixedText(std::ldexp(1.0, 203), 0, 64),
            "12855504354071922204335696738729300820177623950262342682411008");
  EXPECT_EQ(fixedText(std::ldexp(1.0, 206), 0, 64),
            "102844034832575377634685573909834406561420991602098741459288064");
  const std::string cut = "164550455732120604215496918255735050498273586563357986334860902";
  EXPECT_EQ(cut, fixedText(std::ldexp(1.0, 210), 0, 64));
}

TEST(NumberText, FailsWhenTheWholeTextCannotBeCounted) {
  EXPECT_EQ(fixedText(1, INT_MAX, 64), "0");
  EXPECT_EQ(fixedText(1, INT_MAX - 1, 64), "0");
  EXPECT_EQ(fixedText(1, INT_MAX - 2, 64), "1." + std::string(61, '0'));
}

TEST(NumberText, TrimTakesZerosAndThePointOnlyFromTextLongerThanPrecisionAndOne) {
  const auto trimmed = [](const std::string& text, int precision) {
    return text.substr(0, static_cast<std::size_t>(kestrel::trimZeros(
                              text.data(), static_cast<int>(text.size()), precision)));
  };
  EXPECT_EQ(trimmed("2.500", 3), "2.5");
  EXPECT_EQ(trimmed("2.000", 3), "2");
  EXPECT_EQ(trimmed("0", 0), "0");
  EXPECT_EQ(trimmed("000", 0), "0");
  EXPECT_EQ(trimmed("100", 0), "1");
  EXPECT_EQ(trimmed("2.0", 2), "2.0");
  EXPECT_EQ(trimmed("2.0", 1), "2");
  EXPECT_EQ(trimmed("2.0", INT_MAX), "2.0");
  EXPECT_EQ(trimmed("2.0", INT_MIN), "2");
}
