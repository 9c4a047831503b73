// SPDX-License-Identifier: MIT
// Writing values as text.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// Doubles that JSON has no text for.
constexpr double kTextless[] = {std::numeric_limits<double>::infinity(),
                                std::numeric_limits<double>::quiet_NaN()};

JSObject negative(double number) { return std::copysign(number, -1.0); }

}  // namespace

TEST(Dump, WritesTheWords) {
  EXPECT_EQ(JSObject().dump(), "null");
  EXPECT_EQ(JSObject(true).dump(), "true");
  EXPECT_EQ(JSObject(false).dump(), "false");
}

TEST(Dump, WritesIntegers) {
  EXPECT_EQ(JSObject(0).dump(), "0");
  EXPECT_EQ(JSObject(-1).dump(), "-1");
  EXPECT_EQ(JSObject(INT_MAX).dump(), "2147483647");
  EXPECT_EQ(JSObject(INT_MIN).dump(), "-2147483648");
}

TEST(Dump, WritesDoublesWithAtMost16Digits) {
  EXPECT_EQ(JSObject(0.1).dump(), "0.1");
  EXPECT_EQ(JSObject(-2.5).dump(), "-2.5");
  EXPECT_EQ(JSObject(1.0 / 3).dump(), "0.3333333333333333");
  EXPECT_EQ(JSObject(2.0 / 3).dump(), "0.6666666666666666");
  EXPECT_EQ(JSObject(0.1 + 0.2).dump(), "0.3");
}

TEST(Dump, WritesWholeDoublesWithoutAPoint) {
  EXPECT_EQ(JSObject(100.0).dump(), "100");
  EXPECT_EQ(JSObject(0.0).dump(), "0");
  EXPECT_EQ(JSObject(-0.0).dump(), "-0");
  EXPECT_EQ(JSObject(2147483648.0).dump(), "2147483648");
  EXPECT_EQ(JSObject(1e15).dump(), "1000000000000000");
}

TEST(Dump, WritesLargeAndSmallDoublesWithAnExponent) {
  EXPECT_EQ(JSObject(1e21).dump(), "1e+21");
  EXPECT_EQ(JSObject(1e16).dump(), "1e+16");
  EXPECT_EQ(JSObject(1e-5).dump(), "1e-05");
  EXPECT_EQ(JSObject(-1.5e-300).dump(), "-1.5e-300");
  EXPECT_EQ(JSObject(std::numeric_limits<double>::max()).dump(), "1.797693134862316e+308");
  EXPECT_EQ(JSObject(std::numeric_limits<double>::denorm_min()).dump(), "4.940656458412465e-324");
}

TEST(Dump, WritesNanAndInfinitiesAsPrintfDoes) {
  EXPECT_EQ(JSObject(kTextless[0]).dump(), "inf");
  EXPECT_EQ(negative(kTextless[0]).dump(), "-inf");
  EXPECT_EQ(JSObject(kTextless[1]).dump(), "nan");
  EXPECT_EQ(negative(kTextless[1]).dump(), "-nan");
}

TEST(Dump, WritesNanAndInfinitiesSoThatTheyReadAsNothingOrZero) {
  for (const double number : kTextless) {
    EXPECT_EQ(read(JSObject(number).dump()), (Outcome{0, "null"}));
    EXPECT_EQ(read(negative(number).dump()), (Outcome{1, "0"}));
  }
}

TEST(Dump, WritesNanAndInfinitiesSoThatReadingFailsThere) {
  for (const double number : kTextless) {
    JSObject value;
    value("a") = number;
    value("b") = 1;
    EXPECT_EQ(read(value.dump()), (Outcome{-1, "{\"a\":null}"}));
    value("a") = negative(number);
    EXPECT_EQ(read(value.dump()), (Outcome{-1, "{\"a\":0}"}));
    value[1] = number;
    value[2] = 2;
    EXPECT_EQ(read(value.dump()), (Outcome{-1, "[null,null]"}));
  }
}

TEST(Dump, WritesStringsInQuotes) {
  EXPECT_EQ(JSObject("text").dump(), "\"text\"");
  EXPECT_EQ(JSObject("").dump(), "\"\"");
}

TEST(Dump, EscapesWhatHasAShortEscape) {
  EXPECT_EQ(JSObject("\b\t\n\f\r\"\\").dump(), R"("\b\t\n\f\r\"\\")");
}

TEST(Dump, EscapesOtherControlBytesByTwoUpperCaseDigits) {
  EXPECT_EQ(JSObject("\x01\x1F").dump(), R"("\u0001\u001F")");
  EXPECT_EQ(JSObject("\v\x0E\x1A").dump(), R"("\u000B\u000E\u001A")");
  EXPECT_EQ(JSObject(std::string("a\0b", 3)).dump(), R"("a\u0000b")");
}

TEST(Dump, EscapesEachControlByteInOneOfTwoWays) {
  for (int byte = 0; byte < 0x20; ++byte) {
    char expected[16];
    std::snprintf(expected, sizeof expected, "\"\\u%04X\"", static_cast<unsigned>(byte));
    if (byte == '\b') std::snprintf(expected, sizeof expected, "\"\\b\"");
    if (byte == '\t') std::snprintf(expected, sizeof expected, "\"\\t\"");
    if (byte == '\n') std::snprintf(expected, sizeof expected, "\"\\n\"");
    if (byte == '\f') std::snprintf(expected, sizeof expected, "\"\\f\"");
    if (byte == '\r') std::snprintf(expected, sizeof expected, "\"\\r\"");
    EXPECT_EQ(JSObject(std::string(1, static_cast<char>(byte))).dump(), expected);
  }
}

TEST(Dump, WritesEveryOtherByteAsItIs) {
  for (int byte = 0x20; byte < 0x100; ++byte) {
    if (byte == '"' || byte == '\\') continue;
    for (const std::size_t size : {1U, 8U, 64U}) {
      const std::string text(size, static_cast<char>(byte));
      EXPECT_EQ(JSObject(text).dump(), '"' + text + '"') << byte;
    }
  }
}

TEST(Dump, KeepsUtf8AndInvalidSequences) {
  EXPECT_EQ(JSObject("\xE2\x82\xAC").dump(), "\"\xE2\x82\xAC\"");
  EXPECT_EQ(JSObject("\xFF\xC3").dump(), "\"\xFF\xC3\"");
}

TEST(Dump, KeepsRunsAroundEscapes) {
  EXPECT_EQ(JSObject("before\nbetween\tafter").dump(), R"("before\nbetween\tafter")");
  EXPECT_EQ(JSObject("\n\n").dump(), R"("\n\n")");
}

TEST(Dump, WritesEmptyContainers) {
  EXPECT_EQ(parsed("{}").dump(), "{}");
  EXPECT_EQ(parsed("[]").dump(), "[]");
  EXPECT_EQ(parsed("[[],{},[]]").dump(), "[[],{},[]]");
}

TEST(Dump, WritesNoSpaces) {
  JSObject value;
  value("a")[1] = true;
  value("b") = "x";
  EXPECT_EQ(value.dump(), "{\"a\":[null,true],\"b\":\"x\"}");
}

TEST(Dump, SortsMembersWhateverTheirOrderOfComing) {
  JSObject value;
  value("b") = 1;
  value("a") = 2;
  EXPECT_EQ(value.dump(), "{\"a\":2,\"b\":1}");
}

TEST(Dump, SortsMembersByBytes) {
  JSObject value;
  for (const char* const key : {"z", "\xFF", "B", "ab", "", "a", "\x7F", "10", "9"}) {
    value(key) = 0;
  }
  EXPECT_EQ(value.dump(),
            "{\"\":0,\"10\":0,\"9\":0,\"B\":0,\"a\":0,\"ab\":0,\"z\":0,\"\x7F\":0,\"\xFF\":0}");
}

TEST(Dump, EscapesKeys) {
  JSObject value;
  value("a\"\n\x01") = 1;
  EXPECT_EQ(value.dump(), R"({"a\"\n\u0001":1})");
}

TEST(Dump, WritesAnEmptyKey) {
  JSObject value;
  value("") = 1;
  EXPECT_EQ(value.dump(), "{\"\":1}");
}

TEST(Dump, KeepsTheOrderOfElements) { EXPECT_EQ(parsed("[3,1,2]").dump(), "[3,1,2]"); }

TEST(Dump, AppendsToAStringThatIsNotEmpty) {
  std::string out = "before ";
  parsed("{\"a\":[1]}").dump(out);
  EXPECT_EQ(out, "before {\"a\":[1]}");
  JSObject(5).dump(out, nullptr);
  EXPECT_EQ(out, "before {\"a\":[1]}5");
}

TEST(Dump, WritesNothingButWhatTheKindSelects) {
  JSObject value = parsed("{\"a\":1}");
  value = "text";
  value = 5;
  EXPECT_EQ(value.dump(), "5");
  value("b");
  EXPECT_EQ(value.dump(), "{\"a\":1,\"b\":null}");
}

TEST(Dump, WritesNothingForAKindThatDoesNotExist) {
  for (const int number : {7, 100, -1}) {
    JSObject value = parsed("[1,2,3]");
    set_kind(value[1], static_cast<Kind>(number));
    EXPECT_EQ(value.dump(), "[1,,3]");
  }
}

TEST(Dump, LeavesTheValueAsItWas) {
  const JSObject value = parsed("{\"a\":[1,{\"b\":\"c\"}]}");
  const std::string first = value.dump();
  EXPECT_EQ(value.dump(), first);
}

TEST(Dump, EscapesAByteWhereverItStands) {
  for (std::size_t size = 1; size <= 140; size += size < 20 ? 1 : 40) {
    for (std::size_t at = 0; at < size; ++at) {
      const std::string before(at, 'b');
      const std::string after(size - at - 1, '~');
      for (const char byte : {'"', '\\', '\x1F', '\0'}) {
        const std::string escaped = byte == '\x1F' ? "\\u001F"
                                    : byte == '\0' ? "\\u0000"
                                                   : std::string("\\") + byte;
        std::string expected = "\"";
        expected += before + escaped + after + "\"";
        EXPECT_EQ(JSObject(before + byte + after).dump(), expected);
      }
    }
  }
}

TEST(Dump, WritesStringsOfAnyLength) {
  for (std::size_t size = 0; size < 5000; size += size < 300 ? 1 : 97) {
    EXPECT_EQ(JSObject(std::string(size, '\xFF')).dump(), "\"" + std::string(size, '\xFF') + "\"");
  }
}

TEST(Dump, WritesLongStringsOfEscapes) {
  std::string expected = "\"";
  for (int i = 0; i < 5000; ++i) expected += "\\u0001";
  EXPECT_EQ(JSObject(std::string(5000, '\x01')).dump(), expected + "\"");
}

TEST(Dump, WritesManyElements) {
  JSObject value;
  std::string expected = "[";
  for (int i = 0; i < 5000; ++i) {
    value[i] = i - 2500;
    expected += (i == 0 ? "" : ",") + std::to_string(i - 2500);
  }
  EXPECT_EQ(value.dump(), expected + "]");
}
