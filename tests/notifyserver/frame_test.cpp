// SPDX-License-Identifier: MIT
// Frames that are too large, cut off or none, and what the session makes of them.
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

// A broadcast of exactly this size.
std::string broadcast_of(std::size_t size) {
  const std::string head = R"({"type":"notify","to":"*","notification":"n","parameter":")";
  return head + std::string(size - head.size() - 2, 'p') + "\"}";
}

// The beginning of a frame that is one byte too large. The server looks for the next
// frame behind the header, so that the payload need not come in full.
std::string refused() { return frame(kNotifyFrame, 0, broadcast_of(kLimit + 1)).substr(0, 1000); }

}  // namespace

TEST(Frame, OfTheLargestSizeIsServed) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send_message(broadcast_of(kLimit));
  EXPECT_EQ(peer.receive_message(), broadcast_of(kLimit));
}

TEST(Frame, OneByteTooLargeIsSkipped) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send(refused());
  settle(peer);
}

// The server looks at each byte of the payload by itself, which takes its time.
TEST(Frame, TooLargeIsSkippedToItsEnd) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send_message(broadcast_of(kLimit + 1));
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(50000), notification("*", "n"));
}

TEST(Frame, TooLargeIsNoMatterForTheServersLog) {
  ServerProcess server(kAllLevels);
  ServerLog log(server);
  const RawPeer peer = RawPeer::connect();
  peer.send(refused());
  settle(peer);
  EXPECT_EQ(log.lines(), Lines{});
}

TEST(Frame, TooLargeDoesNotBringBackTheMessageAheadOfIt) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send_message(notification("*", "n"));
  peer.send(refused());
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
  settle(peer);
}

TEST(Frame, TooLargeDoesNotCostTheSessionItsRows) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send(word(kNotifyFrame) + word(0x7FFFFFFF) + word(0));
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

TEST(Frame, InsideARefusedOneIsTakenForAMessage) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send(refused() + frame(kNotifyFrame, 0, notification("*", "n")));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

TEST(Frame, OfNegativeSizeDoesNotEndTheSession) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send(word(kNotifyFrame) + word(0xFFFFFFFF) + word(0));
  peer.send(word(kNotifyFrame) + word(3) + word(0));
  settle(peer);
}

TEST(Frame, BehindGarbageIsServed) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  std::string garbage;
  for (int i = 0; i < 10007; ++i) garbage += static_cast<char>(i * 37 + i / 251);
  peer.send(garbage + '\0' + "NF" + '\0');
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

TEST(Frame, OfAnotherKindIsSkipped) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send(frame(kNotifyFrame + 1, 0, notification("*", "n")));
  settle(peer);
}

TEST(Frame, IsServedWhateverItsTag) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  peer.send(frame(kNotifyFrame, 0xFFFFFFFF, notification("*", "n")));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

TEST(Frame, IsServedWhenItComesInPieces) {
  ServerProcess server;
  const RawPeer peer = join("display", "n");
  for (const char byte : frame(kNotifyFrame, 0, notification("*", "n"))) {
    peer.send(std::string(1, byte));
  }
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

TEST(Frame, OfAnUnfinishedPeerDoesNotDelayOthers) {
  ServerProcess server;
  const RawPeer unfinished = join("other", "m");
  unfinished.send(frame(kNotifyFrame, 0, notification("*", "n")).substr(0, 30));
  const RawPeer peer = join("display", "n");
  peer.send_message(notification("*", "n"));
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
}

// Within a frame the server waits 10 seconds for more.
TEST(Frame, WhoseHeaderStopsHalfWayDoesNotEndTheSession) {
  const Environment debug_lines{{"IPC_LOGMASK", "128"}};
  ServerProcess server(debug_lines);
  const std::string reading = "IPC::read_msg(timeout_msec==-1)";
  const RawPeer peer = RawPeer::connect();
  peer.send(word(kNotifyFrame) + word(100));
  ASSERT_TRUE(server.process().wait_for_err(reading));
  const std::size_t first = server.err().find(reading);
  ASSERT_TRUE(eventually([&] { return server.err().find(reading, first + 1) != std::string::npos; },
                         20000));
  settle(peer);
}

TEST(Frame, WhosePayloadStopsHalfWayDoesNotEndTheSession) {
  const Environment errors{{"IPC_LOGMASK", "8"}};
  ServerProcess server(errors);
  const RawPeer peer = join("display", "n");
  peer.send(frame(kNotifyFrame, 0, notification("*", "n")).substr(0, 30));
  ASSERT_TRUE(eventually([&] { return server.err().find("size!=read_bytes") != std::string::npos; },
                         20000));
  settle(peer);
}

TEST(Frame, WhosePayloadStopsHalfWayDoesNotBringBackTheMessageAheadOfIt) {
  const Environment errors{{"IPC_LOGMASK", "8"}};
  ServerProcess server(errors);
  const RawPeer peer = join("display", "n");
  const std::string whole = frame(kNotifyFrame, 0, notification("*", "n"));
  peer.send(whole);
  EXPECT_EQ(peer.receive_message(), notification("*", "n"));
  peer.send(whole.substr(0, 30));
  ASSERT_TRUE(eventually([&] { return server.err().find("size!=read_bytes") != std::string::npos; },
                         20000));
  settle(peer);
}
