#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/DecimalText.h"

namespace {

// Also that nothing is written beyond the room that there must be.
std::string decimal(uint64_t value) {
  std::string text(kestrel::DECIMAL_BYTES + 1, '#');
  const char* const end = kestrel::writeDecimal(value, text.data());
  EXPECT_EQ(text.back(), '#') << value;
  return text.substr(0, static_cast<std::size_t>(end - text.data()));
}

std::string printed(uint64_t value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%" PRIu64, value);
  return text;
}

}  // namespace

TEST(DecimalText, Zero) { EXPECT_EQ(decimal(0), "0"); }

TEST(DecimalText, LargestNumber) { EXPECT_EQ(decimal(UINT64_MAX), "18446744073709551615"); }

TEST(DecimalText, NumbersAroundEveryPowerOfTen) {
  std::string zeros;
  std::string nines;
  for (uint64_t power = 1; nines.size() < 20; power *= 10) {
    EXPECT_EQ(decimal(power), "1" + zeros);
    EXPECT_EQ(decimal(power + 1), zeros.empty() ? "2" : "1" + zeros.substr(1) + "1");
    if (power > 1) {
      EXPECT_EQ(decimal(power - 1), nines);
    }
    zeros += '0';
    nines += '9';
  }
}

TEST(DecimalText, ZerosInsideStay) {
  EXPECT_EQ(decimal(100'000'000), "100000000");
  EXPECT_EQ(decimal(10'000'000'100'000'001), "10000000100000001");
  EXPECT_EQ(decimal(9'000'000'000'000'000'009), "9000000000000000009");
}

TEST(DecimalText, EveryNumberBelow100000) {
  for (uint64_t value = 0; value < 100'000; ++value) {
    ASSERT_EQ(decimal(value), printed(value));
  }
}

TEST(DecimalText, NumbersOfEveryLengthAsPrinted) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 100'000; ++i) {
    const uint64_t value = random() >> (random() % 64);
    ASSERT_EQ(decimal(value), printed(value));
  }
}
