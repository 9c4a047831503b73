// SPDX-License-Identifier: MIT
// Reading strings and undoing their escapes.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// What the bytes `inside` quotes stand for.
std::string unescaped(const std::string& inside) {
  JSObject value;
  const std::string text = '"' + inside + '"';
  EXPECT_EQ(parse(value, text), static_cast<int>(text.size())) << text;
  EXPECT_EQ(kind_of(value), Kind::kString) << text;
  return value.getString();
}

// A string with NUL bytes from its literal.
template <std::size_t kSize>
std::string bytes(const char (&literal)[kSize]) {
  return std::string(literal, kSize - 1);
}

}  // namespace

TEST(ParseString, ReadsWhatIsBetweenTheQuotes) {
  EXPECT_EQ(unescaped("text"), "text");
  EXPECT_EQ(unescaped(""), "");
  EXPECT_EQ(unescaped(" { [ , "), " { [ , ");
}

TEST(ParseString, KeepsRawControlBytes) {
  EXPECT_EQ(unescaped("a\nb\r\tc\x01\x1F"), "a\nb\r\tc\x01\x1F");
}

TEST(ParseString, KeepsBytesFrom7FUp) {
  EXPECT_EQ(unescaped("\x7F\x80\xC3\xA9\xFF"), "\x7F\x80\xC3\xA9\xFF");
}

TEST(ParseString, ReplacesAnOldString) {
  JSObject value = "an old text";
  EXPECT_EQ(read_into(value, "\"new\""), (Outcome{5, "\"new\""}));
}

TEST(ParseString, WithoutItsEndFailsAndKeepsTheOldString) {
  JSObject value = "old";
  EXPECT_EQ(read_into(value, "\"new"), (Outcome{-1, "\"old\""}));
  value = 5;
  EXPECT_EQ(read_into(value, "\""), (Outcome{-1, "\"old\""}));
  EXPECT_EQ(kind_of(value), Kind::kString);
}

TEST(ParseString, WithoutItsEndEmptiesAContainer) {
  JSObject value = parsed("{\"a\":1}");
  EXPECT_EQ(read_into(value, "\"new"), (Outcome{-1, "\"\""}));
  EXPECT_FALSE(value.exists("a"));
}

TEST(ParseString, IsNotEndedByAnEscapedQuote) {
  EXPECT_EQ(read("\"a\\\""), (Outcome{-1, "\"\""}));
  EXPECT_EQ(unescaped("a\\\"b"), "a\"b");
}

TEST(ParseString, IsEndedByAQuoteAfterAnEscapedBackslash) { EXPECT_EQ(unescaped("a\\\\"), "a\\"); }

TEST(ParseString, IsReadToItsEndWhateverItsLength) {
  for (std::size_t size = 0; size < 200; ++size) {
    const std::string text(size, '\xFF');
    EXPECT_EQ(read("\"" + text), (Outcome{-1, "\"\""}));
    EXPECT_EQ(read("\"" + text + "\"~"), (Outcome{static_cast<int>(size) + 2, "\"" + text + "\""}));
    EXPECT_EQ(unescaped(text + "\\\"" + text), text + "\"" + text);
  }
}

TEST(ParseString, WithABackslashAtTheEndOfTheTextFails) {
  EXPECT_EQ(read("\"a\\"), (Outcome{-1, "\"\""}));
  EXPECT_EQ(read("\"\\"), (Outcome{-1, "\"\""}));
  EXPECT_EQ(read("[\"\\"), (Outcome{-1, "[\"\"]"}));
}

TEST(Unescape, KnowsTheShortEscapes) {
  EXPECT_EQ(unescaped("\\b\\f\\n\\r\\t"), "\b\f\n\r\t");
  EXPECT_EQ(unescaped("\\\"\\\\\\/"), "\"\\/");
}

TEST(Unescape, GivesTheByteAfterTheBackslashForAnyOther) {
  EXPECT_EQ(unescaped("\\q\\a\\v\\8\\9\\x41\\U0041\\N\\ \\\xFF"), "qav89x41U0041N \xFF");
  EXPECT_EQ(unescaped("a\\\nb"), "a\nb");
}

TEST(Unescape, KeepsWhatStandsAroundAnEscape) {
  EXPECT_EQ(unescaped("before\\nbetween\\tafter"), "before\nbetween\tafter");
}

TEST(Unescape, ReadsFourHexadecimalDigits) {
  EXPECT_EQ(unescaped("\\u0041"), "A");
  EXPECT_EQ(unescaped("\\u004a\\u004A1"), "JJ1");
}

TEST(Unescape, WritesOneByteBelow80) { EXPECT_EQ(unescaped("\\u0001\\u007F"), "\x01\x7F"); }

TEST(Unescape, WritesTwoBytesBelow800) {
  EXPECT_EQ(unescaped("\\u0080"), "\xC2\x80");
  EXPECT_EQ(unescaped("\\u00e9"), "\xC3\xA9");
  EXPECT_EQ(unescaped("\\u07FF"), "\xDF\xBF");
}

TEST(Unescape, WritesThreeBytesFrom800Up) {
  EXPECT_EQ(unescaped("\\u0800"), "\xE0\xA0\x80");
  EXPECT_EQ(unescaped("\\u20AC"), "\xE2\x82\xAC");
  EXPECT_EQ(unescaped("\\uFFFF"), "\xEF\xBF\xBF");
}

TEST(Unescape, WritesThreeBytesForEachHalfOfASurrogatePair) {
  EXPECT_EQ(unescaped("\\uD83D\\uDE00"), "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(unescaped("\\uDE00"), "\xED\xB8\x80");
  EXPECT_EQ(unescaped("\\uD83Dx"), "\xED\xA0\xBDx");
}

TEST(Unescape, GivesANulByteForACodeOfZero) {
  EXPECT_EQ(unescaped("a\\u0000b"), bytes("a\0b"));
  EXPECT_EQ(unescaped("\\u0000"), bytes("\0"));
}

TEST(Unescape, LosesTheBytesAfterTheHexadecimalDigits) {
  EXPECT_EQ(unescaped("\\u41xyz"), "Az");
  EXPECT_EQ(unescaped("\\u41 yz"), "Az");
  EXPECT_EQ(unescaped("\\uzzzz!"), bytes("\0!"));
}

TEST(Unescape, ReadsHexadecimalDigitsAsTheSystemDoes) {
  EXPECT_EQ(unescaped("\\u  41"), "A");
  EXPECT_EQ(unescaped("\\u+041"), "A");
  EXPECT_EQ(unescaped("\\u0x41"), "A");
  EXPECT_EQ(unescaped("\\u-001"), "\xFF\xBF\xBF");
}

TEST(Unescape, KeepsTheLetterOfAHexadecimalEscapeThatIsCutOff) {
  EXPECT_EQ(unescaped("\\u"), "u");
  EXPECT_EQ(unescaped("\\u0"), "u0");
  EXPECT_EQ(unescaped("\\u004"), "u004");
  EXPECT_EQ(unescaped("a\\u041"), "au041");
}

TEST(Unescape, ReadsThreeOctalDigits) {
  EXPECT_EQ(unescaped("\\101"), "A");
  EXPECT_EQ(unescaped("\\1012"), "A2");
  EXPECT_EQ(unescaped("\\377"), "\xFF");
}

TEST(Unescape, LosesTheUpperBitsOfAnOctalNumber) {
  EXPECT_EQ(unescaped("\\777"), "\xFF");
  EXPECT_EQ(unescaped("\\501"), "A");
  EXPECT_EQ(unescaped("\\400"), bytes("\0"));
}

TEST(Unescape, LosesTheBytesAfterTheOctalDigits) {
  EXPECT_EQ(unescaped("\\0ab"), bytes("\0"));
  EXPECT_EQ(unescaped("\\18z!"), "\x01!");
  EXPECT_EQ(unescaped("\\12z"), "\n");
}

TEST(Unescape, KeepsTheDigitOfAnOctalEscapeThatIsCutOff) {
  EXPECT_EQ(unescaped("\\0"), "0");
  EXPECT_EQ(unescaped("\\10"), "10");
  EXPECT_EQ(unescaped("a\\7"), "a7");
}

TEST(Unescape, TakesABackslashAsOneOfTheDigits) {
  EXPECT_EQ(unescaped("\\u000\\\""), bytes("\0\""));
  EXPECT_EQ(unescaped("\\0a\\n"), bytes("\0n"));
}

TEST(Unescape, KeepsABackslashThatIsLeftAtTheEnd) {
  EXPECT_EQ(unescaped("\\u000\\\\"), bytes("\0\\"));
  EXPECT_EQ(unescaped("\\0a\\\\"), bytes("\0\\"));
}

TEST(Unescape, CutsTheTextToWhatIsLeft) { EXPECT_EQ(unescaped("\\u0041\\u0042\\103").size(), 3U); }
