// SPDX-License-Identifier: MIT
// Texts that are not what the server writes but stand for the same messages: the client does
// the same with them.
#include <gtest/gtest.h>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

using Form = std::string (*)(std::string);

std::string canonical(std::string text) { return text; }
std::string after_a_blank(std::string text) { return " " + text; }
std::string with_the_flags_twice(std::string text) { return text.insert(1, "\"flags\":9,"); }

std::string message(const std::string& to, const std::string& parameter,
                    const std::string& reference = "") {
  return R"({"flags":5,"from":"f","notification":"n","parameter":)" + parameter + reference +
         R"(,"to":")" + to + R"(","type":"notify"})";
}

constexpr char kReference[] = R"(,"reference":268435457)";

void expect_deliveries(Form form) {
  Script script;
  Recorder& first = script.receive_as("a", 1);
  Recorder& second = script.receive_as("b", 2);
  script.send(form(message("a", "1.5", kReference)));
  script.send(form(message("b", "[ 1, 2 ]", kReference)));
  script.send(form(message("1", R"({"b":"\u0041","a":{}})")));
  script.send(form(message("*", "null")));
  EXPECT_EQ(first.calls(2), (Lines{"f>*:n null 5", "f>a:n 1.5 5"}));
  EXPECT_EQ(second.calls(3),
            (Lines{"f>*:n null 5", "f>1:n {\"a\":{},\"b\":\"A\"} 5", "f>b:n [1,2] 5"}));
  script.send(form(message("c", "[ 1, 2 ]", kReference)));
  EXPECT_EQ(script.next("notify"), message("c", "[1,2]", kReference));
  script.settle({"a", "b"});
  EXPECT_EQ(first.calls().size(), 2U);
  EXPECT_EQ(second.calls().size(), 3U);
}

void expect_return_by_a_client_without_registrations(Form form) {
  Script script;
  script.receive_as("a", 1);
  script.settle({"a"});
  script.send(form(message("*", "[ 1, 2 ]")));
  EXPECT_EQ(script.next("notify"), message("*", "[1,2]"));
}

}  // namespace

TEST(Delivery, OfACanonicalText) { expect_deliveries(canonical); }

TEST(Delivery, OfAMessageBehindABlank) { expect_deliveries(after_a_blank); }

TEST(Delivery, OfAMessageWithAKeyTwice) { expect_deliveries(with_the_flags_twice); }

TEST(ReturnWithoutRegistrations, OfACanonicalText) {
  expect_return_by_a_client_without_registrations(canonical);
}

TEST(ReturnWithoutRegistrations, OfAMessageBehindABlank) {
  expect_return_by_a_client_without_registrations(after_a_blank);
}

// Of a word that lacks its end the reader takes the comma behind it for the end, and it takes
// nothing at all for null.
TEST(Delivery, OfParametersThatAreHardlyAny) {
  Script script;
  Recorder& calls = script.receive_as("a", 1);
  script.send(message("a", "fals"));
  script.send(message("a", ""));
  EXPECT_EQ(calls.calls(2), (Lines{"f>a:n false 5", "f>a:n null 5"}));
  const std::string cut_off = message("a", "fals");
  script.send(cut_off.substr(0, cut_off.find("fals") + 4));
  std::string with_terminator = message("a", "fals_");
  with_terminator[with_terminator.find('_')] = '\0';
  script.send(with_terminator);
  expect_reader_ready(script.server());
  EXPECT_EQ(calls.calls().size(), 2U);
}
