// SPDX-License-Identifier: MIT
// Messages meant to harm, and many sessions at once. The server goes on serving.
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/instrumented.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;

namespace {

// What a slow machine may take for such a message, with a sanitizer at that.
constexpr int kPatience = 40000;

// What a server may take after large messages, beside what it took before them.
constexpr std::size_t kEnough = 4U << 20;

// `head`, then as much of `unit` as a message can hold.
std::string filled(const std::string& head, const std::string& unit) {
  std::string text = head;
  while (text.size() < kLimit) text += unit;
  text.resize(kLimit);
  return text;
}

// A sanitizer takes its time with the largest size; a quarter is too deep for a stack too.
constexpr std::size_t kLargest = kLimit / (kInstrumented ? 4 : 1);

// A well-formed message of about the largest size, with a parameter nested in arrays or
// objects.
std::string nested(const std::string& head, const std::string& open, const std::string& close) {
  const std::size_t depth = (kLargest - head.size() - 40) / (open.size() + close.size());
  std::string text = head;
  for (std::size_t i = 0; i < depth; ++i) text += open;
  text += "1";
  for (std::size_t i = 0; i < depth; ++i) text += close;
  return text + "}";
}

// Shows that the server serves a session of old and a new one.
void expect_serving(const RawPeer& old) {
  old.send_message(notification("*", "alive"));
  EXPECT_EQ(old.receive_message(kPatience), notification("*", "alive"));
  settle(RawPeer::connect());
}

// Sends the text, and shows that its sender and others are served on. `environment`
// decides what the server does with a parameter.
void expect_harmless(const std::string& text, const Environment& environment = {}) {
  ServerProcess server(environment);
  const RawPeer old = join("old", "alive");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(text);
  settle(sender, kPatience);
  expect_serving(old);
}

// The process's memory that is not swapped out, in bytes.
std::size_t resident(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/statm");
  std::size_t size = 0;
  std::size_t pages = 0;
  in >> size >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

const std::string kBroadcast =
    R"({"type":"notify","to":"*","notification":"n","from":"x","flags":0,"parameter":)";
const std::string kUnicast =
    R"({"type":"notify","to":"t","notification":"n","from":"x","flags":0,"parameter":)";

}  // namespace

TEST(Hostile, BracketsAreAnOrdinaryBadMessage) { expect_harmless(filled("", "[")); }

TEST(Hostile, BracesAreAnOrdinaryBadMessage) { expect_harmless(filled("", R"({"a":)")); }

TEST(Hostile, BracketsInAParameterAreHarmlessInABroadcast) {
  expect_harmless(filled(kBroadcast, "["));
}

TEST(Hostile, BracesInAParameterAreHarmlessInABroadcast) {
  expect_harmless(filled(kBroadcast, R"({"a":)"));
}

TEST(Hostile, BracketsInAParameterAreHarmlessInTheLog) {
  expect_harmless(filled(kBroadcast, "["), kInfos);
}

TEST(Hostile, BracesInAParameterAreHarmlessInTheLog) {
  expect_harmless(filled(kBroadcast, R"({"a":)"), kInfos);
}

TEST(Hostile, BracketsInAParameterAreWrittenAnewInAUnicast) {
  ServerProcess server;
  const RawPeer receiver = join("t", "n");
  const RawPeer old = join("old", "alive");
  const int identity = settle(old);
  old.send_message(filled(kUnicast, "["));
  const std::string text = receiver.receive_message(kPatience);
  const std::string head = R"({"flags":0,"from":"x","notification":"n","parameter":[[)";
  const std::string tail =
      R"(]],"reference":)" + std::to_string(identity) + R"(,"to":"t","type":"notify"})";
  EXPECT_GT(text.size(), kLimit);
  EXPECT_EQ(text.substr(0, head.size()), head);
  EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
  expect_serving(old);
}

TEST(Hostile, BracesInAParameterAreWrittenAnewInAUnicastError) {
  ServerProcess server;
  const RawPeer old = join("old", "alive");
  const int identity = settle(old);
  old.send_message(filled(kUnicast, R"({"a":)"));
  const std::string text = old.receive_message(kPatience);
  const std::string head = R"({"flags":0,"from":"x","notification":"n","parameter":{"a":{"a":)";
  const std::string tail =
      R"(}},"reference":)" + std::to_string(identity) + R"(,"to":"t","type":"unicast_error"})";
  EXPECT_GT(text.size(), kLimit);
  EXPECT_EQ(text.substr(0, head.size()), head);
  EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
  expect_serving(old);
}

TEST(Hostile, NestedArraysArriveWhole) {
  ServerProcess server;
  const RawPeer receiver = join("t", "n");
  const int identity = settle(receiver);
  const std::string sent = nested(kUnicast, "[", "]");
  receiver.send_message(sent);
  const std::string parameter = sent.substr(kUnicast.size(), sent.size() - kUnicast.size() - 1);
  EXPECT_EQ(receiver.receive_message(kPatience),
            R"({"flags":0,"from":"x","notification":"n","parameter":)" + parameter +
                R"(,"reference":)" + std::to_string(identity) + R"(,"to":"t","type":"notify"})");
}

// A sanitizer keeps what was freed.
class HostileMemory : public testing::TestWithParam<bool> {};

TEST_P(HostileMemory, GoesBackToTheSystem) {
  if (kInstrumented) GTEST_SKIP();
  const bool stays = GetParam();
  ServerProcess server;
  const RawPeer old = join("old", "alive");
  const std::size_t before = resident(server.process().pid());
  {
    RawPeer senders[] = {RawPeer::connect(), RawPeer::connect(), RawPeer::connect()};
    for (const RawPeer& sender : senders) {
      sender.send_message(filled("", "["));
      sender.send_message(filled(kBroadcast, R"({"a":)"));
      settle(sender, kPatience);
    }
    if (!stays) {
      for (RawPeer& sender : senders) leave(sender);
    }
    EXPECT_TRUE(eventually([&] { return resident(server.process().pid()) < before + kEnough; }))
        << resident(server.process().pid()) - before;
  }
  expect_serving(old);
}

INSTANTIATE_TEST_SUITE_P(ForBrackets, HostileMemory, testing::Bool(), [](const auto& stays) {
  return stays.param ? "OnceTheirSendersAreIdle" : "OnceTheirSendersHaveGone";
});

class HostileKey : public testing::TestWithParam<const char*> {};

TEST_P(HostileKey, IsHarmlessInEveryType) {
  ServerProcess server(kOpen, kInfos);
  const RawPeer old = join("old", "alive");
  const RawPeer sender = RawPeer::connect();
  const std::string key = GetParam();
  for (const std::string type : {"notify", "register", "unregister"}) {
    sender.send_message(nested(
        R"({"type":")" + type + R"(","to":"*","notification":"n",")" + key + R"(":)", "[", "]"));
    if (key == "to" && type == "notify") {
      EXPECT_GT(sender.receive_message(kPatience).size(), kLargest / 2);
    }
  }
  settle(sender, kPatience);
  expect_serving(old);
}

INSTANTIATE_TEST_SUITE_P(Keys, HostileKey,
                         testing::Values("from", "notification", "flags", "priority", "reference",
                                         "to", "type"),
                         [](const auto& key) { return std::string(key.param); });

TEST(Hostile, ClientsThatNeverReadTheirErrorsAreHarmlessOnceGone) {
  ServerProcess server;
  const RawPeer old = join("old", "alive");
  for (int i = 0; i < 20; ++i) {
    RawPeer peer = RawPeer::connect();
    for (int n = 0; n < 20; ++n) peer.send_message(notification("nobody", "n"));
    peer.reset();
  }
  expect_serving(old);
}

TEST(Hostile, ManySessionsComeAndGoAtOnce) {
  ServerProcess server(kOpen, kAllLevels);
  const RawPeer old = join("old", "alive");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string name = "n" + std::to_string(t);
      for (int round = 0; round < 20; ++round) {
        RawPeer peer = join("t", name, round, t % 2 == 0 ? "" : kRemote);
        const int identity = settle(peer);
        peer.send_message(notification("t", name));
        EXPECT_EQ(peer.receive_message(), notification("t", name, identity));
        peer.send_message(notification("*", name));
        EXPECT_EQ(peer.receive_message(), notification("*", name));
        if (t == 0) peer.send_message(kObserve);
        if (round % 2 == 0) {
          peer.reset();
        } else if (t != 0) {
          leave(peer);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  expect_serving(old);
}
