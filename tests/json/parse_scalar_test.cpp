// SPDX-License-Identifier: MIT
// Reading words and numbers.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <climits>
#include <cmath>
#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

void expect_integer(const std::string& text, int length, int number) {
  JSObject value;
  EXPECT_EQ(parse(value, text), length) << text;
  EXPECT_EQ(kind_of(value), Kind::kInteger) << text;
  EXPECT_EQ(value.getInt(), number) << text;
}

void expect_double(const std::string& text, int length, double number) {
  JSObject value;
  EXPECT_EQ(parse(value, text), length) << text;
  EXPECT_EQ(kind_of(value), Kind::kDouble) << text;
  EXPECT_EQ(value.getNumber(), number) << text;
}

}  // namespace

TEST(ParseText, ThatIsEmptyLeavesNull) { EXPECT_EQ(read(""), (Outcome{0, "null"})); }

TEST(ParseText, OfBlanksGivesTheirNumber) {
  EXPECT_EQ(read("   "), (Outcome{3, "null"}));
  EXPECT_EQ(read(" \r\n\t"), (Outcome{4, "null"}));
}

TEST(ParseText, CountsWhiteSpaceOnBothSides) {
  EXPECT_EQ(read("  1  "), (Outcome{5, "1"}));
  EXPECT_EQ(read("\t\"a\"\r\n"), (Outcome{6, "\"a\""}));
  EXPECT_EQ(read(" [ ] "), (Outcome{5, "[]"}));
  EXPECT_EQ(read(" { } "), (Outcome{5, "{}"}));
  EXPECT_EQ(read(" true "), (Outcome{6, "true"}));
}

TEST(ParseText, TakesFourBytesAloneAsWhiteSpace) {
  for (const char* const byte : {"\v", "\f", "\x01", "\x1F", "\x7F", "\x85", "\xA0"}) {
    EXPECT_EQ(read(byte + std::string("1")), (Outcome{0, "null"}));
    EXPECT_EQ(read(std::string("1") + byte), (Outcome{1, "1"}));
  }
}

TEST(ParseText, LeavesWhatFollowsTheValueToTheCaller) {
  EXPECT_EQ(read("1 2"), (Outcome{2, "1"}));
  EXPECT_EQ(read("[1] x"), (Outcome{4, "[1]"}));
  EXPECT_EQ(read("{} }"), (Outcome{3, "{}"}));
  EXPECT_EQ(read("\"a\"\"b\""), (Outcome{3, "\"a\""}));
}

TEST(ParseText, OfLettersConsumesNothingAndIsNoError) {
  for (const char* const text : {"x", "letters", "TRUE", "Null", "tru", "nul", "fal", "nan", "inf",
                                 ",", "]", "}", ":", "'a'", "\xFF"}) {
    EXPECT_EQ(read(text), (Outcome{0, "null"})) << text;
  }
  EXPECT_EQ(read("  x"), (Outcome{2, "null"}));
}

TEST(ParseText, OfLettersLeavesAScalarAsItWas) {
  for (const char* const before : {"true", "\"text\"", "5", "2.5"}) {
    JSObject value = parsed(before);
    const Kind kind = kind_of(value);
    EXPECT_EQ(read_into(value, "x"), (Outcome{0, before}));
    EXPECT_EQ(read_into(value, ""), (Outcome{0, before}));
    EXPECT_EQ(kind_of(value), kind);
  }
}

TEST(ParseText, OfLettersEmptiesAContainerAndKeepsItsKind) {
  JSObject object = parsed("{\"a\":1}");
  EXPECT_EQ(read_into(object, "x"), (Outcome{0, "{}"}));
  JSObject array = parsed("[1]");
  EXPECT_EQ(read_into(array, " "), (Outcome{1, "[]"}));
}

TEST(ParseText, OfLettersEmptiesOldContainersOfAScalar) {
  JSObject value = parsed("{\"a\":1}");
  value = 5;
  EXPECT_EQ(read_into(value, "x"), (Outcome{0, "5"}));
  EXPECT_FALSE(value.exists("a"));
}

TEST(ParseWord, ReadsEachWord) {
  EXPECT_EQ(read("true"), (Outcome{4, "true"}));
  EXPECT_EQ(read("false"), (Outcome{5, "false"}));
  EXPECT_EQ(read("null"), (Outcome{4, "null"}));
  EXPECT_EQ(kind_of(parsed("true")), Kind::kBool);
  EXPECT_EQ(kind_of(parsed("false")), Kind::kBool);
}

TEST(ParseWord, NeedsNoEnd) {
  EXPECT_EQ(read("truex"), (Outcome{4, "true"}));
  EXPECT_EQ(read("falsex"), (Outcome{5, "false"}));
  EXPECT_EQ(read("nullx"), (Outcome{4, "null"}));
  EXPECT_EQ(read("truetrue"), (Outcome{4, "true"}));
}

TEST(ParseWord, NullReplacesWhatWasThere) {
  for (const char* const before : {"true", "\"text\"", "5", "2.5", "{\"a\":1}", "[1]"}) {
    JSObject value = parsed(before);
    EXPECT_EQ(read_into(value, "null"), (Outcome{4, "null"}));
    EXPECT_EQ(kind_of(value), Kind::kNull);
    EXPECT_FALSE(value.exists("a"));
  }
}

TEST(ParseWord, FalseIsKnownByFourBytesAndTakesFive) {
  EXPECT_EQ(read("falsy"), (Outcome{5, "false"}));
  EXPECT_EQ(read("fals "), (Outcome{5, "false"}));
  EXPECT_EQ(read("fals 1"), (Outcome{5, "false"}));
  EXPECT_EQ(read("fals]"), (Outcome{5, "false"}));
  EXPECT_EQ(read("fals  "), (Outcome{6, "false"}));
}

TEST(ParseWord, FalseCutShortAtTheEndCountsFiveBytes) {
  EXPECT_EQ(read("fals"), (Outcome{5, "false"}));
  EXPECT_EQ(read("  fals"), (Outcome{7, "false"}));
}

TEST(ParseWord, FalseCutShortEndsTheTextOfAnArray) {
  EXPECT_EQ(read("[fals"), (Outcome{-1, "[false,null]"}));
  EXPECT_EQ(read("[1,fals"), (Outcome{-1, "[1,false,null]"}));
  EXPECT_EQ(read("[[fals"), (Outcome{-1, "[[false,null]]"}));
}

TEST(ParseWord, FalseCutShortEndsTheTextOfAnObject) {
  EXPECT_EQ(read("{\"a\":fals"), (Outcome{-1, "{\"a\":false}"}));
  EXPECT_EQ(read("[{\"a\":fals"), (Outcome{-1, "[{\"a\":false}]"}));
  EXPECT_EQ(read("{\"a\":[fals"), (Outcome{-1, "{\"a\":[false,null]}"}));
}

TEST(ParseWord, FalseCutShortTakesTheByteThatFollows) {
  EXPECT_EQ(read("[fals]"), (Outcome{-1, "[false,null]"}));
  EXPECT_EQ(read("[fals,1]"), (Outcome{8, "[false,1]"}));
  EXPECT_EQ(read("[fals]]"), (Outcome{7, "[false]"}));
  EXPECT_EQ(read("{\"a\":fals}"), (Outcome{-1, "{\"a\":false}"}));
  EXPECT_EQ(read("{\"a\":fals}}"), (Outcome{11, "{\"a\":false}"}));
  EXPECT_EQ(read("{\"a\":fals\"b\":1}"), (Outcome{-1, "{\"a\":false}"}));
}

TEST(ParseNumber, ReadsIntegers) {
  expect_integer("0", 1, 0);
  expect_integer("42", 2, 42);
  expect_integer("-1", 2, -1);
  expect_integer("123456789", 9, 123456789);
  expect_integer("1234567890", 10, 1234567890);
  expect_integer("-123456789", 10, -123456789);
}

TEST(ParseNumber, ReadsLeadingZerosInBase10) {
  expect_integer("007", 3, 7);
  expect_integer("-010", 4, -10);
  expect_integer("00000000000000000000000000000000000000012", 41, 12);
  expect_integer("-0", 2, 0);
}

TEST(ParseNumber, KeepsAnIntegerWithin32Bits) {
  expect_integer("2147483647", 10, INT_MAX);
  expect_integer("-2147483648", 11, INT_MIN);
}

TEST(ParseNumber, MakesAWholeNumberOutside32BitsADouble) {
  expect_double("2147483648", 10, 2147483648.0);
  expect_double("-2147483649", 11, -2147483649.0);
  expect_double("4294967296", 10, 4294967296.0);
  expect_double("9223372036854775807", 19, 9223372036854775807.0);
}

TEST(ParseNumber, ReadsAllWholeNumbersOutside64BitsAlike) {
  const double limit = std::ldexp(1.0, 63);
  expect_double("9223372036854775808", 19, limit);
  expect_double("99999999999999999999", 20, limit);
  expect_double("-99999999999999999999", 21, -limit);
  expect_double(std::string(400, '9'), 400, limit);
}

TEST(ParseNumber, WithAPointIsADouble) {
  expect_double("1.5", 3, 1.5);
  expect_double("-0.25", 5, -0.25);
  expect_double("1.0", 3, 1.0);
  EXPECT_EQ(parsed("1.0").getInt(), 1);
}

TEST(ParseNumber, WithAnExponentIsADouble) {
  expect_double("1e2", 3, 100.0);
  expect_double("1E2", 3, 100.0);
  expect_double("1e+2", 4, 100.0);
  expect_double("25e-1", 5, 2.5);
  expect_double("1.5e3", 5, 1500.0);
  EXPECT_EQ(parsed("1e2").getInt(), 100);
}

TEST(ParseNumber, NeedsNoDigitsAfterAPoint) {
  expect_double("1.", 2, 1.0);
  expect_double("1.e2", 4, 100.0);
}

TEST(ParseNumber, NeedsNoDigitsInAnExponent) {
  expect_double("1e", 2, 1.0);
  expect_double("1e+", 3, 1.0);
  expect_double("1.5E-", 5, 1.5);
  expect_double("-e", 2, 0.0);
}

TEST(ParseNumber, NeedsNoDigitsAheadOfAPoint) {
  expect_double("-.5", 3, -0.5);
  expect_double("-.", 2, 0.0);
}

TEST(ParseNumber, OfALoneMinusIsZero) {
  expect_integer("-", 1, 0);
  expect_integer("-x", 1, 0);
  expect_integer("- 5", 2, 0);
  expect_integer("--5", 1, 0);
  expect_integer("-inf", 1, 0);
}

TEST(ParseNumber, DoesNotBeginWithAPlusOrAPoint) {
  EXPECT_EQ(read("+1"), (Outcome{0, "null"}));
  EXPECT_EQ(read(".5"), (Outcome{0, "null"}));
  EXPECT_EQ(read("e5"), (Outcome{0, "null"}));
}

TEST(ParseNumber, EndsAtTheFirstByteThatDoesNotFit) {
  expect_integer("12abc", 2, 12);
  expect_integer("1-2", 1, 1);
  expect_integer("0x1F", 1, 0);
  expect_integer("1,5", 1, 1);
  expect_double("1.5.2", 3, 1.5);
  expect_double("1e5e2", 3, 1e5);
  expect_double("1e2.5", 3, 100.0);
  expect_double("1e+-2", 3, 1.0);
}

TEST(ParseNumber, OutsideTheRangeOfADoubleGivesItsLimits) {
  expect_double("1e400", 5, HUGE_VAL);
  expect_double("-1e400", 6, -HUGE_VAL);
  expect_double("1e-400", 6, 0.0);
}

TEST(ParseNumber, KeepsTheSignOfADoubleZero) {
  EXPECT_TRUE(std::signbit(parsed("-0.0").getNumber()));
  EXPECT_EQ(read("-0.0"), (Outcome{4, "-0"}));
}
