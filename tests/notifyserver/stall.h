// SPDX-License-Identifier: MIT
// Ways to hold the server in the middle of a message, and to have its writes fail there.
//
// The server handles one message at a time, and a write waits for as long as the other
// end does not read. So while it writes more to a narrow peer than the connection takes,
// nothing else changes in its tables, and a test can do to the other peers what it likes.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "notifyserver/messages.h"
#include "support/child.h"
#include "support/raw_peer.h"

namespace zedipc::test {

// A peer whose connection takes some ten thousand bytes that are not read, and no more.
inline RawPeer connect_narrow(const std::string& from = "") {
  RawPeer peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int segment = 536;
  const int buffer = 4096;
  setsockopt(peer.fd(), IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
  setsockopt(peer.fd(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (!from.empty()) {
    inet_pton(AF_INET, from.c_str(), &address.sin_addr);
    EXPECT_EQ(bind(peer.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  address.sin_port = htons(kNotifyPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(peer.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return peer;
}

// A narrow peer with one row in the server's table.
inline RawPeer join_narrow(const std::string& to, const std::string& name, int priority = 1) {
  RawPeer peer = connect_narrow();
  peer.send_message(registration(to, name, priority));
  settle(peer);
  return peer;
}

// The message, too large for a narrow peer, with a key that means nothing.
inline std::string bulky(const std::string& message) {
  return R"({"filler":")" + std::string(400000, 'x') + R"(",)" + message.substr(1);
}

// Waits until the server has begun to write to this narrow peer: from now on it stands
// still until the peer reads or goes.
inline void wait_for_stall(const RawPeer& narrow) {
  pollfd pf{narrow.fd(), POLLIN, 0};
  EXPECT_EQ(poll(&pf, 1, 10000), 1) << "the server writes nothing";
}

inline unsigned own_port(const RawPeer& peer) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(peer.fd(), reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

// The bytes from the peer on this port that the server has not taken yet; -1 if the
// system has no such connection at the server.
inline long unread_bytes(unsigned peer_port) {
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream in(table);
    std::string line;
    while (std::getline(in, line)) {
      unsigned local = 0;
      unsigned remote = 0;
      unsigned long unread = 0;
      const int fields = std::sscanf(line.c_str(), "%*d: %*[0-9A-F]:%x %*[0-9A-F]:%x %*x %*x:%lx",
                                     &local, &remote, &unread);
      if (fields == 3 && local == kNotifyPort && remote == peer_port) {
        return static_cast<long>(unread);
      }
    }
  }
  return -1;
}

// Waits until the thread of the peer's session has taken all that the peer has sent. If
// the server stands still it then waits for its turn, and reads no further.
inline void wait_until_taken(const RawPeer& peer) {
  EXPECT_TRUE(eventually([&] {
    int in_flight = -1;
    ioctl(peer.fd(), SIOCOUTQ, &in_flight);
    return in_flight == 0 && unread_bytes(own_port(peer)) == 0;
  })) << "the server does not read";
}

// Resets the connection, and waits until the server's system knows.
inline void reset_now(RawPeer& peer) {
  const unsigned port = own_port(peer);
  peer.reset();
  EXPECT_TRUE(eventually([&] { return unread_bytes(port) == -1; }));
}

inline std::size_t count_of(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

// Breaks a session so that only its end of stream is known to the server and its error
// state is not set: a write to it fails. Only while the server stands still.
inline void break_after_end(RawPeer& peer, const Child& server) {
  const std::size_t before = count_of(server.err(), "read_msg() EOF");
  shutdown(peer.fd(), SHUT_WR);
  EXPECT_TRUE(eventually([&] { return count_of(server.err(), "read_msg() EOF") > before; }));
  reset_now(peer);
}

// Breaks a session of which the server has noticed nothing yet: a write to it fails.
// Only while the server stands still.
inline void break_unnoticed(RawPeer& peer) {
  peer.send_message(R"({"type":"nothing"})");
  wait_until_taken(peer);
  reset_now(peer);
}

// Breaks a session so that its error state is set. Only while the server stands still.
inline void break_noticed(RawPeer& peer, const Child& server) {
  const std::size_t before = count_of(server.err(), "read_msg() ERROR");
  peer.reset();
  EXPECT_TRUE(eventually([&] { return count_of(server.err(), "read_msg() ERROR") > before; }));
}

}  // namespace zedipc::test
