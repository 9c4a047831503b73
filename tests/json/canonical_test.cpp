// SPDX-License-Identifier: MIT
// Telling that a text is what would be written for its value.
#include "json/canonical.h"

#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>

#include "json/text_generator.h"
#include "json/texts.h"

using zedipc::end_of_canonical;
using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// How much of the text is a value in canonical form; -1 for none.
int written_size(const std::string& text) {
  const char* const end = end_of_canonical(text.data(), text.data() + text.size());
  return end == nullptr ? -1 : static_cast<int>(end - text.data());
}

// The value is told from whatever comes next.
void expect_written(const std::string& text) {
  ASSERT_EQ(parsed(text).dump(), text);
  const int size = static_cast<int>(text.size());
  EXPECT_EQ(written_size(text), size) << text;
  for (const char* next : {",", "]", "}", " ", ",\"to\":"}) {
    EXPECT_EQ(written_size(text + next), size) << text << next;
  }
}

void expect_not_written(const std::string& text) { EXPECT_EQ(written_size(text), -1) << text; }

std::string nested(int levels) {
  const auto size = static_cast<std::size_t>(levels);
  return std::string(size, '[') + std::string(size, ']');
}

}  // namespace

TEST(Canonical, AreTheSimpleValues) {
  for (const char* text : {"null", "true", "false", "\"\"", "\"paper\"", "[]", "{}"}) {
    expect_written(text);
  }
}

TEST(Canonical, AreNumbers) {
  for (const char* text : {"0", "7", "-7", "10", "999999999", "-999999999", "0.5", "-0.5", "21.5",
                           "0.1", "1e+20", "1e-07", "-1.25e+100", "0.001"}) {
    expect_written(text);
  }
}

TEST(Canonical, AreStringsWithTheirEscapes) {
  for (const char* text : {R"("a\"b")", R"("\\")", R"("\b\t\n\f\r")", "\"a/b\"", "\"\x7f\"",
                           "\"Stra\xc3\x9f\x65\"", "\"\xff\xfe\"", R"("long enough\nfor words")"}) {
    expect_written(text);
  }
}

TEST(Canonical, AreContainers) {
  for (const char* text :
       {"[1]", "[1,2.5,\"a\",null]", "[[],{}]", R"({"a":1})", R"({"":1,"a":{"b":[true]},"b":2})",
        R"({"A":1,"a":2,"aa":3})", "{\"a\":1,\"\xc3\xa4\":2}"}) {
    expect_written(text);
  }
}

TEST(NotCanonical, IsNothing) {
  for (const char* text : {"", ",", "]", "nul", "tru", "fals", "falsy", "True", "-", "."}) {
    expect_not_written(text);
  }
}

TEST(NotCanonical, IsWhiteSpace) {
  for (const char* text : {" 1", "[ 1]", "[1 ]", "[1, 2]", R"({ "a":1})", R"({"a" :1})",
                           R"({"a": 1})", "[ ]", "{ }"}) {
    expect_not_written(text);
  }
}

TEST(NotCanonical, AreNumbersThatAreWrittenOtherwise) {
  for (const char* text : {"-0", "00", "01", "-01", "1.0", "1.50", "1.", "0.0", "-0.0", "1e5",
                           "1e20", "1e+020", "0.00001", "100e-2", ".5", "9.95"}) {
    if (parsed(text).dump() == text) {
      ADD_FAILURE() << text << " is no example";
    }
    expect_not_written(text);
  }
}

TEST(NotCanonical, AreStringsThatAreWrittenOtherwise) {
  for (const char* text : {R"("\/")", R"("\u0041")", R"("\u000a")", R"("\x")", "\"\n\"", "\"\x01\"",
                           "\"open", "\"open\\", "\"open\\\"", "\"123456\n89\""}) {
    expect_not_written(text);
  }
}

TEST(NotCanonical, AreMembersInAnotherOrder) {
  for (const char* text : {R"({"b":1,"a":2})", R"({"a":1,"a":1})", R"({"aa":1,"a":2})",
                           R"({"a":1,"":2})", "{\"\xc3\xa4\":1,\"a\":2}"}) {
    expect_not_written(text);
  }
}

TEST(NotCanonical, AreContainersThatTheReaderOnlyTolerates) {
  for (const char* text :
       {"[1", "[1,", "[1,]", "[,1]", "[1 2]", "[1}", "{\"a\"}", R"({"a":})", R"({"a":1)",
        R"({"a":1,})", R"({"a":1]", R"({"a":1"b":2})", "{a:1}", "[1,x]"}) {
    expect_not_written(text);
  }
}

TEST(NotCanonical, IsAStringWithATerminator) {
  const std::string text("\"a\0b\"", 5);
  EXPECT_EQ(written_size(text), -1);
}

// Not told, though they are.
TEST(NotCanonical, IsWhatWouldTakeLongToTell) {
  for (const std::string& text : {std::string(R"("\u0001")"), std::string(R"({"a\n":1})"),
                                  std::string("1234567890"), nested(17), nested(100000)}) {
    EXPECT_EQ(parsed(text).dump(), text);
    expect_not_written(text);
  }
  expect_written(nested(16));
}

TEST(Canonical, IsNoTextThatIsWrittenOtherwise) {
  TextGenerator generator(20211103);
  int count = 0;
  for (int i = 0; i < 20000; ++i) {
    for (const std::string& text : {generator.text(), generator.damaged_text()}) {
      const int size = written_size(text);
      if (size < 0) continue;
      ++count;
      const std::string value = text.substr(0, static_cast<std::size_t>(size));
      EXPECT_EQ(parsed(value).dump(), value) << text;
    }
  }
  EXPECT_GT(count, 1000);
}

TEST(Canonical, IsWhatIsWritten) {
  TextGenerator generator(19991231);
  int count = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string text = parsed(generator.text()).dump();
    const int size = written_size(text);
    if (size < 0) continue;
    EXPECT_EQ(size, static_cast<int>(text.size())) << text;
    ++count;
  }
  EXPECT_GT(count, 10000);
}
