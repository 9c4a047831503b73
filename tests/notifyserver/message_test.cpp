// SPDX-License-Identifier: MIT
// Messages with keys that are absent or odd, and messages that are none.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

namespace {

// Shows that the server does nothing on these texts and says nothing.
void expect_ignored(const Lines& texts) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer observer = join_as_observer();
  const RawPeer receiver = join("null", "null");
  const RawPeer peer = RawPeer::connect();
  settle(peer);
  log.forget();
  for (const std::string& text : texts) peer.send_message(text);
  settle(peer);
  EXPECT_EQ(log.lines(), Lines{});
  settle(receiver);
  settle(observer);
}

}  // namespace

TEST(Message, WithoutATypeIsIgnored) {
  expect_ignored({R"({"to":"null","notification":"null","from":"x"})"});
}

TEST(Message, WithATypeOfAnotherCaseIsIgnored) {
  expect_ignored({R"({"to":"*","notification":"null","type":"Notify"})"});
}

TEST(Message, WithATypeThatOnlyBeginsLikeAKnownOneIsIgnored) {
  expect_ignored({R"({"to":"*","notification":"null","type":"notify "})"});
}

TEST(Message, WithAnUnknownTypeIsIgnored) {
  expect_ignored({R"({"to":"*","notification":"null","type":"hello"})"});
}

TEST(Message, WithATypeThatIsNoStringIsIgnored) {
  expect_ignored({R"({"to":"*","notification":"null","type":["notify"]})"});
}

TEST(Message, OfATypeThatOnlyTheServerSendsIsIgnored) {
  expect_ignored({R"({"to":"*","notification":"null","type":"notify_observer"})",
                  R"({"to":"null","notification":"null","type":"unicast_error"})"});
}

TEST(Message, ThatIsNoJsonIsIgnored) { expect_ignored({"notify * null \xff\xfe"}); }

TEST(Message, ThatIsNoObjectIsIgnored) {
  expect_ignored({R"(["type","notify"])", R"("notify")", "12"});
}

TEST(Message, ThatIsEmptyIsIgnored) { expect_ignored({""}); }

TEST(Message, ThatIsCutOffCountsAsFarAsItGoes) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  const std::string text = R"({"type":"notify","to":"*","notification":"n","parameter":[1,2)";
  peer.send_message(text);
  EXPECT_EQ(peer.receive_message(), text);
}

TEST(Message, EndsAtAZeroByte) {
  ServerProcess server;
  const RawPeer peer = RawPeer::connect();
  const int identity = settle(peer);
  peer.send_message(std::string(R"({"type":"notify","to":"x","notification":"n")") + '\0' +
                    R"(,"from":"me"})");
  EXPECT_EQ(peer.receive_message(), R"({"flags":null,"from":null,"notification":"n","reference":)" +
                                        std::to_string(identity) +
                                        R"(,"to":"x","type":"unicast_error"})");
}

TEST(Notify, WithoutADestinationGoesToTheNameNull) {
  ServerProcess server;
  const RawPeer peer = join("null", "n");
  const int identity = settle(peer);
  peer.send_message(R"({"flags":0,"from":"x","notification":"n","type":"notify"})");
  EXPECT_EQ(peer.receive_message(), R"({"flags":0,"from":"x","notification":"n","reference":)" +
                                        std::to_string(identity) +
                                        R"(,"to":null,"type":"notify"})");
}

TEST(Notify, WithoutANotificationGoesToTheNotificationNull) {
  ServerProcess server;
  const RawPeer peer = join("display", "null");
  peer.send_message(R"({"to":"*","type":"notify"})");
  EXPECT_EQ(peer.receive_message(), R"({"to":"*","type":"notify"})");
}

TEST(Notify, GetsTheKeysThatItLacks) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  const int identity = settle(peer);
  peer.send_message(R"({"notification":"n","to":"display","type":"notify"})");
  EXPECT_EQ(peer.receive_message(), R"({"flags":null,"from":null,"notification":"n","reference":)" +
                                        std::to_string(identity) +
                                        R"(,"to":"display","type":"notify"})");
}

TEST(Notify, ToTheNumberOneIsLikeToItsText) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  const int identity = settle(peer);
  peer.send_message(R"({"flags":0,"from":"x","notification":"n","to":1,"type":"notify"})");
  EXPECT_EQ(peer.receive_message(), R"({"flags":0,"from":"x","notification":"n","reference":)" +
                                        std::to_string(identity) + R"(,"to":1,"type":"notify"})");
}

TEST(Notify, NamesMayBeNumbers) {
  ServerProcess server;
  const RawPeer peer = join("17", "42");
  const int identity = settle(peer);
  peer.send_message(R"({"flags":0,"from":5,"notification":42,"to":17,"type":"notify"})");
  EXPECT_EQ(peer.receive_message(), R"({"flags":0,"from":5,"notification":42,"reference":)" +
                                        std::to_string(identity) + R"(,"to":17,"type":"notify"})");
}

TEST(Notify, IsLoggedWithItsFlagsUnsigned) {
  ServerProcess server(kInfos);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect();
  peer.send_message(R"({"flags":-1,"from":"a","notification":"n","parameter":[1,"x"],"to":"*",)"
                    R"("type":"notify"})");
  settle(peer);
  EXPECT_EQ(log.lines(), (Lines{"info|handle_client(): ipc=S1 received notification 'n' (from='a', "
                                "to='*', para='[1,\"x\"]', flags=4294967295)"}));
}

TEST(Registration, WithoutNamesIsOneOfTheNameNull) {
  ServerProcess server(kInfos);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect();
  peer.send_message(R"({"type":"register"})");
  settle(peer);
  EXPECT_EQ(log.lines(), (Lines{"info|handle_client(): received registration from local client "
                                "(ipc=S1, notification='null', to='null', prio=0)"}));
}

TEST(Registration, WithNumbersForNamesIsReachedByTheirText) {
  ServerProcess server;
  const RawPeer peer = RawPeer::connect();
  peer.send_message(R"({"notification":42,"to":17,"priority":"3","type":"register"})");
  const int identity = settle(peer);
  peer.send_message(notification("17", "42"));
  EXPECT_EQ(peer.receive_message(), notification("17", "42", identity));
}
