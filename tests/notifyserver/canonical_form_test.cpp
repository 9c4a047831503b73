// SPDX-License-Identifier: MIT
// Texts that are not what a client writes but stand for the same messages: the server does
// the same with them.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

namespace {

using Form = std::function<std::string(std::string)>;

std::string canonical(std::string text) { return text; }
std::string after_a_blank(std::string text) { return " " + text; }
std::string with_the_flags_twice(std::string text) { return text.insert(1, "\"flags\":9,"); }

std::string with_parameter(const std::string& parameter, const std::string& to) {
  const std::string text = notification(to, "n");
  return std::string(text).replace(text.find(R"({"tray":2})"), 10, parameter);
}

// Takes what the peer gets until the server has handled all that the peer has sent. A
// broadcast arrives as it was sent.
void drain(const RawPeer& peer, const std::string& name, Lines& lines) {
  peer.send_message(notification("settle", "settle"));
  for (;;) {
    std::string text = peer.receive_message();
    if (text == "<timeout>") FAIL() << name << " got no answer";
    if (text.find("settle") != std::string::npos) return;
    if (text[0] == ' ') text.erase(0, 1);
    const std::size_t twice = text.find("\"flags\":9,");
    if (twice != std::string::npos) text.erase(twice, 10);
    lines.push_back(name + ": " + text);
  }
}

// What everybody gets, and what the server logs, when a peer at `address` sends
// notifications of this form.
Lines results(const std::string& rules, const std::string& address, const Form& form) {
  ServerProcess server(rules, kAllLevels);
  ServerLog log(server);
  const RawPeer observer = join_as_observer();
  const RawPeer display = join("display", "n", 1);
  const RawPeer logger = join("logger", "n", 5);
  const RawPeer sender = RawPeer::connect("127.0.0.1", kNotifyPort, address);
  const int identity = settle(sender);
  log.forget();
  for (const char* to : {"display", "logger", "1", "*", "nobody", ""}) {
    for (const char* name : {"n", "other"}) sender.send_message(form(notification(to, name)));
  }
  for (const char* parameter : {"null", "-7", "21.5", "9.95", R"("a\"\\\n\/")", "[]", "[1,[{}]]",
                                R"({"b":1,"a":"\u0041"})"}) {
    for (const char* to : {"display", "*", "nobody"}) {
      sender.send_message(form(with_parameter(parameter, to)));
    }
  }
  for (const int reference : {identity, identity - 1, 1, 2147483647}) {
    sender.send_message(form(notification("display", "n", reference)));
    sender.send_message(form(notification("nobody", "n", reference)));
  }
  Lines lines;
  drain(sender, "sender", lines);
  drain(display, "display", lines);
  drain(logger, "logger", lines);
  drain(observer, "observer", lines);
  for (const std::string& line : log.lines()) lines.push_back("log: " + line);
  return lines;
}

void expect_same(const std::string& rules, const std::string& address) {
  const Lines expected = results(rules, address, canonical);
  EXPECT_GT(expected.size(), 100U);
  EXPECT_EQ(results(rules, address, after_a_blank), expected);
  EXPECT_EQ(results(rules, address, with_the_flags_twice), expected);
}

}  // namespace

TEST(NotCanonical, IsTheSameFromALocalPeer) { expect_same(kOpen, "127.0.0.1"); }

TEST(NotCanonical, IsTheSameFromARemotePeer) { expect_same(kOpen, kRemote); }

TEST(NotCanonical, IsTheSameFromARemotePeerThatMayNotSend) { expect_same("out * * *\n", kRemote); }
