// SPDX-License-Identifier: MIT
// Writing the seven messages, and reading them the short way or by a value.
#include "protocol/message.h"

#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>
using namespace zedipc;

namespace {

constexpr auto kLeave = Message::Parameter::kLeave;
constexpr auto kRead = Message::Parameter::kRead;
constexpr int kIdentity = 268435456;

const std::string kOdd = "a\"b\\\n\x01\x7f/ü";

// The same members in another order, so that it takes a value to read them.
const std::string kWritten =
    R"({"flags":3,"from":"tray","notification":"paper.out","parameter":{"tray":[2]},)"
    R"("to":"display","type":"notify"})";
const std::string kOtherwise =
    R"({"type":"notify","flags":3,"from":"tray","notification":"paper.out",)"
    R"("to":"display","parameter":{"tray":[2]}})";

std::string with_reference(const std::string& text, const std::string& value) {
  std::string result = text;
  return result.insert(result.find(R"("to":)"), R"("reference":)" + value + ",");
}

std::string as_error(std::string text) {
  return text.replace(text.find(R"("notify")"), 8, R"("unicast_error")");
}

class Written : public testing::TestWithParam<std::string> {};

}  // namespace

TEST(MessageText, IsThatOfTheMembersValue) {
  JSObject parameter;
  parameter(kOdd)[1] = 1.5;
  JSObject value;
  value("flags") = 0xFFFFFFFFU;
  value("from") = kOdd;
  value("notification") = kOdd + "n";
  value("to") = kOdd + "t";
  value("type") = "notify_observer";
  const std::string to = kOdd + "t";
  const std::string name = kOdd + "n";
  const Headline headline{kOdd, to, name, 0xFFFFFFFFU};
  EXPECT_EQ(notify_observer_text(headline), value.dump());
  value("type") = "notify";
  value("parameter") = parameter;
  EXPECT_EQ(notify_text(headline, parameter), value.dump());
}

TEST(MessageText, IsThatOfTheRegistrationsValue) {
  JSObject value;
  value("to") = kOdd;
  value("notification") = "";
  value("type") = "unregister";
  EXPECT_EQ(unregister_text(kOdd, ""), value.dump());
  value("priority") = INT32_MIN;
  value("type") = "register";
  EXPECT_EQ(register_text(kOdd, "", INT32_MIN), value.dump());
}

TEST(MessageText, OfAnObserverIsATypeAlone) {
  EXPECT_EQ(register_observer_text(), R"({"type":"register_observer"})");
  EXPECT_EQ(unregister_observer_text(), R"({"type":"unregister_observer"})");
}

TEST(Message, HasItsType) {
  for (const char* const type :
       {kTypeNotify, kTypeRegister, kTypeUnregister, kTypeRegisterObserver, kTypeUnregisterObserver,
        kTypeNotifyObserver, kTypeUnicastError, "Notify"}) {
    const std::string text = std::string(R"({"type":")") + type + R"("})";
    EXPECT_EQ(Message(text, kLeave).type(), type) << text;
  }
  for (const std::string text : {"", "[", "{}", "notify", R"({"type":null})"}) {
    EXPECT_EQ(Message(text, kRead).type(), "null") << text;
  }
  const std::string text = R"({"type":{"notify":1}})";
  EXPECT_EQ(Message(text, kRead).type(), R"({"notify":1})");
}

TEST_P(Written, HasItsMembers) {
  for (const auto mode : {kLeave, kRead}) {
    const std::string text = GetParam();
    Message message(text, mode);
    EXPECT_EQ(message.type(), kTypeNotify);
    const Headline headline = message.headline();
    EXPECT_EQ(headline.from, "tray");
    EXPECT_EQ(headline.to, "display");
    EXPECT_EQ(headline.notification, "paper.out");
    EXPECT_EQ(headline.flags, 3U);
    EXPECT_EQ(message.to(), "display");
    EXPECT_EQ(message.notification(), "paper.out");
    EXPECT_EQ(message.parameter_text(), R"({"tray":[2]})");
    EXPECT_EQ(message.parameter().dump(), R"({"tray":[2]})");
    EXPECT_EQ(message.text(), kWritten);
  }
}

TEST_P(Written, IsForwardedWithAReference) {
  for (const auto mode : {kLeave, kRead}) {
    const std::string text = GetParam();
    Message message(text, mode);
    const std::string forwarded = with_reference(kWritten, std::to_string(kIdentity));
    EXPECT_EQ(message.forward_text(kTypeNotify, kIdentity), forwarded);
    EXPECT_EQ(message.forward_text(kTypeUnicastError, kIdentity), as_error(forwarded));
    EXPECT_EQ(message.reference(), kIdentity);
  }
}

TEST_P(Written, KeepsTheReferenceThatThereIs) {
  for (const auto mode : {kLeave, kRead}) {
    const std::string text = with_reference(GetParam(), "7");
    Message message(text, mode);
    EXPECT_EQ(message.forward_text(kTypeNotify, kIdentity), with_reference(kWritten, "7"));
    EXPECT_EQ(message.forward_text(kTypeUnicastError, kIdentity),
              as_error(with_reference(kWritten, "7")));
    EXPECT_EQ(message.reference(), 7);
  }
}

INSTANTIATE_TEST_SUITE_P(Message, Written, testing::Values(kWritten, kOtherwise),
                         [](const auto& text) {
                           return text.param == kWritten ? "TheShortWay" : "Otherwise";
                         });

TEST(Message, KeepsAReferenceOfAnyKind) {
  for (const std::string kind : {"null", "{}", R"("12")", "-1"}) {
    const std::string text = with_reference(kWritten, kind);
    Message message(text, kLeave);
    EXPECT_EQ(message.forward_text(kTypeNotify, kIdentity), text);
    EXPECT_EQ(message.reference(), kind == "\"12\"" ? 12 : kind == "-1" ? -1 : 0);
  }
}

TEST(Message, HasMembersOnceTheyWereRead) {
  const std::string text = R"({"type":"notify"})";
  Message message(text, kRead);
  EXPECT_EQ(message.text(), text);
  EXPECT_EQ(message.headline().to, "null");
  EXPECT_EQ(message.text(),
            R"({"flags":null,"from":null,"notification":null,"to":null,"type":"notify"})");
  EXPECT_EQ(message.parameter_text(), "null");
  EXPECT_EQ(
      message.text(),
      R"({"flags":null,"from":null,"notification":null,"parameter":null,"to":null,"type":"notify"})");
}

TEST(Message, ReadsAPriorityAsAnInteger) {
  const std::string text = R"({"notification":"n","priority":"-5","to":1,"type":"register"})";
  Message message(text, kLeave);
  EXPECT_EQ(message.type(), kTypeRegister);
  EXPECT_EQ(message.to(), "1");
  EXPECT_EQ(message.notification(), "n");
  EXPECT_EQ(message.priority(), -5);
}
