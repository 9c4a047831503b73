// SPDX-License-Identifier: MIT
// Connected channels whose other end a test plays by hand.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <memory>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/log_lines.h"
#include "support/raw_peer.h"
#include "support/scratch_dir.h"

namespace zedipc::test {

// One end of a socket pair. `Channel` is TCP or derives from it.
template <typename Channel = TCP>
struct AdoptedChannel {
  AdoptedChannel() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    channel.setFD(ends[0]);
    peer = RawPeer(ends[1]);
  }

  Channel channel;
  RawPeer peer;
};

using Adopted = AdoptedChannel<>;

// Two channels, one on each end of a socket pair.
struct AdoptedPair {
  AdoptedPair() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    one.setFD(ends[0]);
    other.setFD(ends[1]);
  }

  TCP one;
  TCP other;
};

// A TCP connection, made by the channel.
struct ConnectedTcp {
  ConnectedTcp() {
    const RawListener listener("127.0.0.1", 0);
    EXPECT_TRUE(channel.connect("127.0.0.1", listener.port()));
    peer = listener.accept();
  }

  TCP channel;
  RawPeer peer;
};

// A session that a Pipe has accepted.
struct AcceptedPipe {
  AcceptedPipe() {
    EXPECT_TRUE(listener.listen(dir.file("pipe").c_str()));
    peer = RawPeer::connect_pipe(dir.file("pipe"));
    session.reset(listener.accept(10000));
    EXPECT_NE(session, nullptr);
  }

  ScratchDir dir;
  Pipe listener;
  std::unique_ptr<IPC> session;
  RawPeer peer;
};

// A listening TCP channel.
struct Listening {
  Listening() { EXPECT_TRUE(channel.listen(0, "127.0.0.1")); }

  TCP channel;
};

// Puts the descriptor `from`, which it takes over, in the place of the channel's, so
// that a channel with flags set is on a socket in another state.
inline void replace_socket(const IPC& channel, int from) {
  EXPECT_EQ(dup3(from, channel.getFD(), O_CLOEXEC), channel.getFD());
  close(from);
}

// A descriptor that poll finds in error and nothing else: an end to write on whose
// reader is gone.
inline int descriptor_in_error() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  return ends[1];
}

// A descriptor that poll finds hung up and nothing else: an end to read from whose
// writer is gone.
inline int descriptor_hung_up() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[1]);
  return ends[0];
}

inline void expect_flags(IPC& channel, bool eof, bool error) {
  EXPECT_EQ(channel.eof(), eof);
  EXPECT_EQ(channel.error(), error);
}

// The lines that `body` logs in a process of its own, as log_messages() gives them: of
// all levels, or of one level only. Without what channels say when they end.
template <typename Body>
std::vector<std::string> log_of(const Body& body, const std::string& level = "") {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "255"}}, body);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  return without_removals(log_messages(result.err, level));
}

using Lines = std::vector<std::string>;

}  // namespace zedipc::test
