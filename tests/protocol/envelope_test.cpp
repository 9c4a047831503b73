// SPDX-License-Identifier: MIT
// Reading what stands around a notification's parameter.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>

#include "protocol/message.h"

using namespace zedipc;

namespace {

constexpr char kSent[] =
    R"({"flags":3,"from":"tray","notification":"paper.out","parameter":{"tray":[2]},)"
    R"("to":"display","type":"notify"})";
constexpr char kForwarded[] =
    R"({"flags":3,"from":"tray","notification":"paper.out","parameter":{"tray":[2]},)"
    R"("reference":268435456,"to":"display","type":"notify"})";

constexpr char kOddWord[] =
    R"({"flags":3,"from":"tray","notification":"paper.out","parameter":falsy,"to":"display",)"
    R"("type":"notify"})";

// What was read are the value's members.
void expect_members(const Envelope& envelope, JSObject& value, const std::string& text) {
  EXPECT_EQ(value("type").getString(), "notify") << text;
  EXPECT_EQ(value("flags").getInt(), envelope.flags) << text;
  EXPECT_EQ(value("from").getString(), envelope.from) << text;
  EXPECT_EQ(value("notification").getString(), envelope.notification) << text;
  EXPECT_EQ(value("to").getString(), envelope.to) << text;
  EXPECT_EQ(value.exists("reference"), envelope.has_reference) << text;
  if (!envelope.has_reference) return;
  EXPECT_EQ(value("reference").getInt(), envelope.reference) << text;
}

// If the text is read, by the server's way or the client's, this is like reading its value.
// Gives whether the server's way reads it.
bool expect_like_the_value(const std::string& text) {
  JSObject value;
  value.parse(text.c_str());
  Envelope with_value;
  JSObject parameter;
  if (with_value.read(text, &parameter)) {
    expect_members(with_value, value, text);
    EXPECT_EQ(value("parameter").dump(), parameter.dump()) << text;
  }
  Envelope envelope;
  if (!envelope.read(text)) return false;
  EXPECT_EQ(value.dump(), text);
  expect_members(envelope, value, text);
  EXPECT_EQ(value("parameter").dump(), std::string(envelope.parameter, envelope.parameter_end));
  return true;
}

}  // namespace

TEST(Envelope, HasTheMembersOfAMessage) {
  const std::string text = kSent;
  Envelope envelope;
  ASSERT_TRUE(envelope.read(text));
  EXPECT_EQ(envelope.flags, 3);
  EXPECT_EQ(envelope.from, "tray");
  EXPECT_EQ(envelope.notification, "paper.out");
  EXPECT_EQ(envelope.to, "display");
  EXPECT_FALSE(envelope.has_reference);
  EXPECT_EQ(std::string(envelope.parameter, envelope.parameter_end), R"({"tray":[2]})");
}

TEST(Envelope, HasTheReferenceThatThereIs) {
  const std::string text = kForwarded;
  Envelope envelope;
  ASSERT_TRUE(envelope.read(text));
  EXPECT_TRUE(envelope.has_reference);
  EXPECT_EQ(envelope.reference, 268435456);
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

TEST(Envelope, MayHaveAParameterThatIsWrittenOtherwise) {
  const std::string text =
      R"({"flags":0,"from":"f","notification":"n","parameter":[1, "\u0041"] ,"to":"t",)"
      R"("type":"notify"})";
  Envelope envelope;
  EXPECT_FALSE(envelope.read(text));
  JSObject parameter;
  EXPECT_TRUE(envelope.read(text, &parameter));
  EXPECT_EQ(parameter.dump(), R"([1,"A"])");
}

// The reader takes the byte behind such a word for its last letter, a terminator too.
TEST(Envelope, EndsWithAWordThatATerminatorCutsOff) {
  std::string text =
      R"({"flags":0,"from":"f","notification":"n","parameter":fals_,"to":"t","type":"notify"})";
  JSObject parameter;
  EXPECT_TRUE(Envelope().read(text, &parameter));
  text[text.find('_')] = '\0';
  EXPECT_FALSE(Envelope().read(text, &parameter));
  expect_like_the_value(text);
}

// Whatever happens to one byte, the text is read as its value would be, or not at all.
TEST(Envelope, IsTheValuesAfterAnyChangeOfAByte) {
  int read_otherwise = 0;
  for (const std::string whole : {kSent, kForwarded, kOddWord}) {
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
