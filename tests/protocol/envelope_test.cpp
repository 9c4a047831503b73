// SPDX-License-Identifier: MIT
// Reading what stands around a notification's parameter.
#include "protocol/envelope.h"

#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>

#include "json/as_written.h"

using namespace zedipc;

namespace {

constexpr char kSent[] =
    R"({"flags":3,"from":"tray","notification":"paper.out","parameter":{"tray":[2]},)"
    R"("to":"display","type":"notify"})";
constexpr char kForwarded[] =
    R"({"flags":3,"from":"tray","notification":"paper.out","parameter":{"tray":[2]},)"
    R"("reference":268435456,"to":"display","type":"notify"})";

bool read(Envelope& envelope, const std::string& text) {
  const char* const end = text.data() + text.size();
  return envelope.read(text, [end](const char* at) { return end_as_written(at, end); });
}

// If the text is read, it is what is written for its value, and the members are the
// value's. Gives whether it is.
bool expect_like_the_value(const std::string& text) {
  Envelope envelope;
  if (!read(envelope, text)) return false;
  JSObject value;
  value.parse(text.c_str());
  EXPECT_EQ(value.dump(), text);
  EXPECT_EQ(value("type").getString(), "notify");
  EXPECT_EQ(value("flags").getInt(), envelope.flags) << text;
  EXPECT_EQ(value("from").getString(), envelope.from) << text;
  EXPECT_EQ(value("notification").getString(), envelope.notification) << text;
  EXPECT_EQ(value("to").getString(), envelope.to) << text;
  EXPECT_EQ(value("parameter").dump(), std::string(envelope.parameter, envelope.parameter_end));
  EXPECT_EQ(value.exists("reference"), envelope.has_reference) << text;
  return true;
}

}  // namespace

TEST(Envelope, HasTheMembersOfAMessage) {
  const std::string text = kSent;
  Envelope envelope;
  ASSERT_TRUE(read(envelope, text));
  EXPECT_EQ(envelope.flags, 3);
  EXPECT_EQ(envelope.from, "tray");
  EXPECT_EQ(envelope.notification, "paper.out");
  EXPECT_EQ(envelope.to, "display");
  EXPECT_FALSE(envelope.has_reference);
  EXPECT_EQ(std::string(envelope.parameter, envelope.parameter_end), R"({"tray":[2]})");
}

TEST(Envelope, KnowsThatThereIsAReference) {
  const std::string text = kForwarded;
  Envelope envelope;
  ASSERT_TRUE(read(envelope, text));
  EXPECT_TRUE(envelope.has_reference);
  EXPECT_EQ(envelope.to, "display");
}

TEST(Envelope, MayHaveEmptyTexts) {
  EXPECT_TRUE(expect_like_the_value(
      R"({"flags":0,"from":"","notification":"","parameter":null,"to":"","type":"notify"})"));
}

TEST(Envelope, IsOfTheWholeText) {
  for (const std::string whole : {kSent, kForwarded}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      EXPECT_FALSE(expect_like_the_value(whole.substr(0, size))) << size;
    }
    EXPECT_FALSE(expect_like_the_value(whole + " "));
    EXPECT_FALSE(expect_like_the_value(whole + std::string(1, '\0')));
    EXPECT_FALSE(expect_like_the_value(whole + whole));
  }
}

TEST(Envelope, IsNotReadFromOtherMessages) {
  for (
      const char* text : {
          R"({"type":"register_observer"})",
          R"({"notification":"n","priority":1,"to":"t","type":"register"})",
          R"({"flags":0,"from":"f","notification":"n","parameter":0,"to":"t","type":"notifying"})",
          R"({"flags":0,"from":"f","notification":"n","to":"t","type":"notify"})",
          R"({"flags":-1,"from":"f","notification":"n","parameter":0,"to":"t","type":"notify"})",
          R"({"flags":4294967295,"from":"f","notification":"n","parameter":0,"to":"t","type":"notify"})",
          R"({"flags":99999999999,"from":"f","notification":"n","parameter":0,"to":"t","type":"notify"})",
          R"({"flags":"0","from":"f","notification":"n","parameter":0,"to":"t","type":"notify"})",
          R"({"flags":0,"from":"f","notification":"n","parameter":0,"reference":"1","to":"t","type":"notify"})",
          R"({"flags":0,"from":"a\"b","notification":"n","parameter":0,"to":"t","type":"notify"})",
          R"({"flags":0,"from":"f","notification":"n","parameter":0,"to":"t","type":"notify","z":1})",
      }) {
    EXPECT_FALSE(expect_like_the_value(text)) << text;
  }
}

// Whatever happens to one byte, the text is read as its value would be, or not at all.
TEST(Envelope, IsTheValuesAfterAnyChangeOfAByte) {
  int read_otherwise = 0;
  for (const std::string whole : {kSent, kForwarded}) {
    for (std::size_t at = 0; at < whole.size(); ++at) {
      std::string text = whole;
      for (int byte = 0; byte < 256; ++byte) {
        text[at] = static_cast<char>(byte);
        if (expect_like_the_value(text)) ++read_otherwise;
      }
      expect_like_the_value(std::string(whole).erase(at, 1));
      expect_like_the_value(std::string(whole).insert(at, 1, whole[at]));
    }
  }
  EXPECT_GT(read_otherwise, 1000);
}
