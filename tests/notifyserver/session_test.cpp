// SPDX-License-Identifier: MIT
// A session's beginning and end, and who counts as local.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "notifyserver/messages.h"
#include "notifyserver/server_log.h"
#include "notifyserver/stall.h"
#include "support/log_lines.h"
#include "support/raw_peer.h"
#include "support/server_process.h"

using namespace zedipc::test;
using Lines = std::vector<std::string>;

namespace {

// How the server calls the client that comes from this address.
std::string place_of(const std::string& address, const std::string& server_address) {
  ServerProcess server(kOpen, kInfos);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect(server_address, kNotifyPort, address);
  peer.send_message(registration("t", "n"));
  settle(peer);
  const std::string line = log.lines().at(0);
  const std::string head = "info|handle_client(): received registration from ";
  EXPECT_EQ(line.compare(0, head.size(), head), 0) << line;
  return line.substr(head.size(), line.find(' ', head.size()) - head.size());
}

RawPeer connect_ipv6() {
  RawPeer peer(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(kNotifyPort);
  address.sin6_addr = in6addr_loopback;
  EXPECT_EQ(::connect(peer.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return peer;
}

}  // namespace

TEST(Session, FromTheLoopbackAddressIsLocal) {
  EXPECT_EQ(place_of("127.0.0.1", "127.0.0.1"), "local");
}

TEST(Session, FromTheLoopbackAddressIsLocalWhateverAddressItCalls) {
  EXPECT_EQ(place_of("127.0.0.1", "127.0.0.9"), "local");
}

TEST(Session, FromAnotherLoopbackAddressIsRemote) {
  EXPECT_EQ(place_of("127.0.0.2", "127.0.0.1"), "remote");
}

TEST(Session, FromAnAddressThatOnlyBeginsLikeTheLocalOneIsRemote) {
  EXPECT_EQ(place_of("127.0.0.10", "127.0.0.1"), "remote");
}

TEST(Session, FromTheIPv6LoopbackAddressIsRemote) {
  ServerProcess server(kOpen, kInfos);
  ServerLog log(server);
  const RawPeer peer = connect_ipv6();
  peer.send_message(registration("t", "n"));
  settle(peer);
  EXPECT_EQ(log.lines(), (Lines{"info|handle_client(): received registration from remote client "
                                "(ipc=S1, notification='n', to='t', prio=1)"}));
}

TEST(Session, EndsWithItsStream) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  RawPeer peer = RawPeer::connect();
  settle(peer);
  leave(peer);
  EXPECT_EQ(log.lines(), (Lines{"error|handle_client(): read_msg() EOF on ipc=S1, close session"}));
}

TEST(Session, EndsWithItsStreamInTheMiddleOfAFrame) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  RawPeer peer = RawPeer::connect();
  peer.send(frame(kNotifyFrame, 0, registration("t", "n")).substr(0, 40));
  leave(peer);
  EXPECT_EQ(log.lines(), (Lines{"error|handle_client(): read_msg() EOF on ipc=S1, close session"}));
}

TEST(Session, EndsWithAReset) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  RawPeer peer = RawPeer::connect();
  settle(peer);
  peer.reset();
  EXPECT_TRUE(
      log.wait_for_last("error|handle_client(): read_msg() ERROR on ipc=S1, close session"));
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(Session, TakesItsRowsAlongWithoutAWord) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer staying = join("staying", "n");
  const int identity = settle(staying);
  RawPeer leaving = join("leaving", "n", 9);
  leaving.send_message(registration("leaving", "m", 9));
  settle(leaving);
  log.forget();
  leave(leaving);
  EXPECT_EQ(log.lines(), (Lines{"error|handle_client(): read_msg() EOF on ipc=S2, close session"}));
  staying.send_message(notification("leaving", "m"));
  EXPECT_EQ(staying.receive_message(), unicast_error("leaving", "m", identity));
  staying.send_message(notification("1", "n"));
  EXPECT_EQ(staying.receive_message(), notification("1", "n", identity));
}

TEST(Session, LeavesNothingForAClientThatComesAgain) {
  ServerProcess server;
  RawPeer peer = join("display", "n");
  leave(peer);
  peer = RawPeer::connect();
  const int identity = settle(peer);
  peer.send_message(notification("display", "n"));
  EXPECT_EQ(peer.receive_message(), unicast_error("display", "n", identity));
}

TEST(Session, HandlesWhatWasSentAheadOfItsEnd) {
  ServerProcess server;
  const RawPeer receiver = join("display", "n");
  RawPeer sender = RawPeer::connect();
  sender.send_message(notification("*", "n"));
  sender.send_message(notification("*", "n", 2));
  sender.close();
  EXPECT_EQ(receiver.receive_message(), notification("*", "n"));
  EXPECT_EQ(receiver.receive_message(), notification("*", "n", 2));
}

TEST(Session, IsNamedByTheAddressThatTheListenerLogged) {
  ServerProcess server(kAllLevels);
  const RawPeer peer = join("display", "n");
  std::string accepted;
  std::string registered;
  for (const LogLine& line : parse_log(server.err())) {
    const std::size_t at = line.message.find("ipc=0x");
    if (at == std::string::npos) continue;
    const std::string address = line.message.substr(at, line.message.find_first_of(",)", at) - at);
    if (line.message.find("accepted new session") != std::string::npos) accepted = address;
    if (line.message.find("received registration") != std::string::npos) registered = address;
  }
  EXPECT_NE(accepted, "");
  EXPECT_EQ(registered, accepted);
}

TEST(Session, LogsAsTheServersModule) {
  ServerProcess server(kAllLevels);
  {
    RawPeer peer = join("display", "n");
    peer.send_message(notification("*", "n"));
    EXPECT_EQ(peer.receive_message(), notification("*", "n"));
    leave(peer);
  }
  const std::vector<LogLine> lines = parse_log(server.err());
  EXPECT_GT(lines.size(), 5U);
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.file, "notifyserver.cpp") << line.message;
    EXPECT_GT(line.line, 0) << line.message;
    EXPECT_EQ(line.channel, "NFY") << line.message;
  }
}

TEST(Session, WaitsWhileAnotherIsServed) {
  ServerProcess server;
  RawPeer narrow = join_narrow("narrow", "n");
  const RawPeer sender = RawPeer::connect();
  const RawPeer other = join("other", "m");
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  other.send_message(notification("*", "m"));
  wait_until_taken(other);
  EXPECT_TRUE(other.silent(100));
  EXPECT_EQ(narrow.receive_message(), bulky(notification("*", "n")));
  EXPECT_EQ(other.receive_message(), notification("*", "m"));
}

TEST(Session, ThatDoesNotReadIsWaitedForUntilItGoes) {
  ServerProcess server;
  RawPeer narrow = join_narrow("narrow", "n");
  const RawPeer healthy = join("healthy", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("*", "n")));
  wait_for_stall(narrow);
  EXPECT_TRUE(healthy.silent(100));
  narrow.reset();
  EXPECT_EQ(healthy.receive_message(), bulky(notification("*", "n")));
}

TEST(Session, TellsObserversAheadOfTheLineOnAUnicast) {
  ServerProcess server(kInfos);
  ServerLog log(server);
  const RawPeer receiver = join("display", "n");
  const RawPeer observer = connect_narrow();
  observer.send_message(kObserve);
  settle(observer);
  log.forget();
  const std::string from(400000, 'f');
  receiver.send_message(R"({"from":")" + from +
                        R"(","notification":"n","to":"display","type":"notify"})");
  wait_for_stall(observer);
  EXPECT_EQ(log.lines().size(), 1U);
  EXPECT_NE(observer.receive_message().find(R"("to":"display","type":"notify_observer")"),
            std::string::npos);
  EXPECT_TRUE(log.wait_for_last(
      "info|handle_client(): delivery of unicast notification 'n' to 'display' (ipc=S1) "
      "successful"));
}

TEST(Session, TellsObserversBehindTheLineOnABroadcast) {
  ServerProcess server(kInfos);
  ServerLog log(server);
  const RawPeer receiver = join("display", "n");
  const RawPeer observer = connect_narrow();
  observer.send_message(kObserve);
  settle(observer);
  const std::string from(400000, 'f');
  receiver.send_message(R"({"from":")" + from +
                        R"(","notification":"n","to":"*","type":"notify"})");
  wait_for_stall(observer);
  EXPECT_EQ(log.lines().back(),
            "info|handle_client(): broadcast notification 'n' to 'display' (ipc=S1) successful");
}

TEST(Session, WritesToTheReceiverAheadOfTheObservers) {
  ServerProcess server;
  const RawPeer observer = join_as_observer();
  const RawPeer narrow = join_narrow("narrow", "n");
  const RawPeer sender = RawPeer::connect();
  sender.send_message(bulky(notification("narrow", "n")));
  wait_for_stall(narrow);
  EXPECT_TRUE(observer.silent(100));
  EXPECT_GT(narrow.receive_message().size(), 400000U);
  EXPECT_EQ(observer.receive_message(), observed("narrow", "n"));
}
