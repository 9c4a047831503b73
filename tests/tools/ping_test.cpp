// SPDX-License-Identifier: MIT
// zedipc ping.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <regex>
#include <string>

#include "support/raw_peer.h"
#include "support/server_process.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::RawListener;
using zedipc::test::RawPeer;
using zedipc::test::ServerProcess;

namespace {

bool matches(const std::string& text, const std::string& pattern) {
  return std::regex_match(text, std::regex(pattern));
}

}  // namespace

TEST(Ping, PrintsRoundTripsAndASummary) {
  const ServerProcess server;
  const Result result = run({"ping", "--count", "3", "--interval", "10"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto printed = lines(result.out);
  ASSERT_EQ(printed.size(), 6U) << result.out;
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(matches(printed[i], R"(seq=[123] time=\d+\.\d{3} ms)")) << printed[i];
  }
  EXPECT_EQ(printed[3], "--- 127.0.0.1 ---");
  EXPECT_EQ(printed[4], "3 sent, 3 received, 0% lost");
  EXPECT_TRUE(matches(printed[5], R"(round trip min/median/p99/max = (\d+\.\d{3}/?){4} ms)"))
      << printed[5];
}

TEST(Ping, IsSeenByObserversAsWhatItIs) {
  const ServerProcess server;
  Ready observer({"observe", "--count", "1", "--format", "raw"});
  EXPECT_EQ(run({"ping", "--count", "1"}).status, 0);
  EXPECT_EQ(observer.wait(), 0);
  EXPECT_EQ(observer.out(), "zedipc.ping\n");
}

TEST(Ping, GivesItsSummaryOnCtrlC) {
  const ServerProcess server;
  Tool tool({"ping", "--interval", "60000"});
  ASSERT_TRUE(tool.prints("seq=1 time="));
  EXPECT_EQ(tool.interrupt(), 0);
  EXPECT_TRUE(contains(tool.out(), "\n1 sent, 1 received, 0% lost\n")) << tool.out();
}

TEST(Ping, SaysWhenTheServerIsNotThereAndGoesOnWhenItIs) {
  ServerProcess server;
  Tool tool({"ping", "--interval", "50"});
  ASSERT_TRUE(tool.prints("seq=1 time="));
  server.stop();
  ASSERT_TRUE(tool.prints("the server is not there\n"));
  server.start();
  EXPECT_TRUE(zedipc::test::eventually([&] {
    const std::string text = tool.out();
    return contains(text.substr(text.rfind("the server is not there")), "time=");
  }));
  EXPECT_EQ(tool.interrupt(), 0);
  EXPECT_FALSE(contains(tool.out(), " 0% lost")) << tool.out();
}

TEST(Ping, SaysThatTheServersRulesRefuseIt) {
  // A server whose rules refuse everything, played by hand.
  const RawListener listener;
  Tool tool({"ping", "--count", "1"});
  const RawPeer peer = listener.accept();
  for (std::string text = peer.receive_message(); text[0] == '{'; text = peer.receive_message()) {
    zedipc::JSObject message;
    message.parse(text.c_str());
    if (message("type").getString() != "notify") continue;
    message("type") = "unicast_error";
    peer.send_message(message.dump());
  }
  EXPECT_EQ(tool.wait(), 1);
  EXPECT_EQ(tool.out(),
            "seq=1 came back: the server's rules do not admit zedipc.ping\n"
            "--- 127.0.0.1 ---\n"
            "1 sent, 0 received, 100% lost\n");
}
