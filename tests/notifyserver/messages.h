// SPDX-License-Identifier: MIT
// The messages that a client writes, and the answers that show where the server stands.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdlib>
#include <string>

#include "support/raw_peer.h"

namespace zedipc::test {

// The largest message that is served.
inline constexpr std::size_t kLimit = 524288;

// Peers from here are remote ones.
inline constexpr char kRemote[] = "127.0.0.2";

// Rules that let everything pass.
inline constexpr char kOpen[] = "in * * *\nout * * *\n";

inline constexpr char kObserve[] = R"({"type":"register_observer"})";
inline constexpr char kStopObserving[] = R"({"type":"unregister_observer"})";

inline std::string registration(const std::string& to, const std::string& name, int priority = 1) {
  return R"({"notification":")" + name + R"(","priority":)" + std::to_string(priority) +
         R"(,"to":")" + to + R"(","type":"register"})";
}

inline std::string unregistration(const std::string& to, const std::string& name) {
  return R"({"notification":")" + name + R"(","to":")" + to + R"(","type":"unregister"})";
}

// A "notify" as a client writes it. With a `reference` it is what the target gets.
inline std::string notification(const std::string& to, const std::string& name, int reference = 0) {
  return R"({"flags":0,"from":"printer","notification":")" + name + R"(","parameter":{"tray":2})" +
         (reference == 0 ? "" : R"(,"reference":)" + std::to_string(reference)) + R"(,"to":")" +
         to + R"(","type":"notify"})";
}

inline std::string unicast_error(const std::string& to, const std::string& name, int reference) {
  std::string text = notification(to, name, reference);
  return text.replace(text.rfind("notify"), 6, "unicast_error");
}

inline std::string observed(const std::string& to, const std::string& name) {
  return R"({"flags":0,"from":"printer","notification":")" + name + R"(","to":")" + to +
         R"(","type":"notify_observer"})";
}

// Waits until the server has handled all that this peer has sent, by sending a unicast
// that nobody takes. Its return must be the next message to the peer, so this also shows
// that nothing else has been sent to it. Gives the identity of the peer's session.
inline int settle(const RawPeer& peer, int msec = 10000) {
  static const std::string head =
      R"({"flags":0,"from":"settle","notification":"settle","parameter":0,"reference":)";
  static const std::string tail = R"(,"to":"settle","type":"unicast_error"})";
  peer.send_message(
      R"({"flags":0,"from":"settle","notification":"settle","parameter":0,"to":"settle",)"
      R"("type":"notify"})");
  const std::string text = peer.receive_message(msec);
  const int identity = text.rfind(head, 0) == 0 ? std::atoi(text.c_str() + head.size()) : 0;
  EXPECT_EQ(text, head + std::to_string(identity) + tail) << "a message came that was not due";
  return identity;
}

// A peer with one row in the server's table.
inline RawPeer join(const std::string& to, const std::string& name, int priority = 1,
                    const std::string& from = "") {
  RawPeer peer = RawPeer::connect("127.0.0.1", kNotifyPort, from);
  peer.send_message(registration(to, name, priority));
  settle(peer);
  return peer;
}

inline RawPeer join_as_observer() {
  RawPeer peer = RawPeer::connect();
  peer.send_message(kObserve);
  settle(peer);
  return peer;
}

// Ends the session, and waits until the server has forgotten it.
inline void leave(RawPeer& peer) {
  shutdown(peer.fd(), SHUT_WR);
  EXPECT_TRUE(peer.at_end());
  peer.close();
}

}  // namespace zedipc::test
