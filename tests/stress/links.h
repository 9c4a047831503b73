// SPDX-License-Identifier: MIT
// Connections whose two ends are both channels, one maker for each kind of channel.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include "ipc/endpoints.h"

namespace zedipc::test {

struct Link {
  Session one;
  Session other;
};

// The listeners have a backlog, so that one thread can make both ends.
class PipeLinks {
 public:
  Link make() {
    auto one = std::make_unique<Pipe>();
    EXPECT_TRUE(one->connect(listener_.name.c_str()));
    return {std::move(one), Session(listener_.channel.accept(10000))};
  }

 private:
  ListeningPipe listener_;
};

class TcpLinks {
 public:
  Link make() {
    auto one = std::make_unique<TCP>();
    EXPECT_TRUE(one->connect("127.0.0.1", port_in(listener_.channel.local_addr())));
    return {std::move(one), Session(listener_.channel.accept(10000))};
  }

 private:
  Listening listener_;
};

using KindsOfLinks = testing::Types<PipeLinks, TcpLinks>;

// The names of the kinds in the tests' names.
struct LinkName {
  template <typename Links>
  static std::string GetName(int) {
    return std::is_same_v<Links, PipeLinks> ? "Pipe" : "TCP";
  }
};

}  // namespace zedipc::test
