// SPDX-License-Identifier: MIT
// Doubles become text, and text doubles, exactly as the system's functions do it, whatever
// the number and whatever the process has set.
#include "base/decimal.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/comma_locale.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kRounds = 20000;

std::string formatted(const char* format, int precision, double value) {
  char text[512];
  std::snprintf(text, sizeof text, format, precision, value);
  return text;
}

std::string written(double value) {
  char text[kDoubleText];
  return std::string(text, double_to_text(text, value));
}

std::uint64_t bits(double value) {
  std::uint64_t pattern;
  std::memcpy(&pattern, &value, sizeof pattern);
  return pattern;
}

double from_bits(std::uint64_t pattern) {
  double value;
  std::memcpy(&value, &pattern, sizeof value);
  return value;
}

void expect_written_as_by_printf(double value) {
  EXPECT_EQ(written(value), formatted("%.*g", 16, value));
}

// By their bits, since two zeros are equal.
void expect_read_as_by_strtod(const std::string& text) {
  EXPECT_EQ(bits(text_to_double(text.data(), text.data() + text.size())),
            bits(std::strtod(text.c_str(), nullptr)))
      << text;
}

void expect_as_by_the_system(double value) {
  expect_written_as_by_printf(value);
  for (const int precision : {0, 5, 15, 16, 17, 30}) {
    expect_read_as_by_strtod(formatted("%.*e", precision, value));
  }
}

std::mt19937_64& generator() {
  static std::mt19937_64 random(20210430);
  return random;
}

double any_finite_double() {
  for (;;) {
    const double value = from_bits(generator()());
    if (value - value == 0.0) return value;
  }
}

// The processor's rounding, for a scope.
class Rounding {
 public:
  explicit Rounding(int mode) { std::fesetround(mode); }
  ~Rounding() { std::fesetround(FE_TONEAREST); }
  Rounding(const Rounding&) = delete;
  Rounding& operator=(const Rounding&) = delete;
};

}  // namespace

TEST(Decimal, IsTheSystemsForAnyBits) {
  for (int i = 0; i < kRounds; ++i) expect_as_by_the_system(any_finite_double());
}

TEST(Decimal, IsTheSystemsForFewBits) {
  for (int i = 0; i < kRounds; ++i) {
    expect_as_by_the_system(from_bits(bits(any_finite_double()) & ~0ULL << i % 53));
  }
}

TEST(Decimal, IsTheSystemsForHalves) {
  for (int i = 0; i < kRounds; ++i) {
    expect_as_by_the_system(static_cast<double>(generator()() >> (11 + i % 50)) * 0.5);
  }
}

TEST(Decimal, IsTheSystemsForDecimalFractions) {
  for (int i = 0; i < kRounds; ++i) {
    const double value = static_cast<double>(generator()() % 1000000) / 997.0;
    expect_as_by_the_system(std::strtod(formatted("%.*f", i % 17, value).c_str(), nullptr));
  }
}

TEST(Decimal, IsWrittenAsByTheSystemNextToDecimalFractions) {
  double unit = 1.0;
  for (int decimals = 0; decimals < 9; ++decimals, unit *= 10.0) {
    for (int i = 0; i < kRounds / 10; ++i) {
      const auto digits = static_cast<double>(generator()() >> (14 + i % 50));
      double value = digits / unit;
      for (int step = 0; step < 4; ++step, value = std::nextafter(value, 0.0)) {
        expect_written_as_by_printf(value);
        expect_written_as_by_printf(-value);
      }
    }
  }
}

TEST(Decimal, IsWrittenAsByTheSystemNextToPowersOfTen) {
  double power = 1e-5;
  for (int exponent = -5; exponent < 18; ++exponent, power *= 10.0) {
    double below = power;
    double above = power;
    for (int step = 0; step < 100; ++step) {
      expect_written_as_by_printf(below);
      expect_written_as_by_printf(above);
      below = std::nextafter(below, 0.0);
      above = std::nextafter(above, HUGE_VAL);
    }
  }
}

TEST(Decimal, IsTheSystemsForDenormals) {
  for (int i = 0; i < kRounds; ++i) {
    expect_as_by_the_system(from_bits(generator()() >> (12 + i % 52)));
  }
}

TEST(Decimal, IsTheSystemsForPowersOfTwoAndTheirNeighbours) {
  for (std::uint64_t exponent = 0; exponent < 2047; ++exponent) {
    const std::uint64_t power = exponent << 52;
    expect_as_by_the_system(from_bits(power));
    expect_as_by_the_system(from_bits(power + 1));
    if (power != 0) expect_as_by_the_system(from_bits(power - 1));
  }
}

TEST(Decimal, IsTheSystemsForPowersOfTen) {
  for (int exponent = -330; exponent <= 310; ++exponent) {
    expect_read_as_by_strtod("1e" + std::to_string(exponent));
    expect_read_as_by_strtod("-9.999999999999999999e" + std::to_string(exponent));
  }
}

TEST(Decimal, IsWrittenAsByTheSystemWhereItIsNoNumber) {
  for (const double value :
       {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
        std::numeric_limits<double>::signaling_NaN()}) {
    expect_written_as_by_printf(value);
    expect_written_as_by_printf(-value);
  }
}

TEST(Decimal, IsReadAsByTheSystemFromOddForms) {
  for (const char* const text :
       {"-",    "-.",      "-.e5",   "-.5",   "-.5e1",   "5.",    "5.e1",  "1e",
        "1e+",  "1e-",     "0.0",    "-0.0",  "-0.",     "-0e",   "0e999", "-0e-99",
        "00.1", "0001.50", "1e0005", "1E5",   "1.e+",    "0.e-0", "-e5",   "1e0000",
        "9e00", "-00e1",   "0E-0",   "-0E+0", "12.0E-1", "-5e"}) {
    expect_read_as_by_strtod(text);
  }
}

TEST(Decimal, IsReadAsByTheSystemAtTheLimits) {
  for (const char* const text :
       {"1.7976931348623157e308", "1.797693134862315807e308", "1.797693134862315808e308",
        "1.7976931348623159e308", "1e309", "-1e309", "1e99999999999999999999",
        "1e-99999999999999999999", "-1e-400", "2.2250738585072014e-308", "2.2250738585072011e-308",
        "4.9406564584124654e-324", "2.4703282292062328e-324", "2.4703282292062327e-324"}) {
    expect_read_as_by_strtod(text);
  }
}

TEST(Decimal, IsReadAsByTheSystemFromManyDigits) {
  const std::string digits(1000, '9');
  expect_read_as_by_strtod("0." + digits);
  expect_read_as_by_strtod(digits + ".5");
  expect_read_as_by_strtod(digits + "e-1000");
  // Between two doubles, and then a little above.
  const std::string half = "9007199254740993.";
  expect_read_as_by_strtod(half + std::string(900, '0'));
  expect_read_as_by_strtod(half + std::string(900, '0') + "1");
}

TEST(Decimal, EndsWhereItIsSaidToEnd) {
  const std::string text = "1.25";
  EXPECT_EQ(text_to_double(text.data(), text.data() + text.size()), 1.25);
  const std::string element = "1.5]";
  EXPECT_EQ(text_to_double(element.data(), element.data() + 3), 1.5);
}

TEST(Decimal, FollowsTheProcessorsRounding) {
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    const Rounding rounding(mode);
    for (int i = 0; i < 100; ++i) expect_as_by_the_system(any_finite_double());
    expect_read_as_by_strtod("0.1");
    expect_read_as_by_strtod("-0.1");
    expect_written_as_by_printf(0.1);
    expect_written_as_by_printf(-2.0 / 3);
  }
}

TEST(Decimal, FollowsTheLocale) {
  const CommaLocale locale;
  if (!locale.installed()) GTEST_SKIP() << kNoLocale;
  EXPECT_EQ(written(1.5), "1,5");
  for (int i = 0; i < 100; ++i) expect_as_by_the_system(any_finite_double());
  expect_read_as_by_strtod("1.5");
}

TEST(Decimal, FollowsALocaleThatChanges) {
  {
    const CommaLocale locale;
    if (!locale.installed()) GTEST_SKIP() << kNoLocale;
    EXPECT_EQ(written(0.5), "0,5");
  }
  EXPECT_EQ(written(0.5), "0.5");
}
