// SPDX-License-Identifier: MIT
// Writing values for a log, with the values of chosen keys hidden.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>
#include <vector>

#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

bool hide_secret(const std::string& key) { return key == "secret"; }
bool hide_all(const std::string&) { return true; }
std::vector<std::string> seen_keys;

bool note_key(const std::string& key) {
  seen_keys.push_back(key);
  return key == "secret";
}

const std::string* growing = nullptr;
std::vector<std::string> seen_texts;

bool note_text(const std::string&) {
  seen_texts.push_back(*growing);
  return false;
}

}  // namespace

TEST(Logdump, HidesTheValueOfAChosenKey) {
  EXPECT_EQ(parsed("{\"a\":1,\"secret\":\"x\",\"z\":2}").logdump(hide_secret),
            "{\"a\":1,\"secret\":\"<<HIDDEN>>\",\"z\":2}");
}

TEST(Logdump, HidesEachKindOfValueAlike) {
  for (const char* const text : {"null", "true", "\"x\"", "5", "2.5", "{\"a\":1}", "[1]"}) {
    JSObject value;
    value("secret") = parsed(text);
    EXPECT_EQ(value.logdump(hide_secret), "{\"secret\":\"<<HIDDEN>>\"}");
  }
}

TEST(Logdump, HidesInObjectsInsideObjects) {
  EXPECT_EQ(parsed("{\"a\":{\"b\":{\"secret\":1,\"z\":2}}}").logdump(hide_secret),
            "{\"a\":{\"b\":{\"secret\":\"<<HIDDEN>>\",\"z\":2}}}");
}

TEST(Logdump, HidesInObjectsInsideArrays) {
  EXPECT_EQ(parsed("[1,[{\"secret\":[1]},2],{\"a\":[{\"secret\":2}]}]").logdump(hide_secret),
            "[1,[{\"secret\":\"<<HIDDEN>>\"},2],{\"a\":[{\"secret\":\"<<HIDDEN>>\"}]}]");
}

TEST(Logdump, HidesNoElements) {
  EXPECT_EQ(parsed("[\"secret\",1,[2]]").logdump(hide_all), "[\"secret\",1,[2]]");
}

TEST(Logdump, WritesATopLevelScalarInFull) {
  EXPECT_EQ(JSObject("secret").logdump(hide_all), "\"secret\"");
  EXPECT_EQ(JSObject(5).logdump(hide_all), "5");
  EXPECT_EQ(JSObject().logdump(hide_all), "null");
}

TEST(Logdump, KeepsKeysVisible) {
  EXPECT_EQ(parsed("{\"a\":1,\"b\\n\":{\"c\":2}}").logdump(hide_all),
            "{\"a\":\"<<HIDDEN>>\",\"b\\n\":\"<<HIDDEN>>\"}");
}

TEST(Logdump, WithAFilterThatHidesNothingIsDump) {
  const JSObject value = parsed("{\"a\":[1,{\"b\":\"c\"}],\"d\":{}}");
  EXPECT_EQ(value.logdump(hide_none), value.dump());
}

TEST(Logdump, WithoutAFilterIsDump) {
  const JSObject value = parsed("{\"a\":[1,{\"b\":\"c\"}],\"secret\":{}}");
  EXPECT_EQ(value.logdump(nullptr), value.dump());
}

TEST(Logdump, AsksOncePerKeyThatIsReached) {
  seen_keys.clear();
  const JSObject value =
      parsed("{\"b\":[{\"d\":1},\"x\"],\"a\":{\"c\":2},\"secret\":{\"hidden\":1}}");
  value.logdump(note_key);
  EXPECT_EQ(seen_keys, (std::vector<std::string>{"a", "c", "b", "d", "secret"}));
}

TEST(Logdump, AsksWithThePlainKey) {
  seen_keys.clear();
  JSObject value;
  value("a\"\n\\") = 1;
  value(std::string("\0", 1)) = 2;
  value("") = 3;
  value.logdump(note_key);
  EXPECT_EQ(seen_keys, (std::vector<std::string>{"", std::string("\0", 1), "a\"\n\\"}));
}

TEST(Logdump, ChangesNothingInTheValue) {
  const JSObject value = parsed("{\"secret\":1}");
  EXPECT_EQ(value.logdump(hide_secret), "{\"secret\":\"<<HIDDEN>>\"}");
  EXPECT_EQ(value.dump(), "{\"secret\":1}");
}

TEST(DumpWithAFilter, AppendsToAStringThatIsNotEmpty) {
  std::string out = "before ";
  parsed("[{\"secret\":1}]").dump(out, hide_secret);
  EXPECT_EQ(out, "before [{\"secret\":\"<<HIDDEN>>\"}]");
}

TEST(Logdump, HasAppendedTheKeyWhenItAsks) {
  std::string text = "log: ";
  growing = &text;
  parsed("{\"a\":[1.5],\"b\":2}").dump(text, note_text);
  EXPECT_EQ(seen_texts, (std::vector<std::string>{"log: {\"a\":", "log: {\"a\":[1.5],\"b\":"}));
}
