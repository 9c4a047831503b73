// SPDX-License-Identifier: MIT
// The getters, which convert from any kind and never fail.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// All getters of numbers at once.
void expect_numbers(const JSObject& value, double number, int integer, long long wide, bool truth) {
  EXPECT_EQ(value.getNumber(), number) << value.dump();
  EXPECT_EQ(value.getInt(), integer) << value.dump();
  EXPECT_EQ(value.getInt64(), wide) << value.dump();
  EXPECT_EQ(value.getBool(), truth) << value.dump();
}

}  // namespace

TEST(Conversion, OfNullGivesZeros) { expect_numbers(JSObject(), 0.0, 0, 0, false); }

TEST(Conversion, OfABoolGivesZeroOrOne) {
  expect_numbers(JSObject(true), 1.0, 1, 1, true);
  expect_numbers(JSObject(false), 0.0, 0, 0, false);
}

TEST(Conversion, OfAnIntegerGivesIt) {
  expect_numbers(JSObject(0), 0.0, 0, 0, false);
  expect_numbers(JSObject(42), 42.0, 42, 42, true);
  expect_numbers(JSObject(INT_MAX), 2147483647.0, INT_MAX, 2147483647LL, true);
}

TEST(Conversion, OfANegativeIntegerKeepsTheSignInEachWidth) {
  expect_numbers(JSObject(-1), -1.0, -1, -1, true);
  expect_numbers(JSObject(INT_MIN), -2147483648.0, INT_MIN, -2147483648LL, true);
}

TEST(Conversion, OfADoubleCutsTowardsZero) {
  expect_numbers(JSObject(1.9), 1.9, 1, 1, true);
  expect_numbers(JSObject(-1.9), -1.9, -1, -1, true);
  expect_numbers(JSObject(0.5), 0.5, 0, 0, true);
  expect_numbers(JSObject(-0.5), -0.5, 0, 0, true);
}

TEST(Conversion, OfADoubleZeroIsFalse) {
  expect_numbers(JSObject(0.0), 0.0, 0, 0, false);
  expect_numbers(JSObject(-0.0), 0.0, 0, 0, false);
}

TEST(Conversion, OfADoubleOutside32BitsGivesTheNearestLimit) {
  expect_numbers(JSObject(2147483647.5), 2147483647.5, INT_MAX, 2147483647LL, true);
  expect_numbers(JSObject(2147483648.0), 2147483648.0, INT_MAX, 2147483648LL, true);
  expect_numbers(JSObject(-2147483648.5), -2147483648.5, INT_MIN, -2147483648LL, true);
  expect_numbers(JSObject(-2147483649.0), -2147483649.0, INT_MIN, -2147483649LL, true);
  expect_numbers(JSObject(4294967297.0), 4294967297.0, INT_MAX, 4294967297LL, true);
}

TEST(Conversion, OfADoubleOutside64BitsGivesTheNearestLimit) {
  const double limit = std::ldexp(1.0, 63);
  expect_numbers(JSObject(limit), limit, INT_MAX, LLONG_MAX, true);
  expect_numbers(JSObject(-limit), -limit, INT_MIN, LLONG_MIN, true);
  expect_numbers(JSObject(1e300), 1e300, INT_MAX, LLONG_MAX, true);
  expect_numbers(JSObject(-1e300), -1e300, INT_MIN, LLONG_MIN, true);
}

TEST(Conversion, OfADoubleJustInside64BitsGivesIt) {
  const double below = std::nextafter(std::ldexp(1.0, 63), 0.0);
  EXPECT_EQ(JSObject(below).getInt64(), 9223372036854774784LL);
  EXPECT_EQ(JSObject(-below).getInt64(), -9223372036854774784LL);
}

TEST(Conversion, OfAnInfinityGivesTheNearestLimit) {
  expect_numbers(JSObject(kInfinity), kInfinity, INT_MAX, LLONG_MAX, true);
  expect_numbers(JSObject(-kInfinity), -kInfinity, INT_MIN, LLONG_MIN, true);
}

TEST(Conversion, OfNanGivesZeroAndTrue) {
  const JSObject value = kNan;
  EXPECT_TRUE(std::isnan(value.getNumber()));
  EXPECT_EQ(value.getInt(), 0);
  EXPECT_EQ(value.getInt64(), 0);
  EXPECT_TRUE(value.getBool());
}

TEST(Conversion, OfAnObjectGivesZeros) {
  expect_numbers(parsed("{}"), 0.0, 0, 0, false);
  expect_numbers(parsed("{\"1\":1}"), 0.0, 0, 0, false);
}

TEST(Conversion, OfAnArrayGivesZeros) {
  expect_numbers(parsed("[]"), 0.0, 0, 0, false);
  expect_numbers(parsed("[1]"), 0.0, 0, 0, false);
}

TEST(Conversion, LooksAtTheKindAlone) {
  JSObject value = 5;
  value = true;
  value = "7";
  value = 2.5;
  value("member");
  expect_numbers(value, 0.0, 0, 0, false);
  value[0];
  expect_numbers(value, 0.0, 0, 0, false);
  set_kind(value, Kind::kNull);
  expect_numbers(value, 0.0, 0, 0, false);
}

TEST(ConversionOfAString, ReadsANumber) {
  expect_numbers("12", 12.0, 12, 12, true);
  expect_numbers("-3", -3.0, -3, -3, true);
  expect_numbers("+5", 5.0, 5, 5, true);
}

TEST(ConversionOfAString, StopsAtTheFirstByteThatIsNotTaken) {
  expect_numbers("12abc", 12.0, 12, 12, true);
  expect_numbers("1.9", 1.9, 1, 1, true);
  expect_numbers("1e3", 1000.0, 1, 1, true);
  expect_numbers(std::string("12\0345", 5), 12.0, 12, 12, true);
}

TEST(ConversionOfAString, OfLettersOrNothingGivesZero) {
  expect_numbers("abc", 0.0, 0, 0, false);
  expect_numbers("", 0.0, 0, 0, false);
  expect_numbers("-", 0.0, 0, 0, false);
}

TEST(ConversionOfAString, SkipsWhiteSpaceAheadOfANumber) {
  expect_numbers(" \t\n\v\f\r12", 12.0, 12, 12, true);
}

TEST(ConversionOfAString, ReadsIntegersInBase10) {
  expect_numbers("010", 10.0, 10, 10, true);
  expect_numbers("0x10", 16.0, 0, 0, true);  // strtod alone knows this form
}

TEST(ConversionOfAString, KeepsTheLimitsOf32Bits) {
  expect_numbers("2147483647", 2147483647.0, INT_MAX, 2147483647LL, true);
  expect_numbers("-2147483648", -2147483648.0, INT_MIN, -2147483648LL, true);
}

TEST(ConversionOfAString, OutsideOf32BitsGivesTheNearestLimit) {
  expect_numbers("2147483648", 2147483648.0, INT_MAX, 2147483648LL, true);
  expect_numbers("-2147483649", -2147483649.0, INT_MIN, -2147483649LL, true);
  expect_numbers("4294967296", 4294967296.0, INT_MAX, 4294967296LL, true);
  expect_numbers("9223372036854775807", 9223372036854775808.0, INT_MAX, LLONG_MAX, true);
}

TEST(ConversionOfAString, OutsideOf64BitsGivesTheNearestLimit) {
  expect_numbers("99999999999999999999", 1e20, INT_MAX, LLONG_MAX, true);
  expect_numbers("-99999999999999999999", -1e20, INT_MIN, LLONG_MIN, true);
}

TEST(ConversionOfAString, IsTrueForTheWordInAnyCase) {
  for (const char* const text : {"true", "TRUE", "True", "tRuE"}) {
    EXPECT_TRUE(JSObject(text).getBool()) << text;
    EXPECT_EQ(JSObject(text).getInt(), 0) << text;
  }
}

TEST(ConversionOfAString, IsTrueForANumberOtherThanZero) {
  for (const char* const text : {"1", "2", "-1", "0.5", "1e3", "0001", "1 apple", "inf", "nan"}) {
    EXPECT_TRUE(JSObject(text).getBool()) << text;
  }
}

TEST(ConversionOfAString, IsFalseForAnythingElse) {
  for (const char* const text : {"false", "FALSE", "no", "yes", "0", "0.0", "-0", "0e5", "", " ",
                                 "truex", " true", "true ", "tru", "x1"}) {
    EXPECT_FALSE(JSObject(text).getBool()) << text;
  }
}

TEST(GetString, GivesAStringAsItIs) {
  EXPECT_EQ(JSObject("a\"b\\").getString(), "a\"b\\");
  EXPECT_EQ(JSObject(std::string("a\0b", 3)).getString(), std::string("a\0b", 3));
  EXPECT_EQ(JSObject("").getString(), "");
}

TEST(GetString, GivesTheTextOfAnyOtherKind) {
  EXPECT_EQ(JSObject().getString(), "null");
  EXPECT_EQ(JSObject(true).getString(), "true");
  EXPECT_EQ(JSObject(false).getString(), "false");
  EXPECT_EQ(JSObject(-7).getString(), "-7");
  EXPECT_EQ(JSObject(2.5).getString(), "2.5");
  EXPECT_EQ(parsed("{\"a\":\"b\"}").getString(), "{\"a\":\"b\"}");
  EXPECT_EQ(parsed("[\"a\",1]").getString(), "[\"a\",1]");
}

TEST(GetStringP, GivesTheTextInPlace) {
  JSObject value = "text";
  std::string* const text = value.getStringP();
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(*text, "text");
  *text += " and more";
  EXPECT_EQ(value.getString(), "text and more");
}

TEST(GetStringP, GivesTheSamePlaceFromAConstValue) {
  JSObject value = "text";
  const JSObject& constant = value;
  const std::string* const text = constant.getStringP();
  EXPECT_EQ(text, value.getStringP());
}

TEST(GetStringP, GivesNothingForAnyOtherKind) {
  for (JSObject value :
       {JSObject(), JSObject(true), JSObject(1), JSObject(1.5), parsed("{}"), parsed("[\"a\"]")}) {
    const JSObject& constant = value;
    EXPECT_EQ(value.getStringP(), nullptr) << value.dump();
    EXPECT_EQ(constant.getStringP(), nullptr) << value.dump();
  }
}

TEST(GetStringP, GivesNothingForAnOldString) {
  JSObject value = "text";
  value = 5;
  EXPECT_EQ(value.getStringP(), nullptr);
}
