// SPDX-License-Identifier: MIT
// What comes back when a written text is read.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <climits>
#include <string>

#include "json/kinds.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// The value that comes back; the whole text must have been read.
JSObject sent(const JSObject& value) {
  const std::string text = value.dump();
  JSObject received;
  EXPECT_EQ(parse(received, text), static_cast<int>(text.size())) << text;
  return received;
}

std::string all_bytes() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

}  // namespace

TEST(RoundTrip, KeepsEveryByteOfAString) {
  EXPECT_EQ(sent(all_bytes()).getString(), all_bytes());
  for (const char byte : all_bytes()) {
    const std::string text(1, byte);
    EXPECT_EQ(sent(text).getString(), text);
  }
}

TEST(RoundTrip, KeepsEachPairOfBytes) {
  for (const char first : all_bytes()) {
    std::string text;
    for (const char second : all_bytes()) (text += first) += second;
    EXPECT_EQ(sent(text).getString(), text);
  }
}

TEST(RoundTrip, KeepsEveryByteOfAKey) {
  JSObject value;
  value(all_bytes()) = 1;
  for (const char byte : all_bytes()) value(std::string(1, byte)) = 2;
  const JSObject received = sent(value);
  EXPECT_EQ(received.dump(), value.dump());
  EXPECT_EQ(received(all_bytes()).getInt(), 1);
  for (const char byte : all_bytes()) EXPECT_TRUE(received.exists(std::string(1, byte)));
}

TEST(RoundTrip, HasNoNulByteInItsText) {
  JSObject value;
  value(all_bytes()) = all_bytes();
  EXPECT_EQ(value.dump().find('\0'), std::string::npos);
}

TEST(RoundTrip, KeepsAnEscapeThatIsPlainText) {
  for (const char* const text : {"\\u0041", "\\n", "\\\\", "\\\"", "\\101", "\\"}) {
    EXPECT_EQ(sent(text).getString(), text);
  }
}

TEST(RoundTrip, KeepsIntegers) {
  for (const int number : {0, 1, -1, 42, INT_MAX, INT_MIN}) {
    const JSObject received = sent(number);
    EXPECT_EQ(kind_of(received), Kind::kInteger);
    EXPECT_EQ(received.getInt(), number);
  }
}

TEST(RoundTrip, CutsADoubleTo16Digits) {
  const JSObject received = sent(0.1 + 0.2);
  EXPECT_EQ(received.getNumber(), 0.3);
  EXPECT_EQ(kind_of(received), Kind::kDouble);
  EXPECT_EQ(sent(0.1).getNumber(), 0.1);
}

TEST(RoundTrip, MakesAWholeDoubleAnInteger) {
  for (const double number : {100.0, 0.0, -7.0, 2147483647.0, -2147483648.0}) {
    const JSObject received = sent(number);
    EXPECT_EQ(kind_of(received), Kind::kInteger) << number;
    EXPECT_EQ(received.getNumber(), number);
  }
}

TEST(RoundTrip, KeepsAWholeDoubleOutside32BitsADouble) {
  for (const double number : {2147483648.0, -2147483649.0, 1e15, 1e21, -1e300}) {
    const JSObject received = sent(number);
    EXPECT_EQ(kind_of(received), Kind::kDouble) << number;
    EXPECT_EQ(received.getNumber(), number);
  }
}

TEST(RoundTrip, KeepsWordsAndContainers) {
  for (const char* const text :
       {"null", "true", "false", "{}", "[]", "[[],{},null]", "{\"a\":{\"b\":[1,\"c\",false]}}"}) {
    const JSObject value = parsed(text);
    const JSObject received = sent(value);
    EXPECT_EQ(kind_of(received), kind_of(value));
    EXPECT_EQ(received.dump(), text);
  }
}

TEST(RoundTrip, LosesWhatTheKindDoesNotSelect) {
  JSObject value = parsed("{\"old\":1}");
  value = "text";
  const JSObject received = sent(value);
  EXPECT_EQ(received.getString(), "text");
  EXPECT_FALSE(received.exists("old"));
}
